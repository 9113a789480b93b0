// The command `tavo`: what a library holds, and queries over CSV files.
#include <CLI/CLI.hpp>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fmt/format.h>
#include <map>
#include <numeric>
#include <unistd.h>

#include "host/column/csv.h"
#include "host/command/info.h"
#include "host/error.h"
#include "host/link/callbacks.h"
#include "host/link/loader.h"
#include "host/query/code_plan.h"
#include "host/query/predicate.h"
#include "host/query/query.h"
#include "host/query/recompute.h"
#include "host/query/value_reader.h"

namespace {

constexpr int check_failed = 1, bad_input = 2;

struct query_options {
    std::string file, columns, library;
    std::vector<std::string> where, null_texts, encode;
    ub4 limit = 0xffffffff;
    bool count = false, explain = false, check = false;
};

// All that goes to standard output goes through here, so that a full disk is noticed.
class output {
public:
    void write(std::string_view text) {
        std::fwrite(text.data(), 1, text.size(), stdout);
        fail_on_error();
    }
    void finish() {
        std::fflush(stdout);
        fail_on_error();
    }

private:
    static void fail_on_error() {
        if (std::ferror(stdout))
            throw host::error(fmt::format("cannot write the answer: {}", std::strerror(errno)));
    }
};

// One line on standard error while a large file is read, if that is a terminal.
class progress_line {
public:
    explicit progress_line(std::string file) : file_(std::move(file)), shown_(isatty(STDERR_FILENO) == 1) {}
    ~progress_line() {
        if (percent_ >= 0)
            std::fputs("\r\x1b[K", stderr);
    }
    void show(std::size_t done, std::size_t all) {
        constexpr std::size_t large = 16 << 20;
        const int percent = static_cast<int>(done * 100 / all);
        if (!shown_ || all < large || percent == percent_)
            return;
        percent_ = percent;
        std::fputs(fmt::format("\rreading {}: {} %", file_, percent).c_str(), stderr);
    }

private:
    std::string file_;
    bool shown_;
    int percent_ = -1;
};

// Numbers of the columns in a list like the header's line.
std::vector<std::size_t> column_list(const host::csv_file &file, const std::string &list) {
    std::vector<std::size_t> numbers;
    host::csv_reader reader(list, "--columns");
    std::vector<host::csv_field> names;
    reader.next(names);
    for (const host::csv_field &name : names)
        numbers.push_back(file.column(name.value()));
    return numbers;
}

// --encode FORM for all columns, or COLUMN=FORM for one.
host::forms forms_of(const std::vector<std::string> &asked, const host::csv_file &file) {
    host::forms forms;
    for (const std::string &text : asked) {
        const std::size_t equals = text.rfind('=');
        const std::string column = equals == std::string::npos ? "" : text.substr(0, equals);
        const std::string form = equals == std::string::npos ? text : text.substr(equals + 1);
        if (!column.empty())
            file.column(column);
        if (form == "plain")
            forms[column] = host::column_form::plain;
        else if (form == "spak")
            forms[column] = host::column_form::spak;
        else if (form == "rle")
            forms[column] = host::column_form::rle;
        else if (form == "auto")
            forms[column] = std::nullopt; // also where another form is asked for all others
        else
            throw host::error(fmt::format("--encode {}: the forms are auto, plain, spak and rle", text));
    }
    return forms;
}

// Reads the file's columns with the given numbers.
host::table read_table(const host::csv_file &file, const std::vector<std::size_t> &columns,
                       const query_options &options) {
    progress_line progress(options.file);
    host::read_options reading;
    reading.form_of = forms_of(options.encode, file);
    reading.null_texts = options.null_texts;
    reading.progress = [&](std::size_t done, std::size_t all) { progress.show(done, all); };
    return host::table(file, columns, reading);
}

std::vector<std::size_t> all_columns(const host::csv_file &file) {
    std::vector<std::size_t> numbers(file.columns().size());
    std::iota(numbers.begin(), numbers.end(), std::size_t{0});
    return numbers;
}

// A column's bytes and form, and its dictionary's.
int run_columns(const query_options &options) {
    const host::csv_file file(options.file);
    const host::table table = read_table(file, all_columns(file), options);
    std::size_t room = 6;
    for (const std::string &name : file.columns())
        room = std::max(room, name.size());
    std::string text = fmt::format(
        "{:<{}}  {:<9}  {:>9}  {:>5}  {:>5}  {:>5}  {:>9}  {:>11}  {:>11}  {:>5}  {:<10}  {:>11}\n", "column", room,
        "type", "distinct", "nulls", "width", "form", "runs", "plain bytes", "encoded", "ratio", "dictionary", "bytes");
    ub8 plain = 0, encoded = 0;
    for (const std::size_t number : all_columns(file)) {
        host::column &col = *table.encoded(number);
        const host::dictionary &dict = col.dict();
        text += fmt::format(
            "{:<{}}  {:<9}  {:>9}  {:>5}  {:>5}  {:>5}  {:>9}  {:>11}  {:>11}  {:>5.2f}  {:<10}  {:>11}\n", col.name(),
            room, host::name_of(dict.type()), dict.end_code() - dict.first_code(), dict.has_null() ? "yes" : "no",
            col.width(), host::name_of(col.form()),
            col.form() == host::column_form::rle ? std::to_string(col.runs()) : "", col.plain_bytes(),
            col.encoded_bytes(), static_cast<double>(col.plain_bytes()) / static_cast<double>(col.encoded_bytes()),
            col.symbols().front_coded()  ? "front"
            : col.symbols().one_length() ? "one_len"
                                         : "cla",
            col.symbols().held_bytes());
        plain += col.plain_bytes();
        encoded += col.encoded_bytes();
    }
    text += fmt::format("{} rows; codes take {} bytes plain, {} bytes encoded, ratio {:.2f}; the text takes {} bytes\n",
                        table.rows(), plain, encoded, static_cast<double>(plain) / static_cast<double>(encoded),
                        file.text().size());
    output out;
    out.write(text);
    out.finish();
    return 0;
}

// A line of CSV from field(0), field(1), ...
template <class Field>
void append_line(std::string &text, std::size_t fields, Field field) {
    if (fields == 1 && field(0).empty())
        text += "\"\""; // an empty line would be no row
    else
        for (std::size_t i = 0; i < fields; i++) {
            text += i == 0 ? "" : ",";
            host::append_csv(text, field(i));
        }
    text += '\n';
}

int run_query(const query_options &options) {
    std::vector<host::predicate> predicates;
    for (const std::string &text : options.where)
        predicates.push_back(host::parse_predicate(text));

    host::library library(host::library_path(options.library));
    library.check_and_start(host::this_processor());
    const host::csv_file file(options.file);
    const std::vector<std::size_t> printed =
        options.columns.empty() ? all_columns(file) : column_list(file, options.columns);
    std::vector<std::size_t> filtered;
    for (const host::predicate &p : predicates)
        for (const std::string &name : host::columns_of(p))
            if (const std::size_t number = file.column(name);
                std::find(filtered.begin(), filtered.end(), number) == filtered.end())
                filtered.push_back(number);

    std::vector<std::size_t> encoded = filtered;
    if (!options.count)
        for (const std::size_t number : printed)
            if (std::find(encoded.begin(), encoded.end(), number) == encoded.end())
                encoded.push_back(number);
    const host::table table = read_table(file, encoded, options);

    host::session session(library);
    host::query query(session, table.rows());
    const host::selection selected = query.run(host::plan_codes(predicates, table));

    std::vector<ub4> expected;
    bool agrees = true;
    if (options.check) {
        std::map<std::string, host::value_type> types;
        for (const std::size_t number : filtered)
            types[file.columns()[number]] = table.encoded(number)->dict().type();
        expected = host::recompute(file, predicates, types, options.null_texts);
        agrees = expected == host::row_numbers(library.ctx(), selected, table.rows(), table.rows()) &&
                 expected.size() == selected.count;
    }
    if (!agrees) {
        std::fputs(fmt::format("tavo: the check fails: {} rows by the kernels, {} rows from the text\n", selected.count,
                               expected.size())
                       .c_str(),
                   stderr);
        return check_failed;
    }

    // The answer is made whole before any of it is written.
    std::string answer;
    std::vector<host::query_step> steps = query.steps();
    if (options.count) {
        answer = fmt::format("{}\n", selected.count);
    } else {
        append_line(answer, printed.size(),
                    [&](std::size_t i) { return std::string_view(file.columns()[printed[i]]); });
        std::vector<host::column *> columns;
        for (const std::size_t number : printed)
            columns.push_back(table.encoded(number));
        host::value_reader values(session, columns, selected, options.limit);
        for (ub4 rows; (rows = values.next()) > 0;)
            for (ub4 row = 0; row < rows; row++)
                append_line(answer, printed.size(), [&](std::size_t i) { return values.value(i, row); });
        for (host::query_step &step : values.steps())
            steps.push_back(std::move(step));
    }
    if (options.check && !options.count) {
        expected.resize(std::min<std::size_t>(expected.size(), options.limit));
        const std::string difference = host::compare_printed(file, expected, printed, options.null_texts, answer);
        if (!difference.empty()) {
            std::fputs(fmt::format("tavo: the check fails: {}\n", difference).c_str(), stderr);
            return check_failed;
        }
    }
    output out;
    out.write(answer);
    if (!options.count && options.limit < selected.count)
        std::fputs(fmt::format("tavo: the first {} of {} rows\n", options.limit, selected.count).c_str(), stderr);
    if (options.explain)
        out.write(host::explain(steps));
    if (options.check)
        out.write(
            fmt::format("check: {} of {} rows, recomputed from the text: agrees\n", selected.count, table.rows()));
    out.finish();
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    CLI::App app{"Queries over CSV files by kernels on compressed columns"};
    app.require_subcommand(1);
    query_options options;
    std::string info_library;

    CLI::App *info =
        app.add_subcommand("info", "Show what a kernel library holds and whether this processor can run it");
    info->add_option("LIB", info_library, "The library; without it the one that queries use");

    CLI::App *query = app.add_subcommand("query", "Print the rows of a CSV file that all predicates are true for");
    query->footer("Predicates:\n"
                  "  delay > 60                    = <> < <= > >=; a value with spaces stands in 'quotes'\n"
                  "  distance between 500 and 1000 both ends included; not between\n"
                  "  500 < distance <= 1000        open ends\n"
                  "  origin in (SFO, LAX)          not in\n"
                  "  state is null                 is not null\n"
                  "  not (delay < 0 or delay > 60) and, or, not, parentheses\n"
                  "An empty field is null; a null is on neither side of a comparison. Ends with status 0, with 1 if\n"
                  "--check does not agree, with 2 if there is something wrong with the input.");
    query->add_option("FILE", options.file, "CSV file; its first line names the columns")->required();
    query->add_option("--where", options.where, "A predicate; all given must be true")->allow_extra_args(false);
    query->add_flag("--count", options.count, "Print how many rows, not the rows");
    query->add_option("--limit", options.limit, "Print so many rows at most");
    query->add_option("--columns", options.columns, "Print these columns: a,b,c");
    query->add_option("--null", options.null_texts, "A field with this text is null too")->allow_extra_args(false);
    query->add_flag("--explain", options.explain, "Show each step: kernel, rows in and out, time");
    query->add_flag("--check", options.check, "Recompute the answer from the text and compare");
    query->add_option("--encode", options.encode, "Form of the columns: auto, plain, spak or rle; of one: COLUMN=FORM")
        ->allow_extra_args(false);
    query->add_option("--lib", options.library,
                      "The kernel library; otherwise $TAVO_LIB, then the one beside the command");

    CLI::App *columns = app.add_subcommand("columns", "Show how the columns of a CSV file are encoded");
    columns->add_option("FILE", options.file, "CSV file; its first line names the columns")->required();
    columns->add_option("--null", options.null_texts, "A field with this text is null too")->allow_extra_args(false);
    columns
        ->add_option("--encode", options.encode, "Form of the columns: auto, plain, spak or rle; of one: COLUMN=FORM")
        ->allow_extra_args(false);

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &e) {
        if (app.exit(e) != 0)
            return bad_input;
        return std::fflush(stdout) == 0 && std::ferror(stdout) == 0 ? 0 : bad_input; // help on a full disk
    }
    try {
        if (*query)
            return run_query(options);
        if (*columns)
            return run_columns(options);
        const host::library library(host::library_path(info_library));
        output out;
        out.write(host::describe(library, host::this_processor()));
        out.finish();
        return 0;
    } catch (const std::exception &e) {
        std::fputs(fmt::format("tavo: {}\n", e.what()).c_str(), stderr);
        return bad_input;
    }
}
