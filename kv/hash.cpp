#include "kv/hash.h"

#include <cstring>

#include "decode/symbol_refs.h"
#include "frame/element_layout.h"
#include "frame/tavoc_avx512g.h"
#include "scan/packed_code.h"

namespace tavo {
namespace {

constexpr ub8 prefetch_rows = 16; // ahead of the row that is hashed

} // namespace

column_hasher::form column_hasher::form_of(const tavo_enc_ctx *enc) noexcept {
    if (TAVO_ENC_CTX_FLAG(enc, TAVO_RLE))
        return form::none;
    if (TAVO_ENC_CTX_FLAG(enc, TAVO_FIXED))
        return form::fixed;
    if (TAVO_ENC_CTX_FLAG(enc, TAVO_PACKED_KEYS)) {
        const unsigned width = static_cast<ub1>(enc->width_bits);
        return width == 0 || width > 32 ? form::none : form::packed_codes; // four bytes are read
    }
    if (TAVO_ENC_CTX_FLAG(enc, TAVO_DICT))
        return form::codes;
    if (TAVO_ENC_CTX_FLAG(enc, TAVO_LV_SEP))
        return form::separate_lengths;
    if (TAVO_ENC_CTX_FLAG(enc, TAVO_LV))
        return form::lengths_inside;
    if (TAVO_ENC_CTX_FLAG(enc, TAVO_LP_SEP))
        return form::addresses;
    if (TAVO_ENC_CTX_FLAG(enc, TAVO_LP))
        return form::references;
    return form::none;
}

column_hasher::column_hasher(const tavo_vec *column, const ub1 *data, tavo_hash_fn *hash, ub4 row, ub8 offset) noexcept
    : column_(column), form_(form_of(TAVO_VEC_ENC_CTX(column))), data_(data), hash_(hash), row_(0), walk_(data) {
    if (form_ == form::separate_lengths)
        walk_over(row);
    else if (form_ == form::lengths_inside)
        walk_ += offset;
    row_ = row;
}

// Elements that lie anywhere: a later row's is fetched before a row's is hashed.
template <class Element>
[[gnu::always_inline]] inline void column_hasher::hash_placed(ub8 *out, ub4 rows, hash_seeds seeds,
                                                              Element element) const noexcept {
    ub8 i = 0;
    const auto hash_one = [&] {
        const auto [bytes, length] = element(row_ + i);
        out[i] = hash_(bytes, length, seeds(row_ + i));
    };
    for (; i + prefetch_rows < rows; i++) {
        __builtin_prefetch(element(row_ + i + prefetch_rows).bytes);
        hash_one();
    }
    for (; i < rows; i++)
        hash_one();
}

template <class Codes>
[[gnu::always_inline]] inline void column_hasher::hash_symbols(ub8 *out, ub4 rows, hash_seeds seeds,
                                                               Codes code) const noexcept {
    const auto by = [&](const auto &symbol) {
        hash_placed(out, rows, seeds, [&](ub8 row) {
            const symbol_extent s = symbol(code(row));
            return element{reinterpret_cast<const ub1 *>(s.address), s.length};
        });
    };
    const tavo_enc_ctx *enc = TAVO_VEC_ENC_CTX(column_);
    if (enc->dict_kind == TAVO_DICT_ONE_LEN)
        by(one_len_symbols(enc));
    else
        by(cla_symbols(enc));
}

template <class Cursor>
[[gnu::always_inline]] inline void column_hasher::hash_walked(ub8 *out, ub4 rows, hash_seeds seeds) noexcept {
    Cursor cursor(column_, walk_, 0);
    for (ub8 i = 0; i < rows; i++) {
        const auto [bytes, length] = cursor.at(row_ + i);
        cursor.next(row_ + i);
        out[i] = hash_(bytes, length, seeds(row_ + i));
    }
    walk_ = cursor.position;
}

void column_hasher::operator()(ub8 *out, ub4 rows, hash_seeds seeds) noexcept {
    row_before_ = row_;
    walk_before_ = walk_;
    const unsigned width = static_cast<ub1>(TAVO_VEC_ENC_CTX(column_)->width_bits);
    const ub1 *data = data_;
    switch (form_) {
    case form::fixed: {
        const fixed_elements fixed(column_, data);
        for (ub8 i = 0; i < rows; i++)
            out[i] = hash_(fixed(row_ + i).bytes, fixed.bytes, seeds(row_ + i));
        break;
    }
    case form::packed_codes:
        hash_symbols(out, rows, seeds, [=](ub8 row) { return packed_code(data, row, width); });
        break;
    case form::codes:
        hash_symbols(out, rows, seeds, [=](ub8 row) {
            ub4 code;
            std::memcpy(&code, data + row * sizeof code, sizeof code);
            return code;
        });
        break;
    case form::separate_lengths: hash_walked<lv_sep_cursor>(out, rows, seeds); break;
    case form::lengths_inside: hash_walked<lv_cursor>(out, rows, seeds); break;
    case form::addresses: hash_placed(out, rows, seeds, lp_sep_elements(column_, data)); break;
    case form::references: hash_placed(out, rows, seeds, lp_elements(column_, data)); break;
    case form::none: break;
    }
    row_ += rows;
}

void column_hasher::walk_over(ub4 rows) noexcept {
    const auto over = [&](auto cursor) {
        cursor.skip(row_, rows);
        walk_ = cursor.position;
    };
    if (form_ == form::separate_lengths)
        over(lv_sep_cursor(column_, walk_, 0));
    else
        over(lv_cursor(column_, walk_, 0));
}

void column_hasher::retreat_to(ub4 rows) noexcept {
    row_ = row_before_;
    walk_ = walk_before_;
    if (form_ == form::separate_lengths || form_ == form::lengths_inside)
        walk_over(rows);
    row_ += rows;
}

} // namespace tavo

ub4 tavo_hash_dydi(tavo_vec *out, tavo_vec *column, tavo_vec *seeds, tavo_hash_fn *hash, tavo_env *env) noexcept {
    const ub4 rows = TAVO_VEC_SIZE(column);
    if (rows == 0)
        return TAVO_DONE;
    if (tavo::column_hasher::form_of(TAVO_VEC_ENC_CTX(column)) == tavo::column_hasher::form::none ||
        !TAVO_ENC_CTX_FLAG(TAVO_VEC_ENC_CTX(seeds), TAVO_HASHES))
        return TAVO_UNSUPPORTED;
    const ub1 *data = tavo::column_data(column, env, TAVO_KERNEL_TEXTS(tavo_hash_dydi));
    tavo::column_hasher hasher(column, data, hash, 0, 0);
    const auto *seed = static_cast<const ub8 *>(seeds->data);
    const ub8 first_seed = *seed; // out may be the seeds' own memory
    if (TAVO_VEC_SIZE(seeds) == 1)
        hasher(static_cast<ub8 *>(out->data), rows, {&first_seed, 0});
    else
        hasher(static_cast<ub8 *>(out->data), rows, {seed, 1});
    return TAVO_DONE;
}
