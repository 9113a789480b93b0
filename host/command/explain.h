// The steps of a query as a table of text, for --explain, and which library ran them.
#pragma once

#include <string>
#include <vector>

#include "host/query/query.h"

namespace host {

std::string explain(const std::vector<query_step> &steps, const library &);

} // namespace host
