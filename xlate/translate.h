// The text of the translation kernels; their contract stands in frame/tavo_xlate.h.
//
// Rows go in batches of 256, in steps that know nothing of each other: codes (code_source.h), entries (table_lookup.h),
// result bits and output.
#pragma once

#include "bitvec/bitvec.h"
#include "frame/tavo_xlate.h"
#include "frame/tavoc_avx512g.h"
#include "portable/intrinsics.h"
#include "portable/mask_number.h"
#include "scan/passing_rows.h"
#include "xlate/code_source.h"
#include "xlate/table_lookup.h"

namespace tavo {

// Which of 64 entries are partners.
[[gnu::always_inline]] inline ub8 partners(const ub1 *entry, ub1 none) noexcept {
    return hits_of_mask(_mm512_cmpneq_epu8_mask(_mm512_load_si512(entry), _mm512_set1_epi8(static_cast<char>(none))));
}
[[gnu::always_inline]] inline ub8 partners(const ub2 *entry, ub2 none) noexcept {
    const __m512i all_none = _mm512_set1_epi16(static_cast<short>(none));
    return hits_of_mask(_mm512_cmpneq_epu16_mask(_mm512_load_si512(entry), all_none)) |
           hits_of_mask(_mm512_cmpneq_epu16_mask(_mm512_load_si512(entry + 32), all_none)) << 32;
}
[[gnu::always_inline]] inline ub8 partners(const ub4 *entry, ub4 none) noexcept {
    const __m512i all_none = _mm512_set1_epi32(static_cast<int>(none));
    ub8 word = 0;
#pragma GCC unroll 4
    for (unsigned i = 0; i < 64; i += 16)
        word |= hits_of_mask(_mm512_cmpneq_epu32_mask(_mm512_load_si512(entry + i), all_none)) << i;
    return word;
}

// Stores those of 64 entries that `rows` has, `none` where `valid` lacks them.
[[gnu::always_inline]] inline void store_entries(ub1 *out, const ub1 *entry, ub8 rows, ub8 valid, ub1 none) noexcept {
    _mm512_mask_storeu_epi8(
        out, rows, _mm512_mask_mov_epi8(_mm512_set1_epi8(static_cast<char>(none)), valid, _mm512_load_si512(entry)));
}
[[gnu::always_inline]] inline void store_entries(ub2 *out, const ub2 *entry, ub8 rows, ub8 valid, ub2 none) noexcept {
    const __m512i all_none = _mm512_set1_epi16(static_cast<short>(none));
    for (unsigned i = 0; i < 64; i += 32)
        _mm512_mask_storeu_epi16(
            out + i, static_cast<__mmask32>(rows >> i),
            _mm512_mask_mov_epi16(all_none, static_cast<__mmask32>(valid >> i), _mm512_load_si512(entry + i)));
}
[[gnu::always_inline]] inline void store_entries(ub4 *out, const ub4 *entry, ub8 rows, ub8 valid, ub4 none) noexcept {
    const __m512i all_none = _mm512_set1_epi32(static_cast<int>(none));
    for (unsigned i = 0; i < 64; i += 16)
        _mm512_mask_storeu_epi32(
            out + i, static_cast<__mmask16>(rows >> i),
            _mm512_mask_mov_epi32(all_none, static_cast<__mmask16>(valid >> i), _mm512_load_si512(entry + i)));
}

// All rows. The first batch ends with its word, so that all others begin with one.
template <class Element, bool C2d, class Source, class Lookup>
[[gnu::always_inline]] inline void translate_all(ub8 *bits, typename Element::entry *out, ub4 start_row, ub4 rows,
                                                 Source &source, const Lookup &lookup) noexcept {
    code_batch batch;
    entry_batch<Element> entries;
    for (ub8 row = start_row; row < rows;) {
        const ub8 end = row % 64 != 0 ? row / 64 * 64 + 64 : row + batch_rows;
        const auto n = static_cast<unsigned>((end < rows ? end : rows) - row);
        source.fetch(batch, row, n);
        lookup(entries, batch, n);
        for (unsigned slot = 0; slot < n; slot += 64) {
            const ub8 in_word = _bzhi_u64(~0ull, n - slot < 64 ? n - slot : 64);
            const ub8 valid = batch.has_code[slot / 64];
            const ub8 hits = partners(entries.entry + slot, Element::no_partner) & valid & in_word;
            ub8 &word = bits[(row + slot) / 64];
            word = row % 64 != 0 ? _bzhi_u64(word, row % 64) | hits << row % 64 : hits;
            if constexpr (C2d)
                store_entries(out + row + slot, entries.entry + slot, in_word, valid, Element::no_partner);
        }
        row += n;
    }
}

// The rows of a selection.
template <class Element, bool C2d, class Source, class Lookup>
[[gnu::always_inline]] inline void translate_selected(ub8 *bits, typename Element::entry *out, const ub8 *selection,
                                                      ub4 start_row, ub4 rows, Source &source,
                                                      const Lookup &lookup) noexcept {
    tavo_bit_iter it;
    tavo_lbiwv_ictx_ini2_dydi(&it, selection, rows, 0, start_row);
    passing_row_marker passing(bits, start_row);
    code_batch batch;
    entry_batch<Element> entries;
    ub4 row[batch_rows];
    for (unsigned n = batch_rows; n == batch_rows;) {
        n = static_cast<unsigned>(tavo_lbiwvones_dydi(&it, row, batch_rows));
        if (n == 0)
            break;
        passing.reach(row[n - 1]);
        source.fetch(batch, row, n);
        lookup(entries, batch, n);
        for (unsigned slot = 0; slot < n; slot += 64) {
            const unsigned in_word = n - slot < 64 ? n - slot : 64;
            const ub8 valid = batch.has_code[slot / 64];
            if constexpr (C2d)
                for (unsigned i = 0; i < in_word; i++)
                    out[row[slot + i]] = valid >> i & 1 ? entries.entry[slot + i] : Element::no_partner;
            ub8 hits = _bzhi_u64(partners(entries.entry + slot, Element::no_partner) & valid, in_word);
            for (; hits != 0; hits = _blsr_u64(hits))
                passing.mark(row[slot + _tzcnt_u64(hits)]);
        }
    }
    passing.finish(rows);
}

constexpr ub1 selection_applied = 1; // env.result_flags2

template <template <class> class Table, class Element, bool C2d, class Source>
[[gnu::always_inline]] inline ub4 translate(tavo_vec *res, tavo_vec *src, const tavo_vec *dict, tavo_env *env,
                                            const kernel_texts &texts) noexcept {
    if (!Source::accepts(src))
        return TAVO_UNSUPPORTED;
    const ub4 rows = TAVO_VEC_SIZE(src), start_row = env->start_row;
    if (start_row < rows) {
        Source source(src, column_data(src, env, texts));
        const range_lookup<Table<Element>> lookup(dict, static_cast<const tavo_xlate_ctx *>(env->xlate_ctx));
        auto *out = static_cast<typename Element::entry *>(env->xlate_out);
        if (env->sel_bits != nullptr)
            translate_selected<Element, C2d>(res->bits, out, env->sel_bits, start_row, rows, source, lookup);
        else
            translate_all<Element, C2d>(res->bits, out, start_row, rows, source, lookup);
    }
    if (env->sel_bits != nullptr)
        env->result_flags2 |= selection_applied;
    return report_passing(res, start_row, rows);
}

// Defines a member; lookup is sim, off or ind.
#define TAVO_XLATE_MEMBER(lookup, element, c2d_tag, c2d, layout_tag, source, form)                                     \
    extern "C" ub4 tavo_xlate_##lookup##_##element##c2d_tag##layout_tag(tavo_vec *res, tavo_vec *src, tavo_vec *dict,  \
                                                                        tavo_env *env) noexcept {                      \
        return tavo::translate<tavo::lookup##_table, tavo::xlate_##element, c2d, tavo::source>(                        \
            res, src, dict, env, TAVO_KERNEL_TEXTS(tavo_xlate_##lookup##_##element##c2d_tag##layout_tag));             \
    }

} // namespace tavo
