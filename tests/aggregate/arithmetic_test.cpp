// Arithmetic on columns of float and double: all 48 kernels against the operator, row by row or summed in the stated
// order.
#include <gtest/gtest.h>

#include <cfenv>
#include <limits>
#include <string>

#include "frame/dispatch_table.h"
#include "frame/tavo.h"
#include "tests/kit/numbers.h"

namespace tavo::test {
namespace {

struct member {
    ub4 operation, value_type;
    bool a_comparable, b_comparable, sum;

    ub4 index() const {
        return TAVO_DISPATCH_INDEX(TAVO_ARITH_KERNEL_ROW(sum ? TAVO_VARIANT_SECOND : TAVO_VARIANT_PLAIN, value_type,
                                                         a_comparable, b_comparable),
                                   operation);
    }
    std::string name() const {
        static const char *const operators[] = {"add", "sub", "mul"};
        return std::string("tavo_") + operators[operation - TAVO_OP_ADD] + (value_type == 1 ? "_float" : "_double") +
               (a_comparable ? "_c" : "_n") + (b_comparable ? "_c" : "_n") + (sum ? "_sum" : "");
    }
};

template <class F>
void each_member(F &&f) {
    for (ub4 operation : {TAVO_OP_ADD, TAVO_OP_SUB, TAVO_OP_MUL})
        for (ub4 type : {TAVO_VALUE_FLOAT, TAVO_VALUE_DOUBLE})
            for (int forms = 0; forms < 4; forms++)
                for (bool sum : {false, true}) {
                    f(member{operation, type, (forms & 1) != 0, (forms & 2) != 0, sum});
                    if (testing::Test::HasFailure())
                        return;
                }
}

template <class T>
T computed(ub4 operation, T a, T b) {
    return operation == TAVO_OP_ADD ? a + b : operation == TAVO_OP_SUB ? a - b : a * b;
}

// Which operand is a constant; of both, the first is.
enum class constants { none, first, second, both };

template <class T>
void hold_call(const member &m, ub4 rows, constants which, sample kind, bool shift, bool in_place,
               std::mt19937_64 &rng) {
    const bool a_constant = which == constants::first || which == constants::both;
    const bool b_constant = which == constants::second;
    const auto a = random_numbers<T>(a_constant ? 1 : rows, kind, rng);
    const auto b = random_numbers<T>(b_constant ? 1 : rows, kind, rng);
    const stored_numbers<T> a_data(a, m.a_comparable, shift), b_data(b, m.b_comparable, shift);
    tavo_enc_ctx a_enc{}, b_enc{};
    a_enc.flags = a_constant ? TAVO_CONSTANT : 0;
    b_enc.flags = b_constant || which == constants::both ? TAVO_CONSTANT : 0;
    tavo_vec left{}, right{}, res{};
    left.data = a_data.data();
    left.enc = &a_enc;
    left.size = static_cast<ub4>(a_constant ? rng() % 2 : a.size());
    right.data = b_data.data();
    right.enc = &b_enc;
    right.size = static_cast<ub4>(b_constant ? rng() % 2 : b.size());
    const ub4 n = std::max(left.size, right.size);
    if (n != rows)
        return; // a constant that counts as a row, of an empty column

    std::vector<T> expected(rows);
    for (ub4 i = 0; i < rows; i++)
        expected[i] = computed(m.operation, a[a_constant ? 0 : i], b[b_constant ? 0 : i]);
    const T start = random_numbers<T>(1, sample::rounding, rng)[0];
    if (m.sum) {
        const T sum = lane_order_sum(expected, sizeof(T) == 4 ? 8 : 4);
        expected = {start + sum};
    }
    const guarded out(expected.size() * sizeof(T) + (shift ? 1 : 0));
    res.data = out.data();
    if (m.sum)
        std::memcpy(res.data, &start, sizeof start);
    else if (in_place && !a_constant)
        res.data = a_data.data();
    else if (in_place && !b_constant)
        res.data = b_data.data();

    ASSERT_EQ(tavo_dispatch_func_names.name[m.index()], m.name());
    EXPECT_EQ(tavo_global_specialized_ctx.dispatch_table[m.index()].arith(&res, &left, &right, nullptr), TAVO_DONE);
    for (std::size_t i = 0; i < expected.size(); i++) {
        T got;
        std::memcpy(&got, static_cast<const ub1 *>(res.data) + i * sizeof(T), sizeof got);
        ASSERT_TRUE(same_number(got, expected[i]))
            << m.name() << ", row " << i << " of " << rows << ", constants " << static_cast<int>(which) << ": " << got
            << " instead of " << expected[i];
    }
}

TEST(arithmetic, every_member) {
    std::mt19937_64 rng(531);
    each_member([&](const member &m) {
        for (ub4 rows :
             {0u, 1u, 2u, 3u, 4u, 5u, 7u, 8u, 9u, 12u, 15u, 16u, 17u, 24u, 31u, 33u, 63u, 64u, 65u, 200u, 1031u})
            for (constants which : {constants::none, constants::first, constants::second, constants::both})
                for (sample kind : {sample::rounding, sample::special}) {
                    const bool shift = rng() % 2, in_place = rng() % 2;
                    if (m.value_type == TAVO_VALUE_FLOAT)
                        hold_call<float>(m, rows, which, kind, shift, in_place, rng);
                    else
                        hold_call<double>(m, rows, which, kind, shift, in_place, rng);
                }
    });
}

// A host may have unmasked exceptions: lanes without a row raise none.
TEST(Arithmetic, NothingIsRaisedBehindTheLastRow) {
    each_member([](const member &m) {
        if (m.value_type != TAVO_VALUE_FLOAT || m.a_comparable || m.b_comparable)
            return;
        for (ub4 rows = 1; rows < 40; rows++) {
            const float constant = std::numeric_limits<float>::infinity();
            const std::vector<float> twos(rows, 2.0f);
            std::vector<float> out(rows);
            tavo_enc_ctx constant_enc{}, enc{};
            constant_enc.flags = TAVO_CONSTANT;
            tavo_vec left{}, right{}, res{};
            left.data = const_cast<float *>(&constant), left.enc = &constant_enc;
            right.data = const_cast<float *>(twos.data()), right.enc = &enc, right.size = rows;
            res.data = out.data();
            std::feclearexcept(FE_ALL_EXCEPT);
            tavo_global_specialized_ctx.dispatch_table[m.index()].arith(&res, &left, &right, nullptr);
            EXPECT_EQ(std::fetestexcept(FE_INVALID), 0) << m.name() << ", " << rows << " rows";
        }
    });
}

} // namespace
} // namespace tavo::test
