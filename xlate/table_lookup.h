// Entries of translation tables, for a batch of codes at a time.
//
// Entries are put into registers one by one: every code costs one load from the table and one insertion, which measures
// faster than gathers, and an entry's own bytes are read and no others. Codes outside the table's range are taken for
// the nearest one within, so that they touch no other memory, and count as having no partner.
#pragma once

#include <utility>

#include "frame/tavo_vec.h"
#include "frame/tavo_xlate.h"
#include "portable/intrinsics.h"
#include "portable/mask_number.h"
#include "xlate/code_batch.h"

namespace tavo {

// Element of a table. `entry` is what a batch and xlate_out hold; entries of a table are found by the address of their
// first byte, entry i standing 2^per_byte_log2 to a byte.
struct xlate_bit {
    using entry = ub1;
    static constexpr unsigned per_byte_log2 = 3;
    static constexpr ub1 no_partner = 1;
};
struct xlate_nib {
    using entry = ub1;
    static constexpr unsigned per_byte_log2 = 1;
    static constexpr ub1 no_partner = 15;
};
template <class T>
struct xlate_whole {
    using entry = T;
    static constexpr unsigned per_byte_log2 = 0;
    static constexpr T no_partner = static_cast<T>(~T{0});
};
using xlate_ub1 = xlate_whole<ub1>;
using xlate_ub2 = xlate_whole<ub2>;
using xlate_ub4 = xlate_whole<ub4>;

template <class Element>
struct entry_batch {
    alignas(64) typename Element::entry entry[batch_rows];
};

template <class T>
[[gnu::always_inline]] inline T load_entry(const void *p) noexcept {
    T value;
    __builtin_memcpy(&value, p, sizeof value);
    return value;
}
template <int Lane>
[[gnu::always_inline]] inline __m128i insert_entry(__m128i v, ub1 entry) noexcept {
    return _mm_insert_epi8(v, entry, Lane);
}
template <int Lane>
[[gnu::always_inline]] inline __m128i insert_entry(__m128i v, ub2 entry) noexcept {
    return _mm_insert_epi16(v, entry, Lane);
}
template <int Lane>
[[gnu::always_inline]] inline __m128i insert_entry(__m128i v, ub4 entry) noexcept {
    return _mm_insert_epi32(v, static_cast<int>(entry), Lane);
}

template <class T>
struct two_entries {
    T first, second;
};
// As many entries as 128 bits hold; two_at(j) reads those of slots j and j + 1.
template <class T, class TwoAt>
[[gnu::always_inline]] inline __m128i insert_entries(TwoAt two_at) noexcept {
    return [&]<int... pair>(std::integer_sequence<int, pair...>) __attribute__((always_inline)) {
        __m128i v = _mm_setzero_si128();
        const auto insert = [&]<int j>(std::integral_constant<int, j>) __attribute__((always_inline)) {
            const two_entries<T> two = two_at(j);
            v = insert_entry<j + 1>(insert_entry<j>(v, two.first), two.second);
        };
        (insert(std::integral_constant<int, 2 * pair>()), ...);
        return v;
    }
    (std::make_integer_sequence<int, 8 / sizeof(T)>());
}

// Of elements that share bytes: which of its byte's entries an index is. Sixteen at a time.
template <class Element>
[[gnu::always_inline]] inline __m128i within_byte(__m512i indices) noexcept {
    return _mm512_cvtepi32_epi8(_mm512_and_si512(indices, _mm512_set1_epi32((1 << Element::per_byte_log2) - 1)));
}
// Their entries, from the bytes.
template <class Element>
[[gnu::always_inline]] inline __m128i entries_within(__m128i bytes, __m128i within) noexcept {
    if constexpr (Element::per_byte_log2 == 3) {
        const __m128i bit =
            _mm_shuffle_epi8(_mm_setr_epi8(1, 2, 4, 8, 16, 32, 64, -128, 0, 0, 0, 0, 0, 0, 0, 0), within);
        return _mm_maskz_set1_epi8(_mm_test_epi8_mask(bytes, bit), 1);
    } else {
        const __m128i low = _mm_set1_epi8(15);
        const __m128i high_halves = _mm_and_si128(_mm_srli_epi16(bytes, 4), low);
        return _mm_mask_mov_epi8(_mm_and_si128(bytes, low), _mm_test_epi8_mask(within, within), high_halves);
    }
}

// Entries of n indices; two_at(slot) reads the bytes that two slots' entries stand in. Indices and what two_at reads
// have been written by an earlier step: read at once they would wait for their stores.
template <class Element, class TwoAt>
[[gnu::always_inline]] inline void read_entries(entry_batch<Element> &out, const ub4 *indices, unsigned n,
                                                TwoAt two_at) noexcept {
    using T = typename Element::entry;
    for (unsigned slot = 0; slot < n; slot += 16)
#pragma GCC unroll 4
        for (unsigned i = slot; i < slot + 16; i += 16 / sizeof(T)) {
            __m128i v = insert_entries<T>([&](int j) __attribute__((always_inline)) {
                return two_at(i + static_cast<unsigned>(j));
            });
            if constexpr (Element::per_byte_log2 != 0)
                v = entries_within<Element>(v, within_byte<Element>(_mm512_loadu_si512(indices + slot)));
            _mm_store_si128(reinterpret_cast<__m128i *>(out.entry + i), v);
        }
}

// ---- The three lookups: entries of n codes that the table has ----

template <class Element>
struct direct_table {
    using T = typename Element::entry;

    const T *entries;
    ub4 first; // code of entry 0

    [[gnu::always_inline]] void read(entry_batch<Element> &out, const ub4 *codes, unsigned n) const noexcept {
        if constexpr (Element::per_byte_log2 == 0) {
            // The table as if it began with code 0.
            read_at(out, codes, codes, n, reinterpret_cast<ub8>(entries) - first * sizeof(T));
        } else {
            alignas(64) ub4 index[batch_rows], byte[batch_rows];
            const __m512i from = _mm512_set1_epi32(static_cast<int>(first));
            for (unsigned slot = 0; slot < n; slot += 16) {
                const __m512i indices = _mm512_sub_epi32(_mm512_loadu_si512(codes + slot), from);
                _mm512_store_si512(index + slot, indices);
                _mm512_store_si512(byte + slot, _mm512_srli_epi32(indices, Element::per_byte_log2));
            }
            read_at(out, index, byte, n, reinterpret_cast<ub8>(entries));
        }
    }

private:
    [[gnu::always_inline]] static void read_at(entry_batch<Element> &out, const ub4 *indices, const ub4 *places,
                                               unsigned n, ub8 base) noexcept {
        const auto entry = [base](ub8 place) __attribute__((always_inline)) {
            return load_entry<T>(reinterpret_cast<const void *>(base + place * sizeof(T)));
        };
        read_entries<Element>(
            out, indices, n, [&](unsigned slot) __attribute__((always_inline)) {
                const ub8 two = load_entry<ub8>(places + slot);
                return two_entries<T>{entry(static_cast<ub4>(two)), entry(two >> 32)};
            });
    }
};

template <class Element>
struct sim_table : direct_table<Element> {
    sim_table(const tavo_vec *dict, const tavo_xlate_ctx *) noexcept
        : direct_table<Element>{reinterpret_cast<const typename Element::entry *>(dict->bits), 0} {}
};
template <class Element>
struct off_table : direct_table<Element> {
    off_table(const tavo_vec *dict, const tavo_xlate_ctx *ctx) noexcept
        : direct_table<Element>{reinterpret_cast<const typename Element::entry *>(dict->bits), ctx->low} {}
};

template <class Element>
struct ind_table {
    using T = typename Element::entry;
    static constexpr T no_leaf = static_cast<T>(~T{0}); // what a missing leaf holds

    const ub8 *leaves;
    ub4 shift;

    ind_table(const tavo_vec *dict, const tavo_xlate_ctx *ctx) noexcept : leaves(dict->bits), shift(ctx->shift) {}

    // In steps, so that no entry waits for its own leaf's address: all addresses first.
    [[gnu::always_inline]] void read(entry_batch<Element> &out, const ub4 *codes, unsigned n) const noexcept {
        alignas(64) ub4 index[batch_rows], leaf_number[batch_rows];
        ub8 address[batch_rows];
        const __m512i mask = _mm512_set1_epi32(static_cast<int>((1ull << shift) - 1));
        const __m512i shifts = _mm512_set1_epi32(static_cast<int>(shift)); // by 32 and more: leaf 0
        for (unsigned slot = 0; slot < n; slot += 16) {
            const __m512i in_slots = _mm512_loadu_si512(codes + slot);
            _mm512_store_si512(index + slot, _mm512_and_si512(in_slots, mask));
            _mm512_store_si512(leaf_number + slot, _mm512_srlv_epi32(in_slots, shifts));
        }
        for (unsigned slot = 0; slot < whole_registers(n); slot++) {
            const ub8 leaf = leaves[leaf_number[slot]];
            const ub8 entry = leaf + static_cast<ub8>(index[slot] >> Element::per_byte_log2) * sizeof(T);
            address[slot] = leaf == 0 ? reinterpret_cast<ub8>(&no_leaf) : entry;
        }
        const auto entry = [&](unsigned slot) __attribute__((always_inline)) {
            return load_entry<T>(reinterpret_cast<const void *>(address[slot]));
        };
        read_entries<Element>(
            out, index, n, [&](unsigned slot) __attribute__((always_inline)) {
                return two_entries<T>{entry(slot), entry(slot + 1)};
            });
    }
};

// Looks the batch's codes up; takes has_code from those without an entry.
template <class Table>
class range_lookup {
public:
    range_lookup(const tavo_vec *dict, const tavo_xlate_ctx *ctx) noexcept
        : table_(dict, ctx), low_(ctx->low), high_(ctx->high) {}

    template <class Element>
    [[gnu::noinline]] void operator()(entry_batch<Element> &entries, code_batch &batch, unsigned n) const noexcept {
        if (low_ > high_) {
            __builtin_memset(&entries, 0, sizeof entries);
            __builtin_memset(batch.has_code, 0, sizeof batch.has_code);
            return;
        }
        const __m512i low = _mm512_set1_epi32(static_cast<int>(low_)),
                      high = _mm512_set1_epi32(static_cast<int>(high_));
        for (unsigned first = 0; first < n; first += 64) {
            ub8 in_range = 0;
            for (unsigned slot = first; slot < first + 64 && slot < n; slot += 16) {
                const __m512i codes = _mm512_load_si512(batch.code + slot);
                const __m512i nearest = _mm512_max_epu32(_mm512_min_epu32(codes, high), low);
                _mm512_store_si512(batch.code + slot, nearest);
                in_range |= hits_of_mask(_mm512_cmpeq_epi32_mask(codes, nearest)) << slot % 64;
            }
            batch.has_code[first / 64] &= in_range;
        }
        table_.read(entries, batch.code, n);
    }

private:
    Table table_;
    ub4 low_, high_;
};

} // namespace tavo
