#!/usr/bin/env bash
# bench/host/group_by.sh [FILE [COMMAND]]: delays by origin, from a CSV file of flights to the answer, by the command tavo,
# by sqlite3 (in memory, with an index that covers the query) and by a loop over a std::unordered_map (group_loop.cpp).
# Without FILE the 100,000 flights thirty times over; scripts/fetch-flights-3m.sh fetches 3,000,000. The answers are
# compared. Prints processor time from file to answer, shortest of three runs, and what the grouping alone took.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/../.."
file=${1:-} tavo=${2:-build/gcc/host/tavo}
for tool in sqlite3 g++ "$tavo"; do
    command -v "$tool" >/dev/null || { echo "$tool is missing (scripts/setup.sh bench, cmake --build)" >&2; exit 1; }
done
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
if [ -z "$file" ]; then
    file=$folder/flights.csv
    head -n 1 host/data/flights-100k.csv >"$file"
    for ((i = 0; i < 30; i++)); do
        tail -n +2 host/data/flights-100k.csv >>"$file"
    done
fi
g++ -O3 -march=native -std=c++20 bench/host/group_loop.cpp -o "$folder/group_loop"

by_tavo() { "$tavo" query "$file" --group-by origin --count --sum delay --explain; }
by_loop() { "$folder/group_loop" "$file"; }
by_sqlite3() {
    sqlite3 :memory: <<END
create table flights(date text, delay integer, distance integer, origin text, destination text);
.mode csv
.import --csv --skip 1 '$file' flights
create index by_origin on flights(origin, delay);
.timer on
select origin, count(*), sum(delay) from flights group by origin order by origin;
END
}
best() {
    local shortest=0 user system TIMEFORMAT='%3U %3S'
    for _ in 1 2 3; do
        { time "$@" >"$folder/answer" 2>"$folder/errors-$1"; } 2>"$folder/time"
        read -r user system <"$folder/time"
        shortest=$(awk -v s="$shortest" -v t="$user" -v u="$system" 'BEGIN { t = 1000 * (t + u); print s == 0 || t < s ? t : s }')
    done
    grep '^Run Time' "$folder/answer" >>"$folder/errors-$1" || true
    grep -v '^origin\|^Run Time' "$folder/answer" | tr -d '"\r' >"$folder/$1"
    echo "$shortest"
}
a=$(best by_tavo) b=$(best by_sqlite3) c=$(best by_loop)
cmp "$folder/by_tavo" "$folder/by_sqlite3"
cmp "$folder/by_tavo" "$folder/by_loop"
echo "$(wc -l <"$file") lines; processor time from file to answer: tavo $a ms, sqlite3 $b ms, loop $c ms"
grep 'tavo_groupkey\|tavo_gby_sum\|tavo_decode_unpack' "$folder/errors-by_tavo"
grep '^Run Time' "$folder/errors-by_sqlite3"
cat "$folder/errors-by_loop"
