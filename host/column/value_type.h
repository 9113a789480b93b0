// The types of columns, found from the text of their fields, and their orders.
//
//   integer     digits, a sign before them or not
//   decimal     the same with a decimal point, an exponent (1e3) or both; any number of digits, compared exactly
//   date        2001-04-30
//   date-time   2001-04-30 06:15, 2001-04-30T06:15:59.25, 2001-04-30T06:15Z, 2001-04-30 06:15:59+02:00; a date alone is
//               its midnight, a time without a zone is read as UTC
//   text        everything else, in the order of its bytes
//
// Spaces around a number, a date or a time do not matter.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace host {

enum class value_type { integer, decimal, date, date_time, text };

const char *name_of(value_type);
// The type of this name, if there is one.
std::optional<value_type> type_named(std::string_view name);

// The narrowest type that a field's text belongs to.
value_type type_of(std::string_view text);

// The narrowest type that holds values of both.
value_type common_type(value_type, value_type);

// Without spaces and tabs at either end.
std::string_view trimmed(std::string_view text);

// A byte string that orders as the value does: keys compare, byte by byte, as the values of the type, and are equal
// where the values are (1.0 and 1.00 have one key). Nothing if the text is no value of the type. Numbers serve each
// other's types, and so do dates and date-times.
std::optional<std::string> sort_key(value_type, std::string_view text);
// The same into a string that is used again and again; false if the text is no value of the type.
bool make_sort_key(value_type, std::string_view text, std::string &key);

// The first eight bytes of the sort key of an integer of at most 14 digits without sign, spaces and zeros at its front,
// zero behind the key's end, as a number that compares like them; 0 for any other text.
inline std::uint64_t short_integer_key(std::string_view text) {
    if (text.empty() || text.size() > 14 || text[0] == '0')
        return 0;
    // Two digits a byte from 1 on; the zeros at the end are not part of a key.
    std::uint64_t key = 0xc0 + text.size();
    std::size_t end = 0;
    for (std::size_t i = 0; i < text.size(); i++) {
        const unsigned digit = static_cast<unsigned char>(text[i]) - unsigned{'0'};
        if (digit > 9)
            return 0;
        end = digit != 0 ? i + 1 : end;
        key = i % 2 == 0 ? key << 8 | (digit * 10 + 1) : key + digit;
    }
    const std::size_t pairs = (text.size() + 1) / 2, kept = (end + 1) / 2;
    key >>= (pairs - kept) * 8;
    return key << (7 - kept) * 8;
}

// The type of a column, taken from its values one by one, and which value made it what it is.
class found_type {
public:
    found_type() = default;
    // Of a column that its user gave a type.
    explicit found_type(value_type declared) : type_(declared), declared_(true), any_(true) {}

    void see(std::string_view value, std::size_t line);

    value_type type() const { return type_; }
    bool declared() const { return declared_; }
    // The first value that no other type holds together with those before it, and its line; line 0 if there is none.
    std::size_t text_line() const { return text_line_; }
    const std::string &text_value() const { return text_value_; }
    // What the values before that one were; nothing if it is the first.
    std::optional<value_type> before_text() const { return before_text_; }

private:
    value_type type_ = value_type::text;
    bool declared_ = false, any_ = false;
    std::size_t text_line_ = 0;
    std::string text_value_;
    std::optional<value_type> before_text_;
};

} // namespace host
