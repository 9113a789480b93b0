#!/usr/bin/env bash
# ./test.sh [quick]: builds and tests everything; quick: with g++ alone. Ends with the sum of all runs, "N passed, M
# failed"; a build that fails counts as one.
#
#   gcc       both forms of the library and what a package promises of them; all tests on the form that runs here, the
#             AVX-512 one if the processor has that
#   sanitize  the portable form under the address and undefined-behaviour sanitizers, all tests of kernels and host
#   clang     the AVX-512 form and what a package promises of it; all tests on it if the processor can run it
set -uo pipefail
cd "$(dirname "$(readlink -f "$0")")" || exit 1

case ${1:-all} in
all) presets=(gcc sanitize clang) ;;
quick) presets=(gcc) ;;
*)
    echo "usage: ./test.sh [quick]" >&2
    exit 2
    ;;
esac
scripts/setup.sh test || exit 1

passed=0 failed=0
run() {
    local preset=$1 log=build/$1/test.log
    echo "== $preset: build"
    if ! { cmake --preset "$preset" && cmake --build --preset "$preset"; } </dev/null; then
        echo "== $preset: the build failed"
        failed=$((failed + 1))
        return
    fi
    echo "== $preset: test"
    local status=0 of_all
    ctest --preset "$preset" --no-tests=error -j "$(nproc)" </dev/null 2>&1 | tee "$log" || status=$?
    # "98% tests passed, 2 tests failed out of 100"
    of_all=$(sed -nE 's/^[0-9]+% tests passed, ([0-9]+) tests? failed out of ([0-9]+)$/\1 \2/p' "$log" | tail -n 1)
    local bad=0 all=0
    read -r bad all <<<"${of_all:-0 0}"
    if [ "$status" -ne 0 ] && [ "$bad" -eq 0 ]; then # ctest itself failed, or found no test
        echo "== $preset: ctest ended with $status"
        bad=1 all=$((all > 0 ? all : 1))
    elif [ "$all" -eq 0 ]; then
        echo "== $preset: no test was run"
        bad=1 all=1
    fi
    failed=$((failed + bad))
    passed=$((passed + all - bad))
}
for preset in "${presets[@]}"; do
    run "$preset"
done

echo
if lacks=$(scripts/processor.sh); then
    echo "On this processor: g++ and clang tested the AVX-512 form, sanitizers the portable form."
else
    echo "This processor lacks $lacks:"
    echo "tests ran on the portable form, also under sanitizers; of the AVX-512 form, compiled by g++ and clang, the files"
    echo "were checked, and nothing of it was run."
fi
echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ] && [ "$passed" -gt 0 ]
