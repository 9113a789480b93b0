// The plain meaning of a minmax call: the pair, the status and what it leaves in the records.
#pragma once

#include <array>
#include <optional>

#include "tests/decode/column_model.h"

namespace tavo::test {

struct minmax_model : column_model {
    minmax_model(column_model column, bool nullable, ub4 symbols)
        : column_model(std::move(column)), nullable(nullable), symbols(symbols) {}

    bool nullable;
    ub4 symbols;

    using pair_of_codes = std::pair<ub4, ub4>;
    struct state {
        ub4 resume_row = 0, run_index = 0, run_end = 0;
        bool operator==(const state &) const = default;
    };
    struct outcome {
        ub4 status;
        std::optional<pair_of_codes> pair;
        state after;
        std::optional<ub4> count;
    };

    pair_of_codes targets(ub4 mode) const {
        const ub4 lowest = nullable ? 1 : 0, highest = symbols - 1;
        return {mode == 2 ? highest : lowest, mode == 1 ? lowest : highest};
    }

    outcome call(state s, ub4 mode) const {
        if (by_runs)
            return over_runs(s);
        if (!selected.empty())
            return over_blocks(s, targets(mode));
        if (has_list)
            return over_list(s, targets(mode));
        pair_of_codes seen = nothing();
        for (ub4 row = s.resume_row; row < rows(); row++)
            fold(seen, code(row));
        return finish(seen, s, rows());
    }

private:
    pair_of_codes nothing() const { return {symbols, 0}; }
    bool fold(pair_of_codes &seen, ub4 c) const {
        if (nullable && c == 0)
            return false;
        seen = {std::min(seen.first, c), std::max(seen.second, c)};
        return true;
    }
    outcome finish(pair_of_codes seen, state after, ub4 resume_row) const {
        if (seen.first == symbols)
            return {TAVO_NONE_SELECTED, {}, after, {}};
        after.resume_row = resume_row;
        return {TAVO_DONE, seen, after, {}};
    }

    outcome over_list(state s, pair_of_codes best) const {
        pair_of_codes seen = nothing();
        for (ub4 row : list)
            if (fold(seen, code(row)) && seen.first <= best.first && seen.second >= best.second)
                return {TAVO_DONE, seen, s, {}};
        s.resume_row = list.back() + 1; // also where no row contributed
        return finish(seen, s, s.resume_row);
    }

    // Sixteen lanes, as blocks of 64 rows are folded in groups of sixteen: the end comes when one lane has the lowest
    // target and one the highest, compared as signed numbers.
    outcome over_blocks(state s, pair_of_codes best) const {
        pair_of_codes seen = nothing();
        const ub4 n = rows(), alignment = std::lcm(8u, width);
        ub4 row = s.resume_row, walked = 0;
        const auto row_by_row = [&](ub4 stop) {
            for (; row < stop; row++)
                if (selected[row])
                    fold(seen, code(row));
        };
        row_by_row(std::min((row + alignment - 1) / alignment * alignment, n));
        const ub4 start = row;
        std::array<pair_of_codes, 16> lanes;
        lanes.fill(seen);
        for (; row + 64 <= n; row += 64) {
            bool any = false;
            for (ub4 r = row; r < row + 64; r++)
                if (selected[r]) {
                    fold(lanes[r % 16], code(r));
                    any = true;
                }
            if (!any)
                continue;
            walked++;
            const auto is_low = [&](const auto &l) {
                return static_cast<int>(l.first) <= static_cast<int>(best.first);
            };
            const auto is_high = [&](const auto &l) {
                return static_cast<int>(l.second) >= static_cast<int>(best.second);
            };
            if (best.first < symbols && std::any_of(lanes.begin(), lanes.end(), is_low) &&
                std::any_of(lanes.begin(), lanes.end(), is_high)) {
                s.resume_row = start + 32 * walked;
                return {TAVO_DONE, best, s, {}};
            }
        }
        for (const auto &lane : lanes)
            seen = {std::min(seen.first, lane.first), std::max(seen.second, lane.second)};
        row_by_row(n);
        return finish(seen, s, n);
    }

    outcome over_runs(state s) const {
        pair_of_codes seen = nothing();
        const ub4 n = rows();
        state after = s;
        std::optional<ub4> last;
        const auto visit = [&](ub4 row) {
            fold(seen, code(row));
            last = row;
        };
        if (!selected.empty()) {
            for (ub4 row = s.resume_row; row < n; row++)
                if (selected[row])
                    visit(row);
            after.resume_row = n;
        } else if (has_list) {
            for (ub4 row : list)
                visit(row);
            if (last)
                after.resume_row = *last + 1;
        } else if (s.resume_row < n) {
            for (ub4 run = run_of(s.resume_row).first; run < codes.size(); run++)
                fold(seen, static_cast<ub4>(codes[run]));
            last = s.resume_row;
            after.resume_row = n;
        }
        if (last)
            std::tie(after.run_index, after.run_end) = run_of(*last);
        else if (s.resume_row == 0 || s.run_end == 0)
            std::tie(after.run_index, after.run_end) = std::pair(~0u, 0u); // in front of the first run
        const bool any = seen.first != symbols;
        return {any ? TAVO_DONE : TAVO_NONE_SELECTED, any ? std::optional(seen) : std::nullopt, after, any ? 2u : 0u};
    }
};

} // namespace tavo::test
