// `tavo query`: the rows of a CSV file that all predicates are true for.
#include "host/query/query.h"

#include <algorithm>
#include <fmt/format.h>
#include <map>
#include <memory>

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
    std::string columns, library;
    std::vector<std::string> where;
    ub4 limit = 0xffffffff;
    bool count = false, explain = false, check = false;
};

// Numbers of the columns in a list like the header's line.
std::vector<std::size_t> column_list(const csv_file &file, const std::string &list) {
    std::vector<std::size_t> numbers;
    csv_reader reader(list, "--columns");
    std::vector<csv_field> names;
    reader.next(names);
    for (const csv_field &name : names)
        numbers.push_back(file.column(name.value()));
    return numbers;
}

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

int run(const query_options &options) {
    std::vector<predicate> predicates;
    for (const std::string &text : options.where)
        predicates.push_back(parse_predicate(text));

    const processor here = this_processor();
    library library(choose_library(options.library, here));
    library.check_and_start(here);
    const csv_file file(options.table.file);
    const std::vector<std::size_t> printed =
        options.columns.empty() ? all_columns(file) : column_list(file, options.columns);
    std::vector<std::size_t> filtered;
    for (const predicate &p : predicates)
        for (const std::string &name : columns_of(p))
            if (const std::size_t number = file.column(name);
                std::find(filtered.begin(), filtered.end(), number) == filtered.end())
                filtered.push_back(number);

    std::vector<std::size_t> encoded = filtered;
    if (!options.count)
        for (const std::size_t number : printed)
            if (std::find(encoded.begin(), encoded.end(), number) == encoded.end())
                encoded.push_back(number);
    const table table = read_table(file, encoded, options.table);

    session session(library);
    query query(session, table.rows());
    const selection selected = query.run(plan_codes(predicates, table));

    std::vector<ub4> expected;
    bool agrees = true;
    if (options.check) {
        std::map<std::string, value_type> types;
        for (const std::size_t number : filtered)
            types[file.columns()[number]] = table.encoded(number)->dict().type();
        expected = recompute(file, predicates, types, options.table.null_texts);
        agrees = expected == row_numbers(library.ctx(), selected, table.rows(), table.rows()) &&
                 expected.size() == selected.count;
    }
    if (!agrees) {
        tell(fmt::format("the check fails: {} rows by the kernels, {} rows from the text", selected.count,
                         expected.size()));
        return check_failed;
    }

    // The answer is made whole before any of it is written.
    std::string answer;
    std::vector<query_step> steps = query.steps();
    if (options.count) {
        answer = fmt::format("{}\n", selected.count);
    } else {
        append_line(answer, printed.size(),
                    [&](std::size_t i) { return std::string_view(file.columns()[printed[i]]); });
        std::vector<column *> columns;
        for (const std::size_t number : printed)
            columns.push_back(table.encoded(number));
        value_reader values(session, columns, selected, options.limit);
        for (ub4 rows; (rows = values.next()) > 0;)
            for (ub4 row = 0; row < rows; row++)
                append_line(answer, printed.size(), [&](std::size_t i) { return values.value(i, row); });
        for (query_step &step : values.steps())
            steps.push_back(std::move(step));
    }
    if (options.check && !options.count) {
        expected.resize(std::min<std::size_t>(expected.size(), options.limit));
        const std::string difference = compare_printed(file, expected, printed, options.table.null_texts, answer);
        if (!difference.empty()) {
            tell("the check fails: " + difference);
            return check_failed;
        }
    }
    output out;
    out.write(answer);
    if (!options.count && options.limit < selected.count)
        tell(fmt::format("the first {} of {} rows", options.limit, selected.count));
    if (options.explain)
        out.write(explain(steps, library));
    if (options.check)
        out.write(
            fmt::format("check: {} of {} rows, recomputed from the text: agrees\n", selected.count, table.rows()));
    out.finish();
    return answered;
}

} // namespace

subcommand add_query(CLI::App &app) {
    CLI::App *query = app.add_subcommand("query", "Print the rows of a CSV file that all predicates are true for");
    const auto options = std::make_shared<query_options>();
    add_table_options(*query, options->table);
    query->footer("Predicates:\n"
                  "  delay > 60                    = <> < <= > >=; a value with spaces stands in 'quotes'\n"
                  "  distance between 500 and 1000 both ends included; not between\n"
                  "  500 < distance <= 1000        open ends\n"
                  "  origin in (SFO, LAX)          not in\n"
                  "  state is null                 is not null\n"
                  "  not (delay < 0 or delay > 60) and, or, not, parentheses\n"
                  "An empty field is null; a null is on neither side of a comparison. Ends with status 0, with 1 if\n"
                  "--check does not agree, with 2 if there is something wrong with the input.");
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
