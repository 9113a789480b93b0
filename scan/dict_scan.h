// Predicate scans of dictionary codes: the one text of 460 kernels, one for each (operator, code width, null rule).
//
//   source   n codes of W bits, packed most significant bit first; any alignment
//   result   bit r of res.bits set where code r qualifies; zeros above row n in the last word; res.count
//   null     in a _null member code 0 never qualifies, whatever the operator
//
// Nothing before the column is read, and at most 3 bytes past the last code byte. A constant of more than W bits is the
// caller's fault: any row may then come out either way.
#pragma once

#include "bitvec/bitvec.h"
#include "frame/tavoc_avx512g.h"
#include "scan/code_lanes.h"
#include "scan/one_bit_scan.h"
#include "scan/scan_operator.h"

namespace tavo {

// The constants of a call, read in the processor's byte order at the width of the code type.
template <unsigned W>
using constant_type = std::conditional_t<W == 8, ub1, std::conditional_t<W == 16, ub2, code_value<W>>>;
template <unsigned W>
struct scan_constants {
    code_value<W> lo, hi;
};
template <unsigned W>
inline code_value<W> read_constant(const tavo_vec *vec) noexcept {
    constant_type<W> c;
    memcpy(&c, vec->data, sizeof c);
    return c;
}

// The vector form: one compare of `rows` codes at a time.
template <class Op, unsigned W, bool Nullable>
class lane_test {
public:
    using lanes = code_lanes<W>;

    [[gnu::always_inline]] explicit lane_test(scan_constants<W> c) noexcept : lo(codes.place(c.lo)) {
        if constexpr (Op::is_range)
            hi = codes.place(c.hi);
    }
    // Bit i: code i of the loaded source bytes qualifies.
    [[gnu::always_inline]] ub8 operator()(__m512i source) const noexcept {
        const __m512i fields = codes.fields(source);
        auto hits = compare_lanes<lanes::lane_bits, Op::low>(fields, lo);
        if constexpr (Op::is_range)
            hits = compare_lanes<lanes::lane_bits, Op::high>(hits, fields, hi);
        if constexpr (Nullable)
            hits = nonzero_lanes<lanes::lane_bits>(hits, fields);
        return hits_of_mask(hits);
    }

private:
    lanes codes;
    __m512i lo, hi;
};

// One 64-byte line a line consumed, 832 bytes ahead of the block. Whole-element widths trust the hardware prefetcher.
template <unsigned W>
constexpr unsigned lines_prefetched = W == 8 || W == 16 || W == 32 || W == 64 ? 0
                                                                              : (8 * code_lanes<W>::bytes + 63) / 64;
static_assert(lines_prefetched<2> == 2 && lines_prefetched<7> == 7 && lines_prefetched<9> == 5 &&
              lines_prefetched<10> == 5 && lines_prefetched<11> == 6 && lines_prefetched<12> == 6 &&
              lines_prefetched<13> == 7 && lines_prefetched<14> == 7 && lines_prefetched<15> == 8 &&
              lines_prefetched<17> == 5 && lines_prefetched<20> == 5 && lines_prefetched<24> == 6);

template <unsigned W>
[[gnu::always_inline]] inline void prefetch_codes(const ub1 *p) noexcept {
#pragma GCC unroll 8
    for (unsigned i = 0; i < lines_prefetched<W>; i++)
        __builtin_prefetch(p + 832 + 64 * i);
}

template <class Op, unsigned W, bool Nullable>
[[gnu::always_inline]] inline ub4 scan_codes(const ub1 *codes, ub8 *bv, ub4 n, scan_constants<W> constants) noexcept {
    using lanes = code_lanes<W>;
    constexpr unsigned compares_per_block = 8, words_per_block = lanes::rows / 8;
    constexpr unsigned compares_per_word = 64 / lanes::rows;
    constexpr ub4 rows_per_block = compares_per_block * lanes::rows;
    const lane_test<Op, W, Nullable> test(constants);

    ub8 count = 0;
    ub8 *word = bv;
    for (ub4 block = n / rows_per_block; block != 0; block--) {
        prefetch_codes<W>(codes);
        ub8 hits[compares_per_block];
#pragma GCC unroll 8
        for (unsigned i = 0; i < compares_per_block; i++)
            hits[i] = test(lanes::load(codes + i * lanes::bytes));
#pragma GCC unroll 8
        for (unsigned w = 0; w < words_per_block; w++) {
            ub8 joined = 0;
#pragma GCC unroll 8
            for (unsigned i = 0; i < compares_per_word; i++)
                joined |= hits[w * compares_per_word + i] << i * lanes::rows % 64;
            word[w] = joined;
            count += static_cast<ub8>(__builtin_popcountll(joined));
        }
        codes += compares_per_block * lanes::bytes;
        word += words_per_block;
    }

    ub4 left = n % rows_per_block;
    if (left != 0) {
        // Whole compares, then one of the rows that remain; what a block would store as words goes into zeroed ones.
        memset(word, 0, (left + 63) / 64 * 8);
        auto *position = reinterpret_cast<ub1 *>(word);
        while (true) {
            const bool last = left < lanes::rows;
            ub8 hits = test(last ? lanes::load_first(codes, left) : lanes::load(codes));
            if (last)
                hits = _bzhi_u64(hits, left);
            memcpy(position, &hits, lanes::rows / 8);
            count += static_cast<ub8>(__builtin_popcountll(hits));
            if (left <= lanes::rows)
                break;
            left -= lanes::rows;
            codes += lanes::bytes;
            position += lanes::rows / 8;
        }
    }
    return static_cast<ub4>(count);
}

// Touches only the rows that env.sel_bits names.
template <class Op, unsigned W, bool Nullable>
ub4 sparse_dict_scan(tavo_vec *res, tavo_vec *src, scan_constants<W> constants, tavo_env *env,
                     const kernel_texts &texts) noexcept {
    env->result_flags |= TAVO_RESULT_SCAN_SELECTED;
    const ub4 n = TAVO_VEC_SIZE(src);
    ub8 *bv = res->bits;
    const ub1 *codes = column_data(src, env, texts);
    memset(bv, 0, (static_cast<ub8>(n) + 63) / 64 * 8);

    ub4 count = 0;
    const auto visit = [&](ub4 row) {
        const auto x = packed_code<W>(codes, row);
        const ub8 hit = qualifies<Op, Nullable>(x, constants.lo, constants.hi);
        count += static_cast<ub4>(hit);
        bv[row / 64] |= hit << row % 64;
    };
    // Entering and leaving the iterator costs as much as a few rows do, so a batch is more than the eight that are
    // visited at a time.
    constexpr unsigned batch = 64;
    const bool is_long = static_cast<ub8>(n) * W / 8 > 4u << 20; // more than a second-level cache holds
    ub4 rows[batch];
    tavo_bit_iter selected;
    tavo_lbiwv_ictx_ini2_dydi(&selected, env->sel_bits, n, 0, 0);
    ub8 got;
    do {
        got = tavo_lbiwvones_dydi(&selected, rows, batch);
        // In a long column the lines of a whole batch are on their way before the first is needed.
        for (ub8 i = 0; is_long && i < got; i++) {
            __builtin_prefetch(codes + static_cast<ub8>(rows[i]) * W / 8);
            __builtin_prefetch(bv + rows[i] / 64, 1);
        }
#pragma GCC unroll 8
        for (ub8 i = 0; i < got; i++)
            visit(rows[i]);
    } while (got == batch);
    return finish_selected_scan(res, src, n, count);
}

template <class Op, unsigned W, bool Nullable>
[[gnu::always_inline]] inline ub4 dict_scan(tavo_vec *res, tavo_vec *src, const tavo_vec *lo, const tavo_vec *hi,
                                            tavo_env *env, const kernel_texts &texts) noexcept {
    if constexpr (W == 1) {
        return one_bit_scan(res, src, env, texts, one_bit_answer_of<Op, Nullable>(lo, hi));
    } else {
        const auto constants = [&] {
            scan_constants<W> c{read_constant<W>(lo), 0};
            if constexpr (Op::is_range)
                c.hi = read_constant<W>(hi);
            return c;
        };
        if (env != nullptr && env->sel_bits != nullptr && (env->flags & TAVO_ENV_SPARSE) != 0)
            return sparse_dict_scan<Op, W, Nullable>(res, src, constants(), env, texts);
        const scan_target target = target_of_scan(res, src);
        const ub1 *codes = column_data(src, env, texts);
        return finish_scan(res, src, env, target, scan_codes<Op, W, Nullable>(codes, target.bv, target.n, constants()));
    }
}

} // namespace tavo
