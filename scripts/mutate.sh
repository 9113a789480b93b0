#!/usr/bin/env bash
# scripts/mutate.sh [FOLDER [N]]: do the tests notice faults? Plants those of tests/mutants/FOLDER.txt (of all folders) one
# at a time, or the first N of each, builds what changed, runs the tests of the folder on the AVX-512 form, or the portable
# one without AVX-512, and says which faults were found. The tree is as before at the end. Exit status 1 if any was missed.
#
# A fault is a heading, a file, a text that occurs once in it, and what stands there instead:
#
#   # the last word of a tail is left out
#   bitvec/bitwise.h
#   - for (; w < words; w++)
#   + for (; w + 1 < words; w++)
#
# Further - and + lines continue the texts.
set -uo pipefail
cd "$(dirname "$(readlink -f "$0")")/.." || exit 1

folder=${1:-} most=${2:-1000000}
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
cmake --preset gcc -B "$tree" "${form[@]}" -DTAVO_BUILD_BENCH=OFF -DTAVO_BUILD_HOST=OFF -DTAVO_WERROR=OFF >/dev/null || exit 1

changed=""
restore() { [ -z "$changed" ] || git checkout -q -- "$changed"; changed=""; }
trap restore EXIT
trap 'exit 130' INT TERM

build() { cmake --build "$tree" --target "tests/$1/all" >"$tree/build.log" 2>&1; }
run_tests() {
    local program
    while IFS= read -r program; do
        timeout 600 "$program" --gtest_brief=1 --gtest_fail_fast >"$tree/run.log" 2>&1 || return 1
    done < <(find "$tree/tests/$1" -maxdepth 1 -type f -executable | sort)
}

found=0 missed=()
try() { # folder heading file old new
    local answer
    changed=$3
    if ! OLD=$4 NEW=$5 perl -0pi -e 'BEGIN { ($old, $new) = @ENV{qw(OLD NEW)} }
            $n = () = /\Q$old\E/g; $n == 1 or die "the text occurs $n times\n"; s/\Q$old\E/$new/' "$3"; then
        restore
        echo "mutate: $1: $2: cannot be planted in $3" >&2
        exit 2
    fi
    if ! build "$1"; then
        answer="does not compile"
        missed+=("$1: $2 (does not compile)")
    elif run_tests "$1"; then
        answer="NOT FOUND"
        missed+=("$1: $2")
    else
        answer=$(sed -nE 's/^\[  FAILED  \] ([A-Za-z0-9_.]+).*/\1/p' "$tree/run.log" | head -n 1)
        answer="found by ${answer:-a crash}"
        found=$((found + 1))
    fi
    restore
    printf '%-10s %s: %s\n' "$1" "$2" "$answer"
}

for list in tests/mutants/${folder:-*}.txt; do
    name=$(basename "$list" .txt) count=0
    if ! { build "$name" && run_tests "$name"; }; then
        echo "mutate: the tests of $name fail as they are, see $tree/build.log and $tree/run.log" >&2
        exit 2
    fi
    heading="" file="" old="" new=""
    plant() {
        [ -n "$heading" ] && [ "$count" -lt "$most" ] && try "$name" "$heading" "$file" "${old%$'\n'}" "${new%$'\n'}"
        count=$((count + 1)) heading="" file="" old="" new=""
    }
    while IFS= read -r line <&3 || [ -n "$line" ]; do
        case $line in
        "# "*) [ -z "$heading" ] || plant; heading=${line#"# "} ;;
        "- "*) old+=${line#"- "}$'\n' ;;
        "+ "*) new+=${line#"+ "}$'\n' ;;
        "+") new+=$'\n' ;;
        "") ;;
        *) file=$line ;;
        esac
    done 3<"$list"
    [ -z "$heading" ] || plant
done

echo
echo "$found of $((found + ${#missed[@]})) faults found"
if [ ${#missed[@]} -gt 0 ]; then
    printf '  not found: %s\n' "${missed[@]}"
    exit 1
fi
