// Puts the fields of a column in order without copying them: what is sorted are their numbers, by eight bytes of their
// sort keys at a time.
#pragma once

#include <span>

#include <tavo/tavo.h>

#include "host/column/field_places.h"
#include "host/column/value_type.h"

namespace host {

class value_sorter {
public:
    // All values must be of the type; text and places must outlive the sorter.
    value_sorter(const field_text &text, const place_list &places, value_type type)
        : text_(text), places_(places), type_(type) {}

    // Orders numbers of places by the values there and, where two are one value, by their texts.
    //
    // Takes six bytes a number beside them. Method: sample sort with buckets for equal keys (Sanders, Winkel: Super
    // Scalar Sample Sort, 2004) down to pieces that fit the cache, which are sorted by bytes from the lowest one up;
    // numbers with equal keys go on with the next eight bytes.
    void sort(std::span<ub4> numbers) { sort(numbers, 0); }

private:
    struct record {
        ub8 key;
        ub4 number;
    };
    void sort(std::span<ub4> numbers, std::size_t depth);
    void sort_piece(std::span<ub4> numbers, std::size_t depth);
    void sort_equal(std::span<ub4> numbers, std::size_t depth, ub8 key);
    ub8 key_of(ub4 number, std::size_t depth);
    bool before(ub4 a, ub4 b);

    const field_text &text_;
    const place_list &places_;
    value_type type_;
    std::string made_, other_made_, key_, other_key_;
    block<record> records_, scratch_;
    unsigned level_ = 0;
};

} // namespace host
