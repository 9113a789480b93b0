#!/usr/bin/env bash
# scripts/check-aarch64.sh: builds the portable form, the command and the unit tests for 64-bit ARM with Debian's cross
# compiler, and runs the tests and a query under qemu's user emulation. Ends with "N passed, M failed". The tests that
# start the command are left out: under this emulation a program cannot start another.
set -uo pipefail
cd "$(dirname "$(readlink -f "$0")")/.." || exit 1

scripts/setup.sh aarch64 || exit 1
build=$PWD/build/aarch64
mkdir -p "$build/headers"
# Headers that are the same for every processor, without the rest of /usr/include, which is not.
for headers in simde fmt CLI nlohmann xxhash.h xxh3.h; do
    ln -sfn "/usr/include/$headers" "$build/headers/$headers"
done
cat >"$build/toolchain.cmake" <<EOF
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_CXX_FLAGS_INIT "-isystem $build/headers")
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64 -L /usr/aarch64-linux-gnu)
EOF
cmake -S . -B "$build" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$build/toolchain.cmake" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DTAVO_BUILD_BENCH=OFF </dev/null || exit 1
cmake --build "$build" </dev/null || exit 1

log=$build/test.log
(cd "$build" && ctest -j "$(nproc)" -L unit -E '^host\.[A-Za-z]*Command' --no-tests=error --output-on-failure </dev/null) 2>&1 |
    tee "$log"
qemu-aarch64 -L /usr/aarch64-linux-gnu "$build/host/tavo" query host/data/flights-100k.csv \
    --where "distance between 500 and 1000" --where "delay > 60" --count --check </dev/null || exit 1
read -r bad all < <(sed -nE 's/^[0-9]+% tests passed, ([0-9]+) tests? failed out of ([0-9]+)$/\1 \2/p' "$log" | tail -n 1)
echo
echo "$((all - bad)) passed, $bad failed"
[ "$bad" -eq 0 ] && [ "$all" -gt 0 ]
