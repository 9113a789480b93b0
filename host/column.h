// Columns as the kernels take them: a dictionary, packed codes, and the records that describe both.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <tavo/tavo.h>

#include "host/csv.h"
#include "host/dictionary.h"

namespace host {

enum class column_form {
    plain, // one packed code a row
    rle    // one packed code a run of equal rows, and a table of the runs' lengths
};
const char *name_of(column_form);

class column {
public:
    // codes: one a row, by the dictionary. Takes the run-length form where it halves the bytes at least.
    column(std::string name, dictionary dict, const std::vector<ub4> &codes);
    column(const column &) = delete;
    column &operator=(const column &) = delete;

    const std::string &name() const { return name_; }
    const dictionary &dict() const { return dict_; }
    unsigned width() const { return width_; }
    column_form form() const { return form_; }
    ub4 rows() const { return vec_.size; }
    ub4 runs() const { return enc_.run_count; }
    ub8 plain_bytes() const { return plain_bytes_; }     // of the packed codes, one a row
    ub8 encoded_bytes() const { return encoded_bytes_; } // of the form that is held

    tavo_vec *vec() { return &vec_; }
    // Row of the dispatch table; `second` for the kernels that leave out code 0 whatever the operator.
    ub1 kernel_row(tavo_variant) const;

private:
    void make_runs(const std::vector<ub4> &codes);

    std::string name_;
    dictionary dict_;
    unsigned width_;
    column_form form_ = column_form::plain;
    ub8 plain_bytes_, encoded_bytes_;
    std::vector<ub1> data_, run_table_;
    std::vector<ub8> run_bits_;
    tavo_enc_ctx enc_{};
    tavo_vec vec_{};
};

struct read_options {
    std::vector<std::string> null_texts; // fields that are null besides the empty one
    // Told now and then how many bytes of the file are behind us; may be empty.
    std::function<void(std::size_t done, std::size_t all)> progress;
};

// A CSV file with some of its columns encoded.
class table {
public:
    table(const csv_file &file, const std::vector<std::size_t> &columns, const read_options &options);

    const csv_file &file() const { return file_; }
    ub4 rows() const { return static_cast<ub4>(row_begin_.size() - 1); }
    // Null for a column that was not asked for.
    column *encoded(std::size_t number) const { return columns_[number].get(); }
    // A row's text, line end included.
    std::string_view row_text(ub4 row) const {
        return file_.text().substr(row_begin_[row], row_begin_[row + 1] - row_begin_[row]);
    }

private:
    const csv_file &file_;
    std::vector<std::size_t> row_begin_;
    std::vector<std::unique_ptr<column>> columns_;
};

} // namespace host
