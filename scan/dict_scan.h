// Predicate scans of dictionary codes: the one text of 460 kernels, one for each (operator, code width, null rule).
//
//   source   n codes of W bits, packed most significant bit first; any alignment
//   result   bit r of res.bits set where code r qualifies; zeros above row n in the last word; res.count
//   null     in a _null member code 0 never qualifies, whatever the operator
//
// Nothing before the column is read, and at most 3 bytes past the last code byte. A constant of more than W bits is the
// caller's fault: any row may then come out either way.
#pragma once

#include "scan/code_rows.h"
#include "scan/one_bit_scan.h"
#include "scan/scan_frame.h"
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

    [[gnu::always_inline]] ub8 first(__m512i source, unsigned) const noexcept { return (*this)(source); }

private:
    lanes codes;
    __m512i lo, hi;
};

template <class Op, unsigned W, bool Nullable>
ub4 sparse_dict_scan(tavo_vec *res, tavo_vec *src, scan_constants<W> c, tavo_env *env,
                     const kernel_texts &texts) noexcept {
    const auto holds = [c](code_value<W> x) { return tavo::qualifies<Op, Nullable>(x, c.lo, c.hi); };
    return scan_selected(res, src, env, code_column<W, decltype(holds)>{column_data(src, env, texts), holds});
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
        if (walks_selection(env))
            return sparse_dict_scan<Op, W, Nullable>(res, src, constants(), env, texts);
        return scan_all(res, src, env, texts, [&](const ub1 *codes, ub8 *bv, ub4 n) {
            using test = lane_test<Op, W, Nullable>;
            return scan_blocks(code_rows<W, test>(codes, test(constants())), bv, n);
        });
    }
}

} // namespace tavo
