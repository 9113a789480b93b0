// Dense codes back to symbols, and several columns' codes in one packed group key.
#include "portable/intrinsics.h"
#include "xlate/dense.h"
#include "xlate/dense_steps.h"
#include "xlate/dense_trie.h"

ub4 tavo_dgk_code2symbol_dydi(ub8, const tavo_dgk *trie_holder, tavo_vec *out, tavo_vec *codes) noexcept {
    const auto *code = static_cast<const ub4 *>(codes->data);
    auto *bytes = static_cast<ub8 *>(out->data);
    const ub4 rows = TAVO_VEC_SIZE(codes);
    for (ub8 row = 0; row < rows; row++) {
        const ub8 record_length = tavo::trie_leaf<tavo::processor_steps>(*trie_holder, code[row]);
        out->lengths[row] = tavo::dense_load<ub2>(tavo::address(record_length));
        bytes[row] = record_length + sizeof(ub2);
    }
    out->count = rows;
    return TAVO_DONE;
}

ub4 tavo_dgk_concatenate_dydi(ub4 rows, ub8 cardinality, const ub4 *codes, ub8 *free_bits, ub4 *used_bits, ub8 *in_use,
                              ub8 *key, ub4 width_limit) noexcept {
    ub8 free = *free_bits, field = *in_use;
    ub4 width = *used_bits;
    for (; width < 64 && cardinality > 1ull << width; width++) {
        if (free == 0 || _tzcnt_u64(free) >= width_limit)
            return TAVO_OUT_OF_RANGE;
        field |= free & (~free + 1);
        free = _blsr_u64(free);
    }
    *free_bits = free;
    *in_use = field;
    *used_bits = width;
    if (field == 0)
        return TAVO_DONE; // a column of one code, which takes no bits
    const auto shift = static_cast<unsigned>(_tzcnt_u64(field));
    const __m512i shifts = _mm512_set1_epi64(shift);
    ub8 row = 0;
    for (; row + 8 <= rows; row += 8) {
        const __m512i wide = _mm512_cvtepu32_epi64(_mm256_loadu_si256(reinterpret_cast<const __m256i *>(codes + row)));
        const __m512i keys = _mm512_or_si512(_mm512_loadu_si512(key + row), _mm512_sllv_epi64(wide, shifts));
        _mm512_storeu_si512(key + row, keys);
    }
    for (; row < rows; row++)
        key[row] |= static_cast<ub8>(codes[row]) << shift;
    return TAVO_DONE;
}

ub4 tavo_extract_dgk_dydi(ub4 rows, const ub8 *key, ub4 ncols, const ub8 *in_use, ub4 *const *out) noexcept {
    constexpr ub8 block = 1024; // keys that stay in the first-level cache from column to column
    for (ub8 from = 0; from < rows; from += block) {
        const ub8 to = from + block < rows ? from + block : rows;
        for (ub4 column = 0; column < ncols; column++) {
            const ub8 field = in_use[column];
            const auto shift = static_cast<unsigned>(field == 0 ? 0 : _tzcnt_u64(field));
            const __m512i fields = _mm512_set1_epi64(static_cast<long long>(field)), shifts = _mm512_set1_epi64(shift);
            ub4 *codes = out[column];
            ub8 row = from;
            for (; row + 8 <= to; row += 8) {
                const __m512i in_place = _mm512_and_si512(_mm512_loadu_si512(key + row), fields);
                _mm256_storeu_si256(reinterpret_cast<__m256i *>(codes + row),
                                    _mm512_cvtepi64_epi32(_mm512_srlv_epi64(in_place, shifts)));
            }
            for (; row < to; row++)
                codes[row] = static_cast<ub4>((key[row] & field) >> shift);
        }
    }
    return TAVO_DONE;
}
