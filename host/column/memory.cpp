#include "host/column/memory.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <sys/mman.h>

namespace host {

namespace {

constexpr std::size_t page = 4096, huge_page = 2 << 20;
constexpr std::size_t large = 4 << 20; // what is smaller comes from malloc

std::size_t in_pages(std::size_t bytes) { return (bytes + page - 1) / page * page; }

// At the beginning of a huge page.
void *map(std::size_t bytes) {
    const std::size_t all = in_pages(bytes) + huge_page;
    void *mapped = mmap(nullptr, all, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (mapped == MAP_FAILED)
        throw std::bad_alloc();
    char *const begin = static_cast<char *>(mapped);
    const std::size_t before = (huge_page - reinterpret_cast<std::uintptr_t>(begin) % huge_page) % huge_page;
    if (before > 0)
        munmap(begin, before);
    munmap(begin + before + in_pages(bytes), huge_page - before);
    madvise(begin + before, in_pages(bytes), MADV_HUGEPAGE); // only advice
    return begin + before;
}

} // namespace

void *resized_memory(void *old, std::size_t old_bytes, std::size_t bytes) {
    const bool was_large = old_bytes >= large;
    if (!was_large && bytes < large) {
        void *memory = std::realloc(old, bytes);
        if (memory == nullptr)
            throw std::bad_alloc();
        return memory;
    }
    if (was_large && bytes >= large) {
        const std::size_t now = in_pages(old_bytes), wanted = in_pages(bytes);
        if (wanted <= now) {
            if (wanted < now)
                munmap(static_cast<char *>(old) + wanted, now - wanted);
            return old;
        }
        if (mremap(old, now, wanted, 0) != MAP_FAILED)
            return old;
        // Moved to the beginning of a huge page, so that huge pages stay whole.
        void *memory = map(bytes);
        if (mremap(old, now, wanted, MREMAP_MAYMOVE | MREMAP_FIXED, memory) == MAP_FAILED) {
            munmap(memory, wanted);
            throw std::bad_alloc();
        }
        return memory;
    }
    void *memory = bytes >= large ? map(bytes) : std::malloc(bytes);
    if (memory == nullptr)
        throw std::bad_alloc();
    if (old != nullptr)
        std::memcpy(memory, old, std::min(old_bytes, bytes));
    release_memory(old, old_bytes);
    return memory;
}

void release_memory(void *memory, std::size_t bytes) noexcept {
    if (bytes >= large)
        munmap(memory, in_pages(bytes));
    else
        std::free(memory);
}

} // namespace host
