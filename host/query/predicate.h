// Predicates as text, and as a tree.
//
//   delay > 60                          = <> != < <= > >=; 60 < delay
//   departure > arrival                 two columns
//   distance between 500 and 1000       both ends included
//   500 < distance < 1000               open or half-open ends: < and <= (or > and >=) on either side
//   origin in (SFO, LAX)                not in
//   state is null                       is not null
//   not (delay < 0 or delay > 60) and origin = SFO
//
// `not` binds more tightly than `and`, `and` more tightly than `or`. A value is a word without spaces, or any text
// 'in quotes' with quotes doubled; a word that is a column's name is that column. A column whose name is no plain word
// stands "in double quotes". Keywords may be written in any case; where only a value can stand they are texts. Nulls
// are SQL's: a comparison with a null is neither true nor false, and so is its negation.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/column/csv.h"

namespace host {

enum class word_kind {
    plain,  // may be a value or a column
    quoted, // 'a value'
    name    // "a column"
};
struct literal {
    std::string text;
    std::size_t at = 0; // where it stands in the source
    word_kind kind = word_kind::plain;
};

enum class predicate_kind { compare, columns, range, in, is_null, not_, and_, or_ };
enum class comparison { eq, ne, lt, le, gt, ge };
// a < b is b > a.
comparison turned_round(comparison);

struct predicate {
    predicate_kind kind = predicate_kind::compare;
    literal column;                            // of a leaf; of compare, before it is resolved, the left side
    literal other;                             // of columns: the right side
    comparison op = comparison::eq;            // of compare, columns
    bool low_open = false, high_open = false;  // of range: the end itself is left out
    std::vector<literal> values;               // compare: one; range: low and high; in: one or more
    std::vector<predicate> operands;           // of not_ (one), and_, or_ (two or more)
    std::string text;                          // as it was written
    std::shared_ptr<const std::string> source; // of a leaf: the whole text, in which the places are
};

// An error in a predicate's text: the message shows the text and marks the place. `behind` are further lines.
[[noreturn]] void fail_at(std::string_view text, std::size_t at, const std::string &what,
                          const std::string &behind = "");

// The tree of a text. Which side of a comparison is the column, and whether both are, is told by resolve().
predicate parse_predicate(std::string_view text);

// Finds the columns that a predicate names: `60 < delay` is turned round, `departure > arrival` becomes a comparison of
// two columns, and names get the spelling that the file has. Throws where a column is not there, or stands where only a
// value can.
void resolve(predicate &, const csv_file &);

// The columns that it names, each once.
std::vector<std::string> columns_of(const predicate &);

} // namespace host
