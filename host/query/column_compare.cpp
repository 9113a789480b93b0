#include "host/query/column_compare.h"

#include <chrono>
#include <fmt/format.h>

#include "host/column/packing.h"
#include "host/error.h"

namespace host {

namespace {

constexpr ub4 batch_rows = 8192;

// The codes of all rows, four bytes each, batch by batch.
class code_reader {
public:
    code_reader(session &s, column &col) : session_(s), col_(col), codes_(batch_rows + readable_behind) {
        const ub1 row = TAVO_KERNEL_ROW(TAVO_VARIANT_PLAIN, width_code(col.width()), TAVO_CLASS_DICT);
        unpack_ = s.kernels().kernel(row, TAVO_OP_DECODE_UNPACK).row_move;
        name_ = fmt::format("tavo_decode_unpack_dict_{}bit", col.width());
        if (unpack_ == nullptr)
            throw error(fmt::format("{} has no kernel {} (column {})", s.kernels().path(), name_, col.name()));
        env_.host = s.record();
        env_.flags = TAVO_ENV_WIDE;
    }

    const ub4 *next(ub4 rows) {
        tavo_vec dst{};
        dst.data = codes_.data();
        dst.size = rows;
        const auto start = std::chrono::steady_clock::now();
        const ub4 status = unpack_(&dst, col_.vec(), &env_);
        seconds_ += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        session_.throw_raised();
        if (status != TAVO_DONE || dst.count != rows)
            throw error(fmt::format("{}: status {}, {} of {} codes", name_, status, dst.count, rows));
        const session::decompression now = session_.take_decompression();
        decompressed_.bytes += now.bytes;
        decompressed_.seconds += now.seconds;
        return codes_.data();
    }
    void add_steps(std::vector<query_step> &steps) const {
        if (decompressed_.bytes > 0)
            steps.push_back(decompression_step(col_, decompressed_));
        steps.push_back({name_, col_.name(), col_.width(), "all rows to codes", col_.rows(), col_.rows(),
                         seconds_ - decompressed_.seconds});
    }

private:
    session &session_;
    column &col_;
    std::vector<ub4> codes_;
    tavo_row_move_fn *unpack_;
    std::string name_;
    tavo_env env_{};
    double seconds_ = 0;
    session::decompression decompressed_{0, 0};
};

// For each code of b: the first code of a whose value is not below b's, and the first whose value is above it.
struct bounds {
    std::vector<ub4> not_below, above;
};
bounds bounds_of(const dictionary &a, const dictionary &b) {
    bounds found{std::vector<ub4>(b.end_code()), std::vector<ub4>(b.end_code())};
    ub8 not_below = a.first_code(), above = a.first_code();
    for (ub8 code = b.first_code(); code < b.end_code(); code++) {
        const std::string key = b.key_of(code);
        while (not_below < a.end_code() && a.key_of(not_below) < key)
            not_below++;
        above = std::max(above, not_below);
        while (above < a.end_code() && a.key_of(above) <= key)
            above++;
        found.not_below[code] = static_cast<ub4>(not_below);
        found.above[code] = static_cast<ub4>(above);
    }
    return found;
}

bool holds(comparison op, ub4 code, ub4 not_below, ub4 above) {
    switch (op) {
    case comparison::eq: return code >= not_below && code < above;
    case comparison::ne: return code < not_below || code >= above;
    case comparison::lt: return code < not_below;
    case comparison::le: return code < above;
    case comparison::gt: return code >= above;
    case comparison::ge: break;
    }
    return code >= not_below;
}

} // namespace

selection compare_columns(session &s, column &a, comparison op, column &b, const std::string &text,
                          std::vector<query_step> &steps) {
    const ub4 rows = a.rows();
    selection selected{std::vector<ub8>((static_cast<std::size_t>(rows) + 63) / 64), 0};
    const bounds found = bounds_of(a.dict(), b.dict());
    code_reader left(s, a), right(s, b);
    double seconds = 0;
    for (ub4 row = 0, batch; row < rows; row += batch) {
        batch = std::min(batch_rows, rows - row);
        const ub4 *a_codes = left.next(batch), *b_codes = right.next(batch);
        const auto start = std::chrono::steady_clock::now();
        for (ub4 i = 0; i < batch; i++) {
            const bool null = a_codes[i] < a.dict().first_code() || b_codes[i] < b.dict().first_code();
            const bool set = !null && holds(op, a_codes[i], found.not_below[b_codes[i]], found.above[b_codes[i]]);
            selected.bits[(row + i) / 64] |= ub8{set} << (row + i) % 64;
            selected.count += set;
        }
        seconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    }
    left.add_steps(steps);
    right.add_steps(steps);
    steps.push_back({"", a.name(), a.width(), text + "  [by the host]", rows, selected.count, seconds});
    return selected;
}

} // namespace host
