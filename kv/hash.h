// Hashing of a column's elements, in whatever form the column has, with the host's function; the contract of the
// operation stands in frame/tavo_avx512g.h.
//
// Forms, by the flags of the column's context, the first that is set:
//
//   TAVO_FIXED        width_bits / 8 bytes of data
//   TAVO_PACKED_KEYS  the symbol of a packed code of width_bits bits, 1 to 32, which is read with 4 bytes from its
//   first
//                     byte on: codes of more than 25 bits have to begin at a whole byte or lose their last bits
//   TAVO_DICT         the symbol of a native ub4 code
//   TAVO_LV_SEP, TAVO_LV, TAVO_LP_SEP, TAVO_LP
//
// A dict_kind of 0 means symbols of one length, any other a cumulative length array. Run-length columns are no such
// form: their codes are those of runs.
#pragma once

#include "frame/tavo_avx512g.h"

namespace tavo {

// One seed for all rows, or a seed each.
struct hash_seeds {
    const ub8 *first;
    ub8 step; // 0 or 1

    [[gnu::always_inline]] ub8 operator()(ub8 row) const noexcept { return first[row * step]; }
};

class column_hasher {
public:
    // `data` is the column's plain data. Starts at `row`; elements that only a walk finds (TAVO_LV) start at byte
    // `offset` of it.
    column_hasher(const tavo_vec *column, const ub1 *data, tavo_hash_fn *hash, ub4 row, ub8 offset) noexcept;

    enum class form { fixed, packed_codes, codes, separate_lengths, lengths_inside, addresses, references, none };
    static form form_of(const tavo_enc_ctx *enc) noexcept;

    // Hashes the next `rows` rows into out[0] and on; seeds go by row number.
    void operator()(ub8 *out, ub4 rows, hash_seeds seeds) noexcept;
    // Goes back to what it was before the last call, and forth over `rows` of its rows without hashing them.
    void retreat_to(ub4 rows) noexcept;
    // Byte offset of the next element of a walked form.
    ub8 offset() const noexcept { return static_cast<ub8>(walk_ - data_); }

private:
    template <class Element>
    void hash_placed(ub8 *out, ub4 rows, hash_seeds seeds, Element element) const noexcept;
    template <class Codes>
    void hash_symbols(ub8 *out, ub4 rows, hash_seeds seeds, Codes code) const noexcept;
    template <class Cursor>
    void hash_walked(ub8 *out, ub4 rows, hash_seeds seeds) noexcept;
    void walk_over(ub4 rows) noexcept;

    const tavo_vec *column_;
    form form_;
    const ub1 *data_;
    tavo_hash_fn *hash_;
    ub8 row_;
    const ub1 *walk_;
    ub8 row_before_ = 0;
    const ub1 *walk_before_ = nullptr;
};

} // namespace tavo

extern "C" ub4 tavo_hash_dydi(tavo_vec *out, tavo_vec *column, tavo_vec *seeds, tavo_hash_fn *hash,
                              tavo_env *env) noexcept;
