// Sums and differences of words' vectors, such as "king - man + woman", by the arithmetic kernels.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "host/link/callbacks.h"
#include "host/query/query.h"
#include "host/vector/word_vectors.h"

namespace host {

struct sum_term {
    ub4 row; // of the word
    bool subtracted;
};

// The terms of a text of words with blanks around each + and -; a word alone is a sum of one term. Throws where it is
// something else, or a word is not in the file.
std::vector<sum_term> parse_sum(std::string_view text, const word_vectors &words);

// The sum, computed in float (in double of vectors in double), term after term. Adds a step for each operation. Throws
// where a sum is beyond range.
std::vector<double> vector_sum(session &, const word_vectors &words, const std::vector<sum_term> &terms,
                               std::vector<query_step> &steps);

// The same by a plain loop: to the last bit.
std::vector<double> plain_sum(const word_vectors &words, const std::vector<sum_term> &terms);

} // namespace host
