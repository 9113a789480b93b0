#include "host/sqlite/outer_joins.h"

#include <algorithm>
#include <iterator>
#include <string_view>

namespace host::sqlite {

namespace {

bool is_of_word(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '$' ||
           (c & 0x80) != 0;
}

// A text that is not there may have any word.
bool names_outer_join(const char *sql) {
    if (sql == nullptr)
        return true;
    for (const char *at = sql; *at != '\0';) {
        const char *end = std::find_if_not(at, at + std::char_traits<char>::length(at), is_of_word);
        for (const std::string_view word : {"left", "right", "full", "outer"})
            if (static_cast<std::size_t>(end - at) == word.size() &&
                sqlite3_strnicmp(at, word.data(), static_cast<int>(word.size())) == 0)
                return true;
        at = end == at ? at + 1 : end;
    }
    return false;
}

bool views_name_outer_join(sqlite3 *db) {
    const statement databases = prepared(db, "SELECT name FROM pragma_database_list");
    int status = SQLITE_ERROR;
    while (databases && (status = sqlite3_step(databases.get())) == SQLITE_ROW) {
        char *sql = sqlite3_mprintf("SELECT sql FROM \"%w\".sqlite_master WHERE type IN ('view', 'trigger')",
                                    sqlite3_column_text(databases.get(), 0));
        const statement views = sql == nullptr ? nullptr : prepared(db, sql);
        sqlite3_free(sql);
        int of_views = SQLITE_ERROR;
        while (views && (of_views = sqlite3_step(views.get())) == SQLITE_ROW)
            if (names_outer_join(reinterpret_cast<const char *>(sqlite3_column_text(views.get(), 0))))
                return true;
        if (of_views != SQLITE_DONE)
            return true;
    }
    return status != SQLITE_DONE;
}

} // namespace

bool may_have_outer_join(sqlite3 *db) {
    bool any = false; // the caller is part of one
    for (sqlite3_stmt *s = sqlite3_next_stmt(db, nullptr); s != nullptr; s = sqlite3_next_stmt(db, s))
        if (sqlite3_stmt_busy(s) != 0) {
            any = true;
            if (names_outer_join(sqlite3_sql(s)))
                return true;
        }
    return !any || views_name_outer_join(db);
}

} // namespace host::sqlite
