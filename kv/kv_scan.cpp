// The walk over a table's buckets for the entries that probes have marked, or for the others.
#include "frame/tavo_status.h"
#include "kv/bucket.h"
#include "kv/kv_table.h"
#include "portable/intrinsics.h"

namespace tavo {

// What a scan is to do, and where it has got to.
struct table_scan {
    const tavo_kv *kv;
    tavo_kv_scan_position *position;
    ub4 end_segment;
    ub4 inverted; // xor on the marks: all ones for the unmarked
    void *values; // null: count only
    ub4 capacity;
    ub8 found = 0;
};

// Heads lie in a row and come by themselves; what a chain leads to is fetched this many buckets ahead.
constexpr ub8 chains_ahead = 16;

template <ub4 Type, bool Prefetch, bool Values>
static ub4 scan_buckets(table_scan &scan) noexcept {
    using bucket = bucket_traits<Type, kv_form::ptr>;
    constexpr ub4 passing_lane = bucket::first_value / bucket::value_bytes;
    const tavo_kv_region &heads = scan.kv->region[0];
    const ub8 buckets = ub8{1} << heads.element_bits;
    auto *out = static_cast<ub1 *>(scan.values);
    ub4 segment = scan.position->segment;
    ub8 number = scan.position->bucket, skip = scan.position->chain_position;
    for (; segment < scan.end_segment; segment++, number = 0) {
        auto *base = static_cast<const ub1 *>(heads.segments[segment]);
        for (; base && number < buckets; number++) {
            const ub1 *at = base + (number << bucket_log2);
            if constexpr (Prefetch)
                if (number + chains_ahead < buckets)
                    if (const ub1 *next = next_bucket<bucket>(scan.kv, at + (chains_ahead << bucket_log2)))
                        _mm_prefetch(next, _MM_HINT_T0);
            ub8 done = 0;
            for (; done < skip; done++)
                at = next_bucket<bucket>(scan.kv, at);
            skip = 0;
            for (; at; done++) {
                if constexpr (Values)
                    if (scan.found + bucket::capacity > scan.capacity) {
                        *scan.position = {segment, number, done, scan.found};
                        return TAVO_SCAN_FULL;
                    }
                const ub1 *next = next_bucket<bucket>(scan.kv, at);
                if constexpr (Prefetch)
                    _mm_prefetch(next ? next : at, _MM_HINT_T0);
                const ub4 word = bucket::count_word_of(at);
                const ub4 filled = (1u << (word & bucket::count_mask)) - 1;
                const ub4 passing = (word >> first_mark ^ scan.inverted) & filled;
                const auto n = static_cast<ub4>(std::popcount(passing));
                if constexpr (Values) {
                    const __m512i entries = _mm512_loadu_si512(at);
                    ub1 *to = out + scan.found * bucket::value_bytes;
                    if constexpr (bucket::value_bytes == 4)
                        _mm512_mask_storeu_epi32(
                            to, static_cast<__mmask16>((1u << n) - 1),
                            _mm512_maskz_compress_epi32(static_cast<__mmask16>(passing << passing_lane), entries));
                    else
                        _mm512_mask_storeu_epi64(
                            to, static_cast<__mmask8>((1u << n) - 1),
                            _mm512_maskz_compress_epi64(static_cast<__mmask8>(passing << passing_lane), entries));
                }
                scan.found += n;
                at = next;
            }
        }
    }
    *scan.position = {scan.end_segment, 0, 0, scan.found};
    return TAVO_DONE;
}

template <ub4 Type>
static ub4 scan_type(table_scan &scan) noexcept {
    if (scan.kv->flags & TAVO_KV_PREFETCH)
        return scan.values ? scan_buckets<Type, true, true>(scan) : scan_buckets<Type, true, false>(scan);
    return scan.values ? scan_buckets<Type, false, true>(scan) : scan_buckets<Type, false, false>(scan);
}

static ub4 scan_table(table_scan &scan) noexcept {
    switch (TAVO_KV_TYPE(scan.kv->flags)) {
    case TAVO_KV_K4V4: return scan_type<TAVO_KV_K4V4>(scan);
    case TAVO_KV_K4V8: return scan_type<TAVO_KV_K4V8>(scan);
    case TAVO_KV_K6V4: return scan_type<TAVO_KV_K6V4>(scan);
    case TAVO_KV_K6V8: return scan_type<TAVO_KV_K6V8>(scan);
    case TAVO_KV_K8V4: return scan_type<TAVO_KV_K8V4>(scan);
    case TAVO_KV_K8V8: return scan_type<TAVO_KV_K8V8>(scan);
    case TAVO_KV_K10V4: return scan_type<TAVO_KV_K10V4>(scan);
    default: return scan_type<TAVO_KV_K12V4>(scan);
    }
}

} // namespace tavo

extern "C" ub4 tavo_mut_kv_scan_dydi(tavo_vec *out, tavo_kv *kv, ub4 mode, tavo_kv_scan_position *position,
                                     ub4 end_segment) noexcept {
    using namespace tavo;
    const ub4 type = TAVO_KV_TYPE(kv->flags);
    if (type < TAVO_KV_K4V4 || type > 15 || table_types[type].value_bytes == 0)
        return TAVO_UNSUPPORTED;
    if (mode < TAVO_SCAN_MARKED || mode > TAVO_SCAN_COUNT_UNMARKED)
        return TAVO_MODE_REFUSED;
    if (!(kv->flags & TAVO_KV_PTR))
        return TAVO_NOT_POINTER_FORM;
    const bool counting = mode == TAVO_SCAN_COUNT_MARKED || mode == TAVO_SCAN_COUNT_UNMARKED;
    table_scan scan{kv,
                    position,
                    end_segment,
                    mode >= TAVO_SCAN_UNMARKED ? ~0u : 0,
                    counting ? nullptr : out->data,
                    counting ? 0 : out->size};
    ub4 result = TAVO_DONE;
    if (position->segment >= end_segment)
        *position = {end_segment, 0, 0, 0};
    else
        result = scan_table(scan);
    if (out && counting)
        out->count = static_cast<ub4>(scan.found);
    else if (out)
        out->size = static_cast<ub4>(scan.found);
    return result;
}
