// The shape of tables against a plain restatement of the sizing rule, and the points where it turns.
#include <gtest/gtest.h>

#include <cmath>

#include "kv/kv_table.h"
#include "tests/kv/table_host.h"

namespace tavo::test {
namespace {

const tavo_specialized_ctx *lib() { return &tavo_global_specialized_ctx; }

struct region_figures {
    ub4 segments = 0, id_bits = 0, element_bits = 0, hint = 0, size = 0, entries = 0, one = 0;
    bool operator==(const region_figures &) const = default;
};
struct shape {
    ub4 status = 0, flags = 0;
    region_figures region[3];
};
std::ostream &operator<<(std::ostream &o, const region_figures &r) {
    return o << r.segments << " segments, id bits " << r.id_bits << ", element bits " << r.element_bits << ", hint "
             << r.hint << ", size " << r.size << ", entries " << r.entries << ", one " << r.one;
}

int exponent(ub8 x) { // of x - 1, as the split of floating point numbers gives it; x below 2^53
    int e = 0;
    if (x > 1)
        (void)std::frexp(static_cast<double>(x - 1), &e);
    return e;
}
ub4 id_bits(ub8 x, int bits) { return exponent(x) < bits + 1 ? 0 : static_cast<ub4>(exponent(x) - bits); }

shape plain_layout(ub8 ndv, ub8 rows, ub4 flags, ub4 segment_log2, ub4 lower, ub4 upper, ub4 percent, bool force) {
    shape s;
    s.flags = flags & ~0xc000u;
    const ub4 kind = flags >> 8 & 15, type = flags & 255;
    if (kind == 4 && (type == 4 || type == 5)) {
        const ub8 range = (ndv + 0x20000) & ~0x1ffffull;
        const ub4 segments = static_cast<ub4>((range + 0x1ffff) >> 17);
        s.region[0] = {segments, id_bits(range, 17), 17, type == 4 ? 3u : 4u, type == 4 ? 34u : 64u, 1, 1};
        const region_figures units{static_cast<ub4>((rows + 0x1ffff) >> 17), id_bits(rows, 17), 17, 0,
                                   type == 4 ? 16u : 64u};
        s.region[type == 4 ? 2 : 1] = units;
        if (type == 4)
            s.region[1] = {static_cast<ub4>((rows + 16383) >> 14), id_bits(rows, 14), 14, 0, 136};
        return s;
    }
    if (kind == 5 && type == 3) {
        const ub8 range = (ndv + 0x40000) & ~0x3ffffull;
        s.region[0] = {static_cast<ub4>((range + 0x3ffff) >> 18), id_bits(range, 18), 18, 16, 2, 1, 1};
        s.region[1] = {static_cast<ub4>((ndv + 0x40000) >> 18), id_bits(ndv + 1, 18), 18, 0, 64};
        return s;
    }
    const auto &types = type_list();
    const auto t = std::find_if(types.begin(), types.end(), [&](auto &f) { return f.code == type; });
    if (kind > 3 || t == types.end())
        return {24, flags, {}};

    const ub8 n = std::min(ndv, rows);
    const int seg_bits = segment_log2 < 12 ? 12 : static_cast<int>(segment_log2) - 6;
    const auto ceil_of = [](ub8 a, ub8 b) { return (a + b - 1) / b; };
    const auto extra = [&](ub8 capacity) {
        const ub8 b = ceil_of(n, capacity);
        const ub8 wanted =
            b < upper || percent == 0 ? 2 * b : static_cast<ub8>(static_cast<double>(b) * (100.0 / percent));
        return std::max(seg_bits, exponent(wanted)) - seg_bits;
    };
    const ub8 by_index = ceil_of(rows, t->index_capacity), by_pointer = ceil_of(rows, t->pointer_capacity);
    const bool links_fit = by_index <= (1ull << (32 - t->count_bits)) - 1 && !force;
    const bool index_fits = links_fit && extra(t->index_capacity) < 33;
    const bool pointer_fits = extra(t->pointer_capacity) < 33;
    const bool in_band = by_index >= lower && by_index < upper;
    const bool index = index_fits && (in_band || !pointer_fits);
    if (!index && !pointer_fits)
        return {10, s.flags, {}};
    const ub4 capacity = index ? t->index_capacity : t->pointer_capacity;
    const ub8 overflow = index ? by_index : by_pointer;
    const int e = extra(capacity);
    s.region[0] = {e < 32 ? 1u << e : 0, static_cast<ub4>(e), static_cast<ub4>(seg_bits), 4, 512, capacity, 1};
    s.region[1] = {static_cast<ub4>((overflow + 4095) >> 12), id_bits(overflow, 12), 12, index ? 4u : 0u, 512};
    if (!index)
        s.flags |= 0x4000u | (by_pointer >= upper ? 0x8000u : 0);
    return s;
}

shape actual_layout(ub8 ndv, ub8 rows, ub4 flags, ub4 segment_log2, ub4 lower, ub4 upper, ub4 percent, bool force) {
    tavo_kv kv;
    std::memset(&kv, 0xee, sizeof kv);
    kv.flags = flags;
    shape s;
    s.status = lib()->layout_kv(ndv, rows, &kv.flags, &kv, segment_log2, lower, upper, percent, force);
    s.flags = kv.flags;
    for (int r = 0; r < 3; r++) {
        const tavo_kv_region &from = kv.region[r];
        s.region[r] = {from.segment_count, from.segment_id_bits, from.element_bits, from.alloc_hint,
                       from.element_size,  from.entries,         from.one};
    }
    return s;
}

TEST(KvLayout, AgreesWithThePlainRuleOverRandomInputs) {
    std::mt19937_64 rng(1);
    const auto number = [&](unsigned bits) { return rng() >> (64 - 1 - rng() % bits) & ((1ull << bits) - 1); };
    ub4 of_status[25] = {}, pointers = 0, indices = 0;
    for (int i = 0; i < 200000; i++) {
        const ub8 ndv = number(48), rows = rng() % 3 ? number(44) : ndv + number(4);
        const ub4 kind = rng() % 16 == 0 ? static_cast<ub4>(rng() % 16) : static_cast<ub4>(rng() % 6);
        const ub4 type = rng() % 16 == 0 ? static_cast<ub4>(rng() % 256) : static_cast<ub4>(rng() % 16);
        const ub4 flags = static_cast<ub4>(rng() & 0x1c000) | kind << 8 | type;
        const ub4 segment_log2 = static_cast<ub4>(rng() % 30);
        const ub4 lower = static_cast<ub4>(number(20)), upper = static_cast<ub4>(number(32));
        const ub4 percent = rng() % 2 ? 0 : static_cast<ub4>(1 + rng() % 120);
        const bool force = rng() % 4 == 0;
        const shape want = plain_layout(ndv, rows, flags, segment_log2, lower, upper, percent, force);
        const shape got = actual_layout(ndv, rows, flags, segment_log2, lower, upper, percent, force);
        ASSERT_EQ(got.status, want.status) << ndv << " " << rows << " type " << type << " kind " << kind;
        ASSERT_EQ(got.flags, want.flags);
        of_status[got.status]++;
        if (got.status == 0) {
            (got.flags & TAVO_KV_PTR ? pointers : indices)++;
            for (int r = 0; r < 3; r++)
                ASSERT_EQ(got.region[r], want.region[r])
                    << "region " << r << ": " << ndv << " " << rows << " " << flags << " " << segment_log2 << " "
                    << lower << " " << upper << " " << percent << " " << force;
        }
    }
    for (ub4 seen : {of_status[0], of_status[10], of_status[24], pointers, indices})
        EXPECT_GT(seen, 500u);
}

TEST(KvLayout, Turns) {
    const ub4 k4v4 = TAVO_KV_FLAGS(TAVO_KV_FIXED_KEY, TAVO_KV_K4V4);
    // No rows: the smallest table and no overflow.
    shape s = actual_layout(0, 0, k4v4, 0, 0, 100, 0, false);
    EXPECT_EQ(s.region[0].segments, 1u);
    EXPECT_EQ(s.region[0].element_bits, 12u);
    EXPECT_EQ(s.region[1].segments, 0u);
    EXPECT_FALSE(s.flags & TAVO_KV_PTR);
    // 11 is below the rule's start and means 12 bits of buckets, 12 means 6.
    EXPECT_EQ(actual_layout(0, 0, k4v4, 11, 0, 100, 0, false).region[0].element_bits, 12u);
    EXPECT_EQ(actual_layout(0, 0, k4v4, 12, 0, 100, 0, false).region[0].element_bits, 6u);
    // The band of the index form: 7 rows a bucket, 10 buckets are below, 11 within, 20 above.
    EXPECT_TRUE(actual_layout(70, 70, k4v4, 12, 11, 20, 0, false).flags & TAVO_KV_PTR);
    EXPECT_FALSE(actual_layout(71, 71, k4v4, 12, 11, 20, 0, false).flags & TAVO_KV_PTR);
    EXPECT_FALSE(actual_layout(133, 133, k4v4, 12, 11, 20, 0, false).flags & TAVO_KV_PTR);
    EXPECT_EQ(actual_layout(134, 134, k4v4, 12, 11, 20, 0, false).flags & 0xc000, TAVO_KV_PTR | TAVO_KV_PREFETCH);
    // Fill counts past `upper` only: 1000 buckets, 100 percent.
    EXPECT_EQ(actual_layout(7000, 7000, k4v4, 12, 0, 1001, 100, false).region[0].segments, 32u);
    EXPECT_EQ(actual_layout(6000, 6000, k4v4, 12, 0, 1000, 100, true).region[0].segments, 16u);
    // Blocks of array keys.
    const ub4 arid8 = TAVO_KV_FLAGS(TAVO_KV_ARRAY, TAVO_KV_K4V8);
    EXPECT_EQ(actual_layout(0, 1, arid8, 0, 0, 0, 0, false).region[0].segments, 1u);
    EXPECT_EQ(actual_layout(0x1ffff, 1, arid8, 0, 0, 0, 0, false).region[0].segments, 1u);
    EXPECT_EQ(actual_layout(0x20000, 1, arid8, 0, 0, 0, 0, false).region[0].segments, 2u);
    // A form that fails leaves its figures behind.
    s = actual_layout(~0ull, ~0ull, k4v4, 12, 0, 0, 1, true);
    EXPECT_EQ(s.status, 10u);
}

// The figures come in as arguments for any bucket.
TEST(KvLayout, BucketedTakesItsFigures) {
    tavo_kv a{}, b{};
    a.flags = b.flags = TAVO_KV_FLAGS(TAVO_KV_FIXED_KEY, TAVO_KV_K6V8);
    EXPECT_EQ(lib()->layout_kv(5000, 9000, &a.flags, &a, 13, 0, ~0u, 0, 0), 0u);
    EXPECT_EQ(tavo_kv_layout_bucketed(5000, 9000, &b.flags, 4, 3, 3, 13, &b, 0, ~0u, 0, 0), 0u);
    EXPECT_EQ(std::memcmp(&a, &b, sizeof a), 0);
}

} // namespace
} // namespace tavo::test
