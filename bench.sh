#!/usr/bin/env bash
# ./bench.sh [FOLDER [OPTION...]]: builds and runs the benchmarks, of all folders or of one (bitvec, scan, ...). Each
# stands beside its baselines, measured in the same run. OPTIONs go to the programs, such as --benchmark_filter=12bit.
# Absolute figures drift on a shared machine: compare ratios, and run nothing else meanwhile.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")"

folder=${1:-}
shift $(($# > 0))
if [ -n "$folder" ] && [ ! -f "bench/$folder/CMakeLists.txt" ]; then
    echo "no benchmarks in bench/$folder; there are: $(cd bench && for f in */CMakeLists.txt; do printf '%s ' "${f%%/*}"; done)" >&2
    exit 2
fi
scripts/setup.sh bench
cmake --preset gcc -DTAVO_BUILD_BENCH=ON >/dev/null
cmake --build --preset gcc --target "bench/${folder:+$folder/}all"

mapfile -t programs < <(find "build/gcc/bench/$folder" -type f -executable -not -path '*/CMakeFiles/*' | sort)
if [ ${#programs[@]} -eq 0 ]; then
    echo "no benchmark program was built" >&2
    exit 1
fi
for program in "${programs[@]}"; do
    echo "== ${program#build/gcc/bench/}"
    "$program" --benchmark_min_time=0.1 --benchmark_counters_tabular=true "$@"
done
