// Conditions as SQLite hands them to a table, and the codes of a column that they may select.
//
// A comparison is SQLite's, with its conversions: these depend on the affinities of both sides, of which a table learns
// only its own. So each answer holds for whatever the other side's is: it has all codes whose rows satisfy the
// condition, and is called exact where it has no others. SQLite looks at the rows again in any case.
#pragma once

#include <optional>
#include <string>

#include "host/sqlite/value_column.h"

namespace host::sqlite {

// As letters, so that a plan is a text.
enum class test : char {
    equal = '=',
    below = '<',
    not_above = 'l',
    above = '>',
    not_below = 'g',
    is = '~',
    null = 'n',
    known = 'k',
    in_list = 'i',
    like = 'p'
};
// Of a constraint's operator; nothing if tables of this kind don't use it: <> and IS NOT select nearly all rows.
std::optional<test> test_of(int sqlite_operator);
const char *words_of(test);
// SQLite hands these to a table also where they stand in an outer join's ON and the table is on the side of which all
// rows are wanted: it then only asks whether a row has a partner.
inline bool may_be_of_outer_join(test t) { return t == test::known || t == test::like; }

struct codes_found {
    code_ranges ranges;
    bool exact = true;
};
// `constant` says that the value stands in the statement, which rules out that it comes from a column of numbers. Of a
// list the values one by one, by `equal`, with joined() behind.
codes_found codes_of(const value_column &, test, sqlite3_value *, bool constant);

// Row numbers from 0, `end` not among them.
struct row_range {
    ub4 begin = 0, end = 0xffffffff;
    ub4 size() const { return end - begin; }
    bool has(ub4 row) const { return row >= begin && row < end; }
    row_range common(const row_range &other) const {
        const ub4 from = std::max(begin, other.begin);
        return {from, std::max(from, std::min(end, other.end))};
    }
};
// Those of a table of so many rows whose rowids, from 1, satisfy a comparison.
row_range rows_of(test, sqlite3_value *, ub4 rows);

code_ranges joined(code_ranges); // of ranges in any order
code_ranges common(const code_ranges &, const code_ranges &);

} // namespace host::sqlite
