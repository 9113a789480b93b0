// A column as its model says, with an environment that asks for the model's rows; all its memory is guarded.
#pragma once

#include "tests/decode/column_model.h"
#include "tests/decode/packed_column.h"
#include "tests/kit/host_stub.h"

namespace tavo::test {

struct column_case {
    column_case(const column_model &model, unsigned entry_bits)
        : column(model.width, model.codes, code_slack(model.width)), run_table(table_bytes(model, entry_bits)),
          bits(guarded_copy(words(model))), list(guarded_copy(model.list)) {
        column.src.size = model.rows();
        if (model.by_runs) {
            column.enc.flags |= TAVO_RLE;
            column.enc.run_table = run_table.data();
            column.enc.run_entry_bits = static_cast<ub1>(entry_bits);
            column.enc.run_count = static_cast<ub4>(model.codes.size());
        }
        env.host = host.record();
        env.sel_bits = model.selected.empty() ? nullptr : bits.as<ub8>();
        static ub4 nothing;
        env.ones_vec = !model.has_list ? nullptr : model.list.empty() ? &nothing : list.as<ub4>();
        env.ones_vec_size = static_cast<ub4>(model.list.size());
    }

    static std::vector<ub1> table_bytes(const column_model &model, unsigned entry_bits) {
        std::vector<ub1> bytes;
        for (ub4 length : model.run_lengths) {
            if (entry_bits == 16)
                bytes.push_back(static_cast<ub1>(length >> 8));
            bytes.push_back(static_cast<ub1>(length));
        }
        return bytes;
    }
    // Whole words, with bits set above the row count: those are never delivered.
    static std::vector<ub8> words(const column_model &model) {
        std::vector<ub8> w((model.selected.size() + 63) / 64, 0);
        for (std::size_t row = 0; row < w.size() * 64; row++)
            if (row >= model.selected.size() || model.selected[row])
                w[row / 64] |= 1ull << row % 64;
        return w;
    }

    packed_column column;
    guarded run_table, bits, list;
    host_stub host;
    tavo_env env{};
};

} // namespace tavo::test
