// How many segments of what size a table takes, and which form of bucket.
#include <algorithm>

#include "frame/tavo_status.h"
#include "kv/array_table.h"
#include "kv/bucket.h"
#include "kv/kv_table.h"

namespace tavo {

// The smallest L with x <= 2^L.
static constexpr ub4 ceil_log2(ub8 x) noexcept { return x > 1 ? static_cast<ub4>(std::bit_width(x - 1)) : 0; }
static constexpr ub8 ceil_div(ub8 x, ub8 by) noexcept { return x / by + (x % by != 0); }
// Id bits of a region that holds x elements in segments of 2^bits.
static constexpr ub1 id_bits(ub8 x, ub4 bits) noexcept {
    return static_cast<ub1>(ceil_log2(x) > bits ? ceil_log2(x) - bits : 0);
}

static_assert(ceil_log2(0) == 0 && ceil_log2(1) == 0 && ceil_log2(2) == 1 && ceil_log2(4096) == 12 &&
              ceil_log2(4097) == 13);

constexpr ub4 overflow_bits = 12; // log2 of the overflow buckets in a segment

// A number of buckets beyond any that has a layout stays one.
static ub8 truncated(double x) noexcept { return x < 0x1p63 ? static_cast<ub8>(x) : ub8{1} << 63; }

// Figures common to region 0 of all kinds.
static void set_table(tavo_kv_region &r, ub4 segments, ub4 id_bits, ub4 element_bits, ub1 hint, ub2 size,
                      ub4 entries) noexcept {
    r.segment_count = segments;
    r.segment_id_bits = static_cast<ub1>(id_bits);
    r.element_bits = static_cast<ub1>(element_bits);
    r.alloc_hint = hint;
    r.element_size = size;
    r.entries = static_cast<ub2>(entries);
    r.one = 1;
}

// Figures of a region whose elements are handed out one by one, room for `elements` of them.
static void set_pool(tavo_kv_region &r, ub8 elements, ub4 element_bits, ub1 hint, ub2 size) noexcept {
    r.segment_count = static_cast<ub4>((elements + ((ub8{1} << element_bits) - 1)) >> element_bits);
    r.segment_id_bits = id_bits(elements, element_bits);
    r.element_bits = static_cast<ub1>(element_bits);
    r.alloc_hint = hint;
    r.element_size = size;
}

static void forget_shape(tavo_kv *kv) noexcept {
    for (tavo_kv_region &r : kv->region)
        r = tavo_kv_region{};
    kv->key_bits = 0;
}

} // namespace tavo

using namespace tavo;

extern "C" ub4 tavo_kv_layout_bucketed(ub8 ndv, ub8 rows, ub4 *flags, ub4 index_capacity, ub4 pointer_capacity,
                                       ub4 count_bits, ub4 segment_log2, tavo_kv *kv, ub4 lower_rows, ub4 upper_rows,
                                       ub4 fill_percent, ub4 force_pointer) noexcept {
    const ub8 n = std::min(ndv, rows);
    const ub4 seg_bits = segment_log2 < 12 ? 12 : segment_log2 - bucket_log2;
    const ub8 max_index = (ub8{1} << (32 - count_bits)) - 1;
    const ub8 rows_index = ceil_div(rows, index_capacity), rows_pointer = ceil_div(rows, pointer_capacity);

    // The bits of segment number that a main region of buckets of this capacity takes. From 33 on there is none.
    const auto fill = [&](ub4 capacity) -> ub4 {
        const ub8 buckets = ceil_div(n, capacity);
        ub8 wanted = 2 * buckets;
        if (buckets >= upper_rows && fill_percent != 0)
            wanted = truncated(static_cast<double>(buckets) * (100.0 / fill_percent));
        return std::max(seg_bits, ceil_log2(wanted)) - seg_bits;
    };
    const auto set_main = [&](ub4 extra, ub4 capacity) {
        set_table(kv->region[0], extra < 32 ? 1u << extra : 0, extra, seg_bits, 4, 512, capacity);
    };

    *flags &= ~(TAVO_KV_PTR | TAVO_KV_PREFETCH);
    forget_shape(kv);
    const ub4 extra_pointer = fill(pointer_capacity);
    const bool pointer_fits = extra_pointer < 33;
    const auto take_pointers = [&]() -> ub4 {
        if (!pointer_fits)
            return TAVO_TABLE_TOO_LARGE;
        set_main(extra_pointer, pointer_capacity);
        set_pool(kv->region[1], rows_pointer, overflow_bits, 0, 512);
        *flags |= TAVO_KV_PTR;
        if (rows_pointer >= upper_rows)
            *flags |= TAVO_KV_PREFETCH;
        return TAVO_DONE;
    };
    if (rows_index > max_index || force_pointer)
        return take_pointers();
    const ub4 extra_index = fill(index_capacity);
    set_main(extra_index, index_capacity);
    if (extra_index >= 33)
        return take_pointers();
    // Links as indices pay in the middle of the range of sizes only.
    if (pointer_fits && (rows_index < lower_rows || rows_index >= upper_rows))
        return take_pointers();
    set_pool(kv->region[1], rows_index, overflow_bits, 4, 512);
    return TAVO_DONE;
}

extern "C" ub4 tavo_layout_kv_dydi(ub8 ndv, ub8 rows, ub4 *flags, tavo_kv *kv, ub4 segment_log2, ub4 lower_rows,
                                   ub4 upper_rows, ub4 fill_percent, ub4 force_pointer) noexcept {
    const ub4 kind = TAVO_KV_KIND(*flags), code = TAVO_KV_TYPE(*flags);
    if (code > 15 || table_types[code].key_bytes == 0)
        return TAVO_BAD_INPUT;
    if (kind <= TAVO_KV_LP) {
        const table_type &t = table_types[code];
        return tavo_kv_layout_bucketed(ndv, rows, flags, t.index.capacity, t.pointer.capacity, t.count_bits,
                                       segment_log2, kv, lower_rows, upper_rows, fill_percent, force_pointer);
    }

    const auto is = [&](ub4 k, ub4 c) { return kind == k && code == c; };
    const auto set_keys = [&](ub4 bits, ub1 hint, ub2 size) {
        const ub8 block = ub8{1} << bits, range = (ndv + block) & ~(block - 1);
        set_table(kv->region[0], static_cast<ub4>((range + block - 1) >> bits), id_bits(range, bits), bits, hint, size,
                  1);
    };
    if (!is(TAVO_KV_ARRAY, TAVO_KV_K4V4) && !is(TAVO_KV_ARRAY, TAVO_KV_K4V8) && !is(TAVO_KV_ARRAY_COUNT, TAVO_KV_K4))
        return TAVO_BAD_INPUT;
    *flags &= ~(TAVO_KV_PTR | TAVO_KV_PREFETCH);
    forget_shape(kv);
    if (kind == TAVO_KV_ARRAY_COUNT) {
        set_keys(counter_key_bits, 16, 2);
        set_pool(kv->region[1], ndv + 1, counter_key_bits, 0, 64);
    } else if (code == TAVO_KV_K4V4) {
        set_keys(list_key_bits, 3, list4_group_bytes);
        set_pool(kv->region[1], rows, list4_record_log2, 0, 8 * list4_record_bytes);
        set_pool(kv->region[2], rows, list_unit_log2, 0, 8 * list4_unit_bytes);
    } else {
        set_keys(list_key_bits, 4, 64);
        set_pool(kv->region[1], rows, list_unit_log2, 0, 64);
    }
    return TAVO_DONE;
}
