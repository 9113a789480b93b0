#include "host/rows/row_order.h"

#include <algorithm>
#include <numeric>

#include "host/column/column.h"
#include "host/column/number_column.h"
#include "host/join/code_reader.h"
#include "host/query/recompute.h"

namespace host {

asked_order parse_order(const std::string &text, const std::vector<std::string> &names) {
    if (std::find(names.begin(), names.end(), text) == names.end())
        for (const bool descending : {false, true}) {
            const std::string word = descending ? " desc" : " asc";
            if (text.size() > word.size() && text.ends_with(word)) {
                const std::size_t end = text.find_last_not_of(' ', text.size() - word.size());
                if (end != std::string::npos)
                    return {text.substr(0, end + 1), descending};
            }
        }
    return {text, false};
}

namespace {

// Of each code the first one with its value: spellings of one value have codes of their own, side by side.
std::vector<ub4> values_of_codes(const column &col) {
    std::vector<ub4> values(col.end_code());
    std::string last;
    for (ub8 code = col.first_code(), value = code; code < values.size(); code++) {
        if (col.type() != value_type::text) {
            std::string key = col.key_of(code);
            if (key != last)
                value = code;
            last = std::move(key);
        } else {
            value = code;
        }
        values[code] = static_cast<ub4>(value);
    }
    return values;
}

} // namespace

std::vector<ub8> order_keys(session &s, stored_column &stored, const selection &rows, step_list &steps) {
    std::vector<ub8> keys(stored.rows(), null_key);
    if (auto *col = dynamic_cast<column *>(&stored)) {
        const std::vector<ub4> values = values_of_codes(*col);
        code_reader reader(s, {col}, col->rows(), rows, 1 << 16, steps);
        while (const ub4 n = reader.next())
            for (ub4 i = 0; i < n; i++)
                if (const ub4 code = reader.codes(0)[i]; code >= col->first_code())
                    keys[reader.row_numbers()[i]] = values[code];
        return keys;
    }
    const auto &numbers = dynamic_cast<number_column &>(stored);
    number_column::walk walk(numbers);
    for (const ub4 row : row_numbers(s.kernels().ctx(), rows, numbers.rows(), numbers.rows())) {
        const ub8 code = numbers.form() == column_form::fixed ? numbers.fixed_code(row) : walk.code(row);
        if (numbers.is_known(row))
            keys[row] = code; // of times the moment, whatever their zones
    }
    return keys;
}

std::vector<std::size_t> ordered_places(const std::vector<ub8> &keys, bool descending, std::size_t limit) {
    std::vector<std::size_t> places(keys.size());
    std::iota(places.begin(), places.end(), std::size_t{0});
    const auto before = [&](std::size_t a, std::size_t b) {
        if (keys[a] == keys[b])
            return a < b;
        if (keys[a] == null_key || keys[b] == null_key)
            return keys[b] == null_key;
        return descending ? keys[a] > keys[b] : keys[a] < keys[b];
    };
    limit = std::min(limit, places.size());
    std::partial_sort(places.begin(), places.begin() + static_cast<std::ptrdiff_t>(limit), places.end(), before);
    places.resize(limit);
    return places;
}

std::string ordered_lines(std::vector<valued_line> lines, value_type type, bool descending, std::size_t limit) {
    std::stable_sort(lines.begin(), lines.end(), [&](const valued_line &a, const valued_line &b) {
        if (!a.first || !b.first)
            return a.first.has_value() && !b.first;
        const int order = compare_values(type, *a.first, *b.first);
        return descending ? order > 0 : order < 0;
    });
    std::string text;
    for (std::size_t i = 0; i < std::min(limit, lines.size()); i++)
        text += lines[i].second;
    return text;
}

} // namespace host
