// Memory that ends, or begins, at an unreadable page: an access one byte too far is a fault and not a matter of luck.
#pragma once

#include <cstddef>
#include <cstring>
#include <span>
#include <utility>
#include <vector>

#include "frame/tavo_types.h"

namespace tavo::test {

enum class guard { behind, before };

class guarded {
public:
    // `size` bytes. guard::behind: the byte after the last is unreadable (so the start has any alignment);
    // guard::before: the byte before the first is, and the start is page-aligned. Filled with `fill`.
    explicit guarded(std::size_t size, guard side = guard::behind, ub1 fill = 0xa5);
    guarded(std::span<const ub1> content, guard side = guard::behind) : guarded(content.size(), side) {
        if (!content.empty())
            std::memcpy(data(), content.data(), content.size());
    }
    guarded(guarded &&other) noexcept;
    guarded(const guarded &) = delete;
    guarded &operator=(const guarded &) = delete;
    guarded &operator=(guarded &&other) noexcept {
        std::swap(map_, other.map_);
        std::swap(map_size_, other.map_size_);
        std::swap(data_, other.data_);
        std::swap(size_, other.size_);
        return *this;
    }
    ~guarded();

    ub1 *data() const { return data_; }
    std::size_t size() const { return size_; }
    template <class T>
    T *as() const {
        return reinterpret_cast<T *>(data_);
    }
    std::span<ub1> bytes() const { return {data_, size_}; }

private:
    void *map_ = nullptr;
    std::size_t map_size_ = 0;
    ub1 *data_ = nullptr;
    std::size_t size_ = 0;
};

} // namespace tavo::test
