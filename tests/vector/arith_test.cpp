// The kernels of vector arithmetic: which there are, every one of them against the model, what a failure leaves behind.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <set>

#include "frame/tavo.h"
#include "tests/vector/arith_model.h"
#include "vector/arith_dispatch.h"

namespace tavo::test {
namespace {

constexpr ub4 types[] = {TAVO_ELEM_FLOAT, TAVO_ELEM_DOUBLE, TAVO_ELEM_INT8};

TEST(ArithDispatch, HasAKernelOfItsOwnForEveryMember) {
    std::set<void *> found;
    for (ub4 op = 0; op < 40; op++)
        for (ub4 a = 0; a < 12; a++)
            for (ub4 b = 0; b < 12; b++)
                for (ub4 r = 0; r < 12; r++)
                    for (ub4 flags = 0; flags < 32; flags++) {
                        const ub4 ac = flags & 1, bc = flags >> 1 & 1, rc = flags >> 2 & 1;
                        auto *const kernel = tavo_vector_arith_dispatch(op, a, ac, 0, b, bc, 0, flags >> 3 & 1, r, rc,
                                                                        0, flags >> 4 & 1);
                        const auto number = [](ub4 t) { return t == 1 || t == 2 || t == 5; };
                        const bool fits = r == TAVO_ELEM_DOUBLE ||
                                          (r == TAVO_ELEM_FLOAT && a != TAVO_ELEM_DOUBLE && b != TAVO_ELEM_DOUBLE) ||
                                          (a == TAVO_ELEM_INT8 && b == TAVO_ELEM_INT8);
                        ASSERT_EQ(kernel != nullptr,
                                  op >= 19 && op <= 22 && number(a) && number(b) && number(r) && fits)
                            << op << " " << a << " " << b << " " << r;
                        found.insert(reinterpret_cast<void *>(kernel));
                    }
    found.erase(nullptr);
    EXPECT_EQ(found.size(), 1104u);
    EXPECT_EQ(tavo_vector_arith_dispatch(19, 5, 0, 0, 5, 1, 0, 0, 5, 0, 0, 0),
              tavo_vector_arith_dispatch(19, 5, 1, 0, 5, 0, 0, 0, 5, 1, 0, 0));
    for (ub4 layout : {1u, 2u, 3u}) {
        EXPECT_EQ(tavo_vector_arith_dispatch(19, 1, 0, layout, 1, 0, 0, 0, 1, 0, 0, 0), nullptr);
        EXPECT_EQ(tavo_vector_arith_dispatch(19, 1, 0, 0, 1, 0, layout, 0, 1, 0, 0, 0), nullptr);
        EXPECT_EQ(tavo_vector_arith_dispatch(19, 1, 0, 0, 1, 0, 0, 0, 1, 0, layout, 0), nullptr);
    }
}

plain_vector as_read(plain_vector v, bool comparable) {
    if (comparable)
        for (ub8 &e : v.elements)
            e = through_comparable(v.type, e);
    return v;
}

bool same_number(ub4 type, ub8 a, ub8 b) {
    return a == b || (std::isnan(number_of(type, a)) && std::isnan(number_of(type, b)));
}

// One member on one pair of operands, both of which end at unreadable pages, as does the output.
void hold(ub4 op, const plain_vector &a, bool ac, const plain_vector &b, bool bc, bool scalar, ub4 r_type, bool rc,
          bool norm, const std::string &what) {
    static guarded_payload a_memory, b_memory;
    const ub1 *const a_bytes = a_memory.place(a, {a.type, ac, false}), *const b_bytes =
                                                                           b_memory.place(b, {b.type, bc, false});
    auto *const kernel = tavo_vector_arith_dispatch(op, a.type, ac, 0, b.type, bc, 0, scalar, r_type, rc, 0, norm);
    ASSERT_NE(kernel, nullptr);
    const arith_result want = arith_model(op, as_read(a, ac), as_read(b, bc), scalar, r_type, norm);

    const unsigned width = element_bytes(r_type);
    const guarded out(width * a.dims);
    constexpr double stale = -3.25;
    double norm_out = stale;
    const ub4 status = kernel(a.dims, a_bytes, b_bytes, out.data(), &norm_out);
    ASSERT_EQ(status, want.status) << what;
    if (norm && status == 0)
        ASSERT_EQ(std::bit_cast<ub8>(norm_out), std::bit_cast<ub8>(want.norm)) << what << " " << norm_out;
    else
        ASSERT_EQ(norm_out, stale) << what;
    std::vector<ub1> bytes;
    write_payload(bytes, {r_type, static_cast<ub4>(want.written.size()), want.written, {}}, {r_type, rc, false}, 0);
    bytes.resize(width * a.dims, 0xa5);
    for (std::size_t i = 0; i < a.dims; i++) {
        ub8 got = 0, due = 0;
        std::memcpy(&got, out.data() + width * i, width);
        std::memcpy(&due, bytes.data() + width * i, width);
        ASSERT_TRUE(got == due || (!rc && same_number(r_type, got, due)))
            << what << ": element " << i << " is " << std::hex << got << " and not " << due;
    }
}

// Few zeros and small numbers, so that integers stay in range now and then.
void tame(plain_vector &v, std::mt19937_64 &rng, int reach) {
    for (ub8 &e : v.elements)
        e = static_cast<ub1>(static_cast<int>(rng() % (2 * reach + 1)) - reach);
}

TEST(ArithKernels, EveryMemberAgreesWithTheModel) {
    std::mt19937_64 rng(98);
    constexpr ub4 sizes[] = {0,  1,  2,  7,  8,  9,   15,  16,  17,  31,  32,  33,  39,  40,
                             63, 64, 65, 79, 80, 127, 128, 130, 255, 256, 257, 300, 513, 801};
    int failures = 0, zero_divisions = 0, done = 0;
    for (ub4 op = TAVO_VECTOR_ADD; op <= TAVO_VECTOR_DIV; op++)
        for (const ub4 a_type : types)
            for (const ub4 b_type : types)
                for (const ub4 r_type : types)
                    for (ub4 flags = 0; flags < 32; flags++) {
                        const bool ac = flags & 1, bc = flags & 2, rc = flags & 4, scalar = flags & 8,
                                   norm = flags & 16;
                        if (tavo_vector_arith_dispatch(op, a_type, ac, 0, b_type, bc, 0, scalar, r_type, rc, 0, norm) ==
                            nullptr)
                            continue;
                        for (int round = 0; round < 12; round++) {
                            const ub4 dims = sizes[rng() % std::size(sizes)];
                            const content kind = round % 4 == 3 ? content::odd : content::ordinary;
                            plain_vector a = random_dense(a_type, dims, kind, rng);
                            plain_vector b = random_dense(b_type, scalar ? 1 : dims, kind, rng);
                            if (a_type == TAVO_ELEM_INT8 && round % 3 != 0)
                                tame(a, rng, round % 3 == 1 ? 3 : 63);
                            if (b_type == TAVO_ELEM_INT8 && round % 3 != 0) {
                                tame(b, rng, round % 3 == 1 ? 3 : 63);
                                for (ub8 &e : b.elements)
                                    if (op == TAVO_VECTOR_DIV && e == 0 && rng() % 4 != 0)
                                        e = 2;
                            }
                            if (round == 5 && dims != 0 && a_type == TAVO_ELEM_FLOAT) // beyond binary32 at one place
                                a.elements[rng() % dims] = 0x7f7fffff;
                            const std::string what = "op " + std::to_string(op) + ", types " + std::to_string(a_type) +
                                                     " " + std::to_string(b_type) + " " + std::to_string(r_type) +
                                                     ", flags " + std::to_string(flags) + ", dims " +
                                                     std::to_string(dims);
                            ASSERT_NO_FATAL_FAILURE(hold(op, a, ac, b, bc, scalar, r_type, rc, norm, what));
                            const ub4 status =
                                arith_model(op, as_read(a, ac), as_read(b, bc), scalar, r_type, norm).status;
                            failures += status == TAVO_OUT_OF_RANGE;
                            zero_divisions += status == TAVO_DIVISION_BY_ZERO;
                            done++;
                        }
                    }
    // All ways out are taken often.
    EXPECT_GT(failures, done / 20);
    EXPECT_GT(zero_divisions, done / 400);
    EXPECT_GT(done - failures - zero_divisions, done / 2);
}

TEST(ArithKernels, Int8OfEveryPair) {
    std::mt19937_64 rng(5);
    for (ub4 op = TAVO_VECTOR_ADD; op <= TAVO_VECTOR_DIV; op++)
        for (int b = -128; b < 128; b++) {
            plain_vector left{TAVO_ELEM_INT8, 1, {0}, {}}, right{TAVO_ELEM_INT8, 1, {static_cast<ub1>(b)}, {}};
            for (int a = -128; a < 128; a++) {
                left.elements[0] = static_cast<ub1>(a);
                ASSERT_NO_FATAL_FAILURE(hold(op, left, false, right, false, a & 1, TAVO_ELEM_INT8, false, b & 1,
                                             std::to_string(op) + ": " + std::to_string(a) + ", " + std::to_string(b)));
            }
        }
}

// A culprit at every place of a vector: what stands before it is written, no element of its block is.
TEST(ArithKernels, AFailureAtEveryPlace) {
    std::mt19937_64 rng(6);
    const struct {
        ub4 type;
        ub8 culprit;
    } cases[] = {{TAVO_ELEM_FLOAT, 0x7f800000}, {TAVO_ELEM_DOUBLE, 0x7ff8000000000001}, {TAVO_ELEM_INT8, 100}};
    for (const auto &c : cases)
        for (const ub4 dims : {23u, 131u, 300u}) {
            plain_vector a = random_dense(c.type, dims, content::ordinary, rng);
            if (c.type == TAVO_ELEM_INT8)
                tame(a, rng, 27);
            for (ub4 at = 0; at < dims; at++) {
                plain_vector b = a;
                b.elements[at] = a.elements[at] = c.culprit;
                ASSERT_NO_FATAL_FAILURE(hold(TAVO_VECTOR_ADD, a, false, b, false, false, c.type, false, at & 1,
                                             "culprit at " + std::to_string(at) + " of " + std::to_string(dims)));
                a.elements[at] = 1;
            }
        }
}

// Of a quotient beyond int8 and a division by zero.
TEST(ArithKernels, TheFirstFailureIsTold) {
    const plain_vector a{TAVO_ELEM_INT8, 2, {0x80, 0x80}, {}};
    for (ub8 first : {0x00u, 0xffu})
        hold(TAVO_VECTOR_DIV, a, false, {TAVO_ELEM_INT8, 2, {first, first ^ 0xff}, {}}, false, false, TAVO_ELEM_INT8,
             false, false, "first divisor " + std::to_string(first));
}

ub4 divide(ub4 dims, signed char x, signed char y, bool scalar, std::vector<float> &out) {
    const std::vector<signed char> a(dims, x), b(dims, y);
    out.assign(dims, -1.0f);
    return tavo_vector_arith_dispatch(TAVO_VECTOR_DIV, 5, 0, 0, 5, 0, 0, scalar, 1, 0, 0, 0)(dims, a.data(), b.data(),
                                                                                             out.data(), nullptr);
}

// Stated examples, not by way of the model.
TEST(ArithKernels, DivisionOfIntegersIsSplit) {
    std::vector<float> out;
    EXPECT_EQ(divide(64, 1, 2, false, out), 0u);
    EXPECT_EQ(out, std::vector<float>(64, 0.5f));
    EXPECT_EQ(divide(1, 1, 2, false, out), 0u);
    EXPECT_EQ(out[0], 0.0f);
    EXPECT_EQ(divide(19, -7, 2, false, out), 0u);
    EXPECT_EQ(out[15], -3.5f);
    EXPECT_EQ(out[16], -3.0f);
    EXPECT_EQ(divide(3, 1, 2, true, out), 0u);
    EXPECT_EQ(out[2], 0.5f); // by one number: no split
    EXPECT_EQ(divide(64, 1, 0, false, out), 0u);
    EXPECT_TRUE(std::isinf(out[63])) << "silently";
    EXPECT_EQ(divide(65, 0, 0, false, out), TAVO_DIVISION_BY_ZERO);
    EXPECT_TRUE(std::isnan(out[63]));
    EXPECT_EQ(out[64], -1.0f);
    EXPECT_EQ(divide(64, 1, 0, true, out), TAVO_DIVISION_BY_ZERO);
    EXPECT_EQ(out[0], -1.0f);
}

} // namespace
} // namespace tavo::test
