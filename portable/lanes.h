// Vectors as arrays of lanes, and what is made of them lane by lane.
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "portable/from_simde.h"

namespace tavo::portable {

template <class Lane, class Vector>
constexpr unsigned lanes_in = sizeof(Vector) / sizeof(Lane);
template <class Lane, class Vector>
using lanes_of = std::array<Lane, lanes_in<Lane, Vector>>;

// The mask of so many lanes. Two to eight share the narrowest.
template <unsigned count>
using mask_of = std::conditional_t<
    count <= 8, std::uint8_t,
    std::conditional_t<count == 16, std::uint16_t, std::conditional_t<count == 32, std::uint32_t, std::uint64_t>>>;

template <class Lane, class Vector>
inline lanes_of<Lane, Vector> lanes(Vector v) {
    return std::bit_cast<lanes_of<Lane, Vector>>(v);
}
template <class Vector, class Lane, std::size_t count>
inline Vector whole(const std::array<Lane, count> &of) {
    return std::bit_cast<Vector>(of);
}
inline bool bit(std::uint64_t mask, unsigned lane) { return (mask >> lane & 1) != 0; }

// Lane i of the result is lane_at(i).
template <class Vector, class Lane, class F>
inline Vector from_lanes(F &&lane_at) {
    lanes_of<Lane, Vector> result;
    for (unsigned i = 0; i < result.size(); i++)
        result[i] = lane_at(i);
    return whole<Vector>(result);
}
// Bit i of the result is holds(i), for `count` lanes.
template <unsigned count, class F>
inline mask_of<count> mask_where(F &&holds) {
    std::uint64_t mask = 0;
    for (unsigned i = 0; i < count; i++)
        mask |= static_cast<std::uint64_t>(holds(i) ? 1 : 0) << i;
    return static_cast<mask_of<count>>(mask);
}
// Lane i is a's where bit i is set, else b's.
template <class Lane, class Vector>
inline Vector choose(std::uint64_t mask, Vector a, Vector b) {
    const auto chosen = lanes<Lane>(a), other = lanes<Lane>(b);
    return from_lanes<Vector, Lane>([&](unsigned i) { return bit(mask, i) ? chosen[i] : other[i]; });
}
template <class Vector>
inline Vector zero() {
    return from_lanes<Vector, std::uint8_t>([](unsigned) { return std::uint8_t{0}; });
}

} // namespace tavo::portable
