// What `tavo info` prints: what a library holds, and whether this processor can run it.
#pragma once

#include <string>

#include "host/link/loader.h"

namespace host {

// `why`: what the library was chosen for, where it was; its first line says whether it runs here.
std::string describe(const library &, const processor &, const std::string &why = {});

} // namespace host
