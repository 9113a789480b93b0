// Where gathered elements go: one function for each layout takes a batch and writes as many elements as there is room
// for. The room is asked for element by element, in their order: one that needs none is written to a full output too.
#pragma once

#include "rows/element_batch.h"

namespace tavo {

struct gather_output {
    ub1 *to, *end;
    ub1 *lengths;

    explicit gather_output(const tavo_vec *dst) noexcept
        : to(static_cast<ub1 *>(dst->data)), end(to + dst->byte_size), lengths(reinterpret_cast<ub1 *>(dst->lengths)) {}
    ub8 room() const noexcept { return static_cast<ub8>(end - to); }
};

// Writes elements 0 to n - 1 and returns their number, or that of the elements before the first that does not fit.
using put_elements = ub4(gather_output &out, const element_batch &batch, ub4 n) noexcept;

// The elements that fit, each with Head bytes before it.
template <unsigned Head>
inline ub4 elements_that_fit(ub8 room, const ub4 *lengths, ub4 n, ub8 bytes) noexcept {
    if (bytes + ub8{Head} * n <= room) [[likely]]
        return n;
    ub4 fitting = 0;
    for (; fitting < n && ub8{lengths[fitting]} + Head <= room; fitting++)
        room -= ub8{lengths[fitting]} + Head;
    return fitting;
}

// The bytes: with Head 2 behind their length, else alone, and with Lengths the lengths in an array of their own.
template <unsigned Head, bool Lengths, class Fetch = fetch_nothing>
inline ub4 put_bytes(gather_output &out, const element_batch &batch, ub4 n, Fetch fetch = {}) noexcept {
    const batch_extent extent = extent_of(batch.length, n);
    const ub4 fitting = elements_that_fit<Head>(out.room(), batch.length, n, extent.bytes);
    if constexpr (Lengths) {
        write_lengths(out.lengths, batch.length, fitting);
        out.lengths += sizeof(ub2) * fitting;
    }
    out.to = copy_elements<Head>(out.to, batch, fitting, extent.widest, fetch);
    return fitting;
}

inline ub4 batch_to_lv_sep(gather_output &out, const element_batch &batch, ub4 n) noexcept {
    return put_bytes<0, true>(out, batch, n);
}
inline ub4 batch_to_lv(gather_output &out, const element_batch &batch, ub4 n) noexcept {
    return put_bytes<sizeof(ub2), false>(out, batch, n);
}
inline ub4 batch_to_fixed(gather_output &out, const element_batch &batch, ub4 n) noexcept {
    return put_bytes<0, false>(out, batch, n);
}
inline ub4 batch_to_lp_sep(gather_output &out, const element_batch &batch, ub4 n) noexcept {
    const ub8 room = out.room() / sizeof(ub8);
    const ub4 fitting = room < n ? static_cast<ub4>(room) : n;
    memcpy(out.to, batch.address, fitting * sizeof(ub8));
    write_lengths(out.lengths, batch.length, fitting);
    out.to += fitting * sizeof(ub8);
    out.lengths += fitting * sizeof(ub2);
    return fitting;
}
inline ub4 batch_to_lp(gather_output &out, const element_batch &batch, ub4 n) noexcept {
    const ub8 room = out.room() / lp_elements::record_bytes;
    const ub4 fitting = room < n ? static_cast<ub4>(room) : n;
    write_records(out.to, batch.address, batch.length, fitting);
    out.to += fitting * lp_elements::record_bytes;
    return fitting;
}

} // namespace tavo
