// Dictionary codes to symbol references: the one text of 22 kernels, one a code width.
//
//   source   n codes of W bits, any alignment
//   output   dst.data, dst.lengths, dst.indicators (symbol_refs.h), one element a row; the arrays have room for all
//   rows     ones_vec, else all rows of src; sel_bits isn't read
//   result   TAVO_DONE, or TAVO_BAD_INPUT for an unknown dict_kind, with nothing touched
//
// The first ones_vec_size indicators are cleared, also without a list; then those of null rows are set to 2. With
// symbols of one length that is 0 every row is null: lengths and indicators alone are written, codes aren't read, and a
// list has to be given. A given list isn't empty. resume_row becomes the last row visited, not the one behind it.
//
// Codes are read up to 3 bytes past the last one.
#pragma once

#include <cstring>

#include "decode/code_group.h"
#include "decode/decode_kernels.h"
#include "decode/symbol_refs.h"
#include "frame/tavoc_avx512g.h"

namespace tavo {

// Sixteen rows at a time; the rest one by one.
template <unsigned W, class Symbols>
[[gnu::always_inline]] inline void refer_rows(const symbol_refs &refs, const Symbols &symbols, const ub1 *codes,
                                              ub8 rows) noexcept {
    const code_group<W> group;
    ub8 row = 0;
    for (const ub1 *p = codes; row + group.rows <= rows; p += group.bytes, row += group.rows) {
        __builtin_prefetch(p + 512);
        refs.prefetch(row, 512);
        symbols.template refer<indicators::null_rows>(refs, row, group(p));
    }
    for (; row < rows; row++)
        symbols.template refer<indicators::null_rows>(refs, row, packed_code<W>(codes, row));
}

// A listed row's bit position is a number of 32 bits and wraps; widths of whole bytes are read by row number and have
// none.
template <unsigned W>
using listed_position = std::conditional_t<W % 8 == 0, ub8, ub4>;

template <unsigned W, class Symbols>
[[gnu::always_inline]] inline void refer_listed_rows(const symbol_refs &refs, const Symbols &symbols, const ub1 *codes,
                                                     const ub4 *list, ub8 n) noexcept {
    const auto code = [&](ub8 i) { return packed_code<W, listed_position<W>>(codes, list[i]); };
    ub8 i = 0;
    for (; Symbols::looks_up && i + 16 < n; i++) {
        if constexpr (Symbols::looks_up)
            symbols.prefetch(code(i + 8));
        __builtin_prefetch(codes + static_cast<listed_position<W>>(ub8{list[i + 16]} * W) / 8);
        symbols.template refer<indicators::null_rows>(refs, i, code(i));
    }
    for (; i < n; i++)
        symbols.template refer<indicators::null_rows>(refs, i, code(i));
}

template <unsigned W>
[[gnu::always_inline]] inline ub4 decode(tavo_vec *dst, tavo_vec *src, tavo_env *env,
                                         const kernel_texts &texts) noexcept {
    const tavo_enc_ctx *enc = TAVO_VEC_ENC_CTX(src);
    const ub4 kind = enc->dict_kind;
    if (kind != TAVO_DICT_ONE_LEN && kind != TAVO_DICT_CLA)
        return TAVO_BAD_INPUT;
    const symbol_refs refs(dst);
    const ub4 *list = env->ones_vec, listed = env->ones_vec_size;
    const bool all_null = kind == TAVO_DICT_ONE_LEN && *enc->symbol_len == 0;
    if (all_null) {
        for (ub4 i = 0; i < listed; i++) {
            refs.length[i] = 0;
            refs.indicator[i] = null_indicator;
        }
    } else {
        if (listed != 0)
            std::memset(refs.indicator, 0, listed * sizeof(ub2));
        const ub1 *codes = column_data(src, env, texts);
        const auto refer_all = [&](const auto &symbols) __attribute__((always_inline)) {
            if (list != nullptr)
                refer_listed_rows<W>(refs, symbols, codes, list, listed);
            else
                refer_rows<W>(refs, symbols, codes, TAVO_VEC_SIZE(src));
        };
        if (kind == TAVO_DICT_CLA)
            refer_all(cla_symbols(enc));
        else
            refer_all(one_len_symbols(enc));
    }
    const bool by_list = list != nullptr || all_null;
    env->resume_row = by_list ? list[static_cast<sb8>(listed) - 1] : TAVO_VEC_SIZE(src) - 1;
    env->result_flags |= TAVO_RESULT_DECODE_SELECTED;
    dst->count = by_list ? listed : TAVO_VEC_SIZE(src);
    return TAVO_DONE;
}

} // namespace tavo
