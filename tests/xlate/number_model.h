// Decimal numbers of translation columns, the plain way.
#pragma once

#include <optional>
#include <random>
#include <string>

#include "frame/tavo_types.h"

namespace tavo::test {

// The code of a number, or none.
inline std::optional<ub4> number_model(const std::string &bytes) {
    const auto b = [&](std::size_t i) { return static_cast<int>(static_cast<ub1>(bytes[i])); };
    const auto n = static_cast<int>(bytes.size());
    if (n < 1 || n - 1 > 4)
        return {};
    if (n == 1 && b(0) == 128)
        return 0;
    if (b(0) < 192 || b(0) - 192 < n - 1)
        return {};
    __int128 value = 0;
    for (int i = 1; i < n; i++)
        value = value * 128 + (b(static_cast<std::size_t>(i)) - 1);
    for (int zero_pairs = b(0) - 192 - (n - 1); zero_pairs > 0 && value > 0 && value <= 0xffffffff; zero_pairs--)
        value *= 128;
    if (value < 0 || value > 0xffffffff)
        return {};
    return static_cast<ub4>(value);
}

// A number of n bytes with this code, if there is one: low pairs of 0 stand in the exponent alone if they have to.
inline std::optional<std::string> number_with_code(ub4 code, unsigned n, std::mt19937_64 &rng) {
    if (code == 0 && n == 1)
        return rng() % 2 ? std::string(1, '\x80') : std::string(1, static_cast<char>(192 + rng() % 64));
    for (unsigned zero_pairs = 0; n > 1 && zero_pairs < 5; zero_pairs++) {
        const ub8 pairs = static_cast<ub8>(code) >> 7 * zero_pairs;
        const auto from_pair = [=](unsigned i) { return i < 9 ? pairs >> 7 * i : 0; };
        if (from_pair(n - 1) != 0 || pairs << 7 * zero_pairs != code)
            continue;
        std::string number(1, static_cast<char>(192 + n - 1 + zero_pairs));
        for (unsigned i = n - 1; i-- > 0;)
            number += static_cast<char>((from_pair(i) & 127) + 1);
        return number;
    }
    return {};
}

// Bytes that are hardly ever a number that fits: wrong exponents, stored zeros, all lengths.
inline std::string odd_number(std::size_t n, std::mt19937_64 &rng) {
    static constexpr ub1 heads[] = {128, 128, 191, 192, 193, 194, 195, 196, 197, 198, 199, 200, 201, 255, 0, 62};
    std::string number;
    for (std::size_t i = 0; i < n; i++)
        number += static_cast<char>(i == 0           ? heads[rng() % std::size(heads)]
                                    : rng() % 4 == 0 ? rng() % 3
                                                     : rng() % 256);
    return number;
}

} // namespace tavo::test
