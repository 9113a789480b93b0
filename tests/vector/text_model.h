// Vector text as the contract tells it, unit by unit: what the parsers are held against.
#pragma once

#include <string>
#include <vector>

#include "frame/tavo_types.h"

namespace tavo::test {

struct parsed_row {
    ub4 status;
    std::vector<double> values; // as the type keeps them, before narrowing to float
    double squares;
};

// `room` elements can be stored; dims 0: any number of them.
parsed_row text_model(const std::u16string &text, ub4 type, ub4 dims, ub8 room);

// The value of one number without blanks. `units` is the element's length between its separators.
double text_value(const std::u16string &number, std::size_t units);

} // namespace tavo::test
