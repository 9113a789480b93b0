// Random statements over a plain table and a virtual one with the same rows and declared types: the same answers, by
// value and type. Every kind of condition that the virtual table takes on meets values of every type, collations, other
// affinities, and conditions that it does not take on.
#include <cmath>
#include <memory>
#include <random>

#include "tests/host/sqlite/database.h"

namespace {

#ifndef TAVO_STATEMENTS
#define TAVO_STATEMENTS 6000
#endif

struct source_column {
    const char *name;
    std::vector<std::string> texts; // empty: null
};

class side_by_side {
public:
    explicit side_by_side(std::uint32_t seed) : random_(seed) {}

    std::string one_of(const std::vector<std::string> &all) { return all[random_() % all.size()]; }
    bool chance(unsigned percent) { return random_() % 100 < percent; }
    unsigned below(unsigned n) { return static_cast<unsigned>(random_() % n); }

    // A value as SQL: of the data mostly, or near it, or of a type that doesn't fit.
    std::string value() {
        switch (below(14)) {
        case 0: return "NULL";
        case 1: return one_of({"0", "-1", "5", "17", "9223372036854775807", "-9223372036854775808", "1e3"});
        case 2: return one_of({"0.5", "1.5", "5.0", "-2.25", "1e300", "17.000000001", "9.2233720368547758e18"});
        case 3: return one_of({"'5'", "'05'", "' 5 '", "'5.0'", "'1e1'", "'abc'", "''", "'-'", "'17x'", "'\xc3\xa9'"});
        case 4: return one_of({"x'35'", "x''", "x'534f'"});
        case 5: return one_of({"CAST('5' AS INTEGER)", "CAST(5 AS TEXT)", "CAST(17 AS REAL)", "CAST('SFO' AS BLOB)"});
        case 6: return one_of({"'2001-01-02'", "'2001-01-03 10:00'", "'2001'", "'2001-01-10 00:30'"});
        case 7: return one_of({"'SFO'", "'sfo'", "'LAX'", "'LAX '", "'M'", "'zz'", "'Sf'"});
        case 8: return std::to_string(static_cast<int>(below(60)) - 20);
        case 9: return std::to_string(static_cast<int>(below(400)) - 100) + ".25";
        case 10: return "'" + std::to_string(below(60)) + "'";
        case 11:
            return "(SELECT " + one_of({"i", "r", "t", "n"}) +
                   " FROM aux WHERE rowid = " + std::to_string(1 + below(24)) + ")";
        default: return one_of(literals_);
        }
    }
    std::string column() { return "t." + one_of(columns_); }
    std::string collation() { return chance(12) ? " COLLATE " + one_of({"NOCASE", "RTRIM", "BINARY"}) : ""; }
    std::string comparison() { return one_of({"=", "=", "=", "<", "<=", ">", ">=", "<>", "==", "IS", "IS NOT"}); }

    std::string leaf() {
        const std::string c = chance(8) ? "t.rowid" : column();
        const std::string no = chance(20) ? " NOT" : "";
        switch (below(12)) {
        case 0: return value() + " " + comparison() + " " + c + collation();
        case 1: return c + collation() + no + " BETWEEN " + value() + " AND " + value();
        case 2: {
            std::string list;
            for (unsigned n = 1 + below(chance(20) ? 40 : 5); n > 0; n--)
                list += (list.empty() ? "" : ", ") + value();
            return c + collation() + no + " IN (" + list + ")";
        }
        case 3: return c + no + " IN (SELECT " + one_of({"i", "r", "t", "n"}) + " FROM aux)";
        case 4: return c + (chance(50) ? " IS NULL" : " IS NOT NULL");
        case 5:
            return c + no + " LIKE " +
                   one_of({"'S%'", "'s%'", "'LA_'", "'%A%'", "'la%x'", "'5%'", "'2001-01-0%'", "'SFO'", "'\xc3\xa9%'",
                           "''", "'1_'", "NULL", "5", "t.c || '%'"});
        case 6: return c + no + " GLOB " + one_of({"'S*'", "'[A-M]*'", "'5*'"});
        case 7: return c + " " + comparison() + " " + column();
        case 8: return one_of({"+" + c, c + " + 0", "-" + c, c + " || ''"}) + " " + comparison() + " " + value();
        case 9:
            return chance(80) ? c + " " + comparison() + " ?" + std::to_string(1 + below(3))
                              : "t.rowid " + comparison() + " " + std::to_string(below(700));
        default: return c + collation() + " " + comparison() + " " + value() + collation();
        }
    }

    std::string where(unsigned depth) {
        const unsigned kind = below(10);
        if (depth == 0 || kind < 3)
            return leaf();
        if (kind == 3)
            return "NOT (" + where(depth - 1) + ")";
        return "(" + where(depth - 1) + (kind < 8 ? " AND " : " OR ") + where(depth - 1) + ")";
    }

    // Without @, where the table's name comes.
    std::string statement(bool &in_order) {
        in_order = true;
        std::string condition = chance(92) ? " WHERE " + where(chance(50) ? 1 : 3) : "";
        const auto all = [&] {
            std::string list = "t.rowid";
            for (const std::string &c : columns_)
                list += ", t." + c;
            return list;
        };
        switch (below(12)) {
        case 0: return "SELECT count(*), count(t.a), min(t.c), max(t.b), total(t.a) FROM @ t" + condition;
        case 1: {
            const std::string c = column();
            return "SELECT " + c + ", count(*), sum(t.a) FROM @ t" + condition + " GROUP BY " + c + " ORDER BY 1";
        }
        case 2: in_order = false; return "SELECT DISTINCT " + column() + ", " + column() + " FROM @ t" + condition;
        case 3: {
            in_order = false;
            if (chance(50)) // conditions of which those that are not met leave a row without partner
                return outer_join() + condition;
            const std::string on =
                column() + " " + one_of({"=", "=", "=", "<", ">=", "IS"}) + " aux." + one_of({"i", "r", "t", "n"});
            return "SELECT t.rowid, aux.rowid FROM aux " + one_of({"JOIN", "LEFT JOIN"}) + " @ t ON " + on + condition;
        }
        case 4:
        case 5: {
            std::string order;
            for (unsigned n = 1 + below(3); n > 0; n--)
                order += column() + collation() +
                         one_of({"", " DESC", " ASC", "", " DESC", " NULLS LAST", " DESC NULLS FIRST"}) + ", ";
            return "SELECT " + (chance(50) ? all() : column()) + " FROM @ t" + condition + " ORDER BY " + order +
                   "t.rowid" + one_of({"", " DESC"}) + limit();
        }
        case 6: return "SELECT " + column() + " FROM @ t" + condition + " ORDER BY 1" + limit(); // of equals, any
        case 7: {
            const std::string leaf_only = chance(70) ? " WHERE " + leaf() : "";
            return "SELECT count(*) FROM (SELECT 1 FROM @ t" + leaf_only + limit() + ")";
        }
        case 8:
            return "SELECT aux.rowid, (SELECT count(*) FROM @ t WHERE " + column() + " " + comparison() + " aux." +
                   one_of({"i", "r", "t", "n"}) + " AND " + leaf() + "), EXISTS (SELECT 1 FROM @ t WHERE " + leaf() +
                   ") FROM aux ORDER BY 1";
        default: in_order = false; return "SELECT " + (chance(60) ? all() : column()) + " FROM @ t" + condition;
        }
    }
    std::string outer_join() {
        return "SELECT t.rowid, aux.rowid FROM " +
               one_of({"@ t LEFT JOIN aux", "aux RIGHT JOIN @ t", "aux FULL JOIN @ t"}) + " ON " + leaf() + " AND " +
               (chance(50) ? leaf() : "aux.rowid < 4");
    }
    std::string limit() {
        return chance(60) ? " LIMIT " + one_of({"0", "1", "3", "10", "100", "-1"}) +
                                (chance(40) ? " OFFSET " + one_of({"0", "2", "50", "-3", "1000"}) : "")
                          : "";
    }

    void set_columns(std::vector<std::string> columns, std::vector<std::string> literals) {
        columns_ = std::move(columns);
        literals_ = std::move(literals);
    }

    // Both tables are there. Returns how many statements had rows.
    unsigned compare(database &db, unsigned statements) {
        unsigned with_rows = 0;
        std::vector<std::unique_ptr<sqlite3_value, void (*)(sqlite3_value *)>> pool;
        sqlite3_stmt *s = nullptr;
        for (int i = 0; i < 30; i++) {
            EXPECT_EQ(sqlite3_prepare_v2(db.get(), ("SELECT " + value()).c_str(), -1, &s, nullptr), SQLITE_OK);
            if (sqlite3_step(s) == SQLITE_ROW)
                pool.emplace_back(sqlite3_value_dup(sqlite3_column_value(s, 0)), sqlite3_value_free);
            sqlite3_finalize(s);
        }
        for (unsigned i = 0; i < statements && !testing::Test::HasFailure(); i++) {
            if (i % 500 == 0)
                db.run(i % 1000 == 500 ? "PRAGMA case_sensitive_like = on" : "PRAGMA case_sensitive_like = off");
            bool in_order;
            std::string sql = statement(in_order);
            const bool view = sql.find("JOIN aux") != sql.npos && sql.find('?') == sql.npos && chance(25);
            std::vector<sqlite3_value *> values;
            if (sql.find('?') != sql.npos)
                for (int v = 0; v < 3; v++)
                    values.push_back(pool[below(static_cast<unsigned>(pool.size()))].get());
            const auto over = [&](const char *table) {
                std::string text = sql;
                for (std::size_t at; (at = text.find('@')) != text.npos;)
                    text.replace(at, 1, table);
                if (view) {
                    db.run("DROP VIEW IF EXISTS temp.joined");
                    db.run("CREATE TEMP VIEW joined AS " + text);
                    text = "SELECT * FROM joined";
                }
                const database::answer a = db.run(text, values);
                return in_order ? a : a.sorted();
            };
            const database::answer plain = over("p"), ours = over("v");
            if (view)
                db.run("DROP VIEW IF EXISTS temp.joined");
            with_rows += !plain.rows.empty() && plain.status == SQLITE_OK;
            EXPECT_EQ(plain.status, ours.status) << sql << "\n" << plain.message << "\n" << ours.message;
            EXPECT_EQ(plain.rows, ours.rows) << sql;
            EXPECT_TRUE(plain.status == SQLITE_OK || plain.status == SQLITE_ERROR) << sql << plain.message;
            refused_ += plain.status != SQLITE_OK;
        }
        return with_rows;
    }
    unsigned refused() const { return refused_; }

private:
    std::mt19937 random_;
    std::vector<std::string> columns_, literals_;
    unsigned refused_ = 0;
};

void make_aux(database &db) {
    db.rows("CREATE TABLE aux(i INTEGER, r REAL, t TEXT, n)");
    db.rows("INSERT INTO aux VALUES (5, 1.5, '5', 5), (-3, 0.25, 'SFO', 'SFO'), ('abc', 'x', '05', '05'),"
            "(NULL, NULL, NULL, NULL), (17, 17, '17', 17.0), ('', '', '', ''), (x'35', x'35', x'35', x'35'),"
            "(0, 0.0, '0', 0), (12, -2.25, 'lax', '12'), (44, 44.5, '2001-01-02 03:04', 1e3), (1, 2, 'M', '1e1'),"
            "(2, 3, '2001-01-05', 9), (33, 1e10, ' 5 ', ' 5 '), (-20, -99.75, 'zz', 'LAX '), (7, 7.5, '7.0', 7.5),"
            "(8, 8.25, 'Oak', 'oak'), (9, 9, '5.0', -1), (10, 10, '10', '10'), ('9x', '9x', '9x', '9x'),"
            "(9223372036854775807, 9223372036854775807, '9223372036854775807', 9223372036854775807),"
            "(3, 3.25, 'JFK', 3), (4, 4, 'jfk', 'JFK'), (6, 6, '6', 6), (11, 0.5, '.5', .5)");
}

// A file with all types of the host: a integers, b decimals, c airports in all cases, d moments, e texts of which many
// read as numbers, f few different values, g dates that order otherwise than their texts.
std::string make_rows(database &db, unsigned rows, std::string &content) {
    std::mt19937 random(7);
    const auto pick = [&](const std::vector<std::string> &all) { return all[random() % all.size()]; };
    content = "a,b,c,d,e,f,g\n";
    std::vector<std::vector<std::string>> table;
    for (unsigned row = 0; row < rows; row++) {
        const auto null = [&] { return random() % 11 == 0; };
        char moment[40];
        std::snprintf(moment, sizeof moment, "2001-01-%02u %02u:%02u", 1 + row / 60, row % 24, unsigned(random() % 60));
        table.push_back({
            null() ? "" : pick({std::to_string(int(random() % 60) - 20), "007", "+5", "17", " 12 "}),
            null() ? ""
                   : pick({std::to_string(int(random() % 200) - 100) + ".25", "1.50", "1.5", "0", "-0.0", "5", "1e3"}),
            null() ? ""
                   : pick({"SFO", "sfo", "LAX", "lax", "Sfo", "OAK", "JFK", "LAX ", "\xc3\xa9s", "\xc3\x89s", "M"}),
            null() ? "" : moment,
            null() ? ""
                   : pick({"5", "05", "5.0", " 5 ", "abc", "17", "1e1", "10", "9x", "-3", "0x10", "12", "+7", "."}),
            row % 7 < 4   ? "one"
            : row % 7 < 6 ? "two"
                          : "",
            null() ? "" : pick({"2001-01-02", "2001-01-02 00:00", "2001-01-01T23:59", "2001-01-03 10:00+05:00"}),
        });
        for (std::size_t i = 0; i < table.back().size(); i++)
            content += (i == 0 ? "" : ",") + table.back()[i];
        content += '\n';
    }
    // The types that the virtual table declares.
    const temporary_file file(content);
    EXPECT_EQ(db.run("CREATE VIRTUAL TABLE v USING tavo(file='" + file.path() + "')").status, SQLITE_OK);
    std::string declared;
    for (const std::string &column : db.rows("SELECT name || ' ' || type FROM pragma_table_info('v')"))
        declared += (declared.empty() ? "" : ", ") + column.substr(1);
    db.rows("CREATE TABLE p(" + declared + ")");
    sqlite3_stmt *insert = nullptr;
    EXPECT_EQ(sqlite3_prepare_v2(db.get(), "INSERT INTO p VALUES(?,?,?,?,?,?,?)", -1, &insert, nullptr), SQLITE_OK);
    for (const auto &row : table) {
        for (std::size_t i = 0; i < row.size(); i++) // SQLite converts the file's text itself
            if (row[i].empty())
                sqlite3_bind_null(insert, int(i) + 1);
            else
                sqlite3_bind_text(insert, int(i) + 1, row[i].c_str(), -1, SQLITE_TRANSIENT);
        sqlite3_step(insert);
        sqlite3_reset(insert);
    }
    sqlite3_finalize(insert);
    return declared;
}

const std::vector<std::string> columns = {"a", "b", "c", "d", "e", "f", "g"};
const std::vector<std::string> literals = {"'SFO'",
                                           "'LAX'",
                                           "17",
                                           "5",
                                           "1.5",
                                           "-99.75",
                                           "'one'",
                                           "'two'",
                                           "'05'",
                                           "'10'",
                                           "12",
                                           "'2001-01-03 04:30'",
                                           "1000",
                                           "'2001-01-02 00:00'",
                                           "'2001-01-05 00:00'",
                                           "-3"};

TEST(SideBySide, StatementsOverAFile) {
    database db;
    make_aux(db);
    std::string content;
    EXPECT_EQ(make_rows(db, 640, content), "a INTEGER, b REAL, c TEXT, d TEXT, e TEXT, f TEXT, g TEXT");
    side_by_side test(20010101);
    test.set_columns(columns, literals);
    const unsigned with_rows = test.compare(db, TAVO_STATEMENTS);
    std::printf("side by side: %u statements over a file, %u with rows, %u refused alike\n", TAVO_STATEMENTS, with_rows,
                test.refused());
    EXPECT_GT(with_rows, TAVO_STATEMENTS / 2u);
    EXPECT_LT(test.refused(), TAVO_STATEMENTS / 100u);
}

// Values of every type side by side in one column, which a file does not have.
TEST(SideBySide, StatementsOverASelect) {
    database db;
    make_aux(db);
    std::string content;
    make_rows(db, 300, content);
    db.rows("DROP TABLE v");
    db.rows("ALTER TABLE p RENAME TO q");
    const std::string select = "SELECT a, b AS b, CASE rowid % 6 WHEN 0 THEN c WHEN 1 THEN a WHEN 2 THEN b "
                               "WHEN 3 THEN CAST(c AS BLOB) WHEN 4 THEN e END AS c, d, e, a + 0 AS f, "
                               "(rowid % 9) * CASE rowid % 4 WHEN 0 THEN -0.5 ELSE 0.5 END AS g FROM q";
    db.rows("CREATE VIRTUAL TABLE v USING tavo(select='" + select + "')");
    std::string declared;
    for (const std::string &column : db.rows("SELECT name || ' ' || type FROM pragma_table_info('v')"))
        declared += (declared.empty() ? "" : ", ") + column.substr(1);
    EXPECT_EQ(declared, "a INTEGER, b REAL, c , d TEXT, e TEXT, f , g ");
    db.rows("CREATE TABLE p(" + declared + ")");
    db.rows("INSERT INTO p " + select);
    EXPECT_EQ(db.rows("SELECT * FROM p"), db.rows("SELECT * FROM v"));
    side_by_side test(42);
    test.set_columns(columns, literals);
    const unsigned with_rows = test.compare(db, TAVO_STATEMENTS / 3);
    std::printf("side by side: %u statements over a select, %u with rows\n", TAVO_STATEMENTS / 3, with_rows);
    EXPECT_GT(with_rows, TAVO_STATEMENTS / 6u);
}

// Columns in runs and in compressed streams, and texts that SQLite compares as UTF-16.
TEST(SideBySide, OtherFormsAndEncodings) {
    database db;
    db.rows("PRAGMA encoding = 'UTF-16le'");
    make_aux(db);
    std::string content;
    make_rows(db, 200, content);
    db.rows("DROP TABLE v");
    const temporary_file file(content, "forms.csv");
    db.rows("CREATE VIRTUAL TABLE v USING tavo(file='" + file.path() + "', encode='rle, a=spak, c=spak, b=plain')");
    side_by_side test(3);
    test.set_columns(columns, literals);
    test.compare(db, TAVO_STATEMENTS / 10);

    database bytes; // as UTF-8, so that texts are searched in these forms too
    make_aux(bytes);
    make_rows(bytes, 200, content);
    bytes.rows("DROP TABLE v");
    bytes.rows("CREATE VIRTUAL TABLE v USING tavo(file='" + file.path() + "', encode='rle, a=spak, c=spak, b=plain')");
    test.compare(bytes, TAVO_STATEMENTS / 10);
}

// A table large enough that few rows are listed by code, and that first rows and sorted walks end early.
TEST(SideBySide, ManyRows) {
    database db;
    make_aux(db);
    db.rows("CREATE TABLE p(a INTEGER, b REAL, c TEXT, d TEXT, e TEXT, f TEXT, g TEXT)");
    db.rows("WITH RECURSIVE n(i) AS (SELECT 0 UNION ALL SELECT i + 1 FROM n WHERE i < 19999) INSERT INTO p SELECT "
            "i * 7919 % 5003 - 20, nullif(i % 400, 9) * 0.25, substr('SFOLAXOAKJFKsfo', i % 5 * 3 + 1, 3), "
            "printf('2001-01-%02d %02d:%02d', i % 28 + 1, i % 24, i % 60), printf('x%d', i % 1000), "
            "CASE i % 3 WHEN 0 THEN 'one' WHEN 1 THEN 'two' END, printf('%05d', i * 31 % 20000) FROM n");
    db.rows("CREATE VIRTUAL TABLE v USING tavo(select='SELECT * FROM p')");
    side_by_side test(99);
    test.set_columns(columns, {"17", "4000", "14000", "19990.5", "50.25", "99.75", "'SFO'", "'x17'", "'x500'",
                               "'00310'", "'one'", "'2001-01-03 04:30'", "'2001-01-02 01:01'"});
    test.compare(db, TAVO_STATEMENTS / 40);
}

} // namespace
