// tavo_explain(): what the last scan of this connection did. tavo_info(): the library.
#include "host/command/library_report.h"
#include "host/sqlite/table_function.h"

namespace host::sqlite {

namespace {

answer_rows last_scan(sqlite3 *, connection &home, const std::vector<sqlite3_value *> &) {
    answer_rows rows;
    const auto scan = home.last_scan;
    if (!scan)
        return rows;
    const auto text = [](const std::string &s) { return s.empty() ? answer_value() : answer_value(s); };
    const auto add = [&](const query_step &step) {
        rows.push_back({static_cast<sqlite3_int64>(rows.size() + 1), scan->table, text(step.kernel), text(step.column),
                        text(step.what), sqlite3_int64{step.rows_in}, sqlite3_int64{step.rows_out},
                        step.seconds * 1e6});
    };
    for (const query_step &step : scan->steps)
        add(step);
    for (const query_step &step : scan->reading.all())
        add(step);
    return rows;
}

void info(sqlite3_context *to, int, sqlite3_value **) {
    char *message = nullptr;
    const int status = guarded(&message, [&] {
        const std::string text = describe(*relation::opened_library(), this_processor());
        sqlite3_result_text64(to, text.data(), text.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
        return SQLITE_OK;
    });
    if (status == SQLITE_NOMEM)
        sqlite3_result_error_nomem(to);
    else if (status != SQLITE_OK)
        sqlite3_result_error(to, message != nullptr ? message : "no library", -1);
    sqlite3_free(message);
}

} // namespace

void add_explain(sqlite3 *db, const shared_connection &home) {
    add_table_function(db, home,
                       {"tavo_explain",
                        "CREATE TABLE x(step INTEGER, table_name TEXT, kernel TEXT, column_name TEXT, what TEXT, "
                        "rows_in INTEGER, rows_out INTEGER, microseconds REAL)",
                        8, 0, 0, false, last_scan});
}

void add_info(sqlite3 *db) {
    sqlite3_create_function_v2(db, "tavo_info", 0, SQLITE_UTF8, nullptr, info, nullptr, nullptr, nullptr);
}

} // namespace host::sqlite
