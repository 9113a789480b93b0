#include "host/join/translation.h"

#include <algorithm>
#include <cstring>
#include <fmt/format.h>

#include "host/error.h"

namespace host {

namespace {

constexpr const char *element_names[] = {"bit", "nib", "ub1", "ub2", "ub4"};

template <class Narrow>
void widen(const std::vector<ub1> &narrow, ub4 rows, ub4 *out) {
    for (std::size_t row = 0; row < rows; row++) {
        Narrow value;
        std::memcpy(&value, &narrow[row * sizeof value], sizeof value);
        out[row] = value;
    }
}

} // namespace

translation::translation(const std::vector<ub4> &partners) {
    ub4 largest = 0;
    const auto has_partner = [&](std::size_t code) { return partners[code] != no_partner; };
    std::vector<bool> leaf_used((partners.size() >> leaf_bits) + 1);
    bool any = false;
    for (std::size_t code = 0; code < partners.size(); code++)
        if (has_partner(code)) {
            ctx_.low = any ? ctx_.low : static_cast<ub4>(code);
            ctx_.high = static_cast<ub4>(code);
            any = true;
            largest = std::max(largest, partners[code]);
            leaf_used[code >> leaf_bits] = true;
        }
    element_ = largest < 15       ? element::nibble
               : largest < 0xff   ? element::byte
               : largest < 0xffff ? element::two_bytes
                                  : element::four_bytes;
    // No code at all: low is above high, and no entry is looked at.
    const std::size_t range = any ? ctx_.high - ctx_.low + 1 : 1;
    const auto leaves = static_cast<std::size_t>(std::count(leaf_used.begin(), leaf_used.end(), true));
    const std::size_t tops = any ? (ctx_.high >> leaf_bits) + 1 : 0;
    const std::size_t leaf = std::size_t{1} << leaf_bits;
    if (any && leaves * bytes_for(leaf) + tops * sizeof(void *) < bytes_for(range) / 2)
        lookup_ = lookup::ind;
    else if (any && ctx_.low > range / 4)
        lookup_ = lookup::off;

    if (lookup_ == lookup::ind) {
        leaf_places_.resize(tops, nullptr);
        leaves_.reserve(leaves);
        for (std::size_t top = 0; top < tops; top++) {
            if (!leaf_used[top])
                continue;
            leaves_.emplace_back(bytes_for(leaf), ub1{0xff});
            for (std::size_t code = top * leaf; code < std::min((top + 1) * leaf, partners.size()); code++)
                if (has_partner(code))
                    put(leaves_.back(), code % leaf, partners[code]);
            leaf_places_[top] = leaves_.back().data();
        }
        entries_ = leaves * leaf;
        return;
    }
    const std::size_t first = lookup_ == lookup::off ? ctx_.low : 0;
    entries_ = any ? ctx_.high - first + 1 : 1;
    table_.assign(bytes_for(entries_), 0xff);
    for (std::size_t code = first; any && code <= ctx_.high; code++)
        if (has_partner(code))
            put(table_, code - first, partners[code]);
}

std::size_t translation::bytes_for(std::size_t entries) const {
    switch (element_) {
    case element::nibble: return (entries + 1) / 2;
    case element::byte: return entries;
    case element::two_bytes: return entries * 2;
    case element::four_bytes: break;
    }
    return entries * 4;
}

void translation::put(std::vector<ub1> &table, std::size_t i, ub4 partner) const {
    if (element_ == element::nibble) {
        const unsigned shift = i % 2 * 4;
        table[i / 2] = static_cast<ub1>((table[i / 2] & ~(15u << shift)) | partner << shift);
        return;
    }
    std::memcpy(&table[bytes_for(i)], &partner, bytes_for(1)); // the low bytes come first
}

std::string translation::kernel_name() const {
    return fmt::format("tavo_xlate_{}_{}_c2d",
                       lookup_ == lookup::sim   ? "sim"
                       : lookup_ == lookup::off ? "off"
                                                : "ind",
                       element_names[static_cast<int>(element_)]);
}

std::string translation::describe() const {
    if (ctx_.low > ctx_.high)
        return "codes to the other column's  [no code has a partner]";
    return fmt::format("codes to the other column's  [codes {} to {}, {} entries]", ctx_.low, ctx_.high, entries_);
}

ub4 translation::run(session &s, const std::string &column, const ub4 *codes, ub4 rows, bool selected,
                     std::vector<ub8> &bits, std::vector<ub4> &out, step_list &steps) {
    tavo_xlate_fn *const kernel =
        s.kernels()
            .kernel(TAVO_KERNEL_ROW(TAVO_VARIANT_SECOND, static_cast<int>(element_), static_cast<int>(lookup_)),
                    TAVO_OP_XLATE)
            .xlate;
    if (kernel == nullptr)
        throw error(fmt::format("{} has no kernel {}", s.kernels().path(), kernel_name()));
    codes_.resize(rows);
    std::transform(codes, codes + rows, codes_.begin(), [](ub4 code) { return __builtin_bswap32(code); });
    out.resize(rows + 16ull);
    const bool wide = element_ == element::four_bytes;
    if (!wide)
        narrow_.resize(rows * std::max<std::size_t>(bytes_for(1), 1));
    tavo_enc_ctx enc{};
    enc.flags = TAVO_HASHES;
    enc.width_bits = 32;
    ub4 extent[2];
    tavo_vec res{}, src{}, dict{};
    res.bits = bits.data();
    res.data = extent;
    res.size = rows;
    src.enc = &enc;
    src.data = codes_.data();
    src.size = rows;
    dict.bits =
        lookup_ == lookup::ind ? reinterpret_cast<ub8 *>(leaf_places_.data()) : reinterpret_cast<ub8 *>(table_.data());
    tavo_env env{};
    env.host = s.record();
    if (selected)
        env.sel_bits = bits.data();
    env.xlate_ctx = &ctx_;
    env.xlate_out = wide ? static_cast<void *>(out.data()) : narrow_.data();
    const step_clock clock;
    const ub4 status = kernel(&res, &src, &dict, &env);
    const double seconds = clock.seconds();
    s.throw_raised();
    if (status != TAVO_DONE && status != TAVO_NONE_SELECTED)
        throw error(fmt::format("{} failed with status {}", kernel_name(), status));
    steps.add(kernel_name(), column, describe(), rows, res.count, seconds);
    if (element_ == element::nibble || element_ == element::byte)
        widen<ub1>(narrow_, rows, out.data());
    else if (element_ == element::two_bytes)
        widen<ub2>(narrow_, rows, out.data());
    return res.count;
}

} // namespace host
