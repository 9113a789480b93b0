// The hash of joins, behind the pointer that the library's column hashing takes: 64 bits, XXH3.
#pragma once

#include <tavo/tavo.h>

namespace host {

ub8 join_hash(const void *data, ub8 length, ub8 seed);

} // namespace host
