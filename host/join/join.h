// A hash join of two tables by the library: hashes of both sides' keys, a table of the right side, and a probe of the
// left side's rows that pass a filter. Where keys are shared codes, rows pass whose codes are translated to one that
// the right side's rows have; of several columns, and of other keys, those that pass a bloom filter of the right side's
// hashes.
#pragma once

#include <memory>
#include <vector>

#include "host/join/bloom_filter.h"
#include "host/join/join_keys.h"
#include "host/join/step_list.h"
#include "host/join/table_memory.h"
#include "host/query/query.h"

namespace host {

enum class join_kind {
    inner,     // pairs of rows with equal keys
    left,      // and left rows without a partner
    right,     // pairs, and right rows without a partner
    anti,      // left rows without a partner alone
    right_anti // right rows without a partner alone
};

constexpr ub4 no_row = 0xffffffff;
struct row_pair {
    ub4 left, right; // no_row where there is no partner
    auto operator<=>(const row_pair &) const = default;
};

struct join_settings {
    ub8 overflow_limit = table_memory::no_limit; // bytes of the table beyond the one that its layout begins with
    ub4 partition_from = 1 << 20;                // right rows from which on a table is built segment by segment
    ub4 batch_rows = 1 << 16;
};

// One side: the rows that take part, and those of them whose keys are not null and so may have a partner.
struct join_rows {
    ub4 rows; // of the table
    const selection &all, &keyed;
};

class join {
public:
    join(session &, const join_keys &, const join_settings & = {});

    // Pairs in the order of left rows, then right rows; right rows without a partner come last.
    std::vector<row_pair> run(join_kind, const join_rows &left, const join_rows &right);
    const std::vector<query_step> &steps() const { return steps_.all(); }

private:
    void build(const join_rows &right, bool pointer_form);
    void add_to_table(tavo_vec *hashes, tavo_vec *values, tavo_vec *keys, sb8 segment);
    void add_by_partitions(const join_rows &right, key_vectors &vectors);
    std::vector<row_pair> probe(join_kind, const join_rows &left, std::vector<ub8> &unmatched);
    void note_used(const std::vector<const ub4 *> &codes, ub4 rows);
    void scan_unmarked(std::vector<ub4> &right_rows);

    session &session_;
    const tavo_specialized_ctx &ctx_;
    const join_keys &keys_;
    join_settings settings_;
    step_list steps_;
    std::unique_ptr<table_memory> table_;
    std::unique_ptr<bloom_filter> filter_; // null: the translation tells all that it would
    std::vector<std::vector<bool>> used_;  // by column: shared codes of the right side's rows
    std::vector<ub4> right_rows_;          // by the value in the table: the order in which they were added
};

} // namespace host
