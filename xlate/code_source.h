// The codes of a column's rows, in the four layouts of frame/tavo_xlate.h. Each source fills batches with `n` rows'
// codes: of consecutive rows from `row` on, or of the rows that a list names, which ascend from call to call.
//
// No byte outside the column is read: where a number is loaded with the eight bytes that end with it, these lie in the
// column too, and the few numbers that end before its eighth byte are put together byte by byte.
#pragma once

#include "frame/tavo_status.h"
#include "frame/tavo_vec.h"
#include "xlate/code_batch.h"

namespace tavo {

class plain_codes {
public:
    static bool accepts(const tavo_vec *src) noexcept {
        const tavo_enc_ctx *enc = TAVO_VEC_ENC_CTX(src);
        return TAVO_ENC_CTX_FLAG(enc, TAVO_HASHES) && static_cast<ub1>(enc->width_bits) == 32;
    }
    plain_codes(const tavo_vec *, const ub1 *data) noexcept : data_(data) {}

    void fetch(code_batch &batch, ub8 row, unsigned n) noexcept;
    void fetch(code_batch &batch, const ub4 *rows, unsigned n) noexcept;

private:
    const ub1 *data_;
};

class cla_numbers {
public:
    static bool accepts(const tavo_vec *) noexcept { return true; }
    cla_numbers(const tavo_vec *src, const ub1 *data) noexcept : pool_(data), offsets_(TAVO_VEC_ENC_CTX(src)->cla) {}

    void fetch(code_batch &batch, ub8 row, unsigned n) noexcept;
    void fetch(code_batch &batch, const ub4 *rows, unsigned n) noexcept;

private:
    const ub1 *pool_;
    const ub4 *offsets_;
};

class const_numbers {
public:
    static bool accepts(const tavo_vec *) noexcept { return true; }
    const_numbers(const tavo_vec *src, const ub1 *data) noexcept
        : data_(data), length_(static_cast<ub1>(TAVO_VEC_ENC_CTX(src)->width_bits) / 8) {}

    void fetch(code_batch &batch, ub8 row, unsigned n) noexcept;
    void fetch(code_batch &batch, const ub4 *rows, unsigned n) noexcept;

private:
    const ub1 *data_;
    unsigned length_;
};

// Numbers without offsets: the source keeps the place that it has reached.
class sep_numbers {
public:
    static bool accepts(const tavo_vec *) noexcept { return true; }
    sep_numbers(const tavo_vec *src, const ub1 *data) noexcept : data_(data), lengths_(src->lengths) {}

    void fetch(code_batch &batch, ub8 row, unsigned n) noexcept;
    void fetch(code_batch &batch, const ub4 *rows, unsigned n) noexcept;

private:
    void pass_to(ub8 row) noexcept;

    const ub1 *data_;
    const ub2 *lengths_;
    ub8 row_ = 0, offset_ = 0; // this row's number begins there
};

} // namespace tavo
