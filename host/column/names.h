// Names of columns: made where a header leaves them out, found as people write them.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace host {

// The names of a header's fields: spaces around them do not count, an unnamed column is called column_1 by its place, a
// repeated name gets a number: city, city_2. Adds a line to `notes` for each name that was made.
std::vector<std::string> made_names(std::vector<std::string> header, std::vector<std::string> &notes);

// The number of the name, or of the only one that is the same but for the case of its letters.
std::optional<std::size_t> find_name(std::string_view name, const std::vector<std::string> &names);

// The names among `names` that `name` may have been meant for, best first, at most three. A letter that is wrong,
// missing or too much counts one, and so do two letters in the wrong order.
std::vector<std::string> near_names(std::string_view name, const std::vector<std::string> &names);

// "; did you mean a or b?", or which names there are: "; the columns are a, b, ... and 90 more".
std::string instead_of(std::string_view name, const std::vector<std::string> &names, const char *what_they_are);

} // namespace host
