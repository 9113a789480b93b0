// The command `tavo`: what a library holds, and queries over CSV files.
#include <CLI/CLI.hpp>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fmt/format.h>
#include <map>
#include <optional>
#include <unistd.h>

#include "host/callbacks.h"
#include "host/code_plan.h"
#include "host/csv.h"
#include "host/error.h"
#include "host/info.h"
#include "host/loader.h"
#include "host/predicate.h"
#include "host/query.h"
#include "host/recompute.h"

namespace {

constexpr int check_failed = 1, bad_input = 2;

struct query_options {
    std::string file, columns, library;
    std::vector<std::string> where, null_texts;
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
    if (list.empty()) {
        for (std::size_t i = 0; i < file.columns().size(); i++)
            numbers.push_back(i);
        return numbers;
    }
    host::csv_reader reader(list, "--columns");
    std::vector<host::csv_field> names;
    reader.next(names);
    for (const host::csv_field &name : names)
        numbers.push_back(file.column(name.value()));
    return numbers;
}

int run_query(const query_options &options) {
    std::vector<host::predicate> predicates;
    for (const std::string &text : options.where)
        predicates.push_back(host::parse_predicate(text));

    host::library library(host::library_path(options.library));
    library.check_and_start(host::this_processor());
    const host::csv_file file(options.file);
    const std::vector<std::size_t> printed = column_list(file, options.columns);
    std::vector<std::size_t> filtered;
    for (const host::predicate &p : predicates)
        for (const std::string &name : host::columns_of(p))
            if (const std::size_t number = file.column(name);
                std::find(filtered.begin(), filtered.end(), number) == filtered.end())
                filtered.push_back(number);

    host::read_options reading;
    reading.null_texts = options.null_texts;
    std::optional<progress_line> progress(options.file);
    reading.progress = [&](std::size_t done, std::size_t all) { progress->show(done, all); };
    const host::table table(file, filtered, reading);
    progress.reset();

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

    output out;
    if (options.count) {
        out.write(fmt::format("{}\n", selected.count));
    } else {
        std::string lines;
        for (std::size_t i = 0; i < printed.size(); i++) {
            lines += i == 0 ? "" : ",";
            host::append_csv(lines, file.columns()[printed[i]]);
        }
        lines += '\n';
        std::vector<host::csv_field> fields;
        for (const ub4 row : host::row_numbers(library.ctx(), selected, table.rows(), options.limit)) {
            host::csv_reader reader(table.row_text(row), file.path());
            reader.next(fields);
            for (std::size_t i = 0; i < printed.size(); i++) {
                lines += i == 0 ? "" : ",";
                host::append_csv(lines, fields[printed[i]].value());
            }
            lines += '\n';
            if (lines.size() > 1 << 16) {
                out.write(lines);
                lines.clear();
            }
        }
        out.write(lines);
    }
    if (!options.count && options.limit < selected.count)
        std::fputs(fmt::format("tavo: the first {} of {} rows\n", options.limit, selected.count).c_str(), stderr);
    if (options.explain)
        out.write(host::explain(query.steps()));
    if (options.check)
        out.write(fmt::format("check: {} of {} rows, recomputed from the text: agrees\n", selected.count, table.rows()));
    out.finish();
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    CLI::App app{"Queries over CSV files by kernels on compressed columns"};
    app.require_subcommand(1);
    query_options options;
    std::string info_library;

    CLI::App *info = app.add_subcommand("info", "Show what a kernel library holds and whether this processor can run it");
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
    query->add_option("--lib", options.library, "The kernel library; otherwise $TAVO_LIB, then the one beside the command");

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &e) {
        return app.exit(e) == 0 ? 0 : bad_input;
    }
    try {
        if (*query)
            return run_query(options);
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
