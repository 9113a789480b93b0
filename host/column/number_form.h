// How the values of a column are numbers: what lies between a field's text and the code that is stored for it.
//
// Codes begin at 0, for the smallest value, and order as the values do. Each text comes back from its code as it stood:
// a column in which one does not, such as 007 among numbers, has no such form.
//
//   integer     the number
//   decimal     the number in units of its last decimal, all values written with as many decimals or all without
//               trailing zeros
//   date        the day
//   date-time   the minute, the second, or a fraction of one, all values written alike; with a zone, of UTC, the zone's
//               text being kept apart: zones are numbered from the westernmost one
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include <tavo/tavo.h>

#include "host/column/value_type.h"

namespace host {

struct stored_number {
    ub8 code;
    ub1 zone; // number of the zone; 0 where there are none
};

class number_form {
public:
    static constexpr std::size_t most_zones = 16; // that four bits tell apart

    // Calls its argument with each different value of a column; more than once, in the same order.
    using all_values = std::function<void(const std::function<void(std::string_view)> &)>;

    // The form of a column's values. If there is none, says why not.
    struct found;
    static found find(value_type, const all_values &);

    stored_number store(std::string_view text) const; // of a value that find() has seen
    std::string text(stored_number) const;

    value_type type() const { return type_; }
    bool has_values() const { return has_values_; }
    ub8 largest() const { return largest_; } // code
    const std::vector<std::string> &zones() const { return zones_; }
    bool is_zoned() const { return !zones_.empty(); }

    // A code's value in units; two forms with the same unit compare by these.
    sb8 value(ub8 code) const { return static_cast<sb8>(code + static_cast<ub8>(base_)); }
    bool has_unit_of(const number_form &other) const { return type_ == other.type_ && unit() == other.unit(); }
    // The value in units that all numbers share, or that all dates and times do.
    __int128 common_value(ub8 code) const { return static_cast<__int128>(value(code)) * unit(); }

private:
    sb8 unit() const; // in common units
    struct parsed;
    parsed parse(std::string_view text) const;
    parsed parse_number(std::string_view text) const;
    parsed parse_moment(std::string_view text) const;
    void learn_shape(std::string_view text);

    value_type type_ = value_type::integer;
    unsigned decimals_ = 0; // of a decimal, or of its seconds
    bool has_values_ = false;
    bool padded_ = false; // decimals are written with trailing zeros
    bool has_seconds_ = false;
    char separator_ = ' '; // between date and time
    std::vector<std::string> zones_;
    std::vector<int> ahead_; // minutes by which the zones' clocks are ahead of UTC
    sb8 base_ = 0;
    ub8 largest_ = 0;
};

struct number_form::found {
    bool is_form = false;
    number_form form;
    std::string why_not; // "has '007', which ..."
};

} // namespace host
