#include "tests/vector/distance_model.h"

#include <cmath>

namespace tavo::test {
namespace {

enum family { euclid, cosine, dotprod, manhattan, hamming, jaccard };
constexpr family family_of[] = {euclid,  euclid,    euclid,  cosine,  cosine, dotprod,
                                dotprod, manhattan, hamming, jaccard, jaccard};

struct sums {
    double d = 0, p = 0, q = 0; // p and q: cosine's squares
};

double root(double v) { return v < 0 ? 0 : std::sqrt(v); }

double finish(ub4 metric, const sums &s) {
    switch (family_of[metric]) {
    case euclid: return metric == 1 ? root(s.d) : s.d;
    case cosine: {
        const double c = s.d / (root(s.p) * root(s.q));
        return metric == 4 ? 1.0 - c : c;
    }
    case dotprod: return metric == 6 ? -s.d : s.d;
    default: return s.d;
    }
}

double threshold_of(ub4 a, ub4 b) {
    const auto has = [&](ub4 t) { return a == t || b == t; };
    if (has(TAVO_ELEM_BFLOAT16))
        return 0.001954;
    if (has(TAVO_ELEM_FLOAT16))
        return std::ldexp(1, -9);
    if (has(TAVO_ELEM_FLOAT))
        return std::ldexp(1, -23);
    return has(TAVO_ELEM_DOUBLE) ? std::ldexp(1, -52) : 0;
}

// ---- One by one ----

struct term {
    family f;
    bool wide;
    double threshold;

    void square(double &s, double x) const { product(s, x, x); }
    void product(double &s, double x, double y) const {
        if (wide)
            s = std::fma(x, y, s);
        else
            s = s + static_cast<double>(static_cast<float>(x) * static_cast<float>(y));
    }
    double difference(double a, double b) const {
        return wide ? b - a : static_cast<double>(static_cast<float>(b) - static_cast<float>(a));
    }
    void exceeds(double &s, double x) const {
        const double t = wide ? threshold : static_cast<double>(static_cast<float>(threshold));
        s += x > t || x < -t;
    }
    void pair(sums &s, double a, double b) const {
        switch (f) {
        case euclid: square(s.d, difference(a, b)); break;
        case cosine:
            square(s.p, a);
            square(s.q, b);
            [[fallthrough]];
        case dotprod: product(s.d, a, b); break;
        case manhattan: s.d += std::fabs(difference(a, b)); break;
        default: exceeds(s.d, difference(a, b));
        }
    }
    void alone(sums &s, double x, bool left) const {
        switch (f) {
        case euclid: square(s.d, x); break;
        case cosine: square(left ? s.p : s.q, x); break;
        case dotprod: break;
        case manhattan: s.d += std::fabs(x); break;
        default: exceeds(s.d, x);
        }
    }
};

// ---- In lanes of T ----

template <class T>
double halve(const T *lanes, unsigned n) {
    T v[16];
    for (unsigned i = 0; i < n; i++)
        v[i] = lanes[i];
    for (unsigned h = n / 2; h > 0; h /= 2)
        for (unsigned i = 0; i < h; i++)
            v[i] = v[i] + v[i + h];
    return static_cast<double>(v[0]);
}

template <class T>
sums in_lanes(family f, const std::vector<double> &a, const std::vector<double> &b, unsigned registers, T threshold) {
    constexpr unsigned lanes = 64 / sizeof(T);
    T acc[3][8][16] = {}; // products or the one sum; left squares; right squares
    const std::size_t block = registers * lanes, main = a.size() / block * block;
    sums s;
    for (std::size_t i = 0; i < a.size(); i++) {
        const unsigned k = i < main ? static_cast<unsigned>(i / lanes % registers) : 0;
        const unsigned lane = i % lanes;
        const T x = static_cast<T>(a[i]), y = static_cast<T>(b[i]), d = y - x;
        T &sum = acc[0][k][lane];
        switch (f) {
        case euclid: sum = std::fma(d, d, sum); break;
        case cosine:
            acc[1][k][lane] = std::fma(x, x, acc[1][k][lane]);
            acc[2][k][lane] = std::fma(y, y, acc[2][k][lane]);
            [[fallthrough]];
        case dotprod: sum = std::fma(x, y, sum); break;
        case manhattan: sum = sum + std::fabs(d); break;
        default: s.d += threshold <= std::fabs(d);
        }
    }
    if (f == hamming)
        return s;
    double *const totals[3] = {&s.d, &s.p, &s.q};
    for (int set = 0; set < 3; set++) {
        if (main != 0)
            for (unsigned k = 1; k < registers; k++)
                *totals[set] += halve(acc[set][k], lanes);
        *totals[set] += halve(acc[set][0], lanes);
    }
    return s;
}

// ---- int8 with multiply-add into integers ----

sums in_integers(family f, const std::vector<double> &a, const std::vector<double> &b) {
    float acc[3][16] = {};
    for (std::size_t at = 0;;) {
        const std::size_t left = a.size() - at, take = left > 192 ? 192 : left > 64 ? 64 : left;
        long block[3][16] = {};
        for (std::size_t i = 0; i < take; i++) {
            const auto x = static_cast<long>(a[at + i]), y = static_cast<long>(b[at + i]);
            const std::size_t lane = i % 32 / 2;
            block[0][lane] += f == euclid ? (y - x) * (y - x) : x * y;
            block[1][lane] += x * x;
            block[2][lane] += y * y;
        }
        for (int set = 0; set < 3; set++)
            for (int lane = 0; lane < 16; lane++)
                acc[set][lane] += static_cast<float>(block[set][lane]);
        at += take;
        if (left <= 64)
            break;
    }
    return {halve(acc[0], 16), halve(acc[1], 16), halve(acc[2], 16)};
}

// ---- Bits ----

double of_counts(ub4 metric, double left, double right, double both) {
    switch (family_of[metric]) {
    case cosine: return finish(metric, {both, left, right});
    case dotprod: return metric == 6 && both != 0 ? -both : both;
    case jaccard: return metric == 10 ? 1.0 - both / (left + right - both) : both / (left + right - both);
    default: return finish(metric, {left + right - 2 * both, 0, 0});
    }
}

std::vector<double> numbers_of(const plain_vector &v, const vector_form &form) {
    std::vector<double> out;
    for (ub8 e : v.elements)
        out.push_back(number_of(v.type, form.comparable ? through_comparable(v.type, e) : e));
    return out;
}

} // namespace

double model_distance(ub4 metric, const plain_vector &left_vector, const vector_form &left,
                      const plain_vector &right_vector, const vector_form &right, bool with_vnni) {
    const family f = family_of[metric];
    const std::vector<double> a = numbers_of(left_vector, left), b = numbers_of(right_vector, right);
    const bool wide = left.type == TAVO_ELEM_DOUBLE || right.type == TAVO_ELEM_DOUBLE;
    const term t{f, wide, threshold_of(left.type, right.type)};
    sums s;
    if (left.sparse) {
        const auto &l = left_vector.at, &r = right_vector.at;
        std::size_t i = 0, j = 0, left_flushed = 0, right_flushed = 0;
        double both = 0;
        const auto flush = [&](std::size_t to_left, std::size_t to_right) {
            for (; left_flushed < to_left; left_flushed++)
                t.alone(s, a[left_flushed], true);
            for (; right_flushed < to_right; right_flushed++)
                t.alone(s, b[right_flushed], false);
        };
        while (i < l.size() && j < r.size())
            if (l[i] == r[j]) {
                both++;
                t.pair(s, a[i], b[j]);
                flush(i, j);
                left_flushed = ++i;
                right_flushed = ++j;
            } else if (l[i] < r[j]) {
                i++;
            } else {
                j++;
            }
        flush(l.size(), r.size());
        if (left.type == TAVO_ELEM_BITMSB0)
            return of_counts(metric, static_cast<double>(l.size()), static_cast<double>(r.size()), both);
        return finish(metric, s);
    }
    if (left.type == TAVO_ELEM_BITMSB0) {
        double ones[3] = {};
        for (std::size_t i = 0; i < a.size(); i++)
            ones[0] += a[i], ones[1] += b[i], ones[2] += a[i] * b[i];
        return of_counts(metric, ones[0], ones[1], ones[2]);
    }
    if (left.type != right.type || (left.type == TAVO_ELEM_INT8 && f >= manhattan)) {
        for (std::size_t i = 0; i < a.size(); i++)
            t.pair(s, a[i], b[i]);
        return finish(metric, s);
    }
    const unsigned registers = f == cosine || left.type == TAVO_ELEM_INT8 ? 3 : 8;
    if (left.type == TAVO_ELEM_INT8 && with_vnni)
        return finish(metric, in_integers(f, a, b));
    if (wide)
        return finish(metric, in_lanes<double>(f, a, b, registers, t.threshold));
    return finish(metric, in_lanes<float>(f, a, b, registers, static_cast<float>(t.threshold)));
}

} // namespace tavo::test
