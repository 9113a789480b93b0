// The members that add rows to the array kinds.
#include "kv/array_add.h"
#include "kv/kv_add_kernels.h"

namespace tavo {
struct arid4 {
    using adder = list4_adder;
};
struct arid8 {
    using adder = list8_adder;
};
} // namespace tavo

#define TAVO_LIST_MEMBER(type, rows, array)                                                                            \
    ub4 tavo_kv_ll_add_##type##_##rows##_##array(tavo_kv *kv, void *, ub4 count, const void *hashes, const void *keys, \
                                                 const void *values, ub4 *done, tavo_kv_alloc_fn *alloc,               \
                                                 tavo_kv_status *status) noexcept {                                    \
        using adder = tavo::array::adder;                                                                              \
        return tavo::add_to_lists<adder, tavo::array_rows_of::rows<adder::value>>(kv, count, hashes, keys, values,     \
                                                                                  done, alloc, status);                \
    }

extern "C" {
TAVO_ADD_LIST_KERNELS(TAVO_LIST_MEMBER)

ub4 tavo_kv_ll_add_k4_key32_acnt(tavo_kv *kv, void *, ub4 count, const void *, const void *key_array, const void *,
                                 ub4 *done, tavo_kv_alloc_fn *, tavo_kv_status *status) noexcept {
    const auto *keys = static_cast<const ub1 *>(key_array);
    const auto key_of = [&](ub4 row) { return tavo::load_as<ub4>(keys + ub8{row} * 4); };
    const tavo::counter_adder adder{kv, status};
    const sb8 limit = static_cast<sb8>(kv->region[0].mapped_segments) << tavo::counter_key_bits;
    // A key beyond the map among the last rows is reported as of the counters' region, unlike in a batch.
    return tavo::add_to_array(
        count, limit, limit, 1, tavo::counter_key_bits, done, status, key_of, [&](ub4 key) { adder.prefetch(key); },
        [&](ub4 row) { return adder.add(key_of(row)); });
}
}
