// The bit iterators' one text, over the traits of the two families.
//
// word_vector (lbiwv): 8-byte aligned base, whole words of storage, all of which may be read.
// byte_vector (lbiv): any base, exactly (nbits + 7) / 8 bytes may be read. The iterator steps along 8-byte aligned
// addresses all the same; the words that reach over an end of the vector are loaded under a byte mask.
//
// Invariant between calls: `word` has no bits at or above nbits, `next` is the word after it, and `base` is the number
// of its bit 0; base + 64 does not wrap even where base itself lies below 0 (first word of a byte vector).
#pragma once

#include "frame/tavo_bit_iter.h"
#include "portable/intrinsics.h"

namespace tavo::bit_iter {

// A whole word; the vector's storage may have any type.
[[gnu::always_inline]] inline ub8 whole_word(const ub8 *p) {
    ub8 word;
    __builtin_memcpy(&word, p, 8);
    return word;
}

// Bytes of the word at p under a mask, zero elsewhere; other bytes are not touched.
[[gnu::always_inline]] inline ub8 word_under_mask(const void *p, unsigned bytes_m8) {
    return static_cast<ub8>(_mm_cvtsi128_si64(_mm_maskz_loadu_epi8(static_cast<__mmask16>(bytes_m8), p)));
}

struct word_vector {
    static constexpr ub8 end = TAVO_LBIWV_END;

    // Bits of the last word, of which `remaining` (1 to 63) belong to the vector; the others may be anything.
    [[gnu::always_inline]] static ub8 last_word(const ub8 *p, ub8) { return whole_word(p); }

    // Enters the word that holds bit `start`: sets next, base and word, and returns the place of that bit in it.
    [[gnu::always_inline]] static unsigned enter(tavo_bit_iter &s, const void *bits, ub8, ub8 start) {
        const ub8 *p = static_cast<const ub8 *>(bits) + start / 64;
        s.next = p + 1;
        s.base = start / 64 * 64;
        s.word = whole_word(p);
        return start % 64;
    }
};

struct byte_vector {
    static constexpr ub8 end = TAVO_LBIV_END;

    [[gnu::always_inline]] static ub8 last_word(const ub8 *p, ub8 remaining) {
        return word_under_mask(p, _bzhi_u32(0xff, static_cast<unsigned>((remaining + 7) / 8)));
    }

    [[gnu::always_inline]] static unsigned enter(tavo_bit_iter &s, const void *bits, ub8 nbits, ub8 start) {
        const uintptr_t p = reinterpret_cast<uintptr_t>(bits) + start / 8;
        const unsigned before = p % 8; // bytes of the aligned word before the one that holds `start`
        const auto *aligned = reinterpret_cast<const ub8 *>(p - before);
        const unsigned place = static_cast<unsigned>(start % 8) + 8 * before;
        s.next = aligned + 1;
        s.base = (start / 8 - before) * 8;
        const ub8 bytes = (nbits - start + place + 7) / 8; // from `aligned` to the vector's end
        if (start / 8 >= before && bytes >= 8)
            s.word = whole_word(aligned);
        else
            s.word = word_under_mask(aligned,
                                     _bzhi_u32(0xff, bytes < 8 ? static_cast<unsigned>(bytes) : 8) & 0xffu << before);
        return place;
    }
};

template <class Vector>
[[gnu::always_inline]] inline void start(tavo_bit_iter *it, const void *bits, ub8 nbits, ub1 invert, ub8 start) {
    if (start >= nbits) {
        *it = {};
        return;
    }
    tavo_bit_iter s;
    s.nbits = nbits;
    const unsigned place = Vector::enter(s, bits, nbits, start);
    if (invert == 1)
        s.word = ~s.word;
    const ub8 rows = nbits - start;
    s.word &= (rows + place < 64 ? (1ull << rows) - 1 : ~0ull) << place;
    *it = s;
}

// The word after the current one if the vector reaches into it; clear bits are delivered if Clear.
template <class Vector, bool Clear>
[[gnu::always_inline]] inline bool enter_next_word(tavo_bit_iter &s) {
    s.base += 64;
    if (s.base >= s.nbits)
        return false;
    const ub8 remaining = s.nbits - s.base;
    if (remaining >= 64) [[likely]] {
        s.word = Clear ? ~whole_word(s.next) : whole_word(s.next);
    } else {
        const ub8 word = Vector::last_word(s.next, remaining);
        s.word = _bzhi_u64(Clear ? ~word : word, static_cast<unsigned>(remaining));
    }
    s.next++;
    return true;
}

template <class Vector, bool Clear>
[[gnu::always_inline]] inline ub8 iterate(tavo_bit_iter *it) {
    if (it->word == 0) {
        tavo_bit_iter s = *it;
        do {
            if (!enter_next_word<Vector, Clear>(s)) {
                *it = s;
                return Vector::end;
            }
        } while (s.word == 0);
        *it = s;
    }
    const ub8 position = it->base + _tzcnt_u64(it->word);
    it->word = _blsr_u64(it->word);
    return position;
}

// Bits of the vector that lie behind the current word; negative when the vector is exhausted.
[[gnu::always_inline]] inline sb8 bits_ahead(const tavo_bit_iter &s) { return static_cast<sb8>(s.nbits - s.base - 64); }

// Delivers the lowest bits of a word, as many as there is room for, one after another; takes them out of the word.
[[gnu::always_inline]] inline ub4 *deliver_singly(ub8 &word, ub8 base, ub4 *out, const ub4 *out_end) {
    const auto bits = static_cast<ub8>(_mm_popcnt_u64(word)), room = static_cast<ub8>(out_end - out);
    for (ub4 *const stop = out + (bits < room ? bits : room); out != stop; word = _blsr_u64(word))
        *out++ = static_cast<ub4>(base + _tzcnt_u64(word));
    return out;
}

// Pays per set bit, and nearly nothing for zero stretches. Returns the end of what it wrote: below out_end if the
// vector is exhausted.
template <class Vector>
[[gnu::always_inline]] inline ub4 *deliver_sparse(tavo_bit_iter &s, ub4 *out, const ub4 *out_end) {
    for (;;) {
        out = deliver_singly(s.word, s.base, out, out_end);
        if (out == out_end)
            return out;
        // Eight words at once, as long as all eight are whole.
        for (; bits_ahead(s) >= 512; s.next += 8, s.base += 512) {
            const __m512i words_u64x8 = _mm512_loadu_si512(s.next);
            for (unsigned filled_m8 = _mm512_test_epi64_mask(words_u64x8, words_u64x8); filled_m8 != 0;
                 filled_m8 = _blsr_u32(filled_m8)) {
                const ub8 k = _tzcnt_u32(filled_m8);
                ub8 word = whole_word(s.next + k);
                const ub8 base = s.base + 64 * k + 64;
                out = deliver_singly(word, base, out, out_end);
                if (out == out_end) {
                    s.next += k + 1;
                    s.base = base;
                    s.word = word;
                    return out;
                }
            }
        }
        if (!enter_next_word<Vector, false>(s))
            return out;
    }
}

// Writes the numbers of the bits of a word, which all have room; nothing behind them is written.
[[gnu::always_inline]] inline ub4 *deliver_at_once(ub4 *out, ub8 base, ub8 word) {
    const __m512i lanes = _mm512_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
    __m512i positions_u32x16 = _mm512_add_epi32(_mm512_set1_epi32(static_cast<int>(base)), lanes);
#pragma GCC unroll 4
    for (int i = 0; i < 4; i++) {
        const auto piece_m16 = static_cast<__mmask16>(word >> 16 * i);
        const unsigned n = static_cast<unsigned>(_mm_popcnt_u32(piece_m16));
        // Compressed in the register: a compressing store to memory is slow on many processors.
        _mm512_mask_storeu_epi32(out, static_cast<__mmask16>(_bzhi_u32(0xffff, n)),
                                 _mm512_maskz_compress_epi32(piece_m16, positions_u32x16));
        positions_u32x16 = _mm512_add_epi32(positions_u32x16, _mm512_set1_epi32(16));
        out += n;
    }
    return out;
}

// Pays per word, whatever its content.
template <class Vector>
[[gnu::always_inline]] inline ub4 *deliver_dense(tavo_bit_iter &s, ub4 *out, const ub4 *out_end) {
    for (;;) {
        const auto room = static_cast<ub8>(out_end - out);
        const ub8 taken = room < 64 ? _pdep_u64((1ull << room) - 1, s.word) : s.word; // its lowest `room` bits
        out = deliver_at_once(out, s.base, taken);
        s.word ^= taken;
        if (out == out_end)
            return out;
        while (out_end - out >= 64 && bits_ahead(s) >= 64) {
            s.base += 64;
            out = deliver_at_once(out, s.base, whole_word(s.next++));
        }
        if (out == out_end)
            return out;
        if (!enter_next_word<Vector, false>(s))
            return out;
    }
}

constexpr ub8 first_chunk = 8192, largest_chunk = 131072;
constexpr double sparse_share = 0.06; // up to this share of set bits, delivering them singly is cheaper

// The chunks behind the first, in which `found` positions took `bits_advanced` bits: each goes by what the one before
// it found. Kept apart so that a small batch does not pay for entering it.
template <class Vector>
[[gnu::noinline]] ub8 further_chunks(tavo_bit_iter *it, ub4 *out, ub8 capacity, ub8 bits_advanced, ub8 found) {
    tavo_bit_iter s = *it;
    ub8 total = 0;
    for (ub8 chunk = 2 * first_chunk; total != capacity; chunk = chunk < largest_chunk ? 2 * chunk : chunk) {
        const ub8 limit = chunk < capacity - total ? chunk : capacity - total;
        const ub8 base_before = s.base;
        ub4 *const from = out + total;
        ub4 *const to = bits_advanced >= static_cast<ub8>(static_cast<double>(found) / sparse_share)
                            ? deliver_sparse<Vector>(s, from, from + limit)
                            : deliver_dense<Vector>(s, from, from + limit);
        found = static_cast<ub8>(to - from);
        bits_advanced = s.base - base_before;
        total += found;
        if (found < limit)
            break;
    }
    *it = s;
    return total;
}

// Up to `capacity` positions. The first chunk, for which there is no guess, goes bit by bit.
template <class Vector>
[[gnu::always_inline]] inline ub8 ones(tavo_bit_iter *it, ub4 *out, ub8 capacity) {
    tavo_bit_iter s = *it;
    const ub8 base_before = s.base;
    const ub8 limit = capacity < first_chunk ? capacity : first_chunk;
    const auto found = static_cast<ub8>(deliver_sparse<Vector>(s, out, out + limit) - out);
    *it = s;
    if (found < limit || found == capacity)
        return found;
    return found + further_chunks<Vector>(it, out + found, capacity - found, s.base - base_before, found);
}

} // namespace tavo::bit_iter
