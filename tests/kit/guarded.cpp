#include "tests/kit/guarded.h"

#include <sys/mman.h>

#include <cstdio>
#include <cstdlib>
#include <utility>

namespace tavo::test {

guarded::guarded(std::size_t size, guard side, ub1 fill) : size_(size) {
    constexpr std::size_t page = 4096;
    const std::size_t room = (size + page - 1) / page * page;
    map_size_ = room + 2 * page;
    map_ = mmap(nullptr, map_size_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    auto *inner = static_cast<ub1 *>(map_) + page;
    if (map_ == MAP_FAILED || (room != 0 && mprotect(inner, room, PROT_READ | PROT_WRITE) != 0)) {
        std::perror("guarded memory");
        std::abort();
    }
    data_ = side == guard::behind ? inner + room - size : inner;
    if (room != 0)
        std::memset(inner, fill, room);
}

guarded::guarded(guarded &&other) noexcept
    : map_(std::exchange(other.map_, nullptr)), map_size_(other.map_size_), data_(other.data_), size_(other.size_) {}

guarded::~guarded() {
    if (map_ != nullptr)
        munmap(map_, map_size_);
}

} // namespace tavo::test
