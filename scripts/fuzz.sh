#!/usr/bin/env bash
# Builds the libFuzzer targets with clang and runs each for so many seconds (30) from its corpus in tests/fuzz/corpus.
# New inputs stay in build/fuzz; a crash leaves its input there and ends the script with libFuzzer's status.
set -euo pipefail
seconds=${1:-30}
root="$(cd "$(dirname "$(readlink -f "$0")")/.." && pwd)"
build="$root/build/fuzz"
"$root/scripts/setup.sh" fuzz
mkdir -p "$build"
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_C_COMPILER=clang-14 \
    -DCMAKE_CXX_COMPILER=clang++-14 -DTAVO_WERROR=ON -DTAVO_FUZZ=ON -DTAVO_BUILD_HOST=OFF -DTAVO_BUILD_BENCH=OFF \
    >"$build.log" 2>&1 || { cat "$build.log" >&2; exit 1; }
targets=(spak_decode encoder vector_text)
cmake --build "$build" --target "${targets[@]/%/_fuzz}"
for target in "${targets[@]}"; do
    mkdir -p "$build/new/$target"
    "$build/tests/fuzz/${target}_fuzz" -max_total_time="$seconds" -max_len=16384 -print_final_stats=1 \
        -artifact_prefix="$build/" "$build/new/$target" "$root/tests/fuzz/corpus/$target"
done
