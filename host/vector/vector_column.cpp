#include "host/vector/vector_column.h"

#include <fmt/format.h>

#include "host/error.h"

namespace host {

namespace {
constexpr std::size_t image_alignment = 8;
}

vector_column::vector_column(const vector_form &form, ub4 dims) : form_(form), flexible_(false) {
    enc_.flags = form.is_comparable() ? 0 : TAVO_NATIVE; // of int8 and bits always native: kernels go by that
    enc_.vec_dims = dims;
    enc_.value_type = static_cast<ub1>(form.type);
    vec_.enc = &enc_;
}

vector_column::vector_column() : flexible_(true) {
    enc_.flags = TAVO_VEC_IMAGES | TAVO_NATIVE;
    vec_.enc = &enc_;
}

vector_column::vector_column(const vector_form &form, ub4 dims, const ub1 *rows, ub4 count)
    : vector_column(form, dims) {
    elsewhere_ = rows;
    const std::size_t row_bytes = (std::size_t{dims} * kind_of(form.type).width + 7) / 8;
    ends_.reserve(count);
    for (std::size_t row = 1; row <= count; row++)
        ends_.push_back(row * row_bytes);
}

std::size_t vector_column::begin_of(ub4 row) const {
    const std::size_t end_before = row == 0 ? 0 : ends_[row - 1];
    return flexible_ ? (end_before + image_alignment - 1) / image_alignment * image_alignment : end_before;
}

template <class Append>
void vector_column::append(Append append_row) {
    const std::size_t before = bytes_.size();
    if (rows() == 0xfffffffe)
        throw error("a column has no more than 4294967294 rows");
    try {
        bytes_.resize(begin_of(rows()));
        append_row();
    } catch (...) {
        bytes_.resize(before);
        throw;
    }
    ends_.push_back(bytes_.size());
}

void vector_column::add(std::span<const double> values) {
    if (values.size() != dims())
        throw error(fmt::format("the column's vectors have {} dimensions, this one has {}", dims(), values.size()));
    append([&] { append_elements(bytes_, form_, values); });
}

void vector_column::add_image(const vector_form &form, std::span<const double> values) {
    append([&] { append_image(bytes_, form, values); });
}

void vector_column::add_image(std::span<const ub1> image) {
    append([&] { bytes_.insert(bytes_.end(), image.begin(), image.end()); });
}

void vector_column::read(ub4 row, std::vector<double> &values) const {
    if (flexible_)
        read_image(row_begin(row), row_end(row), values);
    else
        read_elements(form_, dims(), row_begin(row), row_end(row), values);
}

tavo_vec *vector_column::vec() {
    vec_.size = rows();
    if (rows() == 1 && !flexible_) {
        enc_.flags &= ~TAVO_VEC_BY_POINTER;
        vec_.data = const_cast<ub1 *>(row_begin(0)); // read only
        return &vec_;
    }
    enc_.flags |= TAVO_VEC_BY_POINTER;
    pointers_.resize(rows());
    for (ub4 row = 0; row < rows(); row++)
        pointers_[row] = row_begin(row);
    vec_.data = pointers_.data();
    return &vec_;
}

} // namespace host
