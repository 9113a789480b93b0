// The virtual table and its cursor, as SQLite calls them.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/join/code_reader.h"
#include "host/sqlite/connection.h"
#include "host/sqlite/row_search.h"
#include "host/sqlite/scan_plan.h"

namespace host::sqlite {

struct tavo_table : sqlite3_vtab, counted {
    std::shared_ptr<const relation> rows;
    sqlite3 *db;
    shared_connection home;
    std::string schema, name;
    bool utf8 = true; // SQLite compares texts by the bytes that the table has

    static int best_index(sqlite3_vtab *, sqlite3_index_info *);
};

// Rows come in batches of unpacked codes, or one by one by their numbers.
class tavo_cursor : public sqlite3_vtab_cursor, public counted {
public:
    static constexpr ub4 least_rows = 64, batch_rows = 2048; // of a batch

    explicit tavo_cursor(const tavo_table &t) : table_(t), rows_(*t.rows) {}

    void filter(const scan_plan &, sqlite3_value **values);
    bool at_end() const { return at_ == end_; }
    void next() {
        at_++;
        if (at_ == end_ && (reader_ || found_.cut))
            next_batch();
    }
    sqlite3_int64 rowid() const { return sqlite3_int64{numbers_[at_]} + 1; }
    void column(sqlite3_context *to, std::size_t number) const {
        const value_column &col = *rows_.columns()[number];
        if (reader_ && codes_[number] != nullptr)
            return col.result(to, codes_[number][at_]);
        if (rows_.all_plain())
            return col.result(to, col.code_of_row(numbers_[at_]));
        sqlite3_result_error(to, "a column was not said to be used", -1);
    }

private:
    void search(ub8 limit);
    bool may_join_outer();
    void next_batch();
    void clear();

    const tavo_table &table_;
    const relation &rows_;
    std::optional<session> own_session_;
    std::shared_ptr<connection::scan_record> record_;
    std::vector<column_filter> filters_;
    std::vector<order_key> order_;
    row_range numbered_;
    std::optional<bool> joins_outer_; // whether a statement that runs may have an outer join
    sqlite3_uint64 used_ = 0;         // columns, as the plan has them
    rows_found found_;
    std::vector<const ub4 *> codes_; // of the batch, by column; null where they are not read
    std::vector<std::size_t> read_;  // columns, in the reader's order
    std::unique_ptr<code_reader> reader_;
    const ub4 *numbers_ = nullptr;
    std::size_t at_ = 0, end_ = 0;
};

} // namespace host::sqlite
