#include "kv/bloom.h"

extern "C" {

#define TAVO_BLOOM_MEMBER(name, bits, hash, selective)                                                                 \
    ub4 name(tavo_vec *res, tavo_vec *hashes, tavo_vec *filter, tavo_env *env) noexcept {                              \
        return tavo::bloom<bits, hash, selective>(res, hashes, filter, env);                                           \
    }
TAVO_BLOOM_KERNELS(TAVO_BLOOM_MEMBER)
#undef TAVO_BLOOM_MEMBER

ub4 tavo_bloom_dydi(tavo_vec *res, tavo_vec *hashes, tavo_vec *filter, tavo_env *env, ub1 mode) noexcept {
    const bool one_bit = mode == 1, selective = env->sel_bits != nullptr;
    if (static_cast<ub1>(TAVO_VEC_ENC_CTX(hashes)->width_bits) == 32) {
        if (one_bit)
            return (selective ? tavo_bloom_hash32_selective : tavo_bloom_hash32)(res, hashes, filter, env);
        return (selective ? tavo_2bit_bloom_hash32_selective : tavo_2bit_bloom_hash32)(res, hashes, filter, env);
    }
    if (one_bit)
        return (selective ? tavo_bloom_hash64_selective : tavo_bloom_hash64)(res, hashes, filter, env);
    return (selective ? tavo_2bit_bloom_hash64_selective : tavo_2bit_bloom_hash64)(res, hashes, filter, env);
}
}
