// A column whose values stay as their texts: where each begins and how long it is. No dictionary, no codes.
#pragma once

#include <deque>
#include <string>

#include <tavo/tavo.h>

#include "host/column/block.h"
#include "host/column/csv.h"
#include "host/column/value_type.h"

namespace host {

class text_column {
public:
    text_column(std::string name, found_type type) : name_(std::move(name)), type_(std::move(type)) {}
    text_column(const text_column &) = delete;
    text_column &operator=(const text_column &) = delete;

    // The next row's field, on this line of the file, whose text must outlive the column. Throws if it is longer than a
    // value may be.
    void add(const csv_field &field, std::size_t line);
    void add_null();

    const std::string &name() const { return name_; }
    value_type type() const { return type_.type(); }
    ub4 rows() const { return static_cast<ub4>(lengths_.size()); }
    // Addresses and lengths, when all rows have been added. A null has length 0, and no value has.
    tavo_vec vec();

private:
    std::string name_;
    found_type type_;
    block<ub8> addresses_;
    block<ub2> lengths_;
    std::deque<std::string> made_; // values that stand in the file with doubled quotes
    tavo_enc_ctx enc_{};
};

} // namespace host
