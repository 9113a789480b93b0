#!/bin/sh
# check_library.sh CHECK LIBRARY: holds one property of the shared library. Prints what is wrong and exits 1.
set -u
check=$1 library=$2
: "${READELF:=readelf}" "${NM:=nm}" "${OBJDUMP:=objdump}"

wrong() {
    echo "$library: $1" >&2
    [ $# -lt 2 ] || printf '%s\n' "$2" >&2
    exit 1
}
# A tool that fails must not read as "nothing found".
run() { "$@" || wrong "cannot be read by $1"; }
# Succeeds when no line of $1 matches the pattern $2; else prints these lines under the complaint $3.
none() {
    found=$(printf '%s\n' "$1" | grep -E -- "$2") && wrong "$3" "$found"
    return 0
}
some() { printf '%s\n' "$1" | grep -qE -- "$2" || wrong "$3" "$1"; }

case $check in
exports) # one symbol, whatever way a host may look
    symbols=$(run "$NM" -D --defined-only --format=posix "$library") || exit 1
    [ "$(printf '%s\n' "$symbols" | awk '{print $1, $2}')" = "tavo_global_specialized_ctx D" ] ||
        wrong "must export tavo_global_specialized_ctx and nothing else" "$symbols"
    ;;
kept) # hidden, but part of the library: in the symbol table, whether or not anything in the library uses them
    symbols=$(run "$NM" --defined-only --format=posix "$library" | awk '{print $1, $2}') || exit 1
    for object in tavo_dispatch_table tavo_dispatch_func_names; do
        some "$symbols" "^$object [dr]\$" "has no table $object"
    done
    for function in tavo_dispatch_table_size tavo_convert_width tavo_xlate_convert_width tavo_xlate_convert_type \
        tavo_stats_dump; do
        some "$symbols" "^$function t\$" "has no function $function"
    done
    ;;
imports) # the host's one function, and the C library's
    symbols=$(run "$NM" -D --undefined-only --format=posix "$library" | awk '{print $1}') || exit 1
    some "$symbols" '^hostraiseierr$' "does not import hostraiseierr"
    none "$(printf '%s\n' "$symbols" | grep -vE '^hostraiseierr$|@GLIBC_[0-9.]+$')" . \
        "imports more than hostraiseierr and the C library"
    none "$symbols" '^(_Z|__cxa|__gxx|malloc|calloc|realloc|free|posix_memalign|aligned_alloc)' \
        "uses the C++ run time or the heap"
    ;;
needed)
    dynamic=$(run "$READELF" -dW "$library") || exit 1
    none "$(printf '%s\n' "$dynamic" | grep NEEDED | grep -vE '\[(libc|libm)\.so\.6\]')" . "needs another library"
    none "$dynamic" '\((RPATH|RUNPATH)\)' "carries a search path"
    some "$dynamic" '\(SONAME\).*\[libtavo_(avx512g|portable)\.so\.[0-9]+\]' "has no soname"
    ;;
nothing-at-load)
    dynamic=$(run "$READELF" -dW "$library") || exit 1
    some "$dynamic" '\(SYMTAB\)' "has no dynamic section"
    none "$dynamic" '\((INIT|FINI|INIT_ARRAY|FINI_ARRAY|PREINIT_ARRAY)\)' "runs code when it is loaded or unloaded"
    symbols=$(run "$READELF" --dyn-syms -W "$library") || exit 1
    none "$symbols" ' (IFUNC|UNIQUE|TLS) ' "has symbols that are resolved by code or pin the library"
    ;;
hardening)
    dynamic=$(run "$READELF" -dW "$library") || exit 1
    some "$dynamic" '\(FLAGS\).*BIND_NOW|\(FLAGS_1\).*NOW' "binds lazily"
    none "$dynamic" '\(TEXTREL\)|TEXTREL' "has relocations in its code"
    segments=$(run "$READELF" -lW "$library") || exit 1
    some "$segments" 'GNU_RELRO' "has no read-only relocations"
    some "$segments" 'GNU_STACK.* RW ' "has an executable stack, or does not say"
    none "$segments" 'LOAD.* RWE ' "has a segment that is writable and executable"
    ;;
instructions-native) # nothing beyond what the host has to have, but in functions that say so in their names
    code=$(mktemp) || exit 1
    trap 'rm -f "$code"' EXIT
    run "$OBJDUMP" -d --no-show-raw-insn "$library" >"$code" || exit 1
    grep -q zmm "$code" || wrong "no vector code was found"
    found=$(awk '
        /^[0-9a-f]+ <.*>:$/ { name = $2 }
        # VBMI, VBMI2, BITALG, GFNI, IFMA, BF16, VP2INTERSECT, CD, FP16
        $2 ~ /^(vperm[it]2b|vpermb|vpmultishiftqb|vpcompress[bw]|vpexpand[bw]|vpsh[lr]dv?[wdq]|vpopcnt[bw])$/ ||
        $2 ~ /^(vpshufbitqmb|vgf2p8.*|vpmadd52.*|vcvtne.*|vdpbf16ps|vp2intersect.*|vplzcnt.*|vpconflict.*)$/ ||
        $2 ~ /^vpbroadcastm/ || ($2 ~ /^v[a-z0-9]+[ps]h$/ && $2 != "vcvtps2ph") { print name, $2 }
        # behind their feature words, in functions whose names say so
        $2 ~ /^vpopcnt[dq]$/ && name !~ /vpopcntdq|with_instruction/ { print name, $2 }
        $2 ~ /^vpdp(bu|ws)sds?$/ && name !~ /vnni/ { print name, $2 }' "$code" | sort -u)
    [ -z "$found" ] || wrong "uses instructions that not every processor with AVX-512 F, BW, DQ and VL has" "$found"
    ;;
instructions-portable) # those of every x86-64 processor
    code=$(mktemp) || exit 1
    trap 'rm -f "$code"' EXIT
    run "$OBJDUMP" -d --no-show-raw-insn "$library" >"$code" || exit 1
    grep -q 'movups\|movdq' "$code" || wrong "no code was found"
    # AVX and all that came with or behind it is coded with VEX or EVEX and named v...; the rest by name.
    found=$(awk '
        /^[0-9a-f]+ <.*>:$/ { name = $2 }
        $2 ~ /^v/ || $2 ~ /^(bzhi|pdep|pext|mulx|sarx|shlx|shrx|rorx|andn|bls[ir]|blsmsk|popcnt|lzcnt|movbe|crc32)[bwlq]?$/ ||
        $2 ~ /^(pshufb|palignr|phadd|pmaddubsw|pmulhrsw|psign|pabs|ptest|pblend|pcmpeqq|pcmpgtq|pmovzx|pmovsx|pinsr[bdq]|pextr[bdq]|round[sp])/ {
            print name, $2 }' "$code" | sort -u)
    [ -z "$found" ] || wrong "uses instructions that not every x86-64 processor has" "$found"
    ;;
*) wrong "no check is called $check" ;;
esac
