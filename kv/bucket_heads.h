// The walk over rows in batches: the addresses of a batch's buckets are known, and the buckets on their way, one batch
// before its rows are looked at.
#pragma once

#include "kv/bucket.h"
#include "kv/row_source.h"

namespace tavo {

// Addresses of the head buckets of `n` rows from `row` on, eight at a time. With `segment` all rows lie in that one,
// else the hash picks the segment.
template <class Hash>
[[gnu::noinline]] void bucket_addresses(const tavo_kv *kv, const void *segment, const ub1 *hashes, ub8 row, ub4 n,
                                        ub1 **heads) noexcept {
    const tavo_kv_region &r = kv->region[0];
    const __m512i bucket_mask = _mm512_set1_epi64(static_cast<sb8>(((ub8{1} << r.element_bits) - 1) & 0xffffffff));
    const __m512i segment_mask = _mm512_set1_epi64(tavo_kv_num_segments(kv) - 1);
    const __m512i element_bits = _mm512_set1_epi64(r.element_bits);
    if (!segment && tavo_kv_num_segments(kv) == 1)
        segment = r.segments[0];
    const __m512i base = _mm512_set1_epi64(static_cast<sb8>(reinterpret_cast<ub8>(segment)));
    for (ub4 i = 0; i < n; i += 8) {
        const auto rows = static_cast<__mmask8>(n - i < 8 ? (1u << (n - i)) - 1 : 0xff);
        const __m512i hash = Hash::eight(hashes, row + i, rows);
        const __m512i offset = _mm512_slli_epi64(_mm512_and_si512(hash, bucket_mask), bucket_log2);
        __m512i segments = base;
        if (!segment) {
            const __m512i number = _mm512_and_si512(_mm512_srlv_epi64(hash, element_bits), segment_mask);
            segments = _mm512_mask_i64gather_epi64(base, rows, number, r.segments, 8);
        }
        _mm512_mask_storeu_epi64(heads + i, rows, _mm512_add_epi64(segments, offset));
    }
}

// Two batches of head buckets: heads()[i] is that of row first_row() + i; heads()[i + ahead] is what to fetch while row
// i is worked on, readable for each row of the batch. In the tail, the rows behind the last full batch, that is the
// batch's own first bucket, so that nothing new is fetched.
template <class Hash>
class head_batches {
public:
    static constexpr ub8 ahead = batch_rows;

    head_batches(const tavo_kv *kv, const void *segment, const void *hashes, ub4 rows) noexcept
        : kv_(kv), segment_(segment), hashes_(static_cast<const ub1 *>(hashes)), rows_(rows) {}

    // Goes to the first batch or to the next; false behind the last row.
    bool next() noexcept {
        row_ += size_;
        if (row_ == rows_)
            return false;
        if (rows_ - row_ < batch_rows) {
            size_ = rows_ - row_;
            bucket_addresses<Hash>(kv_, segment_, hashes_, row_, size_, heads_);
            repeat_first(size_);
            return true;
        }
        if (size_ == batch_rows) {
            for (ub4 i = 0; i < batch_rows; i += 8)
                _mm512_storeu_si512(heads_ + i, _mm512_loadu_si512(heads_ + ahead + i));
        } else {
            size_ = batch_rows;
            bucket_addresses<Hash>(kv_, segment_, hashes_, row_, batch_rows, heads_);
            for (ub4 i = 0; i < batch_rows; i++)
                _mm_prefetch(heads_[i], _MM_HINT_T0);
        }
        if (rows_ - row_ >= 2 * batch_rows)
            bucket_addresses<Hash>(kv_, segment_, hashes_, row_ + batch_rows, batch_rows, heads_ + ahead);
        else
            repeat_first(batch_rows);
        prefetch_hashes();
        return true;
    }

    ub1 *const *heads() const noexcept { return heads_; }
    void replace_first(ub1 *bucket) noexcept { heads_[0] = bucket; }
    ub4 first_row() const noexcept { return row_; }
    ub4 size() const noexcept { return size_; }
    bool full() const noexcept { return size_ == batch_rows; }

private:
    void repeat_first(ub4 from) noexcept {
        for (ub4 i = from; i < 2 * batch_rows; i++)
            heads_[i] = heads_[0];
    }
    void prefetch_hashes() const noexcept {
        const ub1 *p = hashes_ + ub8{row_} * Hash::stride;
        for (ub4 byte = 256; byte <= 2048; byte += 64)
            _mm_prefetch(p + byte, _MM_HINT_T0);
    }

    const tavo_kv *kv_;
    const void *segment_;
    const ub1 *hashes_;
    ub4 rows_, row_ = 0, size_ = 0;
    ub1 *heads_[2 * batch_rows];
};

// Fetches what lies 64 to 288 elements ahead in an array of elements of `bytes` bytes.
inline void prefetch_elements(const void *array, ub8 row, ub4 bytes) noexcept {
    const ub1 *p = static_cast<const ub1 *>(array) + row * bytes;
    for (ub4 element = 64; element <= 288; element += 16)
        _mm_prefetch(p + element * bytes, _MM_HINT_T0);
}

} // namespace tavo
