#include "decode/decode_symbol.h"

extern "C" {

ub4 tavo_decode_symbol_dict_8bit(tavo_vec *dst, tavo_vec *src, tavo_env *env) noexcept {
    return tavo::decode_symbol<ub1>(dst, src, env);
}
ub4 tavo_decode_symbol_dict_16bit(tavo_vec *dst, tavo_vec *src, tavo_env *env) noexcept {
    return tavo::decode_symbol<ub2>(dst, src, env);
}
ub4 tavo_decode_symbol_dict_32bit(tavo_vec *dst, tavo_vec *src, tavo_env *env) noexcept {
    return tavo::decode_symbol<ub4>(dst, src, env);
}

ub4 tavo_decode_symbol_dict_32bit_one_len(tavo_vec *dst, tavo_vec *src, tavo_env *env) noexcept {
    if ((env->flags2 & TAVO_ENV2_COPY) == 0)
        return tavo::decode_symbol_one_len<ub4>(dst, src, env);
    const tavo_enc_ctx *enc = TAVO_VEC_ENC_CTX(src);
    const ub4 rows = TAVO_VEC_SIZE(src);
    tavo::copy_symbols(static_cast<ub1 *>(dst->data), static_cast<const ub4 *>(src->data), rows,
                       reinterpret_cast<const ub1 *>(enc->symbols), enc->symbol_count,
                       __builtin_bswap16(*enc->symbol_len));
    dst->count = rows;
    return TAVO_DONE;
}
}
