// Group keys: the dictionary codes of several columns folded into one ub4 a row.
//
//   key       multiply rule: (...(k0 * C1 + k1) * C2 + k2 ...), C the columns' symbol_count
//             shift rule:    (...(k0 << W1) + k1) << W2) + k2 ...), W the columns' width_bits
//   space     the number that all keys are below: 1, then for each column space * C, or ((space - 1) << W) + C
//
// A column's codes are unpacked by its kernel in the dispatch table, the first into the keys themselves, the others
// into the scratch array and from there into the keys, so many rows at a time as the scratch array holds. Selection and
// runs are those kernels' business: every column sees the same rows.
#include <algorithm>
#include <type_traits>

#include "aggregate/group_operations.h"
#include "frame/dispatch_table.h"
#include "frame/tavoc_avx512g.h"
#include "portable/intrinsics.h"

namespace tavo {
namespace {

// What is kept of a column between two stretches of rows: where its runs are, and its factor or shift.
struct column_info {
    ub4 run_index, run_end, parameter;
};

enum class key_rule { multiply, shift };

template <key_rule Rule>
[[gnu::always_inline]] inline __m512i stepped(__m512i keys, __m512i parameter) noexcept {
    if constexpr (Rule == key_rule::multiply)
        return _mm512_mullo_epi32(keys, parameter);
    else
        return _mm512_sllv_epi32(keys, parameter);
}

[[gnu::always_inline]] inline ub4 shift_count(ub4 shift) noexcept { return shift % 32; }

template <key_rule Rule>
[[gnu::always_inline]] inline __m512i step_parameter(ub4 parameter) noexcept {
    return _mm512_set1_epi32(static_cast<int>(Rule == key_rule::shift ? shift_count(parameter) : parameter));
}

// Codes of a column as its kernel unpacks them when it isn't asked for wide ones: ub1, ub2 or ub4.
struct no_codes {};
[[gnu::always_inline]] inline __m512i load_codes(const ub1 *p, __mmask16 m) noexcept {
    return _mm512_cvtepu8_epi32(_mm_maskz_loadu_epi8(m, p));
}
[[gnu::always_inline]] inline __m512i load_codes(const ub2 *p, __mmask16 m) noexcept {
    return _mm512_cvtepu16_epi32(_mm256_maskz_loadu_epi16(m, p));
}
[[gnu::always_inline]] inline __m512i load_codes(const ub4 *p, __mmask16 m) noexcept {
    return _mm512_maskz_loadu_epi32(m, p);
}

// n keys, 16 at a time: multiplied or shifted, then `codes` added if there are any.
template <key_rule Rule, class Code>
[[gnu::always_inline]] inline void step_keys(ub4 *keys, ub4 parameter, const Code *codes, ub4 n) noexcept {
    const __m512i by = step_parameter<Rule>(parameter);
    const auto step = [&](__m512i key, ub4 row, __mmask16 rows) {
        const __m512i moved = stepped<Rule>(key, by);
        if constexpr (std::is_same_v<Code, no_codes>)
            return moved;
        else
            return _mm512_add_epi32(moved, load_codes(codes + row, rows));
    };
    ub4 i = 0;
    for (; n - i >= 16; i += 16)
        _mm512_storeu_si512(keys + i, step(_mm512_loadu_si512(keys + i), i, 0xffff));
    const auto rest = static_cast<__mmask16>(_bzhi_u32(0xffff, n - i));
    _mm512_mask_storeu_epi32(keys + i, rest, step(_mm512_maskz_loadu_epi32(rest, keys + i), i, rest));
}

template <class Code>
void add_codes(key_rule rule, ub4 *keys, ub4 parameter, const void *codes, ub4 n) noexcept {
    if (rule == key_rule::multiply)
        step_keys<key_rule::multiply>(keys, parameter, static_cast<const Code *>(codes), n);
    else
        step_keys<key_rule::shift>(keys, parameter, static_cast<const Code *>(codes), n);
}

// The codes lie in elements as wide as the column's kernel makes them.
void add_column(key_rule rule, ub4 *keys, ub4 parameter, const void *codes, const tavo_enc_ctx *enc, ub4 n) noexcept {
    const unsigned code = enc->kernel_row >> 2 & 0x1f;
    (code <= width_code(8)    ? add_codes<ub1>
     : code <= width_code(16) ? add_codes<ub2>
                              : add_codes<ub4>)(rule, keys, parameter, codes, n);
}

ub4 parameter_of(key_rule rule, const tavo_enc_ctx *enc) noexcept {
    return rule == key_rule::multiply ? enc->symbol_count : enc->width_bits & 0xff;
}

// The rows of one stretch, column by column.
class key_pass {
public:
    key_pass(const tavo_env *env, tavo_vec *cols, column_info *info, key_rule rule) noexcept
        : call(*env), cols(cols), info(info), rule(rule), list(env->sel_bits == nullptr ? env->ones_vec : nullptr),
          list_size(list != nullptr ? env->ones_vec_size : 0) {}

    // Keys of at most `room` rows from `row` on; moves `row` behind them.
    ub4 run(ub4 *keys, ub4 room, tavo_vec *temp, ub4 ncols, ub4 &row) noexcept {
        const ub4 n = unpack(0, keys, room, row);
        for (ub4 c = 1; c < ncols; c++) {
            unpack(c, temp->data, room, row);
            add_column(rule, keys, info[c].parameter, temp->data, TAVO_VEC_ENC_CTX(&cols[c]), n);
        }
        row = call.resume_row;
        list_done += n;
        return n;
    }
    // A position list is handed on in pieces: the unpacking kernels don't hold it against their room.
    bool has_rows_left() const noexcept { return list == nullptr || list_done < list_size; }

private:
    // The first column's codes are the keys to begin with, and so ub4; the others' are as narrow as they come: less to
    // store and to load again.
    ub4 unpack(ub4 c, void *out, ub4 room, ub4 row) noexcept {
        tavo_vec dst{};
        dst.data = out;
        dst.size = room;
        call.flags = static_cast<ub1>(c == 0 ? call.flags | TAVO_ENV_WIDE : call.flags & ~TAVO_ENV_WIDE);
        call.resume_row = row;
        call.run_index = info[c].run_index;
        call.run_end = info[c].run_end;
        if (list != nullptr) {
            call.ones_vec = list + list_done;
            call.ones_vec_size = std::min(room, list_size - list_done);
        }
        const ub4 index = TAVO_DISPATCH_INDEX(TAVO_VEC_ENC_CTX(&cols[c])->kernel_row, TAVO_OP_DECODE_UNPACK);
        tavo_dispatch_table.slot[index].row_move(&dst, &cols[c], &call);
        if (keeps_runs(c)) {
            info[c].run_index = call.run_index;
            info[c].run_end = call.run_end;
        }
        return dst.count;
    }
    // The runs of the columns from 32 on are looked for from the column's start each time.
    bool keeps_runs(ub4 c) const noexcept { return c < 32 && TAVO_ENC_CTX_FLAG(TAVO_VEC_ENC_CTX(&cols[c]), TAVO_RLE); }

    tavo_env call; // the caller's isn't changed
    tavo_vec *cols;
    column_info *info;
    key_rule rule;
    ub4 *list;
    ub4 list_size, list_done = 0;
};

} // namespace
} // namespace tavo

ub4 tavo_groupkey_dydi(tavo_vec *keys, ub4 *key_space, tavo_vec *cols, ub4 ncols, tavo_vec *temp,
                       tavo_env *env) noexcept {
    using namespace tavo;
    const key_rule rule = env->flags & TAVO_ENV_MULTIPLY_KEYS ? key_rule::multiply : key_rule::shift;
    ub8 space = 1;
    for (ub4 c = 0; c < ncols; c++) {
        const tavo_enc_ctx *enc = TAVO_VEC_ENC_CTX(&cols[c]);
        if (!TAVO_ENC_CTX_FLAG(enc, TAVO_PACKED_KEYS))
            return TAVO_UNSUPPORTED;
        const ub8 parameter = parameter_of(rule, enc);
        space = rule == key_rule::multiply ? space * parameter : ((space - 1) << parameter % 64) + enc->symbol_count;
        if (space >> 32 != 0)
            return TAVO_OUT_OF_RANGE;
    }
    *key_space = static_cast<ub4>(space);

    tavo_host *host = env->host;
    ub8 cookie = 0;
    auto *info = static_cast<column_info *>(host->temp_allocate(host->handle, ncols * sizeof(column_info),
                                                                "tavo_groupkey_dydi: temp column info", 4, 0, &cookie));
    for (ub4 c = 0; c < ncols; c++)
        info[c] = {0, 0, parameter_of(rule, TAVO_VEC_ENC_CTX(&cols[c]))};

    const ub4 rows = ncols != 0 ? TAVO_VEC_SIZE(cols) : 0;
    auto *out = static_cast<ub4 *>(keys->data);
    ub4 row = env->resume_row, room = TAVO_VEC_SIZE(keys);
    key_pass pass(env, cols, info, rule);
    while (row < rows && room > 0 && pass.has_rows_left()) {
        TAVO_ASSERT(TAVO_VEC_SIZE(temp) != 0);
        const ub4 n = pass.run(out, std::min(room, TAVO_VEC_SIZE(temp)), temp, ncols, row);
        out += n;
        room -= n;
    }
    host->temp_release(host->handle, info, cookie);
    keys->count = TAVO_VEC_SIZE(keys) - room;
    return room == 0 && row < rows ? TAVO_ROWS_FULL : TAVO_DONE;
}

TAVO_KEPT void tavo_mul_ub4_const(ub4 *keys, ub4 factor, ub4 n) noexcept {
    tavo::step_keys<tavo::key_rule::multiply, tavo::no_codes>(keys, factor, nullptr, n);
}
TAVO_KEPT void tavo_shl_ub4_const(ub4 *keys, ub4 shift, ub4 n) noexcept {
    tavo::step_keys<tavo::key_rule::shift, tavo::no_codes>(keys, shift, nullptr, n);
}
