#include "frame/tavoc_avx512g.h"

#include "bitvec/bitvec.h"
#include "portable/intrinsics.h"

namespace tavo {

void raise(tavo_host *host, const char *message) noexcept {
    hostraiseierr(host->handle, static_cast<const ub8 *>(host->handle)[71], message, 0);
}

const ub1 *decompressed_data(tavo_vec *src, tavo_env *env, const kernel_texts &texts) noexcept {
    if (*src->decomp_slot != nullptr)
        return static_cast<const ub1 *>(*src->decomp_slot);
    tavo_host *host = env->host;
    *src->decomp_slot =
        host->allocate(host->handle, host->heap, src->decomp_size, texts.decomp_label, 8, 64, src->decomp_tag);
    tavo_spak_ctx ctx{host->handle, host->heap, host->temp_allocate, host->temp_release,
                      (host->flags & 0x30) != 0 ? 1u : 0u};
    auto *buffer = static_cast<ub1 *>(*src->decomp_slot);
    ub4 length = 0;
    if (host->spak_decode(&ctx, static_cast<const ub1 *>(src->data), buffer, &length, src->decomp_size) != TAVO_DONE)
        raise(host, texts.decode_failed);
    return buffer;
}

ub4 finish_scan(tavo_vec *res, tavo_vec *src, tavo_env *env, scan_target target, ub4 count,
                ub1 selected_flag) noexcept {
    auto [bv, n] = target;
    if (src->sel != nullptr)
        tavo_lbiwvand_dydi(bv, &count, bv, src->sel, n);
    if (env != nullptr && env->sel_bits != nullptr) {
        tavo_lbiwvand_dydi(bv, &count, bv, env->sel_bits, n);
        env->result_flags |= selected_flag;
    }
    res->count = count;
    const tavo_enc_ctx *enc = TAVO_VEC_ENC_CTX(src);
    if (TAVO_ENC_CTX_FLAG(enc, TAVO_RLE)) {
        tavo_env runs{};
        runs.sel_bits = bv;
        runs.sel_count = count;
        return enc->rle_expand(env->host, res, src, &runs);
    }
    return count == 0 ? TAVO_NONE_SELECTED : TAVO_DONE;
}

ub4 finish_selected_scan(tavo_vec *res, const tavo_vec *src, ub4 rows, ub4 count) noexcept {
    if (src->sel != nullptr)
        tavo_lbiwvand_dydi(res->bits, &count, res->bits, src->sel, rows);
    res->count = count;
    return count == 0 ? TAVO_NONE_SELECTED : TAVO_DONE;
}

} // namespace tavo

ub4 tavo_null(ub8, tavo_vec *res, tavo_vec *src, ub8) noexcept {
    TAVO_ASSERT(TAVO_VEC_SIZE(src) == TAVO_VEC_SIZE(res));
    const ub8 words = (static_cast<ub8>(TAVO_VEC_SIZE(src)) + 63) / 64;
    ub8 w = 0;
    for (; w + 2 <= words; w += 2) {
        __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i *>(src->bits + w));
        _mm_storeu_si128(reinterpret_cast<__m128i *>(res->bits + w), _mm_xor_si128(v, _mm_set1_epi64x(-1)));
    }
    if (w < words)
        res->bits[w] = ~src->bits[w];
    return TAVO_DONE;
}
