// SQLite's interface as a loadable extension sees it: through the pointers that extension.cpp receives.
#pragma once

#include <cstdlib>
#include <exception>
#include <memory>
#include <new>

#include <sqlite3ext.h>

SQLITE_EXTENSION_INIT3

namespace host::sqlite {

// SQLite's status, where it is to come out of a callback.
struct interrupted : std::exception {
    const char *what() const noexcept override { return "interrupted"; }
};

// Base of what SQLite counts as its own memory: tables and cursors.
struct counted {
    static void *operator new(std::size_t size) {
        void *memory = sqlite3_malloc64(size);
        if (memory == nullptr)
            throw std::bad_alloc();
        return memory;
    }
    static void operator delete(void *memory) { sqlite3_free(memory); }
};

struct finalize {
    void operator()(sqlite3_stmt *s) const { sqlite3_finalize(s); }
};
using statement = std::unique_ptr<sqlite3_stmt, finalize>;
// Null where SQLite does not take the text, of which its messages tell, and for one without a statement. `behind`
// becomes what follows the statement.
inline statement prepared(sqlite3 *db, const char *sql, const char **behind = nullptr) {
    sqlite3_stmt *s = nullptr;
    sqlite3_prepare_v2(db, sql, -1, &s, behind);
    return statement(s);
}

// What reads files is only for statements and temporary views: views and triggers of a database that comes from
// elsewhere are not to do so. For xCreate and xConnect.
inline void keep_from_schema(sqlite3 *db) { sqlite3_vtab_config(db, SQLITE_VTAB_DIRECTONLY); }

// Runs what a callback does: no exception gets into SQLite, messages go where `message` points, if that is not null.
template <class Body>
int guarded(char **message, Body body) noexcept {
    try {
        return body();
    } catch (const std::bad_alloc &) {
        return SQLITE_NOMEM;
    } catch (const std::exception &e) {
        if (message != nullptr) {
            sqlite3_free(*message);
            *message = sqlite3_mprintf("%s", e.what());
        }
        return dynamic_cast<const interrupted *>(&e) != nullptr ? SQLITE_INTERRUPT : SQLITE_ERROR;
    } catch (...) {
        return SQLITE_INTERNAL;
    }
}

// The same for a callback of a table or cursor.
template <class Body>
int guarded(sqlite3_vtab *table, Body body) noexcept {
    return guarded(&table->zErrMsg, body);
}

} // namespace host::sqlite
