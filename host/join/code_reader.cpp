#include "host/join/code_reader.h"

#include <algorithm>
#include <fmt/format.h>

#include "host/error.h"

namespace host {

code_reader::code_reader(session &s, std::vector<column *> columns, ub4 rows, const selection &selected, ub4 batch_rows,
                         step_list &steps)
    : session_(s), columns_(std::move(columns)), rows_(rows), selected_(selected), left_(selected.count), steps_(steps),
      envs_(columns_.size()), numbers_(std::min(selected.count, batch_rows)), codes_(columns_.size()) {
    s.kernels().ctx().lbiwv_ictx_ini2(&position_, selected.bits.data(), rows, 0, 0);
    for (auto &codes : codes_)
        codes.resize(numbers_.size() + 16);
    for (tavo_env &env : envs_) {
        env.host = s.record();
        env.flags = TAVO_ENV_WIDE;
        if (selected.count != rows)
            env.sel_bits = const_cast<ub8 *>(selected.bits.data()); // read only
    }
}

ub4 code_reader::next() {
    const ub4 rows = std::min<ub4>(left_, static_cast<ub4>(numbers_.size()));
    if (rows == 0)
        return 0;
    left_ -= rows;
    session_.kernels().ctx().lbiwvones(&position_, numbers_.data(), rows);
    for (std::size_t c = 0; c < columns_.size(); c++) {
        column &col = *columns_[c];
        const std::string name = fmt::format("tavo_decode_unpack_dict_{}bit", col.width());
        const tavo_kernel_slot unpack =
            session_.kernels().kernel(col.kernel_row(TAVO_VARIANT_PLAIN), TAVO_OP_DECODE_UNPACK);
        if (unpack.row_move == nullptr)
            throw error(fmt::format("{} has no kernel {}", session_.kernels().path(), name));
        tavo_vec dst{};
        dst.data = codes_[c].data();
        dst.size = rows;
        const step_clock clock;
        const ub4 status = unpack.row_move(&dst, col.vec(), &envs_[c]);
        double seconds = clock.seconds();
        session_.throw_raised();
        if (status != TAVO_DONE || dst.count != rows)
            throw error(fmt::format("{} failed with status {}, {} of {} codes", name, status, dst.count, rows));
        if (const session::decompression done = session_.take_decompression(); done.bytes > 0) {
            const query_step step = decompression_step(col, done);
            steps_.add(step.kernel, step.column, step.what, step.rows_in, step.rows_out, step.seconds);
            seconds -= done.seconds;
        }
        steps_.add(name, col.name(), selected_.count == rows_ ? "all rows to codes" : "selected rows to codes", rows,
                   rows, seconds);
    }
    return rows;
}

} // namespace host
