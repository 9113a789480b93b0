// The rows that a virtual table shows: columns encoded for the kernels, with the values that SQLite sees. It does not
// change once it is made, and several connections and threads read it at once.
#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "host/column/table.h"
#include "host/link/callbacks.h"
#include "host/sqlite/value_column.h"

namespace host::sqlite {

// What stands in USING tavo(...).
struct relation_source {
    std::string file, select;
    read_options options;
    std::vector<std::string> encode; // FORM, or COLUMN=FORM
    std::vector<std::string> types;  // COLUMN=TYPE
    csv_options csv;
    std::string as_written; // all of it, by which equal sources are found
};
// Of a module's arguments: name='value', quotes doubled within. Throws, naming what there is, for others.
relation_source source_of(int count, const char *const *arguments);

class relation {
public:
    // Opened once for all tables; checked and started. Which library is not SQL's to say: opening one runs its code.
    static std::shared_ptr<library> opened_library();
    // From a file: the same rows if another table has them already, and the file is as it was. Loads otherwise. Throws.
    static std::shared_ptr<relation> of_file(sqlite3 *, const relation_source &);
    // The answer of a statement, as it is now.
    static std::shared_ptr<relation> of_select(sqlite3 *, const relation_source &);

    const library &kernels() const { return *library_; }
    ub4 rows() const { return rows_; }
    const std::vector<std::unique_ptr<value_column>> &columns() const { return columns_; }
    const table &stored() const { return *table_; } // for the host's groups
    // CREATE TABLE, as sqlite3_declare_vtab takes it.
    const std::string &declaration() const { return declaration_; }
    // All columns hold one packed code a row. Others keep what they were decompressed to, or widen runs, in memory of
    // their own: of these, one statement reads at a time, holding this.
    bool all_plain() const { return all_plain_; }
    std::unique_lock<std::mutex> reading() const {
        return all_plain_ ? std::unique_lock<std::mutex>() : std::unique_lock(in_use_);
    }
    session *shared_session() const { return all_plain_ ? nullptr : session_.get(); }
    ub8 bytes() const; // of codes and dictionaries

private:
    relation() = default;
    void adopt(std::size_t number, column &, value_column::affinity, const std::vector<cell> &values);
    void declare(const std::vector<std::string> &names, const std::vector<std::string> &types);
    void load_file(sqlite3 *, const relation_source &);

    std::shared_ptr<library> library_;
    std::unique_ptr<csv_file> file_;
    std::unique_ptr<table> table_;
    std::unique_ptr<session> session_;
    std::vector<std::unique_ptr<value_column>> columns_;
    std::string declaration_;
    ub4 rows_ = 0;
    bool all_plain_ = true;
    mutable std::mutex in_use_;
};

} // namespace host::sqlite
