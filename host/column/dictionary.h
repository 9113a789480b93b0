// Order-preserving dictionaries: codes compare as the values do.
//
// Symbols are the different texts of a column, ordered by value and, where two texts are one value (1.0 and 1.00), by
// text. So nothing is lost, every field can be printed as it stood, and a comparison with a value is a comparison with
// a range of codes. In a column with nulls code 0 is the null code, its symbol is empty, and the values begin at
// code 1.
#pragma once

#include <deque>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include <tavo/tavo.h>

#include "host/column/value_type.h"

namespace host {

class dictionary {
public:
    dictionary() = default;
    dictionary(value_type type, bool has_null, std::vector<std::string> symbols);

    value_type type() const { return type_; }
    bool has_null() const { return has_null_; }
    const std::vector<std::string> &symbols() const { return symbols_; }
    ub8 first_code() const { return has_null_ ? 1 : 0; } // of a value
    ub8 end_code() const { return symbols_.size(); }     // behind the last one

    // First code whose value is not below, or is above, the value with this key; end_code() if there is none.
    ub8 first_not_below(const std::string &key) const;
    ub8 first_above(const std::string &key) const;

private:
    value_type type_ = value_type::text;
    bool has_null_ = false;
    std::vector<std::string> symbols_, keys_; // by code; the null code's key is empty and below all others
};

// Takes a column's fields one by one and gives each distinct text a number in the order of its first coming.
class dictionary_builder {
public:
    static constexpr ub4 null_number = 0xffffffff;

    // The number of a text, which the builder keeps a view of: it must live until finish().
    ub4 number_of(std::string_view lasting_text);
    // The same for a text that does not last.
    ub4 number_of_copy(const std::string &text);
    void saw_null() { has_null_ = true; }

    struct result {
        dictionary dict;
        std::vector<ub4> code_of; // by number
    };
    // Finds the type and the order.
    result finish() const;

private:
    bool has_null_ = false;
    std::unordered_map<std::string_view, ub4> numbers_;
    std::vector<std::string_view> texts_; // by number
    std::deque<std::string> copies_;
};

} // namespace host
