#include "host/query/number_reader.h"

#include <chrono>
#include <fmt/format.h>

#include "host/error.h"

namespace host {

number_reader::number_reader(session &s, number_column &col, const selection &rows)
    : session_(s), col_(col), walk_(col) {
    s.kernels().ctx().lbiwv_ictx_ini2(&position_, rows.bits.data(), col.rows(), 0, 0);
    if (col.form() == column_form::fixed && s.kernels().ctx().selective == nullptr)
        throw error(s.kernels().path() + " has no operation selective");
}

// Brings the numbers of listed rows together.
void number_reader::select(std::span<const ub4> rows) {
    const unsigned bytes = col_.width() / 8;
    picked_.resize(rows.size() * bytes);
    tavo_enc_ctx enc{};
    enc.flags = TAVO_FIXED;
    enc.width_bits = col_.width();
    tavo_vec dst{};
    dst.enc = &enc;
    dst.data = picked_.data();
    dst.size = static_cast<ub4>(rows.size());
    dst.byte_size = picked_.size();
    tavo_env env{};
    env.host = session_.record();
    env.ones_vec = const_cast<ub4 *>(rows.data()); // read only
    env.ones_vec_size = static_cast<ub4>(rows.size());
    const auto start = std::chrono::steady_clock::now();
    const ub4 status = session_.kernels().ctx().selective(&dst, col_.vec(), &env);
    seconds_ += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    session_.throw_raised();
    if (status != TAVO_DONE || dst.size != rows.size())
        throw error(fmt::format("tavo_selective_dydi: status {}, {} of {} numbers", status, dst.size, rows.size()));
}

void number_reader::next(ub4 rows) {
    numbers_.resize(rows);
    session_.kernels().ctx().lbiwvones(&position_, numbers_.data(), rows);
    const bool fixed = col_.form() == column_form::fixed;
    if (fixed)
        select(numbers_);
    texts_.resize(rows);
    const unsigned bytes = col_.width() / 8;
    for (ub4 i = 0; i < rows; i++) {
        const ub4 row = numbers_[i];
        if (!col_.is_known(row)) {
            texts_[i].clear();
            continue;
        }
        const ub8 code =
            fixed ? col_.code_of_bytes(picked_.data() + static_cast<std::size_t>(i) * bytes, bytes) : walk_.code(row);
        texts_[i] = col_.numbers().text({code, col_.zone(row)});
    }
    rows_ += rows;
}

std::vector<query_step> number_reader::steps() const {
    if (rows_ == 0)
        return {};
    if (col_.form() == column_form::fixed)
        return {{"tavo_selective_dydi", col_.name(), col_.width(), "listed rows to numbers", rows_, rows_, seconds_}};
    return {{"", col_.name(), col_.width(), "listed rows to numbers  [by the host]", rows_, rows_, 0}};
}

} // namespace host
