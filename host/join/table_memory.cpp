#include "host/join/table_memory.h"

#include <cstdlib>
#include <cstring>
#include <fmt/format.h>
#include <sys/mman.h>

#include "host/error.h"

namespace host {

namespace {

constexpr ub8 huge_page = 2 << 20;

// Zeroed; null if there is no memory.
void *zeroed_block(ub8 bytes) noexcept {
    const bool huge = bytes >= huge_page;
    const ub8 alignment = huge ? huge_page : 64;
    const ub8 size = (bytes + alignment - 1) / alignment * alignment;
    void *block = std::aligned_alloc(alignment, size);
    if (block == nullptr)
        return nullptr;
    if (huge)
        madvise(block, size, MADV_HUGEPAGE); // a probe touches pages at random
    std::memset(block, 0, size);
    return block;
}

// Segments of 64 KiB where the table is small, else of 2 MiB: so many bits of a segment's size.
ub4 segment_log2(ub8 rows) { return rows <= 1 << 14 ? 16 : 21; }

// Tables up to this many rows' buckets, about what the second-level cache holds, take links as numbers, which leaves
// room for an entry more; above it chains are prefetched.
constexpr ub4 rows_of_index_form = 1 << 14;

} // namespace

table_memory::table_memory(const tavo_specialized_ctx &ctx, const shape &s, ub8 overflow_limit)
    : block_(new block{}), overflow_limit_(overflow_limit) {
    if (ctx.layout_kv == nullptr)
        throw error("the library has no operation layout_kv");
    block_->owner = this;
    tavo_kv &kv = block_->kv;
    kv.flags = TAVO_KV_FLAGS(s.kind, s.type);
    const ub4 status = ctx.layout_kv(s.distinct_keys, s.rows, &kv.flags, &kv, segment_log2(s.rows), 0,
                                     rows_of_index_form, 0, s.pointer_form);
    if (status != TAVO_DONE)
        throw error(fmt::format("a join table of {} rows has no layout (status {})", s.rows, status));
    for (unsigned r = 0; r < 3; r++) {
        segments_[r].resize(kv.region[r].segment_count);
        kv.region[r].segments = segments_[r].data();
    }
    for (ub4 segment = 0; segment < kv.region[0].segment_count; segment++)
        if (!map(0, segment)) {
            for (void *mapped : segments_[0])
                std::free(mapped);
            throw error(fmt::format("out of memory for a join table of {} rows", s.rows));
        }
}

table_memory::~table_memory() {
    for (const auto &region : segments_)
        for (void *segment : region)
            std::free(segment);
}

bool table_memory::map(unsigned region, ub4 segment) noexcept {
    tavo_kv &kv = block_->kv;
    const ub8 bytes = tavo_kv_segment_bytes(&kv, region);
    if (region != 0 && (bytes > overflow_limit_ || overflow_bytes_ > overflow_limit_ - bytes))
        return false;
    if ((segments_[region][segment] = zeroed_block(bytes)) == nullptr)
        return false;
    bytes_ += bytes;
    overflow_bytes_ += region == 0 ? 0 : bytes;
    kv.region[region].mapped_segments = segment + 1;
    return true;
}

ub4 table_memory::hand_out(tavo_kv_region *region, ub4 count, ub8 *id) noexcept {
    const auto address = reinterpret_cast<ub8>(region);
    block *b = reinterpret_cast<block *>(address - address % sizeof(block));
    return b->owner->hand_out_of(static_cast<unsigned>(region - b->kv.region), count, id);
}

ub4 table_memory::hand_out_of(unsigned r, ub4 count, ub8 *id) noexcept {
    const tavo_kv_region &region = block_->kv.region[r];
    const ub8 in_segment = ub8{1} << region.element_bits;
    ub8 first = next_[r];
    if (first % in_segment + count > in_segment) // elements of one call lie in one segment
        first = (first / in_segment + 1) * in_segment;
    *id = first;
    const ub8 segment = first / in_segment;
    if (segment >= region.segment_count)
        return over_limit;
    if (segments_[r][segment] == nullptr && !map(r, static_cast<ub4>(segment)))
        return over_limit;
    next_[r] = first + count;
    return TAVO_DONE;
}

} // namespace host
