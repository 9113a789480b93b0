// Whether a condition that SQLite hands over may be of an outer join.
//
// In `t LEFT JOIN u ON t.a IS NOT NULL` all rows of t are wanted: those that the condition refuses have no partner.
// SQLite keeps most such conditions to itself, but not IS NOT NULL and LIKE, and does not tell where these stand.
#pragma once

#include "host/sqlite/api.h"

namespace host::sqlite {

// False only if no statement of the connection that runs, no view and no trigger has a word that makes a join an outer
// one.
bool may_have_outer_join(sqlite3 *);

} // namespace host::sqlite
