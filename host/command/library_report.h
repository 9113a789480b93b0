// What `tavo info` prints: what a library holds, and whether this processor can run it.
#pragma once

#include <string>

#include "host/link/loader.h"

namespace host {

std::string describe(const library &, const processor &);

} // namespace host
