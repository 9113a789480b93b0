// The types of columns, found from the text of their fields, and their orders.
//
//   integer     digits, a sign before them or not
//   decimal     the same with a decimal point; any number of digits, compared exactly
//   date        2001-04-30
//   date-time   2001-04-30 06:15, 2001-04-30T06:15:59.25; a date alone is its midnight
//   text        everything else, in the order of its bytes
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace host {

enum class value_type { integer, decimal, date, date_time, text };

const char *name_of(value_type);

// The narrowest type that a field's text belongs to.
value_type type_of(std::string_view text);

// The narrowest type that holds values of both.
value_type common_type(value_type, value_type);

// A byte string that orders as the value does: keys compare, byte by byte, as the values of the type, and are equal
// where the values are (1.0 and 1.00 have one key). Nothing if the text is no value of the type. Numbers serve each
// other's types, and so do dates and date-times.
std::optional<std::string> sort_key(value_type, std::string_view text);

} // namespace host
