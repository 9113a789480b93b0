// The bitwise kernels' one text: operator x counting method.
//
// Vectors are bytes of any alignment. A pass takes one block of 512 bits; the tail is a byte-masked block, so exactly
// (nbits + 7) / 8 bytes are read and written, and none for nbits = 0. Spare bits of the last byte come out clear and
// are never counted. dst may be any of the sources: a block is loaded whole before it is stored.
//
// The text is compiled twice, with and without the population-count instruction. Everything in it is always_inline or
// depends on the counting method, so that no body compiled with the instruction can stand in for one without it.
#pragma once

#include <immintrin.h>

#include "frame/tavo_types.h"

namespace tavo::bitwise {

enum class op { and2, or2, xor2, andnot, and3, or3, xor3, not1, popcnt };

// The operators and the number of their sources. popcnt stores nothing.
#define TAVO_EACH_BITWISE_OP(K) K(and2) K(or2) K(xor2) K(andnot) K(and3) K(or3) K(xor3) K(not1) K(popcnt)

constexpr int sources_of(op o) { return o >= op::not1 ? 1 : o >= op::and3 ? 3 : 2; }
constexpr bool stores(op o) { return o != op::popcnt; }

// What a kernel works on; unused sources are null.
struct operands {
    ub1 *dst;
    const ub1 *a, *b, *c;
};

// Three-input truth table of an operator: bit (a * 4 + b * 2 + c) is the result.
constexpr int truth_table(op o) {
    switch (o) {
    case op::and2: return 0xc0;
    case op::or2: return 0xfc;
    case op::xor2: return 0x3c;
    case op::andnot: return 0x0c;
    case op::and3: return 0x80;
    case op::or3: return 0xfe;
    case op::xor3: return 0x96;
    case op::not1: return 0x0f;
    default: return 0xf0;
    }
}

// Counting methods. block_counts() returns one number per 64-bit lane.
struct no_count {
    [[gnu::always_inline]] static __m512i lane_counts(__m512i) { return _mm512_setzero_si512(); }
};

struct nibble_count {
    [[gnu::always_inline]] static __m512i lane_counts(__m512i block) {
        const __m512i low_nibbles = _mm512_set1_epi8(0x0f);
        const __m512i bits_of_nibble =
            _mm512_broadcast_i32x4(_mm_setr_epi8(0, 1, 1, 2, 1, 2, 2, 3, 1, 2, 2, 3, 2, 3, 3, 4));
        const __m512i low = _mm512_and_si512(block, low_nibbles);
        const __m512i high = _mm512_and_si512(_mm512_srli_epi16(block, 4), low_nibbles);
        const __m512i counts_u8x64 =
            _mm512_add_epi8(_mm512_shuffle_epi8(bits_of_nibble, low), _mm512_shuffle_epi8(bits_of_nibble, high));
        return _mm512_sad_epu8(counts_u8x64, _mm512_setzero_si512());
    }
};

#ifdef __AVX512VPOPCNTDQ__
struct instruction_count {
    [[gnu::always_inline]] static __m512i lane_counts(__m512i block) { return _mm512_popcnt_epi64(block); }
};
#endif

template <op Op, class Load>
[[gnu::always_inline]] inline __m512i combine(const operands &v, ub8 at, Load load) {
    const __m512i a = load(v.a + at);
    if constexpr (Op == op::popcnt)
        return a;
    const __m512i b = sources_of(Op) > 1 ? load(v.b + at) : a;
    const __m512i c = sources_of(Op) > 2 ? load(v.c + at) : a;
    return _mm512_ternarylogic_epi64(a, b, c, truth_table(Op));
}

constexpr ub8 block_bytes = 64;
constexpr ub8 prefetch_distance = 1024;

template <op Op>
[[gnu::always_inline]] inline void prefetch(const operands &v, ub8 at, bool dst_is_source) {
    const auto read = [&](const ub1 *source) { __builtin_prefetch(source + at + prefetch_distance, 0, 3); };
    read(v.a);
    if constexpr (sources_of(Op) > 1)
        read(v.b);
    if constexpr (sources_of(Op) > 2)
        read(v.c);
    // A second prefetch of one line costs a fifth of the speed from the third level on.
    if (stores(Op) && !dst_is_source)
        __builtin_prefetch(v.dst + at + prefetch_distance, 1, 3);
}

// One whole block: stores the result, returns its lane counts.
template <op Op, class Count>
[[gnu::always_inline]] inline __m512i whole_block(const operands &v, ub8 at) {
    const __m512i block = combine<Op>(
        v, at, [](const ub1 *p) __attribute__((always_inline)) { return _mm512_loadu_si512(p); });
    if constexpr (stores(Op))
        _mm512_storeu_si512(v.dst + at, block);
    return Count::lane_counts(block);
}

// The last `bits` (1 to 511) bits.
template <op Op, class Count>
[[gnu::always_inline]] inline __m512i tail_block(const operands &v, ub8 at, unsigned bits) {
    const __mmask64 bytes_m64 = _bzhi_u64(~0ull, (bits + 7) / 8);
    __m512i block = combine<Op>(
        v, at, [=](const ub1 *p) __attribute__((always_inline)) { return _mm512_maskz_loadu_epi8(bytes_m64, p); });
    // Keeps the whole bytes and, of the byte after them, the bits below `bits`.
    const __mmask64 whole_bytes_m64 = _bzhi_u64(~0ull, bits / 8);
    const __m512i last_byte = _mm512_set1_epi8(static_cast<char>((1u << bits % 8) - 1));
    block = _mm512_mask_and_epi64(block, 0xff, block,
                                  _mm512_mask_mov_epi8(last_byte, whole_bytes_m64, _mm512_set1_epi8(-1)));
    block = _mm512_maskz_mov_epi8(bytes_m64, block);
    if constexpr (stores(Op))
        _mm512_mask_storeu_epi8(v.dst + at, bytes_m64, block);
    return Count::lane_counts(block);
}

// Stores the combination of the sources and returns the number of bits set in it (0 with no_count).
template <op Op, class Count>
[[gnu::always_inline]] inline ub4 run(const operands v, ub8 nbits) {
    __m512i counts_u64x8 = _mm512_setzero_si512();
    const ub8 whole = nbits / 512 * block_bytes;
    const bool dst_is_source = v.dst == v.a || v.dst == v.b || v.dst == v.c;
    ub8 at = 0;
    for (; at + 4 * block_bytes <= whole; at += 4 * block_bytes) {
#pragma GCC unroll 4
        for (ub8 i = 0; i < 4 * block_bytes; i += block_bytes) {
            prefetch<Op>(v, at + i, dst_is_source);
            counts_u64x8 = _mm512_add_epi64(counts_u64x8, whole_block<Op, Count>(v, at + i));
        }
    }
#pragma GCC unroll 1
    for (; at < whole; at += block_bytes)
        counts_u64x8 = _mm512_add_epi64(counts_u64x8, whole_block<Op, Count>(v, at));
    if (nbits % 512 != 0)
        counts_u64x8 = _mm512_add_epi64(counts_u64x8, tail_block<Op, Count>(v, at, nbits % 512));
    return static_cast<ub4>(_mm512_reduce_add_epi64(counts_u64x8));
}

// The kernels that count by instruction, from the file that is compiled for it.
template <op Op>
ub4 run_with_instruction(const operands &v, ub8 nbits) noexcept;
#define TAVO_DECLARE(o) extern template ub4 run_with_instruction<op::o>(const operands &v, ub8 nbits) noexcept;
TAVO_EACH_BITWISE_OP(TAVO_DECLARE)
#undef TAVO_DECLARE

} // namespace tavo::bitwise
