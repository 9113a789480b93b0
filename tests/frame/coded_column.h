// A 12-bit column with its records filled in as a host does it, for the tests of what surrounds a scan.
#pragma once

#include <gtest/gtest.h>

#include <vector>

#include "frame/dispatch_table.h"
#include "tests/kit/codes.h"
#include "tests/kit/host_stub.h"

namespace tavo::test {

struct coded_column {
    explicit coded_column(std::vector<ub8> row_codes) : codes(std::move(row_codes)), stream(pack_codes(codes, 12, 3)) {
        enc.kernel_row = TAVO_KERNEL_ROW(TAVO_VARIANT_PLAIN, tavo::width_code(12), TAVO_CLASS_DICT);
        enc.flags = TAVO_DICT | TAVO_PACKED_KEYS;
        enc.width_bits = 12;
        src.data = stream.data();
        src.enc = &enc;
        src.size = res.size = static_cast<ub4>(codes.size());
        bits.assign((codes.size() + 63) / 64, ~0ull);
        res.bits = bits.data();
    }
    coded_column(const coded_column &) = delete;

    tavo_kernel_slot kernel(tavo_operation operation) const {
        return tavo_global_specialized_ctx.dispatch_table[TAVO_DISPATCH_INDEX(enc.kernel_row, operation)];
    }
    ub4 eq(ub4 code, tavo_env *env) {
        tavo_vec constant{};
        constant.data = &code;
        return kernel(TAVO_OP_EQ).scan(&res, &src, &constant, env);
    }
    ub4 ge_le(ub4 low, ub4 high, tavo_env *env) {
        tavo_vec lo{}, hi{};
        lo.data = &low;
        hi.data = &high;
        return kernel(TAVO_OP_GE_LE).range_scan(&res, &src, &lo, &hi, env);
    }
    // The bit vector of the rows for which `row_counts(row)` holds.
    template <class Predicate>
    std::vector<ub8> rows_where(Predicate row_counts) const {
        std::vector<ub8> out((codes.size() + 63) / 64, 0);
        for (std::size_t r = 0; r < codes.size(); r++)
            if (row_counts(r))
                out[r / 64] |= 1ull << r % 64;
        return out;
    }

    std::vector<ub8> codes;
    std::vector<ub1> stream;
    tavo_enc_ctx enc{};
    tavo_vec src{}, res{};
    std::vector<ub8> bits; // res.bits
};

} // namespace tavo::test
