// Where the hash, the key and the value of a row come from: arrays of their own, or the fields of a record stream.
#pragma once

#include <type_traits>

#include "kv/array_table.h"
#include "portable/intrinsics.h"

namespace tavo {

// Rows of a batch: their buckets' addresses are computed and fetched before the first of them is looked at.
constexpr ub4 batch_rows = 232;

// Hashes of `Width` bytes, one every `Stride` bytes, the first at byte `Offset`.
template <unsigned Stride, unsigned Offset, unsigned Width>
struct hash_field {
    static_assert(Stride == 4 || Stride == 8 || Stride % 16 == 0);
    static constexpr unsigned stride = Stride;

    static ub8 at(const ub1 *hashes, ub8 row) noexcept {
        const ub1 *p = hashes + row * Stride + Offset;
        if constexpr (Width == 8)
            return load_as<ub8>(p);
        else
            return load_as<ub4>(p);
    }

    // The hashes of rows row to row + 7, of which those in `rows` are read.
    static __m512i eight(const ub1 *hashes, ub8 row, __mmask8 rows) noexcept {
        const ub1 *p = hashes + row * Stride;
        if constexpr (Stride == 4) {
            return _mm512_cvtepu32_epi64(_mm256_maskz_loadu_epi32(rows, p));
        } else if constexpr (Stride == 8) {
            const __m512i records_u64x8 = _mm512_maskz_loadu_epi64(rows, p);
            return field_of(records_u64x8);
        } else {
            // Every second word of the sixteen that eight records of two words have.
            static_assert(Stride == 16);
            const unsigned words = 2u * static_cast<unsigned>(_mm_popcnt_u32(rows));
            const unsigned mask = words < 16 ? (1u << words) - 1 : 0xffff;
            const __m512i low = _mm512_maskz_loadu_epi64(static_cast<__mmask8>(mask), p);
            const __m512i high = _mm512_maskz_loadu_epi64(static_cast<__mmask8>(mask >> 8), p + 64);
            const __m512i word = _mm512_load_si512(Offset / 8 ? every_second_word.odd : every_second_word.even);
            return field_of(_mm512_permutex2var_epi64(low, word, high));
        }
    }

private:
    static __m512i field_of(__m512i words_u64x8) noexcept {
        if constexpr (Width == 8)
            return words_u64x8;
        else if constexpr (Offset % 8 == 4)
            return _mm512_srli_epi64(words_u64x8, 32);
        else
            return _mm512_and_si512(words_u64x8, _mm512_set1_epi64(0xffffffff));
    }
    struct alignas(64) word_choice {
        ub8 even[8] = {0, 2, 4, 6, 8, 10, 12, 14}, odd[8] = {1, 3, 5, 7, 9, 11, 13, 15};
    };
    static constexpr word_choice every_second_word{};
};
using hash32_array = hash_field<4, 0, 4>;
using hash64_array = hash_field<8, 0, 8>;

// The key that a table of hash values has for a hash. Keys of two bytes are never 0: their compare needs no count then.
template <unsigned KeyBytes, class Hash, unsigned HashBytes>
struct key_of_hash {
    static constexpr unsigned stride = 0;
    using type = std::conditional_t<KeyBytes == 2, ub2, ub4>;

    static type at(const ub1 *hashes, ub8 row) noexcept {
        const ub8 hash = Hash::at(hashes, row);
        const auto key = static_cast<type>(HashBytes == 8 ? hash >> 32 : hash);
        return key == 0 && (HashBytes == 8 || KeyBytes == 2) ? type{1} : key;
    }
    static void copy(ub1 *to, const ub1 *hashes, const ub1 *, ub8 row) noexcept { store_as(to, at(hashes, row)); }
};

// The key slots of a key array.
template <unsigned KeyBytes>
struct key_array {
    static constexpr unsigned stride = KeyBytes;
    static void copy(ub1 *to, const ub1 *, const ub1 *keys, ub8 row) noexcept {
        std::memcpy(to, keys + row * KeyBytes, KeyBytes);
    }
};

// A field of the record stream that the hashes are in: key or, widened or cut to `To` bytes, row id.
template <unsigned Stride, unsigned Offset, unsigned Bytes, unsigned To = Bytes>
struct record_field {
    static constexpr unsigned stride = 0; // no array of its own
    static void copy(ub1 *to, const ub1 *records, const ub1 *, ub8 row) noexcept {
        ub8 v = 0;
        std::memcpy(&v, records + row * Stride + Offset, Bytes);
        std::memcpy(to, &v, To);
    }
};

template <unsigned ValueBytes>
struct value_array {
    static constexpr unsigned stride = ValueBytes;
    static void copy(ub1 *to, const ub1 *, const ub1 *values, ub8 row) noexcept {
        std::memcpy(to, values + row * ValueBytes, ValueBytes);
    }
};

// Values made from the position; the array's address is the first row's id.
template <unsigned ValueBytes>
struct row_number {
    static constexpr unsigned stride = 0;
    static void copy(ub1 *to, const ub1 *, const ub1 *first, ub8 row) noexcept {
        const ub8 id = reinterpret_cast<ub8>(first) + row;
        std::memcpy(to, &id, ValueBytes);
    }
};

struct no_value {
    static constexpr unsigned stride = 0;
    static void copy(ub1 *, const ub1 *, const ub1 *, ub8) noexcept {}
};

} // namespace tavo
