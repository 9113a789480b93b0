#!/bin/sh
# check_kernel_list.sh PROGRAM LIST: the list in the documentation is the one that the library was built with.
printed=$("$1") || exit 1
if ! printf '%s\n' "$printed" | diff -u "$2" -; then
    echo "run scripts/update-kernel-list.sh and review the difference" >&2
    exit 1
fi
