// What is summed: a column, or an expression of two, as numbers.
//
//   delay                  a column of integers or decimals
//   distance * 1.609344    + - * of two operands, columns or numbers, with spaces around the operator
//   distance * 1.609344 as km
//
// A column's numbers are integers of one scale, 12.50 being 1250 of scale 2, where all of its values and the sum of as
// many rows as there are fit 63 bits: sums are then exact. Else, and in expressions, they are doubles.
#pragma once

#include <string>
#include <vector>

#include <tavo/tavo.h>

#include "host/column/csv.h"

namespace host {

struct operand {
    bool is_column = false;
    std::size_t column = 0; // its number in the file
    double value = 0;       // of a constant
};

struct measure {
    std::string name; // behind `as`, or as it was written
    operand a, b;
    tavo_operation op = TAVO_OP_ADD;
    bool is_expression = false; // else a alone
};

// Throws where it is no measure or names a column that is not there.
measure parse_measure(const std::string &text, const csv_file &file);
std::vector<std::size_t> columns_of(const measure &);

// How the numbers of a column are held.
struct number_scale {
    bool exact = true;
    unsigned digits = 0; // behind the point, of exact ones
};
// Of these values, if up to `rows` of them are added.
number_scale scale_of(const std::vector<std::string> &values, ub4 rows);

// A value as an integer of the scale, which must be exact and hold it; as a double.
sb8 scaled_number(const std::string &value, unsigned digits);
double real_number(const std::string &value);

// Numbers as text: an exact sum, an average of one (four digits more, rounded to the nearest, halves away from zero), a
// double with the fewest digits that tell it from all others.
std::string text_of_sum(sb8 sum, unsigned digits);
std::string text_of_average(sb8 sum, unsigned digits, ub8 count);
std::string text_of_real(double);

} // namespace host
