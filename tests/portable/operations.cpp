// The table of operations, compiled once for each form of the intrinsics.
#include "tests/portable/operands.h"

#include <array>
#include <cmath>
#include <type_traits>

#include "portable/intrinsics.h"
#include "portable/mask_number.h"

#ifdef TAVO_PORTABLE
#define TAVO_TABLE portable_operations
#define TAVO_COUNT portable_operation_count
#else
#define TAVO_TABLE native_operations
#define TAVO_COUNT native_operation_count
#endif

namespace tavo::test {
namespace {

struct call {
    const operands &in;
    result &out;

    template <class V>
    V vector(unsigned i) const {
        V v;
        std::memcpy(&v, in.vectors[i], sizeof v);
        return v;
    }
    template <class T>
    void put(T value) const {
        out.size = sizeof value;
        std::memcpy(out.value, &value, sizeof value);
    }
    // Which NaN an operation on two gives is left open; that it is one is not.
    template <class Lane, class T>
    void put_number(T value) const {
        Lane lanes[sizeof value / sizeof(Lane)];
        std::memcpy(lanes, &value, sizeof value);
        for (Lane &lane : lanes)
            if (lane != lane)
                std::memset(static_cast<void *>(&lane), 0xff, sizeof lane);
        out.size = sizeof value;
        std::memcpy(out.value, lanes, sizeof value);
    }
};

// Operands of a line: registers of 512, 256 and 128 bits of integers, floats and doubles; masks; memory.
#define z(i) c.vector<__m512i>(i)
#define zf(i) c.vector<__m512>(i)
#define zd(i) c.vector<__m512d>(i)
#define y(i) c.vector<__m256i>(i)
#define yf(i) c.vector<__m256>(i)
#define yd(i) c.vector<__m256d>(i)
#define x(i) c.vector<__m128i>(i)
#define xf(i) c.vector<__m128>(i)
#define xd(i) c.vector<__m128d>(i)
#define k(i) c.in.masks[i]
#define number(i) c.in.numbers[i]
#define from(offset) static_cast<const void *>(c.in.memory + offset)
#define middle (c.in.memory + sizeof c.in.memory / 2)
#define out_middle (c.out.memory + sizeof c.out.memory / 2)
#define to(offset) static_cast<void *>(c.out.memory + offset)
#define index_512 load_index<__m512i>(c.in.indices)
#define index_256 load_index<__m256i>(c.in.indices)
#define index_512_64 load_index<__m512i>(c.in.wide_indices)

template <class V>
V load_index(const void *indices) {
    V v;
    std::memcpy(&v, indices, sizeof v);
    return v;
}

// Whether each lane of an approximate 1 / sqrt(v) is within its bound, or the special value that it is to be.
std::array<bool, 8> within_14_bits(__m512d v, __m512d approximate) {
    double of[8], found[8];
    std::memcpy(of, &v, sizeof of);
    std::memcpy(found, &approximate, sizeof found);
    std::array<bool, 8> within;
    for (unsigned i = 0; i < 8; i++)
        within[i] = of[i] > 0 && std::isfinite(of[i]) ? std::fabs(found[i] * std::sqrt(of[i]) - 1) < 0x1p-14
                    : of[i] < 0 || std::isnan(of[i])  ? std::isnan(found[i])
                                                      : found[i] == 1 / std::sqrt(of[i]);
    return within;
}

#define HOLD(expression)                                                                                               \
    {#expression, [](const operands &in, result &out) {                                                                \
         const call c{in, out};                                                                                        \
         c.put(expression);                                                                                            \
     }},
#define HOLD_PS(expression)                                                                                            \
    {#expression, [](const operands &in, result &out) {                                                                \
         const call c{in, out};                                                                                        \
         c.put_number<float>(expression);                                                                              \
     }},
#define HOLD_PD(expression)                                                                                            \
    {#expression, [](const operands &in, result &out) {                                                                \
         const call c{in, out};                                                                                        \
         c.put_number<double>(expression);                                                                             \
     }},
#define HOLD_STORE(expression)                                                                                         \
    {#expression, [](const operands &in, result &out) {                                                                \
         const call c{in, out};                                                                                        \
         static_cast<void>(c);                                                                                         \
         expression;                                                                                                   \
     }},

} // namespace

constexpr operation operations[] = {
#include "tests/portable/operations.inc"
};
const operation *const TAVO_TABLE = operations;
const unsigned TAVO_COUNT = sizeof operations / sizeof *operations;

} // namespace tavo::test
