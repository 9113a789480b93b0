// Columns of numbers as plain values and as the bytes that they are stored in, and sums in a stated order.
#pragma once

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <type_traits>
#include <vector>

#include "frame/tavo_types.h"
#include "tests/kit/guarded.h"

namespace tavo::test {

template <class T>
using bits_of = std::conditional_t<sizeof(T) == 4, ub4, ub8>;

// All NaNs are one: which operand's an operation hands on is the compiler's choice.
template <class T>
bool same_number(T a, T b) {
    return std::bit_cast<bits_of<T>>(a) == std::bit_cast<bits_of<T>>(b) || (std::isnan(a) && std::isnan(b));
}

// Bits to what comparable form stores, byte by byte, and back.
template <class Bits>
void store_order_preserving(ub1 *to, Bits native) {
    const bool negative = native >> (8 * sizeof(Bits) - 1) & 1;
    for (unsigned i = 0; i < sizeof(Bits); i++) {
        const auto byte = static_cast<ub1>(native >> 8 * (sizeof(Bits) - 1 - i));
        to[i] = static_cast<ub1>(negative ? ~byte : i == 0 ? byte | 0x80 : byte);
    }
}

template <class T>
void store_number(ub1 *to, T v, bool comparable) {
    if (comparable)
        store_order_preserving(to, std::bit_cast<bits_of<T>>(v));
    else
        std::memcpy(to, &v, sizeof v);
}
inline void store_big_endian(ub1 *to, ub8 v, unsigned bytes) {
    for (unsigned i = 0; i < bytes; i++)
        to[i] = static_cast<ub1>(v >> 8 * (bytes - 1 - i));
}

enum class sample {
    rounding, // of many magnitudes: another order of additions gives another sum
    special   // zeros of both signs, infinities, NaNs, subnormals among them
};

template <class T>
std::vector<T> random_numbers(std::size_t n, sample kind, std::mt19937_64 &rng) {
    using limits = std::numeric_limits<T>;
    const T specials[] = {T{0},          -T{0},         limits::infinity(),   -limits::infinity(),  limits::quiet_NaN(),
                          limits::max(), limits::min(), limits::denorm_min(), -limits::denorm_min()};
    std::vector<T> numbers(n);
    for (T &v : numbers) {
        v = static_cast<T>(
            std::ldexp(static_cast<double>(static_cast<sb8>(rng())), -63 - static_cast<int>(rng() % 24)));
        if (kind == sample::special && rng() % 8 == 0)
            v = specials[rng() % std::size(specials)];
    }
    return numbers;
}

// The elements as they are stored, up to an unreadable page; with `shift` they begin at an odd address.
template <class T>
class stored_numbers {
public:
    stored_numbers(const std::vector<T> &values, bool comparable, bool shift = false)
        : memory(values.size() * sizeof(T) + (shift ? 1 : 0)) {
        for (std::size_t i = 0; i < values.size(); i++)
            store_number(memory.data() + i * sizeof(T), values[i], comparable);
    }
    ub1 *data() const { return memory.data(); }

private:
    guarded memory;
};

// The upper half is added to the lower one until one number is left.
template <class T>
T folded(std::vector<T> lanes) {
    for (std::size_t half = lanes.size() / 2; half != 0; half /= 2)
        for (std::size_t i = 0; i < half; i++)
            lanes[i] = lanes[i] + lanes[i + half];
    return lanes[0];
}

// Rows of whole blocks of `width` in as many lanes, these folded, then the rows behind them one by one.
template <class T>
T lane_order_sum(const std::vector<T> &rows, std::size_t width) {
    std::vector<T> lanes(width, T{0});
    const std::size_t whole = rows.size() / width * width;
    for (std::size_t i = 0; i < whole; i++)
        lanes[i % width] = lanes[i % width] + rows[i];
    T sum = folded(lanes);
    for (std::size_t i = whole; i < rows.size(); i++)
        sum = sum + rows[i];
    return sum;
}

} // namespace tavo::test
