// The nearest rows of a vector column, by the library, and the same question answered plainly.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/link/callbacks.h"
#include "host/query/query.h"
#include "host/vector/vector_column.h"

namespace host {

// The metrics of a search: of those that rank a larger number as nearer, the form that doesn't.
struct metric_kind {
    tavo_metric metric;
    const char *name;   // as a user writes it
    const char *family; // as kernels' names spell it
    const char *result; // what is shown
    double shown;       // times the distance that the kernels compute
};
inline constexpr metric_kind metric_kinds[] = {
    {tavo_metric_cosine_distance, "cosine", "cosine", "cosine_distance", 1},
    {tavo_metric_euclid, "euclid", "euclid", "euclid_distance", 1},
    {tavo_metric_dotprod_negated, "dot", "dotprod", "dot_product", -1},
    {tavo_metric_manhattan, "manhattan", "manhattan", "manhattan_distance", 1},
    {tavo_metric_hamming, "hamming", "hamming", "hamming_distance", 1},
    {tavo_metric_jaccard_distance, "jaccard", "jaccard", "jaccard_distance", 1},
};
const metric_kind *metric_of_name(std::string_view); // null if there is none
std::string metric_names();                          // for messages

struct neighbour {
    ub4 row;
    double distance;
};

// The k rows nearest to the query, nearest first, among the selected ones or all if `among` is null. `query` has one
// row, k is at least 1. Adds a step to `steps`.
std::vector<neighbour> nearest(session &, vector_column &rows, vector_column &query, const metric_kind &, ub4 k,
                               const selection *among, std::vector<query_step> &steps);

// The number that a kernel approximates, in double precision, and how far off a kernel's result may be.
struct plain_result {
    double distance;
    double bound;
};
plain_result plain_distance(tavo_metric, const vector_form &query_form, std::span<const double> query,
                            const vector_form &row_form, std::span<const double> row);

struct nearest_check {
    std::string difference; // the first one, or empty: the answer is right
    double largest = 0;     // difference between a kernel's distance and the plain one
    double bound = 0;       // the largest that any of the found rows' was allowed to be
    ub4 rows = 0;           // looked at
};
// Holds an answer of nearest() against plain distances to all rows: every distance must be that of its row within the
// bound of the arithmetic, no row may be left out that is nearer than the last found one by more than its bound, and
// the answer must be in its own order. So rows that are equally near may stand in any order, and any of them may be
// left out, but nothing else may.
nearest_check check_nearest(const vector_column &rows, const vector_column &query, const metric_kind &, ub4 k,
                            const selection *among, std::span<const neighbour> found);

} // namespace host
