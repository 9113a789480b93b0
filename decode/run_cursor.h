// The run cursor of run-length columns: from a row to the run that holds it.
//
//   run table   rows of each run, one ub1 or big-endian ub2 entry a run (run_entry_bits 8 or 16)
//   codes       one code a run: the code of the row is code `index` of the stream
//
// A cursor only moves forward. Runs without rows are passed over. It reads the entries of the runs it enters and no
// others, and doesn't know where the table ends: the rows asked for have to be rows of the column.
#pragma once

#include "decode/run_table.h"
#include "frame/tavo_env.h"

// Raised by kernels that walk a position list over runs and find it empty.
#define TAVO_EMPTY_LIST_TEXT(name) #name ": [rle] ones_vec size is zero"

namespace tavo {

class run_cursor {
public:
    ub4 index; // of the current run; one before the table at the start
    ub4 end;   // first row behind the current run

    // Continues in the run that a call before saved, or starts in front of the first run.
    [[gnu::always_inline]] run_cursor(const tavo_enc_ctx *enc, const tavo_env *env) noexcept
        : index(~0u), end(0), table(enc->run_table), short_entries(enc->run_entry_bits == 8) {
        if (env->resume_row != 0 && env->run_end != 0) {
            index = env->run_index;
            end = env->run_end;
        }
    }
    [[gnu::always_inline]] void save(tavo_env *env) const noexcept {
        env->run_index = index;
        env->run_end = end;
    }

    bool is_in_run() const noexcept { return index != ~0u; }
    [[gnu::always_inline]] ub4 next_length() const noexcept {
        const ub8 next = static_cast<ub4>(index + 1);
        return short_entries ? run_length<ub1>(table, next) : run_length<ub2>(table, next);
    }
    [[gnu::always_inline]] void step() noexcept {
        end += next_length();
        index++;
    }
    // Moves to the run that holds a row; true if that is another run than before.
    [[gnu::always_inline]] bool step_to(ub4 row) noexcept {
        if (row < end)
            return false;
        do
            step();
        while (end <= row);
        return true;
    }

    bool has_short_entries() const noexcept { return short_entries; }
    // Address of the current run's table entry.
    const void *entry() const noexcept {
        return static_cast<const ub1 *>(table) + static_cast<ub8>(index) * (short_entries ? 1 : 2);
    }

private:
    const void *table;
    bool short_entries;
};

} // namespace tavo
