// One call for a share of a column's rows: entry, kernel, estimate.
#include "frame/tavoc_avx512g.h"
#include "xlate/dense.h"
#include "xlate/dense_steps.h"
#include "xlate/dense_worker.h"
#include "xlate/sym2code.h"

namespace tavo {
namespace {

tavo_sym2code_fn *kernel_for(const tavo_enc_ctx *enc, bool hashed) noexcept {
#define TAVO_PICK(form) return hashed ? tavo_dgk_sym2code_ex_##form : tavo_dgk_sym2code_in_##form
    if (TAVO_ENC_CTX_FLAG(enc, TAVO_RLE))
        return nullptr; // its codes are those of runs
    if (TAVO_ENC_CTX_FLAG(enc, TAVO_DICT)) {
        if (enc->dict_kind == TAVO_DICT_ONE_LEN)
            TAVO_PICK(one_len);
        if (enc->dict_kind == TAVO_DICT_CLA)
            TAVO_PICK(cla_stride_one);
        return nullptr;
    }
    if (TAVO_ENC_CTX_FLAG(enc, TAVO_LP_SEP))
        TAVO_PICK(lp_sep);
    if (TAVO_ENC_CTX_FLAG(enc, TAVO_LV_SEP))
        TAVO_PICK(lv_sep);
    if (TAVO_ENC_CTX_FLAG(enc, TAVO_FIXED))
        TAVO_PICK(fixed);
    return nullptr;
#undef TAVO_PICK
}

// After a call that ended for want of budget the host has granted what was missing, part of which is this worker's own.
void fold_debts(tavo_dgk_worker &w, dense_memory<processor_steps> &memory) noexcept {
    const ub4 missing = w.block_debt * 1024;
    memory.take_budget(missing, 0);
    w.pool_credit += missing;
    w.block_debt = w.page_credit = w.page_debt = 0;
}

// One worker has the service duty; where there are others, what it has taken of the budget is theirs.
void seek_service_duty(tavo_dgk_worker &w, dense_memory<processor_steps> &memory) noexcept {
    auto &state = state_of(w);
    if (state.leads)
        return;
    ub8 nobody = 0;
    // A count in effect: nothing is read because of it.
    if (!processor_steps::replace_count(w.dgk->leader, nobody, ub8{1})) {
        w.servicing = 0;
        return;
    }
    state.leads = 1;
    if (w.dgk->worker_count > 1)
        memory.give_back(w.pool_credit);
}

// The distinct symbols that are still to come. Where new ones become rarer, by how fast they do; else as many a row as
// before, but at most six times those that there are. The mean with the former estimate smooths it.
void estimate_symbols(tavo_dgk_worker &w) noexcept {
    const auto fresh = static_cast<double>(w.new_symbols), rows = static_cast<double>(w.new_rows);
    const auto all_fresh = static_cast<double>(w.all_symbols), all_rows = static_cast<double>(w.all_rows);
    const double r = rows > 0 ? fresh / rows : 0, all_r = all_rows > 0 ? all_fresh / all_rows : 0;
    double now = 0;
    if (all_r <= r || w.new_rows < 8) {
        const bool first = w.all_rows == 0;
        const double symbols = first ? fresh : all_fresh, share = first ? r : all_r;
        const double projected = share * static_cast<double>(w.remaining_rows);
        now = projected < 6 * symbols ? projected : 6 * symbols;
    } else {
        now = 0.25 * r * r * (rows + all_rows) / (all_r - r);
    }
    w.estimate = (w.estimate + now) / 2;
    w.all_symbols += w.new_symbols;
    w.all_rows += w.new_rows;
    w.new_symbols = w.new_rows = 0;
}

// What the estimate asks of the host: pool bytes by the mean symbol, pages by the mean share of them, at least what the
// worker was short of.
void request_budget(tavo_dgk_request *out, const tavo_dgk_worker &w) noexcept {
    if (out == nullptr)
        return;
    out->symbols = w.estimate;
    const double mean =
        w.all_symbols != 0 ? static_cast<double>(w.pool_bytes) / static_cast<double>(w.all_symbols) : 32;
    const double bytes = w.estimate * mean;
    const ub8 short_of = w.block_debt * 1024ull;
    out->pool_bytes = bytes < 0x1p62 ? static_cast<ub8>(bytes) : 1ull << 62;
    out->page_units = w.page_debt;
    if (out->pool_bytes < short_of)
        out->pool_bytes = short_of;
}

} // namespace
} // namespace tavo

ub4 tavo_dgk_symbol2code_dydi(tavo_dgk_request *out, tavo_dgk_worker *worker, tavo_vec *codes, tavo_vec *column,
                              tavo_vec *hashes, tavo_env *env) noexcept {
    tavo_sym2code_fn *const kernel = tavo::kernel_for(TAVO_VEC_ENC_CTX(column), hashes != nullptr);
    if (kernel == nullptr)
        return TAVO_BAD_INPUT;
    if (hashes != nullptr && static_cast<ub1>(TAVO_VEC_ENC_CTX(hashes)->width_bits) != 64) {
        tavo::raise(env->host, "tavo_dgk_symbol2code_dydi: hash vector is not 64 bits width");
        return TAVO_BAD_INPUT;
    }
    tavo::dense_memory<tavo::processor_steps> memory(worker);
    if (worker->status == TAVO_BUDGET_EXHAUSTED)
        tavo::fold_debts(*worker, memory);
    else if (worker->servicing)
        tavo::seek_service_duty(*worker, memory);
    worker->status = TAVO_DONE;
    ub4 status = TAVO_DONE;
    if (worker->rows_done < TAVO_VEC_SIZE(column)) {
        const ub1 *data = tavo::column_data(column, env, TAVO_KERNEL_TEXTS(tavo_dgk_symbol2code_dydi));
        status = kernel(worker, static_cast<ub4 *>(codes->data), column, data,
                        hashes != nullptr ? static_cast<const ub8 *>(hashes->data) : nullptr);
    }
    codes->count = worker->rows_done;
    if (status != TAVO_DONE && status != TAVO_BUDGET_EXHAUSTED)
        return status;
    worker->remaining_rows = TAVO_VEC_SIZE(column) - worker->rows_done;
    tavo::estimate_symbols(*worker);
    tavo::request_budget(out, *worker);
    if (status == TAVO_DONE)
        worker->rows_done = 0;
    return status;
}
