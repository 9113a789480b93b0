// Entries of a run table: rows of each run, ub1 or big-endian ub2.
#pragma once

#include "frame/tavo_types.h"

namespace tavo {

// Rows of a run; Entry is ub1 or ub2. The table may have any alignment.
template <class Entry>
[[gnu::always_inline]] inline ub4 run_length(const void *run_table, ub8 run) noexcept {
    Entry stored;
    __builtin_memcpy(&stored, static_cast<const ub1 *>(run_table) + run * sizeof(Entry), sizeof(Entry));
    if constexpr (sizeof(Entry) == 1)
        return stored;
    else
        return __builtin_bswap16(stored);
}

} // namespace tavo
