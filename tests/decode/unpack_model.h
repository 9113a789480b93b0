// The plain meaning of a decode_unpack call: which rows it delivers and what it leaves in the records.
#pragma once

#include <algorithm>
#include <numeric>
#include <tuple>
#include <vector>

#include "tests/decode/column_model.h"

namespace tavo::test {

struct unpack_model : column_model {
    unpack_model() = default;
    unpack_model(column_model column) : column_model(std::move(column)) {}

    bool sparse = false;

    struct state {
        ub4 resume_row = 0, run_index = 0, run_end = 0;
        ub1 result_flags = 0;
        bool operator==(const state &) const = default;
    };
    struct outcome {
        std::vector<ub4> rows; // delivered
        ub4 status;
        state after;
        // Blocks of rows, none of which is left to be delivered, may have been passed.
        ub4 latest_resume_row = after.resume_row;
    };

    outcome call(state s, ub4 capacity) const {
        outcome out{{}, 0, s};
        const ub4 n = rows(), start = s.resume_row;
        const auto deliver = [&](ub4 row) { out.rows.push_back(row); };
        const auto room = [&] { return capacity - out.rows.size(); };
        const bool selecting = !selected.empty() || has_list;
        if (!selected.empty()) {
            ub4 row = start;
            for (; row < n && room() != 0; row++)
                if (selected[row])
                    deliver(row);
            if (capacity != 0)
                out.after.resume_row = out.latest_resume_row = row;
            if (capacity != 0 && !by_runs && !sparse)
                while (out.latest_resume_row < n && !selected[out.latest_resume_row])
                    out.latest_resume_row++;
        } else if (has_list) {
            for (ub4 row : list)
                deliver(row);
            if (!list.empty() || !by_runs)
                out.after.resume_row = list.empty() ? 0 : list.back() + 1;
        } else {
            for (ub4 row = start; row < n && room() != 0; row++)
                deliver(row);
            if (!by_runs || !out.rows.empty())
                out.after.resume_row = start + static_cast<ub4>(out.rows.size());
        }
        out.latest_resume_row = std::max(out.latest_resume_row, out.after.resume_row);
        if (by_runs && !out.rows.empty())
            std::tie(out.after.run_index, out.after.run_end) = run_of(out.rows.back());
        else if (by_runs && selecting && (s.resume_row == 0 || s.run_end == 0))
            std::tie(out.after.run_index, out.after.run_end) = std::pair(~0u, 0u); // in front of the first run
        if (selecting)
            out.after.result_flags |= TAVO_RESULT_UNPACK_SELECTED;
        out.status = out.rows.empty() && !(by_runs && has_list && selected.empty()) ? TAVO_NONE_SELECTED : TAVO_DONE;
        return out;
    }
};

} // namespace tavo::test
