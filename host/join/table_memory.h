// The memory of one join table: the segments that its layout asks for, and the overflow elements that a build asks for
// one after another.
//
// The table proper is mapped and zeroed at once, overflow segments when their first element is handed out. Everything
// is freed with the object. Overflow may be given a limit: a build that needs more stops with `over_limit`, and goes on
// where it stopped when the limit has been raised and it is called again.
#pragma once

#include <memory>
#include <vector>

#include <tavo/tavo.h>

namespace host {

class table_memory {
public:
    static constexpr ub4 over_limit = 99; // no status of the library's
    static constexpr ub8 no_limit = ~0ull;

    struct shape {
        tavo_kv_kind kind;
        tavo_kv_type type;
        ub8 distinct_keys = 0, rows = 0; // estimates; more rows than this may have no room
        bool pointer_form = false;       // that marks can be kept in the table
    };
    table_memory(const tavo_specialized_ctx &, const shape &, ub8 overflow_limit = no_limit);
    ~table_memory();
    table_memory(const table_memory &) = delete;
    table_memory &operator=(const table_memory &) = delete;

    tavo_kv *kv() { return &block_->kv; }
    const tavo_kv *kv() const { return &block_->kv; }
    ub4 segments() const { return 1u << kv()->region[0].segment_id_bits; }
    bool in_pointer_form() const { return (kv()->flags & TAVO_KV_PTR) != 0; }
    ub8 bytes() const { return bytes_; }                   // mapped
    ub8 overflow_bytes() const { return overflow_bytes_; } // of these, overflow
    void set_overflow_limit(ub8 bytes) { overflow_limit_ = bytes; }

    // To be passed to create_add_kv.
    static ub4 hand_out(tavo_kv_region *region, ub4 count, ub8 *id) noexcept;

private:
    // The callback is given the address of a region and nothing else: it finds the table from that, as the record
    // stands at a multiple of its size.
    struct alignas(128) block {
        tavo_kv kv;
        table_memory *owner;
    };
    static_assert(sizeof(block) == 128);

    ub4 hand_out_of(unsigned region, ub4 count, ub8 *id) noexcept;
    bool map(unsigned region, ub4 segment) noexcept;

    std::unique_ptr<block> block_;
    std::vector<void *> segments_[3];
    ub8 next_[3] = {}; // element to be handed out next
    ub8 bytes_ = 0, overflow_bytes_ = 0, overflow_limit_;
};

} // namespace host
