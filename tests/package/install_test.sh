#!/bin/sh
# install_test.sh SOURCE BUILD LIBDIR FORM FILE: FORM (native, portable) is what runs here, FILE its library. Installs
# into a temporary folder and uses what is there as another project does: through pkg-config, through find_package, by
# hand. CMAKE, CMAKE_GENERATOR, CC and PKG_CONFIG say with what.
set -eu
source=$1 build=$2 libdir=$3 form=$4 file=${5%%.so*}.so
here=$source/tests/package
top=$(mktemp -d)
trap 'rm -rf "$top"' EXIT
prefix=$top/prefix

step() { echo "-- $*"; }
fail() { echo "$*" >&2; exit 1; }
same_answer() { sh "$here/check_example.sh" scan "$1" "$2" || fail "$1 with $2 does not answer as it should"; }

step "install"
"$CMAKE" --install "$build" --prefix "$prefix" >"$top/log" || { cat "$top/log"; exit 1; }
[ -L "$prefix/$libdir/$file" ] && [ -L "$prefix/$libdir/$file.1" ] ||
    fail "no soname links in $libdir"
for header in "$source"/frame/tavo*.h; do
    case ${header##*/} in tavoc_*) continue ;; esac
    [ -f "$prefix/include/tavo/${header##*/}" ] || fail "${header##*/} is not installed"
done
if grep -rlF -e "$build" -e "$source" "$prefix/$libdir/cmake" "$prefix/$libdir/pkgconfig" "$prefix/include"; then
    fail "these files name the tree that they were built in"
fi

step "moved to another place, as a package is"
mv "$prefix" "$top/elsewhere"
prefix=$top/elsewhere

step "pkg-config"
PKG_CONFIG_PATH=$prefix/$libdir/pkgconfig
export PKG_CONFIG_PATH
variable=library
[ "$form" = native ] || variable=portable_library
library=$("$PKG_CONFIG" --variable="$variable" tavo)
# shellcheck disable=SC2046 # flags are words
"$CC" -std=c11 -Wall -Wextra -Werror -rdynamic "$source/host/examples/scan.c" $("$PKG_CONFIG" --cflags tavo) \
    -o "$top/scan"
same_answer "$top/scan" "$library"

step "find_package"
"$CMAKE" -S "$here/consumer" -B "$top/consumer" -DCMAKE_C_COMPILER="$CC" -DCMAKE_PREFIX_PATH="$prefix" -DFORM="$form" \
    -DEXAMPLE="$source/host/examples/scan.c" >"$top/log" || { cat "$top/log"; exit 1; }
"$CMAKE" --build "$top/consumer" >"$top/log" || { cat "$top/log"; exit 1; }
same_answer "$top/consumer/scan" "$(cat "$top/consumer/library.txt")"
[ "$("$top/consumer/linked")" = smrvavx512g ] || fail "the linked host does not reach the descriptor"

step "the command"
# TAVO_FORM=portable stands for a processor that the command does not find here.
[ "${TAVO_FORM:-}" != portable ] || export TAVO_LIB="$prefix/$libdir/$file"
"$prefix/bin/tavo" info >"$top/info" || { cat "$top/info"; fail "tavo info failed"; }
grep -q "^$file.* runs here" "$top/info" || { cat "$top/info"; fail "tavo info does not run $file"; }
