// `tavo query`: the rows of a CSV file that all predicates are true for.
#include "host/query/query.h"

#include <algorithm>
#include <fmt/format.h>
#include <map>
#include <memory>
#include <optional>

#include "host/command/explain.h"
#include "host/command/output.h"
#include "host/command/subcommands.h"
#include "host/command/table_options.h"
#include "host/error.h"
#include "host/query/recompute.h"
#include "host/query/value_reader.h"

namespace host {

namespace {

struct query_options {
    table_options table;
    std::optional<std::string> columns;
    std::string library;
    std::vector<std::string> where;
    ub4 limit = 0xffffffff;
    bool count = false, explain = false, check = false;
};

// A line of CSV from field(0), field(1), ...
template <class Field>
void append_line(std::string &text, std::size_t fields, Field field) {
    if (fields == 1 && field(0).empty())
        text += "\"\""; // an empty line would be no row
    else
        for (std::size_t i = 0; i < fields; i++) {
            text += i == 0 ? "" : ",";
            append_csv(text, field(i));
        }
    text += '\n';
}

// The numbers of the columns that the predicates name.
std::vector<std::size_t> columns_of(const std::vector<predicate> &predicates, const csv_file &file) {
    std::vector<std::size_t> numbers;
    for (const predicate &p : predicates)
        for (const std::string &name : host::columns_of(p))
            if (const std::size_t number = file.column(name);
                std::find(numbers.begin(), numbers.end(), number) == numbers.end())
                numbers.push_back(number);
    return numbers;
}

// Numbers of the rows that the text gives, for --check.
std::vector<ub4> expected_rows(const csv_file &file, const table &table, const std::vector<predicate> &predicates,
                               const query_options &options) {
    std::map<std::string, value_type> types;
    for (const std::size_t number : columns_of(predicates, file))
        types[file.columns()[number]] = table.encoded(number)->dict().type();
    return recompute(file, predicates, types, options.table.null_texts);
}

int run(const query_options &options) {
    std::vector<predicate> predicates;
    for (const std::string &text : options.where)
        predicates.push_back(parse_predicate(text));

    const processor here = this_processor();
    library library(choose_library(options.library, here));
    library.check_and_start(here);
    const csv_file file = open_csv(options.table);
    const std::vector<std::size_t> printed = options.columns ? column_list(file, *options.columns) : all_columns(file);
    for (predicate &p : predicates)
        resolve(p, file);

    std::vector<std::size_t> encoded = columns_of(predicates, file);
    if (!options.count)
        for (const std::size_t number : printed)
            if (std::find(encoded.begin(), encoded.end(), number) == encoded.end())
                encoded.push_back(number);
    const table table = read_table(file, encoded, options.table);

    session session(library);
    query query(session, table.rows());
    const selection selected = query.run(plan_codes(predicates, table));
    std::vector<query_step> steps = query.steps();

    std::vector<ub4> expected;
    if (options.check) {
        expected = expected_rows(file, table, predicates, options);
        if (expected != row_numbers(library.ctx(), selected, table.rows(), table.rows()) ||
            expected.size() != selected.count) {
            tell(fmt::format("the check fails: {} rows by the kernels, {} rows from the text", selected.count,
                             expected.size()));
            return check_failed;
        }
        expected.resize(std::min<std::size_t>(expected.size(), options.limit));
    }

    output out;
    if (options.count) {
        out.write(fmt::format("{}\n", selected.count));
    } else {
        std::vector<column *> columns;
        std::string lines;
        for (const std::size_t number : printed)
            columns.push_back(table.encoded(number));
        append_line(lines, printed.size(), [&](std::size_t i) { return std::string_view(columns[i]->name()); });
        out.write(lines);
        value_reader values(session, columns, selected, options.limit);
        printed_check check(file, std::move(expected), printed, options.table.null_texts);
        auto disagrees = [&](const std::string &difference) {
            if (!difference.empty())
                tell("the check fails: " + difference);
            return !difference.empty();
        };
        for (ub4 rows; (rows = values.next()) > 0;) {
            lines.clear();
            for (ub4 row = 0; row < rows; row++)
                append_line(lines, printed.size(), [&](std::size_t i) { return values.value(i, row); });
            if (options.check && disagrees(check.compare(lines)))
                return check_failed;
            out.write(lines);
        }
        if (options.check && disagrees(check.finish()))
            return check_failed;
        for (query_step &step : values.steps())
            steps.push_back(std::move(step));
    }
    out.finish();
    if (!options.count && options.limit < selected.count)
        tell(fmt::format("the first {} of {} rows", options.limit, selected.count));
    if (options.explain)
        show(explain(steps, library));
    if (options.check)
        show(fmt::format("check: {} of {} rows, recomputed from the text: agrees\n", selected.count, table.rows()));
    return answered;
}

} // namespace

subcommand add_query(CLI::App &app) {
    CLI::App *query = app.add_subcommand("query", "Print the rows of a CSV file that all predicates are true for");
    const auto options = std::make_shared<query_options>();
    add_table_options(*query, options->table);
    query->footer(
        "Predicates:\n"
        "  delay > 60                    = <> < <= > >=; a value with spaces stands in 'quotes'\n"
        "  departure > arrival           two columns\n"
        "  distance between 500 and 1000 both ends included; not between\n"
        "  500 < distance <= 1000        open ends\n"
        "  origin in (SFO, LAX)          not in\n"
        "  state is null                 is not null\n"
        "  not (delay < 0 or delay > 60) and, or, not, parentheses\n"
        "A null is on neither side of a comparison. A column stands in \"double quotes\" if it is no plain word.\n" +
        std::string(about_files) +
        "\nThe answer goes to standard output as CSV, everything else to standard error. Ends with status 0,\n"
        "with 1 if --check does not agree, with 2 if there is something wrong with the input.");
    query->add_option("--where", options->where, "A predicate; all given must be true")->allow_extra_args(false);
    query->add_flag("--count", options->count, "Print how many rows, not the rows");
    query->add_option("--limit", options->limit, "Print so many rows at most");
    query->add_option("--columns", options->columns, "Print these columns: a,b,c");
    query->add_flag("--explain", options->explain, "Show each step: kernel, rows in and out, time");
    query->add_flag("--check", options->check, "Recompute the answer from the text and compare");
    query->add_option("--library,--lib", options->library,
                      "The kernel library; otherwise $TAVO_LIB, then the one beside the command");
    return {query, [options] { return run(*options); }};
}

} // namespace host
