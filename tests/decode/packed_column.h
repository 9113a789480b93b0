// A packed column in guarded memory, with its records filled in as a host does it.
#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "frame/dispatch_table.h"
#include "frame/tavo.h"
#include "tests/kit/codes.h"
#include "tests/kit/guarded.h"

namespace tavo::test {

// The widths of the decode kernels.
inline std::vector<unsigned> decode_widths() {
    std::vector<unsigned> widths = code_widths();
    std::erase(widths, 64u);
    return widths;
}

// Bytes behind the last code byte that decoding may read: what a 4-byte read of a code has behind it, nothing where
// codes are bits or whole elements.
inline std::size_t code_slack(unsigned width) { return width == 1 || width == 8 || width == 16 || width == 32 ? 0 : 3; }

template <class T>
guarded guarded_copy(const std::vector<T> &content, guard side = guard::behind) {
    return guarded({reinterpret_cast<const ub1 *>(content.data()), content.size() * sizeof(T)}, side);
}

struct packed_column {
    // Codes and `slack` bytes of noise end at an unreadable page.
    packed_column(unsigned width, std::vector<ub8> row_codes, std::size_t slack)
        : width(width), codes(std::move(row_codes)), stream(pack_codes(codes, width, slack)) {
        enc.kernel_row = TAVO_KERNEL_ROW(TAVO_VARIANT_PLAIN, width_code(width), TAVO_CLASS_DICT);
        enc.flags = TAVO_DICT | TAVO_PACKED_KEYS;
        enc.width_bits = width;
        src.data = stream.data();
        src.enc = &enc;
        src.size = static_cast<ub4>(codes.size());
    }
    packed_column(const packed_column &) = delete;

    ub4 call(tavo_operation operation, tavo_vec *dst, tavo_env *env) {
        const auto index = TAVO_DISPATCH_INDEX(enc.kernel_row, operation);
        return tavo_global_specialized_ctx.dispatch_table[index].row_move(dst, &src, env);
    }
    std::string name(tavo_operation operation) const {
        return tavo_dispatch_func_names.name[TAVO_DISPATCH_INDEX(enc.kernel_row, operation)];
    }

    unsigned width;
    std::vector<ub8> codes;
    guarded stream;
    tavo_enc_ctx enc{};
    tavo_vec src{};
};

} // namespace tavo::test
