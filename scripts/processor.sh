#!/usr/bin/env bash
# scripts/processor.sh: prints what this processor lacks of what the AVX-512 kernels need, in /proc/cpuinfo's words; ends
# with 0 if that is nothing. TAVO_FORM=portable stands for a processor without AVX-512.
set -uo pipefail

if [ "${TAVO_FORM:-}" = portable ]; then
    echo "AVX-512 (TAVO_FORM=portable)"
    exit 1
fi
# abm is lzcnt and popcnt. The operating system lists AVX-512 only if it saves its registers.
flags=" $(sed -n 's/^flags[^:]*: //p;T;q' /proc/cpuinfo 2>/dev/null) "
absent=()
for flag in avx512f avx512bw avx512dq avx512vl avx2 fma bmi1 bmi2 f16c movbe abm popcnt; do
    [[ $flags == *" $flag "* ]] || absent+=("$flag")
done
[ ${#absent[@]} -eq 0 ] && exit 0
echo "${absent[*]}"
exit 1
