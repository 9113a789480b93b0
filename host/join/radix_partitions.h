// Radix partitions of rows by bits of their hashes: the library's partition operation driven to the end, with buffers
// that grow by chunks.
#pragma once

#include <memory>
#include <span>
#include <vector>

#include <tavo/tavo.h>

namespace host {

class radix_partitions {
public:
    // 2^bits partitions, by the hash bits from low_bit up. `record`: TAVO_PARTITION_... flags, of record_bytes bytes.
    // chunk_records: room that a partition gets at a time.
    radix_partitions(const tavo_specialized_ctx &, unsigned low_bit, unsigned bits, ub1 record,
                     std::size_t record_bytes, std::size_t chunk_records = 1024);
    radix_partitions(const radix_partitions &) = delete;
    radix_partitions &operator=(const radix_partitions &) = delete;

    // Adds all rows of `hashes` (or of a key column, with `hash`); rids and column as the records need them.
    void add(tavo_vec *hashes, tavo_vec *rids, tavo_vec *column = nullptr, tavo_hash_fn *hash = nullptr,
             tavo_host *host = nullptr);

    std::size_t count() const { return chunks_.size(); }
    // The records of a partition, in the order of their rows: f(span of bytes), chunk by chunk.
    template <class F>
    void each_chunk(std::size_t partition, F f) const {
        const auto &chunks = chunks_[partition];
        for (std::size_t i = 0; i < chunks.size(); i++)
            f(std::span<const ub1>(chunks[i].get(), i + 1 < chunks.size() ? chunk_bytes_ : used(partition)));
    }

private:
    void give_chunk(std::size_t partition);
    std::size_t used(std::size_t partition) const {
        return static_cast<std::size_t>(write_[partition] - chunks_[partition].back().get());
    }

    const tavo_specialized_ctx &ctx_;
    std::size_t chunk_bytes_;
    std::vector<std::vector<std::unique_ptr<ub1[]>>> chunks_;
    std::vector<ub1 *> write_, end_;
    tavo_partition_ctx step_{};
};

} // namespace host
