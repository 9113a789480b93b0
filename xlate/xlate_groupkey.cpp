// Group keys by translation; the contract stands in frame/tavo_xlate.h.
#include "frame/tavo_status.h"
#include "xlate/code_source.h"
#include "xlate/table_lookup.h"
#include "xlate/xlate_kernels.h"

namespace tavo {
namespace {

[[gnu::always_inline]] inline __m512i sixteen_entries(const ub1 *entry) noexcept {
    return _mm512_cvtepu8_epi32(_mm_load_si128(reinterpret_cast<const __m128i *>(entry)));
}
[[gnu::always_inline]] inline __m512i sixteen_entries(const ub2 *entry) noexcept {
    return _mm512_cvtepu16_epi32(_mm256_load_si256(reinterpret_cast<const __m256i *>(entry)));
}
[[gnu::always_inline]] inline __m512i sixteen_entries(const ub4 *entry) noexcept { return _mm512_load_si512(entry); }

template <class Element>
[[gnu::always_inline]] inline ub4 add_to_keys(tavo_vec *keys, const tavo_vec *src,
                                              const tavo_xlate_groupkey_ctx *ctx) noexcept {
    const direct_table<Element> table{static_cast<const typename Element::entry *>(ctx->table), 0};
    const __m512i stride = _mm512_set1_epi32(static_cast<int>(ctx->stride));
    plain_codes source(src, static_cast<const ub1 *>(src->data));
    auto *key = static_cast<ub4 *>(keys->data);
    const ub4 rows = TAVO_VEC_SIZE(src);
    code_batch batch;
    entry_batch<Element> entries;
    for (ub8 row = 0; row < rows; row += batch_rows) {
        const auto n = static_cast<unsigned>(rows - row < batch_rows ? rows - row : batch_rows);
        source.fetch(batch, row, n);
        // Codes are trusted, but not those of slots without a row.
        for (unsigned slot = n; slot < whole_registers(n); slot++)
            batch.code[slot] = batch.code[n - 1];
        table.read(entries, batch.code, n);
        for (unsigned slot = 0; slot < n; slot += 16) {
            const auto in_batch = static_cast<__mmask16>(_bzhi_u32(0xffff, n - slot < 16 ? n - slot : 16));
            const __m512i addend = _mm512_mullo_epi32(sixteen_entries(entries.entry + slot), stride);
            const __m512i sums = _mm512_add_epi32(_mm512_maskz_loadu_epi32(in_batch, key + row + slot), addend);
            _mm512_mask_storeu_epi32(key + row + slot, in_batch, sums);
        }
    }
    return TAVO_DONE;
}

} // namespace
} // namespace tavo

#define TAVO_GROUPKEY_MEMBER(element)                                                                                  \
    extern "C" ub4 tavo_xlate_groupkey_##element##_c2d(tavo_vec *keys, tavo_vec *src, tavo_vec *,                      \
                                                       const tavo_xlate_groupkey_ctx *ctx) noexcept {                  \
        return tavo::add_to_keys<tavo::xlate_##element>(keys, src, ctx);                                               \
    }
TAVO_XLATE_GROUPKEY_KERNELS(TAVO_GROUPKEY_MEMBER)
#undef TAVO_GROUPKEY_MEMBER
