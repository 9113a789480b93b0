#!/bin/sh
# check_complete.sh CXX SOURCE: every function of portable/, and every one that it takes from SIMDe, is in the table of
# operations. Prints those that are not and exits 1.
set -eu
cxx=$1 source=$2
top=$(mktemp -d)
trap 'rm -rf "$top"' EXIT

# Definitions, after the preprocessor has stamped them, and the lines of from_simde.h.
echo '#include "portable/everywhere.h"' | "$cxx" -std=c++20 -DTAVO_PORTABLE -I"$source" -E -P -x c++ - >"$top/all"
tr '\n' ' ' <"$top/all" | grep -oE 'inline [A-Za-z0-9_:<> ]*[ *]_[a-z0-9_]+\(' | grep -oE '_[a-z0-9_]+\($' | tr -d '(' |
    grep -v '^__' | sort -u >"$top/defined"
[ "$(wc -l <"$top/defined")" -gt 100 ] || { echo "the functions of portable/ were not found" >&2; exit 1; }
sed -nE 's/^#define (_mm[a-z0-9_]+) simde.*/\1/p' "$source/portable/from_simde.h" >>"$top/defined"

# Calls in the table. The list is preprocessed by itself, so that its own macros stamp and nothing else does.
"$cxx" -I"$source" -E -P -x c++ "$source/tests/portable/operations.inc" | grep -oE '_[a-z0-9_]+' | sort -u >"$top/held"
missing=$(sort -u "$top/defined" | comm -23 - "$top/held")
[ -z "$missing" ] || { printf 'not held against the instruction:\n%s\n' "$missing" >&2; exit 1; }
