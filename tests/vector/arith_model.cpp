#include "tests/vector/arith_model.h"

#include <cmath>

namespace tavo::test {
namespace {

template <class T>
T apply(ub4 op, T a, T b) {
    switch (op) {
    case TAVO_VECTOR_ADD: return a + b;
    case TAVO_VECTOR_SUB: return a - b;
    case TAVO_VECTOR_MUL: return a * b;
    default: return a / b;
    }
}

double halves(const double (&v)[8]) { return ((v[0] + v[4]) + (v[2] + v[6])) + ((v[1] + v[5]) + (v[3] + v[7])); }

// T is float or double. Blocks of four registers, one register, one element.
template <class T>
arith_result of_floats(ub4 op, const plain_vector &a, const plain_vector &b, bool scalar, ub4 type, bool norm) {
    constexpr ub4 lanes = 64 / sizeof(T);
    const bool integers = op == TAVO_VECTOR_DIV && a.type == TAVO_ELEM_INT8 && b.type == TAVO_ELEM_INT8;
    const auto left = [&](ub4 i) { return static_cast<T>(number_of(a.type, a.elements[i])); };
    const auto right = [&](ub4 i) { return static_cast<T>(number_of(b.type, b.elements[scalar ? 0 : i])); };
    arith_result out{0, {}, 0};
    if (integers && scalar && right(0) == 0)
        return {TAVO_DIVISION_BY_ZERO, {}, 0};
    double sums[4][8] = {}, rest = 0;
    ub4 i = 0;
    while (i < a.dims) {
        const ub4 step = a.dims - i >= 4 * lanes ? 4 * lanes : a.dims - i >= lanes ? lanes : 1;
        std::vector<T> block;
        for (ub4 k = i; k < i + step; k++) {
            T r;
            if (integers && !scalar && step == 1) {
                const int divisor = static_cast<int>(right(k));
                if (divisor == 0)
                    return {TAVO_DIVISION_BY_ZERO, out.written, 0};
                r = static_cast<T>(static_cast<int>(left(k)) / divisor);
            } else {
                r = apply<T>(op, left(k), right(k));
                if (!std::isfinite(r) && !integers) {
                    out.status = TAVO_OUT_OF_RANGE;
                    return out;
                }
            }
            block.push_back(r);
        }
        for (ub4 k = 0; k < step; k++) {
            out.written.push_back(bits_of(type, static_cast<double>(block[k])));
            double &sum = step == 1 ? rest : sums[k / lanes][k % 8];
            if constexpr (sizeof(T) == 4)
                sum += static_cast<double>(block[k] * block[k]);
            else
                sum = std::fma(block[k], block[k], sum);
        }
        i += step;
    }
    double sum = 0;
    for (const auto &of : sums)
        sum += halves(of);
    sum += rest;
    if (norm && !std::isfinite(sum))
        out.status = TAVO_OUT_OF_RANGE;
    out.norm = std::sqrt(sum);
    return out;
}

arith_result of_int8(ub4 op, const plain_vector &a, const plain_vector &b, bool scalar) {
    const auto number = [](const plain_vector &v, ub4 i) { return static_cast<int>(number_of(v.type, v.elements[i])); };
    const bool divides = op == TAVO_VECTOR_DIV;
    arith_result out{0, {}, 0};
    if (divides && scalar && number(b, 0) == 0)
        return {TAVO_DIVISION_BY_ZERO, {}, 0};
    double sum = 0;
    for (ub4 i = 0; i < a.dims;) {
        const ub4 left = a.dims - i, step = divides || left < 32 ? 1 : left >= 256 ? 256 : 32;
        std::vector<int> block;
        for (ub4 k = i; k < i + step; k++) {
            const int divisor = number(b, scalar ? 0 : k);
            if (divides && divisor == 0)
                return {TAVO_DIVISION_BY_ZERO, out.written, 0};
            block.push_back(apply<int>(op, number(a, k), divisor));
            if (block.back() < -128 || block.back() > 127) {
                out.status = TAVO_OUT_OF_RANGE;
                return out;
            }
        }
        for (const int r : block) {
            out.written.push_back(static_cast<ub1>(r));
            sum += r * r;
        }
        i += step;
    }
    out.norm = std::sqrt(sum);
    return out;
}

} // namespace

arith_result arith_model(ub4 op, const plain_vector &a, const plain_vector &b, bool scalar, ub4 result_type,
                         bool norm) {
    switch (result_type) {
    case TAVO_ELEM_FLOAT: return of_floats<float>(op, a, b, scalar, result_type, norm);
    case TAVO_ELEM_DOUBLE: return of_floats<double>(op, a, b, scalar, result_type, norm);
    default: return of_int8(op, a, b, scalar);
    }
}

} // namespace tavo::test
