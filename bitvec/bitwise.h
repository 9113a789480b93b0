// The bitwise kernels' one text: operator x counting method.
//
// Vectors are bytes of any alignment. A pass takes one block of 512 bits; the tail is a byte-masked block, so exactly
// (nbits + 7) / 8 bytes are read and written, and none for nbits = 0. Spare bits of the last byte come out clear and
// are never counted. dst may be any of the sources: a block is loaded whole before it is stored.
//
// The text is compiled twice, with and without the population-count instruction. Everything in it is always_inline or
// depends on the counting method, so that no body compiled with the instruction can stand in for one without it.
#pragma once

#include "frame/tavo_types.h"
#include "portable/intrinsics.h"

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

// Counting methods. One is fed all blocks, four at a time with add4() where there are as many and singly with add(),
// and then tells the number of bits set in them. They begin as zeros and are aggregates: a constructor would be a
// function that both compilations share.
struct no_count {
    [[gnu::always_inline]] void add(__m512i) {}
    [[gnu::always_inline]] void add4(const __m512i (&)[4]) {}
    [[gnu::always_inline]] ub4 total() const { return 0; }
};

// Carry-save addition: four blocks leave one block of fours to be counted through the nibbles, and pass on, for each
// bit position, a one and a two.
struct nibble_count {
    __m512i ones, twos;
    __m512i fours_u64x8;   // number of fours carried out
    __m512i singles_u64x8; // bits in blocks that came singly

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
    // Adds a and b to `sum` bit by bit; returns the carries.
    [[gnu::always_inline]] static __m512i carry(__m512i &sum, __m512i a, __m512i b) {
        const __m512i carries = _mm512_ternarylogic_epi64(sum, a, b, 0xe8); // at least two of three
        sum = _mm512_ternarylogic_epi64(sum, a, b, 0x96);
        return carries;
    }
    [[gnu::always_inline]] void add(__m512i block) {
        singles_u64x8 = _mm512_add_epi64(singles_u64x8, lane_counts(block));
    }
    [[gnu::always_inline]] void add4(const __m512i (&blocks)[4]) {
        const __m512i twos_a = carry(ones, blocks[0], blocks[1]);
        const __m512i twos_b = carry(ones, blocks[2], blocks[3]);
        fours_u64x8 = _mm512_add_epi64(fours_u64x8, lane_counts(carry(twos, twos_a, twos_b)));
    }
    [[gnu::always_inline]] ub4 total() const {
        const __m512i pairs_u64x8 = _mm512_add_epi64(_mm512_slli_epi64(fours_u64x8, 1), lane_counts(twos));
        const __m512i odd_u64x8 = _mm512_add_epi64(lane_counts(ones), singles_u64x8);
        return static_cast<ub4>(
            _mm512_reduce_add_epi64(_mm512_add_epi64(_mm512_slli_epi64(pairs_u64x8, 1), odd_u64x8)));
    }
};

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

// Prefetches dst a kilobyte ahead, where nothing but stores would announce it. The sources, and so a dst that is one of
// them, are announced by their loads, and the processor follows these by itself: prefetching them as well was measured
// to cost popcnt three tenths of its speed from the third level, and the storing operators a seventh in the first. The
// write intent asked for compiles to a plain prefetch: the instruction for it is an extension that hosts are not
// required to have, and it was no faster.
template <op Op>
[[gnu::always_inline]] inline void prefetch(const operands &v, ub8 at, bool dst_is_source) {
    if (stores(Op) && !dst_is_source)
        __builtin_prefetch(v.dst + at + prefetch_distance, 1, 3);
}

// One whole block: stores and returns the result.
template <op Op>
[[gnu::always_inline]] inline __m512i whole_block(const operands &v, ub8 at) {
    const __m512i block = combine<Op>(
        v, at, [](const ub1 *p) __attribute__((always_inline)) { return _mm512_loadu_si512(p); });
    if constexpr (stores(Op))
        _mm512_storeu_si512(v.dst + at, block);
    return block;
}

// The last `bits` (1 to 511) bits, zeros behind them.
template <op Op>
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
    return block;
}

// Stores the combination of the sources and returns the number of bits set in it (0 with no_count).
template <op Op, class Count>
[[gnu::always_inline]] inline ub4 run(const operands v, ub8 nbits) {
    Count count{};
    const ub8 whole = nbits / 512 * block_bytes;
    const bool dst_is_source = v.dst == v.a || v.dst == v.b || v.dst == v.c;
    ub8 at = 0;
    for (; at + 4 * block_bytes <= whole; at += 4 * block_bytes) {
        __m512i blocks[4];
#pragma GCC unroll 4
        for (ub8 i = 0; i < 4; i++) {
            prefetch<Op>(v, at + i * block_bytes, dst_is_source);
            blocks[i] = whole_block<Op>(v, at + i * block_bytes);
        }
        count.add4(blocks);
    }
    // Three blocks at most, without prefetch: a kilobyte ahead of them lies nothing of this vector.
#pragma GCC unroll 1
    for (; at < whole; at += block_bytes)
        count.add(whole_block<Op>(v, at));
    if (nbits % 512 != 0)
        count.add(tail_block<Op>(v, at, nbits % 512));
    return count.total();
}

// The kernels that count by instruction, from the file that is compiled for it.
template <op Op>
ub4 run_with_instruction(const operands &v, ub8 nbits) noexcept;
#define TAVO_DECLARE(o) extern template ub4 run_with_instruction<op::o>(const operands &v, ub8 nbits) noexcept;
TAVO_EACH_BITWISE_OP(TAVO_DECLARE)
#undef TAVO_DECLARE

} // namespace tavo::bitwise
