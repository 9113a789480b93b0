// Conversion of numbers in both directions, sums of columns and cumulative lengths, against their plain meaning.
#include <gtest/gtest.h>

#include "frame/tavo.h"
#include "rows/convert_operations.h"
#include "tests/kit/codes.h"
#include "tests/kit/compressed_column.h"
#include "tests/kit/host_stub.h"
#include "tests/kit/numbers.h"

namespace tavo::test {
namespace {

const tavo_specialized_ctx &library = tavo_global_specialized_ctx;

// An element type by its bits: which magnitudes count as NaN, and what every one of them is stored as.
struct element_type {
    ub1 value_type;
    unsigned bytes;
    ub8 sign, first_nan, stored_nan;
};
const element_type types[] = {
    {TAVO_VALUE_FLOAT, 4, 0x80000000, 0x7f800001, 0xffc00000},
    {TAVO_VALUE_DOUBLE, 8, 0x8000000000000000, 0x7ff0000000000001, 0xfff8000000000000},
    {TAVO_VALUE_FLOAT16, 2, 0x8000, 0x7e01, 0xfe00}, // NaNs up to 0x7e00 are numbers like others
    {TAVO_VALUE_BFLOAT16, 2, 0x8000, 0x7f81, 0xffc0},
};

ub8 mask_of(const element_type &t) { return t.sign | (t.sign - 1); }

// Bits as numbers in the processor's order.
ub8 stored_bits(const element_type &t, ub8 native) {
    if ((native & ~t.sign) >= t.first_nan)
        return t.stored_nan;
    if (native == t.sign)
        return t.sign;
    return native & t.sign ? ~native & mask_of(t) : native + t.sign;
}
ub8 native_bits(const element_type &t, ub8 stored) { return stored & t.sign ? stored - t.sign : ~stored & mask_of(t); }

ub8 sample_bits(const element_type &t, std::mt19937_64 &rng) {
    const ub8 edges[] = {0, 1, t.first_nan - 2, t.first_nan - 1, t.first_nan, t.first_nan + 1, t.sign - 1};
    const ub8 sign = rng() & 1 ? t.sign : 0;
    return rng() % 3 == 0 ? sign | edges[rng() % std::size(edges)] : rng() & mask_of(t);
}

TEST(convert, both_directions) {
    std::mt19937_64 rng(8301);
    for (const element_type &t : types)
        for (bool from_native : {false, true})
            for (ub4 rows : boundary_sizes())
                for (bool in_place : {false, true}) {
                    const bool shift = rng() % 2;
                    const guarded data(rows * t.bytes + shift), out(rows * t.bytes + shift);
                    std::vector<ub8> expected(rows);
                    for (ub4 i = 0; i < rows; i++) {
                        const ub8 bits = sample_bits(t, rng);
                        ub1 *p = data.data() + i * t.bytes;
                        if (from_native) {
                            std::memcpy(p, &bits, t.bytes);
                            expected[i] = stored_bits(t, bits);
                        } else {
                            store_big_endian(p, bits, t.bytes);
                            expected[i] = native_bits(t, bits);
                        }
                    }
                    tavo_enc_ctx enc{};
                    enc.value_type = t.value_type;
                    enc.flags = from_native ? TAVO_NATIVE : 0;
                    tavo_env env{};
                    tavo_vec src{}, dst{};
                    src.data = data.data();
                    src.enc = &enc;
                    src.size = rows;
                    dst.data = in_place ? data.data() : out.data();
                    ASSERT_EQ(library.convert(&dst, &src, rng() % 2 ? &env : nullptr), TAVO_DONE);
                    for (ub4 i = 0; i < rows; i++) {
                        ub1 wanted[8];
                        if (from_native)
                            store_big_endian(wanted, expected[i], t.bytes);
                        else
                            std::memcpy(wanted, &expected[i], t.bytes);
                        ASSERT_EQ(std::memcmp(static_cast<ub1 *>(dst.data) + i * t.bytes, wanted, t.bytes), 0)
                            << "type " << int{t.value_type} << ", native " << from_native << ", row " << i << " of "
                            << rows << ": wanted " << std::hex << expected[i];
                    }
                }
}

template <class T>
void hold_float_sums(ub1 value_type) {
    std::mt19937_64 rng(8302);
    for (ub4 rows : boundary_sizes())
        for (sample kind : {sample::rounding, sample::special}) {
            const auto values = random_numbers<T>(rows, kind, rng);
            const stored_numbers<T> data(values, true, rng() % 2);
            T sum = static_cast<T>(-3.25);
            const T expected = sum + lane_order_sum(values, 64 / sizeof(T));
            tavo_enc_ctx enc{};
            enc.value_type = value_type;
            tavo_env env{};
            env.flags = TAVO_ENV_SUM | TAVO_ENV_MULTIPLY_KEYS;
            tavo_vec src{}, dst{};
            src.data = data.data();
            src.enc = &enc;
            src.size = rows;
            dst.data = &sum;
            ASSERT_EQ(library.convert(&dst, &src, &env), TAVO_DONE);
            ASSERT_TRUE(same_number(sum, expected)) << rows << " rows: " << sum << " instead of " << expected;
        }
}
TEST(convert, sums_of_floats) {
    hold_float_sums<float>(TAVO_VALUE_FLOAT);
    hold_float_sums<double>(TAVO_VALUE_DOUBLE);
}

TEST(convert, sums_of_integers) {
    std::mt19937_64 rng(8303);
    for (unsigned bytes : {1u, 2u, 4u, 8u})
        for (bool native : {false, true})
            for (ub4 rows : boundary_sizes()) {
                const guarded data(rows * bytes);
                ub8 expected = rng(), sum = expected;
                for (ub4 i = 0; i < rows; i++) {
                    const ub8 v = rng();
                    expected += static_cast<ub8>(static_cast<sb8>(v << (64 - 8 * bytes)) >> (64 - 8 * bytes));
                    if (native)
                        std::memcpy(data.data() + i * bytes, &v, bytes);
                    else
                        store_big_endian(data.data() + i * bytes, v, bytes);
                }
                tavo_enc_ctx enc{};
                enc.value_type = TAVO_VALUE_INTEGER;
                enc.width_bits = 8 * bytes;
                enc.flags = native ? TAVO_NATIVE : 0;
                tavo_env env{};
                env.flags = TAVO_ENV_SUM;
                tavo_vec src{}, dst{};
                src.data = data.data();
                src.enc = &enc;
                src.size = rows;
                dst.data = &sum;
                ASSERT_EQ(library.convert(&dst, &src, &env), TAVO_DONE);
                ASSERT_EQ(sum, expected) << bytes << " bytes, native " << native << ", " << rows << " rows";
            }
}

ub4 status_of(ub1 value_type, bool native, bool sum, ub4 width_bits = 32) {
    static ub1 data[256], out[256];
    std::memset(out, 0x77, sizeof out);
    tavo_enc_ctx enc{};
    enc.value_type = value_type;
    enc.flags = native ? TAVO_NATIVE : 0;
    enc.width_bits = width_bits;
    tavo_env env{};
    env.flags = sum ? TAVO_ENV_SUM : 0;
    tavo_vec src{}, dst{};
    src.data = data;
    src.enc = &enc;
    src.size = 16;
    dst.data = out;
    const ub4 status = library.convert(&dst, &src, &env);
    if (status != TAVO_DONE) {
        EXPECT_EQ(std::count(out, out + sizeof out, 0x77), 256) << "type " << int{value_type};
    }
    return status;
}

TEST(convert, what_is_refused) {
    for (int type = 0; type < 256; type++) {
        const auto t = static_cast<ub1>(type);
        const bool floats = t == TAVO_VALUE_FLOAT || t == TAVO_VALUE_DOUBLE, integer = t == TAVO_VALUE_INTEGER;
        const bool converts = floats || t == TAVO_VALUE_FLOAT16 || t == TAVO_VALUE_BFLOAT16;
        EXPECT_EQ(status_of(t, false, true), floats || integer ? TAVO_DONE : TAVO_BAD_INPUT) << type;
        EXPECT_EQ(status_of(t, true, true), integer ? TAVO_DONE : TAVO_BAD_INPUT) << type;
        for (bool native : {false, true})
            if (!integer) {
                EXPECT_EQ(status_of(t, native, false), converts ? TAVO_DONE : TAVO_BAD_INPUT) << type;
            }
    }
}

TEST(convertDeathTest, integers_without_a_sum) {
    for (bool native : {false, true})
        EXPECT_DEATH(status_of(TAVO_VALUE_INTEGER, native, false), "tavoc_avx512g:[0-9]+: .*Assertion `FALSE' failed");
}

TEST(convert, compressed_column) {
    std::vector<ub1> plain(8000);
    for (ub4 i = 0; i < 1000; i++)
        store_number(plain.data() + 8 * i, i % 5 * 0.25, true);
    compressed_column col(plain, 1000);
    col.enc.value_type = TAVO_VALUE_DOUBLE;
    tavo_vec dst{};
    std::vector<double> out(1000);
    dst.data = out.data();
    EXPECT_EQ(library.convert(&dst, &col.vec, &col.env), TAVO_DONE);
    for (ub4 i = 0; i < 1000; i++)
        ASSERT_EQ(out[i], i % 5 * 0.25);
    ASSERT_EQ(col.host.allocations.size(), 1u);
    EXPECT_EQ(col.host.allocations[0].label, "tavo_convert_dydi: vec1_decomp");
}

template <class Length, class Build>
void hold_cumulative_lengths(Build *build) {
    std::mt19937_64 rng(8304);
    for (ub4 n : boundary_sizes())
        for (ub4 room : {n + 1, n + 5}) {
            const guarded lengths(n * sizeof(Length)), out((n + 1) * 4);
            for (ub4 i = 0; i < n; i++)
                lengths.as<Length>()[i] = static_cast<Length>(rng() % 4 == 0 ? ~0u : rng());
            ASSERT_EQ(build(out.as<ub4>(), room, lengths.as<Length>(), n), n + 1);
            ub4 sum = 0;
            for (ub4 i = 0; i <= n; i++) {
                ub1 wanted[4];
                store_big_endian(wanted, sum, 4);
                ASSERT_EQ(std::memcmp(out.data() + 4 * i, wanted, 4), 0) << "entry " << i << " of " << n;
                if (i < n)
                    sum += lengths.as<Length>()[i];
            }
        }
    ub4 res[4];
    const Length four[4] = {};
    EXPECT_DEATH(build(res, 4, four, 4), "tavoc_avx512g:[0-9]+: .*Assertion `res_len >= \\(src_len \\+ 1\\)' failed");
}
TEST(build_claDeathTest, lengths_of_one_byte) { hold_cumulative_lengths<ub1>(tavo_build_cla_1_ub1); }
TEST(build_claDeathTest, lengths_of_two_bytes) { hold_cumulative_lengths<ub2>(tavo_build_cla_1_ub2); }

} // namespace
} // namespace tavo::test
