#!/usr/bin/env bash
# ./demo.sh: builds the library and the command tavo, and asks questions of real flights and airports, for similar
# words, and for the countries of airports and cities. Every answer is recomputed in plain C++ (--check); the last line says whether all agree.
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

flights=host/data/flights-100k.csv airports=host/data/airports.csv words=host/data/words-10k.vectors
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
ask() { ask_by query "$@"; }
ask_by() { # subcommand
    local status=0
    show "$@" --explain --check
    asked=$((asked + 1))
    build/library/host/tavo "$@" --explain --check </dev/null 2>&1 | tee "$answer" || status=$?
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
# Columns without a dictionary: big-endian numbers of whole bytes, numbers of varying length, and times with their zones;
# a list of five, one column against another, and the smallest and largest values.
numbers=(--encode date=fixed --encode distance=dynp)
ask "$flights" "${numbers[@]}" --where "date >= '2001-04-01'" --where "distance < 100 or distance > 2500" \
    --where "origin in (SFO, LAX, JFK, SEA, HNL)" --min date --max date --min distance --max distance --count
ask host/data/departures.csv --where "departed < scheduled" --where "scheduled < '2001-01-10'" \
    --columns scheduled,departed,origin,distance --limit 5
# Delays by origin and month: the groups with most delay on average, and all of a month in kilometres.
ask "$flights" --group-by "origin,month(date)" --count --sum delay --avg delay --max delay --having "count > 100" \
    --order-by "avg(delay) desc" --limit 5
# Texts without a dictionary, grouped by two threads that give them codes together; the codes of two columns make a key.
ask "$flights" --encode origin=text --encode destination=text --group-by origin,destination --threads 2 --count \
    --avg delay --having "count > 100" --order-by "avg(delay) desc" --limit 5
ask "$flights" --where "date < '2001-02-01'" --sum "distance * 1.609344 as km" --avg delay --count
# Joined with the airports that they leave from, the latest first: the flights' codes of airports are translated to those
# of the other file; the rows are put in order by the column's codes and gathered from row-major tables of both files.
# Then the same with the airports that no flight leaves from, and these alone.
ask "$flights" --join "$airports" --on origin=iata --where "airports.state = CA" --where "delay > 200" \
    --columns date,delay,origin,city,state --order-by delay desc --limit 5
ask "$flights" --join "$airports" --on origin=iata --right --count
ask "$flights" --join "$airports" --on origin=iata --right --anti --where "airports.state = CA" --columns iata,city --limit 5
ask "$airports" --null NA --where "latitude > 48.9" --where "not state = AK" --limit 5
# Nearest neighbours among vectors of 100 dimensions: as the file has them, of the words that predicates select, and as
# bytes and bits.
ask_by nearest river --data "$words" --k 5
ask_by nearest river --data "$words" --k 5 --metric euclid --type float --where "first = s" --where "length <= 6"
ask_by nearest king --data "$words" --k 5 --type int8
ask_by nearest king --data "$words" --k 5 --metric hamming --type bits
# What is to a woman as a king is to a man; then vectors of text, parsed and written to a file, and a question to that.
ask_by nearest --query "king - man + woman" --data "$words" --k 3
ask_by vectors host/data/word-texts.csv --column vector --out build/word-texts.vectors
ask_by nearest city --data build/word-texts.vectors --k 3
# Points in polygons: airports and cities in countries, in the plane and on the sphere.
countries=host/data/countries.geojson
ask_by places "$airports" --in "$countries" --count --limit 5
ask_by places host/data/cities.csv --in "$countries" --count --limit 5 --sphere

# The same kernels under a database that one knows: the sqlite3 shell with the extension loaded, each question asked of a
# plain table and of the virtual one.
sql=$(mktemp) plain=$(mktemp) ours=$(mktemp)
trap 'rm -f "$log" "$answer" "$sql" "$plain" "$ours"' EXIT
in_shell() { # NAME OF THE TABLE, FILE OF THE ANSWERS, QUESTIONS: echoes as a person would see it
    local table=$1 answers=$2
    shift 2
    {
        echo ".bail on"
        echo ".load build/library/host/tavo_sqlite"
        echo "CREATE VIRTUAL TABLE flights USING tavo(file='$flights');"
        echo "CREATE TABLE plain(date TEXT, delay INTEGER, distance INTEGER, origin TEXT, destination TEXT);"
        echo "INSERT INTO plain SELECT * FROM flights;"
        printf '.echo on\n.timer on\n'
        printf '%s\n' "${@//@/$table}"
        echo ".quit"
    } >"$sql"
    sqlite3 -batch :memory: <"$sql" 2>&1 | tee "$answers" | sed 's/^Run Time:/    Run Time:/; /^\.timer on$/d; /^\.quit$/d'
    # What is compared: the answers without the statements and times.
    grep -v -e '^Run Time:' -e '^\.' -e '^SELECT' "$answers" >"$answers.kept"
    mv "$answers.kept" "$answers"
}
questions=(
    "SELECT count(*), avg(delay) FROM @ WHERE distance BETWEEN 500 AND 1000 AND origin IN ('SFO', 'LAX') AND delay > 60;"
    "SELECT * FROM @ WHERE date LIKE '2001-03-01 0%' AND delay > 90 ORDER BY date, rowid;"
    "SELECT origin, count(*) FROM @ WHERE delay > 240 GROUP BY origin ORDER BY count(*) DESC, origin LIMIT 5;"
    "SELECT date, delay, destination FROM @ WHERE origin = 'HNL' ORDER BY delay DESC, rowid LIMIT 3;"
    "SELECT count(*) FROM @ WHERE date < '2001-01-03' AND NOT (delay < 30 OR destination = 'SFO');"
)
printf '\n$ sqlite3      a plain table\n'
in_shell plain "$plain" "${questions[@]}"
printf '\n$ sqlite3      .load build/library/host/tavo_sqlite      a virtual table\n'
in_shell flights "$ours" "${questions[@]}"
shell_agrees=yes
if [ -s "$plain" ] && [ "$(wc -l <"$plain")" -ge ${#questions[@]} ] && cmp -s "$plain" "$ours"; then
    printf '\nBoth tables give the same %s rows to all %s questions.\n' "$(wc -l <"$ours")" ${#questions[@]}
else
    shell_agrees=no
    printf '\nnot confirmed: the answers of the plain and the virtual table differ\n'
    diff "$plain" "$ours" | head -n 20
fi

echo
if [ "$agreed" -eq "$asked" ] && [ $shell_agrees = yes ]; then
    echo "All $asked answers agree with the plain recomputation."
else
    echo "$((asked - agreed)) of $asked answers could not be confirmed."
    [ $shell_agrees = yes ] || echo "The virtual table's answers are not those of the plain one."
    exit 1
fi
