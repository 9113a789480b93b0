// The extension as applications meet it: its functions, what is wrong with arguments and files, several connections and
// threads, interrupts, memory that runs out, and the shell.
#include <atomic>
#include <chrono>
#include <cstring>
#include <thread>

#include "tests/host/sqlite/database.h"

namespace {

#ifdef TAVO_STATEMENTS // fewer of them, as all takes longer
constexpr bool thorough = false;
#else
constexpr bool thorough = true;
#endif

const std::string flights = TAVO_DATA "/flights-100k.csv", words = TAVO_DATA "/words-10k.vectors";

std::string made(const std::string &name, const std::string &file) {
    return "CREATE VIRTUAL TABLE " + name + " USING tavo(file='" + file + "')";
}

TEST(Extension, GroupsAreThoseOfSql) {
    database db;
    db.rows(made("f", flights));
    EXPECT_EQ(db.rows("SELECT key1, value1, value2, value3, value4, value5, value6 FROM tavo_group('f', 'origin', "
                      "'count(*), sum(delay), avg(delay), min(distance), max(date), count(destination)', "
                      "'delay > 10')"),
              db.rows("SELECT origin, count(*), sum(delay), avg(delay), min(distance), max(date), count(destination) "
                      "FROM f WHERE delay > 10 GROUP BY origin"));
    const auto by_month =
        db.rows("SELECT key1, key2, value1 FROM tavo_group('main.f', 'month(date), origin', 'count(*)') LIMIT 50");
    EXPECT_EQ(db.rows("SELECT kernel FROM tavo_explain WHERE kernel LIKE '%groupkey%'").size(), 1u);
    EXPECT_EQ(by_month, db.rows("SELECT substr(date, 1, 7), origin, count(*) FROM f GROUP BY 1, 2 LIMIT 50"));
    // Nulls, texts that look like nulls, and reals, of a statement's answer.
    db.rows("CREATE TABLE s(k TEXT, x REAL, n)");
    db.rows("INSERT INTO s VALUES ('', 0.5, 1), (NULL, 1.5, NULL), ('a', NULL, 3), ('a', -2.25, 4), ('', 0.25, NULL)");
    db.rows("CREATE VIRTUAL TABLE g USING tavo(select='SELECT * FROM s')");
    EXPECT_EQ(db.rows("SELECT key1, value1, value2, value3, value4 FROM tavo_group('g', 'k', 'sum(x), avg(x), "
                      "max(x), count(n)')"),
              db.rows("SELECT k, sum(x), avg(x), max(x), count(n) FROM s GROUP BY k"));
    EXPECT_EQ(db.rows("SELECT value1, value2 FROM tavo_group('g', '', 'count(*), sum(n)')"),
              db.rows("SELECT count(*), sum(n) FROM s"));

    const std::pair<const char *, const char *> wrong[] = {
        {"SELECT * FROM tavo_group('f', 'origin')", "needs 3 arguments"},
        {"SELECT * FROM tavo_group('nothing', 'origin', 'count(*)')", "no table nothing"},
        {"SELECT * FROM tavo_group('f', 'orgin', 'count(*)')", "origin"},
        {"SELECT * FROM tavo_group('f', 'origin', 'median(delay)')", "median(delay)"},
        {"SELECT * FROM tavo_group('f', 'origin', 'sum(destination)')", "no column of numbers"},
        {"SELECT * FROM tavo_group('f', 'origin', 'count(*)', 'delay >')", "expected"},
        {"SELECT * FROM tavo_group('f', 'date, origin, destination, distance', 'count(*)')", "32 bits"},
    };
    for (const auto &[sql, message] : wrong) {
        const auto a = db.run(sql);
        EXPECT_EQ(a.status, SQLITE_ERROR) << sql;
        EXPECT_NE(a.message.find(message), a.message.npos) << sql << "\n" << a.message;
    }
}

// Values of all types and the ends of their ranges, as keys, smallest and largest ones, and in sums.
TEST(Extension, GroupsOfMixedValues) {
    database db;
    const std::string neighbours = "0.1, 0.10000000000000002, 0.30000000000000004, 0.3, 1e-308, 1e308, -1e308",
                      infinite = neighbours + ", 9e999, -9e999",
                      ends = "9223372036854775807, 9223372036854775806, -9223372036854775808, 3, NULL, 7, -7",
                      mixed = "1, 'a', 1.0, x'61', '1', 2, 2.0, NULL, x'', '', 9007199254740993, 9007199254740992.0, "
                              "-0.0, 0, 'A', 1.5";
    for (const std::string &values : {neighbours, infinite, ends, mixed, ends + ", 0.5"}) {
        db.run("DROP TABLE IF EXISTS s");
        db.run("DROP TABLE IF EXISTS g");
        db.rows("CREATE TABLE s(k, x, n INTEGER, o INTEGER)");
        std::string rows = "(" + values + ")";
        for (std::size_t at = 0; (at = rows.find(", ", at)) != rows.npos; at += 5)
            rows.replace(at, 2, "), (");
        for (int times = 0; times < 3; times++)
            db.rows("INSERT INTO s SELECT column1, CASE WHEN column1 NOT IN (0, 1, 2) OR typeof(column1) = 'integer' "
                    "THEN column1 END, 1, "
                    "CASE WHEN rowid % 3 THEN 5 END FROM (SELECT row_number() OVER () AS rowid, * FROM (VALUES " +
                    rows + "))");
        db.rows("CREATE VIRTUAL TABLE g USING tavo(select='SELECT * FROM s')");
        const std::string answers = "count(*), count(o), min(x), max(x), avg(o)";
        EXPECT_EQ(db.rows("SELECT key1, value1, value2, value3, value4, value5 FROM tavo_group('g', 'k', '" + answers +
                          "') ORDER BY value3, key1"),
                  db.rows("SELECT min(k), " + answers + " FROM s GROUP BY k ORDER BY min(x), k"))
            << values;
        EXPECT_EQ(db.rows("SELECT key1, key2, value1 FROM tavo_group('g', 'o, k', 'count(*)')"),
                  db.rows("SELECT o, min(k), count(*) FROM s GROUP BY o, k"))
            << values;
        EXPECT_EQ(db.rows("SELECT value1, value2 FROM tavo_group('g', '', 'min(x), max(x)')"),
                  db.rows("SELECT * FROM (SELECT min(x), max(x) FROM s)"))
            << values;
    }
    // Integers whose sums fit 64 bits barely, and don't.
    db.rows("CREATE TABLE i(k, n INTEGER)");
    db.rows(
        "INSERT INTO i VALUES (1, 9223372036854775807), (1.0, -3), (1, NULL), (2, -9223372036854775808), (3, NULL)");
    db.rows("CREATE VIRTUAL TABLE j USING tavo(select='SELECT * FROM i')");
    const std::string of_groups = "SELECT key1, value1 FROM tavo_group('j', 'k', 'sum(n)')";
    EXPECT_EQ(db.rows(of_groups), db.rows("SELECT k, sum(n) FROM i GROUP BY k"));
    db.rows("INSERT INTO i VALUES (2, -1)");
    db.rows("DROP TABLE j");
    db.rows("CREATE VIRTUAL TABLE j USING tavo(select='SELECT * FROM i')");
    EXPECT_EQ(db.run(of_groups).message, db.run("SELECT k, sum(n) FROM i GROUP BY k").message);
    EXPECT_EQ(db.run(of_groups).status, SQLITE_ERROR);
    // More groups and numbers than there are keys of both; months.
    db.rows("CREATE TABLE many AS WITH n(i) AS (VALUES(1) UNION ALL SELECT i + 1 FROM n WHERE i < 70000) "
            "SELECT i / 2 AS k, date(2459000 + i % 90) AS d, 1700000000000000000 - i * 1000 AS t FROM n");
    db.rows("CREATE VIRTUAL TABLE m USING tavo(select='SELECT * FROM many')");
    EXPECT_EQ(db.rows("SELECT key1, value1, value2 FROM tavo_group('m', 'k', 'sum(t), max(t)')"),
              db.rows("SELECT k, sum(t), max(t) FROM many GROUP BY k"));
    EXPECT_EQ(db.rows("SELECT key1, key2, value1 FROM tavo_group('m', 'month(d), k', 'sum(t)', 'k <= 1000')"),
              db.rows("SELECT substr(d, 1, 7) AS month, k, sum(t) FROM many WHERE k <= 1000 GROUP BY month, k"));
    // Columns without values.
    for (const std::string rows : {"SELECT k, CASE WHEN n IS NULL THEN n END AS n FROM i",
                                   "SELECT * FROM i WHERE k > 3", "SELECT * FROM i WHERE k = 3"}) {
        db.run("DROP TABLE IF EXISTS e");
        db.rows("CREATE VIRTUAL TABLE e USING tavo(select='" + rows + "')");
        EXPECT_EQ(db.rows("SELECT key1, value1, value2, value3, value4 FROM tavo_group('e', 'k', "
                          "'sum(n), avg(n), max(n), count(n)', 'n < 5')"),
                  db.rows("SELECT k, sum(n), avg(n), max(n), count(n) FROM (" + rows + ") WHERE n < 5 GROUP BY k"));
        EXPECT_EQ(db.rows("SELECT value1, value2, value3, value4 FROM tavo_group('e', '', "
                          "'sum(n), avg(n), max(n), count(n)')"),
                  db.rows("SELECT sum(n), avg(n), max(n), count(n) FROM (" + rows + ")"));
    }
}

TEST(Extension, NearestWords) {
    database db;
    const auto nearest = [&](const std::string &arguments) {
        return db.run("SELECT word FROM tavo_nearest('" + words + "', " + arguments + ")");
    };
    EXPECT_EQ(nearest("'king - man + woman', 1").rows, std::vector<std::string>{"tqueen"});
    const auto by_word = nearest("'river', 5, 'euclid', 'float'");
    EXPECT_EQ(by_word.rows.size(), 5u);
    // The same by a vector in text, and in floats.
    std::string text = "[1", bytes = "x'0000803f";
    for (int i = 1; i < 100; i++) {
        text += ", 0.5";
        bytes += "0000003f";
    }
    const auto by_text = nearest("'" + text + "]', 7, 'dot'");
    EXPECT_EQ(by_text.rows.size(), 7u) << by_text.message;
    EXPECT_EQ(by_text.rows, nearest(bytes + "', 7, 'dot'").rows);
    const auto ordered = db.rows("SELECT distance FROM tavo_nearest('" + words + "', 'river', 20)");
    EXPECT_EQ(ordered, db.rows("SELECT distance FROM tavo_nearest('" + words + "', 'river', 20) ORDER BY distance"));
    // Joined: the query comes from another table.
    EXPECT_EQ(db.rows("SELECT q.column1, count(*) FROM (VALUES ('king'), ('river')) q, tavo_nearest('" + words +
                      "', q.column1, 3) GROUP BY 1"),
              (std::vector<std::string>{"tking|i3", "triver|i3"}));
    for (const char *arguments : {"'nosuchword'", "'king', 0", "'king', 3, 'furthest'", "'king', 3, 'cosine', 'int3'",
                                  "x'00'", "'[1, 2]'", "NULL", "'king', 3, 'jaccard'"})
        EXPECT_EQ(nearest(arguments).status, SQLITE_ERROR) << arguments;
    EXPECT_EQ(db.run("SELECT * FROM tavo_nearest('" + flights + "', 'king')").status, SQLITE_ERROR);
}

TEST(Extension, ExplainTellsOfTheLastScan) {
    database db;
    EXPECT_TRUE(db.rows("SELECT * FROM tavo_explain").empty());
    db.rows(made("f", flights));
    EXPECT_EQ(db.rows("SELECT count(*) FROM f WHERE delay >= 60 AND origin = 'SFO'").size(), 1u);
    EXPECT_EQ(db.rows("SELECT table_name, kernel, rows_in FROM tavo_explain WHERE kernel LIKE 'tavo_eq_%'"),
              std::vector<std::string>{"tf|ttavo_eq_dict_8bit|i100000"});
    EXPECT_EQ(db.rows("SELECT count(*) FROM tavo_explain WHERE microseconds < 0 OR rows_out > rows_in"),
              std::vector<std::string>{"i0"});
    // A prefix is searched, but not where a row without it is wanted too.
    for (const auto &[from, searched] : {std::pair{"f WHERE", true}, {"f LEFT JOIN (SELECT 1) ON", false}}) {
        EXPECT_EQ(db.rows(std::string("SELECT count(*) FROM ") + from + " origin LIKE 'SF%'").size(), 1u);
        EXPECT_EQ(db.rows("SELECT 1 FROM tavo_explain WHERE column_name = 'origin' AND rows_out < rows_in").empty(),
                  !searched);
    }
    // Columns that aren't used are not decoded.
    EXPECT_EQ(db.rows("SELECT sum(distance) FROM f").size(), 1u);
    EXPECT_EQ(db.rows("SELECT column_name, rows_out FROM tavo_explain WHERE kernel LIKE '%unpack%'"),
              std::vector<std::string>{"tdistance|i100000"});
    EXPECT_NE(db.rows("SELECT tavo_info()")[0].find("libtavo_"), std::string::npos);
}

TEST(Extension, ArgumentsAndFilesThatAreWrong) {
    database db;
    const temporary_file quote("a,b\n1,\"x\n", "quote.csv"), ragged("a,b\n1,2,3\n", "ragged.csv"),
        packed(std::string("\x1f\x8b\x08\x00", 4), "packed.csv"), empty("", "empty.csv"),
        zeros(std::string(5000, '\0'), "zeros.csv"), many("a\n" + std::string(70000, 'x') + "\n", "long.csv");
    const std::pair<std::string, const char *> wrong[] = {
        {"", "file="},
        {"flights.csv", "name='value'"},
        {"fil='x.csv'", "file"},
        {"file='/nowhere/x.csv'", "/nowhere/x.csv"},
        {"file='/tmp'", ""},
        {"file='" + quote.path() + "'", "quote"},
        {"file='" + ragged.path() + "'", "line 2"},
        {"file='" + packed.path() + "'", ""},
        {"file='" + empty.path() + "'", ""},
        {"file='" + zeros.path() + "'", ""},
        {"file='" + many.path() + "'", "70000 bytes"},
        {"file='" + flights + "', encode='zip'", "forms"},
        {"file='" + flights + "', encode='nocolumn=rle'", "nocolumn"},
        {"file='" + flights + "', type='delay=colour'", "COLUMN=TYPE"},
        {"file='" + flights + "', type='origin=integer'", "origin"},
        {"file='" + flights + "', library='/nowhere/lib.so'", "no argument library"},
        {"file='" + flights + "', delimiter='\"'", "delimiter"},
        {"select='SELECT 1 AS a, 2 AS A'", "both named"},
        {"file='" + flights + "', select='SELECT 1'", "either"},
        {"select='SELEC 1'", "syntax"},
        {"select='DELETE FROM sqlite_master'", ""},
        {"select='SELECT 1; SELECT 2'", "one statement"},
        {"select='SELECT abs(-9223372036854775807 - 1)'", "overflow"},
    };
    for (const auto &[arguments, message] : wrong) {
        const auto a = db.run("CREATE VIRTUAL TABLE x USING tavo(" + arguments + ")");
        EXPECT_EQ(a.status, SQLITE_ERROR) << arguments;
        EXPECT_NE(a.message.find(message), a.message.npos) << arguments << "\n" << a.message;
    }
    EXPECT_EQ(db.run("SELECT * FROM tavo").status, SQLITE_ERROR);
    db.rows(made("f", flights));
    EXPECT_EQ(db.run("DELETE FROM f").status, SQLITE_ERROR);
    EXPECT_EQ(db.run("INSERT INTO f(delay) VALUES (1)").status, SQLITE_ERROR);
}

TEST(Extension, ArgumentsOfFiles) {
    database db;
    const temporary_file file("1;NA;x\n2;5;'y''\n", "options.csv");
    db.rows("CREATE VIRTUAL TABLE f USING tavo( file = '" + file.path() +
            "', delimiter=';', header=no, null='NA, none', type='column_1=text')");
    EXPECT_EQ(db.rows("SELECT * FROM f"), (std::vector<std::string>{"t1||tx", "t2|i5|t'y''"}));
    db.rows("CREATE VIRTUAL TABLE e USING tavo(select='SELECT 1 AS \"a \"\"b\", NULL AS n, ''it''''s'' WHERE 0')");
    EXPECT_TRUE(db.rows("SELECT * FROM e WHERE n IS NULL ORDER BY n LIMIT 3").empty());
    EXPECT_EQ(db.rows("SELECT count(*) FROM e"), std::vector<std::string>{"i0"});
}

// A table in a database file is there again, renamed, attached, and dropped while it is read.
TEST(Extension, TablesStayInTheirDatabase) {
    const temporary_file file("", "kept.db");
    {
        database db(file.path());
        db.rows(made("f", flights));
        db.rows("ALTER TABLE f RENAME TO flights");
    }
    {
        database db(file.path());
        EXPECT_EQ(db.rows("SELECT value1 FROM tavo_group('main.flights', '', 'count(*)')"),
                  std::vector<std::string>{"i100000"});
    }
    {
        database db(file.path());
        db.rows("ATTACH ':memory:' AS other");
        db.rows("CREATE VIRTUAL TABLE other.flights USING tavo(select='SELECT 1 AS a')");
        EXPECT_EQ(db.rows("SELECT value1 FROM tavo_group('flights', '', 'count(*)')"),
                  std::vector<std::string>{"i100000"});
        EXPECT_EQ(db.rows("SELECT value1 FROM tavo_group('other.flights', '', 'count(*)')"),
                  std::vector<std::string>{"i1"});
    }
    database db(file.path());
    EXPECT_EQ(db.rows("SELECT value1 FROM tavo_group('flights', '', 'count(*)')"), std::vector<std::string>{"i100000"});
    db.rows("ATTACH ':memory:' AS other");
    db.rows("CREATE VIRTUAL TABLE other.g USING tavo(select='SELECT * FROM flights LIMIT 10')");
    EXPECT_EQ(db.rows("SELECT value1 FROM tavo_group('other.g', '', 'count(*)')"), std::vector<std::string>{"i10"});
    db.rows("CREATE TEMP VIEW late AS SELECT * FROM flights WHERE delay > 200");
    EXPECT_FALSE(db.rows("SELECT * FROM late").empty());
    // Not from a schema, which may be somebody else's.
    db.rows("CREATE VIEW kept AS SELECT * FROM flights");
    EXPECT_NE(db.run("SELECT * FROM kept").message.find("unsafe"), std::string::npos);
    db.rows("DROP VIEW kept");
    sqlite3_stmt *s = nullptr;
    ASSERT_EQ(sqlite3_prepare_v2(db.get(), "SELECT * FROM flights", -1, &s, nullptr), SQLITE_OK);
    ASSERT_EQ(sqlite3_step(s), SQLITE_ROW);
    EXPECT_EQ(db.run("DROP TABLE flights").status, SQLITE_LOCKED);
    EXPECT_EQ(sqlite3_step(s), SQLITE_ROW);
    sqlite3_finalize(s);
    db.rows("DROP TABLE flights");
    EXPECT_EQ(db.run("SELECT * FROM tavo_group('flights', '', 'count(*)')").status, SQLITE_ERROR);
}

// A statement keeps the table that it was prepared with, also when another one of that name has been made.
TEST(Extension, TablesOutliveThoseBeforeThem) {
    const temporary_file file("", "again.db");
    database db(file.path());
    db.rows(made("f", flights));
    sqlite3_stmt *kept = nullptr;
    ASSERT_EQ(sqlite3_prepare_v2(db.get(), "SELECT * FROM f", -1, &kept, nullptr), SQLITE_OK);
    database(file.path()).rows("CREATE TABLE makes_schemas_old(a)");
    EXPECT_EQ(db.rows("SELECT count(*) FROM f"), std::vector<std::string>{"i100000"});
    sqlite3_finalize(kept);
    EXPECT_EQ(db.rows("SELECT value1 FROM tavo_group('f', '', 'count(*)')"), std::vector<std::string>{"i100000"});
    db.rows("ALTER TABLE f RENAME TO g");
    EXPECT_EQ(db.rows("SELECT value1 FROM tavo_group('g', '', 'count(*)')"), std::vector<std::string>{"i100000"});
    EXPECT_EQ(db.run("SELECT * FROM tavo_group('f', '', 'count(*)')").status, SQLITE_ERROR);
}

TEST(Extension, ConnectionsInThreads) {
    const std::string sql = "SELECT origin, count(*), sum(delay) FROM f WHERE distance > 700 AND date LIKE '2001-01%' "
                            "GROUP BY origin";
    for (const char *form : {"plain", "rle", "spak"}) {
        std::vector<std::string> expected;
        const std::string create = "CREATE VIRTUAL TABLE f USING tavo(file='" + flights + "', encode='" + form + "')";
        database first;
        first.rows(create);
        expected = first.rows(sql);
        std::vector<std::thread> threads;
        std::atomic<int> same{0};
        for (int t = 0; t < 4; t++) // each with a connection
            threads.emplace_back([&] {
                database db;
                db.rows(create);
                for (int i = 0; i < (thorough ? 10 : 1); i++) {
                    same += db.rows(sql) == expected;
                    db.rows("SELECT * FROM f WHERE date = '2001-01-05 08:00' ORDER BY delay LIMIT 5");
                }
            });
        for (std::thread &t : threads)
            t.join();
        EXPECT_EQ(same, thorough ? 40 : 4) << form;
    }
}

TEST(Extension, Interrupts) {
    database db;
    db.rows(made("f", flights));
    for (const char *sql :
         {"SELECT count(*) FROM f a, f b WHERE a.delay < b.distance AND a.date <> b.date",
          "CREATE VIRTUAL TABLE x USING tavo(select='WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n) "
          "SELECT i % 10 FROM n')"}) {
        std::atomic<bool> done{false};
        std::thread other([&] {
            while (!done) {
                std::this_thread::sleep_for(std::chrono::milliseconds(30));
                sqlite3_interrupt(db.get());
            }
        });
        const auto a = db.run(sql);
        done = true;
        other.join();
        EXPECT_NE(a.status, SQLITE_OK) << sql;
        EXPECT_NE(a.message.find("interrupt"), a.message.npos) << a.message;
    }
    EXPECT_EQ(db.rows("SELECT count(*) FROM f"), std::vector<std::string>{"i100000"});

    // Once, while a table of a database that has just been opened is made.
    std::string content = "a,b\n";
    for (int i = 0; i < (thorough ? 400000 : 100000); i++)
        content += std::to_string(i * 7919l % 100003) + ",x" + std::to_string(i % 7777) + "\n";
    const temporary_file file(content, "large.csv"), kept("", "interrupted.db");
    {
        database made_here(kept.path());
        made_here.rows(made("t", file.path()));
    }
    // The table is made when a statement is prepared that names it: the time at which that is under way varies.
    int interrupted = 0;
    for (int wait = 1; wait < 2000 && interrupted == 0; wait *= 2) {
        database reopened(kept.path());
        std::thread once([&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(wait));
            sqlite3_interrupt(reopened.get());
        });
        sqlite3_stmt *s = nullptr;
        interrupted +=
            sqlite3_prepare_v2(reopened.get(), "SELECT count(*) FROM t", -1, &s, nullptr) == SQLITE_INTERRUPT;
        sqlite3_finalize(s);
        once.join();
        EXPECT_EQ(reopened.run("SELECT count(*) FROM t").status, SQLITE_OK);
    }
    EXPECT_EQ(interrupted, 1);
}

// SQLite's own memory: whatever it says no to, a statement ends with that, and what it took is given back.
TEST(Extension, MemoryRunsOut) {
    database db;
    db.rows(made("f", flights));
    const std::string sql = "SELECT * FROM f WHERE delay > 100 AND origin IN ('SFO', 'LAX') ORDER BY distance LIMIT 20";
    const auto expected = db.rows(sql);
    const sqlite3_int64 before = sqlite3_memory_used();
    unsigned refused = 0, answered = 0;
    for (int room = 0; room < 60000; room += thorough ? 97 : 1499) {
        sqlite3_hard_heap_limit64(sqlite3_memory_used() + room + 1);
        const auto a = db.run(sql);
        sqlite3_hard_heap_limit64(0);
        EXPECT_TRUE(a.status == SQLITE_NOMEM || a.status == SQLITE_OK) << a.status << a.message;
        (a.status == SQLITE_OK ? answered : refused)++;
        if (a.status == SQLITE_OK) {
            EXPECT_EQ(a.rows, expected);
        }
    }
    EXPECT_GT(refused, 0u);
    EXPECT_GT(answered, 0u);
    EXPECT_LE(sqlite3_memory_used(), before + 4096);
}

// The shell, as a person would drive it.
TEST(Extension, Shell) {
    if (std::strlen(TAVO_SHELL) == 0)
        GTEST_SKIP() << "the sqlite3 shell is not there, or cannot load what is built with sanitizers";
    const temporary_file script(std::string(".load " TAVO_SQLITE_EXTENSION "\n") + made("f", flights) +
                                    ";\n.schema f\nSELECT count(*) FROM f;\nSELECT * FROM tavo_group('f');\n"
                                    "CREATE VIRTUAL TABLE g USING tavo(file='/nowhere');\n.tables\n"
                                    "SELECT origin FROM f WHERE delay > 300 LIMIT 1;\n.quit\nSELECT 'not this';\n",
                                "script.sql");
    FILE *shell = popen((std::string(TAVO_SHELL) + " :memory: <" + script.path() + " 2>&1").c_str(), "r");
    ASSERT_NE(shell, nullptr);
    std::string out;
    for (int c; (c = std::fgetc(shell)) != EOF;)
        out += static_cast<char>(c);
    const int status = pclose(shell);
    EXPECT_NE(out.find("/* f(date,delay,distance,origin,destination) */"), out.npos) << out;
    EXPECT_NE(out.find("\n100000\n"), out.npos) << out;
    EXPECT_NE(out.find("tavo_group needs 3 arguments"), out.npos) << out;
    EXPECT_NE(out.find("/nowhere"), out.npos) << out;
    EXPECT_EQ(out.find("not this"), out.npos) << out;
    EXPECT_TRUE(WIFEXITED(status)) << status; // whatever it says of the errors, it did not crash
}

} // namespace
