// Groups by columns of which some hold texts, without a dictionary: their values get dense codes, and the codes of
// several columns, packed into keys, get dense codes again.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/column/column.h"
#include "host/column/text_column.h"
#include "host/group/dense_dictionary.h"

namespace host {

struct dense_options {
    unsigned threads = 1;
    ub8 memory = memory_budget::no_limit; // for the dictionaries
};

class dense_groups {
public:
    // One of both.
    struct group_values {
        text_column *texts = nullptr;
        column *encoded = nullptr;
    };
    dense_groups(session &, ub4 rows, const selection &, const std::vector<group_values> &, const dense_options &,
                 step_list &);

    // The group of each selected row; numbers below groups(), of which some have no row.
    std::vector<ub4> take_group_of_row() { return std::move(group_of_row_); }
    ub4 groups() const { return groups_; }
    // Of each group, by column: its value, nothing for a null. These must have rows.
    std::vector<std::vector<std::optional<std::string>>> values(const std::vector<ub4> &groups) const;

private:
    void pack(std::size_t column, ub8 cardinality, const std::vector<ub4> &codes, ub8 &free_bits);
    const dense_dictionary &feed(symbol_source, std::vector<ub4> &codes);

    session &session_;
    std::vector<group_values> columns_;
    step_list &steps_;
    dense_options options_;
    memory_budget memory_;
    std::vector<ub4> numbers_; // of the selected rows, if they are not all
    std::vector<std::unique_ptr<symbol_source>> sources_;
    std::vector<std::unique_ptr<dense_dictionary>> dictionaries_; // by column, null where it has one; then that of keys
    std::vector<ub8> keys_, fields_;                              // of several columns
    tavo_enc_ctx keys_enc_{};
    std::vector<ub4> group_of_row_;
    ub4 groups_ = 0;
};

} // namespace host
