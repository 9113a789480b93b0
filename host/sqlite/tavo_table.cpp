// The module tavo: CREATE VIRTUAL TABLE ... USING tavo(...), scans and their rows.
#include "host/sqlite/tavo_table.h"

#include <fmt/format.h>

#include "host/error.h"
#include "host/sqlite/outer_joins.h"

namespace host::sqlite {

namespace {

struct column_conditions {
    const value_column *col;
    codes_found found;
    std::string text;
};

// The codes of a condition's value, or of all values of its list.
codes_found codes_of_argument(const value_column &col, const scan_plan::condition &c, sqlite3_value *value,
                              std::string &text) {
    if (c.what != test::in_list) {
        text = fmt::format("{} {}", col.name(), words_of(c.what));
        if (c.what != test::null && c.what != test::known)
            text += " " + words_of(cell_of(value));
        return codes_of(col, c.what, value, c.constant);
    }
    codes_found all;
    sqlite3_value *each = nullptr;
    std::size_t count = 0;
    int status = sqlite3_vtab_in_first(value, &each);
    for (; status == SQLITE_OK && each != nullptr; status = sqlite3_vtab_in_next(value, &each)) {
        const codes_found found = codes_of(col, test::equal, each, false);
        all.ranges.insert(all.ranges.end(), found.ranges.begin(), found.ranges.end());
        all.exact = all.exact && found.exact;
        count++;
    }
    if (status == SQLITE_NOMEM)
        throw std::bad_alloc();
    if (status != SQLITE_DONE && status != SQLITE_OK)
        throw error(sqlite3_errstr(status));
    text = fmt::format("{} in a list of {}", col.name(), count);
    all.ranges = joined(std::move(all.ranges));
    return all;
}

ub8 limit_of(const scan_plan &plan, sqlite3_value **values) {
    if (!plan.has_limit || sqlite3_value_type(values[0]) != SQLITE_INTEGER)
        return row_search::no_limit;
    const sqlite3_int64 limit = sqlite3_value_int64(values[0]);
    if (limit < 0 || (plan.has_offset && sqlite3_value_type(values[1]) != SQLITE_INTEGER))
        return row_search::no_limit;
    // SQLite itself leaves out the first ones.
    const sqlite3_int64 offset = plan.has_offset ? std::max<sqlite3_int64>(sqlite3_value_int64(values[1]), 0) : 0;
    return static_cast<ub8>(limit) + static_cast<ub8>(offset);
}

} // namespace

void tavo_cursor::clear() {
    reader_.reset();
    found_ = {};
    codes_.clear();
    read_.clear();
    at_ = end_ = 0;
}

void tavo_cursor::filter(const scan_plan &plan, sqlite3_value **values) {
    clear();
    filters_.clear();
    order_.clear();
    numbered_ = {0, rows_.rows()};
    used_ = plan.used;
    const auto lock = rows_.reading();
    record_ = std::make_shared<connection::scan_record>();
    record_->table = table_.name;
    table_.home->last_scan = record_;

    bool exact = true;
    for (const scan_plan::condition &c : plan.conditions) {
        sqlite3_value *value = *values++;
        if (c.column == scan_plan::rowid) {
            numbered_ = numbered_.common(rows_of(c.what, value, rows_.rows()));
            continue;
        }
        if (may_be_of_outer_join(c.what) && may_join_outer()) {
            exact = false;
            continue;
        }
        const value_column &col = *rows_.columns()[static_cast<std::size_t>(c.column)];
        std::string text;
        codes_found found = codes_of_argument(col, c, value, text);
        exact = exact && found.exact;
        const auto same = std::find_if(filters_.begin(), filters_.end(), [&](const auto &f) { return f.col == &col; });
        if (same == filters_.end()) {
            filters_.push_back({&col, std::move(found.ranges), std::move(text)});
        } else {
            same->ranges = common(same->ranges, found.ranges);
            same->text += " and " + text;
        }
    }
    for (const scan_plan::key &k : plan.order)
        order_.push_back(
            {k.column < 0 ? nullptr : rows_.columns()[static_cast<std::size_t>(k.column)].get(), k.descending});
    if (!own_session_ && rows_.shared_session() == nullptr)
        own_session_.emplace(rows_.kernels());
    search(exact ? limit_of(plan, values) : row_search::no_limit);
}

// Once a cursor, which is opened by one run of one statement.
bool tavo_cursor::may_join_outer() {
    if (!joins_outer_)
        joins_outer_ = may_have_outer_join(table_.db);
    return *joins_outer_;
}

// From the first row on. A limit is a hint: SQLite may have conditions of which it says nothing.
void tavo_cursor::search(ub8 limit) {
    session &s = own_session_ ? *own_session_ : *rows_.shared_session();
    found_ = row_search(rows_, s, record_->steps).run(filters_, numbered_, order_, limit);
    if (found_.listed) {
        numbers_ = found_.rows.data();
        end_ = found_.rows.size();
        return;
    }
    std::vector<host::column *> columns;
    codes_.resize(rows_.columns().size());
    for (std::size_t i = 0; i < rows_.columns().size(); i++)
        if ((used_ >> std::min<std::size_t>(i, 63) & 1) != 0) {
            read_.push_back(i);
            columns.push_back(&rows_.columns()[i]->stored());
        }
    reader_ = std::make_unique<code_reader>(s, std::move(columns), rows_.rows(), found_.selected,
                                            static_cast<ub4>(std::clamp<ub8>(limit, least_rows, batch_rows)),
                                            record_->reading);
    end_ = reader_->next();
    numbers_ = reader_->row_numbers().data();
    for (std::size_t i = 0; i < read_.size(); i++)
        codes_[read_[i]] = reader_->codes(i);
}

void tavo_cursor::next_batch() {
    const auto lock = rows_.reading();
    if (!reader_) { // more rows than the limit said
        std::size_t behind = at_;
        search(row_search::no_limit);
        while (reader_ && behind >= end_ && end_ > 0) {
            behind -= end_;
            end_ = reader_->next();
        }
        at_ = std::min(behind, end_);
        return;
    }
    at_ = 0;
    end_ = reader_->next();
}

namespace {

int connect(sqlite3 *db, void *client_data, int count, const char *const *arguments, sqlite3_vtab **made,
            char **message) {
    return guarded(message, [&] {
        const relation_source source = source_of(count, arguments);
        std::unique_ptr<tavo_table> t(new tavo_table());
        t->db = db;
        t->home = *static_cast<shared_connection *>(client_data);
        t->rows = source.file.empty() ? relation::of_select(db, source) : relation::of_file(db, source);
        t->schema = arguments[1];
        t->name = arguments[2];
        if (const statement encoding = prepared(db, "PRAGMA encoding");
            encoding && sqlite3_step(encoding.get()) == SQLITE_ROW)
            t->utf8 =
                std::string_view(reinterpret_cast<const char *>(sqlite3_column_text(encoding.get(), 0))) == "UTF-8";
        keep_from_schema(db);
        const int status = sqlite3_declare_vtab(db, t->rows->declaration().c_str());
        if (status != SQLITE_OK)
            throw error(sqlite3_errmsg(db));
        t->home->tables[table_key(t->schema, t->name)] = t.get();
        *made = t.release();
        return SQLITE_OK;
    });
}

// Not the same function as connect(), or there would be a table tavo without arguments.
int create(sqlite3 *db, void *client_data, int count, const char *const *arguments, sqlite3_vtab **made,
           char **message) {
    return connect(db, client_data, count, arguments, made, message);
}

int disconnect(sqlite3_vtab *table) {
    auto *t = static_cast<tavo_table *>(table);
    // Statements that wait for their next run may have held it, while another one of the same name was made.
    std::erase_if(t->home->tables, [&](const auto &entry) { return entry.second == t; });
    delete t;
    return SQLITE_OK;
}

int open(sqlite3_vtab *table, sqlite3_vtab_cursor **made) {
    return guarded(table, [&] {
        *made = new tavo_cursor(*static_cast<tavo_table *>(table));
        return SQLITE_OK;
    });
}

int close(sqlite3_vtab_cursor *cursor) {
    delete static_cast<tavo_cursor *>(cursor);
    return SQLITE_OK;
}

int filter(sqlite3_vtab_cursor *cursor, int, const char *plan, int, sqlite3_value **values) {
    return guarded(cursor->pVtab, [&] {
        static_cast<tavo_cursor *>(cursor)->filter(scan_plan::of(plan), values);
        return SQLITE_OK;
    });
}

int next(sqlite3_vtab_cursor *cursor) {
    return guarded(cursor->pVtab, [&] {
        static_cast<tavo_cursor *>(cursor)->next();
        return SQLITE_OK;
    });
}

int at_end(sqlite3_vtab_cursor *cursor) { return static_cast<tavo_cursor *>(cursor)->at_end(); }

int column(sqlite3_vtab_cursor *cursor, sqlite3_context *to, int number) {
    static_cast<tavo_cursor *>(cursor)->column(to, static_cast<std::size_t>(number));
    return SQLITE_OK;
}

int rowid(sqlite3_vtab_cursor *cursor, sqlite3_int64 *id) {
    *id = static_cast<tavo_cursor *>(cursor)->rowid();
    return SQLITE_OK;
}

int rename(sqlite3_vtab *table, const char *name) {
    return guarded(table, [&] {
        auto *t = static_cast<tavo_table *>(table);
        const std::string key = table_key(t->schema, name);
        std::string kept = name;
        t->home->tables[key] = t;
        std::erase_if(t->home->tables, [&](const auto &entry) { return entry.second == t && entry.first != key; });
        t->name = std::move(kept);
        return SQLITE_OK;
    });
}

} // namespace

void add_table_module(sqlite3 *db, const shared_connection &home) {
    static const sqlite3_module module = [] {
        sqlite3_module m{};
        m.xCreate = create;
        m.xConnect = connect;
        m.xBestIndex = tavo_table::best_index;
        m.xDisconnect = disconnect;
        m.xDestroy = disconnect;
        m.xOpen = open;
        m.xClose = close;
        m.xFilter = filter;
        m.xNext = next;
        m.xEof = at_end;
        m.xColumn = column;
        m.xRowid = rowid;
        m.xRename = rename;
        return m;
    }();
    add_module(db, "tavo", module, home);
}

} // namespace host::sqlite
