#include "host/column/number_form.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <fmt/format.h>
#include <limits>
#include <optional>

namespace host {

namespace {

bool is_digit(char c) { return c >= '0' && c <= '9'; }

// Two or four digits at a place; -1 if they are not there.
int digits_at(std::string_view text, std::size_t at, std::size_t n) {
    if (text.size() < at + n || !std::all_of(text.begin() + static_cast<std::ptrdiff_t>(at),
                                             text.begin() + static_cast<std::ptrdiff_t>(at + n), is_digit))
        return -1;
    int value = 0;
    for (const char c : text.substr(at, n))
        value = value * 10 + (c - '0');
    return value;
}

// Days since 1970-01-01.
std::optional<sb8> day_of(std::string_view text) {
    const int y = digits_at(text, 0, 4), m = digits_at(text, 5, 2), d = digits_at(text, 8, 2);
    if (y < 0 || m < 0 || d < 0 || text[4] != '-' || text[7] != '-')
        return std::nullopt;
    const std::chrono::year_month_day date{std::chrono::year(y), std::chrono::month(static_cast<unsigned>(m)),
                                           std::chrono::day(static_cast<unsigned>(d))};
    if (!date.ok())
        return std::nullopt;
    return std::chrono::sys_days(date).time_since_epoch().count();
}

std::string day_text(sb8 day) {
    const std::chrono::year_month_day date{std::chrono::sys_days(std::chrono::days(day))};
    return fmt::format("{:04}-{:02}-{:02}", static_cast<int>(date.year()), static_cast<unsigned>(date.month()),
                       static_cast<unsigned>(date.day()));
}

// Minutes by which the clocks of a zone, +02:00 or Z, are ahead of UTC.
std::optional<int> minutes_ahead(std::string_view zone) {
    if (zone == "Z" || zone == "z")
        return 0;
    if (zone.starts_with(' '))
        zone.remove_prefix(1);
    if (zone.empty() || (zone[0] != '+' && zone[0] != '-'))
        return std::nullopt;
    const int hours = digits_at(zone, 1, 2);
    const bool colon = zone.size() > 3 && zone[3] == ':';
    const std::size_t behind = colon ? 4 : 3;
    const int minutes = zone.size() == 3 ? 0 : digits_at(zone, behind, 2);
    if (hours < 0 || hours > 23 || minutes < 0 || minutes > 59 || (zone.size() != 3 && zone.size() != behind + 2))
        return std::nullopt;
    return (hours * 60 + minutes) * (zone[0] == '-' ? -1 : 1);
}

constexpr sb8 power_of_ten(unsigned n) {
    sb8 power = 1;
    while (n-- > 0)
        power *= 10;
    return power;
}

constexpr unsigned most_decimals = 18, most_second_decimals = 6; // so that a value has room in 64 bits

std::size_t decimals_of(std::string_view text) {
    const std::size_t point = text.find('.');
    return point == std::string_view::npos ? 0 : text.size() - point - 1;
}

} // namespace

// What a text is in this form's units, before its code is told.
struct number_form::parsed {
    bool fits = false;
    sb8 value = 0;
    std::string_view zone;
};

number_form::parsed number_form::parse_number(std::string_view text) const {
    const bool negative = text.starts_with('-');
    std::string_view rest = text.substr(negative);
    parsed p;
    sb8 value = 0;
    std::size_t behind_point = 0;
    bool point = false;
    const auto push = [&](int digit) {
        return !__builtin_mul_overflow(value, 10, &value) && !__builtin_add_overflow(value, digit, &value);
    };
    for (const char c : rest) {
        if (c == '.' && !point && decimals_ > 0) {
            point = true;
            continue;
        }
        if (!is_digit(c) || !push(c - '0'))
            return p;
        behind_point += point;
    }
    if (rest.empty() || behind_point > decimals_)
        return p;
    for (; behind_point < decimals_; behind_point++)
        if (!push(0))
            return p;
    p.value = negative ? -value : value;
    p.fits = true;
    return p;
}

number_form::parsed number_form::parse_moment(std::string_view text) const {
    parsed p;
    const auto day = day_of(text);
    if (!day)
        return p;
    if (type_ == value_type::date) {
        p.value = *day;
        p.fits = text.size() == 10;
        return p;
    }
    const int hour = digits_at(text, 11, 2), minute = digits_at(text, 14, 2);
    if (hour < 0 || hour > 23 || minute < 0 || minute > 59 || text[10] != separator_ || text[13] != ':')
        return p;
    sb8 value = (*day * 24 + hour) * 60 + minute;
    std::size_t end = 16;
    sb8 per_minute = 1;
    if (has_seconds_) {
        const int second = digits_at(text, 17, 2);
        if (second < 0 || second > 59 || text[16] != ':')
            return p;
        value = value * 60 + second;
        per_minute = 60;
        end = 19;
        if (decimals_ > 0) {
            const int fraction = digits_at(text, 20, decimals_);
            if (fraction < 0 || text[19] != '.')
                return p;
            value = value * power_of_ten(decimals_) + fraction;
            per_minute *= power_of_ten(decimals_);
            end = 20 + decimals_;
        }
    }
    p.zone = text.substr(end);
    if (!p.zone.empty()) {
        const auto ahead = minutes_ahead(p.zone);
        if (!ahead)
            return p;
        value -= *ahead * per_minute;
    }
    p.value = value;
    p.fits = true;
    return p;
}

number_form::parsed number_form::parse(std::string_view text) const {
    return type_ == value_type::date || type_ == value_type::date_time ? parse_moment(text) : parse_number(text);
}

// Takes what all values have to agree in from one of them.
void number_form::learn_shape(std::string_view text) {
    if (type_ == value_type::date_time && text.size() >= 16) {
        separator_ = text[10];
        has_seconds_ = text.size() >= 19 && text[16] == ':';
        decimals_ = 0;
        if (has_seconds_ && text.size() > 20 && text[19] == '.')
            while (20 + decimals_ < text.size() && is_digit(text[20 + decimals_]))
                decimals_++;
    }
}

number_form::found number_form::find(value_type type, const all_values &values) {
    found result;
    number_form &form = result.form;
    form.type_ = type;
    if (type == value_type::text) {
        result.why_not = "holds texts";
        return result;
    }
    bool first = true, same_decimals = true;
    std::size_t decimals = 0;
    values([&](std::string_view text) {
        form.has_values_ = true;
        if (first)
            form.learn_shape(text);
        if (type == value_type::decimal) {
            same_decimals &= first || decimals_of(text) == decimals;
            decimals = std::max(decimals, decimals_of(text));
        }
        first = false;
    });
    if (type == value_type::decimal) {
        form.decimals_ = static_cast<unsigned>(std::min<std::size_t>(decimals, most_decimals + 1));
        form.padded_ = same_decimals;
    }
    if (form.decimals_ > (type == value_type::date_time ? most_second_decimals : most_decimals)) {
        result.why_not = fmt::format("has {} decimals", decimals == 0 ? form.decimals_ : decimals);
        return result;
    }

    sb8 low = std::numeric_limits<sb8>::max(), high = std::numeric_limits<sb8>::min();
    bool some_zone = false, all_zone = true;
    values([&](std::string_view text) {
        if (!result.why_not.empty())
            return;
        const parsed p = form.parse(text);
        if (!p.fits) {
            result.why_not =
                fmt::format("has '{}', which is not written like the others or has no room in 64 bits", text);
            return;
        }
        low = std::min(low, p.value);
        high = std::max(high, p.value);
        some_zone |= !p.zone.empty();
        all_zone &= !p.zone.empty();
        if (!p.zone.empty() && std::find(form.zones_.begin(), form.zones_.end(), p.zone) == form.zones_.end() &&
            form.zones_.size() <= most_zones)
            form.zones_.emplace_back(p.zone);
    });
    if (!result.why_not.empty())
        return result;
    if (some_zone && !all_zone)
        result.why_not = "has times with a zone and times without";
    else if (form.zones_.size() > most_zones)
        result.why_not = fmt::format("has times of more than {} zones", most_zones);
    if (!result.why_not.empty())
        return result;
    std::sort(form.zones_.begin(), form.zones_.end(), [](const std::string &a, const std::string &b) {
        return std::pair(*minutes_ahead(a), a) < std::pair(*minutes_ahead(b), b);
    });
    for (const std::string &zone : form.zones_)
        form.ahead_.push_back(*minutes_ahead(zone));
    form.base_ = first ? 0 : low;
    form.largest_ = first ? 0 : static_cast<ub8>(high) - static_cast<ub8>(low);
    if (form.largest_ == ~0ull) {
        result.why_not = "spans all 64 bits";
        return result;
    }
    values([&](std::string_view text) {
        if (const std::string back = result.why_not.empty() ? form.text(form.store(text)) : std::string(text);
            back != text)
            result.why_not = fmt::format("has '{}', which would come back as {}", text, back);
    });
    result.is_form = result.why_not.empty();
    return result;
}

stored_number number_form::store(std::string_view text) const {
    const parsed p = parse(text);
    const auto zone = std::find(zones_.begin(), zones_.end(), p.zone);
    return {static_cast<ub8>(p.value) - static_cast<ub8>(base_),
            static_cast<ub1>(zone == zones_.end() ? 0 : zone - zones_.begin())};
}

// Common units are 10 to the power of -18, or microseconds.
sb8 number_form::unit() const {
    switch (type_) {
    case value_type::date: return 24ll * 3600 * 1000000;
    case value_type::date_time: return has_seconds_ ? 1000000 / power_of_ten(decimals_) : 60ll * 1000000;
    default: return power_of_ten(most_decimals) / power_of_ten(decimals_);
    }
}

std::string number_form::text(stored_number n) const {
    sb8 value = static_cast<sb8>(n.code + static_cast<ub8>(base_));
    switch (type_) {
    case value_type::integer: return std::to_string(value);
    case value_type::date: return day_text(value);
    case value_type::date_time: break;
    case value_type::text: return "";
    case value_type::decimal: {
        const ub8 size = value < 0 ? 0 - static_cast<ub8>(value) : static_cast<ub8>(value);
        const ub8 unit = static_cast<ub8>(power_of_ten(decimals_));
        std::string text = fmt::format("{}{}", value < 0 ? "-" : "", size / unit);
        if (decimals_ == 0)
            return text;
        std::string fraction = fmt::format("{:0{}}", size % unit, decimals_);
        if (!padded_)
            fraction.resize(fraction.find_last_not_of('0') + 1);
        return fraction.empty() ? text : text + "." + fraction;
    }
    }
    sb8 per_minute = 1;
    if (has_seconds_)
        per_minute = 60 * power_of_ten(decimals_);
    if (!zones_.empty())
        value += ahead_[n.zone] * per_minute;
    const sb8 per_day = 24 * 60 * per_minute;
    sb8 day = value / per_day, rest = value % per_day;
    if (rest < 0) {
        day--;
        rest += per_day;
    }
    const sb8 minute = rest / per_minute;
    std::string text = fmt::format("{}{}{:02}:{:02}", day_text(day), separator_, minute / 60, minute % 60);
    if (has_seconds_) {
        const sb8 unit = power_of_ten(decimals_), in_minute = rest % per_minute;
        text += fmt::format(":{:02}", in_minute / unit);
        if (decimals_ > 0)
            text += fmt::format(".{:0{}}", in_minute % unit, decimals_);
    }
    return zones_.empty() ? text : text + zones_[n.zone];
}

} // namespace host
