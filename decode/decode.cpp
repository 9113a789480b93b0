#include "decode/decode.h"

#define TAVO_MEMBER(W)                                                                                                 \
    extern "C" ub4 tavo_decode_dict_##W##bit(tavo_vec *dst, tavo_vec *src, tavo_env *env) noexcept {                   \
        return tavo::decode<W>(dst, src, env, TAVO_KERNEL_TEXTS(tavo_decode_dict_##W##bit));                           \
    }
TAVO_EACH_DECODE_WIDTH(TAVO_MEMBER)
