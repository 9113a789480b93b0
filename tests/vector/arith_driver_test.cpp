// The arithmetic operation: operands' shapes, the walks of every driver, the order of operands, norms, dropped rows.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>

#include "tests/vector/arith_model.h"
#include "tests/vector/vector_column.h"

namespace tavo::test {
namespace {

const tavo_specialized_ctx &lib = tavo_global_specialized_ctx;
constexpr ub4 ops[] = {TAVO_VECTOR_ADD, TAVO_VECTOR_SUB, TAVO_VECTOR_MUL, TAVO_VECTOR_DIV};
constexpr double stale = -1234.5;

// The rows of a call: by bits, by a list, or all from a row on.
struct rows_of_call {
    std::vector<ub8> bits, valid;
    std::vector<ub4> rows;
    tavo_env env{};
    ub4 after; // where resume_row is to end

    rows_of_call(int way, ub4 n, std::mt19937_64 &rng) : bits(n / 64 + 1), valid(n / 64 + 1, ~0ull) {
        const ub4 from = n == 0 ? 0 : static_cast<ub4>(rng() % (n + 1)) / 3;
        for (ub4 r = 0; r < n; r++)
            if (way == 2 || rng() % 3 != 0) {
                rows.push_back(r);
                bits[r / 64] |= 1ull << r % 64;
            }
        env.valid_rows = valid.data();
        env.resume_row = from;
        after = n;
        if (way == 0) {
            env.sel_bits = bits.data();
            std::erase_if(rows, [&](ub4 r) { return r < from; });
            after = rows.empty() ? from : rows.back() + 1;
        } else if (way == 1) {
            env.ones_vec_size = static_cast<ub4>(rows.size());
            after = std::max(from, env.ones_vec_size);
            list_.reserve(rows.size() + 1); // an empty list is a list all the same
            list_ = rows;
            env.ones_vec = list_.data();
            rows.erase(rows.begin(), rows.begin() + std::min<std::size_t>(from, rows.size()));
        } else {
            rows.erase(rows.begin(), rows.begin() + from);
        }
    }
    rows_of_call(const rows_of_call &) = delete;

private:
    std::vector<ub4> list_;
};

ub8 as_stored(double v, bool native) {
    if (native || v == stale)
        return std::bit_cast<ub8>(native ? v : std::bit_cast<double>(__builtin_bswap64(~std::bit_cast<ub8>(v))));
    return __builtin_bswap64(std::bit_cast<ub8>(v) | 1ull << 63); // norms are not negative
}

plain_vector as_read(plain_vector v, bool comparable) {
    if (comparable)
        for (ub8 &e : v.elements)
            e = through_comparable(v.type, e);
    return v;
}

// Small whole numbers, or anything.
plain_vector numbers(ub4 type, ub4 dims, bool wild, std::mt19937_64 &rng) {
    plain_vector v = random_dense(type, dims, wild ? content::odd : content::ordinary, rng);
    if (!wild)
        for (ub8 &e : v.elements)
            e = bits_of(type, static_cast<double>(static_cast<int>(rng() % 19) - 9) + (rng() % 8 == 0 ? 0.5 : 0.0));
    return v;
}

struct norm_column {
    std::vector<double> values;
    tavo_enc_ctx enc{};
    tavo_vec vec{};
    norm_column(ub4 n, bool native) : values(n, stale) {
        enc.flags = native ? TAVO_NATIVE : 0;
        vec.data = values.data(), vec.size = n, vec.enc = &enc;
    }
    norm_column(const norm_column &) = delete;
};

// ---- Uniform ----

TEST(ArithDriver, UniformColumns) {
    std::mt19937_64 rng(11);
    int stopped = 0, whole = 0;
    for (int round = 0; round < 3000; round++) {
        const ub4 types[] = {TAVO_ELEM_FLOAT, TAVO_ELEM_DOUBLE, TAVO_ELEM_INT8};
        const ub4 a_type = types[rng() % 3], b_type = types[rng() % 3], op = ops[rng() % 4];
        ub4 r_type = TAVO_ELEM_DOUBLE;
        if (a_type != TAVO_ELEM_DOUBLE && b_type != TAVO_ELEM_DOUBLE && rng() % 2)
            r_type = TAVO_ELEM_FLOAT;
        if (a_type == TAVO_ELEM_INT8 && b_type == TAVO_ELEM_INT8 && rng() % 2)
            r_type = TAVO_ELEM_INT8;
        const ub4 n = rng() % 8 == 0 ? 1 : static_cast<ub4>(rng() % 40), dims = static_cast<ub4>(rng() % 70);
        const int shape = static_cast<int>(rng() % 4); // paired, single right, single left, number right
        const bool ac = rng() % 2, bc = rng() % 2, rc = rng() % 2, wild = rng() % 8 == 0, scratch = rng() % 2;
        std::vector<plain_vector> a, b, out;
        for (ub4 r = 0; r < (shape == 2 ? 1 : n); r++)
            a.push_back(numbers(a_type, dims, wild, rng));
        for (ub4 r = 0; r < (shape == 0 ? n : shape == 2 ? n : 1); r++)
            b.push_back(numbers(b_type, shape == 3 ? 1 : dims, wild, rng));
        for (ub4 r = 0; r < n; r++)
            out.push_back({r_type, dims, std::vector<ub8>(dims, 0x77), {}});
        vector_column left(a, {a_type, ac, false}), right(b, {b_type, bc, false}), result(out, {r_type, rc, false});
        left.enc.vec_dims = result.enc.vec_dims = right.enc.vec_dims = dims;
        result.vec.size = 0; // no cap
        if (shape == 3) {
            right.enc.flags = TAVO_CONSTANT | (bc ? 0 : TAVO_NATIVE);
            right.vec.data = right.pointers[0];
        }
        const bool with_norms = rng() % 2, native_norms = rng() % 2;
        norm_column norms(n, native_norms);
        rows_of_call call(static_cast<int>(rng() % 3), n, rng);
        const ub4 from = call.env.resume_row;
        std::vector<ub8> memory(dims + 8);
        const ub4 status = lib.vector_arith(&result.vec, with_norms ? &norms.vec : nullptr, &left.vec, &right.vec, op,
                                            &call.env, scratch ? memory.data() : nullptr);
        if (shape == 2 && n == 0) { // one row and none
            ASSERT_EQ(status, TAVO_UNSUPPORTED);
            continue;
        }
        ub4 want = 0;
        std::vector<double> due_norms(n, stale);
        for (ub4 r : call.rows) {
            const plain_vector x = as_read(a[shape == 2 ? 0 : r], ac),
                               y = as_read(b[shape == 0 || shape == 2 ? r : 0], bc);
            const arith_result due = arith_model(op, x, y, shape == 3, r_type, with_norms);
            std::vector<ub1> bytes;
            write_payload(bytes, {r_type, static_cast<ub4>(due.written.size()), due.written, {}}, {r_type, rc, false},
                          0);
            ASSERT_TRUE(std::equal(bytes.begin(), bytes.end(), static_cast<const ub1 *>(result.pointers[r])))
                << "row " << r << ", shape " << shape << ", op " << op;
            if (due.status != 0) {
                want = due.status;
                break;
            }
            due_norms[r] = due.norm;
        }
        ASSERT_EQ(status, want) << "shape " << shape << ", op " << op;
        ASSERT_EQ(call.env.resume_row, want == 0 ? call.after : from)
            << "n " << n << ", shape " << shape << ", want " << want << ", from " << from;
        if (with_norms) { // a call that fails converts none of them
            for (ub4 r = 0; r < n; r++)
                ASSERT_EQ(std::bit_cast<ub8>(norms.values[r]), as_stored(due_norms[r], native_norms || want != 0))
                    << "the norm of row " << r;
        }
        (want == 0 ? whole : stopped)++;
    }
    EXPECT_GT(stopped, 300);
    EXPECT_GT(whole, 1000);
}

// ---- Flexible ----

TEST(ArithDriver, FlexibleColumns) {
    std::mt19937_64 rng(12);
    int dropped = 0, kept = 0;
    const ub4 types[] = {TAVO_ELEM_FLOAT, TAVO_ELEM_DOUBLE, TAVO_ELEM_INT8, TAVO_ELEM_FLOAT16};
    for (int round = 0; round < 1500; round++) {
        const ub4 op = ops[rng() % 4], n = 2 + static_cast<ub4>(rng() % 30), dims = static_cast<ub4>(rng() % 50);
        const int shape = static_cast<int>(rng() % 5); // paired, single right, left, number right, number left
        const auto column = [&](ub4 rows, bool steady) {
            std::pair<std::vector<plain_vector>, std::vector<vector_form>> c;
            for (ub4 r = 0; r < rows; r++) {
                const ub4 type = types[steady || rng() % 16 ? rng() % 3 : 3];
                const ub4 d = steady || rng() % 16 ? dims : dims + 1;
                vector_form form{type, rng() % 2 == 0 && type != TAVO_ELEM_INT8, !steady && rng() % 16 == 0};
                plain_vector v = numbers(type, d, rng() % 16 == 0, rng);
                if (form.sparse)
                    v = random_sparse(type, d, d / 2, content::ordinary, rng);
                c.first.push_back(v);
                c.second.push_back(form);
            }
            return c;
        };
        const auto a = column(shape == 2 || shape == 4 ? 1 : n, shape == 2),
                   b = column(shape == 0 || shape == 2 || shape == 4 ? n : 1, shape == 1), out = column(n, false);
        vector_column left(a.first, a.second), right(b.first, b.second), result(out.first, out.second);
        const bool number_right = shape == 3, number_left = shape == 4;
        plain_vector number = numbers(types[rng() % 3], 1, false, rng);
        const bool number_comparable = rng() % 2 && number.type != TAVO_ELEM_INT8;
        std::vector<ub1> number_bytes;
        write_payload(number_bytes, number, {number.type, number_comparable, false}, 0);
        if (number_right || number_left) {
            vector_column &of = number_right ? right : left;
            of.enc.flags = TAVO_CONSTANT | (number_comparable ? 0 : TAVO_NATIVE);
            of.enc.value_type = static_cast<ub1>(number.type);
            of.vec.data = number_bytes.data();
        }
        const auto damage = [&](vector_column &c, ub4 rows) {
            std::vector<bool> bad(rows);
            for (ub4 r = 0; r < rows && rows > 1; r++)
                if (rng() % 20 == 0) {
                    static_cast<ub1 *>(c.pointers[r])[0] ^= 1;
                    bad[r] = true;
                }
            return bad;
        };
        const std::vector<bool> bad_a = damage(left, number_left ? 0 : static_cast<ub4>(a.first.size())),
                                bad_b = damage(right, number_right ? 0 : static_cast<ub4>(b.first.size())),
                                bad_out = damage(result, n);
        const bool with_norms = rng() % 2, native_norms = rng() % 2;
        norm_column norms(n, native_norms);
        rows_of_call call(static_cast<int>(rng() % 3), n, rng);
        std::vector<ub8> memory(dims + 16);
        ub1 *const scratch = rng() % 2 ? reinterpret_cast<ub1 *>(memory.data()) + 7 : nullptr;
        ASSERT_EQ(lib.vector_arith(&result.vec, with_norms ? &norms.vec : nullptr, &left.vec, &right.vec, op, &call.env,
                                   scratch),
                  0u);
        ASSERT_EQ(call.env.resume_row, call.after);
        std::vector<double> due_norms(n, stale);
        for (ub4 r : call.rows) {
            const ub4 ra = shape == 2 || shape == 4 ? 0 : r, rb = shape == 0 || shape == 2 || shape == 4 ? r : 0;
            const vector_form &rf = out.second[r];
            bool good = !bad_out[r] && !rf.sparse && rf.type != TAVO_ELEM_FLOAT16;
            plain_vector x, y = as_read(number, number_comparable);
            ub4 x_dims, y_dims;
            if (number_left) { // the number is the right operand all the same
                x = as_read(b.first[rb], b.second[rb].comparable);
                good = good && !bad_b[rb] && !b.second[rb].sparse;
                x_dims = y_dims = x.dims;
            } else {
                x = as_read(a.first[ra], a.second[ra].comparable);
                good = good && (bad_a.empty() || !bad_a[ra]) && !a.second[ra].sparse;
                x_dims = y_dims = x.dims;
                if (!number_right) {
                    y = as_read(b.first[rb], b.second[rb].comparable);
                    good = good && (bad_b.empty() || !bad_b[rb]) && !b.second[rb].sparse;
                    y_dims = y.dims;
                }
            }
            good = good && x_dims == y_dims && x_dims == out.first[r].dims && x.type != TAVO_ELEM_FLOAT16 &&
                   y.type != TAVO_ELEM_FLOAT16;
            if (rf.type == TAVO_ELEM_FLOAT)
                good = good && x.type != TAVO_ELEM_DOUBLE && y.type != TAVO_ELEM_DOUBLE;
            if (rf.type == TAVO_ELEM_INT8)
                good = good && x.type == TAVO_ELEM_INT8 && y.type == TAVO_ELEM_INT8;
            if (good) {
                const arith_result due = arith_model(op, x, y, number_left || number_right, rf.type, with_norms);
                good = due.status == 0;
                if (good) {
                    std::vector<ub1> bytes;
                    bytes = vector_column::image({rf.type, x.dims, due.written, {}}, rf);
                    const auto *const got = static_cast<ub1 *>(result.pointers[r]);
                    ASSERT_EQ(std::vector<ub1>(got, got + bytes.size()), bytes)
                        << "row " << r << ", shape " << shape << ", op " << op;
                    due_norms[r] = due.norm;
                }
            }
            ASSERT_EQ(call.valid[r / 64] >> r % 64 & 1, good) << "row " << r << ", shape " << shape << ", op " << op;
            (good ? kept : dropped)++;
        }
        if (with_norms) {
            for (ub4 r = 0; r < n; r++)
                ASSERT_EQ(std::bit_cast<ub8>(norms.values[r]), as_stored(due_norms[r], native_norms)) << "row " << r;
        }
    }
    EXPECT_GT(dropped, 3000);
    EXPECT_GT(kept, 3000);
}

// ---- Shapes ----

class ArithShapes : public ::testing::Test {
protected:
    vector_column column(ub4 rows, bool images) {
        const plain_vector v{TAVO_ELEM_FLOAT, 2, {0x3f800000, 0x40000000}, {}};
        const vector_form form{TAVO_ELEM_FLOAT, false, false};
        const std::vector<plain_vector> all(rows, v);
        if (images)
            return vector_column(all, std::vector<vector_form>(rows, form));
        return vector_column(all, form);
    }
    ub4 call(vector_column &a, vector_column &b, ub4 op = TAVO_VECTOR_ADD, tavo_vec *norms = nullptr) {
        vector_column res = column(9, a.enc.flags & TAVO_VEC_IMAGES);
        tavo_env env{};
        return lib.vector_arith(&res.vec, norms, &a.vec, &b.vec, op, &env, nullptr);
    }
};

TEST_F(ArithShapes, AreChecked) {
    vector_column three = column(3, false), five = column(5, false), one = column(1, false), number = column(1, false),
                  images = column(3, true), image = column(1, true), none = column(0, false);
    EXPECT_EQ(call(three, three, 18), TAVO_BAD_INPUT);
    EXPECT_EQ(call(three, three, 23), TAVO_BAD_INPUT);
    EXPECT_EQ(call(three, three), 0u);
    EXPECT_EQ(call(three, five), TAVO_UNSUPPORTED);
    EXPECT_EQ(call(three, one), 0u);
    EXPECT_EQ(call(one, three), 0u);
    EXPECT_EQ(call(one, one), 0u);
    EXPECT_EQ(call(none, none), 0u);
    EXPECT_EQ(call(one, none), TAVO_UNSUPPORTED);
    EXPECT_EQ(call(images, three), TAVO_BAD_INPUT);
    EXPECT_EQ(call(three, image), TAVO_BAD_INPUT);
    EXPECT_EQ(call(image, three), TAVO_BAD_INPUT);
    EXPECT_EQ(call(images, image), 0u);
    // Norms before all but the operation.
    norm_column two_norms(2, true), three_norms(3, true);
    EXPECT_EQ(call(images, three, TAVO_VECTOR_ADD, &two_norms.vec), TAVO_UNSUPPORTED);
    EXPECT_EQ(call(three, three, 18, &two_norms.vec), TAVO_BAD_INPUT);
    EXPECT_EQ(call(one, three, TAVO_VECTOR_MUL, &three_norms.vec), 0u);
    EXPECT_EQ(three_norms.values[2], std::sqrt(17.0));
    // An operand without row pointers is a number, or nothing.
    number.enc.flags = TAVO_NATIVE, number.vec.data = number.pointers[0];
    EXPECT_EQ(call(three, number), TAVO_UNSUPPORTED);
    number.enc.flags |= TAVO_CONSTANT;
    EXPECT_EQ(call(three, number), 0u);
    EXPECT_EQ(call(images, number), 0u);
    EXPECT_EQ(call(number, number), 0u);
    // Pointers of images only: not flexible, and several rows of it have nowhere to be.
    three.enc.flags = TAVO_NATIVE | TAVO_VEC_IMAGES;
    EXPECT_EQ(call(three, three), TAVO_UNSUPPORTED);
    EXPECT_EQ(call(three, one), TAVO_UNSUPPORTED);
    // Types without a kernel, and a single image that is refused.
    five.enc.value_type = TAVO_ELEM_BFLOAT16;
    EXPECT_EQ(call(five, five), TAVO_BAD_INPUT);
    EXPECT_EQ(call(five, one), TAVO_BAD_INPUT);
    EXPECT_EQ(call(five, number), TAVO_BAD_INPUT);
    static_cast<ub1 *>(image.pointers[0])[1] = 4;
    EXPECT_EQ(call(images, image), TAVO_UNSUPPORTED);
    EXPECT_EQ(call(image, images), TAVO_UNSUPPORTED);
}

// A number to the left of a uniform column: the kernel runs over the number's address.
TEST_F(ArithShapes, ANumberOnTheLeftIsReadAsAVector) {
    vector_column rows = column(3, false), out = column(3, false);
    float left[2] = {10, 20};
    tavo_enc_ctx enc{};
    tavo_vec number{};
    enc.flags = TAVO_CONSTANT | TAVO_NATIVE, enc.value_type = TAVO_ELEM_FLOAT;
    number.data = left, number.size = 1, number.enc = &enc;
    static_cast<float *>(rows.pointers[1])[0] = 4;
    tavo_env env{};
    ASSERT_EQ(lib.vector_arith(&out.vec, nullptr, &number, &rows.vec, TAVO_VECTOR_SUB, &env, nullptr), 0u);
    EXPECT_EQ(static_cast<float *>(out.pointers[0])[0], 9);
    EXPECT_EQ(static_cast<float *>(out.pointers[0])[1], 19);
    EXPECT_EQ(static_cast<float *>(out.pointers[1])[0], 6);
    EXPECT_EQ(static_cast<float *>(out.pointers[1])[1], 16);
}

// What scratch is for: a single comparable vector is decoded into it, the others are not.
TEST_F(ArithShapes, DecodesOneVectorFirst) {
    const plain_vector v{TAVO_ELEM_FLOAT, 2, {0x3f800000, 0xc0000000}, {}};
    for (const bool comparable : {false, true})
        for (const ub4 rows : {1u, 2u}) {
            vector_column column(std::vector<plain_vector>(rows, v), vector_form{TAVO_ELEM_FLOAT, true, false}),
                one({v}, vector_form{TAVO_ELEM_FLOAT, comparable, false}),
                out(std::vector<plain_vector>(rows, v), vector_form{TAVO_ELEM_FLOAT, false, false});
            alignas(8) float scratch[4] = {7, 7, 7, 7};
            tavo_env env{};
            ASSERT_EQ(lib.vector_arith(&out.vec, nullptr, &one.vec, &column.vec, TAVO_VECTOR_MUL, &env, scratch), 0u);
            EXPECT_EQ(scratch[1], comparable && rows > 1 ? -2 : 7);
            EXPECT_EQ(static_cast<float *>(out.pointers[rows - 1])[1], 4);
        }
}

} // namespace
} // namespace tavo::test
