// Conversion of numbers between native and comparable form, and sums of a column.
//
//   direction   by src.enc.flags: TAVO_NATIVE is clear, stored to native form; set, native to stored form
//   types       float, double, float16, bfloat16
//   sums        TAVO_ENV_SUM: of stored floats and doubles, and of integers, big-endian or with TAVO_NATIVE native;
//               added to the number at dst.data
//   result      TAVO_DONE; TAVO_BAD_INPUT for another type or sum. Integers can't be converted: that is a caller's bug
//
// The sum of floats: 16 lanes (binary64: 8), lane i of them rows i, i + 16 ... of whole registers; these folded as in
// frame/lane_sum.h; then the rows behind them one by one; last the number at dst.data plus that. dst.data may be src's.
#include "aggregate/number_column.h"
#include "frame/tavoc_avx512g.h"
#include "rows/convert_operations.h"

namespace tavo {
namespace {

enum class direction { to_native, to_stored };

// n bytes, a whole number of elements, through f: registers of 64 bytes, then the rest of one.
template <class F>
[[gnu::always_inline]] inline void convert_bytes(ub1 *dst, const ub1 *src, ub8 n, F &&f) noexcept {
    ub8 i = 0;
#pragma GCC unroll 4
    for (; i + 64 <= n; i += 64)
        _mm512_storeu_si512(dst + i, f(_mm512_loadu_si512(src + i)));
    const __mmask64 rest = _bzhi_u64(~0ull, static_cast<ub4>(n - i));
    _mm512_mask_storeu_epi8(dst + i, rest, f(_mm512_maskz_loadu_epi8(rest, src + i)));
}

template <class Number>
void convert_numbers(ub1 *dst, const ub1 *src, ub8 rows, direction to) noexcept {
    const ub8 bytes = rows * sizeof(typename Number::bits);
    if (to == direction::to_native)
        convert_bytes(dst, src, bytes, [](__m512i v) { return decode_comparable<Number>(v); });
    else
        convert_bytes(dst, src, bytes, [](__m512i v) { return encode_comparable<Number>(v); });
}

template <class Number>
void add_sum(void *sum, const ub1 *data, ub8 rows) noexcept {
    using column = float_column<Number, true>;
    using lanes = float_lanes<Number>;
    auto sums = lanes::zero();
    ub8 row = 0;
    for (; row + lanes::count <= rows; row += lanes::count)
        sums = lanes::add(sums, column::load(data + row * column::bytes));
    auto total = lane_sum(sums);
    for (; row < rows; row++)
        total += column::one(data + row * column::bytes);
    write_native(sum, read_native<typename column::value>(sum) + total);
}

ub4 sum(void *to, const tavo_enc_ctx *enc, const ub1 *data, ub8 rows, bool native) noexcept {
    const ub1 type = enc->value_type;
    if (type == TAVO_VALUE_INTEGER)
        with_integer_column(enc->width_bits, !native, [&](auto column) {
            write_native(to, read_native<ub8>(to) + integer_total(column, data, rows));
        });
    else if (type == TAVO_VALUE_FLOAT && !native)
        add_sum<f32>(to, data, rows);
    else if (type == TAVO_VALUE_DOUBLE && !native)
        add_sum<f64>(to, data, rows);
    else
        return TAVO_BAD_INPUT;
    return TAVO_DONE;
}

} // namespace
} // namespace tavo

ub4 tavo_convert_dydi(tavo_vec *dst, tavo_vec *src, tavo_env *env) noexcept {
    using namespace tavo;
    const tavo_enc_ctx *enc = TAVO_VEC_ENC_CTX(src);
    const bool native = TAVO_ENC_CTX_FLAG(enc, TAVO_NATIVE);
    const ub1 *const data = column_data(src, env, TAVO_KERNEL_TEXTS(tavo_convert_dydi));
    const ub8 rows = TAVO_VEC_SIZE(src);
    if (env != nullptr && (env->flags & TAVO_ENV_SUM) != 0)
        return sum(dst->data, enc, data, rows, native);

    constexpr bool FALSE = false; // the condition, as it stands in the message
    auto *const out = static_cast<ub1 *>(dst->data);
    const direction to = native ? direction::to_stored : direction::to_native;
    switch (enc->value_type) {
    case TAVO_VALUE_FLOAT: convert_numbers<f32>(out, data, rows, to); return TAVO_DONE;
    case TAVO_VALUE_DOUBLE: convert_numbers<f64>(out, data, rows, to); return TAVO_DONE;
    case TAVO_VALUE_FLOAT16: convert_numbers<f16>(out, data, rows, to); return TAVO_DONE;
    case TAVO_VALUE_BFLOAT16: convert_numbers<bf16>(out, data, rows, to); return TAVO_DONE;
    case TAVO_VALUE_INTEGER: TAVO_ASSERT(FALSE);
    default: return TAVO_BAD_INPUT;
    }
}
