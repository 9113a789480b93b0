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
    const csv_file &file(join_side side) const { return side == join_side::left ? left_ : right_; }
    // A header of all names: what lists of columns are read by.
    const csv_file &all() const { return all_; }
    place at(std::size_t number_of_all) const { return places_[number_of_all]; }
    // The name under which a column is printed: its own where that is enough.
    std::string shown(place) const;

    // Pairs of columns from texts such as "origin=iata", "code" or "origin=iata,day=date".
    std::vector<std::pair<std::size_t, std::size_t>> key_columns(const std::vector<std::string> &on) const;
    // Finds the columns that a predicate names.
    void resolve(predicate &) const;

private:
    // The names of a place: its own, its file's in front, left or right in front.
    std::string qualified(place, bool by_side) const;
    std::string header();
    std::size_t find(join_side side, const std::string &name) const;
    void refuse_ambiguous(const std::string &name) const;

    const csv_file &left_, &right_;
    std::string names_[2];
    std::vector<place> places_; // of the names in all_
    csv_file all_;
};

// A condition on pairs of rows. A side's condition holds a predicate with that file's own column names; negations have
// gone down into them, so that `both` and `either` combine rows for which something is true.
struct pair_condition {
    enum class kind { side, columns, both, either } what = kind::side;
    join_side side = join_side::left; // of side, and its predicate
    predicate condition;
    join_names::place left, right; // of columns, one of each file, and how they stand
    comparison op{};
    std::vector<pair_condition> parts; // of both, either
};

// The conditions that must all be true, of resolved predicates.
std::vector<pair_condition> conditions_of(const std::vector<predicate> &all, const join_names &);

} // namespace host
