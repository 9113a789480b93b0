#include "host/column/value_type.h"

#include <algorithm>

namespace host {

namespace {

bool is_digit(char c) { return c >= '0' && c <= '9'; }

// Digits at the front, taken off.
std::string_view take_digits(std::string_view &text) {
    std::size_t n = 0;
    while (n < text.size() && is_digit(text[n]))
        n++;
    const std::string_view digits = text.substr(0, n);
    text.remove_prefix(n);
    return digits;
}

// A number taken apart: the digits of `whole` and then `fraction`, of which the first and the last are not zero, as the
// decimals of 0.ddd times 10 to the power of `scale`. Zero has no digits.
struct number {
    bool negative = false, integer = true;
    std::string_view whole, fraction;
    std::int64_t scale = 0;
};

std::optional<number> parse_number(std::string_view text) {
    constexpr std::size_t longest_exponent = 9;
    number n;
    text = trimmed(text);
    if (text.starts_with('-') || text.starts_with('+')) {
        n.negative = text[0] == '-';
        text.remove_prefix(1);
    }
    n.whole = take_digits(text);
    if (text.starts_with('.')) {
        n.integer = false;
        text.remove_prefix(1);
        n.fraction = take_digits(text);
    }
    if (n.whole.empty() && n.fraction.empty())
        return std::nullopt;
    std::int64_t exponent = 0;
    if (text.starts_with('e') || text.starts_with('E')) {
        n.integer = false;
        text.remove_prefix(1);
        const bool down = text.starts_with('-');
        if (down || text.starts_with('+'))
            text.remove_prefix(1);
        const std::string_view digits = take_digits(text);
        if (digits.empty() || digits.size() > longest_exponent)
            return std::nullopt;
        for (const char c : digits)
            exponent = exponent * 10 + (c - '0');
        if (down)
            exponent = -exponent;
    }
    if (!text.empty())
        return std::nullopt;
    n.whole.remove_prefix(std::min(n.whole.find_first_not_of('0'), n.whole.size()));
    n.fraction = n.fraction.substr(0, n.fraction.find_last_not_of('0') + 1);
    n.scale = exponent + static_cast<std::int64_t>(n.whole.size());
    if (n.whole.empty()) {
        const std::size_t zeros = std::min(n.fraction.find_first_not_of('0'), n.fraction.size());
        n.fraction.remove_prefix(zeros);
        n.scale -= static_cast<std::int64_t>(zeros);
    } else if (n.fraction.empty()) {
        n.whole = n.whole.substr(0, n.whole.find_last_not_of('0') + 1);
    }
    return n;
}

// One byte for sign and scale, 0x80 being zero; then two digits a byte, 1 to 100, so that 14 digits fit the first eight
// bytes. A scale far from zero takes five more bytes. In a negative number all bytes are inverted and an end mark
// greater than any inverted pair of digits closes it, so that -1.25 comes before -1.2.
void number_key(const number &n, std::string &key) {
    constexpr std::int64_t widest = 62; // of the scales that the first byte can tell
    if (n.whole.empty() && n.fraction.empty()) {
        key = '\x80';
        return;
    }
    key.clear();
    if (n.scale >= -widest && n.scale <= widest) {
        key += static_cast<char>(0xc0 + n.scale);
    } else {
        key += n.scale < 0 ? '\x81' : '\xff';
        for (int shift = 32; shift >= 0; shift -= 8)
            key += static_cast<char>((n.scale + (1ll << 39)) >> shift);
    }
    const std::size_t whole = n.whole.size(), digits = whole + n.fraction.size();
    auto digit = [&](std::size_t i) {
        return i >= digits ? 0 : (i < whole ? n.whole[i] : n.fraction[i - whole]) - '0';
    };
    for (std::size_t i = 0; i < digits; i += 2)
        key += static_cast<char>(digit(i) * 10 + digit(i + 1) + 1);
    if (n.negative) {
        for (char &c : key)
            c = static_cast<char>(~c);
        key += '\xff';
    }
}

// A moment in UTC.
struct moment {
    bool time = false;
    std::int64_t minute = 0; // since 0000-03-01 00:00
    int second = 0;          // 60 in a leap second
    std::string_view fraction;
};

// Days since 0000-03-01. Years begin in March here, so that the day that is not always there ends one.
std::int64_t day_number(int year, int month, int day) {
    const std::int64_t y = month <= 2 ? year - 1 : year, m = month <= 2 ? month + 9 : month - 3;
    const std::int64_t leap_days = y >= 0 ? y / 4 - y / 100 + y / 400 : -1; // of the year before the first one
    return y * 365 + leap_days + (m * 306 + 5) / 10 + day - 1;
}

std::optional<moment> parse_moment(std::string_view text) {
    moment m;
    text = trimmed(text);
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
        text.remove_prefix(digits);
        return value < low || value > high ? -1 : value;
    };
    const int year = take("", 4, 0, 9999);
    const int month = year < 0 ? -1 : take("-", 2, 1, 12);
    if (month < 0)
        return std::nullopt;
    const bool leap = year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
    const int days = month == 2 ? (leap ? 29 : 28) : month == 4 || month == 6 || month == 9 || month == 11 ? 30 : 31;
    const int day = take("-", 2, 1, days);
    if (day < 0)
        return std::nullopt;
    m.minute = day_number(year, month, day) * (24 * 60);
    if (text.empty())
        return m;
    m.time = true;
    const int hour = take(" T", 2, 0, 23), minute = hour < 0 ? -1 : take(":", 2, 0, 59);
    if (minute < 0)
        return std::nullopt;
    m.minute += hour * 60 + minute;
    if (text.starts_with(':')) {
        m.second = take(":", 2, 0, 60);
        if (m.second < 0)
            return std::nullopt;
        if (text.starts_with('.')) {
            text.remove_prefix(1);
            m.fraction = take_digits(text);
            if (m.fraction.empty())
                return std::nullopt;
            m.fraction = m.fraction.substr(0, m.fraction.find_last_not_of('0') + 1);
        }
    }
    // A zone: Z, or how far its clocks are ahead of UTC.
    if (text.starts_with(' '))
        text.remove_prefix(1);
    if (text.empty() || text == "Z" || text == "z")
        return m;
    const bool ahead = text[0] == '+';
    const int hours = take("+-", 2, 0, 23);
    const int minutes = text.empty() ? 0 : take(text[0] == ':' ? ":" : "", 2, 0, 59);
    if (hours < 0 || minutes < 0 || !text.empty())
        return std::nullopt;
    m.minute += (hours * 60 + minutes) * (ahead ? -1 : 1);
    return m;
}

void moment_key(const moment &m, std::string &key) {
    key.clear();
    for (int shift = 32; shift >= 0; shift -= 8)
        key += static_cast<char>((m.minute + (1ll << 39)) >> shift);
    key += static_cast<char>(m.second);
    key += m.fraction;
}

constexpr value_type every_type[] = {value_type::integer, value_type::decimal, value_type::date, value_type::date_time,
                                     value_type::text};

} // namespace

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t'))
        text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t'))
        text.remove_suffix(1);
    return text;
}

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

std::optional<value_type> type_named(std::string_view name) {
    for (const value_type type : every_type)
        if (name == name_of(type))
            return type;
    return std::nullopt;
}

value_type type_of(std::string_view text) {
    if (const auto n = parse_number(text))
        return n->integer ? value_type::integer : value_type::decimal;
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

bool make_sort_key(value_type type, std::string_view text, std::string &key) {
    switch (type) {
    case value_type::integer:
    case value_type::decimal: {
        const auto n = parse_number(text);
        if (n)
            number_key(*n, key);
        return n.has_value();
    }
    case value_type::date:
    case value_type::date_time: {
        const auto m = parse_moment(text);
        if (m)
            moment_key(*m, key);
        return m.has_value();
    }
    case value_type::text: break;
    }
    key = text;
    return true;
}

std::optional<std::string> sort_key(value_type type, std::string_view text) {
    std::string key;
    if (!make_sort_key(type, text, key))
        return std::nullopt;
    return key;
}

void found_type::see(std::string_view value, std::size_t line) {
    if (any_ && type_ == value_type::text)
        return;
    const value_type seen = type_of(value), before = type_;
    type_ = any_ ? common_type(type_, seen) : seen;
    if (type_ == value_type::text) {
        if (any_)
            before_text_ = before;
        text_line_ = line;
        text_value_ = value;
    }
    any_ = true;
}

} // namespace host
