// A column of byte strings in any of the element layouts, between unreadable pages, as source and as output.
#pragma once

#include <string>
#include <vector>

#include "frame/tavo.h"
#include "tests/kit/guarded.h"

namespace tavo::test {

inline const std::vector<ub4> &element_layouts() {
    static const std::vector<ub4> layouts = {TAVO_LP, TAVO_LP_SEP, TAVO_LV, TAVO_LV_SEP, TAVO_FIXED};
    return layouts;
}
inline bool is_walked(ub4 layout) { return layout == TAVO_LV || layout == TAVO_LV_SEP; }

// Bytes that an element takes in the data of its column.
inline std::size_t bytes_in_data(ub4 layout, std::size_t length) {
    switch (layout) {
    case TAVO_LP: return 10;
    case TAVO_LP_SEP: return 8;
    case TAVO_LV: return 2 + length;
    default: return length;
    }
}

struct element_column {
    ub4 layout;
    std::vector<guarded> pool; // what the pointers of LP columns lead to, each element with its own page behind it
    guarded data, lengths;
    tavo_enc_ctx enc{};
    tavo_vec vec{};

    // `spare` readable bytes follow each element, or the last one where they lie back to back.
    element_column(ub4 of_layout, const std::vector<std::string> &elements, std::size_t spare = 0)
        : layout(of_layout), data(std::size_t{0}), lengths(elements.size() * 2) {
        std::vector<ub1> bytes;
        const auto append = [&](const void *p, std::size_t n) {
            bytes.insert(bytes.end(), static_cast<const ub1 *>(p), static_cast<const ub1 *>(p) + n);
        };
        for (std::size_t r = 0; r < elements.size(); r++) {
            const std::string &e = elements[r];
            const auto length = static_cast<ub2>(e.size());
            std::memcpy(lengths.data() + 2 * r, &length, 2);
            if (layout == TAVO_LP || layout == TAVO_LV)
                append(&length, 2);
            if (layout == TAVO_LP || layout == TAVO_LP_SEP) {
                pool.emplace_back(e.size() + spare);
                std::memcpy(pool.back().data(), e.data(), e.size());
                const ub1 *address = pool.back().data();
                append(&address, 8);
            } else {
                append(e.data(), e.size());
            }
        }
        if (is_walked(layout) || layout == TAVO_FIXED)
            bytes.resize(bytes.size() + spare, 0x77);
        data = guarded(bytes);
        enc.flags = layout;
        enc.width_bits = layout == TAVO_FIXED && !elements.empty() ? 8 * static_cast<ub4>(elements[0].size()) : 0;
        for (const std::string &e : elements)
            enc.max_len = std::max(enc.max_len, static_cast<ub2>(e.size()));
        vec.enc = &enc;
        vec.data = data.data();
        vec.lengths = lengths.as<ub2>();
        vec.size = static_cast<ub4>(elements.size());
    }
    element_column(const element_column &) = delete;
};

} // namespace tavo::test
