// What the extension knows of one connection: its tables by name, and what its last scan did.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "host/join/step_list.h"
#include "host/sqlite/relation.h"

namespace host::sqlite {

struct tavo_table;

struct connection {
    // A scan's steps as tavo_explain() shows them: filtering, and then what reading its rows has come to so far.
    struct scan_record {
        std::string table;
        std::vector<query_step> steps;
        step_list reading;
    };

    std::map<std::string, const tavo_table *> tables; // by schema, a point and the name, in small letters
    std::shared_ptr<const scan_record> last_scan;
};

// The rows of a virtual table of this module. Throws if there is none of that name.
std::shared_ptr<const relation> find_relation(sqlite3 *, const connection &, const std::string &name);

// The key in connection::tables.
std::string table_key(std::string_view schema, std::string_view name);

// Modules and functions, each told in its file; throw if SQLite refuses them. `connection` is theirs to share.
using shared_connection = std::shared_ptr<connection>;
void add_table_module(sqlite3 *, const shared_connection &);
void add_explain(sqlite3 *, const shared_connection &);
void add_group(sqlite3 *, const shared_connection &);
void add_nearest(sqlite3 *, const shared_connection &);
void add_info(sqlite3 *);

// Registers a module that gets its share of the connection as client data.
void add_module(sqlite3 *, const char *name, const sqlite3_module &, const shared_connection &);
inline connection &connection_of(void *client_data) { return **static_cast<shared_connection *>(client_data); }

} // namespace host::sqlite
