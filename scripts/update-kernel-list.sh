#!/usr/bin/env bash
# Writes docs/kernels.txt anew from the dispatch table of the g++ build.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."
cmake --preset gcc >/dev/null
cmake --build --preset gcc --target tavo_kernel_list
build/gcc/tests/package/tavo_kernel_list >docs/kernels.txt.new
mv docs/kernels.txt.new docs/kernels.txt
echo "docs/kernels.txt: $(wc -l <docs/kernels.txt) kernels"
