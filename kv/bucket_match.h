// Which entries of a bucket have a key: one compare of the bucket's register with the key repeated at its stride.
#pragma once

#include "kv/bucket.h"
#include "kv/row_source.h"
#include "portable/intrinsics.h"

namespace tavo {

// Lane l of a register of `Lanes` takes lane (l - First) mod PerKey of the key.
template <class Lane, unsigned Lanes, unsigned PerKey, unsigned First>
struct alignas(64) repeated_lanes {
    Lane lane[Lanes];
    constexpr repeated_lanes() : lane{} {
        for (unsigned l = 0; l < Lanes; l++)
            lane[l] = static_cast<Lane>((l + PerKey * Lanes - First) % PerKey);
    }
};

template <class Bucket>
struct bucket_match {
    static constexpr unsigned key_bytes = Bucket::key_bytes;
    // Lanes as wide as key and place allow. A key is one lane, or several that have to match together.
    static constexpr unsigned lane_bytes = key_bytes % 4 != 0                             ? 2
                                           : key_bytes == 8 && Bucket::first_key % 8 == 0 ? 8
                                                                                          : 4;
    static constexpr unsigned lanes_per_key = key_bytes / lane_bytes;
    static constexpr unsigned first_lane = Bucket::first_key / lane_bytes;
    static_assert(Bucket::first_key % lane_bytes == 0);

    // The key of a slot, repeated at its stride so that it stands where each entry's key does.
    [[gnu::always_inline]] static __m512i repeated(const ub1 *slot) noexcept {
        if constexpr (key_bytes == 2) {
            return repeated_value(load_as<ub2>(slot));
        } else if constexpr (key_bytes == 4) {
            return repeated_value(load_as<ub4>(slot));
        } else if constexpr (key_bytes == 8 && lane_bytes == 8) {
            return _mm512_set1_epi64(load_as<sb8>(slot));
        } else if constexpr (key_bytes == 8) {
            // Keys begin at an odd lane: the halves change places.
            static_assert(first_lane % 2 == 1);
            return _mm512_set1_epi64(static_cast<sb8>(std::rotl(load_as<ub8>(slot), 32)));
        } else if constexpr (lane_bytes == 2) {
            static constexpr repeated_lanes<ub2, 32, lanes_per_key, first_lane> places;
            const __m128i key = _mm_maskz_loadu_epi16((1u << lanes_per_key) - 1, slot);
            return _mm512_permutexvar_epi16(_mm512_load_si512(places.lane), _mm512_castsi128_si512(key));
        } else {
            static constexpr repeated_lanes<ub4, 16, lanes_per_key, first_lane> places;
            const __m128i key = _mm_maskz_loadu_epi32((1u << lanes_per_key) - 1, slot);
            return _mm512_permutexvar_epi32(_mm512_load_si512(places.lane), _mm512_castsi128_si512(key));
        }
    }
    [[gnu::always_inline]] static __m512i repeated_value(ub2 key) noexcept {
        return _mm512_set1_epi16(static_cast<sb2>(key));
    }
    [[gnu::always_inline]] static __m512i repeated_value(ub4 key) noexcept {
        return _mm512_set1_epi32(static_cast<sb4>(key));
    }

    // Bit i: entry i, of `count` entries, has the key. Keys of two bytes are never 0, so all their slots count. The
    // count cuts the result and not the compare: that need not wait for the bucket's header then.
    [[gnu::always_inline]] static ub4 entries(__m512i bucket, __m512i key, unsigned count) noexcept {
        constexpr ub4 lanes = all_ones(Bucket::capacity * lanes_per_key) << first_lane;
        ub4 hits;
        if constexpr (lane_bytes == 2)
            hits = _mm512_mask_cmpeq_epi16_mask(lanes, bucket, key);
        else if constexpr (lane_bytes == 4)
            hits = _mm512_mask_cmpeq_epi32_mask(static_cast<__mmask16>(lanes), bucket, key);
        else
            hits = _mm512_mask_cmpeq_epi64_mask(static_cast<__mmask8>(lanes), bucket, key);
        hits >>= first_lane;
        if constexpr (lanes_per_key > 1) {
            ub4 whole = hits;
            for (unsigned i = 1; i < lanes_per_key; i++)
                whole &= hits >> i;
            hits = _pext_u32(whole, every_key);
        }
        return key_bytes == 2 ? hits : _bzhi_u32(hits, count);
    }

private:
    static constexpr ub4 all_ones(unsigned n) noexcept { return static_cast<ub4>((ub8{1} << n) - 1); }
    // The first lane of each entry's key.
    static constexpr ub4 every_key = [] {
        ub4 lanes = 0;
        for (unsigned i = 0; i < Bucket::capacity; i++)
            lanes |= 1u << (i * lanes_per_key);
        return lanes;
    }();
};

} // namespace tavo
