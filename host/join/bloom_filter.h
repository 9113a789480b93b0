// A bloom filter over 64-bit hashes, as the library's two-bit kernels test it: both bits of a hash in one 64-bit word.
#pragma once

#include <span>
#include <vector>

#include <tavo/tavo.h>

namespace host {

class bloom_filter {
public:
    static constexpr ub1 mode = 2; // of the operation bloom

    // Sixteen bits a hash, to the next power of two: one stranger in about 150 to 300 passes.
    explicit bloom_filter(ub8 hashes);
    bloom_filter(const bloom_filter &) = delete;
    bloom_filter &operator=(const bloom_filter &) = delete;

    void add(std::span<const ub8> hashes);
    bool may_hold(ub8 hash) const; // what the kernels compute
    tavo_vec *vec() { return &vec_; }
    ub8 bytes() const { return words_.size() * 8; }

private:
    struct place {
        ub8 word, bits;
    };
    place place_of(ub8 hash) const;

    std::vector<ub8> words_;
    tavo_enc_ctx enc_{};
    tavo_vec vec_{};
};

} // namespace host
