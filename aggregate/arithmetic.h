// Addition, subtraction and multiplication of two columns of float or double: the one text of 48 kernels, one for each
// (operator, type, form of either operand, a result for every row or their sum).
//
//   operands  a and b, native or in comparable form as the kernel's name says; any alignment. TAVO_CONSTANT makes one a
//             constant: data points at the one value, in the operand's form. Where both have it, a is the constant
//   rows      n = the larger of a.size and b.size; a constant's size counts too
//   result    row by row: native numbers of the operands' type at res.data, which may be an operand's data.
//             _sum: the n results' sum is added to the one number at res.data. TAVO_DONE always
//   order     of additions in a _sum: eight lanes (binary64: four), lane i of them rows i, i + 8 ..., of whole blocks
//   of
//             eight (four) rows; these lanes folded as in frame/lane_sum.h; the rows behind the last block, one by one;
//             last the number at res.data plus that
//
// An operand that is in comparable form is decoded on the way. No environment is read: compressed columns are the
// caller's to decompress.
#pragma once

#include <algorithm>

#include "aggregate/arithmetic_kernels.h"
#include "aggregate/number_column.h"
#include "frame/tavo_status.h"

namespace tavo {

template <class Column>
struct column_operand {
    const ub1 *data;
    explicit column_operand(const tavo_vec *v) noexcept : data(static_cast<const ub1 *>(v->data)) {}
    [[gnu::always_inline]] auto at(ub8 row) const noexcept { return Column::load(data + row * Column::bytes); }
    [[gnu::always_inline]] auto at(ub8 row, ub8 rows) const noexcept {
        return Column::load(data + row * Column::bytes, rows);
    }
};

template <class Column>
struct constant_operand {
    typename Column::lanes::lanes value;
    explicit constant_operand(const tavo_vec *v) noexcept
        : value(Column::lanes::broadcast(Column::one(static_cast<const ub1 *>(v->data)))) {}
    [[gnu::always_inline]] auto at(ub8) const noexcept { return value; }
    // Zero behind the last row, as a column is: infinity times nothing would raise an exception.
    [[gnu::always_inline]] auto at(ub8, ub8 rows) const noexcept {
        return Column::lanes::keep(Column::first(rows), value);
    }
};

template <unsigned Operator, class Lanes>
[[gnu::always_inline]] inline typename Lanes::lanes apply(typename Lanes::lanes a, typename Lanes::lanes b) noexcept {
    if constexpr (Operator == TAVO_OP_ADD)
        return Lanes::add(a, b);
    else if constexpr (Operator == TAVO_OP_SUB)
        return Lanes::sub(a, b);
    else
        return Lanes::mul(a, b);
}

template <class Number, unsigned Operator, class A, class B>
[[gnu::always_inline]] inline void arithmetic_rows(void *result, const A a, const B b, ub8 rows) noexcept {
    using lanes = float_lanes<Number>;
    auto *out = static_cast<ub1 *>(result);
    constexpr unsigned bytes = sizeof(typename lanes::value);
    ub8 row = 0;
#pragma GCC unroll 4
    for (; row + lanes::count <= rows; row += lanes::count)
        lanes::store(out + row * bytes, apply<Operator, lanes>(a.at(row), b.at(row)));
    if (const ub8 rest = rows - row; rest != 0)
        lanes::store(out + row * bytes, first_lanes<Number>(rest),
                     apply<Operator, lanes>(a.at(row, rest), b.at(row, rest)));
}

template <class Number, unsigned Operator, class A, class B>
[[gnu::always_inline]] inline void arithmetic_sum(void *result, const A a, const B b, ub8 rows) noexcept {
    using lanes = float_lanes<Number>;
    using value = typename lanes::value;
    constexpr unsigned block = lanes::count / 2;
    half_register_sum<Number> sum;
    ub8 row = 0;
    for (; row + lanes::count <= rows; row += lanes::count)
        sum.add(apply<Operator, lanes>(a.at(row), b.at(row)));
    value total;
    if (const ub8 rest = rows - row; rest == 0) {
        total = sum.total();
    } else {
        value last[lanes::count];
        const auto results = apply<Operator, lanes>(a.at(row, rest), b.at(row, rest));
        lanes::store(last, results);
        const ub8 in_block = rest >= block ? block : 0;
        sum.add(results, first_lanes<Number>(in_block));
        total = sum.total();
        for (ub8 i = in_block; i < rest; i++)
            total += last[i];
    }
    write_native(result, read_native<value>(result) + total);
}

template <unsigned Operator, class Number, bool ComparableA, bool ComparableB, bool Sum>
[[gnu::always_inline]] inline ub4 arithmetic(tavo_vec *res, const tavo_vec *a, const tavo_vec *b) noexcept {
    using column_a = float_column<Number, ComparableA>;
    using column_b = float_column<Number, ComparableB>;
    const ub8 rows = std::max(TAVO_VEC_SIZE(a), TAVO_VEC_SIZE(b));
    const auto compute = [&](const auto &left, const auto &right) {
        if constexpr (Sum)
            arithmetic_sum<Number, Operator>(res->data, left, right, rows);
        else
            arithmetic_rows<Number, Operator>(res->data, left, right, rows);
    };
    if (TAVO_ENC_CTX_FLAG(TAVO_VEC_ENC_CTX(a), TAVO_CONSTANT))
        compute(constant_operand<column_a>(a), column_operand<column_b>(b));
    else if (TAVO_ENC_CTX_FLAG(TAVO_VEC_ENC_CTX(b), TAVO_CONSTANT))
        compute(column_operand<column_a>(a), constant_operand<column_b>(b));
    else
        compute(column_operand<column_a>(a), column_operand<column_b>(b));
    return TAVO_DONE;
}

namespace arith {
template <unsigned Type>
using number = std::conditional_t<Type == TAVO_VALUE_FLOAT, f32, f64>;
} // namespace arith

} // namespace tavo

#define TAVO_ARITH_KERNEL(name, op, type, a, b, sum)                                                                   \
    extern "C" ub4 name(tavo_vec *res, tavo_vec *left, tavo_vec *right, tavo_env *) noexcept {                         \
        using namespace tavo::arith;                                                                                   \
        return tavo::arithmetic<op_##op, number<type_##type>, form_##a != 0, form_##b != 0, sum>(res, left, right);    \
    }
#define TAVO_ARITH_MEMBERS(op, type, a, b)                                                                             \
    TAVO_ARITH_KERNEL(tavo_##op##_##type##_##a##_##b, op, type, a, b, false)                                           \
    TAVO_ARITH_KERNEL(tavo_##op##_##type##_##a##_##b##_sum, op, type, a, b, true)
