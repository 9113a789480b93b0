// The columns of two joined files by name, and predicates taken apart by the file that they speak of.
//
// A column that only one of the files has goes by its name; any column by the name of its file without folder and
// ending, as in airports.state, or by left.state and right.state.
#pragma once

#include <string>
#include <vector>

#include "host/column/csv.h"
#include "host/join/join_keys.h"
#include "host/query/predicate.h"

namespace host {

class join_names {
public:
    join_names(const csv_file &left, const csv_file &right);

    struct place {
        join_side side;
        std::size_t column;
        bool operator==(const place &) const = default;
    };
    // Throws where no file or both have the column.
    place find(const std::string &name) const;
    // The column of one side, with its file's name in front or without.
    std::size_t find(join_side side, const std::string &name) const;
    const csv_file &file(join_side side) const { return side == join_side::left ? left_ : right_; }
    // The name under which a column is printed: its own where that is enough.
    std::string shown(place) const;

    // Pairs of columns from texts such as "origin=iata", "code" or "origin=iata,day=date".
    std::vector<std::pair<std::size_t, std::size_t>> key_columns(const std::vector<std::string> &on) const;

private:
    // The part of a qualified name behind the file's, if it is this side's.
    bool strip(join_side side, std::string &name) const;
    static bool has(const csv_file &file, const std::string &column);

    const csv_file &left_, &right_;
    std::string names_[2];
};

// A condition on pairs of rows. A side's condition holds a predicate with that file's own column names; negations have
// gone down into them, so that `both` and `either` combine rows for which something is true.
struct pair_condition {
    enum class kind { side, both, either } what = kind::side;
    join_side side = join_side::left; // of side, and its predicate
    predicate condition;
    std::vector<pair_condition> parts; // of both, either
};

// The conditions that must all be true.
std::vector<pair_condition> conditions_of(const std::vector<predicate> &all, const join_names &);

} // namespace host
