// A connection with the extension loaded, and answers as comparable texts.
#pragma once

#include <algorithm>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <unistd.h>

class database {
public:
    explicit database(const std::string &path = ":memory:") {
        EXPECT_EQ(sqlite3_open(path.c_str(), &db_), SQLITE_OK);
        sqlite3_enable_load_extension(db_, 1);
        char *message = nullptr;
        EXPECT_EQ(sqlite3_load_extension(db_, TAVO_SQLITE_EXTENSION, nullptr, &message), SQLITE_OK)
            << (message != nullptr ? message : "");
        sqlite3_free(message);
    }
    ~database() { EXPECT_EQ(sqlite3_close(db_), SQLITE_OK) << "something was not finalized"; }
    database(const database &) = delete;
    database &operator=(const database &) = delete;

    sqlite3 *get() const { return db_; }

    struct answer {
        int status = SQLITE_OK;
        std::string message;
        std::vector<std::string> rows; // types and values; doubles with all their digits

        answer sorted() const {
            answer a = *this;
            std::sort(a.rows.begin(), a.rows.end());
            return a;
        }
    };

    // `values` are bound to ?1, ?2, ... as SQL expressions' values are.
    answer run(const std::string &sql, const std::vector<sqlite3_value *> &values = {}) const {
        answer a;
        sqlite3_stmt *s = nullptr;
        a.status = sqlite3_prepare_v2(db_, sql.c_str(), -1, &s, nullptr);
        for (std::size_t i = 0; a.status == SQLITE_OK && i < values.size(); i++)
            sqlite3_bind_value(s, static_cast<int>(i) + 1, values[i]);
        if (a.status == SQLITE_OK) {
            while ((a.status = sqlite3_step(s)) == SQLITE_ROW)
                a.rows.push_back(row_of(s));
            a.status = a.status == SQLITE_DONE ? SQLITE_OK : a.status;
        }
        if (a.status != SQLITE_OK)
            a.message = sqlite3_errmsg(db_);
        sqlite3_finalize(s);
        return a;
    }
    std::vector<std::string> rows(const std::string &sql) const {
        const answer a = run(sql);
        EXPECT_EQ(a.status, SQLITE_OK) << sql << "\n" << a.message;
        return a.rows;
    }

private:
    static std::string row_of(sqlite3_stmt *s) {
        std::string row;
        for (int i = 0; i < sqlite3_column_count(s); i++) {
            const int type = sqlite3_column_type(s, i);
            row += i == 0 ? "" : "|";
            if (type == SQLITE_FLOAT) {
                char digits[40];
                std::snprintf(digits, sizeof digits, "r%.17g", sqlite3_column_double(s, i));
                row += digits;
            } else if (type != SQLITE_NULL) {
                const auto *bytes = type == SQLITE_BLOB ? static_cast<const char *>(sqlite3_column_blob(s, i))
                                                        : reinterpret_cast<const char *>(sqlite3_column_text(s, i));
                row += type == SQLITE_INTEGER ? "i" : type == SQLITE_TEXT ? "t" : "b";
                row.append(bytes == nullptr ? "" : bytes, static_cast<std::size_t>(sqlite3_column_bytes(s, i)));
            }
        }
        return row;
    }

    sqlite3 *db_ = nullptr;
};

// A file that goes with the test.
class temporary_file {
public:
    explicit temporary_file(const std::string &content, const std::string &name = "t.csv")
        : path_(testing::TempDir() + "tavo_sqlite_" + std::to_string(getpid()) + "_" + name) {
        std::ofstream(path_, std::ios::binary) << content;
    }
    ~temporary_file() { std::remove(path_.c_str()); }
    temporary_file(const temporary_file &) = delete;
    temporary_file &operator=(const temporary_file &) = delete;
    const std::string &path() const { return path_; }

private:
    std::string path_;
};
