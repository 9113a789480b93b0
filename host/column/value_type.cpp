#include "host/column/value_type.h"

#include <algorithm>

namespace host {

namespace {

bool is_digit(char c) { return c >= '0' && c <= '9'; }

// A number taken apart: digits without leading zeros before the point, without trailing zeros behind it.
struct number {
    bool negative = false, point = false;
    std::string_view whole, fraction;
};

std::optional<number> parse_number(std::string_view text) {
    number n;
    if (text.starts_with('-') || text.starts_with('+')) {
        n.negative = text[0] == '-';
        text.remove_prefix(1);
    }
    const std::size_t point = text.find('.');
    n.point = point != std::string_view::npos;
    n.whole = text.substr(0, point);
    if (n.point)
        n.fraction = text.substr(point + 1);
    if (n.whole.empty() && n.fraction.empty())
        return std::nullopt;
    if (!std::all_of(n.whole.begin(), n.whole.end(), is_digit) ||
        !std::all_of(n.fraction.begin(), n.fraction.end(), is_digit))
        return std::nullopt;
    n.whole.remove_prefix(std::min(n.whole.find_first_not_of('0'), n.whole.size()));
    n.fraction = n.fraction.substr(0, n.fraction.find_last_not_of('0') + 1);
    return n;
}

// '0' for a negative number, '1' for zero, '2' for a positive one; then the number of whole digits, four bytes with the
// most significant first; then the digits. In a negative number all that follows the first byte is inverted and an end
// mark greater than any inverted digit closes it, so that -1.25 comes before -1.2.
std::string number_key(const number &n) {
    if (n.whole.empty() && n.fraction.empty())
        return "1";
    std::string key(1, n.negative ? '0' : '2');
    for (int shift = 24; shift >= 0; shift -= 8)
        key += static_cast<char>(n.whole.size() >> shift);
    key += n.whole;
    key += n.fraction;
    if (n.negative) {
        for (std::size_t i = 1; i < key.size(); i++)
            key[i] = static_cast<char>(~key[i]);
        key += '\xff';
    }
    return key;
}

struct moment {
    bool time = false;
    std::string key; // the digits of year, month, day, hour, minute, second, fraction
};

std::optional<moment> parse_moment(std::string_view text) {
    moment m;
    // Takes one separator (if any) and a number of two or four digits within its bounds.
    auto take = [&](std::string_view separators, unsigned digits, int low, int high) -> int {
        if (!separators.empty()) {
            if (text.empty() || separators.find(text[0]) == std::string_view::npos)
                return -1;
            text.remove_prefix(1);
        }
        if (text.size() < digits || !std::all_of(text.begin(), text.begin() + digits, is_digit))
            return -1;
        int value = 0;
        for (char c : text.substr(0, digits))
            value = value * 10 + (c - '0');
        m.key += text.substr(0, digits);
        text.remove_prefix(digits);
        return value < low || value > high ? -1 : value;
    };
    const int year = take("", 4, 0, 9999);
    const int month = year < 0 ? -1 : take("-", 2, 1, 12);
    if (month < 0)
        return std::nullopt;
    const bool leap = year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
    const int days = month == 2 ? (leap ? 29 : 28) : month == 4 || month == 6 || month == 9 || month == 11 ? 30 : 31;
    if (take("-", 2, 1, days) < 0)
        return std::nullopt;
    if (text.empty()) {
        m.key += "000000";
        return m;
    }
    m.time = true;
    if (take(" T", 2, 0, 23) < 0 || take(":", 2, 0, 59) < 0)
        return std::nullopt;
    if (text.empty()) {
        m.key += "00";
        return m;
    }
    if (take(":", 2, 0, 60) < 0) // 60: a leap second
        return std::nullopt;
    if (text.empty())
        return m;
    const std::string_view fraction = text.substr(1);
    if (text[0] != '.' || fraction.empty() || !std::all_of(fraction.begin(), fraction.end(), is_digit))
        return std::nullopt;
    m.key += fraction.substr(0, fraction.find_last_not_of('0') + 1);
    return m;
}

} // namespace

const char *name_of(value_type type) {
    switch (type) {
    case value_type::integer: return "integer";
    case value_type::decimal: return "decimal";
    case value_type::date: return "date";
    case value_type::date_time: return "date-time";
    case value_type::text: break;
    }
    return "text";
}

value_type type_of(std::string_view text) {
    if (const auto n = parse_number(text))
        return n->point ? value_type::decimal : value_type::integer;
    if (const auto m = parse_moment(text))
        return m->time ? value_type::date_time : value_type::date;
    return value_type::text;
}

value_type common_type(value_type a, value_type b) {
    const auto [low, high] = std::minmax(a, b);
    if (low == high || (low == value_type::integer && high == value_type::decimal) ||
        (low == value_type::date && high == value_type::date_time))
        return high;
    return value_type::text;
}

std::optional<std::string> sort_key(value_type type, std::string_view text) {
    switch (type) {
    case value_type::integer:
    case value_type::decimal:
        if (const auto n = parse_number(text))
            return number_key(*n);
        return std::nullopt;
    case value_type::date:
    case value_type::date_time:
        if (auto m = parse_moment(text))
            return std::move(m->key);
        return std::nullopt;
    case value_type::text: break;
    }
    return std::string(text);
}

} // namespace host
