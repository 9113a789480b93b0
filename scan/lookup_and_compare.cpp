// Comparison of two ub4 code columns row by row, each through a table of ub4 values or, where that is null, directly.
//
//   left, right   ub4 codes at data; left.size rows
//   tables        ub4 values at data, one a code: every code that occurs has one
//   op            one byte at data: 0 eq, 1 lt, 2 gt, 3 le, 4 ge, 5 ne, unsigned; a larger one holds for no row
//   result        bits ORed into res.bits, which the caller has zeroed; res.count: the rows for which it holds. Status 0
//
// A call with env.resume_row r looks at left.size - r rows. Hosts rely on how it counts them: result bits start at bit 0
// whatever r is; r is added to the two code addresses in bytes, and in the block loop only; the rows behind the last
// whole eight are those of the arrays from the number of rows done on. A caller that wants all rows passes 0.
#include <string.h>

#include "frame/tavo_status.h"
#include "portable/intrinsics.h"
#include "portable/mask_number.h"
#include "scan/row_operations.h"
#include "scan/scan_operator.h"

namespace tavo {
namespace {

constexpr int no_row = 3; // the predicate that is always false

struct looked_up {
    const ub1 *codes;
    const ub4 *table;

    looked_up(const tavo_vec *column, const tavo_vec *table_vec) noexcept
        : codes(static_cast<const ub1 *>(column->data)),
          table(table_vec != nullptr ? static_cast<const ub4 *>(table_vec->data) : nullptr) {}
    // The codes of the rows in the mask, from this byte on.
    [[gnu::always_inline]] __m512i values(ub8 byte, __mmask16 rows) const noexcept {
        const __m512i c = _mm512_maskz_loadu_epi32(rows, codes + byte);
        return table == nullptr ? c : _mm512_mask_i32gather_epi32(_mm512_setzero_si512(), rows, c, table, 4);
    }
    [[gnu::always_inline]] ub4 one(ub4 row) const noexcept {
        ub4 c;
        memcpy(&c, codes + static_cast<ub8>(row) * 4, sizeof c);
        return table == nullptr ? c : table[c];
    }
};

template <int Predicate>
ub4 compare(ub1 *bits, ub4 n, ub4 offset, looked_up left, looked_up right) noexcept {
    ub4 count = 0, row = 0;
    // Blocks of eight rows, two at a time where there are two.
    for (ub4 step; n - row >= 8; row += step) {
        step = n - row >= 16 ? 16 : 8;
        const auto there = static_cast<__mmask16>(_bzhi_u32(0xffff, step));
        const ub8 byte = static_cast<ub8>(row) * 4 + offset;
        const auto hits = static_cast<unsigned>(hits_of_mask(_mm512_mask_cmp_epu32_mask(
            there, left.values(byte, there), right.values(byte, there), Predicate)));
        bits[row / 8] = static_cast<ub1>(bits[row / 8] | hits);
        if (step == 16)
            bits[row / 8 + 1] = static_cast<ub1>(bits[row / 8 + 1] | hits >> 8);
        count += static_cast<ub4>(_mm_popcnt_u32(hits));
    }
    for (; row < n; row++)
        if (Predicate != no_row && holds<Predicate>(left.one(row), right.one(row))) {
            bits[row / 8] = static_cast<ub1>(bits[row / 8] | 1u << row % 8);
            count++;
        }
    return count;
}

} // namespace
} // namespace tavo

ub4 tavo_lookup_and_compare_dydi(tavo_vec *res, tavo_vec *left, tavo_vec *right, tavo_vec *left_table,
                                 tavo_vec *right_table, tavo_vec *op, tavo_env *env) noexcept {
    using namespace tavo;
    static constexpr decltype(&compare<_MM_CMPINT_EQ>) by_operator[] = {
        compare<_MM_CMPINT_EQ>, compare<_MM_CMPINT_LT>,  compare<_MM_CMPINT_NLE>,
        compare<_MM_CMPINT_LE>, compare<_MM_CMPINT_NLT>, compare<_MM_CMPINT_NE>};
    const ub1 number = *static_cast<const ub1 *>(op->data);
    const auto run = number < 6 ? by_operator[number] : compare<no_row>;
    const ub4 from = env->resume_row, n = left->size > from ? left->size - from : 0;
    res->count = run(reinterpret_cast<ub1 *>(res->bits), n, from, looked_up(left, left_table),
                     looked_up(right, right_table));
    return TAVO_DONE;
}
