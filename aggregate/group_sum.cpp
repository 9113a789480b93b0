// Grouped sums: a measure column added into the accumulators that group keys name, or to one total without keys.
//
//   measure   float or double, native or comparable; or signed integers of 8 to 64 bits in either byte order
//   keys      one ub4 a row, or none: a null vector, or one without data
//   array     accumulators back to back: float, double or, for integers, sb8; acc.size of them
//   records   TAVO_ACCUMULATORS: records of (width_bits + 7) / 8 bytes, in each a float or double at offsets[0] and, if
//             offsets[1] isn't TAVO_NO_COUNT, a ub4 at that. No integers. Nothing of a record is aligned
//
// Rows are added in their order, with these exceptions: integers, which wrap and so have no order, and floats in an
// array of two or three accumulators, whose lanes of eight rows (binary64: four) are added up on their own, folded and
// added to the accumulator before the rows behind the last whole block are. A total is made on its own and then added
// to accumulator 0, or stored in record 0 in place of what stood there.
//
// With keys, a record's sum takes the stored values as they are: there hosts send native ones.
#include <utility>

#include "aggregate/group_operations.h"
#include "aggregate/number_column.h"
#include "frame/tavo_group.h"
#include "frame/tavoc_avx512g.h"

namespace tavo {
namespace {

// ---- Totals ----

template <class Column>
typename Column::value total_of(Column, const ub1 *data, ub8 rows) noexcept {
    if constexpr (std::is_same_v<typename Column::value, ub8>) {
        return integer_total(Column{}, data, rows);
    } else {
        typename Column::value total = 0;
        for (ub8 row = 0; row < rows; row++)
            total += Column::one(data + row * Column::bytes);
        return total;
    }
}

// ---- One accumulator a group ----

// So far ahead are accumulators asked for that don't stay in the second-level cache.
constexpr ub4 rows_ahead = 24, near_bytes = 256 << 10;

// A register of rows to their accumulators, in order. Keys are read two at a time and rows as the column has them: what
// a row costs is its loads and stores.
template <class Column>
[[gnu::always_inline]] inline void scatter_block(typename Column::value *acc, const ub4 *keys, const ub1 *p) noexcept {
    const typename Column::rows_at block(p);
    const auto add_two = [&]<unsigned I>() {
        const ub8 two_keys = read_native<ub8>(keys + I);
        acc[static_cast<ub4>(two_keys)] += block.template row<I>();
        acc[two_keys >> 32] += block.template row<I + 1>();
    };
    [&]<unsigned... I>(std::integer_sequence<unsigned, I...>) { (add_two.template operator()<2 * I>(), ...); }
    (std::make_integer_sequence<unsigned, Column::count / 2>{});
}

template <bool Far, class Column>
[[gnu::always_inline]] inline void scatter_rows(Column, typename Column::value *acc, const ub4 *keys, const ub1 *data,
                                                ub8 rows) noexcept {
    ub8 row = 0;
    if constexpr (Far)
        for (; row + Column::count + rows_ahead <= rows; row += Column::count) {
#pragma GCC unroll 16
            for (unsigned i = 0; i < Column::count; i++)
                __builtin_prefetch(acc + keys[row + rows_ahead + i], 1);
            scatter_block<Column>(acc, keys + row, data + row * Column::bytes);
        }
    for (; row + Column::count <= rows; row += Column::count)
        scatter_block<Column>(acc, keys + row, data + row * Column::bytes);
    for (; row < rows; row++)
        acc[keys[row]] += Column::one(data + row * Column::bytes);
}

// ---- Two or three groups: their sums stay in registers ----

[[gnu::always_inline]] inline __mmask16 rows_of_group(__m512i keys, int group) noexcept {
    return _mm512_cmpeq_epi32_mask(keys, _mm512_set1_epi32(group));
}

template <unsigned Groups, class Column>
void few_groups(Column, typename Column::value *acc, const ub4 *keys, const ub1 *data, ub8 rows) noexcept {
    typename Column::partial_sum sums[Groups];
    const auto add = [&](const auto &values, __m512i group, __mmask16 in_block) {
#pragma GCC unroll 3
        for (unsigned g = 0; g < Groups; g++)
            sums[g].add(values,
                        static_cast<typename Column::mask>(rows_of_group(group, static_cast<int>(g)) & in_block));
    };
    constexpr auto whole = static_cast<__mmask16>((1u << Column::count) - 1);
    ub8 row = 0;
    for (; row + Column::count <= rows; row += Column::count)
        add(Column::load(data + row * Column::bytes), _mm512_maskz_loadu_epi32(whole, keys + row), whole);
    if constexpr (Column::block != Column::count)
        if (row + Column::block <= rows) {
            constexpr auto block = static_cast<__mmask16>((1u << Column::block) - 1);
            add(Column::load(data + row * Column::bytes, Column::block), _mm512_maskz_loadu_epi32(block, keys + row),
                block);
            row += Column::block;
        }
    for (unsigned g = 0; g < Groups; g++)
        acc[g] += sums[g].total();
    for (; row < rows; row++)
        acc[keys[row]] += Column::one(data + row * Column::bytes);
}

template <class Column>
void add_to_array(Column column, const tavo_vec *acc, const ub1 *data, const ub4 *keys, ub8 rows) noexcept {
    auto *sums = static_cast<typename Column::value *>(acc->data);
    if (keys == nullptr)
        sums[0] += total_of(column, data, rows);
    else if (TAVO_VEC_SIZE(acc) == 2)
        few_groups<2>(column, sums, keys, data, rows);
    else if (TAVO_VEC_SIZE(acc) == 3)
        few_groups<3>(column, sums, keys, data, rows);
    else if (TAVO_VEC_SIZE(acc) * 1ull * sizeof *sums > near_bytes)
        scatter_rows<true>(column, sums, keys, data, rows);
    else
        scatter_rows<false>(column, sums, keys, data, rows);
}

// ---- Records ----

template <class Column>
void add_to_records(Column column, const tavo_vec *acc, const ub1 *data, const ub4 *keys, ub8 rows,
                    const sb2 offsets[2]) noexcept {
    using value = typename Column::value;
    auto *const records = static_cast<ub1 *>(acc->data);
    const ub8 bytes = (TAVO_VEC_ENC_CTX(acc)->width_bits + 7ull) / 8;
    const sb2 sum_offset = offsets[TAVO_OFFSET_OF_SUM], count_offset = offsets[TAVO_OFFSET_OF_COUNT];
    const bool counts = count_offset != TAVO_NO_COUNT;
    if (keys == nullptr) {
        write_native(records + sum_offset, total_of(column, data, rows));
        if (counts)
            write_native(records + count_offset, static_cast<ub4>(rows));
        return;
    }
    const auto add_rows = [&](auto &&count_row) {
        for (ub8 row = 0; row < rows; row++) {
            ub1 *const record = records + keys[row] * bytes;
            ub1 *const sum = record + sum_offset;
            write_native(sum, read_native<value>(sum) + read_native<value>(data + row * sizeof(value)));
            count_row(record);
        }
    };
    if (counts)
        add_rows([&](ub1 *record) {
            ub1 *const count = record + count_offset;
            write_native(count, read_native<ub4>(count) + 1);
        });
    else
        add_rows([](ub1 *) {});
}

// Calls f with the type of a float or double column.
template <class F>
[[gnu::always_inline]] inline void with_float_column(bool is_double, bool native, F &&f) noexcept {
    if (is_double)
        native ? f(float_column<f64, false>{}) : f(float_column<f64, true>{});
    else
        native ? f(float_column<f32, false>{}) : f(float_column<f32, true>{});
}

} // namespace
} // namespace tavo

ub4 tavo_gby_sum_dydi(tavo_vec *acc, tavo_vec *src, tavo_vec *keys, tavo_env *env, const sb2 offsets[2]) noexcept {
    using namespace tavo;
    const tavo_enc_ctx *enc = TAVO_VEC_ENC_CTX(src), *acc_enc = TAVO_VEC_ENC_CTX(acc);
    const bool in_records = acc_enc != nullptr && TAVO_ENC_CTX_FLAG(acc_enc, TAVO_ACCUMULATORS);
    const ub1 type = enc->value_type;
    const bool is_float = type == TAVO_VALUE_FLOAT || type == TAVO_VALUE_DOUBLE;
    if (in_records ? !is_float || offsets == nullptr : !is_float && type != TAVO_VALUE_INTEGER)
        return TAVO_BAD_INPUT;

    const ub1 *const data = column_data(src, env, TAVO_KERNEL_TEXTS(tavo_gby_sum_dydi));
    const auto *const key = keys != nullptr ? static_cast<const ub4 *>(keys->data) : nullptr;
    const ub8 rows = TAVO_VEC_SIZE(src);
    if (is_float)
        with_float_column(type == TAVO_VALUE_DOUBLE, TAVO_ENC_CTX_FLAG(enc, TAVO_NATIVE), [&](auto column) {
            if (in_records)
                add_to_records(column, acc, data, key, rows, offsets);
            else
                add_to_array(column, acc, data, key, rows);
        });
    else
        with_integer_column(enc->width_bits, env != nullptr && (env->flags2 & TAVO_ENV2_BIG_ENDIAN) != 0,
                            [&](auto column) { add_to_array(column, acc, data, key, rows); });
    return TAVO_DONE;
}
