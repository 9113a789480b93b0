// Working sets of the bit-vector benchmarks, and the plain read that limits them.
#pragma once

#include <cstddef>
#include <new>

#include "frame/tavo_types.h"

namespace tavo::bench {

// Bytes of all vectors of a row together.
struct working_set {
    const char *name;
    std::size_t bytes;
};
inline constexpr working_set working_sets[] = {
    {"L1", 24 << 10}, {"L2", 512 << 10}, {"L3", 8 << 20}, {"memory", 512 << 20}};

// 64-byte aligned words.
class words {
public:
    explicit words(std::size_t n) : words_(new (std::align_val_t{64}) ub8[n]{}), n_(n) {}
    words(const words &) = delete;
    ~words() { operator delete[](words_, std::align_val_t{64}); }
    ub8 *data() const { return words_; }
    std::size_t size() const { return n_; }
    std::size_t bytes() const { return n_ * 8; }
    ub8 *begin() const { return words_; }
    ub8 *end() const { return words_ + n_; }

private:
    ub8 *words_;
    std::size_t n_;
};

// A sum of all words, in 512-bit registers with four accumulators.
inline ub8 plain_read(const words &w) {
    using u64x8 = ub8 __attribute__((vector_size(64)));
    u64x8 sum[4] = {};
    for (std::size_t i = 0; i + 32 <= w.size(); i += 32)
#pragma GCC unroll 4
        for (std::size_t k = 0; k < 4; k++)
            sum[k] += *reinterpret_cast<const u64x8 *>(w.data() + i + 8 * k);
    const u64x8 lanes = (sum[0] + sum[1]) + (sum[2] + sum[3]);
    ub8 total = 0;
    for (int lane = 0; lane < 8; lane++)
        total += lanes[lane];
    return total;
}

} // namespace tavo::bench
