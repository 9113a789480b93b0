#include "host/sqlite/table_function.h"

#include <array>
#include <fmt/format.h>

#include "host/error.h"

namespace host::sqlite {

namespace {

struct registered {
    table_function function;
    shared_connection home;
};

struct function_vtab : sqlite3_vtab, counted {
    sqlite3 *db;
    const registered *of;
};

struct function_cursor : sqlite3_vtab_cursor, counted {
    answer_rows rows;
    std::size_t at = 0;
    // The arguments, which are columns too.
    std::vector<std::unique_ptr<sqlite3_value, void (*)(sqlite3_value *)>> arguments;
};

int connect(sqlite3 *db, void *client_data, int, const char *const *, sqlite3_vtab **made, char **message) {
    return guarded(message, [&] {
        const auto *of = static_cast<registered *>(client_data);
        if (const int status = sqlite3_declare_vtab(db, of->function.declaration); status != SQLITE_OK)
            throw error(sqlite3_errmsg(db));
        if (of->function.reads)
            keep_from_schema(db);
        auto *t = new function_vtab();
        t->db = db;
        t->of = of;
        *made = t;
        return SQLITE_OK;
    });
}

int disconnect(sqlite3_vtab *table) {
    delete static_cast<function_vtab *>(table);
    return SQLITE_OK;
}

// The arguments that there are become a bit each, and come in their order.
int best_index(sqlite3_vtab *table, sqlite3_index_info *info) {
    const table_function &f = static_cast<function_vtab *>(table)->of->function;
    std::array<int, table_function::most_arguments> constraint_of;
    constraint_of.fill(-1);
    for (int i = 0; i < info->nConstraint; i++) {
        const auto &c = info->aConstraint[i];
        const int argument = c.iColumn - f.results;
        if (argument < 0 || c.op != SQLITE_INDEX_CONSTRAINT_EQ)
            continue;
        if (c.usable == 0)
            return SQLITE_CONSTRAINT; // comes from a table that must be read before
        constraint_of[static_cast<std::size_t>(argument)] = i;
    }
    int arguments = 0;
    for (std::size_t a = 0; a < constraint_of.size(); a++)
        if (constraint_of[a] >= 0) {
            info->idxNum |= 1 << a;
            info->aConstraintUsage[constraint_of[a]].argvIndex = ++arguments;
            info->aConstraintUsage[constraint_of[a]].omit = 1;
        }
    info->estimatedCost = 1000;
    info->estimatedRows = 100;
    return SQLITE_OK;
}

int open(sqlite3_vtab *table, sqlite3_vtab_cursor **made) {
    return guarded(table, [&] {
        *made = new function_cursor();
        return SQLITE_OK;
    });
}

int close(sqlite3_vtab_cursor *cursor) {
    delete static_cast<function_cursor *>(cursor);
    return SQLITE_OK;
}

int filter(sqlite3_vtab_cursor *cursor, int given, const char *, int, sqlite3_value **values) {
    return guarded(cursor->pVtab, [&] {
        auto &t = *static_cast<function_vtab *>(cursor->pVtab);
        auto &c = *static_cast<function_cursor *>(cursor);
        const table_function &f = t.of->function;
        c.rows.clear();
        c.arguments.clear();
        c.at = 0;
        std::vector<sqlite3_value *> arguments;
        for (int a = 0; a < f.arguments; a++) {
            const bool there = (given >> a & 1) != 0;
            if (a < f.needed && !there)
                throw error(fmt::format("{} needs {} argument{}", f.name, f.needed, f.needed == 1 ? "" : "s"));
            arguments.push_back(there ? *values++ : nullptr);
            c.arguments.emplace_back(there ? sqlite3_value_dup(arguments.back()) : nullptr, sqlite3_value_free);
        }
        c.rows = f.call(t.db, *t.of->home, arguments);
        return SQLITE_OK;
    });
}

int next(sqlite3_vtab_cursor *cursor) {
    static_cast<function_cursor *>(cursor)->at++;
    return SQLITE_OK;
}

int at_end(sqlite3_vtab_cursor *cursor) {
    const auto &c = *static_cast<function_cursor *>(cursor);
    return c.at >= c.rows.size();
}

int column(sqlite3_vtab_cursor *cursor, sqlite3_context *to, int number) {
    const auto &c = *static_cast<function_cursor *>(cursor);
    const int results = static_cast<function_vtab *>(cursor->pVtab)->of->function.results;
    if (number >= results) {
        if (const auto &argument = c.arguments[static_cast<std::size_t>(number - results)])
            sqlite3_result_value(to, argument.get());
        return SQLITE_OK;
    }
    const auto &row = c.rows[c.at];
    if (static_cast<std::size_t>(number) >= row.size())
        return SQLITE_OK; // null
    const answer_value &value = row[static_cast<std::size_t>(number)];
    if (const auto *integer = std::get_if<sqlite3_int64>(&value))
        sqlite3_result_int64(to, *integer);
    else if (const auto *real = std::get_if<double>(&value))
        sqlite3_result_double(to, *real);
    else if (const auto *text = std::get_if<std::string>(&value))
        sqlite3_result_text64(to, text->data(), text->size(), SQLITE_TRANSIENT, SQLITE_UTF8);
    else if (const auto *blob = std::get_if<std::vector<char>>(&value)) // not null when empty
        sqlite3_result_blob64(to, blob->empty() ? "" : blob->data(), blob->size(), SQLITE_TRANSIENT);
    return SQLITE_OK;
}

int rowid(sqlite3_vtab_cursor *cursor, sqlite3_int64 *id) {
    *id = static_cast<sqlite3_int64>(static_cast<function_cursor *>(cursor)->at) + 1;
    return SQLITE_OK;
}

} // namespace

void add_table_function(sqlite3 *db, const shared_connection &home, table_function function) {
    // Without xCreate: a table that is there by its name, and takes arguments.
    static const sqlite3_module module = [] {
        sqlite3_module m{};
        m.xConnect = connect;
        m.xBestIndex = best_index;
        m.xDisconnect = disconnect;
        m.xOpen = open;
        m.xClose = close;
        m.xFilter = filter;
        m.xNext = next;
        m.xEof = at_end;
        m.xColumn = column;
        m.xRowid = rowid;
        return m;
    }();
    const char *name = function.name;
    const int status = sqlite3_create_module_v2(db, name, &module, new registered{std::move(function), home},
                                                [](void *r) { delete static_cast<registered *>(r); });
    if (status != SQLITE_OK) // SQLite has called the function above then, too
        throw error(sqlite3_errmsg(db));
}

std::string text_of(sqlite3_value *value) {
    if (value == nullptr || sqlite3_value_type(value) == SQLITE_NULL)
        return {};
    const auto *text = reinterpret_cast<const char *>(sqlite3_value_text(value));
    if (text == nullptr)
        throw std::bad_alloc();
    return {text, static_cast<std::size_t>(sqlite3_value_bytes(value))};
}

} // namespace host::sqlite
