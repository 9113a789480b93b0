// Unpacking of dictionary codes to integers: the one text of 22 kernels, one a code width.
//
//   source   n codes of W bits, or of a run-length column one code a run; any alignment
//   output   dst.data: one element a row: ub1 for W <= 8, ub2 for W <= 16, ub4 above; ub4 at every width if
//            TAVO_ENV_WIDE is set. dst.size is its capacity, dst.count receives the elements written
//   rows     sel_bits, else ones_vec, else all rows; from resume_row on
//   result   TAVO_DONE, or TAVO_NONE_SELECTED if nothing was written
//
// A full output is no error: the call ends early, and the next one with the same tavo_env continues at resume_row. The
// caller is done when that has reached the row count. A position list isn't held against the capacity.
//
// Codes are read up to 3 bytes past the last one, and not at all where a block of 64 rows has none selected. Neither
// codes nor lists nor run tables are checked.
#pragma once

#include "bitvec/bitvec.h"
#include "decode/decode_kernels.h"
#include "decode/rle_expand.h"
#include "decode/run_cursor.h"
#include "decode/unpack_block.h"
#include "frame/tavoc_avx512g.h"

namespace tavo {

// Reads single rows of a packed column.
template <unsigned W>
struct packed_rows {
    const ub1 *codes;

    [[gnu::always_inline]] ub4 operator()(ub4 row) const noexcept { return packed_code<W>(codes, row); }
    [[gnu::always_inline]] void prefetch(ub4 row) const noexcept { __builtin_prefetch(codes + row * 1ull * W / 8); }
};

// Reads single rows of a run-length column, ascending; a run's code is read once.
template <unsigned W>
struct run_rows {
    const ub1 *codes;
    run_cursor run;
    ub4 value;

    [[gnu::always_inline]] run_rows(const ub1 *codes, run_cursor run) noexcept
        : codes(codes), run(run), value(run.is_in_run() ? packed_code<W>(codes, run.index) : 0) {}
    [[gnu::always_inline]] ub4 operator()(ub4 row) noexcept {
        if (run.step_to(row))
            value = packed_code<W>(codes, run.index);
        return value;
    }
    void prefetch(ub4) const noexcept {}
};

// One call, with elements of one width.
template <unsigned W, class Element>
class unpack_call {
public:
    [[gnu::always_inline]] unpack_call(tavo_vec *dst, tavo_vec *src, tavo_env *env, const ub1 *codes) noexcept
        : dst(dst), env(env), enc(TAVO_VEC_ENC_CTX(src)), codes(codes), rows(TAVO_VEC_SIZE(src)),
          begin(static_cast<Element *>(dst->data)), end(begin + TAVO_VEC_SIZE(dst)) {}

    [[gnu::always_inline]] ub4 plain() noexcept {
        packed_rows<W> read{codes};
        if (env->sel_bits != nullptr)
            return env->flags & TAVO_ENV_SPARSE ? selected_rows(read) : selected_blocks();
        if (env->ones_vec == nullptr)
            return range();
        if (env->ones_vec_size == 0)
            env->resume_row = 0;
        return listed_rows(read);
    }

    [[gnu::always_inline]] ub4 run_length(const char *empty_list) noexcept {
        const run_cursor start(enc, env);
        if (env->sel_bits == nullptr && env->ones_vec == nullptr)
            return run_range(start);
        run_rows<W> read(codes, start);
        ub4 status = TAVO_DONE;
        if (env->sel_bits != nullptr) {
            status = selected_rows(read);
        } else {
            if (env->ones_vec_size == 0)
                raise(env->host, empty_list);
            listed_rows(read);
        }
        read.run.save(env);
        return status;
    }

private:
    ub4 range() noexcept {
        const ub8 start = env->resume_row, stop = std::min(start + TAVO_VEC_SIZE(dst), rows);
        if (start < stop)
            unpack_rows<W>(begin, codes, start, stop);
        dst->count = start < stop ? static_cast<ub4>(stop - start) : 0;
        env->resume_row = static_cast<ub4>(stop);
        return dst->count == 0 ? TAVO_NONE_SELECTED : TAVO_DONE;
    }

    // Blocks of 64 rows. A block's rows are stored only if all of them fit: the rest is left to the row loop.
    ub4 selected_blocks() noexcept {
        const auto *bits = reinterpret_cast<const ub1 *>(env->sel_bits);
        const code_group<W> group;
        Element *out = begin;
        ub8 row = env->resume_row;
        const auto row_by_row = [&](ub8 stop) {
            for (; row < stop && out != end; row++)
                if (bits[row / 8] >> row % 8 & 1)
                    *out++ = static_cast<Element>(packed_code<W>(codes, row));
        };
        row_by_row(std::min(next_block_start<W>(row), rows));
        if (row % block_alignment<W> == 0) // else the output is full, or the rows are at their end
            while (row + block_rows <= rows) {
                ub8 word;
                std::memcpy(&word, bits + row / 8, sizeof word);
                if (word == 0) {
                    row = skip_unselected_blocks(bits, row + block_rows, rows);
                    continue;
                }
                if (__builtin_popcountll(word) > end - out)
                    break;
                const ub1 *block = block_codes<W>(codes, row);
                prefetch_block(block, out);
                out = unpack_selected_block<W>(out, block, word, group);
                row += block_rows;
            }
        row_by_row(rows);
        if (begin != end)
            env->resume_row = static_cast<ub4>(row);
        return finish_selected(static_cast<ub4>(out - begin));
    }

    // Row by row along the set bits: thin selections, and runs.
    template <class Reader>
    [[gnu::always_inline]] ub4 selected_rows(Reader &read) noexcept {
        constexpr ub4 ahead = 10;
        ub4 batch[row_batch];
        tavo_bit_iter selected;
        tavo_lbiwv_ictx_ini2_dydi(&selected, env->sel_bits, rows, 0, env->resume_row);
        Element *out = begin;
        ub4 resume = env->resume_row;
        while (out != end) {
            const ub8 wanted = std::min<ub8>(end - out, row_batch);
            const ub8 n = tavo_lbiwvones_dydi(&selected, batch, wanted);
            for (ub8 i = 0; i < n; i++) {
                if (i + ahead < n)
                    read.prefetch(batch[i + ahead]);
                *out++ = static_cast<Element>(read(batch[i]));
            }
            if (n < wanted) {
                resume = static_cast<ub4>(rows);
                break;
            }
            resume = batch[n - 1] + 1;
        }
        env->resume_row = resume;
        return finish_selected(static_cast<ub4>(out - begin));
    }

    template <class Reader>
    [[gnu::always_inline]] ub4 listed_rows(Reader &read) noexcept {
        const ub4 *list = env->ones_vec, n = env->ones_vec_size;
        for (ub4 i = 0; i < n; i++)
            begin[i] = static_cast<Element>(read(list[i]));
        if (n != 0)
            env->resume_row = list[n - 1] + 1;
        return finish_selected(n);
    }

    // All rows of a run-length column, without a second buffer: the runs' codes are unpacked to the end of the part of
    // the output that the runs fill, then spread from its start. The rows written never pass the codes still to be read
    // since no run in there is empty: a run without rows ends the stretch that is done at once.
    ub4 run_range(run_cursor run) noexcept {
        const ub8 start = env->resume_row, stop = std::min(start + TAVO_VEC_SIZE(dst), rows);
        dst->count = 0;
        if (start >= stop)
            return TAVO_NONE_SELECTED;
        Element *out = begin;
        for (ub8 row = start; row < stop;) {
            run.step_to(static_cast<ub4>(row));
            run_cursor last = run;
            while (last.end < stop && last.next_length() != 0)
                last.step();
            const ub4 runs = last.index - run.index + 1;
            const ub8 reached = std::min<ub8>(last.end, stop);
            Element *const behind = out + (reached - row);
            unpack_rows<W>(behind - runs, codes, run.index, last.index + 1ull);
            expand(out, behind - runs, runs, run, run.end - static_cast<ub4>(row),
                   last.end - static_cast<ub4>(reached));
            run = last;
            out = behind;
            row = reached;
        }
        run.save(env);
        dst->count = static_cast<ub4>(stop - start);
        env->resume_row = static_cast<ub4>(stop);
        return TAVO_DONE;
    }

    static void expand(Element *out, Element *elements, ub4 runs, const run_cursor &first, ub4 first_count,
                       ub4 last_excess) noexcept {
        constexpr tavo_expand_runs_fn *short_entries[] = {tavo_rle8_expand_ub1, tavo_rle8_expand_ub2,
                                                          tavo_rle8_expand_ub4};
        constexpr tavo_expand_runs_fn *long_entries[] = {tavo_rle16_expand_ub1, tavo_rle16_expand_ub2,
                                                         tavo_rle16_expand_ub4};
        constexpr unsigned width = sizeof(Element) / 2;
        tavo_vec to{}, from{};
        to.data = out;
        from.data = elements;
        from.size = runs;
        (first.has_short_entries() ? short_entries : long_entries)[width](&to, &from, first.entry(), first_count,
                                                                          last_excess);
    }

    ub4 finish_selected(ub4 written) noexcept {
        dst->count = written;
        env->result_flags |= TAVO_RESULT_UNPACK_SELECTED;
        return written == 0 ? TAVO_NONE_SELECTED : TAVO_DONE;
    }

    tavo_vec *dst;
    tavo_env *env;
    const tavo_enc_ctx *enc;
    const ub1 *codes;
    ub8 rows;
    Element *begin, *end;
};

template <unsigned W>
using narrow_element = std::conditional_t<W <= 8, ub1, std::conditional_t<W <= 16, ub2, ub4>>;

template <unsigned W, class Element>
[[gnu::always_inline]] inline ub4 unpack(tavo_vec *dst, tavo_vec *src, tavo_env *env, const ub1 *codes,
                                         const char *empty_list) noexcept {
    unpack_call<W, Element> call(dst, src, env, codes);
    return TAVO_ENC_CTX_FLAG(TAVO_VEC_ENC_CTX(src), TAVO_RLE) ? call.run_length(empty_list) : call.plain();
}

template <unsigned W>
[[gnu::always_inline]] inline ub4 decode_unpack(tavo_vec *dst, tavo_vec *src, tavo_env *env, const kernel_texts &texts,
                                                const char *empty_list) noexcept {
    const ub1 *codes = column_data(src, env, texts);
    if (W <= 16 && env->flags & TAVO_ENV_WIDE)
        return unpack<W, ub4>(dst, src, env, codes, empty_list);
    return unpack<W, narrow_element<W>>(dst, src, env, codes, empty_list);
}

} // namespace tavo

#define TAVO_UNPACK_MEMBER(W)                                                                                          \
    extern "C" ub4 tavo_decode_unpack_dict_##W##bit(tavo_vec *dst, tavo_vec *src, tavo_env *env) noexcept {            \
        return tavo::decode_unpack<W>(dst, src, env, TAVO_KERNEL_TEXTS(tavo_decode_unpack_dict_##W##bit),              \
                                      TAVO_EMPTY_LIST_TEXT(tavo_decode_unpack_dict_##W##bit));                         \
    }
