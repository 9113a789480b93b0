// Bits of general registers: BMI1, BMI2, LZCNT, POPCNT; mask registers joined and turned into numbers.
#pragma once

#include <bit>
#include <cstdint>

#include "portable/from_simde.h"

// The low `count` bits; the count is taken modulo 256, and from the register's width on nothing is cleared.
inline unsigned _bzhi_u32(unsigned x, unsigned count) {
    return (count & 0xff) >= 32 ? x : x & ((1u << (count & 0xff)) - 1);
}
inline unsigned long long _bzhi_u64(unsigned long long x, unsigned count) {
    return (count & 0xff) >= 64 ? x : x & ((1ull << (count & 0xff)) - 1);
}
// The low bits of x to the places of the mask, and back.
inline unsigned long long _pdep_u64(unsigned long long x, unsigned long long mask) {
    unsigned long long result = 0;
    for (; mask != 0; mask &= mask - 1, x >>= 1)
        result |= (x & 1) != 0 ? mask & (~mask + 1) : 0;
    return result;
}
inline unsigned long long _pext_u64(unsigned long long x, unsigned long long mask) {
    unsigned long long result = 0;
    for (unsigned place = 0; mask != 0; mask &= mask - 1, place++)
        result |= static_cast<unsigned long long>((x & mask & (~mask + 1)) != 0) << place;
    return result;
}
inline unsigned _pdep_u32(unsigned x, unsigned mask) { return static_cast<unsigned>(_pdep_u64(x, mask)); }
inline unsigned _pext_u32(unsigned x, unsigned mask) { return static_cast<unsigned>(_pext_u64(x, mask)); }
// 32 or 64 where no bit is set.
inline unsigned _tzcnt_u32(unsigned x) { return static_cast<unsigned>(std::countr_zero(x)); }
inline unsigned long long _tzcnt_u64(unsigned long long x) { return static_cast<unsigned>(std::countr_zero(x)); }
inline unsigned _lzcnt_u32(unsigned x) { return static_cast<unsigned>(std::countl_zero(x)); }
inline unsigned long long _lzcnt_u64(unsigned long long x) { return static_cast<unsigned>(std::countl_zero(x)); }
inline int _mm_popcnt_u32(unsigned x) { return std::popcount(x); }
inline long long _mm_popcnt_u64(unsigned long long x) { return std::popcount(x); }
inline unsigned _blsr_u32(unsigned x) { return x & (x - 1); }
inline unsigned long long _blsr_u64(unsigned long long x) { return x & (x - 1); }

inline std::uint32_t _cvtmask8_u32(__mmask8 mask) { return mask; }
inline std::uint32_t _cvtmask16_u32(__mmask16 mask) { return mask; }
inline std::uint32_t _cvtmask32_u32(__mmask32 mask) { return mask; }
inline unsigned long long _cvtmask64_u64(__mmask64 mask) { return mask; }
// a above b.
inline __mmask16 _mm512_kunpackb(__mmask16 a, __mmask16 b) {
    return static_cast<__mmask16>((a & 0xff) << 8 | (b & 0xff));
}
inline __mmask32 _mm512_kunpackw(__mmask32 a, __mmask32 b) { return (a & 0xffff) << 16 | (b & 0xffff); }
inline __mmask64 _mm512_kunpackd(__mmask64 a, __mmask64 b) { return (a & 0xffffffff) << 32 | (b & 0xffffffff); }
