#include "kv/partition.h"

#include "frame/tavoc_avx512g.h"
#include "kv/hash.h"
#include "kv/partition_records.h"

namespace tavo {
namespace {

constexpr kernel_texts texts = TAVO_KERNEL_TEXTS(tavo_partition_dydi);
constexpr ub4 block_rows = 1024; // hashed at once, on the stack
constexpr ub4 first_record_class = TAVO_RECORD_GDCACHEDHASH;

// Hashes of consecutive rows, `step` words apart; the first is that of row `first`.
struct row_hashes {
    const ub8 *hashes;
    ub8 first;
    ub8 step;
};

// Writes the records of rows first to last - 1; returns the first row that had no room, and its partition.
template <class Record>
[[gnu::noinline]] ub4 scatter(const tavo_partition_ctx *ctx, const Record &record, row_hashes given, ub4 last,
                              ub4 *full_partition) noexcept {
    const Record r = record;
    ub1 **const write_pointers = ctx->write_pointers;
    ub1 **const end_pointers = ctx->end_pointers;
    const ub8 mask = ctx->high_bit >= 63 ? ~0ull : (2ull << ctx->high_bit) - 1;
    const unsigned low_bit = ctx->low_bit;
    for (ub8 row = given.first, at = 0; row < last; row++, at += given.step) {
        const ub8 hash = given.hashes[at];
        const ub8 partition = (hash & mask) >> low_bit;
        ub1 *const to = write_pointers[partition];
        if (end_pointers[partition] - to < static_cast<ptrdiff_t>(Record::size)) {
            *full_partition = static_cast<ub4>(partition);
            return static_cast<ub4>(row);
        }
        // A long record begins a line every second or third time: the partition's next line is fetched ahead. For short
        // ones that costs more than it spares.
        if constexpr (Record::size >= 24)
            __builtin_prefetch(to + 64, 1);
        r.write(to, row, hash);
        write_pointers[partition] = to + Record::size;
    }
    return last;
}

enum class hash_source { hashes, records, keys, other_records };

struct partition_step {
    const tavo_partition_ctx *ctx;
    tavo_vec *source;
    tavo_vec *rids;
    tavo_vec *column;
    tavo_hash_fn *hash;
    tavo_env *env;

    hash_source from() const noexcept {
        const tavo_enc_ctx *enc = TAVO_VEC_ENC_CTX(source);
        const ub4 element_class = enc->flags & TAVO_ELEMENT_CLASS;
        if (element_class == TAVO_RECORD_RIDHASH)
            return hash_source::records;
        if (element_class >= first_record_class)
            return hash_source::other_records;
        return TAVO_ENC_CTX_FLAG(enc, TAVO_HASHES) ? hash_source::hashes : hash_source::keys;
    }

    template <class Record>
    ub4 run(const Record &record) const noexcept {
        const ub4 rows = TAVO_VEC_SIZE(source);
        ub4 row = env->resume_row;
        if (from() == hash_source::keys) {
            column_hasher hasher(source, column_data(source, env, texts), hash, row, env->resume_offset);
            const ub8 seed = 0;
            ub8 hashes[block_rows];
            for (ub4 stop = row; row == stop && row < rows;) {
                stop = rows - row < block_rows ? rows : row + block_rows;
                hasher(hashes, stop - row, {&seed, 0});
                const ub4 reached = scatter(ctx, record, {hashes, row, 1}, stop, &env->full_partition);
                if (reached != stop)
                    hasher.retreat_to(reached - row);
                row = reached;
            }
            if (column_hasher::form_of(TAVO_VEC_ENC_CTX(source)) == column_hasher::form::lengths_inside)
                env->resume_offset = hasher.offset();
        } else {
            const bool records = from() == hash_source::records;
            const ub8 step = records ? 2 : 1;
            const auto *hashes = reinterpret_cast<const ub8 *>(column_data(source, env, texts)) + row * step + records;
            row = scatter(ctx, record, {hashes, row, step}, rows, &env->full_partition);
        }
        env->resume_row = row;
        return row == rows ? TAVO_DONE : TAVO_PARTITION_FULL;
    }

    template <template <class> class Record>
    ub4 run_with_values(auto... further) const noexcept {
        const tavo_enc_ctx *enc = column == nullptr ? nullptr : TAVO_VEC_ENC_CTX(column);
        if (enc == nullptr || !TAVO_ENC_CTX_FLAG(enc, TAVO_FIXED))
            return TAVO_UNSUPPORTED;
        switch (static_cast<ub1>(enc->width_bits)) {
        case 32: return run(Record<ub4>{{column_data(column, env, texts)}, further...});
        case 64: return run(Record<ub8>{{column_data(column, env, texts)}, further...});
        default: return TAVO_UNSUPPORTED;
        }
    }

    template <template <class> class Record>
    ub4 run_with_key_references(auto... further) const noexcept {
        if (column == nullptr)
            return TAVO_UNSUPPORTED;
        const tavo_enc_ctx *enc = TAVO_VEC_ENC_CTX(column);
        if (TAVO_ENC_CTX_FLAG(enc, TAVO_LP))
            return run(Record<key_references>{{column_data(column, env, texts)}, further...});
        if (TAVO_ENC_CTX_FLAG(enc, TAVO_LP_SEP))
            return run(Record<key_addresses>{{column_data(column, env, texts), column->lengths}, further...});
        return TAVO_UNSUPPORTED;
    }

    ub4 run_with_fixed_key() const noexcept {
        if (column == nullptr || !TAVO_ENC_CTX_FLAG(TAVO_VEC_ENC_CTX(column), TAVO_FIXED))
            return TAVO_UNSUPPORTED;
        const unsigned element_bytes = static_cast<ub1>(TAVO_VEC_ENC_CTX(column)->width_bits) / 8;
        if (ctx->record_extra > fixed_key_record::key_room || ctx->record_extra > element_bytes)
            return TAVO_UNSUPPORTED;
        return run(fixed_key_record{column_data(column, env, texts), element_bytes, ctx->record_extra});
    }

    ub4 operator()() const noexcept {
        if (from() == hash_source::other_records)
            return TAVO_UNSUPPORTED;
        if (from() == hash_source::keys &&
            (ctx->flags & TAVO_PARTITION_GIVEN_HASHES ||
             column_hasher::form_of(TAVO_VEC_ENC_CTX(source)) == column_hasher::form::none))
            return TAVO_UNSUPPORTED;
        const unsigned holds = ctx->flags & TAVO_PARTITION_RECORD_BITS;
        constexpr unsigned hash_bit = TAVO_PARTITION_HASH, row_id_bit = TAVO_PARTITION_ROW_ID;
        if (from() == hash_source::records)
            return (holds | row_id_bit) == (hash_bit | row_id_bit) ? run(copied_record{column_data(source, env, texts)})
                                                                   : ub4{TAVO_UNSUPPORTED};
        switch (holds) {
        case hash_bit | TAVO_PARTITION_FIXED_KEY: return run_with_fixed_key();
        case hash_bit | TAVO_PARTITION_KEY_REFERENCE | row_id_bit:
            return run_with_key_references<row_id_key_reference_record>(rids->first_row);
        case hash_bit | TAVO_PARTITION_KEY_REFERENCE: return run_with_key_references<key_reference_record>();
        case hash_bit | TAVO_PARTITION_VALUE | row_id_bit: return run_with_values<value_row_id_record>(rids->first_row);
        case hash_bit | TAVO_PARTITION_VALUE: return run_with_values<value_record>();
        case hash_bit | row_id_bit: return run(row_id_record{rids->first_row});
        case hash_bit: return run(hash_record());
        default: return TAVO_UNSUPPORTED;
        }
    }
};

} // namespace
} // namespace tavo

ub4 tavo_partition_dydi(tavo_partition_ctx *ctx, tavo_vec *hashes_or_keys, tavo_vec *rids, tavo_vec *column,
                        tavo_hash_fn *hash, tavo_env *env) noexcept {
    if (env->resume_row >= TAVO_VEC_SIZE(hashes_or_keys))
        return TAVO_DONE;
    return tavo::partition_step{ctx, hashes_or_keys, rids, column, hash, env}();
}
