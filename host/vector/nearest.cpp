#include "host/vector/nearest.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <fmt/format.h>

#include "host/error.h"

namespace host {

namespace {

// Two types have kernels that use instructions that not every processor has; which one runs is the library's choice.
std::string kernel_name(const metric_kind &metric, const vector_form &query, const vector_form &row) {
    const char *variant = "";
    if (!query.sparse && query.type == element_type::bits)
        variant = "[_vpopc]";
    if (!query.sparse && query.type == element_type::int8 && row.type == element_type::int8 &&
        metric.metric != tavo_metric_manhattan && metric.metric != tavo_metric_hamming)
        variant = "[_vnni]";
    return fmt::format("tavo_dbv_{}{}_{}_{}", metric.family, variant, query.kernel_word(), row.kernel_word());
}

bool selected(const selection *among, ub4 row) {
    return among == nullptr || (among->bits[row / 64] >> row % 64 & 1) != 0;
}

} // namespace

const metric_kind *metric_of_name(std::string_view name) {
    for (const metric_kind &k : metric_kinds)
        if (k.name == name)
            return &k;
    return nullptr;
}

std::string metric_names() {
    std::string names;
    for (const metric_kind &k : metric_kinds)
        names += std::string(names.empty() ? "" : ", ") + k.name;
    return names;
}

std::vector<neighbour> nearest(session &s, vector_column &rows, vector_column &query, const metric_kind &metric, ub4 k,
                               const selection *among, std::vector<query_step> &steps) {
    const tavo_specialized_ctx &ctx = s.kernels().ctx();
    if (ctx.vector_topk == nullptr)
        throw error(s.kernels().path() + " has no operation tavo_vector_topk_dydi");
    k = std::min(k, std::max(rows.rows(), ub4{1})); // as many entries as can be filled
    std::vector<tavo_topk_entry> entries(k);
    tavo_enc_ctx native{};
    native.flags = TAVO_NATIVE;
    tavo_vec res{};
    res.data = entries.data();
    res.size = k;
    res.enc = &native;
    tavo_env env{};
    env.host = s.record();
    std::vector<ub8> valid; // of a flexible column: rows with a bad image lose their bit
    if (rows.flexible()) {
        valid.assign((std::size_t{rows.rows()} + 63) / 64, ~ub8{0});
        env.valid_rows = valid.data();
    }
    if (among != nullptr)
        env.sel_bits = const_cast<ub8 *>(among->bits.data()); // read only
    // A comparable query is decoded once into this instead of for each row. A dense image is to have its elements
    // aligned to 8 when it stands 17 bytes further on.
    std::vector<ub8> scratch(query.bytes() / 8 + 8);
    ub1 *scratch_at = reinterpret_cast<ub1 *>(scratch.data()) + (query.flexible() ? 7 : 0);

    const auto start = std::chrono::steady_clock::now();
    const ub4 status = ctx.vector_topk(&res, rows.vec(), query.vec(), metric.metric,
                                       layout_of(query.form(), rows.form()), &env, scratch_at);
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    s.throw_raised();
    const std::string name = rows.flexible() ? "kernels by image" : kernel_name(metric, query.form(), rows.form());
    if (status != TAVO_DONE)
        throw error(fmt::format("tavo_vector_topk_dydi ({}) failed with status {}", name, status));
    const unsigned width = rows.flexible() ? 0 : kind_of(rows.form().type).width;
    steps.push_back({"tavo_vector_topk_dydi", "vector", width, fmt::format("{} nearest by {}", k, name),
                     among == nullptr ? rows.rows() : among->count, res.size, seconds});
    std::vector<neighbour> found;
    for (ub4 i = 0; i < res.size; i++)
        found.push_back({entries[i].row, entries[i].distance});
    return found;
}

nearest_check check_nearest(const vector_column &rows, const vector_column &query, const metric_kind &metric, ub4 k,
                            const selection *among, std::span<const neighbour> found) {
    nearest_check check;
    std::vector<double> from, to;
    query.read(0, from);
    const auto plain = [&](ub4 row) {
        rows.read(row, to);
        return plain_distance(metric.metric, query.form(), from, rows.form(), to);
    };
    const auto differ = [&](std::string what) {
        if (check.difference.empty())
            check.difference = std::move(what);
    };

    std::vector<bool> is_found(rows.rows());
    for (std::size_t i = 0; i < found.size(); i++) {
        const auto [row, distance] = found[i];
        if (row >= rows.rows() || !selected(among, row) || is_found[row]) {
            differ(fmt::format("row {} does not belong in the answer", row));
            return check;
        }
        is_found[row] = true;
        const plain_result expected = plain(row);
        // Infinities and NaNs agree with their like; a NaN on one side alone does not.
        const bool same = distance == expected.distance || (std::isnan(distance) && std::isnan(expected.distance));
        const double off = same ? 0 : std::fabs(distance - expected.distance);
        if (!same && !(off <= expected.bound))
            differ(fmt::format("row {} is {} away, by plain arithmetic {} (may differ by {:.2g})", row, distance,
                               expected.distance, expected.bound));
        check.largest = std::max(check.largest, off);
        check.bound = std::max(check.bound, expected.bound);
        if (i > 0 && !std::isnan(distance) && !(found[i - 1].distance <= distance))
            differ(fmt::format("row {}, {} away, stands behind row {}, {} away", row, distance, found[i - 1].row,
                               found[i - 1].distance));
    }

    for (ub4 row = 0; row < rows.rows(); row++) {
        if (!selected(among, row))
            continue;
        check.rows++;
        if (is_found[row] || found.empty())
            continue;
        const plain_result left_out = plain(row);
        const double last = found.back().distance; // a NaN is farther than any number
        if (!std::isnan(left_out.distance) && !(left_out.distance + left_out.bound >= last))
            differ(fmt::format("row {} is left out and {} away, nearer than row {}, {} away", row, left_out.distance,
                               found.back().row, last));
    }
    if (const ub4 expected = std::min(k, check.rows); found.size() != expected)
        differ(fmt::format("{} rows are found, there should be {}", found.size(), expected));
    return check;
}

} // namespace host
