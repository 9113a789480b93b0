#include "host/group/dense_groups.h"

#include <bit>
#include <cstring>
#include <fmt/format.h>

#include "host/error.h"
#include "host/join/code_reader.h"

namespace host {

dense_groups::dense_groups(session &s, ub4 rows, const selection &selected, const std::vector<group_values> &columns,
                           const dense_options &options, step_list &steps)
    : session_(s), columns_(columns), steps_(steps), options_(options), memory_(options.memory) {
    if (selected.count != rows)
        numbers_ = row_numbers(s.kernels().ctx(), selected, rows, selected.count);
    const bool several = columns.size() > 1;
    if (several)
        keys_.resize(selected.count);
    ub8 free_bits = ~0ull;
    for (std::size_t c = 0; c < columns.size(); c++) {
        std::vector<ub4> codes;
        ub8 cardinality;
        if (columns[c].texts != nullptr) {
            const dense_dictionary &dictionary =
                feed({columns[c].texts->name(), columns[c].texts->vec(), selected.count == rows ? nullptr : &numbers_},
                     codes);
            cardinality = dictionary.end_code();
        } else {
            dictionaries_.push_back(nullptr);
            code_reader reader(s, {columns[c].encoded}, rows, selected, selected.count, steps);
            const ub4 n = reader.next();
            codes.assign(reader.codes(0), reader.codes(0) + n);
            cardinality = columns[c].encoded->end_code();
        }
        if (several) {
            pack(c, cardinality, codes, free_bits);
        } else {
            group_of_row_ = std::move(codes);
            groups_ = static_cast<ub4>(cardinality);
        }
    }
    if (!several)
        return;
    keys_enc_.flags = TAVO_FIXED;
    keys_enc_.width_bits = 64;
    tavo_vec keys{};
    keys.enc = &keys_enc_;
    keys.data = keys_.data();
    keys.size = selected.count;
    groups_ = feed({"groups", keys, nullptr}, group_of_row_).end_code();
}

// Makes the next dictionary.
const dense_dictionary &dense_groups::feed(symbol_source source, std::vector<ub4> &codes) {
    sources_.push_back(std::make_unique<symbol_source>(std::move(source)));
    dictionaries_.push_back(
        std::make_unique<dense_dictionary>(session_.kernels(), *sources_.back(), options_.threads, memory_));
    codes = dictionaries_.back()->codes(steps_);
    return *dictionaries_.back();
}

// A column's codes into its field of the keys, which takes the lowest bits that are free.
void dense_groups::pack(std::size_t c, ub8 cardinality, const std::vector<ub4> &codes, ub8 &free_bits) {
    const tavo_specialized_ctx &ctx = session_.kernels().ctx();
    if (ctx.dgk_concatenate == nullptr || ctx.extract_dgk == nullptr)
        throw error(session_.kernels().path() + " has no packed group keys");
    ub4 bits = 0;
    fields_.push_back(0);
    const ub4 rows = static_cast<ub4>(keys_.size());
    const step_clock clock;
    const ub4 status =
        ctx.dgk_concatenate(rows, cardinality, codes.data(), &free_bits, &bits, &fields_.back(), keys_.data(), 64);
    const bool texts = columns_[c].texts != nullptr;
    steps_.add("tavo_dgk_concatenate_dydi", texts ? columns_[c].texts->name() : columns_[c].encoded->name(),
               fmt::format("codes into keys  [{} bits]", bits), rows, rows, clock.seconds());
    if (status == TAVO_OUT_OF_RANGE)
        throw error("the groups' keys do not fit 64 bits: group by fewer columns, or by ones with fewer values");
    if (status != TAVO_DONE)
        throw error(fmt::format("tavo_dgk_concatenate_dydi failed with status {}", status));
}

std::vector<std::vector<std::optional<std::string>>> dense_groups::values(const std::vector<ub4> &groups) const {
    const std::size_t n = groups.size();
    std::vector<std::vector<ub4>> codes(columns_.size(), std::vector<ub4>(n));
    std::vector<ub8> addresses;
    std::vector<ub2> lengths;
    if (columns_.size() > 1) {
        dictionaries_.back()->symbols(groups, addresses, lengths, steps_);
        std::vector<ub8> keys(n);
        for (std::size_t i = 0; i < n; i++)
            std::memcpy(&keys[i], std::bit_cast<const void *>(addresses[i]), 8);
        std::vector<ub4 *> out;
        for (std::vector<ub4> &of_column : codes)
            out.push_back(of_column.data());
        const step_clock clock;
        const ub4 status = session_.kernels().ctx().extract_dgk(
            static_cast<ub4>(n), keys.data(), static_cast<ub4>(columns_.size()), fields_.data(), out.data());
        steps_.add("tavo_extract_dgk_dydi", "", fmt::format("keys to codes of {} columns", columns_.size()),
                   static_cast<ub4>(n), static_cast<ub4>(n), clock.seconds());
        if (status != TAVO_DONE)
            throw error(fmt::format("tavo_extract_dgk_dydi failed with status {}", status));
    } else {
        codes[0] = groups;
    }
    std::vector<std::vector<std::optional<std::string>>> values(n);
    for (std::size_t c = 0; c < columns_.size(); c++) {
        if (columns_[c].texts == nullptr) {
            const column &col = *columns_[c].encoded;
            for (std::size_t i = 0; i < n; i++)
                values[i].push_back(codes[c][i] < col.first_code()
                                        ? std::nullopt
                                        : std::optional<std::string>(col.dict().symbols()[codes[c][i]]));
            continue;
        }
        dictionaries_[c]->symbols(codes[c], addresses, lengths, steps_);
        for (std::size_t i = 0; i < n; i++)
            values[i].push_back(
                lengths[i] == 0
                    ? std::nullopt
                    : std::optional<std::string>(std::in_place, std::bit_cast<const char *>(addresses[i]), lengths[i]));
    }
    return values;
}

} // namespace host
