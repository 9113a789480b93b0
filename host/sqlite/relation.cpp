#include "host/sqlite/relation.h"

#include <filesystem>
#include <fmt/format.h>
#include <map>
#include <unistd.h>

#include "host/error.h"
#include "host/join/code_reader.h"

namespace host::sqlite {

namespace {

std::optional<column_form> form_of_name(const std::string &name) {
    for (const column_form form : {column_form::plain, column_form::spak, column_form::rle})
        if (name == name_of(form))
            return form;
    if (name != "auto")
        throw error(fmt::format("encode='{}': the forms are plain, rle, spak and auto", name));
    return std::nullopt;
}

// COLUMN=WHAT, the column spelt as the file has it; of WHAT alone the column is "".
std::pair<std::string, std::string> named(const std::string &text, const csv_file &file) {
    const std::size_t equals = text.rfind('=');
    if (equals == text.npos)
        return {"", text};
    return {file.columns()[file.column(text.substr(0, equals))], text.substr(equals + 1)};
}

// SQLite's own conversion of decimal digits, whose rounding is its own. A column of REAL has one zero.
class sqlite_numbers {
public:
    explicit sqlite_numbers(sqlite3 *db) : statement_(prepared(db, "SELECT CAST(?1 AS REAL)")) {
        if (!statement_)
            throw error(sqlite3_errmsg(db));
    }

    double real(const std::string &text) {
        sqlite3_bind_text(statement_.get(), 1, text.data(), static_cast<int>(text.size()), SQLITE_STATIC);
        const int status = sqlite3_step(statement_.get());
        const double value = sqlite3_column_double(statement_.get(), 0) + 0.0;
        sqlite3_reset(statement_.get());
        if (status == SQLITE_INTERRUPT)
            throw interrupted();
        if (status != SQLITE_ROW)
            throw error(sqlite3_errstr(status));
        return value;
    }

private:
    statement statement_;
};

// Learns of interrupts. These are of statements that run, and a table of a database that has just been opened is made
// before one does: this one does all the time.
class running_statement {
public:
    explicit running_statement(sqlite3 *db)
        : statement_(prepared(db, "WITH RECURSIVE n(i) AS (VALUES(1) UNION ALL SELECT 1 FROM n) SELECT i FROM n")) {
        if (!statement_)
            throw error(sqlite3_errmsg(db));
        look();
    }

    void look() {
        if (sqlite3_step(statement_.get()) == SQLITE_INTERRUPT)
            throw interrupted();
    }

private:
    statement statement_;
};

// What a column of INTEGER makes of it: a number beyond 64 bits becomes a double.
cell integer_of(const std::string &text, sqlite_numbers &numbers) {
    const std::string_view digits = trimmed(text);
    errno = 0;
    const long long value = std::strtoll(digits.data(), nullptr, 10);
    return errno == ERANGE ? real_cell(numbers.real(std::string(digits))) : integer_cell(value);
}

const char *declared_as(value_type type) {
    return type == value_type::integer ? "INTEGER" : type == value_type::decimal ? "REAL" : "TEXT";
}

struct file_state {
    std::string name;
    std::filesystem::file_time_type changed;
    std::uintmax_t bytes;
    std::string source;
    auto operator<=>(const file_state &) const = default;
};

} // namespace

std::shared_ptr<library> relation::opened_library() {
    static std::mutex opening;
    static std::shared_ptr<library> opened;
    const std::lock_guard lock(opening);
    if (!opened) {
        const processor here = this_processor();
        auto fresh = std::make_shared<library>(choose_library("", here));
        fresh->check_and_start(here);
        opened = std::move(fresh);
    }
    return opened;
}

ub8 relation::bytes() const {
    ub8 bytes = 0;
    for (const auto &col : columns_)
        bytes += col->stored().encoded_bytes() + col->stored().dict().symbols().held_bytes();
    return bytes;
}

void relation::adopt(std::size_t number, column &col, value_column::affinity affinity,
                     const std::vector<cell> &values) {
    selection all{std::vector<ub8>((rows_ + 63ull) / 64), rows_};
    if (rows_ > 0)
        library_->ctx().lbiwvset_range(all.bits.data(), 0, rows_ - 1);
    step_list steps;
    code_reader codes(*session_, {&col}, rows_, all, rows_, steps);
    codes.next();
    columns_[number] = std::make_unique<value_column>(col, affinity, values, codes.codes(0));
    all_plain_ = all_plain_ && col.form() == column_form::plain;
}

void relation::declare(const std::vector<std::string> &names, const std::vector<std::string> &types) {
    declaration_ = "CREATE TABLE x(";
    for (std::size_t i = 0; i < names.size(); i++) {
        for (std::size_t j = 0; j < i; j++)
            if (sqlite3_stricmp(names[i].c_str(), names[j].c_str()) == 0)
                throw error(fmt::format("columns {} and {} are both named {}", j + 1, i + 1, names[i]));
        declaration_ += i == 0 ? "\"" : ", \"";
        for (const char c : names[i])
            declaration_ += c == '"' ? "\"\"" : std::string(1, c);
        declaration_ += "\" " + types[i];
    }
    declaration_ += ")";
}

void relation::load_file(sqlite3 *db, const relation_source &source) {
    file_ = std::make_unique<csv_file>(source.file, source.csv);
    read_options options = source.options;
    options.form_of[""] = column_form::plain;
    for (const std::string &text : source.encode) {
        const auto [name, form] = named(text, *file_);
        options.form_of[name] = form_of_name(form);
    }
    for (const std::string &text : source.types) {
        const auto [name, type] = named(text, *file_);
        if (name.empty() || !type_named(type))
            throw error(
                fmt::format("type='{}': it is COLUMN=TYPE, of integer, decimal, date, date-time and text", text));
        options.type_of[name] = *type_named(type);
    }
    running_statement running(db);
    const bool shown = isatty(STDERR_FILENO) == 1;
    options.progress = [&](std::size_t done, std::size_t of) {
        if (shown)
            fmt::print(stderr, "\r{}: {} %\r", source.file, done * 100 / of);
        running.look();
    };
    std::vector<std::size_t> all(file_->columns().size());
    for (std::size_t i = 0; i < all.size(); i++)
        all[i] = i;
    table_ = std::make_unique<table>(*file_, all, options);
    // SQLite has no dates but their texts. Where these order otherwise, a date is a text here too.
    bool again = false;
    for (const std::size_t i : all) {
        const column &col = *table_->encoded(i);
        if (col.type() != value_type::date && col.type() != value_type::date_time)
            continue;
        std::string before;
        for (ub8 code = col.first_code(); code < col.end_code(); code++) {
            std::string text = col.dict().symbols()[code];
            if (text < before) {
                options.type_of[col.name()] = value_type::text;
                again = true;
                break;
            }
            before = std::move(text);
        }
    }
    if (again)
        table_ = std::make_unique<table>(*file_, all, options);
    file_->forget_text();
    if (shown)
        fmt::print(stderr, "\r\033[K");

    rows_ = table_->rows();
    columns_.resize(all.size());
    std::vector<std::string> types;
    sqlite_numbers numbers(db);
    for (const std::size_t i : all) {
        column &col = *table_->encoded(i);
        const bool integer = col.type() == value_type::integer, decimal = col.type() == value_type::decimal;
        std::vector<std::string> texts;
        std::vector<cell> values(col.end_code());
        texts.reserve(values.size());
        for (ub8 code = 0; code < col.end_code(); code++) {
            texts.push_back(col.dict().symbols()[code]);
            if (code >= col.first_code())
                values[code] = integer   ? integer_of(texts.back(), numbers)
                               : decimal ? real_cell(numbers.real(texts.back()))
                                         : text_cell(texts.back());
        }
        adopt(i, col, integer || decimal ? value_column::affinity::numeric : value_column::affinity::text, values);
        types.emplace_back(declared_as(col.type()));
    }
    declare(file_->columns(), types);
}

std::shared_ptr<relation> relation::of_file(sqlite3 *db, const relation_source &source) {
    static std::mutex loading;
    static std::map<file_state, std::weak_ptr<relation>> loaded;
    const std::lock_guard lock(loading);
    std::error_code missing;
    const std::filesystem::path path = std::filesystem::canonical(source.file, missing);
    if (missing)
        throw error(fmt::format("cannot read {}: {}", source.file, missing.message()));
    const file_state state{path, std::filesystem::last_write_time(path, missing),
                           std::filesystem::is_regular_file(path, missing) ? std::filesystem::file_size(path, missing)
                                                                           : 0,
                           source.as_written};
    std::erase_if(loaded, [](const auto &entry) { return entry.second.expired(); });
    if (const auto found = loaded.find(state); found != loaded.end())
        if (auto rows = found->second.lock())
            return rows;
    std::shared_ptr<relation> fresh(new relation());
    fresh->library_ = opened_library();
    fresh->session_ = std::make_unique<session>(*fresh->library_);
    fresh->load_file(db, source);
    loaded[state] = fresh;
    return fresh;
}

} // namespace host::sqlite
