// The comparable form: lanes against single numbers, and both against what the form is for.
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "frame/comparable.h"

namespace tavo::test {
namespace {

template <class Number>
class Comparable : public testing::Test {};
using numbers = testing::Types<f32, f64, f16, bf16>;
TYPED_TEST_SUITE(Comparable, numbers);

double value(f32, ub4 bits) { return std::bit_cast<float>(bits); }
double value(f64, ub8 bits) { return std::bit_cast<double>(bits); }
double value(bf16, ub2 bits) { return std::bit_cast<float>(static_cast<ub4>(bits) << 16); }
double value(f16, ub2 bits) { return _mm_cvtss_f32(_mm_cvtph_ps(_mm_cvtsi32_si128(bits))); }

template <class Number>
std::vector<typename Number::bits> samples() {
    using bits = typename Number::bits;
    std::vector<bits> out;
    std::mt19937_64 rng(9101);
    for (int i = 0; i < 20000; i++)
        out.push_back(static_cast<bits>(rng()));
    const bits edges[] = {0,
                          1,
                          2,
                          Number::first_nan - 2,
                          Number::first_nan - 1,
                          Number::first_nan,
                          Number::first_nan + 1,
                          static_cast<bits>(~Number::sign)};
    for (bits e : edges) {
        out.push_back(e);
        out.push_back(e | Number::sign);
    }
    return out;
}

// Smaller bytes, smaller number; equal numbers, equal bytes; NaN above all; back to the same bits but for -0.0 and NaN.
TYPED_TEST(Comparable, BytesAreOrderedAsNumbers) {
    using bits = typename TypeParam::bits;
    std::mt19937_64 rng(9102);
    const std::vector<bits> all = samples<TypeParam>();
    for (int i = 0; i < 200000; i++) {
        const bits a = all[rng() % all.size()], b = all[rng() % all.size()];
        ub1 x[8] = {}, y[8] = {};
        store_comparable<TypeParam>(x, a);
        store_comparable<TypeParam>(y, b);
        const int order = std::memcmp(x, y, sizeof(bits));
        const double u = value(TypeParam{}, a), v = value(TypeParam{}, b);
        if (std::isnan(u)) {
            // float16 leaves the NaNs below its limit as they are.
            if (static_cast<bits>(a & ~TypeParam::sign) >= TypeParam::first_nan) {
                bits stored;
                std::memcpy(&stored, x, sizeof stored);
                ASSERT_EQ(reversed_bytes(stored), TypeParam::comparable_nan);
                ASSERT_TRUE(order >= 0 || (std::isnan(v) && sizeof(bits) == 2));
            }
            continue;
        }
        if (std::isnan(v))
            continue;
        ASSERT_EQ(order < 0, u < v) << u << " " << v;
        ASSERT_EQ(order == 0, u == v) << u << " " << v;
        const bits back = load_comparable<TypeParam>(x);
        ASSERT_EQ(back, u == 0 ? 0 : a);
    }
}

TYPED_TEST(Comparable, LanesAgreeWithSingleNumbers) {
    using bits = typename TypeParam::bits;
    std::vector<bits> all = samples<TypeParam>();
    constexpr std::size_t lanes = 64 / sizeof(bits);
    all.resize(all.size() / lanes * lanes);
    std::reverse(all.begin(), all.end()); // the edges too
    for (std::size_t i = 0; i < all.size(); i += lanes) {
        bits encoded[lanes], decoded[lanes], half[16];
        _mm512_storeu_si512(encoded, encode_comparable<TypeParam>(_mm512_loadu_si512(&all[i])));
        _mm512_storeu_si512(decoded, decode_comparable<TypeParam>(_mm512_loadu_si512(&all[i])));
        if constexpr (sizeof(bits) == 2)
            _mm256_storeu_si256(reinterpret_cast<__m256i *>(half), decode_comparable<TypeParam>(_mm256_loadu_si256(
                                                                       reinterpret_cast<const __m256i *>(&all[i]))));
        for (std::size_t k = 0; k < lanes; k++) {
            bits one;
            store_comparable<TypeParam>(&one, all[i + k]);
            ASSERT_EQ(encoded[k], one) << all[i + k];
            ASSERT_EQ(decoded[k], load_comparable<TypeParam>(&all[i + k]));
            if (sizeof(bits) == 2 && k < 16) {
                ASSERT_EQ(half[k], decoded[k]);
            }
        }
    }
}

} // namespace
} // namespace tavo::test
