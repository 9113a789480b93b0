#!/usr/bin/env bash
# bench/host/end_to_end.sh [COPIES [COMMAND]]: from a CSV file to an answer, by the command tavo, by awk and by sqlite3,
# for three queries of the flights. Each reads the file anew; the shortest of seven runs counts, by processor time, as all
# three use one core; all rows of all answers are compared. COPIES (1) is how many times the 100,000 flights stand in the file. Prints how many times as long as tavo
# the others take.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/../.."
copies=${1:-1} tavo=${2:-build/gcc/host/tavo}
for tool in sqlite3 awk "$tavo"; do
    command -v "$tool" >/dev/null || { echo "$tool is missing (scripts/setup.sh bench, cmake --build)" >&2; exit 1; }
done

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
head -n 1 host/data/flights-100k.csv >"$folder/flights.csv"
for ((i = 0; i < copies; i++)); do
    tail -n +2 host/data/flights-100k.csv >>"$folder/flights.csv"
done

where=( # for tavo, for sqlite3 and for awk
    "distance between 500 and 1000 and origin in (SFO, LAX) and delay > 60"
    "distance between 500 and 1000 and origin in ('SFO', 'LAX') and delay > 60"
    '$3 >= 500 && $3 <= 1000 && ($4 == "SFO" || $4 == "LAX") && $2 > 60'
    "date between '2001-03-01 00:00' and '2001-03-01 23:59' and (delay > 90 or delay < -30)"
    "date between '2001-03-01 00:00' and '2001-03-01 23:59' and (delay > 90 or delay < -30)"
    '$1 >= "2001-03-01 00:00" && $1 <= "2001-03-01 23:59" && ($2 > 90 || $2 < -30)'
    "distance >= 2500 and delay >= 120 and not destination = SFO"
    "distance >= 2500 and delay >= 120 and not destination = 'SFO'"
    '$3 >= 2500 && $2 >= 120 && $5 != "SFO"'
)
by_tavo() { "$tavo" query "$folder/flights.csv" --where "$1"; }
by_awk() { LC_ALL=C awk -F, "NR > 1 && $1" "$folder/flights.csv"; }
by_sqlite3() {
    sqlite3 :memory: "create table flights(date text, delay integer, distance integer, origin text, destination text)" \
        ".mode csv" ".import --csv --skip 1 '$folder/flights.csv' flights" \
        "select * from flights where $1 order by rowid"
}
best() { # the shortest of seven runs, in milliseconds of processor time
    local shortest=0 user system TIMEFORMAT='%3U %3S'
    for _ in 1 2 3 4 5 6 7; do
        { time "$@" >"$folder/answer" 2>"$folder/errors"; } 2>"$folder/time"
        read -r user system <"$folder/time"
        shortest=$(awk -v s="$shortest" -v t="$user" -v u="$system" 'BEGIN { t = 1000 * (t + u); print s == 0 || t < s ? t : s }')
    done
    grep -v '^date' "$folder/answer" | tr -d '"\r' >"$folder/$1"
    echo "$shortest"
}

echo "$((copies * 100000)) rows, $(stat -c %s "$folder/flights.csv") bytes"
for i in 0 3 6; do
    a=$(best by_tavo "${where[i]}") b=$(best by_awk "${where[i + 2]}") c=$(best by_sqlite3 "${where[i + 1]}")
    cmp "$folder/by_tavo" "$folder/by_awk" && cmp "$folder/by_tavo" "$folder/by_sqlite3"
    awk -v a="$a" -v b="$b" -v c="$c" -v rows="$(wc -l <"$folder/by_tavo")" -v what="${where[i]}" \
        'BEGIN { printf "tavo %.0f ms; awk %.2f times as long, sqlite3 %.2f times; %d rows: %s\n", a, b / a, c / a, rows, what }'
done
