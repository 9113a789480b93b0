// The text that all kernels share: assertion, raising, the decompress-first prologue, the finishing of a scan.
#pragma once

#include "frame/tavo_avx512g.h"
#include "frame/tavo_status.h"

// As the C library declares it: clang takes no other form of the attribute where <assert.h> came first.
extern "C" void __assert_fail(const char *condition, const char *file, unsigned line, const char *function) noexcept
    __attribute__((__noreturn__));

// A caller's bug: aborts with the standard assertion text, the source name tavoc_avx512g and the condition as written.
#define TAVO_ASSERT(condition)                                                                                         \
    ((condition) ? static_cast<void>(0) : __assert_fail(#condition, "tavoc_avx512g", __LINE__, __func__))

namespace tavo {

// The texts of one kernel, made from its name where the family's list stamps the member.
struct kernel_texts {
    const char *decomp_label;  // label of the long-lived allocation
    const char *decode_failed; // raised when the stream cannot be decoded
};
#define TAVO_KERNEL_TEXTS(name)                                                                                        \
    ::tavo::kernel_texts { #name ": vec1_decomp", #name ": tavo_spak_decode failed" }

// Reports an internal error to the host. It may return: the caller goes on with its next statement.
void raise(tavo_host *host, const char *message) noexcept;

// The buffer behind decomp_slot, filled by the host's decoder if this is the first kernel to ask.
const ub1 *decompressed_data(tavo_vec *src, tavo_env *env, const kernel_texts &texts) noexcept;

// The decompress-first prologue: the plain column data of a source. Every kernel that reads src.data starts with it.
inline const ub1 *column_data(tavo_vec *src, tavo_env *env, const kernel_texts &texts) noexcept {
    if (!TAVO_ENC_CTX_FLAG(TAVO_VEC_ENC_CTX(src), TAVO_SPAK)) [[likely]]
        return static_cast<const ub1 *>(src->data);
    return decompressed_data(src, env, texts);
}

// Where a scan writes and how far: rows and res.bits, or runs and the run bit vector of a run-length column.
struct scan_target {
    ub8 *bv;
    ub4 n;
};
inline scan_target target_of_scan(const tavo_vec *res, const tavo_vec *src) noexcept {
    const tavo_enc_ctx *enc = TAVO_VEC_ENC_CTX(src);
    if (TAVO_ENC_CTX_FLAG(enc, TAVO_RLE))
        return {enc->run_bits, enc->run_count};
    return {res->bits, TAVO_VEC_SIZE(res)};
}

// Ends a dense scan: applies src.sel and env.sel_bits, stores the count, widens runs to rows. selected_flag tells the
// caller in env.result_flags that env.sel_bits has been applied.
ub4 finish_scan(tavo_vec *res, tavo_vec *src, tavo_env *env, scan_target target, ub4 count,
                ub1 selected_flag = TAVO_RESULT_SCAN_SELECTED) noexcept;

// Ends a scan that has already honoured env.sel_bits: applies src.sel over the first `rows` rows, stores the count.
ub4 finish_selected_scan(tavo_vec *res, const tavo_vec *src, ub4 rows, ub4 count) noexcept;

} // namespace tavo

extern "C" {
// Writes the complement of src.bits to res.bits for TAVO_VEC_SIZE(src) rows, rounded up to a whole word: the bits above
// the row count come out as the complement of what src.bits holds there. Returns 0.
ub4 tavo_null(ub8 ignored, tavo_vec *res, tavo_vec *src, ub8 ignored_too) noexcept;
}
