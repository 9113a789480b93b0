// A member of the dictionary scans as the dispatch table has it, the plain meaning of its operator, and one call of it.
#pragma once

#include <bit>
#include <optional>
#include <string>
#include <vector>

#include "frame/dispatch_table.h"
#include "frame/tavo.h"
#include "tests/kit/codes.h"
#include "tests/kit/guarded.h"

namespace tavo::test {

struct scan_member {
    unsigned operation, width;
    bool nullable;

    unsigned index() const { return dispatch_index(operation, TAVO_CLASS_DICT, width_code(width), nullable); }
    bool is_range() const { return operation >= TAVO_OP_GT_LT; }
    std::string name() const { return tavo_dispatch_func_names.name[index()]; }

    bool qualifies(ub8 x, ub8 lo, ub8 hi) const {
        if (nullable && x == 0)
            return false;
        switch (operation) {
        case TAVO_OP_EQ: return x == lo;
        case TAVO_OP_LT: return x < lo;
        case TAVO_OP_GT: return x > lo;
        case TAVO_OP_LE: return x <= lo;
        case TAVO_OP_GE: return x >= lo;
        case TAVO_OP_NE: return x != lo;
        case TAVO_OP_GT_LT: return x > lo && x < hi;
        case TAVO_OP_GT_LE: return x > lo && x <= hi;
        case TAVO_OP_GE_LT: return x >= lo && x < hi;
        default: return x >= lo && x <= hi;
        }
    }

    // Constants are handed over in exactly the bytes that the width names.
    ub4 operator()(tavo_vec *res, tavo_vec *src, ub8 lo, ub8 hi, tavo_env *env) const {
        const std::size_t bytes = width == 8 ? 1 : width == 16 ? 2 : width == 64 ? 8 : 4;
        const guarded lo_data({reinterpret_cast<const ub1 *>(&lo), bytes});
        const guarded hi_data({reinterpret_cast<const ub1 *>(&hi), bytes});
        tavo_vec lo_vec{}, hi_vec{};
        lo_vec.data = lo_data.data();
        hi_vec.data = hi_data.data();
        const tavo_kernel_slot slot = tavo_global_specialized_ctx.dispatch_table[index()];
        return is_range() ? slot.range_scan(res, src, &lo_vec, &hi_vec, env) : slot.scan(res, src, &lo_vec, env);
    }
};

inline std::vector<scan_member> all_scan_members() {
    std::vector<scan_member> members;
    for (unsigned operation = TAVO_OP_EQ; operation <= TAVO_OP_GE_LE; operation++)
        for (unsigned width : code_widths())
            for (bool nullable : {false, true})
                members.push_back({operation, width, nullable});
    return members;
}

// Bits of the rows for which `selected` holds, in whole words, zeros above.
template <class F>
std::vector<ub8> bits_where(ub4 rows, F &&selected) {
    std::vector<ub8> words((rows + 63) / 64, 0);
    for (ub4 r = 0; r < rows; r++)
        if (selected(r))
            words[r / 64] |= 1ull << r % 64;
    return words;
}
inline ub4 population(const std::vector<ub8> &words) {
    ub4 n = 0;
    for (ub8 w : words)
        n += static_cast<ub4>(std::popcount(w));
    return n;
}

// A packed column between unreadable pages: the 3 bytes behind the last code byte are all that may be read.
struct scan_column {
    tavo_enc_ctx enc{};
    tavo_vec src{};
    guarded data;

    scan_column(const std::vector<ub8> &codes, unsigned width, guard side = guard::behind)
        : data(pack_codes(codes, width, 3), side) {
        enc.flags = TAVO_DICT;
        src.enc = &enc;
        src.data = data.data();
        src.size = static_cast<ub4>(codes.size());
    }
};

struct scan_result {
    guarded words;
    tavo_vec res{};

    explicit scan_result(ub4 rows) : words((rows + 63) / 64 * 8) {
        res.bits = words.as<ub8>();
        res.size = rows;
        res.count = 0xdeadbeef;
    }
    std::vector<ub8> bits() const { return {words.as<ub8>(), words.as<ub8>() + words.size() / 8}; }
};

} // namespace tavo::test
