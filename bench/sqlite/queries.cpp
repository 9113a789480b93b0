// queries EXTENSION FLIGHTS.csv AIRPORTS.csv: twenty statements over a plain table without and with its best index, and
// over a virtual table of the same rows, in one connection and one thread, all in memory. The shortest of several runs
// counts. Prints a line of tab-separated fields each: name, microseconds plain, with index, virtual, rows, statement.
// Ends with 1 if answers differ.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <sqlite3.h>

namespace {

struct statement {
    const char *name;
    const char *sql;            // $F stands for the flights
    const char *ours = nullptr; // where a function of the extension does it
};

constexpr statement statements[] = {
    {"point, one flight",
     "SELECT * FROM $F WHERE date = '2001-03-01 07:15' AND origin = 'BWI' AND destination = 'TPA'"},
    {"point, one minute", "SELECT count(*), sum(delay) FROM $F WHERE date = '2001-03-01 07:15'"},
    {"point, rowid", "SELECT * FROM $F WHERE rowid = 1234567"},
    {"range, delays", "SELECT count(*) FROM $F WHERE delay > 300"},
    {"range, half a day", "SELECT avg(delay) FROM $F WHERE date BETWEEN '2001-03-01 00:00' AND '2001-03-01 12:00'"},
    {"range, a third of all", "SELECT count(*) FROM $F WHERE distance >= 800"},
    {"in-list, airports", "SELECT count(*) FROM $F WHERE origin IN ('SFO','LAX','JFK','SEA','HNL') AND delay > 120"},
    {"in-list, minutes", "SELECT delay, origin FROM $F WHERE date IN ('2001-01-05 08:00','2001-01-12 08:00',"
                         "'2001-01-19 08:00','2001-01-26 08:00','2001-02-02 08:00','2001-02-09 08:00') ORDER BY rowid"},
    {"three predicates, count",
     "SELECT count(*) FROM $F WHERE distance BETWEEN 2400 AND 2600 AND origin = 'SFO' AND delay > 60"},
    {"three predicates, rows",
     "SELECT * FROM $F WHERE distance < 200 AND destination = 'ATL' AND delay > 120 ORDER BY rowid"},
    {"prefix, an hour", "SELECT count(*) FROM $F WHERE date LIKE '2001-02-14 08%'"},
    {"prefix, airports", "SELECT count(*), max(delay) FROM $F WHERE origin LIKE 'HN%'"},
    {"count of all", "SELECT count(*) FROM $F"},
    {"sums of all", "SELECT sum(distance), avg(delay) FROM $F"},
    {"group by", "SELECT origin, count(*), avg(delay) FROM $F GROUP BY origin ORDER BY origin"},
    {"group by, tavo_group()", "SELECT origin, count(*), avg(delay) FROM $F GROUP BY origin ORDER BY origin",
     "SELECT key1, value1, value2 FROM tavo_group('virtual', 'origin', 'count(*), avg(delay)')"},
    {"group by, selected", "SELECT destination, count(*) FROM $F WHERE delay > 180 GROUP BY destination ORDER BY 1"},
    {"join with airports", "SELECT state, count(*) FROM $F f JOIN airports a ON f.origin = a.iata WHERE f.delay > 240 "
                           "GROUP BY state ORDER BY state"},
    {"join from airports", "SELECT count(*) FROM airports a JOIN $F f ON f.origin = a.iata WHERE a.state = 'HI' AND "
                           "f.distance > 3000"},
    {"order by, limit",
     "SELECT delay, distance, origin FROM $F WHERE origin = 'SFO' ORDER BY delay DESC, rowid LIMIT 10"},
};

sqlite3 *db = nullptr;

[[noreturn]] void fail(const char *what) {
    std::fprintf(stderr, "%s: %s\n", what, sqlite3_errmsg(db));
    std::exit(2);
}

void run(const std::string &sql) {
    if (sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK)
        fail(sql.c_str());
}

// Prepared anew each time, as applications do; the rows' texts are part of the work.
double run_once(const std::string &sql, std::string &answer, int &rows) {
    answer.clear();
    rows = 0;
    const auto start = std::chrono::steady_clock::now();
    sqlite3_stmt *s = nullptr;
    if (sqlite3_prepare_v2(db, sql.c_str(), -1, &s, nullptr) != SQLITE_OK)
        fail(sql.c_str());
    int status;
    while ((status = sqlite3_step(s)) == SQLITE_ROW) {
        rows++;
        for (int i = 0; i < sqlite3_column_count(s); i++) {
            const auto *text = reinterpret_cast<const char *>(sqlite3_column_text(s, i));
            answer += text == nullptr ? "null" : text;
            answer += '|';
        }
        answer += '\n';
    }
    if (status != SQLITE_DONE)
        fail(sql.c_str());
    sqlite3_finalize(s);
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count() * 1e6;
}

double best(std::string sql, const char *flights, std::string &answer, int &rows) {
    for (std::size_t at; (at = sql.find("$F")) != sql.npos;)
        sql.replace(at, 2, flights);
    run_once(sql, answer, rows); // warm
    double shortest = 1e18, spent = 0;
    for (int i = 0; i < 20 && (i < 2 || spent < 2e5); i++) {
        const double t = run_once(sql, answer, rows);
        spent += t;
        shortest = t < shortest ? t : shortest;
    }
    return shortest;
}

// The plain table's rows without its indexes: `f` in a join stays the name.
std::string not_indexed(std::string sql) {
    for (std::size_t at = 0; (at = sql.find("$F", at)) != sql.npos; at += 2) {
        const std::size_t behind = at + (sql.compare(at, 5, "$F f ") == 0 ? 4 : 2);
        sql.insert(behind, " NOT INDEXED");
    }
    return sql;
}

} // namespace

int main(int argc, char **argv) {
    if (argc != 4)
        return 2;
    sqlite3_open(":memory:", &db);
    sqlite3_enable_load_extension(db, 1);
    if (sqlite3_load_extension(db, argv[1], nullptr, nullptr) != SQLITE_OK)
        fail(argv[1]);
    run(std::string("CREATE VIRTUAL TABLE virtual USING tavo(file='") + argv[2] + "')");
    run(std::string("CREATE VIRTUAL TABLE va USING tavo(file='") + argv[3] + "')");
    run("CREATE TABLE airports AS SELECT * FROM va");
    run("CREATE INDEX airports_iata ON airports(iata)");
    run("CREATE TABLE plain(date TEXT, delay INTEGER, distance INTEGER, origin TEXT, destination TEXT)");
    run("INSERT INTO plain SELECT * FROM virtual");
    for (const char *columns : {"date", "delay", "distance", "origin, delay", "destination, delay"}) {
        std::string name = columns;
        run("CREATE INDEX plain_" + name.substr(0, name.find(',')) + " ON plain(" + name + ")");
    }
    run("ANALYZE");
    bool equal = true;
    for (const statement &s : statements) {
        std::string a, b, c;
        int rows;
        const double plain = best(not_indexed(s.sql), "plain", a, rows), indexed = best(s.sql, "plain", b, rows),
                     ours = best(s.ours != nullptr ? s.ours : s.sql, "virtual", c, rows);
        if (a != b || a != c) {
            std::fprintf(stderr, "answers differ: %s\n%.300s\n%.300s\n", s.sql, a.c_str(), c.c_str());
            equal = false;
        }
        std::printf("%s\t%.1f\t%.1f\t%.1f\t%d\t%s\n", s.name, plain, indexed, ours, rows, s.ours ? s.ours : s.sql);
        std::fflush(stdout);
    }
    sqlite3_close(db);
    return equal ? 0 : 1;
}
