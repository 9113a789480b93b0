// Columns of vectors, and single query vectors, in the records that the vector operations take.
#pragma once

#include <span>
#include <vector>

#include "host/vector/stored_vector.h"

namespace host {

// Rows of one form and dimension count, which stand in the column's record (uniform), or images that each say their own
// (flexible). A uniform column of one row is a single vector without row pointers, as a query mostly is.
class vector_column {
public:
    vector_column(const vector_form &form, ub4 dims); // uniform
    vector_column();                                  // flexible
    // Uniform, over dense rows that lie elsewhere, back to back, and outlive the column: nothing is copied.
    vector_column(const vector_form &form, ub4 dims, const ub1 *rows, ub4 count);
    vector_column(const vector_column &) = delete;
    vector_column &operator=(const vector_column &) = delete;

    // Appends a row. Throws what append_elements throws, or where the number of values is not the column's; the column
    // is then as it was.
    void add(std::span<const double> values);
    void add_image(const vector_form &form, std::span<const double> values);
    void add_image(std::span<const ub1> image); // as it is, damaged or not

    void reserve(std::size_t bytes) { bytes_.reserve(bytes); }

    bool flexible() const { return flexible_; }
    const vector_form &form() const { return form_; } // of a uniform column
    ub4 dims() const { return enc_.vec_dims; }
    ub4 rows() const { return static_cast<ub4>(ends_.size()); }
    ub8 bytes() const { return ends_.empty() ? 0 : ends_.back(); }

    // A row's numbers, read plainly.
    void read(ub4 row, std::vector<double> &values) const;
    const ub1 *row_begin(ub4 row) const { return base() + begin_of(row); }
    const ub1 *row_end(ub4 row) const { return base() + ends_[row]; }

    // Valid until the next row is added.
    tavo_vec *vec();

private:
    const ub1 *base() const { return elsewhere_ != nullptr ? elsewhere_ : bytes_.data(); }
    std::size_t begin_of(ub4 row) const;
    template <class Append>
    void append(Append append_row);

    vector_form form_;
    bool flexible_;
    const ub1 *elsewhere_ = nullptr;
    std::vector<ub1> bytes_;
    std::vector<std::size_t> ends_; // of the rows' bytes
    std::vector<const ub1 *> pointers_;
    tavo_enc_ctx enc_{};
    tavo_vec vec_{};
};

// The operations' layout argument: a query, which is the left operand, and a column, both uniform.
inline ub8 layout_of(const vector_form &query, const vector_form &column) {
    return TAVO_VECTOR_LAYOUT(query.sparse ? 1 : 0, column.sparse ? 1 : 0);
}

} // namespace host
