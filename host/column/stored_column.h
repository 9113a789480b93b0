// What queries need to know of a column, however it is stored: its values are codes that order as they do.
#pragma once

#include <string>

#include <tavo/tavo.h>

#include "host/column/value_type.h"

namespace host {

class stored_column {
public:
    virtual ~stored_column() = default;

    virtual const std::string &name() const = 0;
    virtual value_type type() const = 0;
    virtual ub4 rows() const = 0;
    virtual unsigned width() const = 0; // of what is stored for a value, in bits
    virtual tavo_vec *vec() = 0;

    virtual bool has_null() const = 0;
    virtual ub8 first_code() const = 0;             // of a value
    virtual ub8 end_code() const = 0;               // behind the last one
    virtual std::string key_of(ub8 code) const = 0; // of its value, see sort_key
    // First code whose value is not below, or is above, the value with this key; end_code() if there is none.
    virtual ub8 first_not_below(const std::string &key) const = 0;
    virtual ub8 first_above(const std::string &key) const = 0;
};

} // namespace host
