#!/usr/bin/env bash
# scripts/setup.sh build|test|bench|fuzz: installs the Debian packages that are missing for this, and holds the processor
# against what the kernels need. Says nothing when all is there.
set -euo pipefail

mode=${1:-}
packages=(g++ cmake ninja-build libcli11-dev libfmt-dev libxxhash-dev)
case $mode in
build) ;;
test) packages+=(libgtest-dev libbenchmark-dev liblz4-dev pkg-config clang-14 binutils) ;;
bench) packages+=(libgtest-dev libbenchmark-dev liblz4-dev pkg-config) ;;
fuzz) packages+=(libgtest-dev clang-14 libclang-rt-14-dev) ;;
*)
    echo "usage: scripts/setup.sh build|test|bench|fuzz" >&2
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

# Flags as /proc/cpuinfo words them; abm is lzcnt and popcnt. The kernel lists AVX-512 only if it saves its registers.
flags=" $(sed -n 's/^flags[^:]*: //p;T;q' /proc/cpuinfo) "
absent=()
for flag in avx512f avx512bw avx512dq avx512vl avx2 fma bmi1 bmi2 f16c movbe abm popcnt; do
    [[ $flags == *" $flag "* ]] || absent+=("$flag")
done
if [ ${#absent[@]} -gt 0 ]; then
    echo "setup: this processor cannot run the kernels: it lacks ${absent[*]}" >&2
    exit 1
fi
