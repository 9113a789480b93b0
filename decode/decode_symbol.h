// Unpacked codes to symbol references, in blocks of 16 rows.
//
//   source   src.data: n codes of the kernel's width in the processor's byte order, or ub4 codes if TAVO_ENV_WIDE is
//            set, or null: row r has code r, the dictionary in its order. The codes are as decode_unpack writes them,
//            also where the column that src.enc describes is compressed: src.data is never decompressed here
//   output   dst.data, dst.lengths, dst.indicators (symbol_refs.h), one element for each of the src.size rows
//   result   TAVO_DONE, dst.count = rows; or TAVO_BAD_INPUT for an unknown dict_kind, with nothing touched
//
// With symbols of one length that is 0, all rows are null, and neither codes nor dst.data are touched. With symbols of
// one length above 0, dst.indicators may be null. Nothing behind the codes is read.
//
// The kernel of 32-bit codes has a copy form for symbols of one length, chosen by TAVO_ENV2_COPY: the symbols' bytes go
// back to back to dst.data, and neither lengths nor indicators are written.
#pragma once

#include <algorithm>

#include "decode/decode_kernels.h"
#include "decode/symbol_copy.h"
#include "decode/symbol_refs.h"
#include "frame/tavo_env.h"
#include "frame/tavo_status.h"

namespace tavo {

template <class Code>
struct stored_codes {
    const Code *codes;

    [[gnu::always_inline]] ub4 operator()(ub8 row) const noexcept { return codes[row]; }
    [[gnu::always_inline]] __m512i sixteen(ub8 row) const noexcept {
        if constexpr (sizeof(Code) == 1)
            return _mm512_cvtepu8_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i *>(codes + row)));
        else if constexpr (sizeof(Code) == 2)
            return _mm512_cvtepu16_epi32(_mm256_loadu_si256(reinterpret_cast<const __m256i *>(codes + row)));
        else
            return _mm512_loadu_si512(codes + row);
    }
};

struct codes_in_order {
    [[gnu::always_inline]] ub4 operator()(ub8 row) const noexcept { return static_cast<ub4>(row); }
    [[gnu::always_inline]] __m512i sixteen(ub8 row) const noexcept {
        return _mm512_add_epi32(_mm512_set1_epi32(static_cast<int>(row)),
                                _mm512_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15));
    }
};

template <class Codes, class Symbols>
[[gnu::always_inline]] inline void refer_codes(const symbol_refs &refs, const Symbols &symbols, Codes codes, ub8 rows,
                                               unsigned prefetch_ahead) noexcept {
    ub8 row = 0;
    for (; row + 16 <= rows; row += 16) {
        refs.prefetch(row, prefetch_ahead);
        symbols.template refer<indicators::all_rows>(refs, row, codes.sixteen(row));
    }
    for (; row < rows; row++)
        symbols.template refer<indicators::all_rows>(refs, row, codes(row));
}

template <class Code, class Symbols>
[[gnu::always_inline]] inline void refer_source(const tavo_vec *dst, const tavo_vec *src, const tavo_env *env,
                                                const Symbols &symbols, unsigned prefetch_ahead) noexcept {
    const symbol_refs refs(dst);
    const ub8 rows = TAVO_VEC_SIZE(src);
    if (src->data == nullptr)
        refer_codes(refs, symbols, codes_in_order(), rows, prefetch_ahead);
    else if (sizeof(Code) < 4 && env->flags & TAVO_ENV_WIDE)
        refer_codes(refs, symbols, stored_codes<ub4>{static_cast<const ub4 *>(src->data)}, rows, prefetch_ahead);
    else
        refer_codes(refs, symbols, stored_codes<Code>{static_cast<const Code *>(src->data)}, rows, prefetch_ahead);
}

template <class Code>
[[gnu::always_inline]] inline ub4 decode_symbol_one_len(tavo_vec *dst, const tavo_vec *src,
                                                        const tavo_env *env) noexcept {
    const tavo_enc_ctx *enc = TAVO_VEC_ENC_CTX(src);
    const ub4 rows = TAVO_VEC_SIZE(src);
    if (*enc->symbol_len == 0) {
        std::fill_n(dst->lengths, rows, ub2{0});
        std::fill_n(dst->indicators, rows, null_indicator);
    } else {
        refer_source<Code>(dst, src, env, one_len_symbols(enc), 640);
    }
    dst->count = rows;
    return TAVO_DONE;
}

template <class Code>
[[gnu::always_inline]] inline ub4 decode_symbol_cla(tavo_vec *dst, const tavo_vec *src, const tavo_env *env) noexcept {
    refer_source<Code>(dst, src, env, cla_symbols(TAVO_VEC_ENC_CTX(src)), 512);
    dst->count = TAVO_VEC_SIZE(src);
    return TAVO_DONE;
}

template <class Code>
[[gnu::always_inline]] inline ub4 decode_symbol(tavo_vec *dst, tavo_vec *src, tavo_env *env) noexcept {
    switch (TAVO_VEC_ENC_CTX(src)->dict_kind) {
    case TAVO_DICT_ONE_LEN:
        if constexpr (sizeof(Code) == 4)
            return tavo_decode_symbol_dict_32bit_one_len(dst, src, env);
        else
            return decode_symbol_one_len<Code>(dst, src, env);
    case TAVO_DICT_CLA: return decode_symbol_cla<Code>(dst, src, env);
    default: return TAVO_BAD_INPUT;
    }
}

} // namespace tavo
