// What a table has for a partition. A negative number means a table without partitions: its one entry.
#pragma once

#include "frame/tavo_types.h"

namespace tavo {

template <class T>
inline T &entry_of(T *entries, sb4 part) noexcept {
    return entries[part < 0 ? 0 : part];
}

} // namespace tavo
