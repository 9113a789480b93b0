// The metrics: what a pair of elements adds, in lanes and one by one, and how sums become a result.
//
// Sums are binary64, whatever the elements are; how they are reached is fixed to the last bit. In lanes, squares and
// products are fused multiply-adds. One by one, binary32 terms are rounded as binary32 and then added to the binary64
// sum, binary64 squares and products are fused with it.
#pragma once

#include "vector/forms.h"
#include "vector/norm.h"

namespace tavo::vector {

// ---- From sums to results ----

[[gnu::always_inline]] inline double euclid_result(double squares, ub4 metric) {
    return metric == tavo_metric_euclid ? root(squares) : squares;
}
// A zero norm gives 0 / 0: NaN, for which drivers and searches have a place.
[[gnu::always_inline]] inline double cosine_result(double products, double left_squares, double right_squares,
                                                   ub4 metric) {
    const double similarity = products / (root(left_squares) * root(right_squares));
    return metric == tavo_metric_cosine_distance ? 1.0 - similarity : similarity;
}
[[gnu::always_inline]] inline double dotprod_result(double products, ub4 metric) {
    return metric == tavo_metric_dotprod_negated ? -products : products;
}

// ---- One by one, in T: float or double ----

[[gnu::always_inline]] inline void add_product(double &sum, float a, float b) { sum += static_cast<double>(a * b); }
[[gnu::always_inline]] inline void add_product(double &sum, double a, double b) { sum = __builtin_fma(a, b, sum); }

[[gnu::always_inline]] inline float absolute(float v) { return __builtin_fabsf(v); }
[[gnu::always_inline]] inline double absolute(double v) { return __builtin_fabs(v); }

// The difference that makes a position differ. The coarser type decides; the value for bfloat16 is no power of 2.
constexpr double hamming_threshold(base a, base b) {
    const auto either = [=](base t) { return a == t || b == t; };
    return either(base::bfloat16)  ? 0.001954
           : either(base::float16) ? 0x1p-9
           : either(base::float32) ? 0x1p-23
           : either(base::float64) ? 0x1p-52
                                   : 0.0; // int8: any difference
}

// A metric has
//   totals                   the sums, zero at first
//   pair, left, right        one position: of both operands, or of one against a zero
//   accumulator<L>           the same sums in lanes, with step() for a register of either operand; add_to() adds one's
//                            lanes to the totals, add_all() those of all of a block, number 0 last
//   result                   of the totals

// The lanes of one register an accumulator, added up in the order of the accumulators.
template <class L, class Accumulator, unsigned N>
[[gnu::always_inline]] inline void add_in_order(double &total, const Accumulator (&of)[N]) {
    double sum[N];
    if constexpr (N == 8) {
        const typename L::value lanes[8] = {of[0].sum, of[1].sum, of[2].sum, of[3].sum,
                                            of[4].sum, of[5].sum, of[6].sum, of[7].sum};
        L::sums(lanes, sum);
    } else {
#pragma GCC unroll 8
        for (unsigned k = 0; k < N; k++)
            sum[k] = L::sum(of[k].sum);
    }
#pragma GCC unroll 8
    for (unsigned k = 1; k < N; k++)
        total += sum[k];
    total += sum[0];
}

struct euclid {
    static constexpr bool skips_unmatched = false;
    struct totals {
        double sum;
    };
    template <class T>
    [[gnu::always_inline]] static void pair(totals &t, T a, T b, T) {
        const T d = b - a;
        add_product(t.sum, d, d);
    }
    template <class T>
    [[gnu::always_inline]] static void left(totals &t, T a, T) {
        add_product(t.sum, a, a);
    }
    template <class T>
    [[gnu::always_inline]] static void right(totals &t, T b, T) {
        add_product(t.sum, b, b);
    }
    template <class L>
    struct accumulator {
        typename L::value sum;
        [[gnu::always_inline]] void clear() { sum = L::zero(); }
        template <class V>
        [[gnu::always_inline]] void step(V a, V b, typename L::value) {
            const auto d = L::difference(a, b);
            sum = L::multiply_add(d, d, sum);
        }
        template <class V>
        [[gnu::always_inline]] void step(V a, V b, typename L::value, typename L::mask m) {
            const auto d = L::difference(a, b);
            sum = L::multiply_add(d, d, sum, m);
        }
        [[gnu::always_inline]] void add_to(totals &t) const { t.sum += L::sum(sum); }
        template <unsigned N>
        [[gnu::always_inline]] static void add_all(totals &t, const accumulator (&of)[N]) {
            add_in_order<L>(t.sum, of);
        }
    };
    [[gnu::always_inline]] static double result(const totals &t, ub4 metric) { return euclid_result(t.sum, metric); }
};

struct dotprod {
    static constexpr bool skips_unmatched = true;
    struct totals {
        double sum;
    };
    template <class T>
    [[gnu::always_inline]] static void pair(totals &t, T a, T b, T) {
        add_product(t.sum, a, b);
    }
    template <class T>
    [[gnu::always_inline]] static void left(totals &, T, T) {}
    template <class T>
    [[gnu::always_inline]] static void right(totals &, T, T) {}
    template <class L>
    struct accumulator {
        typename L::value sum;
        [[gnu::always_inline]] void clear() { sum = L::zero(); }
        template <class V>
        [[gnu::always_inline]] void step(V a, V b, typename L::value) {
            sum = L::multiply_add(L::number(a), L::number(b), sum);
        }
        template <class V>
        [[gnu::always_inline]] void step(V a, V b, typename L::value, typename L::mask m) {
            sum = L::multiply_add(L::number(a), L::number(b), sum, m);
        }
        [[gnu::always_inline]] void add_to(totals &t) const { t.sum += L::sum(sum); }
        template <unsigned N>
        [[gnu::always_inline]] static void add_all(totals &t, const accumulator (&of)[N]) {
            add_in_order<L>(t.sum, of);
        }
    };
    [[gnu::always_inline]] static double result(const totals &t, ub4 metric) { return dotprod_result(t.sum, metric); }
};

struct cosine {
    static constexpr bool skips_unmatched = false;
    struct totals {
        double products, left_squares, right_squares;
    };
    template <class T>
    [[gnu::always_inline]] static void pair(totals &t, T a, T b, T) {
        add_product(t.products, a, b);
        add_product(t.left_squares, a, a);
        add_product(t.right_squares, b, b);
    }
    template <class T>
    [[gnu::always_inline]] static void left(totals &t, T a, T) {
        add_product(t.left_squares, a, a);
    }
    template <class T>
    [[gnu::always_inline]] static void right(totals &t, T b, T) {
        add_product(t.right_squares, b, b);
    }
    template <class L>
    struct accumulator {
        typename L::value products, left_squares, right_squares;
        [[gnu::always_inline]] void clear() { products = left_squares = right_squares = L::zero(); }
        template <class V>
        [[gnu::always_inline]] void step(V left, V right, typename L::value) {
            const auto a = L::number(left), b = L::number(right);
            products = L::multiply_add(a, b, products);
            left_squares = L::multiply_add(a, a, left_squares);
            right_squares = L::multiply_add(b, b, right_squares);
        }
        template <class V>
        [[gnu::always_inline]] void step(V left, V right, typename L::value, typename L::mask m) {
            const auto a = L::number(left), b = L::number(right);
            products = L::multiply_add(a, b, products, m);
            left_squares = L::multiply_add(a, a, left_squares, m);
            right_squares = L::multiply_add(b, b, right_squares, m);
        }
        [[gnu::always_inline]] void add_to(totals &t) const {
            t.products += L::sum(products);
            t.left_squares += L::sum(left_squares);
            t.right_squares += L::sum(right_squares);
        }
        [[gnu::always_inline]] static void add_all(totals &t, const accumulator (&of)[3]) {
            const typename L::value lanes[8] = {of[1].products,      of[2].products,     of[0].products,
                                                of[1].left_squares,  of[2].left_squares, of[0].left_squares,
                                                of[1].right_squares, of[2].right_squares};
            double sum[8];
            L::sums(lanes, sum);
            t.products += sum[0], t.products += sum[1], t.products += sum[2];
            t.left_squares += sum[3], t.left_squares += sum[4], t.left_squares += sum[5];
            t.right_squares += sum[6], t.right_squares += sum[7], t.right_squares += L::sum(of[0].right_squares);
        }
    };
    [[gnu::always_inline]] static double result(const totals &t, ub4 metric) {
        return cosine_result(t.products, t.left_squares, t.right_squares, metric);
    }
};

struct manhattan {
    static constexpr bool skips_unmatched = false;
    struct totals {
        double sum;
    };
    template <class T>
    [[gnu::always_inline]] static void pair(totals &t, T a, T b, T) {
        t.sum += static_cast<double>(absolute(b - a));
    }
    template <class T>
    [[gnu::always_inline]] static void left(totals &t, T a, T) {
        t.sum += static_cast<double>(absolute(a));
    }
    template <class T>
    [[gnu::always_inline]] static void right(totals &t, T b, T) {
        t.sum += static_cast<double>(absolute(b));
    }
    template <class L>
    struct accumulator {
        typename L::value sum;
        [[gnu::always_inline]] void clear() { sum = L::zero(); }
        template <class V>
        [[gnu::always_inline]] void step(V a, V b, typename L::value) {
            sum = L::add(sum, L::absolute(L::difference(a, b)));
        }
        template <class V>
        [[gnu::always_inline]] void step(V a, V b, typename L::value, typename L::mask m) {
            sum = L::add(sum, L::absolute(L::difference(a, b)), m);
        }
        [[gnu::always_inline]] void add_to(totals &t) const { t.sum += L::sum(sum); }
        template <unsigned N>
        [[gnu::always_inline]] static void add_all(totals &t, const accumulator (&of)[N]) {
            add_in_order<L>(t.sum, of);
        }
    };
    [[gnu::always_inline]] static double result(const totals &t, ub4) { return t.sum; }
};

// Two tests, each part of its members' results: in lanes a difference of the threshold counts, one by one it has to be
// above. NaN counts in neither.
struct hamming {
    static constexpr bool skips_unmatched = false;
    struct totals {
        ub4 count;
    };
    template <class T>
    [[gnu::always_inline]] static void left(totals &t, T a, T threshold) {
        t.count += a > threshold || a < -threshold;
    }
    template <class T>
    [[gnu::always_inline]] static void right(totals &t, T b, T threshold) {
        left(t, b, threshold);
    }
    template <class T>
    [[gnu::always_inline]] static void pair(totals &t, T a, T b, T threshold) {
        left(t, static_cast<T>(b - a), threshold);
    }
    template <class L>
    struct accumulator {
        __m512i counts;
        [[gnu::always_inline]] void clear() { counts = _mm512_setzero_si512(); }
        template <class V>
        [[gnu::always_inline]] void step(V a, V b, typename L::value threshold) {
            step(a, b, threshold, L::all);
        }
        template <class V>
        [[gnu::always_inline]] void step(V a, V b, typename L::value threshold, typename L::mask m) {
            counts = L::count_reached(counts, threshold, L::absolute(L::difference(a, b)), m);
        }
        [[gnu::always_inline]] void add_to(totals &t) const {
            if constexpr (L::count == 16)
                t.count += static_cast<ub4>(_mm512_reduce_add_epi32(counts));
            else
                t.count += static_cast<ub4>(_mm512_reduce_add_epi64(counts));
        }
        template <unsigned N>
        [[gnu::always_inline]] static void add_all(totals &t, accumulator (&of)[N]) {
#pragma GCC unroll 8
            for (unsigned k = 1; k < N; k++) {
                if constexpr (L::count == 16)
                    of[0].counts = _mm512_add_epi32(of[0].counts, of[k].counts);
                else
                    of[0].counts = _mm512_add_epi64(of[0].counts, of[k].counts);
            }
            of[0].add_to(t);
        }
    };
    [[gnu::always_inline]] static double result(const totals &t, ub4) { return static_cast<double>(t.count); }
};

} // namespace tavo::vector
