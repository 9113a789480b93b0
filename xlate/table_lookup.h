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

// As many entries as 128 bits hold; at(j) is the address of the j-th.
template <class T, class At>
[[gnu::always_inline]] inline __m128i entries_at(At at) noexcept {
    return [&]<int... j>(std::integer_sequence<int, j...>) __attribute__((always_inline)) {
        __m128i v = _mm_setzero_si128();
        ((v = insert_entry<j>(v, load_entry<T>(at(j)))), ...);
        return v;
    }
    (std::make_integer_sequence<int, 16 / sizeof(T)>());
}

// Where the entries of sixteen indices stand: their first bytes' numbers in the table (in entries of whole bytes), and
// which of a byte's entries it is.
template <class Element>
struct index_places {
    [[gnu::always_inline]] explicit index_places(__m512i indices) noexcept
        : place(_mm512_srli_epi32(indices, Element::per_byte_log2)),
          within(
              _mm512_cvtepi32_epi8(_mm512_and_si512(indices, _mm512_set1_epi32((1 << Element::per_byte_log2) - 1)))) {}
    __m512i place;
    __m128i within;
};

// The entries of sixteen bytes that hold several each.
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

// Entries of sixteen indices whose bytes at(slot, place of the index) leads to.
template <class Element, class At>
[[gnu::always_inline]] inline void read_sixteen(typename Element::entry *out, __m512i indices, At at) noexcept {
    using T = typename Element::entry;
    const index_places<Element> places(indices);
    alignas(64) ub4 place[16];
    _mm512_store_si512(place, places.place);
    constexpr unsigned in_register = 16 / sizeof(T);
#pragma GCC unroll 4
    for (unsigned i = 0; i < 16; i += in_register) {
        __m128i v = entries_at<T>([&](int j) __attribute__((always_inline)) {
            return at(i + static_cast<unsigned>(j), place[i + static_cast<unsigned>(j)]);
        });
        if constexpr (Element::per_byte_log2 != 0)
            v = entries_within<Element>(v, places.within);
        _mm_store_si128(reinterpret_cast<__m128i *>(out + i), v);
    }
}

// ---- The three lookups: entries of n codes that the table has ----

template <class Element>
struct direct_table {
    using T = typename Element::entry;

    const T *entries;
    ub4 first; // code of entry 0

    [[gnu::always_inline]] void read(entry_batch<Element> &out, const ub4 *codes, unsigned n) const noexcept {
        const __m512i from = _mm512_set1_epi32(static_cast<int>(first));
        for (unsigned slot = 0; slot < n; slot += 16)
            read_sixteen<Element>(
                out.entry + slot, _mm512_sub_epi32(_mm512_loadu_si512(codes + slot), from),
                [&](unsigned, ub4 place) __attribute__((always_inline)) { return entries + place; });
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

    // Two steps, so that no entry waits for its own leaf's address: all addresses first.
    [[gnu::always_inline]] void read(entry_batch<Element> &out, const ub4 *codes, unsigned n) const noexcept {
        const ub8 within_leaf = (1ull << shift) - 1;
        ub8 address[batch_rows];
        alignas(64) ub4 index[batch_rows];
        const __m512i mask = _mm512_set1_epi32(static_cast<int>(within_leaf));
        for (unsigned slot = 0; slot < n; slot += 16)
            _mm512_store_si512(index + slot, _mm512_and_si512(_mm512_loadu_si512(codes + slot), mask));
        for (unsigned slot = 0; slot < whole_registers(n); slot++) {
            const ub8 leaf = leaves[static_cast<ub8>(codes[slot]) >> shift];
            const ub8 entry = leaf + (index[slot] >> Element::per_byte_log2) * sizeof(T);
            address[slot] = leaf == 0 ? reinterpret_cast<ub8>(&no_leaf) : entry;
        }
        for (unsigned slot = 0; slot < n; slot += 16)
            read_sixteen<Element>(
                out.entry + slot, _mm512_load_si512(index + slot), [&](unsigned i, ub4) __attribute__((always_inline)) {
                    return reinterpret_cast<const void *>(address[slot + i]);
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
