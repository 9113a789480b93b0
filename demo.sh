#!/usr/bin/env bash
# ./demo.sh: builds the library and the command tavo, and asks questions of real flights and airports. Every answer is
# recomputed from the text of the file in plain C++ (--check); the last line says whether all agree.
set -uo pipefail
cd "$(dirname "$(readlink -f "$0")")" || exit 1

scripts/setup.sh build || exit 1
log=$(mktemp)
trap 'rm -f "$log"' EXIT
if lacks=$(scripts/processor.sh); then
    form=(-DTAVO_NATIVE=ON -DTAVO_PORTABLE=OFF)
    echo "building the library and the command (once, a few minutes on two cores) ..."
else
    form=(-DTAVO_NATIVE=OFF -DTAVO_PORTABLE=ON)
    echo "This processor lacks $lacks: building the portable form of the library and the command"
    echo "(once, a few minutes on two cores) ..."
fi
# The one form that will run here: what an earlier run left of the other would be found, too.
rm -f build/library/libtavo_*
if ! { cmake --preset library "${form[@]}" && cmake --build --preset library; } </dev/null >"$log" 2>&1; then
    tail -n 40 "$log" >&2
    echo "the build failed" >&2
    exit 1
fi

flights=host/data/flights-100k.csv airports=host/data/airports.csv
asked=0 agreed=0
answer=$(mktemp)
trap 'rm -f "$log" "$answer"' EXIT
show() { # as one would type it
    local argument
    printf '\n$ tavo'
    for argument in "$@"; do
        case $argument in *[!a-zA-Z0-9_./=-]*) printf ' "%s"' "$argument" ;; *) printf ' %s' "$argument" ;; esac
    done
    echo
}
ask() {
    local status=0
    show query "$@" --explain --check
    asked=$((asked + 1))
    build/library/host/tavo query "$@" --explain --check </dev/null 2>&1 | tee "$answer" || status=$?
    if [ "$status" -eq 0 ] && grep -q '^check: .* agrees$' "$answer"; then
        agreed=$((agreed + 1))
    else
        echo "not confirmed, exit status $status"
    fi
}

ask "$flights" --where "distance between 500 and 1000" --where "origin in (SFO, LAX)" --where "delay > 60" --count
ask "$flights" --where "date between '2001-03-01 00:00' and '2001-03-01 23:59'" --where "delay > 90 or delay < -30" \
    --limit 5
ask "$flights" --where "distance >= 2500" --where "delay >= 120" --where "not destination = SFO" --limit 5
# The same table as compressed streams and as runs: what is printed is decoded from these, not taken from the file.
forms=(--encode distance=spak --encode delay=spak --encode origin=rle)
show columns "$flights" "${forms[@]}"
build/library/host/tavo columns "$flights" "${forms[@]}" </dev/null || exit 1
ask "$flights" "${forms[@]}" --where "origin = SFO" --where "distance >= 2500" --where "delay > 90" --limit 5
ask "$airports" --null NA --where "latitude > 48.9" --where "not state = AK" --limit 5

echo
if [ "$agreed" -eq "$asked" ]; then
    echo "All $asked answers agree with the plain recomputation."
else
    echo "$((asked - agreed)) of $asked answers could not be confirmed."
    exit 1
fi
