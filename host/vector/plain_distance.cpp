// Distances by the textbook, in double precision, and the error bound of the kernels' arithmetic: what --check compares
// with. Nothing here comes from the kernels.
#include <cfloat>
#include <cmath>

#include "host/vector/nearest.h"

namespace host {

namespace {

// A sum, and how far off a kernel's may be.
struct bounded {
    double value, error;
};

// The arithmetic of a pair of types: binary64 where one side is double; whole numbers of bits; else binary32, in which
// at least the products and differences are rounded, and mostly the sums too.
struct arithmetic {
    double unit;  // half a last place
    double least; // absolute error of one product, where it underflows
    double most;  // what a sum may not reach

    // Of n terms, of which each is rounded up to three times and then added up: see Higham, Accuracy and Stability of
    // Numerical Algorithms, 4.2. Where sums are kept in binary32 there are sixteen of them side by side, and what is
    // left between blocks and behind them takes a dozen further steps; binary64 may be added up one by one. `sizes` is
    // the sum of the terms' sizes.
    bounded sum(double value, double sizes, std::size_t n) const {
        const double terms = static_cast<double>(n), steps = unit == 0x1p-24 ? terms / 16 + 16 : terms + 8;
        const double own = (terms + 8) * 0x1p-53; // of the plain sum
        if (sizes >= most)
            return {value, INFINITY};
        return {value, unit == 0 ? 0 : 1.01 * (steps * unit * sizes + terms * least) + own * sizes};
    }
};

arithmetic arithmetic_of(element_type a, element_type b) {
    if (a == element_type::bits)
        return {0, 0, INFINITY};
    if (a == element_type::double_ || b == element_type::double_)
        return {0x1p-53, 0x1p-1074, DBL_MAX / 2};
    return {0x1p-24, 0x1p-149, static_cast<double>(FLT_MAX) / 2};
}

constexpr double last_steps = 0x1p-50; // relative, of a few operations on doubles

plain_result root(const bounded &s) {
    const double value = std::sqrt(s.value);
    const double low = std::sqrt(std::max(s.value - s.error, 0.0));
    const double high = std::sqrt(s.value + s.error);
    return {value, std::max(high - value, value - low) + last_steps * value};
}

plain_result cosine(const bounded &d, const bounded &p, const bounded &q) {
    const double norms = std::sqrt(p.value) * std::sqrt(q.value);
    const double value = d.value / norms;
    if (norms == 0 || std::isnan(value))
        return {NAN, 0};
    const double least_norms =
        std::sqrt(std::max(p.value - p.error, 0.0)) * std::sqrt(std::max(q.value - q.error, 0.0));
    if (least_norms == 0)
        return {1 - value, INFINITY};
    return {1 - value, (std::fabs(d.value) + d.error) / least_norms - std::fabs(value) + 4 * last_steps};
}

// When elements of floating types count as different.
double hamming_threshold(element_type a, element_type b) {
    for (const auto &[type, threshold] : {std::pair(element_type::bfloat16, 0.001954),
                                          {element_type::float16, 0x1p-9},
                                          {element_type::float_, 0x1p-23},
                                          {element_type::double_, 0x1p-52}})
        if (a == type || b == type)
            return threshold;
    return 0;
}

bool differs(const vector_form &a_form, double a, const vector_form &b_form, double b) {
    if (a_form.type == b_form.type && (a_form.type == element_type::int8 || a_form.type == element_type::bits))
        return a != b;
    const bool wide = a_form.type == element_type::double_ || b_form.type == element_type::double_;
    double threshold = hamming_threshold(a_form.type, b_form.type);
    double difference = b - a;
    if (!wide) { // thresholds are met exactly, so the difference is rounded as there
        threshold = static_cast<float>(threshold);
        difference = static_cast<float>(b) - static_cast<float>(a);
    }
    // Dense vectors of one type differ at the threshold, others beyond it.
    const bool at = a_form.type == b_form.type && !a_form.sparse;
    return at ? std::fabs(difference) >= threshold : std::fabs(difference) > threshold;
}

} // namespace

plain_result plain_distance(tavo_metric metric, const vector_form &a_form, std::span<const double> a,
                            const vector_form &b_form, std::span<const double> b) {
    const arithmetic by = arithmetic_of(a_form.type, b_form.type);
    const std::size_t n = a.size();
    double squares = 0, sizes = 0, dot = 0, dot_sizes = 0, p = 0, q = 0;
    ub4 different = 0, in_both = 0, in_either = 0;
    for (std::size_t i = 0; i < n; i++) {
        const double difference = b[i] - a[i], product = a[i] * b[i];
        squares += difference * difference;
        sizes += std::fabs(difference);
        dot += product;
        dot_sizes += std::fabs(product);
        p += a[i] * a[i];
        q += b[i] * b[i];
        in_both += a[i] != 0 && b[i] != 0;
        in_either += a[i] != 0 || b[i] != 0;
        different += metric == tavo_metric_hamming && differs(a_form, a[i], b_form, b[i]);
    }
    const auto plain = [](const bounded &s) { return plain_result{s.value, s.error}; };
    switch (metric) {
    case tavo_metric_euclid: return root(by.sum(squares, squares, n));
    case tavo_metric_euclid_squared: return plain(by.sum(squares, squares, n));
    case tavo_metric_dotprod: return plain(by.sum(dot, dot_sizes, n));
    case tavo_metric_dotprod_negated: return plain(by.sum(-dot, dot_sizes, n));
    case tavo_metric_manhattan: return plain(by.sum(sizes, sizes, n));
    case tavo_metric_hamming: return {static_cast<double>(different), 0};
    case tavo_metric_cosine_distance: return cosine(by.sum(dot, dot_sizes, n), by.sum(p, p, n), by.sum(q, q, n));
    case tavo_metric_cosine_similarity: {
        const plain_result distance = cosine(by.sum(dot, dot_sizes, n), by.sum(p, p, n), by.sum(q, q, n));
        return {dot / (std::sqrt(p) * std::sqrt(q)), distance.bound};
    }
    case tavo_metric_jaccard_similarity:
    case tavo_metric_jaccard_distance: break;
    }
    const double similarity = static_cast<double>(in_both) / in_either;
    return {metric == tavo_metric_jaccard_distance ? 1 - similarity : similarity, last_steps};
}

} // namespace host
