#include "host/join/radix_partitions.h"

#include <fmt/format.h>

#include "host/error.h"

namespace host {

radix_partitions::radix_partitions(const tavo_specialized_ctx &ctx, unsigned low_bit, unsigned bits, ub1 record,
                                   std::size_t record_bytes, std::size_t chunk_records)
    : ctx_(ctx), chunk_bytes_(record_bytes * chunk_records), chunks_(std::size_t{1} << bits), write_(chunks_.size()),
      end_(chunks_.size()) {
    if (ctx.partition == nullptr)
        throw error("the library has no operation partition");
    step_.flags = record;
    step_.low_bit = static_cast<ub1>(low_bit);
    step_.high_bit = static_cast<ub1>(low_bit + bits - 1);
    step_.write_pointers = write_.data();
    step_.end_pointers = end_.data();
}

void radix_partitions::give_chunk(std::size_t partition) {
    chunks_[partition].push_back(std::make_unique_for_overwrite<ub1[]>(chunk_bytes_));
    write_[partition] = chunks_[partition].back().get();
    end_[partition] = write_[partition] + chunk_bytes_;
}

void radix_partitions::add(tavo_vec *hashes, tavo_vec *rids, tavo_vec *column, tavo_hash_fn *hash, tavo_host *host) {
    tavo_env env{};
    env.host = host;
    for (ub4 status; (status = ctx_.partition(&step_, hashes, rids, column, hash, &env)) != TAVO_DONE;) {
        if (status != TAVO_PARTITION_FULL)
            throw error(fmt::format("tavo_partition_dydi failed with status {}", status));
        give_chunk(env.full_partition); // also the first one of a partition
    }
}

} // namespace host
