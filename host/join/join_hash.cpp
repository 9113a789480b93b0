#include "host/join/join_hash.h"

// The header alone, so that there is nothing more to link.
#define XXH_INLINE_ALL
#include <xxhash.h>

namespace host {

ub8 join_hash(const void *data, ub8 length, ub8 seed) { return XXH3_64bits_withSeed(data, length, seed); }

} // namespace host
