// A join table told plainly: what the bytes of every bucket are after rows were added, and what a probe finds in them.
#pragma once

#include <cstring>
#include <string>

#include "tests/kv/table_host.h"

namespace tavo::test {

struct table_row {
    ub8 hash = 0; // as it picks the bucket
    key_bytes slot;
    ub8 value = 0;
};

// The slot of a key that stands in a fixed-width column.
inline key_bytes fixed_slot(key_bytes key, ub4 slot_bytes) {
    key.resize(slot_bytes, 0);
    return key;
}
// The slot of a key of any length.
inline key_bytes text_slot(const key_bytes &key, ub4 slot_bytes) {
    key_bytes slot(slot_bytes, 0);
    if (key.size() > slot_bytes - 1) {
        slot[0] = 255;
        return slot;
    }
    slot[0] = static_cast<ub1>(key.size());
    std::copy(key.begin(), key.end(), slot.begin() + 1);
    return slot;
}
// The slot of a hash that is its own key.
inline key_bytes hash_slot(ub8 hash, ub4 hash_bytes, ub4 slot_bytes) {
    ub8 key = hash_bytes == 8 ? hash >> 32 : hash;
    if (slot_bytes == 2)
        key &= 0xffff;
    if (key == 0 && (hash_bytes == 8 || slot_bytes == 2))
        key = 1;
    key_bytes slot(slot_bytes);
    std::memcpy(slot.data(), &key, slot_bytes);
    return slot;
}

struct model_bucket {
    ub1 bytes[64] = {};
};

class table_model {
public:
    explicit table_model(const host_table &table)
        : kv_(&table.kv), type_(figures_of(table.kv.flags & 255)), pointers_(table.kv.flags & TAVO_KV_PTR) {}

    ub4 capacity() const { return pointers_ ? type_.pointer_capacity : type_.index_capacity; }
    ub4 key_at(ub4 i) const { return (pointers_ ? type_.pointer_key : type_.index_key) + i * type_.key; }
    ub4 value_at(ub4 i) const { return (pointers_ ? type_.pointer_value : type_.index_value) + i * type_.value; }

    // All rows go into one segment, or, with -1, where the hash says.
    void add(const table_row &row, sb8 segment_id = -1) {
        const ub8 head = head_of(row.hash, segment_id);
        model_bucket &b = heads_[head];
        ub4 n = count(b);
        if (n == capacity()) {
            const ub8 id = overflow_.size();
            overflow_.push_back(b);
            b = {};
            if (pointers_) {
                const ub1 *at = static_cast<ub1 *>(kv_->region[1].segments[id >> 12]) + (id & 4095) * 64;
                std::memcpy(b.bytes, &at, 8);
            } else {
                const ub4 header = static_cast<ub4>(id + 1) << type_.count_bits;
                std::memcpy(b.bytes, &header, 4);
            }
            links_[head].push_back(id);
            n = 0;
        }
        b.bytes[pointers_ ? 8 : 0]++;
        std::memcpy(b.bytes + key_at(n), row.slot.data(), type_.key);
        if (type_.value)
            std::memcpy(b.bytes + value_at(n), &row.value, type_.value);
    }

    // The bytes of all buckets of both regions against the table's own; the first difference, or nothing.
    std::string difference() const {
        const ub8 buckets = 1ull << kv_->region[0].element_bits;
        for (ub8 s = 0; s < kv_->region[0].segment_count; s++)
            for (ub8 b = 0; b < buckets; b++) {
                const auto head = heads_.find(s * buckets + b);
                const model_bucket want = head == heads_.end() ? model_bucket{} : head->second;
                const auto *got = static_cast<ub1 *>(kv_->region[0].segments[s]) + b * 64;
                if (std::memcmp(got, want.bytes, 64) != 0)
                    return "segment " + std::to_string(s) + " bucket " + std::to_string(b) + ": " + hex(got) +
                           " and not " + hex(want.bytes);
            }
        for (ub8 id = 0; id < overflow_.size(); id++) {
            const auto *got = static_cast<ub1 *>(kv_->region[1].segments[id >> 12]) + (id & 4095) * 64;
            if (std::memcmp(got, overflow_[id].bytes, 64) != 0)
                return "overflow bucket " + std::to_string(id) + ": " + hex(got) + " and not " +
                       hex(overflow_[id].bytes);
        }
        return {};
    }

    // Calls f(bucket, its place: head number or ~id of an overflow bucket) along the chain of a hash.
    template <class F>
    void each_bucket(ub8 hash, F &&f) const {
        const ub8 head = head_of(hash, -1);
        const auto at = heads_.find(head);
        f(at == heads_.end() ? model_bucket{} : at->second, static_cast<sb8>(head));
        const auto chain = links_.find(head);
        if (chain != links_.end())
            for (auto id = chain->second.rbegin(); id != chain->second.rend(); ++id)
                f(overflow_[*id], ~static_cast<sb8>(*id));
    }
    // The entries of a bucket that have the key.
    std::vector<ub4> matches(const model_bucket &b, const key_bytes &slot) const {
        std::vector<ub4> found;
        for (ub4 i = 0; i < count(b); i++)
            if (std::memcmp(b.bytes + key_at(i), slot.data(), type_.key) == 0)
                found.push_back(i);
        return found;
    }
    ub8 value(const model_bucket &b, ub4 entry) const {
        ub8 v = 0;
        std::memcpy(&v, b.bytes + value_at(entry), type_.value);
        return v;
    }
    ub4 count(const model_bucket &b) const { return b.bytes[pointers_ ? 8 : 0] & ((1u << type_.count_bits) - 1); }
    std::size_t overflow_buckets() const { return overflow_.size(); }
    ub8 head_of(ub8 hash, sb8 segment_id = -1) const {
        const tavo_kv_region &r = kv_->region[0];
        const ub8 bucket = (hash & 0xffffffff) & ((1ull << r.element_bits) - 1);
        const ub8 segment =
            segment_id >= 0 ? static_cast<ub8>(segment_id) : hash >> r.element_bits & ((1ull << r.segment_id_bits) - 1);
        return (segment << r.element_bits) + bucket;
    }

private:
    static std::string hex(const ub1 *p) {
        std::string s;
        char two[3];
        for (int i = 0; i < 64; i++) {
            std::snprintf(two, sizeof two, "%02x", p[i]);
            s += two;
        }
        return s;
    }

    const tavo_kv *kv_;
    type_figures type_;
    bool pointers_;
    std::map<ub8, model_bucket> heads_;
    std::map<ub8, std::vector<ub8>> links_; // ids of a head's overflow buckets, oldest first
    std::vector<model_bucket> overflow_;
};

} // namespace tavo::test
