#include "tests/vector/vectors.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <set>

namespace tavo::test {

unsigned element_bytes(ub4 type) {
    switch (type) {
    case TAVO_ELEM_FLOAT: return 4;
    case TAVO_ELEM_DOUBLE: return 8;
    case TAVO_ELEM_INT8: return 1;
    case TAVO_ELEM_BITMSB0: return 0;
    default: return 2;
    }
}

ub8 bits_of(ub4 type, double v) {
    switch (type) {
    case TAVO_ELEM_FLOAT: return std::bit_cast<ub4>(static_cast<float>(v));
    case TAVO_ELEM_DOUBLE: return std::bit_cast<ub8>(v);
    case TAVO_ELEM_INT8: return static_cast<ub1>(static_cast<signed char>(std::clamp(std::nearbyint(v), -128., 127.)));
    case TAVO_ELEM_BITMSB0: return v != 0;
    case TAVO_ELEM_BFLOAT16: {
        const ub4 u = std::bit_cast<ub4>(static_cast<float>(v));
        return std::isnan(v) ? 0x7fc0 : (u + 0x7fff + (u >> 16 & 1)) >> 16;
    }
    default: { // float16: ten bits of mantissa, exponents -14 to 15, below that multiples of 2^-24
        const ub8 sign = std::signbit(v) ? 0x8000 : 0;
        const double a = std::fabs(v);
        if (std::isnan(v))
            return 0x7e00;
        if (a >= 65520)
            return sign | 0x7c00;
        if (a < 0x1p-14)
            return sign | static_cast<ub8>(std::nearbyint(a * 0x1p24));
        const int e = std::ilogb(a);
        return sign | ((static_cast<ub8>(e + 14) << 10) + static_cast<ub8>(std::nearbyint(std::ldexp(a, 10 - e))));
    }
    }
}

double number_of(ub4 type, ub8 bits) {
    switch (type) {
    case TAVO_ELEM_FLOAT: return std::bit_cast<float>(static_cast<ub4>(bits));
    case TAVO_ELEM_DOUBLE: return std::bit_cast<double>(bits);
    case TAVO_ELEM_INT8: return static_cast<signed char>(bits);
    case TAVO_ELEM_BITMSB0: return static_cast<double>(bits);
    case TAVO_ELEM_BFLOAT16: return std::bit_cast<float>(static_cast<ub4>(bits) << 16);
    default: {
        const int e = static_cast<int>(bits >> 10 & 31);
        const double m = static_cast<double>(bits & 1023);
        const double a = e == 31  ? (m != 0 ? std::numeric_limits<double>::quiet_NaN() : HUGE_VAL)
                         : e == 0 ? m * 0x1p-24
                                  : std::ldexp(1024 + m, e - 25);
        return bits & 0x8000 ? -a : a;
    }
    }
}

namespace {

// Comparable bits, before their bytes are reversed.
ub8 comparable(ub4 type, ub8 bits) {
    const double v = number_of(type, bits);
    const ub8 sign = 1ull << (8 * element_bytes(type) - 1);
    if (std::isnan(v))
        switch (type) {
        case TAVO_ELEM_FLOAT: return 0xffc00000;
        case TAVO_ELEM_DOUBLE: return 0xfff8000000000000;
        case TAVO_ELEM_FLOAT16: return 0xfe00;
        default: return 0xffc0;
        }
    if (v == 0)
        return sign;
    return v < 0 ? ~bits & (sign | (sign - 1)) : bits | sign;
}

} // namespace

ub8 through_comparable(ub4 type, ub8 bits) {
    if (type == TAVO_ELEM_INT8 || type == TAVO_ELEM_BITMSB0)
        return bits;
    const double v = number_of(type, bits);
    return std::isnan(v) ? bits_of(type, std::numeric_limits<double>::quiet_NaN()) : v == 0 ? 0 : bits;
}

ub8 random_element(ub4 type, content kind, std::mt19937_64 &rng) {
    const auto pick = [&](std::initializer_list<double> of) { return bits_of(type, of.begin()[rng() % of.size()]); };
    if (type == TAVO_ELEM_BITMSB0)
        return kind != content::zero && rng() % 2;
    if (kind == content::zero)
        return 0;
    if (type == TAVO_ELEM_INT8 && kind != content::threshold)
        return rng() % 256;
    if (kind == content::threshold) {
        constexpr double f = 0x1p-23, h = 0x1p-9, b = 0.001954, d = 0x1p-52;
        return pick({0,     -0.,         f,           -f,          h,           -h,
                     b,     -b,          d,           -d,          1,           1 + f,
                     1 + d, 1 + h,       1 - h,       1 + b,       0.125,       0.125 + h,
                     f + d, h + 0x1p-20, h - 0x1p-20, b + 0x1p-18, b + 0x1p-40, static_cast<double>(0.001954f),
                     2 * f, 2 * h,       -2 * d,      3,           -1,          0.125 - 0x1p-10});
    }
    if (kind == content::odd && rng() % 8 == 0)
        return pick({std::numeric_limits<double>::quiet_NaN(), HUGE_VAL, -HUGE_VAL, 0, -0., 0x1p-24, -0x1p-149,
                     0x1p-1074, 65504, 0x1.fep127, -1e300, 1e-30});
    const double v = std::normal_distribution<>(0, 1)(rng);
    return bits_of(type, std::ldexp(v, static_cast<int>(rng() % 9) - 4));
}

plain_vector random_dense(ub4 type, ub4 dims, content kind, std::mt19937_64 &rng) {
    plain_vector v{type, dims, std::vector<ub8>(dims), {}};
    for (ub8 &e : v.elements)
        e = random_element(type, kind, rng);
    return v;
}

plain_vector random_sparse(ub4 type, ub4 dims, ub4 count, content kind, std::mt19937_64 &rng) {
    std::set<ub4> at;
    while (at.size() < count)
        at.insert(static_cast<ub4>(rng() % dims) * (dims < 1000 ? 1 : 65537)); // all four bytes count
    plain_vector v{type, dims, {}, {at.begin(), at.end()}};
    for (ub4 i = 0; i < count; i++)
        v.elements.push_back(random_element(type, kind, rng));
    return v;
}

void write_payload(std::vector<ub1> &out, const plain_vector &v, const vector_form &form, unsigned address) {
    const std::size_t begin = out.size();
    const unsigned bytes = element_bytes(v.type);
    if (form.sparse) {
        const auto count = static_cast<ub4>(v.at.size());
        out.insert(out.end(), {static_cast<ub1>(count >> 8), static_cast<ub1>(count)});
        for (ub4 at : v.at)
            for (int shift : {24, 16, 8, 0})
                out.push_back(static_cast<ub1>(at >> shift));
        if (!form.comparable && bytes > 1)
            while ((address + out.size() - begin) % 8 != 0)
                out.push_back(0x99);
    }
    if (v.type == TAVO_ELEM_BITMSB0) {
        if (form.sparse)
            return;
        std::vector<ub1> packed((v.elements.size() + 7) / 8);
        for (std::size_t i = 0; i < v.elements.size(); i++)
            packed[i / 8] |= static_cast<ub1>(v.elements[i] << (7 - i % 8));
        out.insert(out.end(), packed.begin(), packed.end());
        return;
    }
    const bool reversed = form.comparable && bytes > 1;
    for (ub8 e : v.elements)
        for (unsigned i = 0; i < bytes; i++)
            out.push_back(static_cast<ub1>((reversed ? comparable(v.type, e) >> 8 * (bytes - 1 - i) : e >> 8 * i)));
}

const ub1 *guarded_payload::place(const plain_vector &v, const vector_form &form) {
    // The payload's length may depend on its address, so try out what fits, with as few bytes behind it as possible.
    for (unsigned behind = 0; behind < 8; behind++)
        for (unsigned address = 0; address < 8; address++) {
            std::vector<ub1> bytes;
            write_payload(bytes, v, form, address);
            ub1 *const at = memory_.data() + memory_.size() - bytes.size() - behind;
            if (form.sparse && reinterpret_cast<uintptr_t>(at) % 8 != address)
                continue;
            if (!bytes.empty())
                std::memcpy(at, bytes.data(), bytes.size());
            return at;
        }
    std::abort();
}

} // namespace tavo::test
