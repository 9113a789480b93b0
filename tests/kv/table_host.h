// The host's side of a join table, for tests: memory that ends at unreadable pages, an allocator that can refuse, and
// vectors to call with.
#pragma once

#include <atomic>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <vector>

#include "frame/tavo.h"
#include "tests/kit/guarded.h"

namespace tavo::test {

constexpr ub4 refusal = 77; // what the allocator returns when it refuses
constexpr ub4 no_prefetch = 0xffffffff;

enum class table_form { idx, ptr, ptr_prefetch };
inline const char *name_of(table_form form) {
    return form == table_form::idx ? "idx" : form == table_form::ptr ? "ptr" : "ptr_prefetch";
}

// A table with its memory. Stands at a multiple of its alignment, so that the allocator finds it from a region.
class alignas(512) host_table {
public:
    tavo_kv kv{};

    // `segment_log2` 12: 64 buckets a segment.
    host_table(ub4 kind, ub4 type, ub8 ndv, ub8 rows, table_form form = table_form::ptr, ub4 segment_log2 = 12) {
        kv.flags = TAVO_KV_FLAGS(kind, type);
        const auto *lib = &tavo_global_specialized_ctx;
        const ub4 upper = form == table_form::ptr_prefetch ? 0 : no_prefetch;
        status_ = lib->layout_kv(ndv, rows, &kv.flags, &kv, segment_log2, 0, upper, 0, form != table_form::idx);
        for (ub4 r = 0; r < 3; r++) {
            // More places than layout asks for: callers of the array kinds map one segment beyond.
            pointers_[r].resize(kv.region[r].segment_count + 2);
            kv.region[r].segments = pointers_[r].data();
        }
        for (ub4 s = 0; kind < TAVO_KV_ARRAY && s < kv.region[0].segment_count; s++)
            map(0, s);
    }
    host_table(const host_table &) = delete;
    host_table &operator=(const host_table &) = delete;

    ub4 layout_status() const { return status_; }

    void map(ub4 region, ub8 segment) {
        if (segment >= pointers_[region].size())
            std::abort();
        if (pointers_[region][segment])
            return;
        memory_[region].emplace_back(tavo_kv_segment_bytes(&kv, region), guard::behind, 0);
        pointers_[region][segment] = memory_[region].back().data();
        kv.region[region].mapped_segments = std::max(kv.region[region].mapped_segments, static_cast<ub4>(segment) + 1);
    }
    // What a caller does after a build stopped with 11, 12 or a refusal.
    void map_missing(const tavo_kv_status &status) {
        for (ub8 s = 0; s <= status.build.segment; s++)
            map(status.build.region_class, s);
    }

    ub4 allocated(ub4 region) const { return next_[region]; }
    double refuse = 0; // share of allocations that are refused
    ub4 refuse_with = refusal;
    ub8 refusals = 0;

    static ub4 alloc(tavo_kv_region *region, ub4 count, ub8 *id) {
        auto *table = reinterpret_cast<host_table *>(reinterpret_cast<ub8>(region) & ~(alignof(host_table) - 1));
        return table->hand_out(static_cast<ub4>(region - table->kv.region), count, id);
    }

private:
    ub4 hand_out(ub4 r, ub4 count, ub8 *id) {
        const std::lock_guard lock(mutex_);
        const ub4 in_segment = 1u << kv.region[r].element_bits;
        ub4 first = next_[r];
        if (first / in_segment != (first + count - 1) / in_segment)
            first = (first + count - 1) / in_segment * in_segment;
        *id = first;
        if (refuse > 0 && std::uniform_real_distribution(0., 1.)(rng_) < refuse) {
            refusals++;
            return refuse_with;
        }
        map(r, first / in_segment);
        next_[r] = first + count;
        return 0;
    }

    std::vector<void *> pointers_[3];
    std::vector<guarded> memory_[3];
    ub4 next_[3] = {};
    ub4 status_ = 0;
    std::mutex mutex_;
    std::mt19937_64 rng_{42};
};

// A vector over bytes that end at an unreadable page.
struct host_vector {
    guarded memory;
    tavo_enc_ctx enc{};
    tavo_vec vec{};
    std::vector<guarded> texts; // what addresses in the vector lead to
    guarded lengths{std::size_t{0}};

    explicit host_vector(std::size_t bytes, ub4 rows = 0) : memory(bytes) {
        vec.data = memory.data();
        vec.size = rows;
        vec.enc = &enc;
    }
    host_vector(const host_vector &) = delete;
};

template <class T>
void put(ub1 *to, T v) {
    std::memcpy(to, &v, sizeof v);
}

// A key as its bytes, before it is brought into a slot.
using key_bytes = std::vector<ub1>;

struct type_figures {
    ub4 code, key, value, count_bits, index_capacity, index_key, index_value, pointer_capacity, pointer_key,
        pointer_value;
    const char *name;
};
// The buckets' figures, stated once more.
inline const std::vector<type_figures> &type_list() {
    static const std::vector<type_figures> types = {
        {1, 2, 4, 4, 10, 4, 24, 9, 10, 28, "k2v4"}, {2, 2, 8, 3, 6, 4, 16, 5, 10, 24, "k2v8"},
        {3, 4, 0, 4, 15, 4, 0, 13, 12, 0, "k4"},    {4, 4, 4, 3, 7, 4, 32, 6, 12, 36, "k4v4"},
        {5, 4, 8, 3, 5, 4, 24, 4, 12, 32, "k4v8"},  {6, 6, 0, 4, 10, 4, 0, 9, 10, 0, "k6"},
        {7, 6, 4, 3, 6, 4, 40, 5, 10, 40, "k6v4"},  {8, 6, 8, 3, 4, 4, 32, 3, 10, 32, "k6v8"},
        {9, 8, 0, 3, 7, 8, 0, 6, 16, 0, "k8"},      {10, 8, 4, 3, 5, 4, 44, 4, 12, 44, "k8v4"},
        {11, 8, 8, 2, 3, 8, 32, 3, 16, 40, "k8v8"}, {12, 10, 4, 3, 4, 4, 44, 3, 10, 40, "k10v4"},
        {13, 12, 0, 3, 5, 4, 0, 4, 12, 0, "k12"},   {15, 12, 4, 2, 3, 4, 40, 3, 12, 48, "k12v4"}};
    return types;
}
inline const type_figures &figures_of(ub4 type) {
    for (const type_figures &t : type_list())
        if (t.code == type)
            return t;
    std::abort();
}

} // namespace tavo::test
