// What `tavo info` prints: what a library holds, and whether this processor can run it.
#pragma once

#include <string>

#include "host/link/loader.h"

namespace host {

// Its first line says whether the library runs here.
std::string describe(const library &, const processor &);

} // namespace host
