#include "host/sqlite/condition.h"

#include <cmath>

namespace host::sqlite {

namespace {

// A value after numeric affinity has been applied to it.
cell as_number(sqlite3_value *value) {
    const std::unique_ptr<sqlite3_value, void (*)(sqlite3_value *)> copy(sqlite3_value_dup(value), sqlite3_value_free);
    if (!copy)
        throw std::bad_alloc();
    switch (sqlite3_value_numeric_type(copy.get())) {
    case SQLITE_INTEGER: return integer_cell(sqlite3_value_int64(copy.get()));
    case SQLITE_FLOAT: return real_cell(sqlite3_value_double(copy.get()));
    default: break;
    }
    return {};
}

class codes_finder {
public:
    codes_finder(const value_column &col, test what) : col_(col), what_(what) {}

    codes_found found(sqlite3_value *value, bool constant) const {
        const cell v = cell_of(value);
        if (v.type == cell::kind::null)
            return {{}, true};
        if (what_ == test::like)
            return like(v);
        if (!col_.ordered())
            return all();
        if (v.type == cell::kind::blob)
            return col_.all_numbers() || col_.all_texts() ? beyond_all() : all();
        if (col_.all_numbers())
            return among_numbers(v, value);
        return col_.all_texts() ? among_texts(v, value, constant) : all();
    }

private:
    codes_found range(ub8 begin, ub8 end, bool exact) const {
        return {begin < end ? code_ranges{{begin, end}} : code_ranges{}, exact};
    }
    // Whatever can't be told from codes: all values.
    codes_found all() const { return range(col_.first_code(), col_.end_code(), false); }
    // Compared with something that stands above all values.
    codes_found beyond_all() const {
        const bool below = what_ == test::below || what_ == test::not_above;
        return range(below ? col_.first_code() : col_.end_code(), col_.end_code(), true);
    }
    codes_found compared(const cell &v, bool exact) const {
        const ub8 first = col_.first_code(), end = col_.end_code();
        const ub8 from = col_.first_not_below(v), to = col_.first_above(v);
        switch (what_) {
        case test::below: return range(first, from, exact);
        case test::not_above: return range(first, to, exact);
        case test::above: return range(to, end, exact);
        case test::not_below: return range(from, end, exact);
        default: return range(from, to, exact);
        }
    }

    codes_found among_numbers(const cell &v, sqlite3_value *value) const {
        if (v.is_number())
            return compared(v, true);
        if (col_.converts() != value_column::affinity::numeric)
            return all(); // a column of texts on the other side would make texts of the numbers
        const cell number = as_number(value);
        return number.is_number() ? compared(number, true) : beyond_all();
    }

    codes_found among_texts(const cell &v, sqlite3_value *value, bool constant) const {
        const bool equal = what_ == test::equal;
        // Either the number is made a text, which reads as that number, or the texts numbers.
        if (v.is_number())
            return equal ? codes_found{joined(col_.codes_of_number_text(v)), false} : all();
        const cell number = as_number(value);
        // Texts that are numbers are compared as such in a column of numbers.
        if (col_.converts() == value_column::affinity::numeric &&
            (number.is_number() || (!equal && col_.has_number_texts())))
            return all();
        if (constant || (!col_.has_number_texts() && !number.is_number()))
            return compared(v, true);
        // The other side may be a column of numbers that happens to hold this text.
        if (equal) {
            code_ranges ranges = compared(v, false).ranges;
            if (number.is_number())
                for (const auto &r : col_.codes_of_number_text(number))
                    ranges.push_back(r);
            return {joined(std::move(ranges)), false};
        }
        const bool above = what_ == test::above || what_ == test::not_below;
        return above && !number.is_number() ? compared(v, false) : all();
    }

    // The letters before the first wildcard. Others than ASCII ones could be written in several ways.
    codes_found like(const cell &v) const {
        if (!col_.ordered() || !col_.all_texts() || v.type != cell::kind::text)
            return all();
        std::size_t length = 0;
        while (length < v.bytes.size() && v.bytes[length] != '%' && v.bytes[length] != '_' && v.bytes[length] > 0)
            length++;
        return {joined(col_.codes_of_prefix(v.bytes.substr(0, length))), false};
    }

    const value_column &col_;
    test what_;
};

} // namespace

std::optional<test> test_of(int sqlite_operator) {
    switch (sqlite_operator) {
    case SQLITE_INDEX_CONSTRAINT_EQ: return test::equal;
    case SQLITE_INDEX_CONSTRAINT_LT: return test::below;
    case SQLITE_INDEX_CONSTRAINT_LE: return test::not_above;
    case SQLITE_INDEX_CONSTRAINT_GT: return test::above;
    case SQLITE_INDEX_CONSTRAINT_GE: return test::not_below;
    case SQLITE_INDEX_CONSTRAINT_IS: return test::is;
    case SQLITE_INDEX_CONSTRAINT_ISNULL: return test::null;
    case SQLITE_INDEX_CONSTRAINT_ISNOTNULL: return test::known;
    case SQLITE_INDEX_CONSTRAINT_LIKE: return test::like;
    default: return std::nullopt;
    }
}

const char *words_of(test t) {
    switch (t) {
    case test::equal: return "=";
    case test::below: return "<";
    case test::not_above: return "<=";
    case test::above: return ">";
    case test::not_below: return ">=";
    case test::is: return "is";
    case test::null: return "is null";
    case test::known: return "is not null";
    case test::in_list: return "in";
    case test::like: break;
    }
    return "like";
}

codes_found codes_of(const value_column &col, test what, sqlite3_value *value, bool constant) {
    const ub8 first = col.first_code(), end = col.end_code();
    const codes_found nulls{first > 0 ? code_ranges{{0, first}} : code_ranges{}, true};
    const codes_found values{first < end ? code_ranges{{first, end}} : code_ranges{}, true};
    const bool is_null = what != test::null && what != test::known && sqlite3_value_type(value) == SQLITE_NULL;
    if (what == test::null || (what == test::is && is_null))
        return nulls;
    if (what == test::known)
        return values;
    if (what == test::is)
        return codes_finder(col, test::equal).found(value, constant);
    return codes_finder(col, what).found(value, constant);
}

row_range rows_of(test what, sqlite3_value *value, ub4 rows) {
    const row_range all{0, rows}, none{0, 0};
    cell v = cell_of(value);
    if (v.type == cell::kind::null)
        return none;
    // Whatever the other side is, texts become numbers if they can: rowids are integers.
    if (const cell number = v.type == cell::kind::text ? as_number(value) : cell(); number.is_number())
        v = number;
    if (!v.is_number()) // above all numbers
        return what == test::below || what == test::not_above ? all : none;
    // Between 0 and what is behind the last one nothing is rounded.
    const double id =
        std::clamp(v.type == cell::kind::integer ? static_cast<double>(v.integer) : v.real, 0.0, rows + 1.0);
    const auto below = static_cast<ub4>(std::max(std::ceil(id) - 1, 0.0)); // rows with a smaller rowid
    const ub4 up_to = std::min(static_cast<ub4>(std::floor(id)), rows);    // with one that is not larger
    switch (what) {
    case test::equal:
    case test::is: return {below, std::max(below, up_to)};
    case test::below: return {0, below};
    case test::not_above: return {0, up_to};
    case test::above: return {up_to, rows};
    case test::not_below: return {below, rows};
    default: return all;
    }
}

code_ranges joined(code_ranges ranges) {
    std::erase_if(ranges, [](const auto &r) { return r.first >= r.second; });
    std::sort(ranges.begin(), ranges.end());
    code_ranges out;
    for (const auto &r : ranges)
        if (!out.empty() && r.first <= out.back().second)
            out.back().second = std::max(out.back().second, r.second);
        else
            out.push_back(r);
    return out;
}

code_ranges common(const code_ranges &a, const code_ranges &b) {
    code_ranges out;
    for (std::size_t i = 0, j = 0; i < a.size() && j < b.size();) {
        const ub8 begin = std::max(a[i].first, b[j].first), end = std::min(a[i].second, b[j].second);
        if (begin < end)
            out.emplace_back(begin, end);
        if (a[i].second < b[j].second)
            i++;
        else
            j++;
    }
    return out;
}

} // namespace host::sqlite
