// Vectors from the text of a CSV column, "[0.25, -1e-3, 7]", by the library.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "host/column/csv.h"
#include "host/link/callbacks.h"
#include "host/query/query.h"
#include "host/vector/element.h"

namespace host {

struct bad_row {
    std::size_t line; // of the file
    std::string reason;
};

struct parsed_vectors {
    ub4 dims = 0; // of the first good row; rows of another number are bad
    std::vector<std::string> words;
    std::vector<ub1> elements; // of good rows, dense and native, back to back
    std::vector<double> norms;
    std::vector<bad_row> bad;
    std::size_t text_bytes = 0; // of all rows
    double seconds = 0;         // in the parser
};

// Reads the vectors of column `vectors`, and their words of column `words`, as elements of a type. int8 takes whole
// numbers of its range as they are and rounds others; bits are the signs, 1 above zero; the 16-bit types are rounded
// from double. Throws if no row is good. Adds a step.
parsed_vectors parse_vectors(session &, const csv_file &, std::size_t words, std::size_t vectors, element_type,
                             std::vector<query_step> &steps);

// What is different from a plain reading by the C++ library of the same column, or nothing. The kernels promise all but
// the last bits of a double: an element may be the one that such a neighbour comes to.
std::string check_vectors(const csv_file &, std::size_t words, std::size_t vectors, element_type,
                          const parsed_vectors &);

} // namespace host
