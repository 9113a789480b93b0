// Merging the lists of dimension numbers of two sparse vectors.
#pragma once

#include "frame/tavo_types.h"
#include "vector/readers.h"

namespace tavo::vector {

// The head of a sparse vector.
struct sparse_list {
    const ub1 *dims; // count big-endian ub4, ascending; any alignment
    ub4 count;
};
[[gnu::always_inline]] inline sparse_list sparse_list_of(const void *payload) {
    const auto *p = static_cast<const ub1 *>(payload);
    ub2 count;
    __builtin_memcpy(&count, p, 2);
    return {p + 2, __builtin_bswap16(count)};
}
// Behind the list; native elements wider than a byte stand at the next address that is a multiple of 8.
[[gnu::always_inline]] inline const ub1 *sparse_values(const sparse_list &list, bool aligned) {
    const ub1 *end = list.dims + 4 * list.count;
    return aligned ? end + (-reinterpret_cast<uintptr_t>(end) & 7) : end;
}

// Matches that a call of next_matches finds at most, and the room that it needs for them.
constexpr ub4 matches_at_once = 256, match_room = matches_at_once + 16;

struct sparse_merge {
    sparse_list left, right;
    ub4 at_left, at_right; // how far the merge has come
};

// Goes on with the merge: writes the next matches to out, ascending, and returns how many; 0 when there are no more.
ub4 next_matches(sparse_merge &m, match *out) noexcept;

} // namespace tavo::vector
