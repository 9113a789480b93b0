// Each operation on random operands and on edge ones, by both tables.
#include <gtest/gtest.h>

#include <bit>
#include <limits>
#include <random>
#include <string>

#include "tests/portable/operands.h"

namespace {

using namespace tavo::test;

// Lanes where instructions and their descriptions part: ends of ranges, counts around a lane's width, numbers that
// round, NaN with payloads, denormals, infinities, zeros of both signs.
template <class T>
T edge(std::mt19937_64 &rng) {
    const auto pick = [&](auto... of) {
        const T values[] = {static_cast<T>(of)...};
        return values[rng() % (sizeof values / sizeof *values)];
    };
    if constexpr (std::is_same_v<T, ub8>) {
        const double d[] = {0.0,
                            -0.0,
                            0.5,
                            1.5,
                            2.5,
                            -2.5,
                            1e300,
                            -1e-300,
                            4.9e-324,
                            2147483647.5,
                            -2147483648.5,
                            65504.0,
                            65520.0,
                            1.0 / 3,
                            3.4e38,
                            1e-40,
                            std::numeric_limits<double>::infinity(),
                            -std::numeric_limits<double>::infinity()};
        return rng() % 2 ? std::bit_cast<ub8>(d[rng() % std::size(d)])
                         : pick(0u, 1u, ~0ull, 1ull << 63, ~0ull >> 1, 31u, 32u, 63u, 64u, 65u, 0x7ff0000000000001ull,
                                0xfff8123456789abcull, 0x000fffffffffffffull);
    } else if constexpr (std::is_same_v<T, ub4>) {
        const float f[] = {0.0f,
                           -0.0f,
                           0.5f,
                           1.5f,
                           2.5f,
                           -2.5f,
                           65504.0f,
                           65519.0f,
                           65520.0f,
                           6e-8f,
                           2.9e-8f,
                           1e-45f,
                           2147483648.0f,
                           -2147483648.0f,
                           3.4e38f,
                           1.0f / 3,
                           std::numeric_limits<float>::infinity(),
                           -std::numeric_limits<float>::infinity()};
        return rng() % 2 ? std::bit_cast<ub4>(f[rng() % std::size(f)])
                         : pick(0u, 1u, ~0u, 1u << 31, ~0u >> 1, 15u, 16u, 31u, 32u, 33u, 0x7f800001u, 0xffc12345u,
                                0x007fffffu, 255u, 256u, 65535u, 65536u);
    } else if constexpr (std::is_same_v<T, ub2>) {
        return pick(0, 1, 0xffff, 0x8000, 0x7fff, 7, 8, 15, 16, 17, 255, 256, 0x7c00, 0xfc01, 0x03ff, 0x7bff, 0x3555);
    } else {
        return pick(0, 1, 0xff, 0x80, 0x7f, 7, 8, 15, 16, 31, 63, 64, 127);
    }
}

template <class T>
void fill_with_edges(ub1 (&vector)[64], std::mt19937_64 &rng) {
    for (unsigned i = 0; i < 64; i += sizeof(T)) {
        const T lane = edge<T>(rng);
        std::memcpy(vector + i, &lane, sizeof lane);
    }
}

operands make_operands(unsigned round, std::mt19937_64 &rng) {
    operands in;
    for (ub1 &byte : in.memory)
        byte = static_cast<ub1>(rng());
    for (auto &vector : in.vectors) {
        for (ub1 &byte : vector)
            byte = static_cast<ub1>(rng());
        switch ((round + rng()) % 8) { // lanes of each width, and every second time plain noise
        case 0: fill_with_edges<ub1>(vector, rng); break;
        case 1: fill_with_edges<ub2>(vector, rng); break;
        case 2: fill_with_edges<ub4>(vector, rng); break;
        case 3: fill_with_edges<ub8>(vector, rng); break;
        }
    }
    if (round % 5 == 0) // equal operands, for what compares
        std::memcpy(in.vectors[1], in.vectors[0], 64);
    for (sb4 &index : in.indices)
        index = static_cast<sb4>(rng() % 128) - 64;
    for (sb8 &index : in.wide_indices)
        index = static_cast<sb8>(rng() % 128) - 64;
    for (ub8 &mask : in.masks)
        mask = round % 4 == 0 ? 0 : round % 4 == 1 ? ~0ull : rng();
    for (ub8 &number : in.numbers)
        number = rng() % 4 ? rng() >> rng() % 64 : edge<ub8>(rng);
    in.count = static_cast<ub4>(rng() % 300);
    return in;
}

std::string hex(const ub1 *bytes, unsigned n) {
    std::string text;
    for (unsigned i = 0; i < n; i++) {
        constexpr const char *digits = "0123456789abcdef";
        text += {digits[bytes[i] >> 4], digits[bytes[i] & 15]};
    }
    return text;
}

TEST(Portable, DoesWhatTheInstructionsDo) {
    ASSERT_EQ(native_operation_count, portable_operation_count);
    ASSERT_GT(native_operation_count, 500u);
    std::mt19937_64 rng(20261123);
    for (unsigned i = 0; i < native_operation_count; i++) {
        ASSERT_STREQ(native_operations[i].text, portable_operations[i].text);
        for (unsigned round = 0; round < 200; round++) {
            const operands in = make_operands(round, rng);
            result expected{}, got{};
            std::memset(expected.memory, 0x5a, sizeof expected.memory);
            std::memset(got.memory, 0x5a, sizeof got.memory);
            native_operations[i].run(in, expected);
            portable_operations[i].run(in, got);
            ASSERT_EQ(expected.size, got.size) << native_operations[i].text;
            const bool same = std::memcmp(expected.value, got.value, got.size) == 0 &&
                              std::memcmp(expected.memory, got.memory, sizeof got.memory) == 0;
            EXPECT_TRUE(same) << native_operations[i].text << " round " << round << "\n  instruction "
                              << hex(expected.value, expected.size) << "\n  portable    " << hex(got.value, got.size)
                              << "\n  operands    " << hex(in.vectors[0], 64) << "\n              "
                              << hex(in.vectors[1], 64) << "\n  mask "
                              << hex(reinterpret_cast<const ub1 *>(in.masks), 8);
            if (!same)
                break; // the next operation
        }
    }
}

} // namespace
