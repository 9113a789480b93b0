// Elements of any form as numbers in memory: what the kernels of two different types, and the sparse ones, work on.
//
// Converting a run of elements in lanes first and walking plain numbers then is what lets all pairs of forms share one
// body for each metric: a member is its pair's number.
#pragma once

#include "vector/forms.h"

namespace tavo::vector {

// Elements that a run has at most: the room behind `out`, all of which may be written.
constexpr unsigned run_elements = 64;

// A match of two sparse lists: position in the left list in the low half, in the right list in the high half.
using match = ub4;
constexpr unsigned left_shift = 0, right_shift = 16;

template <class T>
struct reader {
    // The first n (1 to run_elements) elements of an array to out.
    void (*run)(const ub1 *elements, ub4 n, T *out) noexcept;
    // The elements at n listed positions, each in the 16 bits of a match from `shift` on, to out.
    void (*pick)(const ub1 *elements, const match *matches, unsigned shift, ub4 n, T *out) noexcept;
};

// By form number. A double has no reader as float.
extern const reader<float> float_readers[forms];
extern const reader<double> double_readers[forms];
template <class T>
[[gnu::always_inline]] inline const reader<T> &reader_of(ub4 f) {
    if constexpr (sizeof(T) == 4)
        return float_readers[f];
    else
        return double_readers[f];
}

inline constexpr base type_of_form[forms] = {
#define TAVO_FORM(name, type, comparable) base::type,
    TAVO_EACH_FORM(TAVO_FORM)
#undef TAVO_FORM
};
inline constexpr bool form_is_comparable[forms] = {
#define TAVO_FORM(name, type, comparable) comparable,
    TAVO_EACH_FORM(TAVO_FORM)
#undef TAVO_FORM
};

// Two forms as one number.
constexpr ub4 pair_of(ub4 left, ub4 right) { return left * forms + right; }

} // namespace tavo::vector
