#include "host/command/join_query.h"

#include <algorithm>
#include <fmt/format.h>

#include "host/command/explain.h"
#include "host/command/output.h"
#include "host/command/subcommands.h"
#include "host/error.h"
#include "host/join/joined_rows.h"
#include "host/rows/row_order.h"
#include "host/rows/row_table.h"

namespace host {

namespace {

join_kind kind_of(const join_options &o) {
    if (o.left && o.right)
        throw error("--left and --right exclude each other");
    if (o.left && o.anti)
        throw error("--left and --anti exclude each other: --anti alone is the first file's rows without a partner");
    if (o.anti)
        return o.right ? join_kind::right_anti : join_kind::anti;
    return o.left ? join_kind::left : o.right ? join_kind::right : join_kind::inner;
}

std::vector<join_names::place> printed_columns(const join_names &names, const std::optional<std::string> &list,
                                               join_kind kind) {
    std::vector<join_names::place> places;
    if (list) {
        for (const std::size_t number : column_list(names.all(), *list))
            places.push_back(names.at(number));
        return places;
    }
    for (const join_side side : {join_side::left, join_side::right}) {
        if (kind == (side == join_side::left ? join_kind::right_anti : join_kind::anti))
            continue; // these rows have no such side
        for (std::size_t c = 0; c < names.file(side).columns().size(); c++)
            places.push_back({side, c});
    }
    return places;
}

// Options of one side's file: --encode and --type of a column go to the file that has it.
table_options side_options(const table_options &options, const join_names &names, join_side side) {
    table_options own = options;
    own.file = names.file(side).path();
    for (std::vector<std::string> *list : {&own.encode, &own.types}) {
        std::vector<std::string> kept;
        for (const std::string &text : *list) {
            const std::size_t equals = text.rfind('=');
            if (equals == std::string::npos) {
                kept.push_back(text);
                continue;
            }
            const join_names::place place = names.find(text.substr(0, equals));
            if (place.side == side)
                kept.push_back(names.file(side).columns()[place.column] + text.substr(equals));
        }
        *list = kept;
    }
    return own;
}

static_assert(no_row == row_table::no_row);

// A side's rows that occur in pairs.
selection rows_of(ub4 rows, const std::vector<row_pair> &pairs, ub4 row_pair::*side) {
    selection selected{std::vector<ub8>((static_cast<std::size_t>(rows) + 63) / 64), 0};
    for (const row_pair &pair : pairs)
        if (const ub4 row = pair.*side; row != no_row) {
            ub8 &word = selected.bits[row / 64];
            selected.count += (word >> row % 64 & 1) == 0;
            word |= ub8{1} << row % 64;
        }
    return selected;
}

// The first pairs in the order asked for.
std::vector<row_pair> pairs_to_print(session &s, const join_question &q, const table &left, const table &right,
                                     std::vector<row_pair> pairs, std::vector<query_step> &steps) {
    if (!q.ordered_by) {
        pairs.resize(std::min<std::size_t>(pairs.size(), q.limit));
        return pairs;
    }
    const auto side = q.ordered_by->side == join_side::left ? &row_pair::left : &row_pair::right;
    stored_column &col = *(q.ordered_by->side == join_side::left ? left : right).stored(q.ordered_by->column);
    step_list order_steps;
    const std::vector<ub8> of_rows = order_keys(s, col, rows_of(col.rows(), pairs, side), order_steps);
    const step_clock clock;
    std::vector<ub8> keys(pairs.size());
    std::transform(pairs.begin(), pairs.end(), keys.begin(),
                   [&](row_pair pair) { return pair.*side == no_row ? null_key : of_rows[pair.*side]; });
    std::vector<row_pair> ordered;
    for (const std::size_t place : ordered_places(keys, q.descending, q.limit))
        ordered.push_back(pairs[place]);
    order_steps.add("", col.name(), "joined rows in order", static_cast<ub4>(std::min<std::size_t>(keys.size(), ~0u)),
                    static_cast<ub4>(ordered.size()), clock.seconds());
    steps.insert(steps.end(), order_steps.all().begin(), order_steps.all().end());
    return ordered;
}

// The values of both sides of pairs, as lines of CSV: each side's columns are transposed into a row-major table, and
// the pairs' rows are gathered from it.
std::string lines_of(session &s, const join_question &q, const table &left, const table &right,
                     const std::vector<row_pair> &pairs, std::vector<query_step> &steps) {
    constexpr std::size_t batch = 4096;
    struct side_of_pairs {
        std::vector<stored_column *> columns;
        std::unique_ptr<row_table> table;
        std::vector<ub4> rows;
    } sides[2];
    std::vector<std::pair<bool, std::size_t>> fields; // side and column
    for (const join_names::place &p : q.printed) {
        const bool side = p.side == join_side::right;
        fields.emplace_back(side, sides[side].columns.size());
        sides[side].columns.push_back((side ? right : left).stored(p.column));
    }
    const auto row_of = [](bool side) { return side ? &row_pair::right : &row_pair::left; };
    for (const bool side : {true, false})
        sides[side].table = std::make_unique<row_table>(s, sides[side].columns,
                                                        rows_of((side ? right : left).rows(), pairs, row_of(side)));
    std::string lines;
    for (std::size_t first = 0; first < pairs.size(); first += batch) {
        const std::size_t n = std::min(batch, pairs.size() - first);
        for (const bool side : {true, false}) {
            sides[side].rows.clear();
            for (std::size_t i = 0; i < n; i++)
                sides[side].rows.push_back(pairs[first + i].*row_of(side));
            sides[side].table->gather(sides[side].rows.data(), static_cast<ub4>(n));
        }
        for (ub4 i = 0; i < n; i++)
            append_csv_line(lines, fields.size(),
                            [&](std::size_t f) { return sides[fields[f].first].table->value(fields[f].second, i); });
    }
    for (const bool side : {true, false})
        for (query_step &step : sides[side].table->steps())
            steps.push_back(std::move(step));
    return lines;
}

} // namespace

void add_join_options(CLI::App &app, join_options &options) {
    app.add_option("--join", options.file, "Join with this CSV file, the right one; names may say airports.state")
        ->group("Joins");
    app.add_option("--on", options.on, "Equal columns of both files: origin=iata, or a name that both have")
        ->allow_extra_args(false)
        ->group("Joins");
    app.add_flag("--left", options.left, "Also rows of FILE without a partner")->group("Joins");
    app.add_flag("--right", options.right, "Also rows of the right file without a partner, last")->group("Joins");
    app.add_flag("--anti", options.anti, "Only rows without a partner: of FILE, or with --right of the right file")
        ->group("Joins");
    app.add_option("--join-memory", options.memory,
                   "Bytes that chains of the join's table may take, as 64K, 512M or 2G; otherwise no limit")
        ->group("Joins");
}

int run_join(const join_options &options, const joined_query &asked) {
    join_question q;
    q.kind = kind_of(options);
    q.limit = asked.limit;
    if (options.on.empty())
        throw error("--join needs --on: the columns of both files that are to be equal, such as --on origin=iata");
    join_settings settings;
    if (!options.memory.empty())
        settings.overflow_limit = bytes_of(options.memory, "--join-memory");
    for (const std::string &text : asked.where)
        q.where.push_back(parse_predicate(text));

    const processor here = this_processor();
    library library(choose_library(asked.library, here));
    library.check_and_start(here);
    table_options right_options = asked.table;
    right_options.file = options.file;
    const csv_file left_file = open_csv(asked.table), right_file = open_csv(right_options);
    const join_names names(left_file, right_file);
    for (predicate &p : q.where)
        names.resolve(p);
    q.keys = names.key_columns(options.on);
    if (q.keys.size() > join_keys::most_columns)
        throw error(fmt::format("--on takes up to {} pairs of columns", join_keys::most_columns));
    q.printed = printed_columns(names, asked.columns, q.kind);
    if (!asked.order_by.empty()) {
        const asked_order order = parse_order(asked.order_by, names.all().columns());
        q.ordered_by = names.find(order.column);
        q.descending = order.descending;
    }

    std::vector<std::size_t> encoded[2];
    const auto need = [&](join_side side, std::size_t column) {
        auto &list = encoded[side == join_side::right];
        if (std::find(list.begin(), list.end(), column) == list.end())
            list.push_back(column);
    };
    for (const auto &[left, right] : q.keys) {
        need(join_side::left, left);
        need(join_side::right, right);
    }
    for (const predicate &p : q.where)
        for (const std::string &name : columns_of(p))
            need(names.find(name).side, names.find(name).column);
    if (!asked.count)
        for (const join_names::place &p : q.printed)
            need(p.side, p.column);
    if (q.ordered_by)
        need(q.ordered_by->side, q.ordered_by->column);
    const table left = read_table(left_file, encoded[0], side_options(asked.table, names, join_side::left));
    const table right = read_table(right_file, encoded[1], side_options(asked.table, names, join_side::right));

    session session(library);
    joined_rows joined = join_rows_of(session, q, names, left, right, settings);

    std::string lines;
    if (!asked.count) {
        const auto pairs = pairs_to_print(session, q, left, right, joined.pairs, joined.steps);
        lines = lines_of(session, q, left, right, pairs, joined.steps);
    }
    if (asked.check) {
        std::vector<std::vector<value_type>> types(2);
        for (const bool side : {false, true}) {
            const table &t = side ? right : left;
            types[side].resize(t.file().columns().size(), value_type::text);
            for (const std::size_t column : encoded[side])
                types[side][column] = t.encoded(column)->dict().type();
        }
        const plain_answer plain = join_plainly(q, names, types, asked.table.null_texts);
        if (plain.count != joined.pairs.size()) {
            tell(fmt::format("the check fails: {} rows by the kernels, {} rows from the text", joined.pairs.size(),
                             plain.count));
            return check_failed;
        }
        if (!asked.count && plain.lines != lines) {
            tell("the check fails: the rows are as many as from the text, but others");
            return check_failed;
        }
    }

    output out(asked.output);
    if (asked.count) {
        out.write(fmt::format("{}\n", joined.pairs.size()));
    } else {
        std::string header;
        append_csv_line(header, q.printed.size(), [&](std::size_t i) { return names.shown(q.printed[i]); });
        out.write(header);
        out.write(lines);
    }
    out.finish();
    if (!asked.count && asked.limit < joined.pairs.size())
        tell(fmt::format("the first {} of {} rows", asked.limit, joined.pairs.size()));
    if (asked.explain)
        show(explain(joined.steps, library));
    if (asked.check)
        show(fmt::format("check: {} rows of {} and {}, joined from the text: agrees\n", joined.pairs.size(),
                         left.rows(), right.rows()));
    return answered;
}

} // namespace host
