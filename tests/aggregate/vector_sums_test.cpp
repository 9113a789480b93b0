// Sums of small values and running sums, against the obvious loops.
#include <gtest/gtest.h>

#include "frame/tavo.h"
#include "tests/kit/codes.h"
#include "tests/kit/compressed_column.h"
#include "tests/kit/guarded.h"
#include "tests/kit/host_stub.h"

namespace tavo::test {
namespace {

const tavo_specialized_ctx &library = tavo_global_specialized_ctx;

TEST(sum_vec, bytes_and_pairs_of_bytes) {
    std::mt19937_64 rng(5201);
    for (unsigned bytes : {1u, 2u})
        for (ub4 rows : boundary_sizes())
            for (ub4 start : {0u, 1u, 2u, 3u, 64u, rows, rows + 1})
                for (unsigned share_of_large : {0u, 1u}) {
                    guarded data(rows * bytes);
                    for (ub1 &b : data.bytes())
                        b = static_cast<ub1>(share_of_large != 0 && rng() % 2 ? 0xff : rng());
                    const ub4 before = static_cast<ub4>(rng());
                    ub4 expected = before;
                    // So many rows are left, and they begin that many bytes down the column.
                    for (ub4 i = 0; start < rows && i < rows - start; i++) {
                        const ub1 *p = data.data() + start + i * bytes;
                        expected += bytes == 1 ? *p : static_cast<ub4>(*p << 8 | p[1]);
                    }
                    tavo_enc_ctx enc{};
                    enc.width_code = bytes == 1 ? 7 : 15;
                    tavo_env env{};
                    env.resume_row = start;
                    ub4 got = before;
                    tavo_vec src{}, res{};
                    src.data = data.data();
                    src.enc = &enc;
                    src.size = rows;
                    res.data = &got;
                    EXPECT_EQ(library.sum_vec(&res, &src, &env), TAVO_DONE);
                    ASSERT_EQ(got, expected) << bytes << " bytes, " << rows << " rows from " << start;
                    EXPECT_EQ(env.resume_row, start);
                }
}

TEST(sum_vec, other_widths_add_nothing) {
    for (ub1 width_code : {0, 6, 8, 14, 16, 21, 22}) {
        tavo_enc_ctx enc{};
        enc.width_code = width_code;
        tavo_env env{};
        tavo_vec src{}, res{};
        ub4 sum = 17;
        src.enc = &enc;
        src.size = 1000;
        res.data = &sum;
        EXPECT_EQ(library.sum_vec(&res, &src, &env), TAVO_DONE);
        EXPECT_EQ(sum, 17u) << width_code;
    }
}

TEST(prefix_sum_vec, against_the_loop) {
    std::mt19937_64 rng(5202);
    for (ub4 rows : boundary_sizes())
        for (bool with_context : {false, true}) {
            guarded data(rows * 4), out((rows + 1) * 4);
            std::vector<ub4> expected = {0};
            for (ub4 i = 0; i < rows; i++) {
                data.as<ub4>()[i] = static_cast<ub4>(rng() >> rng() % 32);
                expected.push_back(expected.back() + data.as<ub4>()[i]);
            }
            tavo_enc_ctx enc{};
            tavo_vec src{}, res{};
            src.data = data.data();
            src.enc = with_context ? &enc : nullptr;
            src.size = rows;
            res.data = out.data();
            EXPECT_EQ(library.prefix_sum_vec(&res, &src, nullptr), TAVO_DONE);
            ASSERT_EQ(std::vector<ub4>(out.as<ub4>(), out.as<ub4>() + rows + 1), expected) << rows;
        }
}

TEST(vector_sums, compressed_columns) {
    std::vector<ub1> plain(4096);
    for (std::size_t i = 0; i < plain.size(); i++)
        plain[i] = static_cast<ub1>(i / 4 % 7);
    compressed_column col(plain, 4096);
    col.enc.width_code = 7;
    tavo_vec res{};
    ub4 sum = 0, expected = 0;
    res.data = &sum;
    for (ub1 v : plain)
        expected += v;
    library.sum_vec(&res, &col.vec, &col.env);
    EXPECT_EQ(sum, expected);
    ASSERT_EQ(col.host.allocations.size(), 1u);
    EXPECT_EQ(col.host.allocations[0].label, "tavo_sum_vec_dydi: vec1_decomp");
    std::vector<ub4> sums(1025);
    col.vec.size = 1024;
    res.data = sums.data();
    library.prefix_sum_vec(&res, &col.vec, &col.env);
    EXPECT_EQ(col.host.allocations.size(), 1u); // the slot is filled
    EXPECT_EQ(sums[7], 0x01010101u * 21);
}

} // namespace
} // namespace tavo::test
