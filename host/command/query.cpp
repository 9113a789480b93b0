// `tavo query`: the rows of a CSV file that all predicates are true for.
#include "host/query/query.h"

#include <algorithm>
#include <fmt/format.h>
#include <map>
#include <memory>
#include <optional>

#include "host/command/explain.h"
#include "host/command/group_query.h"
#include "host/command/join_query.h"
#include "host/command/ordered_rows.h"
#include "host/command/output.h"
#include "host/command/subcommands.h"
#include "host/command/table_options.h"
#include "host/error.h"
#include "host/query/extremes.h"
#include "host/query/recompute.h"
#include "host/query/value_reader.h"

namespace host {

namespace {

struct query_options {
    table_options table;
    join_options join;
    group_options group;
    std::optional<std::string> columns;
    std::string library, output = "-";
    std::vector<std::string> where, smallest, largest, computed;
    ub4 limit = value_reader::no_limit;
    bool count = false, explain = false, check = false;
};

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
        types[file.columns()[number]] = table.stored(number)->type();
    return recompute(file, predicates, types, options.table.null_texts);
}

// What is asked of columns in place of their rows.
struct asked_extreme {
    extreme which;
    std::size_t column;
};
std::vector<asked_extreme> extremes_of(const query_options &options, const csv_file &file) {
    std::vector<asked_extreme> asked;
    for (const std::string &name : options.smallest)
        asked.push_back({extreme::smallest, file.column(name)});
    for (const std::string &name : options.largest)
        asked.push_back({extreme::largest, file.column(name)});
    return asked;
}

// One line of values below one of what they are; what differs from the text goes to `difference`.
std::string extreme_lines(session &session, const table &table, const selection &selected,
                          const std::vector<asked_extreme> &asked, const query_options &options,
                          const std::vector<ub4> &expected, std::vector<query_step> &steps, std::string &difference) {
    std::vector<std::string> names, values;
    if (options.count) {
        names.emplace_back("count");
        values.push_back(std::to_string(selected.count));
    }
    for (const auto &[which, number] : asked) {
        stored_column &col = *table.stored(number);
        names.push_back(fmt::format("{}({})", name_of(which), col.name()));
        const auto value = extreme_value(session, col, selected, which, steps);
        values.push_back(value.value_or(""));
        if (options.check && difference.empty())
            difference = compare_extreme(table.file(), expected, number, col.type(), options.table.null_texts,
                                         which == extreme::smallest, value);
    }
    std::string lines;
    append_csv_line(lines, names.size(), [&](std::size_t i) { return std::string_view(names[i]); });
    append_csv_line(lines, values.size(), [&](std::size_t i) { return std::string_view(values[i]); });
    return lines;
}

int run(const query_options &options) {
    if (!options.group.asked() && !options.group.having.empty())
        throw error("--having goes with --group-by, --sum or --avg");
    if (!options.join.file.empty() && (options.group.asked() || !options.computed.empty()))
        throw error("--group-by, --sum, --avg and --select are not for joined files yet");
    if (!options.join.file.empty() && !(options.smallest.empty() && options.largest.empty()))
        throw error("--min and --max are of one file, they don't go with --join");
    if (!options.join.file.empty() && (options.group.threads || options.group.memory))
        throw error("--threads and --memory are for --group-by, they don't go with --join");
    if (!options.join.file.empty())
        return run_join(options.join,
                        {options.table, options.where, options.columns, options.group.order, options.library,
                         options.output, options.limit, options.count, options.explain, options.check});
    if (!options.join.on.empty() || options.join.left || options.join.right || options.join.anti ||
        !options.join.memory.empty())
        throw error("--on, --left, --right, --anti and --join-memory go with --join FILE");

    dense_options_of(options.group); // before the file is read

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

    const bool grouped = options.group.asked();
    group_request groups;
    if (grouped)
        groups = parse_groups(options.group, options.smallest, options.largest, options.count, file);
    const std::vector<asked_extreme> asked = grouped ? std::vector<asked_extreme>() : extremes_of(options, file);
    std::vector<measure> computed;
    for (const std::string &text : options.computed)
        computed.push_back(parse_measure(text, file));
    const bool prints_rows = !grouped && asked.empty() && !options.count;
    if (!prints_rows && (options.columns || !computed.empty()) && (grouped || !asked.empty()))
        throw error(
            "--min, --max, --sum, --avg and --group-by print no rows, so there are no --columns and no --select");
    if (!asked.empty() && !options.group.order.empty())
        throw error("--min and --max print no rows, so there is no order");
    std::optional<std::size_t> ordered_by;
    bool descending = false;
    if (prints_rows && !options.group.order.empty()) {
        const asked_order order = parse_order(options.group.order, file.columns());
        ordered_by = file.column(order.column);
        descending = order.descending;
    }
    std::vector<std::size_t> encoded = columns_of(predicates, file);
    for (const asked_extreme &e : asked)
        if (std::find(encoded.begin(), encoded.end(), e.column) == encoded.end())
            encoded.push_back(e.column);
    const auto encode = [&](const std::vector<std::size_t> &numbers) {
        for (const std::size_t number : numbers)
            if (std::find(encoded.begin(), encoded.end(), number) == encoded.end())
                encoded.push_back(number);
    };
    if (grouped)
        encode(columns_of(groups));
    if (prints_rows)
        encode(printed);
    if (ordered_by)
        encode({*ordered_by});
    for (const measure &m : computed)
        encode(columns_of(m));
    // Keys and measures are read through dictionaries.
    std::vector<std::size_t> texts;
    if (grouped) {
        const std::vector<std::size_t> compared = columns_of(predicates, file);
        texts = columns_grouped_by(groups);
        std::erase_if(texts, [&](std::size_t number) {
            return std::find(compared.begin(), compared.end(), number) != compared.end();
        });
    }
    const table table = read_table(file, encoded, options.table, !grouped && computed.empty(), texts);
    if (options.group.threads || options.group.memory)
        if (std::none_of(texts.begin(), texts.end(), [&](std::size_t c) { return table.texts(c) != nullptr; }))
            throw error("--threads and --memory are for --group-by with a column that is held as texts: --encode "
                        "COLUMN=text");

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
        if (prints_rows && !ordered_by)
            expected.resize(std::min<std::size_t>(expected.size(), options.limit));
    }

    output out(options.output);
    if (grouped) {
        step_list grouping;
        std::string difference;
        const std::string lines =
            group_lines(session, table, selected, options.group, groups, options.limit,
                        options.check ? &expected : nullptr, options.table.null_texts, grouping, difference);
        if (!difference.empty()) {
            tell("the check fails: " + difference);
            return check_failed;
        }
        out.write(lines);
        for (const query_step &step : grouping.all())
            steps.push_back(step);
    } else if (!asked.empty()) {
        std::string difference;
        const std::string lines = extreme_lines(session, table, selected, asked, options, expected, steps, difference);
        if (!difference.empty()) {
            tell("the check fails: " + difference);
            return check_failed;
        }
        out.write(lines);
    } else if (options.count) {
        out.write(fmt::format("{}\n", selected.count));
    } else {
        std::vector<stored_column *> columns;
        std::string lines;
        for (const std::size_t number : printed)
            columns.push_back(table.stored(number));
        step_list computing;
        std::vector<std::vector<std::optional<double>>> results;
        for (const measure &m : computed)
            results.push_back(computed_values(session, table, selected, m, computing));
        const std::size_t fields = printed.size() + computed.size();
        append_csv_line(lines, fields, [&](std::size_t i) {
            return std::string_view(i < printed.size() ? columns[i]->name() : computed[i - printed.size()].name);
        });
        out.write(lines);
        if (options.check)
            if (const std::string difference =
                    compare_computed(table, expected, computed, results, options.table.null_texts);
                !difference.empty()) {
                tell("the check fails: " + difference);
                return check_failed;
            }
        for (const query_step &step : computing.all())
            steps.push_back(step);
        if (ordered_by) {
            const ordered_request asked_rows{table, selected, printed, *ordered_by, descending, options.limit};
            const ordered_answer answer = rows_in_order(session, asked_rows, results, steps);
            if (options.check && (computed.empty() ? answer.lines : answer.read_lines) !=
                                     plain_rows_in_order(asked_rows, expected, options.table.null_texts)) {
                tell("the check fails: the rows are as many as from the text, but others or in another order");
                return check_failed;
            }
            out.write(answer.lines);
        }
        std::vector<std::string> texts(computed.size());
        std::string read_lines; // without what is computed, for --check
        ub4 first = 0;
        value_reader values(session, columns, selected, ordered_by ? 0 : options.limit);
        printed_check check(file, std::move(expected), printed, options.table.null_texts);
        auto disagrees = [&](const std::string &difference) {
            if (!difference.empty())
                tell("the check fails: " + difference);
            return !difference.empty();
        };
        for (ub4 rows; (rows = values.next()) > 0;) {
            lines.clear();
            read_lines.clear();
            for (ub4 row = 0; row < rows; row++) {
                for (std::size_t c = 0; c < texts.size(); c++)
                    texts[c] = results[c][first + row] ? text_of_real(*results[c][first + row]) : "";
                append_csv_line(lines, fields, [&](std::size_t i) {
                    return i < printed.size() ? values.value(i, row) : std::string_view(texts[i - printed.size()]);
                });
                if (options.check && !computed.empty())
                    append_csv_line(read_lines, printed.size(), [&](std::size_t i) { return values.value(i, row); });
            }
            first += rows;
            if (options.check && disagrees(check.compare(computed.empty() ? lines : read_lines)))
                return check_failed;
            out.write(lines);
        }
        if (options.check && !ordered_by && disagrees(check.finish()))
            return check_failed;
        for (query_step &step : values.steps())
            steps.push_back(std::move(step));
    }
    out.finish();
    if (prints_rows && options.limit < selected.count)
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
    query->add_option("--min", options->smallest, "Print the smallest value of this column, not the rows")
        ->allow_extra_args(false);
    query->add_option("--max", options->largest, "Print the largest value of this column, not the rows")
        ->allow_extra_args(false);
    query->add_option("--limit", options->limit, "Print so many rows at most");
    query->add_option("--columns", options->columns, "Print these columns: a,b,c");
    query->add_option("--select", options->computed, "Print a computed column too: \"distance * 1.609344 as km\"")
        ->allow_extra_args(false);
    query->add_option("--output", options->output, "Write the answer to this file, not to standard output")
        ->type_name("FILE");
    add_group_options(*query, options->group);
    add_join_options(*query, options->join);
    query->add_flag("--explain", options->explain, "Show each step: kernel, rows in and out, time");
    query->add_flag("--check", options->check, "Recompute the answer from the text and compare");
    query->add_option("--library,--lib", options->library,
                      "The kernel library; otherwise $TAVO_LIB, then the one beside the command");
    return {query, [options] { return run(*options); }};
}

} // namespace host
