#!/usr/bin/env bash
# bench/sqlite/run.sh [FLIGHTS.csv [EXTENSION]]: twenty statements in SQLite over a plain table, without and with its best
# index, and over a virtual table of tavo_sqlite.so with the same rows (queries.cpp). All answers are compared. Prints the
# table of docs/performance.md, and draws docs/sqlite.svg where gnuplot is there. The file is that of
# scripts/fetch-flights-3m.sh.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/../.."
flights=${1:-flights-3m.csv} extension=${2:-build/gcc/host/tavo_sqlite.so}
for file in "$flights" "$extension"; do
    [ -f "$file" ] || { echo "$file is not there (scripts/fetch-flights-3m.sh; cmake --build --preset gcc --target tavo_sqlite)" >&2; exit 2; }
done
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
g++ -O2 -std=c++20 bench/sqlite/queries.cpp -lsqlite3 -o "$folder/queries"
"$folder/queries" "$(realpath "$extension")" "$flights" host/data/airports.csv >"$folder/times"

echo "| Statement | rows | plain, ms | with index, ms | virtual, ms | plain / virtual | index / virtual |"
echo "|---|---|---|---|---|---|---|"
awk -F'\t' '
    function ratio(x) { return x >= 10 ? sprintf("%.0f", x) : x >= 0.1 ? sprintf("%.2f", x) : sprintf("%.3f", x) }
    { printf "| %s | %d | %.3f | %.3f | %.3f | %s | %s |\n", $1, $5, $2 / 1e3, $3 / 1e3, $4 / 1e3, ratio($2 / $4), ratio($3 / $4) }
' "$folder/times"
echo
awk -F'\t' '{ printf "%-24s %s\n", $1, $6 }' "$folder/times"

command -v gnuplot >/dev/null || exit 0
gnuplot <<PLOT
set terminal svg size 900,560 font "sans-serif,12" noenhanced background "white"
set output "docs/sqlite.svg"
set datafile separator "\t"
set title "SQLite, 3,000,000 flights: time as a multiple of the virtual table's (more is better for it)"
set logscale x
set xrange [0.004:30000]
set yrange [19.6:-0.6]
set ytics nomirror
set grid xtics lc rgb "#dddddd"
set arrow from 1, graph 0 to 1, graph 1 nohead lc rgb "#555555"
set key below
set lmargin 24
plot "$folder/times" using (\$2/\$4):0:ytic(1) with points pt 7 ps 0.9 lc rgb "#c05020" title "plain table, no index", \
     "$folder/times" using (\$3/\$4):0 with points pt 6 ps 0.9 lc rgb "#2050c0" title "plain table, best index"
PLOT
