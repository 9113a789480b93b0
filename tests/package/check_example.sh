#!/bin/sh
# check_example.sh EXAMPLE LIBRARY: the example prints its answer, and one line for a file that is not the library.
answer=$("$1" "$2") || { echo "exit status $?" >&2; exit 1; }
expected='status 0, 4 of 10 rows
row 1: 500
row 3: 999
row 5: 1000
row 8: 733'
if [ "$answer" != "$expected" ]; then
    printf 'expected:\n%s\ngot:\n%s\n' "$expected" "$answer" >&2
    exit 1
fi
if message=$("$1" "$2.missing" 2>&1); then
    echo "a missing library went unnoticed" >&2
    exit 1
fi
[ "$(printf '%s\n' "$message" | wc -l)" -eq 1 ] || { echo "not one line: $message" >&2; exit 1; }
