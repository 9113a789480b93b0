// A compare's mask as a number, moved to a general register in the mask's own width. Left to itself g++ 12 widens masks
// where they are, spills one as a byte and reloads eight: the rows of the compare then come with whatever lies there.
#pragma once

#include "frame/tavo_types.h"
#include "portable/intrinsics.h"

namespace tavo {

[[gnu::always_inline]] inline ub8 hits_of_mask(__mmask64 mask) noexcept { return mask; }
#ifdef TAVO_PORTABLE
[[gnu::always_inline]] inline ub8 hits_of_mask(__mmask32 mask) noexcept { return mask; }
[[gnu::always_inline]] inline ub8 hits_of_mask(__mmask16 mask) noexcept { return mask; }
[[gnu::always_inline]] inline ub8 hits_of_mask(__mmask8 mask) noexcept { return mask; }
#else
[[gnu::always_inline]] inline ub8 hits_of_mask(__mmask32 mask) noexcept {
    ub4 hits;
    __asm__("kmovd %1, %0" : "=r"(hits) : "k"(mask));
    return hits;
}
[[gnu::always_inline]] inline ub8 hits_of_mask(__mmask16 mask) noexcept {
    ub4 hits;
    __asm__("kmovw %1, %0" : "=r"(hits) : "k"(mask));
    return hits;
}
[[gnu::always_inline]] inline ub8 hits_of_mask(__mmask8 mask) noexcept {
    ub4 hits;
    __asm__("kmovb %1, %0" : "=r"(hits) : "k"(mask));
    return hits;
}
#endif

} // namespace tavo
