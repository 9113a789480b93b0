// Fields of a CSV text, named by where they begin in it: five bytes a field instead of the field itself.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include <tavo/tavo.h>

#include "host/column/block.h"
#include "host/column/csv.h"

namespace host {

// Places in a text of less than 1 TiB; four bytes each where it has less than 4 GiB.
class place_list {
public:
    explicit place_list(std::size_t text_size) : wide_(text_size >= 0xffffffff) {}

    void reserve(std::size_t places) {
        low_.reserve(places);
        high_.reserve(wide_ ? places : 0);
    }
    void add(std::size_t place) {
        low_.push_back(static_cast<ub4>(place));
        if (wide_)
            high_.push_back(static_cast<ub1>(place >> 32));
    }
    std::size_t operator[](std::size_t i) const { return low_[i] | (wide_ ? static_cast<ub8>(high_[i]) << 32 : 0); }
    std::size_t size() const { return low_.size(); }
    const ub4 *address(std::size_t i) const { return low_.data() + i; }
    // Something else than a place, which takes its room: read it from the list that low() hands out.
    void replace(std::size_t i, ub4 by) { low_[i] = by; }
    block<ub4> low() && {
        high_.clear();
        return std::move(low_);
    }

private:
    bool wide_;
    block<ub4> low_;
    block<ub1> high_;
};

struct field_text {
    std::string_view text;
    char delimiter;

    // Where a field that a reader of this text has handed out begins: at its opening quote, if it has one.
    std::size_t place_of(const csv_field &field) const {
        return static_cast<std::size_t>(field.text.data() - text.data()) - field.quoted;
    }
    // The field's value; `made` holds it if it had to be made.
    std::string_view value_at(std::size_t place, std::string &made) const {
        return field_at(text, place, delimiter).value(made);
    }
};

// Fetches what numbers[i] and those behind it will need, in good time: first the place, then the text. Inlined by
// force: g++ takes a function of nothing but prefetches for one that does nothing, and leaves the call out.
[[gnu::always_inline]] inline void fetch_ahead(const field_text &text, const place_list &places,
                                               std::span<const ub4> numbers, std::size_t i) {
    constexpr std::size_t text_ahead = 16, place_ahead = 36;
    if (i + place_ahead < numbers.size()) {
        __builtin_prefetch(places.address(numbers[i + place_ahead]));
        __builtin_prefetch(text.text.data() + places[numbers[i + text_ahead]]);
    }
}

} // namespace host
