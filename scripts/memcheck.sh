#!/usr/bin/env bash
# scripts/memcheck.sh [NAME...]: runs the unit tests of the portable form, or those named (frame bitvec ...), under
# Valgrind's memcheck, which cannot run AVX-512. It finds what sanitizers don't: decisions made on bytes that nobody wrote.
# Takes an hour for all.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."

scripts/setup.sh memcheck
build=build/memcheck
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTAVO_NATIVE=OFF -DTAVO_BUILD_BENCH=OFF \
    -DTAVO_BUILD_HOST=OFF >/dev/null
cmake --build "$build"
if [ $# -gt 0 ]; then
    programs=()
    for name in "$@"; do
        mapfile -t -O ${#programs[@]} programs < <(find "$build/tests/$name" -maxdepth 1 -type f -executable -name '*_portable')
    done
else
    mapfile -t programs < <(find "$build/tests" -type f -executable -name '*_portable' | sort)
fi
[ ${#programs[@]} -gt 0 ] || { echo "memcheck: no such tests" >&2; exit 2; }
for program in "${programs[@]}"; do
    echo "== ${program##*/}"
    valgrind --quiet --error-exitcode=1 --exit-on-first-error=no "$program" --gtest_brief=1
done
