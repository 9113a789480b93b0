#include "kv/key_slots.h"

#include "frame/tavoc_avx512g.h"

namespace tavo {

// Where the bytes of five 3-byte elements go in five slots of `Slot` bytes; 0x80 is a zero.
template <unsigned Slot>
struct alignas(64) five_of_three {
    ub1 byte[64];
    constexpr five_of_three() : byte{} {
        for (unsigned i = 0; i < 64; i++)
            byte[i] = static_cast<ub1>(i / Slot < 5 && i % Slot < 3 ? i / Slot * 3 + i % Slot : 0x80);
    }
};

// Fifteen source bytes become five slots with one shuffle. Sixteen are read, so the last element is left to the tail.
template <unsigned Slot>
static ub4 expand_three(ub1 *slots, const ub1 *src, ub4 n) noexcept {
    static_assert(5 * Slot <= 64);
    static constexpr five_of_three<Slot> places;
    const __m512i place = _mm512_load_si512(places.byte);
    const __mmask64 five_slots = (ub8{1} << (5 * Slot)) - 1;
    ub4 i = 0;
    for (; i + 6 <= n; i += 5) {
        const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i *>(src + 3 * i));
        const __m512i spread = _mm512_shuffle_epi8(_mm512_broadcast_i32x4(bytes), place);
        _mm512_mask_storeu_epi8(slots + Slot * i, five_slots, spread);
    }
    return i;
}

template <unsigned Slot, unsigned Bytes>
static void copy_each(ub1 *slots, const ub1 *src, ub4 from, ub4 n) noexcept {
    for (ub4 i = from; i < n; i++)
        std::memcpy(slots + Slot * i, src + Bytes * i, Bytes);
}

// Copies n elements of src_elem_bytes bytes to the starts of zeroed slots of DEST_ELEM_BYTES.
template <unsigned DEST_ELEM_BYTES>
static void tavo_fixed_array_copy(ub1 *slots, const ub1 *src, ub4 src_elem_bytes, ub4 n) noexcept {
    TAVO_ASSERT(src_elem_bytes < DEST_ELEM_BYTES);
    switch (src_elem_bytes) {
#define TAVO_COPY(bytes)                                                                                               \
    case bytes:                                                                                                        \
        if constexpr (bytes < DEST_ELEM_BYTES)                                                                         \
            copy_each<DEST_ELEM_BYTES, bytes>(slots, src, 0, n);                                                       \
        break;
        TAVO_COPY(1)
        TAVO_COPY(2)
        TAVO_COPY(4)
        TAVO_COPY(5)
        TAVO_COPY(6)
        TAVO_COPY(7)
        TAVO_COPY(8)
        TAVO_COPY(9)
        TAVO_COPY(10)
        TAVO_COPY(11)
#undef TAVO_COPY
    case 3: copy_each<DEST_ELEM_BYTES, 3>(slots, src, expand_three<DEST_ELEM_BYTES>(slots, src, n), n); break;
    default: break;
    }
}

struct text_key {
    const ub1 *bytes;
    ub4 length;
};

template <key_column::form_t Form>
static text_key text_of(const key_column &keys, ub8 row) noexcept {
    if constexpr (Form == key_column::packed_lp) {
        const ub1 *p = keys.data + row * 10;
        return {load_as<const ub1 *>(p + 2), load_as<ub2>(p)};
    } else if constexpr (Form == key_column::separate_lp) {
        return {load_as<const ub1 *>(keys.data + row * 8), keys.lengths[row]};
    } else {
        const ub1 *p = keys.data + row * keys.bytes + (Form == key_column::records_lp_at16 ? 16 : 0);
        return {load_as<const ub1 *>(p), load_as<ub2>(p + 8)};
    }
}

// A length byte and the key's bytes, or 255 alone for keys that the slot cannot hold.
template <key_column::form_t Form>
static void copy_texts(const key_column &keys, ub4 slot_bytes, ub8 row, ub4 n, ub4 rows, ub1 *slots) noexcept {
    constexpr ub4 ahead = 48;
    for (ub4 i = 0; i < n; i++, slots += slot_bytes) {
        if (row + i + ahead < rows)
            _mm_prefetch(text_of<Form>(keys, row + i + ahead).bytes, _MM_HINT_T0);
        const text_key key = text_of<Form>(keys, row + i);
        if (key.length >= slot_bytes) {
            slots[0] = 255;
            continue;
        }
        slots[0] = static_cast<ub1>(key.length);
        const auto bytes = static_cast<__mmask16>((1u << key.length) - 1);
        _mm_mask_storeu_epi8(slots + 1, bytes, _mm_maskz_loadu_epi8(bytes, key.bytes));
    }
}

const ub1 *key_slots(const key_column &keys, ub4 slot_bytes, ub8 row, ub4 n, ub4 rows, key_buffer &buffer) noexcept {
    if (in_place(keys, slot_bytes))
        return keys.data + row * slot_bytes;
    // What a key leaves of its slot has to be zero, else it would never be found.
    std::memset(buffer.slots, 0, std::size_t{n} * slot_bytes);
    switch (keys.form) {
    case key_column::fixed: {
        const ub1 *src = keys.data + row * keys.bytes;
        switch (slot_bytes) {
        case 4: tavo_fixed_array_copy<4>(buffer.slots, src, keys.bytes, n); break;
        case 6: tavo_fixed_array_copy<6>(buffer.slots, src, keys.bytes, n); break;
        case 8: tavo_fixed_array_copy<8>(buffer.slots, src, keys.bytes, n); break;
        case 10: tavo_fixed_array_copy<10>(buffer.slots, src, keys.bytes, n); break;
        default: tavo_fixed_array_copy<12>(buffer.slots, src, keys.bytes, n); break;
        }
        break;
    }
    case key_column::packed_lp: copy_texts<key_column::packed_lp>(keys, slot_bytes, row, n, rows, buffer.slots); break;
    case key_column::separate_lp:
        copy_texts<key_column::separate_lp>(keys, slot_bytes, row, n, rows, buffer.slots);
        break;
    case key_column::records_lp_at0:
        copy_texts<key_column::records_lp_at0>(keys, slot_bytes, row, n, rows, buffer.slots);
        break;
    case key_column::records_lp_at16:
        copy_texts<key_column::records_lp_at16>(keys, slot_bytes, row, n, rows, buffer.slots);
        break;
    }
    return buffer.slots;
}

const ub8 *wide_hashes(const hash_column &hashes, ub8 row, ub4 n, hash_buffer &buffer) noexcept {
    const ub1 *narrow = hashes.data + row * 4;
    switch (hashes.form) {
    case hash_column::wide: return reinterpret_cast<const ub8 *>(hashes.data) + row;
    case hash_column::narrow:
        for (ub4 i = 0; i < n; i++)
            buffer.hashes[i] = load_as<ub4>(narrow + 4 * i);
        break;
    case hash_column::cached:
        for (ub4 i = 0; i < n; i++)
            buffer.hashes[i] = hashes.table[load_as<ub4>(narrow + 4 * i)];
        break;
    case hash_column::record_word:
        for (ub4 i = 0; i < n; i++)
            buffer.hashes[i] = load_as<ub8>(hashes.data + (row + i) * hashes.bytes + hashes.offset);
        break;
    }
    return buffer.hashes;
}

} // namespace tavo
