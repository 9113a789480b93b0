// What a search over words needs: their vectors in the wanted type, a query from a word or from text, and what is known
// of the words as columns to filter by.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/column/csv.h"
#include "host/vector/vector_column.h"
#include "host/vector/word_vectors.h"

namespace host {

// The numbers in `[0.1, -2e3, 7]`. Throws, marking the place, if it is not that, or if there are not `dims` of them.
std::vector<double> parse_vector(std::string_view text, ub4 dims);

// The vectors of the words, and a query, as elements of one type. Between floating types elements are rounded. int8
// takes all of them times one factor that brings the largest to 127, rounded: cosine distances stay nearly what they
// were, others are in those units. Bits are the signs: 1 for numbers above zero.
class word_search {
public:
    // `words` must outlive the search. Vectors that the file holds in the wanted type are read where they stand.
    word_search(const word_vectors &words, element_type type, std::vector<double> query);

    vector_column &rows() { return *rows_; }
    vector_column &query() { return query_; }
    double factor() const { return factor_; }

private:
    void convert(std::vector<double> &values) const;

    element_type type_;
    double factor_ = 1;
    std::unique_ptr<vector_column> rows_;
    vector_column query_;
};

// The words as a table: word, first (letter), length (in letters), rank (1 for the most frequent).
csv_file word_table(const word_vectors &words);

} // namespace host
