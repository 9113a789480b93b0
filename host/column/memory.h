// Memory for large arrays, straight from the operating system: it grows and shrinks without being copied, takes nothing
// where it is not written, goes back when it is released, and consists of huge pages where there are any, as large
// columns are read in any order.
#pragma once

#include <cstddef>

namespace host {

// Memory of `bytes` (not zero) with what `old` holds, up to the smaller size; `old`, of old_bytes, is released. `old`
// may be null. Throws std::bad_alloc, and `old` stays as it was.
void *resized_memory(void *old, std::size_t old_bytes, std::size_t bytes);
void release_memory(void *memory, std::size_t bytes) noexcept;

} // namespace host
