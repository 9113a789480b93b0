// Columns as the kernels take them: a dictionary, packed codes, and the records that describe both.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <tavo/tavo.h>

#include "host/column/csv.h"
#include "host/column/dictionary.h"
#include "host/column/run_length.h"
#include "host/column/spak_encoder.h"
#include "host/column/symbol_table.h"

namespace host {

enum class column_form {
    plain, // one packed code a row
    spak,  // the same bytes, compressed: the first kernel that reads the column has them decompressed
    rle    // one packed code a run of equal rows, and a table of the runs' lengths
};
const char *name_of(column_form);

class column {
public:
    // codes: one a row, by the dictionary. Without a form: the run-length form where it takes at most half of the plain
    // bytes, as its results have to be widened to rows; else the compressed form where it takes at most three quarters
    // of them, as it has to be decompressed; else the plain form.
    column(std::string name, dictionary dict, const std::vector<ub4> &codes, std::optional<column_form> form = {});
    column(const column &) = delete;
    column &operator=(const column &) = delete;

    const std::string &name() const { return name_; }
    const dictionary &dict() const { return dict_; }
    symbol_table &symbols() { return symbols_; }
    unsigned width() const { return width_; }
    column_form form() const { return form_; }
    ub4 rows() const { return vec_.size; }
    ub4 runs() const { return enc_.run_count; }
    ub8 plain_bytes() const { return plain_bytes_; }     // of the packed codes, one a row
    ub8 encoded_bytes() const { return encoded_bytes_; } // of the form that is held

    // The decompressed bytes of a spak column belong to the session that first reads it: one session for a column.
    tavo_vec *vec() { return &vec_; }
    // Row of the dispatch table; `second` for the kernels that leave out code 0 whatever the operator.
    ub1 kernel_row(tavo_variant) const;

private:
    void hold_plain(std::vector<ub1> packed);
    void hold_runs(run_lengths runs);
    void hold_spak(spak_stream stream);

    std::string name_;
    dictionary dict_;
    unsigned width_;
    column_form form_ = column_form::plain;
    ub8 plain_bytes_, encoded_bytes_;
    symbol_table symbols_;
    std::vector<ub1> data_, run_table_;
    std::vector<ub8> run_bits_;
    void *decompressed_ = nullptr;
    tavo_enc_ctx enc_{};
    tavo_vec vec_{};
};

// The form that a column is to have, by its name; of the name "" for all others. Where that is nothing, or there is no
// entry at all, it is chosen.
using forms = std::map<std::string, std::optional<column_form>>;

struct read_options {
    forms form_of;
    std::vector<std::string> null_texts; // fields that are null besides the empty one
    // Told now and then how many bytes of the file are behind us; may be empty.
    std::function<void(std::size_t done, std::size_t all)> progress;
    bool may_be_empty = false; // a file with a header and no rows is a table too
};

// A CSV file with some of its columns encoded.
class table {
public:
    table(const csv_file &file, const std::vector<std::size_t> &columns, const read_options &options);

    const csv_file &file() const { return file_; }
    ub4 rows() const { return rows_; }
    // Null for a column that was not asked for.
    column *encoded(std::size_t number) const { return columns_[number].get(); }

private:
    const csv_file &file_;
    ub4 rows_ = 0;
    std::vector<std::unique_ptr<column>> columns_;
};

} // namespace host
