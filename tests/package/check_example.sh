#!/bin/sh
# check_example.sh scan|join EXAMPLE LIBRARY: the example prints its answer, and one line for a file that is not the library.
case $1 in
scan)
    expected='status 0, 4 of 10 rows
row 1: 500
row 3: 999
row 5: 1000
row 8: 733' ;;
join)
    expected='build: status 0
flight 0 from LAX: airport 1
flight 2 from SFO: airport 0
flight 3 from LAX: airport 1
flight 4 from KSJC: airport 2
probe: status 0' ;;
esac
answer=$("$2" "$3") || { echo "exit status $?" >&2; exit 1; }
if [ "$answer" != "$expected" ]; then
    printf 'expected:\n%s\ngot:\n%s\n' "$expected" "$answer" >&2
    exit 1
fi
if message=$("$2" "$3.missing" 2>&1); then
    echo "a missing library went unnoticed" >&2
    exit 1
fi
[ "$(printf '%s\n' "$message" | wc -l)" -eq 1 ] || { echo "not one line: $message" >&2; exit 1; }
