#!/usr/bin/env bash
# scripts/setup.sh build|test|bench|fuzz|aarch64|memcheck: installs the Debian packages that are missing for this. Says
# nothing when all is there. What runs only on a processor with AVX-512 is refused before anything is installed.
set -euo pipefail

mode=${1:-}
packages=(g++ cmake ninja-build libcli11-dev libfmt-dev libxxhash-dev nlohmann-json3-dev libsqlite3-dev sqlite3)
here=$(dirname "$(readlink -f "$0")")
if lacks=$("$here/processor.sh"); then native=yes; else native=no; fi
# The benchmarks, and what they measure against.
benches=(libbenchmark-dev liblz4-dev libroaring-dev libfaiss-dev liblapack-dev libabsl-dev libtbb-dev libgeos-dev libs2-dev
    libfast-float-dev)
case $mode in
build) [ $native = yes ] || packages+=(libsimde-dev) ;;
test) packages+=(libsimde-dev libgtest-dev "${benches[@]}" pkg-config clang-14 binutils) ;;
bench)
    if [ $native = no ]; then
        echo "setup: figures need a processor with AVX-512; this one lacks $lacks" >&2
        exit 2
    fi
    packages+=(libsimde-dev libgtest-dev "${benches[@]}" pkg-config mawk gnuplot-nox)
    ;;
aarch64) packages+=(libsimde-dev libgtest-dev googletest pkg-config g++-aarch64-linux-gnu qemu-user) ;;
memcheck) packages+=(libsimde-dev libgtest-dev libbenchmark-dev libabsl-dev libtbb-dev pkg-config binutils valgrind) ;;
fuzz) packages+=(libgtest-dev clang-14 libclang-rt-14-dev) ;;
*)
    echo "usage: scripts/setup.sh build|test|bench|fuzz|aarch64|memcheck" >&2
    exit 2
    ;;
esac

missing=()
if command -v dpkg-query >/dev/null; then
    for package in "${packages[@]}"; do
        [ "$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null || true)" = installed ] ||
            missing+=("$package")
    done
fi
if [ ${#missing[@]} -gt 0 ]; then
    echo "setup: installing ${missing[*]}"
    as_root=()
    if [ "$(id -u)" -ne 0 ]; then
        as_root=(sudo)
        command -v sudo >/dev/null || {
            echo "setup: not root and no sudo; install these packages and try again: ${missing[*]}" >&2
            exit 1
        }
    fi
    log=$(mktemp)
    trap 'rm -f "$log"' EXIT
    if ! { "${as_root[@]}" apt-get update &&
        "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends \
            "${missing[@]}"; } </dev/null >"$log" 2>&1; then
        tail -n 20 "$log" >&2
        echo "setup: could not install ${missing[*]}" >&2
        exit 1
    fi
fi
# On another system than Debian the packages have other names: the tools themselves tell.
for tool in g++ cmake ninja; do
    command -v "$tool" >/dev/null || {
        echo "setup: $tool is missing (made for Debian 12, where setup installs it)" >&2
        exit 1
    }
done
