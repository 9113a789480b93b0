#include "host/group/group_table.h"

#include <algorithm>
#include <fmt/format.h>
#include <map>
#include <memory>
#include <numeric>

#include "host/column/packing.h"
#include "host/error.h"
#include "host/group/occurring_keys.h"
#include "host/join/code_reader.h"

namespace host {

namespace {

constexpr ub4 scratch_rows = 2048;

// The values of a dictionary, by code less its first one.
std::vector<std::string> values_of(const column &col) {
    std::vector<std::string> values;
    for (ub8 code = col.first_code(); code < col.end_code(); code++)
        values.push_back(col.dict().symbols()[code]);
    return values;
}

// All codes of the selected rows.
std::vector<ub4> codes_of(session &s, column &col, ub4 rows, const selection &selected, step_list &steps) {
    code_reader reader(s, {&col}, rows, selected, selected.count, steps);
    const ub4 n = reader.next();
    return {reader.codes(0), reader.codes(0) + n};
}

// A column of the months of a column of dates, encoded like any other.
std::unique_ptr<column> month_column(session &s, column &dates, const std::string &name, step_list &steps) {
    std::vector<std::string> months;
    std::vector<ub4> month_of_code(dates.end_code());
    if (dates.has_null())
        months.emplace_back();
    for (ub8 code = dates.first_code(); code < dates.end_code(); code++) {
        const std::string month = month_of(std::string(trimmed(dates.dict().symbols()[code])));
        if (months.size() == dates.first_code() || months.back() < month)
            months.push_back(month);
        // Zones can move a time across the end of a month, out of the order of the moments.
        const auto place =
            std::lower_bound(months.begin() + static_cast<long>(dates.first_code()), months.end(), month);
        if (place == months.end() || *place != month)
            throw error(fmt::format("{}: times of several zones are in no order of months", name));
        month_of_code[code] = static_cast<ub4>(place - months.begin());
    }
    selection all{std::vector<ub8>((dates.rows() + 63ull) / 64), dates.rows()};
    if (dates.rows() != 0)
        s.kernels().ctx().lbiwvset_range(all.bits.data(), 0, dates.rows() - 1);
    const std::vector<ub4> codes = codes_of(s, dates, dates.rows(), all, steps);
    block<ub4> of_rows(codes.size());
    std::transform(codes.begin(), codes.end(), of_rows.data(), [&](ub4 code) { return month_of_code[code]; });
    return std::make_unique<column>(
        name, dictionary(found_type(value_type::text), dates.has_null(), symbol_table(name, months)),
        std::move(of_rows), column_form::plain);
}

// Numbers of one measure in the selected rows.
struct row_numbers_of {
    std::vector<sb8> scaled;
    std::vector<double> real;
    std::vector<signed char> known; // 1, or 0 for a null, whose number is 0; empty if there are no nulls
};

class grouping {
public:
    grouping(session &s, const table &t, const selection &rows, step_list &steps)
        : session_(s), ctx_(s.kernels().ctx()), table_(t), rows_(rows), steps_(steps) {}

    void make_keys(const std::vector<column *> &columns);
    void make_occurring(const std::vector<column *> &columns);
    void number_groups(ub4 space);
    void take_keys(std::vector<ub4> group_of_row, ub4 groups) {
        group_of_row_ = std::move(group_of_row);
        groups_ = groups;
    }
    ub4 groups() const { return groups_; }
    ub4 key(ub4 group) const { return keys_of_groups_.empty() ? group : keys_of_groups_[group]; }
    // What a key has of a column: one of so many places, and the code that it stands for.
    ub4 places(std::size_t c, const column &col) const {
        return static_cast<ub4>(occurring_.empty() ? col.end_code() : occurring_[c].size());
    }
    ub4 code(std::size_t c, ub4 place) const { return occurring_.empty() ? place : occurring_[c][place]; }
    // The values' sums by group: of numbers, or with null for all rows.
    template <class Sum, class Value>
    std::vector<Sum> sums(const std::vector<Value> &values, const std::string &of);

    row_numbers_of numbers(const measure &, number_scale &);
    std::vector<double> computed(const measure &, std::vector<signed char> &known);
    // The sum of an expression without nulls over all rows, by a _sum kernel.
    double expression_sum(const measure &);
    const std::vector<ub4> &codes(std::size_t number) {
        const auto [of_column, fresh] = codes_.try_emplace(number);
        if (fresh)
            of_column->second = codes_of(session_, encoded(number), table_.rows(), rows_, steps_);
        return of_column->second;
    }
    column &encoded(std::size_t number) const { return *table_.encoded(number); }
    bool has_nulls(const measure &m) const {
        const auto columns = columns_of(m);
        return std::any_of(columns.begin(), columns.end(), [&](std::size_t c) { return encoded(c).has_null(); });
    }
    const std::vector<ub4> &group_of_row() const { return group_of_row_; }
    void mark_known(std::vector<signed char> &known, const std::vector<ub4> &codes, const column &col) const;

private:
    struct side {
        std::vector<double> values;
        tavo_enc_ctx enc{};
        tavo_vec vec{};
    };
    void fill(side &, const operand &, std::vector<signed char> &known);
    void run_arithmetic(const measure &, tavo_variant, tavo_vec &res, std::vector<signed char> &known);

    session &session_;
    const tavo_specialized_ctx &ctx_;
    const table &table_;
    const selection &rows_;
    step_list &steps_;
    std::vector<ub4> group_of_row_; // empty: all rows are one group
    std::vector<ub4> keys_of_groups_;
    std::vector<std::vector<ub4>> occurring_;       // codes by column, where keys are made of these alone
    std::map<std::size_t, std::vector<ub4>> codes_; // of the columns that have been read
    ub4 groups_ = 1;
};

void grouping::make_keys(const std::vector<column *> &columns) {
    if (columns.empty())
        return;
    std::vector<tavo_enc_ctx> contexts(columns.size());
    std::vector<tavo_vec> cols(columns.size());
    std::string what = "keys of ";
    for (std::size_t c = 0; c < columns.size(); c++) {
        cols[c] = *columns[c]->vec();
        contexts[c] = *cols[c].enc;
        contexts[c].kernel_row = columns[c]->kernel_row(TAVO_VARIANT_PLAIN); // that of unpacking
        contexts[c].symbol_count = static_cast<ub4>(columns[c]->end_code());
        cols[c].enc = &contexts[c];
        what += (c == 0 ? "" : ", ") + columns[c]->name();
    }
    group_of_row_.resize(rows_.count + 16);
    std::vector<ub4> scratch(scratch_rows);
    tavo_vec keys{}, temp{};
    keys.data = group_of_row_.data();
    keys.size = rows_.count;
    temp.data = scratch.data();
    temp.size = scratch_rows;
    tavo_env env{};
    env.host = session_.record();
    env.flags = TAVO_ENV_MULTIPLY_KEYS;
    if (rows_.count != table_.rows())
        env.sel_bits = const_cast<ub8 *>(rows_.bits.data()); // read only
    ub4 space = 0;
    const step_clock clock;
    const ub4 status = ctx_.groupkey(&keys, &space, cols.data(), static_cast<ub4>(cols.size()), &temp, &env);
    const double seconds = clock.seconds();
    session_.throw_raised();
    if (status == TAVO_OUT_OF_RANGE) {
        make_occurring(columns);
        return;
    }
    // Full is what it may be when behind the last selected row there are others.
    if ((status != TAVO_DONE && status != TAVO_ROWS_FULL) || (rows_.count != 0 && keys.count != rows_.count))
        throw error(
            fmt::format("tavo_groupkey_dydi failed with status {}, {} of {} keys", status, keys.count, rows_.count));
    group_of_row_.resize(rows_.count);
    if (const session::decompression done = session_.take_decompression(); done.bytes > 0)
        steps_.add("tavo_spak_decode_dydi", "", fmt::format("{} bytes of group columns", done.bytes), rows_.count,
                   rows_.count, done.seconds);
    steps_.add("tavo_groupkey_dydi", "", fmt::format("{}  [{} keys]", what, space), table_.rows(), rows_.count,
               seconds);

    number_groups(space);
}

// Keys of the codes that occur in the selected rows, where those of all codes do not fit.
void grouping::make_occurring(const std::vector<column *> &columns) {
    std::optional<occurring_keys> keys = make_occurring_keys(session_, columns, table_.rows(), rows_, steps_);
    if (!keys)
        throw error(
            "the groups' keys do not fit 32 bits: the columns' numbers of values, multiplied, come to 4294967296 "
            "or more; group by fewer columns, or by ones with fewer values");
    group_of_row_ = std::move(keys->of_row);
    occurring_ = std::move(keys->codes);
    number_groups(static_cast<ub4>(keys->space));
}

void grouping::number_groups(ub4 space) {
    groups_ = space;
    if (space <= 1u << 16 || space / 4 <= rows_.count)
        return;
    // Few of so many keys occur: the groups are numbered.
    const step_clock numbering;
    keys_of_groups_ = group_of_row_;
    std::sort(keys_of_groups_.begin(), keys_of_groups_.end());
    keys_of_groups_.erase(std::unique(keys_of_groups_.begin(), keys_of_groups_.end()), keys_of_groups_.end());
    for (ub4 &key : group_of_row_)
        key = static_cast<ub4>(std::lower_bound(keys_of_groups_.begin(), keys_of_groups_.end(), key) -
                               keys_of_groups_.begin());
    groups_ = static_cast<ub4>(keys_of_groups_.size());
    steps_.add("", "", fmt::format("keys numbered  [{} groups]", groups_), rows_.count, rows_.count,
               numbering.seconds());
}

template <class Sum, class Value>
std::vector<Sum> grouping::sums(const std::vector<Value> &values, const std::string &of) {
    // Two or three accumulators would be summed in an order of their own: this host's sums go by rows.
    std::vector<Sum> result(std::max<std::size_t>(groups_, 4));
    tavo_enc_ctx enc{};
    enc.flags = TAVO_NATIVE;
    enc.value_type = std::is_same_v<Value, double> ? TAVO_VALUE_DOUBLE : TAVO_VALUE_INTEGER;
    enc.width_bits = 8 * sizeof(Value);
    tavo_vec src{}, keys{}, acc{};
    src.data = const_cast<Value *>(values.data());
    src.enc = &enc;
    src.size = static_cast<ub4>(values.size());
    keys.data = const_cast<ub4 *>(group_of_row_.data()); // null without keys
    acc.data = result.data();
    acc.size = static_cast<ub4>(result.size());
    const step_clock clock;
    const ub4 status = ctx_.gby_sum(&acc, &src, group_of_row_.empty() ? nullptr : &keys, nullptr, nullptr);
    steps_.add("tavo_gby_sum_dydi", "", of, src.size, groups_, clock.seconds());
    if (status != TAVO_DONE)
        throw error(fmt::format("tavo_gby_sum_dydi failed with status {}", status));
    result.resize(groups_);
    return result;
}

void grouping::mark_known(std::vector<signed char> &known, const std::vector<ub4> &codes, const column &col) const {
    if (!col.has_null())
        return;
    known.resize(codes.size(), 1);
    for (std::size_t i = 0; i < codes.size(); i++)
        known[i] = static_cast<signed char>(known[i] & (codes[i] >= col.first_code()));
}

row_numbers_of grouping::numbers(const measure &m, number_scale &scale) {
    row_numbers_of out;
    if (m.is_expression) {
        scale = {false, 0};
        out.real = computed(m, out.known);
        return out;
    }
    const column &col = encoded(m.a.column);
    if (col.type() != value_type::integer && col.type() != value_type::decimal)
        throw error(fmt::format("{} is no column of numbers, and has no sum", col.name()));
    const std::vector<std::string> values = values_of(col);
    scale = scale_of(values, rows_.count);
    const std::vector<ub4> &of_rows = codes(m.a.column);
    mark_known(out.known, of_rows, col);
    const auto look_up = [&](auto &by_row, auto &&number) {
        using type = typename std::remove_reference_t<decltype(by_row)>::value_type;
        std::vector<type> by_code(col.end_code());
        for (std::size_t i = 0; i < values.size(); i++)
            by_code[i + col.first_code()] = number(values[i]);
        by_row.resize(of_rows.size());
        std::transform(of_rows.begin(), of_rows.end(), by_row.begin(), [&](ub4 code) { return by_code[code]; });
    };
    if (scale.exact)
        look_up(out.scaled, [&](const std::string &v) { return scaled_number(v, scale.digits); });
    else
        look_up(out.real, real_number);
    return out;
}

// A column's numbers in the selected rows, or a constant; nulls are 0.
void grouping::fill(side &s, const operand &o, std::vector<signed char> &known) {
    s.vec.enc = &s.enc;
    if (!o.is_column) {
        s.values = {o.value};
        s.enc.flags = TAVO_CONSTANT;
        s.vec.size = rows_.count == 0 ? 0 : 1;
    } else {
        const column &col = encoded(o.column);
        if (col.type() != value_type::integer && col.type() != value_type::decimal)
            throw error(fmt::format("{} is no column of numbers", col.name()));
        std::vector<double> by_code(col.end_code());
        for (ub8 code = col.first_code(); code < col.end_code(); code++)
            by_code[code] = real_number(col.dict().symbols()[code]);
        const std::vector<ub4> &of_rows = codes(o.column);
        mark_known(known, of_rows, col);
        s.values.resize(of_rows.size());
        std::transform(of_rows.begin(), of_rows.end(), s.values.begin(), [&](ub4 code) { return by_code[code]; });
        s.vec.size = rows_.count;
    }
    s.vec.data = s.values.data();
}

void grouping::run_arithmetic(const measure &m, tavo_variant variant, tavo_vec &res, std::vector<signed char> &known) {
    side a, b;
    fill(a, m.a, known);
    fill(b, m.b, known);
    static const char *const operators[] = {"add", "sub", "mul"};
    const std::string name = fmt::format("tavo_{}_double_n_n{}", operators[m.op - TAVO_OP_ADD],
                                         variant == TAVO_VARIANT_SECOND ? "_sum" : "");
    const tavo_kernel_slot kernel =
        session_.kernels().kernel(TAVO_ARITH_KERNEL_ROW(variant, TAVO_VALUE_DOUBLE, 0, 0), m.op);
    if (kernel.arith == nullptr)
        throw error(fmt::format("{} has no kernel {}", session_.kernels().path(), name));
    const step_clock clock;
    kernel.arith(&res, &a.vec, &b.vec, nullptr);
    steps_.add(name, "", m.name, rows_.count, variant == TAVO_VARIANT_SECOND ? 1 : rows_.count, clock.seconds());
}

std::vector<double> grouping::computed(const measure &m, std::vector<signed char> &known) {
    std::vector<double> values(rows_.count + 1);
    if (m.is_expression) {
        tavo_vec res{};
        res.data = values.data();
        run_arithmetic(m, TAVO_VARIANT_PLAIN, res, known);
    } else {
        side a;
        fill(a, m.a, known);
        values = std::move(a.values);
    }
    values.resize(rows_.count);
    for (std::size_t i = 0; i < known.size(); i++)
        if (known[i] == 0)
            values[i] = 0;
    return values;
}

double grouping::expression_sum(const measure &m) {
    double sum = 0;
    tavo_vec res{};
    res.data = &sum;
    std::vector<signed char> known;
    run_arithmetic(m, TAVO_VARIANT_SECOND, res, known);
    return sum;
}

// Smallest or largest codes by group: the library has these for one group alone.
std::vector<std::optional<ub4>> extreme_codes(const std::vector<ub4> &codes, const std::vector<ub4> &groups,
                                              const column &col, ub4 n, bool smallest) {
    std::vector<std::optional<ub4>> best(n);
    for (std::size_t i = 0; i < codes.size(); i++)
        if (codes[i] >= col.first_code()) {
            std::optional<ub4> &b = best[groups.empty() ? 0 : groups[i]];
            if (!b || (smallest ? codes[i] < *b : codes[i] > *b))
                b = codes[i];
        }
    return best;
}

} // namespace

std::string name_of(const aggregate &a) {
    switch (a.what) {
    case asked_of_group::count: return "count";
    case asked_of_group::values: return "count(" + a.of.name + ")";
    case asked_of_group::sum: return "sum(" + a.of.name + ")";
    case asked_of_group::average: return "avg(" + a.of.name + ")";
    case asked_of_group::smallest: return "min(" + a.of.name + ")";
    case asked_of_group::largest: break;
    }
    return "max(" + a.of.name + ")";
}

group_column parse_group_column(const std::string &text, const csv_file &file) {
    group_column g;
    if (text.starts_with("month(") && text.ends_with(")")) {
        g.month = true;
        g.column = file.column(text.substr(6, text.size() - 7));
        g.name = "month(" + file.columns()[g.column] + ")";
    } else {
        g.column = file.column(text);
        g.name = file.columns()[g.column];
    }
    return g;
}

namespace {

// In the order in which dictionaries have values, nulls first.
void sort_by_values(std::vector<group_row> &rows, const table &t, const std::vector<group_column> &by) {
    std::vector<std::vector<std::string>> keys(by.size()); // of the columns that are not of texts
    for (std::size_t c = 0; c < by.size(); c++)
        if (const value_type type = by[c].month ? value_type::text : t.type(by[c].column); type != value_type::text)
            for (const group_row &row : rows)
                keys[c].push_back(row.group[c] ? sort_key(type, *row.group[c]).value() : "");
    std::vector<std::size_t> order(rows.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
        for (std::size_t c = 0; c < by.size(); c++) {
            if (!keys[c].empty() && keys[c][a] != keys[c][b])
                return keys[c][a] < keys[c][b];
            if (rows[a].group[c] != rows[b].group[c])
                return rows[a].group[c] < rows[b].group[c];
        }
        return false;
    });
    std::vector<group_row> sorted;
    sorted.reserve(rows.size());
    for (const std::size_t i : order)
        sorted.push_back(std::move(rows[i]));
    rows = std::move(sorted);
}

} // namespace

std::vector<group_row> group_rows(session &s, const table &t, const selection &rows,
                                  const std::vector<group_column> &by, std::vector<aggregate> &asked,
                                  const dense_options &options, step_list &steps) {
    std::vector<std::unique_ptr<column>> months;
    std::vector<column *> columns;
    bool has_texts = false;
    for (const group_column &g : by) {
        column *col = t.encoded(g.column);
        has_texts = has_texts || t.texts(g.column) != nullptr;
        if (g.month) {
            if (col == nullptr)
                throw error(fmt::format("{}: a column of form text has no months", g.name));
            if (col->type() != value_type::date && col->type() != value_type::date_time)
                throw error(fmt::format("{}: {} is no column of dates", g.name, col->name()));
            col = months.emplace_back(month_column(s, *col, g.name, steps)).get();
        }
        columns.push_back(col);
    }
    grouping groups(s, t, rows, steps);
    std::optional<dense_groups> dense;
    if (has_texts) {
        std::vector<dense_groups::group_values> values;
        for (std::size_t c = 0; c < by.size(); c++)
            values.push_back({t.texts(by[c].column), columns[c]});
        dense.emplace(s, t.rows(), rows, values, options, steps);
        groups.take_keys(dense->take_group_of_row(), dense->groups());
    } else {
        groups.make_keys(columns);
    }
    const ub4 n = groups.groups();
    const std::vector<sb8> counts = groups.sums<sb8>(std::vector<signed char>(rows.count, 1), "rows of each group");

    std::vector<std::vector<std::optional<std::string>>> answers(asked.size());
    std::vector<std::vector<ub4>> answer_codes(asked.size(), std::vector<ub4>(n));
    for (std::size_t a = 0; a < asked.size(); a++) {
        answers[a].resize(n);
        aggregate &want = asked[a];
        if (want.what == asked_of_group::count) {
            for (ub4 g = 0; g < n; g++)
                answers[a][g] = std::to_string(counts[g]);
            continue;
        }
        if (want.what == asked_of_group::values) {
            const column &col = groups.encoded(want.of.a.column);
            std::vector<signed char> known;
            groups.mark_known(known, groups.codes(want.of.a.column), col);
            const std::vector<sb8> values =
                known.empty() ? counts : groups.sums<sb8>(known, "values of " + want.of.name);
            for (ub4 g = 0; g < n; g++)
                answers[a][g] = std::to_string(values[g]);
            continue;
        }
        if (want.what == asked_of_group::smallest || want.what == asked_of_group::largest) {
            const column &col = groups.encoded(want.of.a.column);
            const std::vector<ub4> &codes = groups.codes(want.of.a.column);
            const step_clock clock;
            const auto best =
                extreme_codes(codes, groups.group_of_row(), col, n, want.what == asked_of_group::smallest);
            steps.add("", col.name(), name_of(want) + "  [by the host]", rows.count, n, clock.seconds());
            for (ub4 g = 0; g < n; g++)
                if (best[g]) {
                    answers[a][g] = col.dict().symbols()[*best[g]];
                    answer_codes[a][g] = *best[g];
                }
            continue;
        }
        const bool average = want.what == asked_of_group::average;
        if (want.of.is_expression && by.empty() && !groups.has_nulls(want.of)) {
            want.scale = {false, 0};
            const double sum = groups.expression_sum(want.of);
            if (rows.count != 0)
                answers[a][0] = text_of_real(average ? sum / rows.count : sum);
            continue;
        }
        const row_numbers_of numbers = groups.numbers(want.of, want.scale);
        const std::vector<sb8> known =
            numbers.known.empty() ? counts : groups.sums<sb8>(numbers.known, "values of " + want.of.name);
        const auto print = [&](const auto &sums, auto &&text) {
            for (ub4 g = 0; g < n; g++)
                if (known[g] != 0)
                    answers[a][g] = text(sums[g], static_cast<ub8>(known[g]));
        };
        const unsigned digits = want.scale.digits;
        if (want.scale.exact)
            print(groups.sums<sb8>(numbers.scaled, want.of.name), [&](sb8 sum, ub8 count) {
                return average ? text_of_average(sum, digits, count) : text_of_sum(sum, digits);
            });
        else
            print(groups.sums<double>(numbers.real, want.of.name), [&](double sum, ub8 count) {
                return text_of_real(average ? sum / static_cast<double>(count) : sum);
            });
    }

    std::vector<ub4> with_rows;
    for (ub4 g = 0; g < n; g++)
        if (counts[g] != 0 || by.empty())
            with_rows.push_back(g);
    std::vector<group_row> result;
    if (dense) {
        auto values = dense->values(with_rows);
        for (std::size_t i = 0; i < with_rows.size(); i++) {
            result.push_back({std::move(values[i]), {}});
            for (auto &answer : answers)
                result.back().answers.push_back(std::move(answer[with_rows[i]]));
            for (const auto &codes : answer_codes)
                result.back().answer_codes.push_back(codes[with_rows[i]]);
        }
        sort_by_values(result, t, by);
        return result;
    }
    for (const ub4 g : with_rows) {
        group_row row;
        row.group.resize(columns.size());
        row.group_codes.resize(columns.size());
        ub4 key = groups.key(g);
        for (std::size_t c = columns.size(); c-- > 0;) {
            const ub4 places = groups.places(c, *columns[c]), code = groups.code(c, key % places);
            key /= places;
            row.group_codes[c] = code;
            if (code >= columns[c]->first_code())
                row.group[c] = columns[c]->dict().symbols()[code];
        }
        for (const auto &answer : answers)
            row.answers.push_back(answer[g]);
        for (const auto &codes : answer_codes)
            row.answer_codes.push_back(codes[g]);
        result.push_back(std::move(row));
    }
    return result;
}

std::vector<std::optional<double>> computed_values(session &s, const table &t, const selection &rows, const measure &m,
                                                   step_list &steps) {
    grouping all(s, t, rows, steps);
    std::vector<signed char> known;
    const std::vector<double> values = all.computed(m, known);
    std::vector<std::optional<double>> out(values.begin(), values.end());
    for (std::size_t i = 0; i < known.size(); i++)
        if (known[i] == 0)
            out[i] = std::nullopt;
    return out;
}

} // namespace host
