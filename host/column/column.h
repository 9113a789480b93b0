// Columns as the kernels take them: a dictionary, packed codes, and the records that describe both.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include <tavo/tavo.h>

#include "host/column/block.h"
#include "host/column/dictionary.h"
#include "host/column/run_length.h"
#include "host/column/spak_encoder.h"
#include "host/column/stored_column.h"

namespace host {

enum class column_form {
    plain, // one packed code a row
    spak,  // the same bytes, compressed: the first kernel that reads the column has them decompressed
    rle,   // one packed code a run of equal rows, and a table of the runs' lengths
    fixed, // no dictionary: numbers of one width, see number_column.h
    dynp,  // no dictionary: numbers of varying length
    texts  // no dictionary: where each text stands, see text_column.h
};
const char *name_of(column_form);

class column : public stored_column {
public:
    // codes: one a row, by the dictionary. Without a form: the run-length form where it takes at most half of the plain
    // bytes, as its results have to be widened to rows; else the compressed form where it takes at most three quarters
    // of them, as it has to be decompressed; else the plain form.
    column(std::string name, dictionary dict, block<ub4> codes, std::optional<column_form> form = {});
    column(const column &) = delete;
    column &operator=(const column &) = delete;

    const std::string &name() const override { return name_; }
    const dictionary &dict() const { return dict_; }
    value_type type() const override { return dict_.type(); }
    bool has_null() const override { return dict_.has_null(); }
    ub8 first_code() const override { return dict_.first_code(); }
    ub8 end_code() const override { return dict_.end_code(); }
    std::string key_of(ub8 code) const override { return dict_.key_of(code); }
    ub8 first_not_below(const std::string &key) const override { return dict_.first_not_below(key); }
    ub8 first_above(const std::string &key) const override { return dict_.first_above(key); }
    symbol_table &symbols() { return dict_.symbols(); }
    unsigned width() const override { return width_; }
    column_form form() const { return form_; }
    ub4 rows() const override { return vec_.size; }
    ub4 runs() const { return enc_.run_count; }
    ub8 plain_bytes() const { return plain_bytes_; }     // of the packed codes, one a row
    ub8 encoded_bytes() const { return encoded_bytes_; } // of the form that is held

    // The decompressed bytes of a spak column belong to the session that first reads it: one session for a column.
    tavo_vec *vec() override { return &vec_; }
    // Row of the dispatch table; `second` for the kernels that leave out code 0 whatever the operator.
    ub1 kernel_row(tavo_variant) const;

private:
    void hold_plain(block<ub1> packed);
    void hold_runs(run_lengths runs);
    void hold_spak(spak_stream stream);

    std::string name_;
    dictionary dict_;
    unsigned width_;
    column_form form_ = column_form::plain;
    ub8 plain_bytes_, encoded_bytes_;
    block<ub1> data_, run_table_;
    std::vector<ub8> run_bits_;
    void *decompressed_ = nullptr;
    tavo_enc_ctx enc_{};
    tavo_vec vec_{};
};

} // namespace host
