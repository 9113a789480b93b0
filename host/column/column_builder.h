// Takes the fields of a column one by one and makes its dictionary and its codes.
#pragma once

#include <string>
#include <vector>

#include "host/column/dictionary.h"
#include "host/column/field_places.h"

namespace host {

// The different texts of a column that does not have many, each with a number in the order of its first coming.
class seen_texts {
public:
    explicit seen_texts(const field_text &text) : text_(text), slots_(1024, none) {}

    // Number of a field's text; new ones get the next number.
    ub4 number_of(const csv_field &field);
    ub4 size() const { return static_cast<ub4>(entries_.size()); }
    std::size_t place(ub4 number) const { return entries_[number].place; }

private:
    static constexpr ub4 none = 0xffffffff;
    struct entry {
        ub8 place; // of the field in which the text came first
        ub4 length, hash;
    };
    void double_slots();

    field_text text_;
    std::vector<entry> entries_;
    std::vector<ub4> slots_; // number of an entry, at its hash or behind; a power of two of them
};

// A column with not too many different values is numbered by a table of its texts. One that turns out to have a new
// value in nearly every row is sorted as a whole instead, which needs no table, and walks through memory in order: for
// large files that is faster and takes less memory than any table.
class column_builder {
public:
    // The text, at whose fields the builder looks again, must live until finish(). A column of many values is taken for
    // one with nearly as many values as rows from `many` of them on.
    column_builder(std::string name, const field_text &text, found_type type, ub4 many = 65536)
        : name_(std::move(name)), text_(text), type_(std::move(type)), many_(many), texts_(text),
          places_(text.text.size()) {}

    // The next row's field, on this line of the file. Throws if it is longer than a value may be.
    void add(const csv_field &field, std::size_t line);
    void add_null();

    // Values that are not of the type that the column was given.
    struct bad_value {
        std::size_t line;
        std::string value;
    };
    const std::vector<bad_value> &bad_values() const { return bad_; } // the first of them
    ub8 bad_count() const { return bad_count_; }

    struct result {
        dictionary dict;
        block<ub4> codes; // one a row
    };
    result finish();

private:
    void note_type(std::string_view value, std::size_t line);
    void go_on_by_places();
    void encode(place_list &places, block<ub4> order, symbol_list &symbols) const;

    std::string name_;
    field_text text_;
    found_type type_;
    ub4 many_;
    bool has_null_ = false, by_places_ = false;
    std::string made_;
    seen_texts texts_;
    block<ub4> numbers_; // of the rows' texts, while there are few
    place_list places_;  // of the rows' fields, when there are many
    std::vector<bad_value> bad_;
    ub8 bad_count_ = 0;
};

} // namespace host
