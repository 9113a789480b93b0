// What probes of all kinds share on the output side.
#pragma once

#include <algorithm>
#include <cstring>

#include "frame/tavo_kv.h"
#include "portable/intrinsics.h"

namespace tavo {

[[gnu::always_inline]] inline void set_bit(ub8 *bits, ub8 bit) noexcept { bits[bit >> 6] |= ub8{1} << (bit & 63); }
[[gnu::always_inline]] inline void clear_bit(ub8 *bits, ub8 bit) noexcept { bits[bit >> 6] &= ~(ub8{1} << (bit & 63)); }

// Whether a mode only counts.
constexpr bool counts(ub4 mode) noexcept {
    return mode == TAVO_PROBE_COUNT || mode == TAVO_PROBE_COUNT_DISTINCT || mode == TAVO_PROBE_COUNT_NONMATCH ||
           mode == TAVO_PROBE_COUNT_MUTKV || mode == TAVO_PROBE_COUNT_SEGBV;
}
constexpr bool writes_rids(ub4 mode) noexcept { return !counts(mode) && mode != TAVO_PROBE_VALUES; }

// The ids of probe rows: ub8 from a vector, or ub4 made from the position.
struct row_ids {
    bool autorid;
    ub8 base; // address of the ids, or the first row's id

    unsigned bytes() const noexcept { return autorid ? 4 : 8; }
    ub8 of(ub8 row) const noexcept {
        if (autorid)
            return base + row;
        ub8 id;
        std::memcpy(&id, reinterpret_cast<const ub1 *>(base) + row * 8, sizeof id);
        return id;
    }
    // Writes row's id to elements from to from + n - 1 of the output.
    void write(void *out, ub4 from, ub4 n, ub8 row) const noexcept {
        const ub8 id = of(row);
        if (autorid)
            std::fill_n(static_cast<ub4 *>(out) + from, n, static_cast<ub4>(id));
        else
            std::fill_n(static_cast<ub8 *>(out) + from, n, id);
    }
};

} // namespace tavo
