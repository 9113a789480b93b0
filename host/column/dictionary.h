// Order-preserving dictionaries: codes compare as the values do.
//
// Symbols are the different texts of a column, ordered by value and, where two texts are one value (1.0 and 1.00), by
// text. So nothing is lost, every field can be printed as it stood, and a comparison with a value is a comparison with
// a range of codes. In a column with nulls code 0 is the null code, its symbol is empty, and the values begin at
// code 1.
#pragma once

#include <string>
#include <vector>

#include <tavo/tavo.h>

#include "host/column/symbol_table.h"
#include "host/column/value_type.h"

namespace host {

class dictionary {
public:
    dictionary() = default;
    // The symbols in order, the null symbol first if there is one.
    dictionary(found_type type, bool has_null, symbol_table symbols)
        : type_(std::move(type)), has_null_(has_null), symbols_(std::move(symbols)) {}

    value_type type() const { return type_.type(); }
    const found_type &found() const { return type_; } // and why
    bool has_null() const { return has_null_; }
    symbol_table &symbols() { return symbols_; }
    const symbol_table &symbols() const { return symbols_; }
    ub8 first_code() const { return has_null_ ? 1 : 0; } // of a value
    ub8 end_code() const { return symbols_.size(); }     // behind the last one
    std::string key_of(ub8 code) const;                  // of its value, see sort_key

    // First code whose value is not below, or is above, the value with this key; end_code() if there is none.
    ub8 first_not_below(const std::string &key) const;
    ub8 first_above(const std::string &key) const;

private:
    found_type type_;
    bool has_null_ = false;
    symbol_table symbols_;
};

} // namespace host
