#include "host/link/callbacks.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>

#include "host/column/packing.h"
#include "host/error.h"

namespace host {

namespace {

// Callbacks must not throw, and the library does not test for null: out of memory ends the process here.
void *aligned_block(ub8 size, ub8 alignment, const char *label) noexcept {
    if (alignment < sizeof(void *))
        alignment = sizeof(void *);
    void *block = std::aligned_alloc(alignment, (size + alignment) / alignment * alignment);
    if (block == nullptr) {
        std::fprintf(stderr, "tavo: out of memory: %llu bytes for %s\n", static_cast<unsigned long long>(size), label);
        std::abort();
    }
    return block;
}

// For a library without burst kernels: sets the rows of each selected run.
ub4 widen_plainly(const tavo_specialized_ctx &ctx, tavo_vec *res, const tavo_enc_ctx *enc, const ub8 *runs) noexcept {
    for (ub8 w = 0; w < (static_cast<ub8>(res->size) + 63) / 64; w++)
        res->bits[w] = 0;
    const auto *entries = static_cast<const ub1 *>(enc->run_table);
    ub8 row = 0;
    for (ub4 run = 0; run < enc->run_count; run++) {
        const ub8 length =
            enc->run_entry_bits == 8 ? entries[run] : entries[2ull * run] * 256ull + entries[2ull * run + 1];
        if (length != 0 && (runs[run / 64] >> run % 64 & 1) != 0)
            ctx.lbiwvset_range(res->bits, row, row + length - 1);
        row += length;
    }
    ctx.lbiwvpopcnt(&res->count, res->bits, res->size);
    return res->count == 0 ? TAVO_NONE_SELECTED : TAVO_DONE;
}

} // namespace

session::session(const library &kernels) : block_{{}, kernels, {}, false, {}, 0, 0} {
    record_.handle = &block_;
    record_.allocate = allocate;
    record_.temp_allocate = temp_allocate;
    record_.temp_release = temp_release;
    record_.spak_decode = decode;
}

session::~session() {
    for (void *block : block_.blocks)
        std::free(block);
}

void *session::allocate(void *handle, ub8, ub8 size, const char *label, ub4, ub4 alignment, ub8) noexcept {
    // A decompressed column is read by the kernels like any other, a little behind its end too.
    void *block = aligned_block(size + readable_behind, alignment, label);
    of(handle).blocks.push_back(block);
    return block;
}

void *session::temp_allocate(void *, ub8 size, const char *label, ub4 alignment, ub4, ub8 *cookie) noexcept {
    *cookie = 0;
    return aligned_block(size, alignment, label);
}

void session::temp_release(void *, void *block, ub8) noexcept { std::free(block); }

// The library's decoder, with the clock running: the decompression shows as a step of its own.
ub4 session::decode(tavo_spak_ctx *ctx, const ub1 *src, ub1 *dst, ub4 *out_len, ub4 capacity) noexcept {
    handle_block &block = of(ctx->handle);
    if (block.kernels.ctx().spak_decode == nullptr)
        return TAVO_BAD_INPUT; // the kernel raises an error
    const auto start = std::chrono::steady_clock::now();
    const ub4 status = block.kernels.ctx().spak_decode(ctx, src, dst, out_len, capacity);
    block.decoded_seconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    block.decoded_bytes += *out_len;
    return status;
}

session::decompression session::take_decompression() {
    return {std::exchange(block_.decoded_bytes, 0), std::exchange(block_.decoded_seconds, 0)};
}

void session::throw_raised() {
    if (block_.raised) {
        block_.raised = false;
        throw error(std::string("internal error in the library: ") + block_.message);
    }
}

void keep_raised(void *handle, const char *message) noexcept {
    auto &block = session::of(handle);
    if (!block.raised)
        std::snprintf(block.message, sizeof block.message, "%s", message);
    block.raised = true;
}

ub4 widen_runs(tavo_host *record, tavo_vec *res, tavo_vec *src, tavo_env *env) {
    const library &kernels = session::of(record->handle).kernels;
    const tavo_enc_ctx *enc = src->enc;
    // The burst kernels stand at class "other" under these width codes: by run lengths of 8 or 16 bits, or, one
    // further, by cumulated row numbers where the column has them.
    const unsigned code = (enc->run_entry_bits == 8 ? 6u : 14u) + (enc->run_cla != nullptr ? 1u : 0u);
    const tavo_kernel_slot burst =
        kernels.kernel(TAVO_KERNEL_ROW(TAVO_VARIANT_PLAIN, code, TAVO_CLASS_OTHER), TAVO_OP_BURST_RLE);
    if (burst.row_move == nullptr)
        return widen_plainly(kernels.ctx(), res, enc, env->sel_bits);
    return burst.row_move(res, src, env);
}

} // namespace host

// The one symbol that the library imports. It only takes the message down: the kernel goes on, and the query reports it
// after the call.
extern "C" __attribute__((visibility("default"))) void hostraiseierr(void *handle, ub8, const char *message, ub4) {
    host::keep_raised(handle, message);
}
