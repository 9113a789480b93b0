// Vectors as the kernels read them: bare elements of a uniform column's row, and self-describing images.
//
//   dense    all elements in a row; bits eight to a byte, the first in the most significant bit
//   sparse   count (2 bytes), dimension numbers (4 bytes each, ascending, here from 0), then the elements that are not
//            zero, all most significant byte first; of bits, the dimension numbers alone
//
// Either may be in native form (the processor's numbers) or in comparable form (see element.h). The elements of a
// sparse vector in native form, 16 bits and wider, stand at the next multiple of 8 of the *memory address*: a writer
// has to know where the bytes will lie. Here bytes are appended to a buffer, and a place in the buffer stands for a
// place in memory: a buffer is moved only to addresses that are multiples of 8, as those of a std::vector are.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "host/vector/element.h"

namespace host {

struct vector_form {
    element_type type = element_type::float_;
    bool comparable = false; // int8 and bits have one form: it counts as native
    bool sparse = false;

    bool is_comparable() const { return comparable && kind_of(type).has_comparable; }
    std::string kernel_word() const; // as kernels' names spell it: SCfloat
};

// Appends one vector's bytes. Throws, naming the element, where the type does not have a value (see element_bits), and
// where a sparse vector has more than 65535 elements that are not zero.
void append_elements(std::vector<ub1> &to, const vector_form &, std::span<const double> values);

// Appends an image: 17 bytes of head, 7 of padding where the elements are dense, native and wider than a byte, and the
// elements. It is to begin at a multiple of 8.
void append_image(std::vector<ub1> &to, const vector_form &, std::span<const double> values);

// The numbers of a vector, read plainly into `values`; `end` is the first byte that is not the vector's to read. Throws
// where the bytes are not what they should be, and for more than 2^24 dimensions of a sparse vector.
void read_elements(const vector_form &, ub4 dims, const ub1 *at, const ub1 *end, std::vector<double> &values);

// The same of an image, whatever its form, which is returned.
vector_form read_image(const ub1 *image, const ub1 *end, std::vector<double> &values);

} // namespace host
