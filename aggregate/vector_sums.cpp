// Sums of plain vectors: the sum of small unsigned values, and running sums.
#include "aggregate/group_operations.h"
#include "aggregate/number_column.h"
#include "aggregate/running_sums.h"
#include "frame/dispatch_table.h"
#include "frame/tavoc_avx512g.h"
#include "portable/mask_number.h"

namespace tavo {
namespace {

// Counters of Bytes bytes in lanes, wrapping; what wraps is counted beside them, by a compare and a population count.
template <unsigned Bytes>
class wrapping_counters {
public:
    [[gnu::always_inline]] void add(__m512i stored) noexcept {
        __m512i v = stored;
        if constexpr (Bytes == 2)
            v = reverse_bytes_in_lanes<2>(stored);
        if constexpr (Bytes == 1) {
            lanes = _mm512_add_epi8(lanes, v);
            wraps += static_cast<ub4>(__builtin_popcountll(hits_of_mask(_mm512_cmplt_epu8_mask(lanes, v))));
        } else {
            lanes = _mm512_add_epi16(lanes, v);
            wraps += static_cast<ub4>(__builtin_popcountll(hits_of_mask(_mm512_cmplt_epu16_mask(lanes, v))));
        }
    }
    [[gnu::always_inline]] ub4 total() const noexcept {
        using value = std::conditional_t<Bytes == 1, ub1, ub2>;
        value lane[64 / Bytes];
        _mm512_storeu_si512(lane, lanes);
        ub4 sum = wraps << 8 * Bytes;
        for (const value v : lane)
            sum += v;
        return sum;
    }

private:
    __m512i lanes = _mm512_setzero_si512();
    ub4 wraps = 0;
};

// Of n values from p on, 16-bit ones big-endian; wraps as a ub4.
template <unsigned Bytes>
ub4 sum_of(const ub1 *p, ub8 n) noexcept {
    wrapping_counters<Bytes> counters[2];
    const ub1 *const end = p + n * Bytes;
    for (; end - p >= 128; p += 128) {
        counters[0].add(_mm512_loadu_si512(p));
        counters[1].add(_mm512_loadu_si512(p + 64));
    }
    if (end - p >= 64) {
        counters[0].add(_mm512_loadu_si512(p));
        p += 64;
    }
    ub4 sum = counters[0].total() + counters[1].total();
    for (; p < end; p += Bytes)
        sum += Bytes == 1 ? *p : reversed_bytes(read_native<ub2>(p));
    return sum;
}

} // namespace
} // namespace tavo

// The column is read from env.resume_row on: a row number in what is left of it, a number of bytes in where it begins,
// also for values of two bytes.
ub4 tavo_sum_vec_dydi(tavo_vec *res, tavo_vec *src, tavo_env *env) noexcept {
    using namespace tavo;
    const ub1 width_code = TAVO_VEC_ENC_CTX(src)->width_code;
    if (width_code != tavo::width_code(8) && width_code != tavo::width_code(16))
        return TAVO_DONE;
    const ub4 start = env->resume_row, rows = TAVO_VEC_SIZE(src);
    const ub1 *const data = column_data(src, env, TAVO_KERNEL_TEXTS(tavo_sum_vec_dydi)) + start;
    const ub8 n = start < rows ? rows - start : 0;
    const ub4 sum = width_code == tavo::width_code(8) ? sum_of<1>(data, n) : sum_of<2>(data, n);
    write_native(res->data, read_native<ub4>(res->data) + sum);
    return TAVO_DONE;
}

ub4 tavo_prefix_sum_vec_dydi(tavo_vec *res, tavo_vec *src, tavo_env *env) noexcept {
    using namespace tavo;
    const ub1 *const data = TAVO_VEC_ENC_CTX(src) == nullptr
                                ? static_cast<const ub1 *>(src->data)
                                : column_data(src, env, TAVO_KERNEL_TEXTS(tavo_prefix_sum_vec_dydi));
    const ub8 n = TAVO_VEC_SIZE(src);
    auto *const out = static_cast<ub1 *>(res->data);
    write_native<ub4>(out, 0);
    running_sums sums;
    ub8 i = 0;
    for (; i + 16 <= n; i += 16)
        _mm512_storeu_si512(out + 4 * i + 4, sums.next(_mm512_loadu_si512(data + 4 * i)));
    const auto rest = static_cast<__mmask16>(_bzhi_u32(0xffff, static_cast<ub4>(n - i)));
    _mm512_mask_storeu_epi32(out + 4 * i + 4, rest, sums.next(_mm512_maskz_loadu_epi32(rest, data + 4 * i)));
    return TAVO_DONE;
}
