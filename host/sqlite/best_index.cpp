// Which conditions, orders and limits of a statement a table takes on, and what that costs.
#include <cmath>

#include "host/sqlite/tavo_table.h"

namespace host::sqlite {

namespace {

// Of all rows, where the value is not known before the statement runs.
double usual_share(const value_column &col, test what) {
    const double different = std::max<double>(1, static_cast<double>(col.different_values()));
    switch (what) {
    case test::equal:
    case test::is: return 1 / different;
    case test::in_list: return std::min(1.0, 10 / different);
    case test::like: return 1.0 / 16;
    case test::known: return 1;
    case test::null: return col.first_code() == 0 ? 0 : col.starts()[1] / std::max<double>(1, col.stored().rows());
    default: return 1.0 / 4;
    }
}

class chooser {
public:
    chooser(const tavo_table &t, sqlite3_index_info &info) : table_(t), rows_(*t.rows), info_(info) {}

    void choose() {
        plan_.used = info_.colUsed;
        int limit = -1, offset = -1;
        bool all_taken = true;
        for (int i = 0; i < info_.nConstraint; i++) {
            const auto &c = info_.aConstraint[i];
            if (c.op == SQLITE_INDEX_CONSTRAINT_LIMIT)
                limit = c.usable != 0 ? i : limit;
            else if (c.op == SQLITE_INDEX_CONSTRAINT_OFFSET)
                offset = c.usable != 0 ? i : offset;
            else
                all_taken = (c.usable != 0 && take(i)) && all_taken;
        }
        const bool ordered = take_order();
        if (limit >= 0 && all_taken && ordered && sqlite3_vtab_distinct(&info_) == 0) {
            plan_.has_limit = true;
            info_.aConstraintUsage[limit].argvIndex = ++arguments_;
            if (offset >= 0) {
                plan_.has_offset = true;
                info_.aConstraintUsage[offset].argvIndex = ++arguments_;
            }
        }
        estimate();
        info_.idxStr = sqlite3_mprintf("%s", plan_.text().c_str());
        info_.needToFreeIdxStr = 1;
        if (info_.idxStr == nullptr)
            throw std::bad_alloc();
    }

private:
    // SQLite's comparison of texts is by their bytes in UTF-8, and not by another collation.
    bool compares_bytes(const value_column &col, int constraint) const {
        return col.all_numbers() ||
               (table_.utf8 && sqlite3_stricmp(sqlite3_vtab_collation(&info_, constraint), "BINARY") == 0);
    }

    bool take(int i) {
        const auto &c = info_.aConstraint[i];
        std::optional<test> what = test_of(c.op);
        if (!what)
            return false;
        if (c.iColumn < 0)
            return take_row_numbers(i, *what);
        const value_column &col = *rows_.columns()[static_cast<std::size_t>(c.iColumn)];
        const bool of_nulls = *what == test::null || *what == test::known;
        if (!of_nulls && (!col.ordered() || !(*what == test::like ? table_.utf8 : compares_bytes(col, i))))
            return false;
        if (*what == test::like && !col.all_texts())
            return false;
        if (*what == test::equal && sqlite3_vtab_in(&info_, i, 1) != 0)
            what = test::in_list;
        sqlite3_value *value = nullptr;
        const bool known = *what != test::in_list && !of_nulls &&
                           sqlite3_vtab_rhs_value(&info_, i, &value) == SQLITE_OK && value != nullptr;
        add(i, c.iColumn, *what, known);
        if (!known && !of_nulls) {
            share_ *= usual_share(col, *what);
            return true;
        }
        code_ranges ranges = codes_of(col, *what, value, known).ranges;
        for (auto &[column, found] : found_)
            if (column == &col) {
                found = common(found, ranges);
                return true;
            }
        found_.emplace_back(&col, std::move(ranges));
        return true;
    }

    // Of a list SQLite asks for each value by itself.
    bool take_row_numbers(int i, test what) {
        if (what == test::null || what == test::known || what == test::like)
            return false;
        sqlite3_value *value = nullptr;
        if (what == test::equal || what == test::is)
            by_rowid_ = true;
        else if (sqlite3_vtab_rhs_value(&info_, i, &value) == SQLITE_OK && value != nullptr)
            row_numbers_ = row_numbers_.common(rows_of(what, value, rows_.rows()));
        else
            share_ *= 1.0 / 4;
        add(i, scan_plan::rowid, what, false);
        return true;
    }

    void add(int constraint, int column, test what, bool constant) {
        plan_.conditions.push_back({column, what, constant});
        info_.aConstraintUsage[constraint].argvIndex = ++arguments_;
        info_.aConstraintUsage[constraint].omit = 0; // SQLite looks again
    }

    // Whether the rows come in the order wanted, if there is one.
    bool take_order() {
        if (info_.nOrderBy == 0)
            return true;
        if (!rows_.all_plain())
            return false;
        for (int i = 0; i < info_.nOrderBy; i++) {
            const int column = info_.aOrderBy[i].iColumn;
            if (column >= 0) {
                const value_column &col = *rows_.columns()[static_cast<std::size_t>(column)];
                if (!col.ordered() || (!table_.utf8 && !col.all_numbers()))
                    return false;
            }
        }
        for (int i = 0; i < info_.nOrderBy; i++)
            plan_.order.push_back({std::max(info_.aOrderBy[i].iColumn, scan_plan::rowid), info_.aOrderBy[i].desc != 0});
        info_.orderByConsumed = 1;
        return true;
    }

    void estimate() {
        const double all = std::max<double>(1, rows_.rows());
        double least = by_rowid_ ? 1 : all; // of one column's conditions
        for (const auto &[col, ranges] : found_) {
            const double rows = static_cast<double>(col->rows_of(ranges));
            share_ *= rows / all;
            least = std::min(least, rows);
        }
        const double numbers = row_numbers_.common({0, rows_.rows()}).size();
        share_ *= numbers / all;
        least = std::min(least, numbers);
        least = std::min(least, all * share_ * 4);
        const double rows = by_rowid_ ? 1 : std::max(1.0, all * share_);
        // Few rows are listed; a scan reads some hundred rows in the time in which SQLite takes one.
        const double search = by_rowid_ ? 1 : rows_.all_plain() && least * 256 < all ? 10 + least / 4 : 20 + all / 500;
        info_.estimatedRows = static_cast<sqlite3_int64>(rows);
        info_.estimatedCost = search + rows;
        if (by_rowid_)
            info_.idxFlags = SQLITE_INDEX_SCAN_UNIQUE;
    }

    const tavo_table &table_;
    const relation &rows_;
    sqlite3_index_info &info_;
    scan_plan plan_;
    int arguments_ = 0;
    bool by_rowid_ = false;
    row_range row_numbers_;
    double share_ = 1;
    std::vector<std::pair<const value_column *, code_ranges>> found_;
};

} // namespace

int tavo_table::best_index(sqlite3_vtab *table, sqlite3_index_info *info) {
    return guarded(table, [&] {
        chooser(*static_cast<tavo_table *>(table), *info).choose();
        return SQLITE_OK;
    });
}

} // namespace host::sqlite
