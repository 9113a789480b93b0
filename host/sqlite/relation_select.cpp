// The answer of a statement as columns: the different values of each get codes in SQLite's order.
#include <fmt/format.h>
#include <numeric>
#include <unordered_map>

#include "host/error.h"
#include "host/sqlite/relation.h"

namespace host::sqlite {

namespace {

// Bytes are the statement's, until its next step.
cell cell_in(sqlite3_stmt *statement, int column) {
    const int type = sqlite3_column_type(statement, column);
    if (type == SQLITE_INTEGER)
        return integer_cell(sqlite3_column_int64(statement, column));
    if (type == SQLITE_FLOAT)
        return real_cell(sqlite3_column_double(statement, column));
    cell c;
    if (type == SQLITE_NULL)
        return c;
    c.type = type == SQLITE_TEXT ? cell::kind::text : cell::kind::blob;
    const void *bytes = type == SQLITE_TEXT ? static_cast<const void *>(sqlite3_column_text(statement, column))
                                            : sqlite3_column_blob(statement, column);
    const int size = sqlite3_column_bytes(statement, column);
    if (bytes == nullptr && size != 0)
        throw std::bad_alloc();
    c.bytes = {static_cast<const char *>(bytes), static_cast<std::size_t>(size)};
    return c;
}

class value_collector {
public:
    // Columns of REAL have one zero, others keep its sign.
    void declared_real() { real_ = true; }
    void add(sqlite3_stmt *statement, int column) {
        cell c = cell_in(statement, column);
        if (real_ && c.type == cell::kind::real)
            c.real += 0.0;
        if (c.type == cell::kind::null) {
            has_null_ = true;
            numbers_.push_back(null_number);
            return;
        }
        key_.assign(1, static_cast<char>(c.type));
        if (c.is_number())
            key_.append(reinterpret_cast<const char *>(&c.integer), sizeof c.integer); // the bits of a double too
        else
            key_.append(c.bytes);
        const auto [found, fresh] = number_of_.try_emplace(key_, static_cast<ub4>(values_.size()));
        if (fresh) {
            values_.push_back(c);
            if (!c.is_number())
                values_.back().bytes = std::string_view(found->first).substr(1); // stays where it is
        }
        numbers_.push_back(found->second);
    }

    // A column of plain packed codes, and the value of each code. One without values is of this type.
    std::unique_ptr<column> finish(const std::string &name, std::optional<column_form> form, value_type without_values,
                                   std::vector<cell> &values) {
        std::vector<ub4> order(values_.size());
        std::iota(order.begin(), order.end(), 0);
        std::sort(order.begin(), order.end(), [&](ub4 a, ub4 b) {
            const int c = compare_cells(values_[a], values_[b]);
            return c != 0 ? c < 0 : a < b;
        });
        std::vector<ub4> code_of(values_.size());
        std::vector<std::string> symbols;
        std::optional<value_type> type;
        if (has_null_) {
            symbols.emplace_back();
            values.emplace_back();
        }
        for (const ub4 number : order) {
            code_of[number] = static_cast<ub4>(values.size());
            values.push_back(values_[number]);
            symbols.push_back(symbol(values_[number]));
            type = type ? common_type(*type, type_for(values_[number])) : type_for(values_[number]);
        }
        for (ub4 &number : numbers_)
            number = number == null_number ? 0 : code_of[number];
        return std::make_unique<column>(
            name, dictionary(found_type(type.value_or(without_values)), has_null_, symbol_table(name, symbols)),
            std::move(numbers_), form);
    }

private:
    static constexpr ub4 null_number = 0xffffffff;
    // What the host's groups read of it.
    static std::string symbol(const cell &c) {
        return c.type == cell::kind::integer ? fmt::format("{}", c.integer)
               : c.type == cell::kind::real  ? fmt::format("{}", c.real)
                                             : std::string(c.bytes);
    }
    static value_type type_for(const cell &c) {
        if (c.type == cell::kind::integer)
            return value_type::integer;
        if (c.type == cell::kind::real)
            return std::isfinite(c.real) ? value_type::decimal : value_type::text;
        const value_type read = c.type == cell::kind::text ? type_of(c.bytes) : value_type::text;
        return read == value_type::date || read == value_type::date_time ? read : value_type::text;
    }

    bool has_null_ = false, real_ = false;
    std::string key_;
    std::unordered_map<std::string, ub4> number_of_;
    std::vector<cell> values_;
    block<ub4> numbers_; // of the rows' values
};

// By the rules that SQLite has for declared types.
std::pair<value_column::affinity, const char *> affinity_of(const char *declared) {
    std::string name = declared == nullptr ? "" : declared;
    for (char &c : name)
        c = c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
    const auto has = [&](const char *word) { return name.find(word) != name.npos; };
    using affinity = value_column::affinity;
    if (has("INT"))
        return {affinity::numeric, "INTEGER"};
    if (has("CHAR") || has("CLOB") || has("TEXT"))
        return {affinity::text, "TEXT"};
    if (name.empty() || has("BLOB"))
        return {affinity::none, ""};
    return {affinity::numeric, has("REAL") || has("FLOA") || has("DOUB") ? "REAL" : "NUMERIC"};
}

} // namespace

std::shared_ptr<relation> relation::of_select(sqlite3 *db, const relation_source &source) {
    if (!source.types.empty() || !source.options.null_texts.empty())
        throw error("type= and null= are of files; a statement's values have their types");
    const char *behind = nullptr;
    const statement read = prepared(db, source.select.c_str(), &behind);
    if (!read && sqlite3_errcode(db) != SQLITE_OK)
        throw error(fmt::format("select='{}': {}", source.select, sqlite3_errmsg(db)));
    if (!read || sqlite3_stmt_readonly(read.get()) == 0 || sqlite3_column_count(read.get()) == 0 ||
        !trimmed(behind).empty())
        throw error(fmt::format("select='{}': it must be one statement that only reads", source.select));

    std::shared_ptr<relation> r(new relation());
    r->library_ = opened_library();
    r->session_ = std::make_unique<session>(*r->library_);
    const int count = sqlite3_column_count(read.get());
    std::vector<value_collector> collectors(static_cast<std::size_t>(count));
    for (int i = 0; i < count; i++)
        if (affinity_of(sqlite3_column_decltype(read.get(), i)).second == std::string_view("REAL"))
            collectors[static_cast<std::size_t>(i)].declared_real();
    int status;
    while ((status = sqlite3_step(read.get())) == SQLITE_ROW) {
        if (r->rows_ == table::most_rows)
            throw error(fmt::format("more than {} rows", table::most_rows));
        r->rows_++;
        for (int i = 0; i < count; i++)
            collectors[static_cast<std::size_t>(i)].add(read.get(), i);
    }
    if (status == SQLITE_INTERRUPT)
        throw interrupted();
    if (status != SQLITE_DONE)
        throw error(fmt::format("select='{}': {}", source.select, sqlite3_errmsg(db)));

    std::vector<std::string> names, types;
    for (int i = 0; i < count; i++)
        names.emplace_back(sqlite3_column_name(read.get(), i));
    std::string header;
    append_csv_line(header, names.size(), [&](std::size_t i) { return std::string_view(names[i]); });
    csv_options plain;
    plain.delimiter = ',';
    r->file_ = std::make_unique<csv_file>("the statement's answer", header, plain);
    for (const std::string &text : source.encode)
        if (text != "plain")
            throw error(fmt::format("encode='{}': the columns of a statement are plain", text));

    std::vector<std::unique_ptr<column>> columns;
    std::vector<std::vector<cell>> values(names.size());
    for (std::size_t i = 0; i < names.size(); i++) {
        // Groups have sums of what may be numbers, if null ones.
        const char *const declared = sqlite3_column_decltype(read.get(), static_cast<int>(i));
        const bool texts = affinity_of(declared).first == value_column::affinity::text;
        columns.push_back(collectors[i].finish(r->file_->columns()[i], column_form::plain,
                                               texts ? value_type::text : value_type::integer, values[i]));
    }
    r->table_ = std::make_unique<table>(*r->file_, r->rows_, std::move(columns));
    r->columns_.resize(names.size());
    for (std::size_t i = 0; i < names.size(); i++) {
        const auto [affinity, name] = affinity_of(sqlite3_column_decltype(read.get(), static_cast<int>(i)));
        r->adopt(i, *r->table_->encoded(i), affinity, values[i]);
        types.emplace_back(name);
    }
    r->declare(r->file_->columns(), types);
    return r;
}

} // namespace host::sqlite
