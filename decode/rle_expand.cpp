#include "decode/rle_expand.h"

#include <cstring>

#include "decode/run_table.h"
#include "portable/intrinsics.h"

namespace {

// Writes `count` copies of value to out, not a byte more: another run's element may stand right behind them.
template <class Element>
[[gnu::always_inline]] inline void fill(Element *out, Element value, ub4 count) noexcept {
    constexpr ub4 lanes = 32 / sizeof(Element);
    if constexpr (sizeof(Element) == 1) {
        // Runs are short as a rule: one masked store spares them the call.
        if (count <= lanes)
            _mm256_mask_storeu_epi8(out, _bzhi_u32(~0u, count), _mm256_set1_epi8(static_cast<char>(value)));
        else
            std::memset(out, value, count);
    } else {
        const __m256i values = sizeof(Element) == 2 ? _mm256_set1_epi16(static_cast<short>(value))
                                                    : _mm256_set1_epi32(static_cast<int>(value));
        for (; count >= lanes; count -= lanes, out += lanes)
            _mm256_storeu_si256(reinterpret_cast<__m256i *>(out), values);
        if constexpr (sizeof(Element) == 2)
            _mm256_mask_storeu_epi16(out, static_cast<__mmask16>(_bzhi_u32(~0u, count)), values);
        else
            _mm256_mask_storeu_epi32(out, static_cast<__mmask8>(_bzhi_u32(~0u, count)), values);
    }
}

template <class Entry, class Element>
[[gnu::always_inline]] inline void expand_runs(tavo_vec *dst, const tavo_vec *src, const void *runs, ub4 first_count,
                                               ub4 last_excess) noexcept {
    auto *out = static_cast<Element *>(dst->data);
    const auto *elements = static_cast<const Element *>(src->data);
    ub4 count = first_count;
    ub4 run = 0;
    for (; run + 1 < src->size; run++) {
        fill(out, elements[run], count);
        out += count;
        count = tavo::run_length<Entry>(runs, run + 1);
    }
    fill(out, elements[run], count - last_excess);
}

} // namespace

extern "C" {
#define TAVO_MEMBER(entry_bits, Entry, Element)                                                                        \
    void tavo_rle##entry_bits##_expand_##Element(tavo_vec *dst, const tavo_vec *src, const void *runs,                 \
                                                 ub4 first_count, ub4 last_excess) noexcept {                          \
        expand_runs<Entry, Element>(dst, src, runs, first_count, last_excess);                                         \
    }
TAVO_MEMBER(8, ub1, ub1)
TAVO_MEMBER(8, ub1, ub2)
TAVO_MEMBER(8, ub1, ub4)
TAVO_MEMBER(16, ub2, ub1)
TAVO_MEMBER(16, ub2, ub2)
TAVO_MEMBER(16, ub2, ub4)
#undef TAVO_MEMBER
}
