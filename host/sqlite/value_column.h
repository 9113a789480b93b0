// A column of the host as SQLite reads it: what value each code stands for, in which ranges of codes a comparison's
// rows lie, how many rows these have, and which.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "host/column/block.h"
#include "host/column/column.h"
#include "host/sqlite/cell.h"

namespace host::sqlite {

// Codes from one up to another, without that: ascending, apart from each other. The null code may be among them.
using code_ranges = std::vector<std::pair<ub8, ub8>>;

class value_column {
public:
    enum class content { integers, reals, texts, mixed };
    // How SQLite converts what is compared with the column.
    enum class affinity { numeric, text, none };

    // `values` has a cell for each code, the null code's included, whose bytes are copied. `codes` has one for each
    // row.
    value_column(column &col, affinity, const std::vector<cell> &values, const ub4 *codes);

    column &stored() const { return col_; }
    const std::string &name() const { return col_.name(); }
    content holds() const { return holds_; }
    bool all_numbers() const { return all_numbers_; }
    bool all_texts() const { return holds_ == content::texts; }
    affinity converts() const { return affinity_; }
    // Codes order as the values do in SQLite, texts by BINARY. If not, only nulls can be found by codes.
    bool ordered() const { return ordered_; }
    bool has_number_texts() const { return has_number_texts_; } // texts that SQLite may convert to numbers
    ub8 first_code() const { return col_.first_code(); }
    ub8 end_code() const { return col_.end_code(); }

    cell value(ub8 code) const;
    void result(sqlite3_context *, ub4 code) const;
    // The same for equal values, so that a second order can decide between them.
    bool one_code_a_value() const { return ranks_.empty(); }
    ub4 rank(ub4 code) const { return ranks_.empty() ? code : ranks_[code]; }

    // First code of a value that is not below, or is above; all codes of values if it compares so with none.
    ub8 first_not_below(const cell &) const;
    ub8 first_above(const cell &) const;
    // Of texts that begin with these letters, ASCII ones in any case.
    code_ranges codes_of_prefix(std::string_view prefix) const;
    // Of texts that read as this number.
    code_ranges codes_of_number_text(const cell &number) const;

    ub8 rows_of(const code_ranges &) const;
    ub8 different_values() const { return end_code() - first_code(); }

    // The rows in the order of their codes, made when first asked for; those of a code begin at starts()[code].
    const ub4 *rows_by_code() const;
    // Whether a search for few rows is to go by these. Making them costs as much as a few scans, so they are made when
    // the column has been searched so often.
    bool worth_sorting() const { return searches_.fetch_add(1, std::memory_order_relaxed) >= searches_before_sorting; }
    const ub4 *starts() const { return starts_.data(); }
    // The code of one row, read from the plain form.
    ub4 code_of_row(ub4 row) const;

private:
    void narrow(std::string_view prefix, std::size_t at, ub8 begin, ub8 end, code_ranges &found) const;

    column &col_;
    affinity affinity_;
    content holds_ = content::texts;
    bool ordered_ = true, all_numbers_ = false, has_number_texts_ = false;
    std::vector<sqlite3_int64> integers_;
    std::vector<double> reals_;
    std::vector<std::string_view> texts_;
    std::vector<cell> cells_;
    std::vector<ub4> ranks_;
    std::vector<std::pair<cell, ub8>> number_texts_; // by number
    block<char> bytes_;
    std::vector<ub4> starts_; // rows before those of each code, and all rows
    static constexpr unsigned searches_before_sorting = 8;
    mutable std::atomic<unsigned> searches_{0};
    mutable std::once_flag sorted_;
    mutable block<ub4> rows_by_code_;
};

} // namespace host::sqlite
