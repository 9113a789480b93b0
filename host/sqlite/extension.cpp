// What SQLite calls when it loads the extension.
#include "host/sqlite/api.h"
// INIT3 only declares what this defines.
const sqlite3_api_routines *sqlite3_api = nullptr;

#include <dlfcn.h>

#include "host/error.h"
#include "host/sqlite/tavo_table.h"

namespace host::sqlite {

namespace {

// The kernels import hostraiseierr from the process. SQLite loads extensions so that others see their symbols; a
// program that opened this one otherwise has it done now.
void show_symbols() {
    Dl_info here{};
    if (dladdr(reinterpret_cast<void *>(&show_symbols), &here) != 0)
        if (void *self = dlopen(here.dli_fname, RTLD_NOW | RTLD_NOLOAD | RTLD_GLOBAL); self != nullptr)
            dlclose(self);
}

} // namespace

void add_module(sqlite3 *db, const char *name, const sqlite3_module &module, const shared_connection &home) {
    const int status = sqlite3_create_module_v2(db, name, &module, new shared_connection(home),
                                                [](void *shared) { delete static_cast<shared_connection *>(shared); });
    if (status != SQLITE_OK) // SQLite has called the function above then, too
        throw error(sqlite3_errmsg(db));
}

std::string table_key(std::string_view schema, std::string_view name) {
    std::string key = std::string(schema) + "." + std::string(name);
    for (char &c : key)
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    return key;
}

std::shared_ptr<const relation> find_relation(sqlite3 *db, const connection &home, const std::string &name) {
    const auto known = [&]() -> std::shared_ptr<const relation> {
        if (const auto exact = home.tables.find(table_key("", name).substr(1)); exact != home.tables.end())
            return exact->second->rows; // schema.name
        for (const char *schema : {"temp", "main"})
            if (const auto found = home.tables.find(table_key(schema, name)); found != home.tables.end())
                return found->second->rows;
        const std::string ending = table_key("", name);
        for (const auto &[key, table] : home.tables)
            if (key.ends_with(ending))
                return table->rows;
        return nullptr;
    };
    // A table of an opened database is connected when a statement first names it. Until then the only one of its name
    // that is known may be of another schema.
    const auto found_by = [&](char *sql) {
        const int status = sql == nullptr ? SQLITE_NOMEM : sqlite3_exec(db, sql, nullptr, nullptr, nullptr);
        sqlite3_free(sql);
        if (status == SQLITE_NOMEM)
            throw std::bad_alloc();
        if (status == SQLITE_INTERRUPT)
            throw interrupted();
        return known();
    };
    const std::size_t point = name.find('.');
    if (point != name.npos)
        if (auto rows = known())
            return rows;
    if (auto rows = found_by(sqlite3_mprintf("SELECT 1 FROM \"%w\" LIMIT 0", name.c_str())))
        return rows;
    if (point != name.npos)
        if (auto rows = found_by(sqlite3_mprintf("SELECT 1 FROM \"%w\".\"%w\" LIMIT 0", name.substr(0, point).c_str(),
                                                 name.substr(point + 1).c_str())))
            return rows;
    throw error("there is no table " + name + " made by USING tavo(...)");
}

} // namespace host::sqlite

extern "C" __attribute__((visibility("default"))) int sqlite3_tavosqlite_init(sqlite3 *db, char **message,
                                                                              const sqlite3_api_routines *api) {
    using namespace host::sqlite;
    sqlite3_api = api;
    return guarded(message, [&] {
        if (sqlite3_libversion_number() < 3038000)
            throw host::error("tavo_sqlite needs SQLite 3.38 or newer");
        show_symbols();
        const auto home = std::make_shared<connection>();
        add_table_module(db, home);
        add_explain(db, home);
        add_group(db, home);
        add_nearest(db, home);
        add_info(db);
        // Kernel libraries stay open, with what they import from here, also when the connection is closed.
        return SQLITE_OK_LOAD_PERMANENTLY;
    });
}
