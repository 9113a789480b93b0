// Columns without a dictionary: each row holds its number, in an order-preserving form.
//
//   fixed  big-endian, in the fewest whole bytes that hold the largest code; with zones besides, in a stream of 1, 2 or
//          4 bits a row, and the number then has as many bytes as the kernels of that stream take
//   dynp   the same numbers moved to the top of 16, 32 or 64 bits, without the zero bytes at the end; each row's length
//          stands in a stream of 1, 2 or 4 bits a row
//
// A null row holds the number 0 and is left out by the vector's `sel`.
#pragma once

#include <string>
#include <vector>

#include <tavo/tavo.h>

#include "host/column/block.h"
#include "host/column/column.h"
#include "host/column/number_form.h"
#include "host/column/stored_column.h"

namespace host {

class number_column : public stored_column {
public:
    // One number a row; `known` has a bit set for each row that is not null, or is empty if there are none.
    number_column(std::string name, number_form numbers, column_form, const block<stored_number> &rows,
                  std::vector<ub8> known);
    number_column(const number_column &) = delete;
    number_column &operator=(const number_column &) = delete;

    // Bytes of a row in the fixed layout, zones not among them.
    static unsigned fixed_bytes(const number_form &);

    const std::string &name() const override { return name_; }
    value_type type() const override { return numbers_.type(); }
    ub4 rows() const override { return vec_.size; }
    unsigned width() const override { return width_; }
    tavo_vec *vec() override { return &vec_; }
    bool has_null() const override { return !known_.empty(); }
    ub8 first_code() const override { return 0; }
    ub8 end_code() const override { return numbers_.has_values() ? numbers_.largest() + 1 : 0; }
    std::string key_of(ub8 code) const override;
    ub8 first_not_below(const std::string &key) const override;
    ub8 first_above(const std::string &key) const override;

    const number_form &numbers() const { return numbers_; }
    column_form form() const { return form_; }
    const std::vector<ub8> &known() const { return known_; } // empty: all rows
    bool is_known(ub4 row) const { return known_.empty() || (known_[row / 64] >> row % 64 & 1) != 0; }
    unsigned kernel_width() const { return kernel_width_; }
    ub8 encoded_bytes() const { return encoded_bytes_; }
    // Times of several zones: rows are ordered by their moment and then by their zone.
    bool has_zones() const { return numbers_.zones().size() > 1; }
    tavo_variant variant() const { return numbers_.is_zoned() ? TAVO_VARIANT_SECOND : TAVO_VARIANT_PLAIN; }
    ub1 kernel_row() const;
    // The kernel_width() / 8 bytes of a constant.
    ub8 constant(ub8 code) const;

    ub1 zone(ub4 row) const;
    ub8 fixed_code(ub4 row) const; // of a fixed column
    ub8 code_of_bytes(const ub1 *number, unsigned bytes) const;

    // Reads a dynp column row by row, ascending.
    class walk {
    public:
        explicit walk(const number_column &col) : col_(col) {}
        ub8 code(ub4 row);

    private:
        const number_column &col_;
        ub4 row_ = 0;
        ub8 at_ = 0;
    };

private:
    void hold_fixed(const block<stored_number> &numbers);
    void hold_dynp(const block<stored_number> &numbers);
    unsigned stream_bits() const { return kernel_width_ / 16; }
    unsigned stream_field(ub4 row) const;
    void put_stream_field(ub4 row, unsigned field);

    std::string name_;
    number_form numbers_;
    column_form form_;
    unsigned width_ = 8, kernel_width_ = 8;
    ub8 encoded_bytes_ = 0;
    block<ub1> data_, stream_; // zones, or lengths less one
    std::vector<ub8> known_;
    tavo_enc_ctx enc_{};
    tavo_vec vec_{};
};

} // namespace host
