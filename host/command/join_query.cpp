#include "host/command/join_query.h"

#include <algorithm>
#include <fmt/format.h>

#include "host/command/explain.h"
#include "host/command/output.h"
#include "host/command/subcommands.h"
#include "host/error.h"
#include "host/join/joined_rows.h"
#include "host/query/value_reader.h"

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

// 4096, 64K, 512M, 2G
ub8 bytes_of(const std::string &text) {
    std::size_t digits = 0;
    while (digits < text.size() && digits < 15 && text[digits] >= '0' && text[digits] <= '9')
        digits++;
    const std::string unit = text.substr(digits);
    const unsigned shift = unit == "K" ? 10 : unit == "M" ? 20 : unit == "G" ? 30 : 0;
    if (digits == 0 || digits == 15 || (shift == 0 && !unit.empty()))
        throw error(fmt::format("--join-memory {}: expected a number of bytes, or one with K, M or G", text));
    const ub8 number = std::stoull(text);
    if (number > ~0ull >> shift)
        throw error(fmt::format("--join-memory {}: more than 64 bits", text));
    return number << shift;
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

// The values of both sides of the first pairs, as lines of CSV. The right side's rows, which come in any order, are
// read first; the left side's are read as the pairs go on.
class pair_printer {
public:
    pair_printer(session &s, const join_question &q, const table &left, const table &right,
                 const std::vector<row_pair> &pairs)
        : question_(q),
          pairs_(pairs.begin(),
                 pairs.begin() + static_cast<std::ptrdiff_t>(std::min<std::size_t>(pairs.size(), q.limit))) {
        for (const join_names::place &p : q.printed)
            columns_[p.side == join_side::right].push_back((p.side == join_side::left ? left : right).stored(p.column));
        rows_[0] = rows_of(left.rows(), &row_pair::left);
        rows_[1] = rows_of(right.rows(), &row_pair::right);
        for (const bool side : {false, true})
            if (!columns_[side].empty() && rows_[side].count > 0)
                readers_[side] = std::make_unique<value_reader>(s, columns_[side], rows_[side], 0xffffffff);
        place_.resize(right.rows());
        ub4 place = 0;
        for (ub4 row = 0; row < right.rows(); row++)
            if (rows_[1].bits[row / 64] >> row % 64 & 1)
                place_[row] = place++;
        if (readers_[1] != nullptr)
            while (const ub4 rows = readers_[1]->next())
                for (ub4 row = 0; row < rows; row++)
                    for (std::size_t c = 0; c < columns_[1].size(); c++)
                        right_values_.push_back(readers_[1]->value(c, row));
    }

    void append_to(std::string &answer) {
        ub4 last = no_row, in_batch = 0, batch = 0;
        for (const row_pair pair : pairs_) {
            if (pair.left != last && pair.left != no_row && readers_[0] != nullptr) {
                last = pair.left;
                if (++in_batch >= batch) {
                    batch = readers_[0]->next();
                    in_batch = 0;
                }
            }
            std::size_t next[2] = {0, 0};
            append_csv_line(answer, question_.printed.size(), [&](std::size_t i) -> std::string_view {
                if (i == 0)
                    next[0] = next[1] = 0; // a line's first field may be looked at twice
                const bool side = question_.printed[i].side == join_side::right;
                const std::size_t c = next[side]++;
                if (!side)
                    return pair.left == no_row ? std::string_view() : readers_[0]->value(c, in_batch);
                return pair.right == no_row ? std::string_view()
                                            : right_values_[place_[pair.right] * columns_[1].size() + c];
            });
        }
    }

    std::vector<query_step> steps() const {
        std::vector<query_step> all;
        for (const auto &reader : readers_)
            if (reader != nullptr)
                for (query_step &step : reader->steps())
                    all.push_back(std::move(step));
        return all;
    }

private:
    selection rows_of(ub4 rows, ub4 row_pair::*side) const {
        selection selected{std::vector<ub8>((static_cast<std::size_t>(rows) + 63) / 64), 0};
        for (const row_pair &pair : pairs_)
            if (const ub4 row = pair.*side; row != no_row) {
                ub8 &word = selected.bits[row / 64];
                selected.count += (word >> row % 64 & 1) == 0;
                word |= ub8{1} << row % 64;
            }
        return selected;
    }

    const join_question &question_;
    std::vector<row_pair> pairs_;
    std::vector<stored_column *> columns_[2]; // printed ones of each side, in their order
    selection rows_[2];
    std::unique_ptr<value_reader> readers_[2];
    std::vector<ub4> place_; // of a right row among those that are printed
    std::vector<std::string_view> right_values_;
};

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
        settings.overflow_limit = bytes_of(options.memory);
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
    const table left = read_table(left_file, encoded[0], side_options(asked.table, names, join_side::left));
    const table right = read_table(right_file, encoded[1], side_options(asked.table, names, join_side::right));

    session session(library);
    joined_rows joined = join_rows_of(session, q, names, left, right, settings);

    std::string lines;
    if (!asked.count) {
        pair_printer printer(session, q, left, right, joined.pairs);
        printer.append_to(lines);
        for (query_step &step : printer.steps())
            joined.steps.push_back(std::move(step));
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

    output out;
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
