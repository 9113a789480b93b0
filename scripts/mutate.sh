#!/usr/bin/env bash
# scripts/mutate.sh [-j JOBS] [FOLDER [N | TEXT]]: do the tests notice faults? Plants those of tests/mutants/FOLDER.txt (of
# all folders) one at a time, builds what changed, runs the folder's tests on the AVX-512 form, or on the portable one
# without AVX-512, and says which faults were found and by which test. N: the first so many of a list; TEXT: those with
# it in their heading. The tree is as before at the end. Exit status 1 if any was missed.
#
# A fault is a heading, a file, a text that occurs once in it, and what stands there instead:
#
#   # the last word of a tail is left out
#   bitvec/bitwise.h
#   - for (; w < words; w++)
#   + for (; w + 1 < words; w++)
#
# Further - and + lines continue the texts. Lines that start with ## are comments. Faults of one file stand together, and
# those in headers that few sources include are quick to build.
#
# Builds in build/mutants with little optimisation, a third of the time. ccache, where it is installed, spares building
# the restored files again.
set -uo pipefail
cd "$(dirname "$(readlink -f "$0")")/.." || exit 1

jobs=$(nproc)
if [ "${1:-}" = -j ]; then
    jobs=$2
    shift 2
fi
folder=${1:-} most=1000000 text=""
case ${2:-} in
"") ;;
*[!0-9]*) text=$2 ;;
*) most=$2 ;;
esac
if [ -n "$folder" ] && [ ! -f "tests/mutants/$folder.txt" ]; then
    echo "no faults for $folder; there are: $(cd tests/mutants && printf '%s ' *.txt)" >&2
    exit 2
fi
if [ -n "$(git status --porcelain --untracked-files=no)" ]; then
    echo "mutate: the tree has changes; commit them first, files are edited and put back" >&2
    exit 2
fi
scripts/setup.sh test
if scripts/processor.sh >/dev/null; then form=(-DTAVO_PORTABLE=OFF); else form=(-DTAVO_NATIVE=OFF); fi
tree=build/mutants
if command -v ccache >/dev/null; then export CMAKE_C_COMPILER_LAUNCHER=ccache CMAKE_CXX_COMPILER_LAUNCHER=ccache; fi
cmake --preset gcc -B "$tree" "${form[@]}" -DTAVO_BUILD_BENCH=OFF -DTAVO_BUILD_HOST=OFF -DTAVO_WERROR=OFF \
    -DTAVO_NATIVE_OPTIMISATION=-O1 -DCMAKE_{C,CXX}_FLAGS_RELWITHDEBINFO=-O1 >/dev/null || exit 1

changed=""
restore() {
    while [ -n "$changed" ] && ! git checkout -q -- "$changed"; do sleep 1; done # another command may hold the index
    changed=""
}
trap restore EXIT
trap 'exit 130' INT TERM

build() { cmake --build "$tree" -j "$jobs" --target "tests/$1/all" >"$tree/build.log" 2>&1; }
run_tests() {
    local program
    while IFS= read -r program; do
        timeout 300 "$program" --gtest_brief=1 --gtest_fail_fast >"$tree/run.log" 2>&1 || return
    done < <(find "$tree/tests/$1" -maxdepth 1 -type f -executable | sort)
} 2>/dev/null # what the shell says of a crash

found=0 missed=() summary=()
try() { # folder heading file old new
    local answer status
    changed=$3
    if ! OLD=$4 NEW=$5 perl -0pi -e 'BEGIN { ($old, $new) = @ENV{qw(OLD NEW)} }
            $n = () = /\Q$old\E/g; $n == 1 or die "mutate: the text occurs $n times\n"; s/\Q$old\E/$new/' "$3"; then
        answer="cannot be planted in $3"
        missed+=("$1: $2 (cannot be planted)")
    elif ! build "$1"; then
        answer="does not compile"
        missed+=("$1: $2 (does not compile)")
    elif run_tests "$1"; then
        answer="NOT FOUND"
        missed+=("$1: $2")
    else
        status=$?
        answer=$(sed -nE 's/^\[  FAILED  \] ([A-Za-z0-9_.]+).*/\1/p' "$tree/run.log" | head -n 1)
        [ -n "$answer" ] || { [ $status = 124 ] && answer="not coming to an end"; } || answer="a crash"
        answer="found by $answer"
        found=$((found + 1))
    fi
    restore
    printf '%-10s %s: %s\n' "$1" "$2" "$answer"
}

for list in tests/mutants/${folder:-*}.txt; do
    name=$(basename "$list" .txt) count=0 found_before=$found
    if ! { build "$name" && run_tests "$name"; }; then
        echo "mutate: the tests of $name fail as they are, see $tree/build.log and $tree/run.log" >&2
        exit 2
    fi
    heading="" file="" old="" new=""
    plant() {
        if [ "$count" -lt "$most" ] && [[ $heading == *"$text"* ]]; then
            try "$name" "$heading" "$file" "${old%$'\n'}" "${new%$'\n'}"
            count=$((count + 1))
        fi
        heading="" file="" old="" new=""
    }
    while IFS= read -r line <&3 || [ -n "$line" ]; do
        case $line in
        "##"*) ;;
        "# "*) [ -z "$heading" ] || plant; heading=${line#"# "} ;;
        "- "*) old+=${line#"- "}$'\n' ;;
        "+ "*) new+=${line#"+ "}$'\n' ;;
        "-") old+=$'\n' ;;
        "+") new+=$'\n' ;;
        "") ;;
        *) file=$line ;;
        esac
    done 3<"$list"
    [ -z "$heading" ] || plant
    summary+=("$(printf '%-10s %3d of %3d' "$name" $((found - found_before)) "$count")")
done

echo
[ ${#summary[@]} = 1 ] || printf '%s\n' "${summary[@]}"
echo "$found of $((found + ${#missed[@]})) faults found"
if [ ${#missed[@]} -gt 0 ]; then
    printf '  not found: %s\n' "${missed[@]}"
    exit 1
fi
