#include "host/sqlite/row_search.h"

#include <fmt/format.h>
#include <numeric>

namespace host::sqlite {

namespace {

constexpr ub8 listed_below = 256;     // one row in so many: fetching them one by one is quicker than a scan
constexpr ub4 looked_at_first = 4096; // rows, where a limit may end the search early
constexpr ub8 walked_above = 16;      // one row in so many: all rows in order, tested, are quicker than a sort
constexpr ub8 walk_cost = 4;          // or where a limit ends the walk before this share of the rows that were found

bool takes_code(const code_ranges &ranges, ub8 code) {
    const auto behind =
        std::upper_bound(ranges.begin(), ranges.end(), code, [](ub8 c, const auto &range) { return c < range.first; });
    return behind != ranges.begin() && code < std::prev(behind)->second;
}

} // namespace

bool row_search::takes(const std::vector<column_filter> &filters, ub4 row) const {
    return std::all_of(filters.begin(), filters.end(),
                       [&](const column_filter &f) { return takes_code(f.ranges, f.col->code_of_row(row)); });
}

// The first filter has the fewest rows.
rows_found row_search::by_lists(const std::vector<column_filter> &filters, row_range numbered) const {
    const step_clock clock;
    rows_found found;
    found.listed = true;
    const value_column &col = *filters[0].col;
    const ub4 *rows = col.rows_by_code(), *starts = col.starts();
    const std::vector<column_filter> others(filters.begin() + 1, filters.end());
    ub4 codes = 0;
    for (const auto &[begin, end] : filters[0].ranges) {
        codes += static_cast<ub4>(end - begin);
        for (ub4 i = starts[begin]; i < starts[end]; i++)
            if (numbered.has(rows[i]) && takes(others, rows[i]))
                found.rows.push_back(rows[i]);
    }
    if (codes > 1)
        std::sort(found.rows.begin(), found.rows.end());
    steps_.push_back({"", col.name(), col.stored().width(), filters[0].text + "  [rows listed by code]",
                      relation_.rows(), static_cast<ub4>(col.rows_of(filters[0].ranges)), clock.seconds()});
    for (const column_filter &f : others)
        steps_.push_back({"", f.col->name(), f.col->stored().width(), f.text + "  [of these rows, one by one]",
                          steps_.back().rows_out, static_cast<ub4>(found.rows.size()), 0});
    return found;
}

// Whether the first rows have enough of the wanted ones, or there are no others.
bool row_search::first_rows(const std::vector<column_filter> &filters, row_range numbered, ub8 limit,
                            rows_found &found) const {
    const step_clock clock;
    const ub4 end = numbered.begin + std::min(numbered.size(), looked_at_first);
    ub4 row = numbered.begin;
    for (; row < end && found.rows.size() < limit; row++)
        if (takes(filters, row))
            found.rows.push_back(row);
    if (found.rows.size() < limit && end < numbered.end) {
        found.rows.clear();
        return false;
    }
    found.listed = true;
    found.cut = row < numbered.end;
    std::string text;
    for (const column_filter &f : filters)
        text += (text.empty() ? "" : " and ") + f.text;
    steps_.push_back({"", "", 0, text + (text.empty() ? "[the first rows]" : "  [the first rows, one by one]"),
                      row - numbered.begin, static_cast<ub4>(found.rows.size()), clock.seconds()});
    return true;
}

selection row_search::by_kernels(const std::vector<column_filter> &filters, row_range numbered) {
    std::vector<code_plan> parts;
    for (const column_filter &f : filters)
        parts.push_back(plan_code_ranges(f.col->stored(), f.ranges, f.text));
    query q(session_, relation_.rows());
    selection rows = q.run(plan_all(std::move(parts)));
    steps_.insert(steps_.end(), q.steps().begin(), q.steps().end());
    if (numbered.size() != relation_.rows()) {
        const step_clock clock;
        const auto &ctx = session_.kernels().ctx();
        const ub4 before = rows.count;
        if (numbered.begin > 0)
            ctx.lbiwvclr_range(rows.bits.data(), 0, numbered.begin - 1);
        if (numbered.end < relation_.rows())
            ctx.lbiwvclr_range(rows.bits.data(), numbered.end, relation_.rows() - 1);
        ctx.lbiwvpopcnt(&rows.count, rows.bits.data(), relation_.rows());
        steps_.push_back({"", "", 0, fmt::format("rowids {} to {}", numbered.begin + 1, numbered.end), before,
                          rows.count, clock.seconds()});
    }
    return rows;
}

rows_found row_search::run(std::vector<column_filter> filters, row_range numbered, const std::vector<order_key> &order,
                           ub8 limit) {
    rows_found found;
    const ub4 rows = relation_.rows();
    for (const column_filter &f : filters)
        if (f.ranges.empty()) {
            steps_.push_back({"", f.col->name(), f.col->stored().width(), f.text + ": no such value", rows, 0, 0});
            found.listed = true;
            return found;
        }
    std::erase_if(filters, [](const column_filter &f) {
        return f.ranges.size() == 1 && f.ranges[0].first == 0 && f.ranges[0].second == f.col->end_code();
    });
    std::stable_sort(filters.begin(), filters.end(), [](const column_filter &a, const column_filter &b) {
        return a.col->rows_of(a.ranges) < b.col->rows_of(b.ranges);
    });
    const bool plain = relation_.all_plain();
    if (limit == 0) {
        found.listed = found.cut = true;
        return found;
    }
    const bool all_numbers = numbered.size() == rows, few_numbers = numbered.size() <= looked_at_first;
    if (plain && order.empty() && (few_numbers || limit <= looked_at_first / 2) &&
        first_rows(filters, numbered, limit, found))
        return found;
    if (plain && few_numbers)
        first_rows(filters, numbered, no_limit, found);
    else if (plain && !filters.empty() && filters[0].col->rows_of(filters[0].ranges) * listed_below < rows &&
             filters[0].col->worth_sorting())
        found = by_lists(filters, numbered);
    else if (!filters.empty() || order.empty() || !all_numbers)
        found.selected = by_kernels(filters, numbered);
    if (!order.empty())
        put_in_order(found, order, limit, filters.empty() && all_numbers && !found.listed);
    return found;
}

// All rows in the order of the key, of which those that were found are taken.
void row_search::walk(rows_found &found, const order_key &key, ub8 limit, bool all) const {
    const ub4 rows = relation_.rows();
    const ub8 wanted = std::min<ub8>(limit, all ? rows : found.selected.count);
    found.rows.reserve(wanted);
    const auto see = [&](ub4 row) {
        if (all || (found.selected.bits[row / 64] >> row % 64 & 1) != 0)
            found.rows.push_back(row);
        return found.rows.size() < wanted;
    };
    if (key.col == nullptr) {
        for (ub4 i = 0; i < rows && see(key.descending ? rows - 1 - i : i);)
            i++;
        return;
    }
    const ub4 *by_code = key.col->rows_by_code(), *starts = key.col->starts();
    const auto codes = static_cast<ub4>(key.col->end_code());
    for (ub4 c = 0; c < codes; c++) {
        const ub4 code = key.descending ? codes - 1 - c : c;
        for (ub4 i = starts[code]; i < starts[code + 1]; i++)
            if (!see(by_code[i]))
                return;
    }
}

void row_search::put_in_order(rows_found &found, const std::vector<order_key> &order, ub8 limit, bool all) const {
    const step_clock clock;
    const ub4 rows = relation_.rows();
    const ub4 count = all ? rows : found.listed ? static_cast<ub4>(found.rows.size()) : found.selected.count;
    std::string text = "put in order of";
    for (const order_key &k : order)
        text += fmt::format(" {}{}", k.col == nullptr ? "rowid" : k.col->name(), k.descending ? " desc" : "");
    found.cut = limit < count;
    // Rows of equal keys come by number anyway.
    const bool one_key = order.size() == 1 || (order.size() == 2 && order[1].col == nullptr && !order[1].descending);
    const bool walkable = one_key && !found.listed && (order[0].col == nullptr || order[0].col->one_code_a_value());
    const ub8 walked = all          ? 0
                       : count == 0 ? rows
                                    : std::min<ub8>(limit, count) * rows / count; // where rows lie evenly
    if (walkable && (all || count * walked_above >= rows || walked * walk_cost < count)) {
        walk(found, order[0], limit, all);
        text += "  [rows listed by code]";
    } else {
        std::vector<ub4> numbers = std::move(found.rows);
        if (all) {
            numbers.resize(rows);
            std::iota(numbers.begin(), numbers.end(), 0);
        } else if (!found.listed) {
            numbers = row_numbers(session_.kernels().ctx(), found.selected, rows, found.selected.count);
        }
        // Each row's keys, side by side; a descending one turned round.
        const std::size_t width = order.size();
        std::vector<ub4> keys(numbers.size() * width);
        for (std::size_t k = 0; k < width; k++)
            for (std::size_t i = 0; i < numbers.size(); i++) {
                const ub4 key =
                    order[k].col == nullptr ? numbers[i] : order[k].col->rank(order[k].col->code_of_row(numbers[i]));
                keys[i * width + k] = order[k].descending ? ~key : key;
            }
        std::vector<ub4> places(numbers.size());
        std::iota(places.begin(), places.end(), 0);
        const auto before = [&](ub4 a, ub4 b) {
            for (std::size_t k = 0; k < width; k++)
                if (const ub4 x = keys[a * width + k], y = keys[b * width + k]; x != y)
                    return x < y;
            return a < b;
        };
        const std::size_t wanted = std::min<ub8>(limit, places.size());
        const auto end = places.begin() + static_cast<std::ptrdiff_t>(wanted);
        if (wanted < places.size())
            std::nth_element(places.begin(), end, places.end(), before);
        std::sort(places.begin(), end, before);
        found.rows.resize(wanted);
        for (std::size_t i = 0; i < wanted; i++)
            found.rows[i] = numbers[places[i]];
    }
    found.listed = true;
    steps_.push_back({"", "", 0, text, count, static_cast<ub4>(found.rows.size()), clock.seconds()});
}

} // namespace host::sqlite
