// The host's side of the interface: memory, the widening of run-level results, and internal errors.
#pragma once

#include <vector>

#include <tavo/tavo.h>

#include "host/link/loader.h"

namespace host {

// One per query. Owns the long-lived blocks that kernels asked for (decompressed columns) and keeps the first internal
// error that a kernel raised. Used by one thread at a time.
class session {
public:
    explicit session(const library &);
    ~session();
    session(const session &) = delete;
    session &operator=(const session &) = delete;

    tavo_host *record() { return &record_; }
    const library &kernels() const { return block_.kernels; }

    // Throws what kernels raised since the last call. A kernel goes on after raising, so its result is not to be used:
    // call this after each kernel, before looking at what it wrote.
    void throw_raised();

    // What spak columns have been decompressed to since the last call; nothing for most kernels.
    struct decompression {
        ub8 bytes;
        double seconds;
    };
    decompression take_decompression();

private:
    // What tavo_host.handle points at: the library reads the 72nd word and hands it back with an error, the rest is
    // ours.
    struct handle_block {
        ub8 words[72];
        const library &kernels;
        std::vector<void *> blocks;
        bool raised;
        char message[200];
        ub8 decoded_bytes;
        double decoded_seconds;
    };
    static handle_block &of(void *handle) { return *static_cast<handle_block *>(handle); }

    static void *allocate(void *handle, ub8 heap, ub8 size, const char *label, ub4 unit, ub4 alignment,
                          ub8 tag) noexcept;
    static void *temp_allocate(void *handle, ub8 size, const char *label, ub4 alignment, ub4 zero,
                               ub8 *cookie) noexcept;
    static void temp_release(void *handle, void *block, ub8 cookie) noexcept;
    static ub4 decode(tavo_spak_ctx *ctx, const ub1 *src, ub1 *dst, ub4 *out_len, ub4 capacity) noexcept;
    friend void keep_raised(void *handle, const char *message) noexcept;
    friend ub4 widen_runs(tavo_host *, tavo_vec *res, tavo_vec *src, tavo_env *env);

    handle_block block_;
    tavo_host record_{};
};

// To be stored in tavo_enc_ctx.rle_expand: widens the run bit vector env->sel_bits to rows in res->bits by the burst
// kernel of the column's run table. Sets res->count; returns TAVO_DONE or TAVO_NONE_SELECTED.
ub4 widen_runs(tavo_host *, tavo_vec *res, tavo_vec *src, tavo_env *env);

} // namespace host
