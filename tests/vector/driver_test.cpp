// The distance operation: operands' shapes, the four walks, decoding the query first, the output's form.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <string>

#include "tests/vector/distance_model.h"
#include "tests/vector/vector_column.h"

namespace tavo::test {
namespace {

const tavo_specialized_ctx &lib = tavo_global_specialized_ctx;

// The rows of a call.
enum class way { bits, list, all };

struct selection {
    std::vector<ub8> bits;
    std::vector<ub4> rows;
    tavo_env env{};

    selection(way how, ub4 n, std::mt19937_64 &rng) : bits((n + 63) / 64) {
        const bool thin = rng() % 2;
        rows.reserve(1); // an empty list is a list all the same
        for (ub4 r = 0; r < n; r++)
            if (how == way::all || (thin ? rng() % 40 == 0 : rng() % 3 != 0)) {
                rows.push_back(r);
                bits[r / 64] |= 1ull << r % 64;
            }
        if (how == way::bits)
            env.sel_bits = bits.data();
        if (how != way::all) { // ignored where there are bits
            env.ones_vec = rows.data();
            env.ones_vec_size = how == way::bits ? 1 : static_cast<ub4>(rows.size());
        }
    }
};

// A double as the output holds it.
double as_stored(double v, bool native) {
    if (native)
        return v;
    const ub8 bits = std::bit_cast<ub8>(v), sign = 1ull << 63;
    const ub8 ordered = std::isnan(v) ? 0xfff8000000000000 : v == 0 ? sign : v < 0 ? ~bits : bits | sign;
    return std::bit_cast<double>(__builtin_bswap64(ordered));
}

void expect_same(double got, double want, const std::string &what) {
    ASSERT_TRUE(std::bit_cast<ub8>(got) == std::bit_cast<ub8>(want) || (std::isnan(got) && std::isnan(want)))
        << what << ": " << std::hexfloat << got << " and not " << want;
}

constexpr double stale = -77.5;

// Calls the operation until all selected rows are done, with outputs of any size, and holds every slot against `want`,
// which says what is due for a row, or that the slot is left alone.
template <class Want>
void drain(vector_column &col, vector_column &query, ub4 metric, ub8 layout, selection &s, void *scratch, bool native,
           std::mt19937_64 &rng, Want want) {
    tavo_enc_ctx out_enc{};
    out_enc.flags = native ? TAVO_NATIVE : 0;
    const ub4 n = static_cast<ub4>(s.rows.size());
    for (ub4 done = 0, calls = 0; done < n || calls == 0; calls++) {
        const ub4 capacity = 1 + static_cast<ub4>(rng() % (rng() % 2 ? 9 : 700));
        const guarded memory(capacity * sizeof(double));
        auto *const out = memory.as<double>();
        std::fill(out, out + capacity, stale);
        tavo_vec res{};
        res.data = out, res.size = capacity, res.enc = &out_enc;
        ASSERT_EQ(lib.vector_distance(&res, &col.vec, &query.vec, 0xabcd00000000 | metric, layout, &s.env, scratch),
                  0u);
        ASSERT_EQ(res.size, capacity);
        const ub4 now = std::min(capacity, n - done);
        for (ub4 i = 0; i < capacity; i++) {
            double due = stale;
            if (i < now)
                want(s.rows[done + i], due);
            ASSERT_NO_FATAL_FAILURE(expect_same(out[i], as_stored(due, native),
                                                "slot " + std::to_string(i) + " of " + std::to_string(capacity)));
        }
        done += now;
        // A position for lists, a row otherwise.
        const ub4 resume = s.env.sel_bits == nullptr && s.env.ones_vec ? done : done == 0 ? 0 : s.rows[done - 1] + 1;
        ASSERT_EQ(s.env.resume_row, resume);
    }
}

struct forms_case {
    ub4 metric;
    vector_form query, col;
};
const forms_case cases[] = {
    {1, {1, false, false}, {1, false, false}}, {4, {1, true, false}, {1, true, false}},
    {6, {2, true, false}, {7, false, false}},  {2, {7, true, false}, {7, true, false}},
    {7, {8, true, false}, {1, true, false}},   {8, {8, true, false}, {8, false, false}},
    {3, {5, true, false}, {2, true, false}},   {10, {6, false, false}, {6, false, false}},
    {2, {1, true, false}, {5, true, false}},   {7, {5, true, true}, {8, true, true}},
    {1, {2, true, true}, {5, true, true}},     {6, {5, true, false}, {5, true, false}},
    {1, {1, true, true}, {1, true, true}},     {5, {7, true, true}, {2, false, true}},
    {4, {2, true, true}, {5, false, true}},    {9, {6, false, true}, {6, true, true}},
};

plain_vector random_vector(const vector_form &form, ub4 dims, std::mt19937_64 &rng) {
    return form.sparse ? random_sparse(form.type, dims, dims / 3, content::ordinary, rng)
                       : random_dense(form.type, dims, content::ordinary, rng);
}

// Beside an int8 that is flagged comparable a vector is read as native, whatever its own flag says.
bool misread(const vector_form &side, const vector_form &other) {
    return side.comparable && other.type == TAVO_ELEM_INT8 && other.comparable && side.type != TAVO_ELEM_INT8;
}
// The numbers that a native kernel then finds: the stored bytes as they are, where it looks for them.
plain_vector as_native(const void *row, std::size_t head, plain_vector v, bool sparse) {
    const ub1 *at = static_cast<const ub1 *>(row) + head;
    if (sparse) {
        at += 2 + 4 * v.at.size();
        at += -reinterpret_cast<uintptr_t>(at) & 7;
    }
    const unsigned bytes = element_bytes(v.type);
    for (ub8 &e : v.elements) {
        e = 0;
        std::memcpy(&e, at, bytes);
        at += bytes;
    }
    return v;
}
// The distance of two rows of uniform columns, or of images with heads of `head` bytes, as the flags have them read.
double due_distance(ub4 metric, const plain_vector &left, vector_form l, const void *left_row,
                    const plain_vector &right, vector_form r, const void *right_row, std::size_t head, bool decoded) {
    vector_form flagged = l; // how the left one is presented to the selection
    flagged.comparable = l.comparable && !decoded;
    const bool left_misread = misread(flagged, r), right_misread = misread(r, flagged);
    const plain_vector a = left_misread ? as_native(left_row, head, left, l.sparse) : left;
    const plain_vector b = right_misread ? as_native(right_row, head, right, r.sparse) : right;
    l.comparable = l.comparable && !left_misread, r.comparable = r.comparable && !right_misread;
    return model_distance(metric, a, l, b, r);
}

// One query or a paired column; the three ways; with scratch and without.
TEST(DistanceDriver, UniformWalks) {
    std::mt19937_64 rng(9301);
    for (const forms_case &c : cases)
        for (bool paired : {false, true})
            for (way how : {way::bits, way::list, way::all})
                for (bool with_scratch : {false, true})
                    for (bool native : {false, true}) {
                        SCOPED_TRACE("metric " + std::to_string(c.metric) + " types " + std::to_string(c.query.type) +
                                     " " + std::to_string(c.col.type) + " paired " + std::to_string(paired) + " way " +
                                     std::to_string(static_cast<int>(how)) + " scratch " +
                                     std::to_string(with_scratch));
                        const ub4 rows = 2 + static_cast<ub4>(rng() % 600), dims = 3 + static_cast<ub4>(rng() % 40);
                        std::vector<plain_vector> left, right;
                        for (ub4 r = 0; r < rows; r++) {
                            right.push_back(random_vector(c.col, dims, rng));
                            if (paired || r == 0)
                                left.push_back(random_vector(c.query, dims, rng));
                        }
                        vector_column col(right, c.col), query(left, c.query);
                        if (!paired && rng() % 2) { // the vector itself in place of its pointer
                            query.vec.data = query.pointers[0];
                            query.enc.flags &= ~TAVO_VEC_BY_POINTER;
                        }
                        selection s(how, rows, rng);
                        std::vector<ub8> scratch(1000);
                        const ub8 layout = TAVO_VECTOR_LAYOUT(c.query.sparse, c.col.sparse);
                        // With scratch no query counts as comparable, int8 neither.
                        const bool decoded = !paired && with_scratch;
                        ASSERT_NO_FATAL_FAILURE(
                            drain(col, query, c.metric, layout, s, with_scratch ? scratch.data() : nullptr, native, rng,
                                  [&](ub4 row, double &due) {
                                      const ub4 l = paired ? row : 0;
                                      due = due_distance(c.metric, left[l], c.query, query.pointers[l], right[row],
                                                         c.col, col.pointers[row], 0, decoded);
                                  }));
                    }
}

// Images of all types and layouts, good and damaged.
TEST(DistanceDriver, FlexibleWalksDropWhatHasNoDistance) {
    std::mt19937_64 rng(9302);
    for (int round = 0; round < 60; round++)
        for (bool paired : {false, true}) {
            const bool sparse = rng() % 2, native_out = rng() % 2, with_scratch = rng() % 2;
            const ub4 metric = 1 + static_cast<ub4>(rng() % 8), rows = 2 + static_cast<ub4>(rng() % 300), dims = 21;
            const auto random_form = [&](bool right) {
                const ub4 types[] = {1, 2, 5, 7, 8, 6};
                const ub4 type = types[rng() % (right ? 6 : 5)];
                return vector_form{type, rng() % 2 == 0, right && rng() % 8 == 0 ? !sparse : sparse};
            };
            std::vector<plain_vector> left, right;
            std::vector<vector_form> left_forms, right_forms;
            std::vector<bool> bad(rows);
            for (ub4 r = 0; r < rows; r++) {
                right_forms.push_back(random_form(true));
                right.push_back(random_vector(right_forms[r], rng() % 10 ? dims : dims + 1, rng));
                if (paired || r == 0) {
                    left_forms.push_back(random_form(false));
                    left.push_back(random_vector(left_forms[r], dims, rng));
                }
                const vector_form &l = left_forms[paired ? r : 0];
                bad[r] = right[r].dims != dims || right_forms[r].type == 6 || l.sparse != right_forms[r].sparse;
            }
            vector_column col(right, right_forms), query(left, left_forms);
            for (ub4 r = 0; r < rows; r++)
                if (rng() % 10 == 0) {
                    auto *image = static_cast<ub1 *>((paired && rng() % 2 ? query : col).pointers[r]);
                    switch (rng() % 4) {
                    case 0: image[0] = 0xda; break;
                    case 1: image[1] = 4; break;
                    case 2: image[3] &= ~0x12; break;
                    default: image[4] = static_cast<ub1>(rng() % 2 * 7); break;
                    }
                    bad[r] = true;
                }
            // The flexible drivers decode to scratch behind the head: 17 bytes on, the elements are aligned.
            std::vector<ub8> scratch(200);
            void *const at = reinterpret_cast<ub1 *>(scratch.data()) + 7;
            selection s(static_cast<way>(rng() % 3), rows, rng);
            std::vector<ub8> valid(rows / 64 + 1, ~0ull), want_valid = valid;
            s.env.valid_rows = valid.data();
            for (ub4 r : s.rows)
                if (bad[r])
                    want_valid[r / 64] &= ~(1ull << r % 64);
            SCOPED_TRACE("round " + std::to_string(round) + " metric " + std::to_string(metric));
            ASSERT_NO_FATAL_FAILURE(drain(
                col, query, metric, 0x5a, s, with_scratch ? at : nullptr, native_out, rng, [&](ub4 row, double &due) {
                    const ub4 l = paired ? row : 0;
                    // Here an int8 query stays comparable: there is nothing to decode.
                    const bool decoded = !paired && with_scratch && left_forms[l].type != TAVO_ELEM_INT8;
                    if (!bad[row])
                        due = due_distance(metric, left[l], left_forms[l], query.pointers[l], right[row],
                                           right_forms[row], col.pointers[row], LVECTOR_HEAD_SIZE, decoded);
                }));
            ASSERT_EQ(valid, want_valid);
        }
}

// scratch holds the query in native form afterwards, and nothing behind it is written.
TEST(DistanceDriver, DecodesAComparableQueryOnce) {
    std::mt19937_64 rng(9303);
    for (ub4 type : {1u, 2u, 7u, 8u})
        for (bool sparse : {false, true})
            for (ub4 dims : {1u, 5u, 8u, 31u, 33u, 64u, 100u}) {
                const vector_form form{type, true, sparse}, native{type, false, sparse};
                const std::vector<plain_vector> rows(2, random_vector(form, dims, rng));
                vector_column col(rows, form), query({rows[0]}, form);
                std::vector<ub1> due;
                write_payload(due, rows[0], native, 0);
                const std::size_t room = (due.size() + 7) / 8 * 8;
                const guarded scratch(room);
                tavo_enc_ctx out_enc{};
                out_enc.flags = TAVO_NATIVE;
                double distances[2];
                tavo_vec res{};
                res.data = distances, res.size = 2, res.enc = &out_enc;
                tavo_env env{};
                ASSERT_EQ(lib.vector_distance(&res, &col.vec, &query.vec, 1, TAVO_VECTOR_LAYOUT(sparse, sparse), &env,
                                              scratch.data()),
                          0u);
                EXPECT_EQ(distances[0], 0.0) << type << " " << sparse << " " << dims;
                for (std::size_t i = 0; i < room; i++) {
                    const std::size_t list = 2 + 4 * rows[0].at.size();
                    const bool padding = i >= due.size() || (sparse && i >= list && i < (list + 7) / 8 * 8);
                    ASSERT_EQ(scratch.data()[i], padding ? 0xa5 : due[i]) << i << " of " << room;
                }
                // With one row there is nothing to gain.
                const guarded untouched(room);
                col.vec.size = 1;
                env.resume_row = 0;
                ASSERT_EQ(lib.vector_distance(&res, &col.vec, &query.vec, 1, TAVO_VECTOR_LAYOUT(sparse, sparse), &env,
                                              untouched.data()),
                          0u);
                EXPECT_EQ(untouched.data()[0], 0xa5);
            }
}

// In an image's copy the head says native, and the data stays where the original's is: 17 bytes on.
TEST(DistanceDriver, DecodesAComparableImageBehindItsHead) {
    std::mt19937_64 rng(9304);
    for (bool sparse : {false, true}) {
        const vector_form form{1, true, sparse};
        const std::vector<plain_vector> rows(2, random_vector(form, 12, rng));
        vector_column col(rows, std::vector<vector_form>(2, form)), query({rows[0]}, std::vector<vector_form>(1, form));
        alignas(8) ub1 scratch[200] = {};
        tavo_enc_ctx out_enc{};
        out_enc.flags = TAVO_NATIVE;
        double distances[2];
        tavo_vec res{};
        res.data = distances, res.size = 2, res.enc = &out_enc;
        tavo_env env{};
        ASSERT_EQ(lib.vector_distance(&res, &col.vec, &query.vec, 2, 0, &env, scratch + 7), 0u);
        EXPECT_EQ(distances[1], 0.0);
        const auto *original = static_cast<const ub1 *>(query.pointers[0]);
        for (int i = 0; i < 17; i++)
            EXPECT_EQ(scratch[7 + i], i == 3 ? original[i] | 0xc8 : original[i]) << i;
        std::vector<ub1> due;
        write_payload(due, rows[0], {1, false, sparse}, 0);
        EXPECT_EQ(std::memcmp(scratch + 24, due.data(), sparse ? 2 + 16 : due.size()), 0);
    }
}

TEST(DistanceDriver, Statuses) {
    std::mt19937_64 rng(9305);
    const vector_form dense{1, false, false}, bits{6, false, false};
    const auto columns = [&](ub4 n, const vector_form &f) {
        std::vector<plain_vector> rows;
        for (ub4 i = 0; i < n; i++)
            rows.push_back(random_dense(f.type, 9, content::ordinary, rng));
        return rows;
    };
    tavo_enc_ctx out_enc{};
    double out[5];
    const auto call = [&](vector_column &col, vector_column &query, ub4 metric, ub8 layout) {
        tavo_vec res{};
        res.data = out, res.size = 5, res.enc = &out_enc;
        tavo_env env{};
        const ub4 distance = lib.vector_distance(&res, &col.vec, &query.vec, metric, layout, &env, nullptr);
        tavo_topk_entry entries[2];
        res.data = entries, res.size = 2, env.resume_row = 0;
        const ub4 topk = lib.vector_topk(&res, &col.vec, &query.vec, metric, layout, &env, nullptr);
        EXPECT_EQ(distance, topk);
        EXPECT_TRUE(topk == 0 || res.size == 2);
        return distance;
    };
    vector_column five(columns(5, dense), dense), three(columns(3, dense), dense), one(columns(1, dense), dense);
    vector_column five_bits(columns(5, bits), bits);
    vector_column images(columns(5, dense), std::vector<vector_form>(5, dense));
    vector_column image(columns(1, dense), std::vector<vector_form>(1, dense));
    EXPECT_EQ(call(five, one, 1, 0), 0u);
    EXPECT_EQ(call(five, three, 1, 0), 2u);
    EXPECT_EQ(call(one, five, 1, 0), 2u);
    EXPECT_EQ(call(images, image, 1, 0), 0u);
    EXPECT_EQ(call(images, one, 1, 0), 24u);
    EXPECT_EQ(call(five, image, 1, 0), 24u);
    EXPECT_EQ(call(images, image, 11, 0), 0u); // every row is dropped
    for (ub4 metric : {0u, 9u, 10u, 11u})
        EXPECT_EQ(call(five, one, metric, 0), 24u);
    EXPECT_EQ(call(five_bits, one, 1, 0), 24u);
    for (ub8 layout : {0x02u, 0x04u, 0x08u, 0x10u, 0x14u})
        EXPECT_EQ(call(five, one, 1, layout), 24u) << layout;
    EXPECT_EQ(call(five, one, 1, 0x21), 0u); // the other bits mean nothing
    static_cast<ub1 *>(image.pointers[0])[0] = 0;
    EXPECT_EQ(call(images, image, 1, 0), 2u);

    // Shape before form, and rows without pointers.
    five.enc.flags &= ~TAVO_VEC_BY_POINTER;
    EXPECT_EQ(call(five, one, 1, 0), 2u);
    EXPECT_EQ(call(images, five, 1, 0), 2u);
    one.enc.flags &= ~TAVO_VEC_BY_POINTER;
    one.vec.data = one.pointers[0];
    EXPECT_EQ(call(one, one, 1, 0), 0u);

    // No rows: the output is converted all the same.
    five.enc.flags |= TAVO_VEC_BY_POINTER;
    five.vec.size = 0;
    std::fill(out, out + 5, -0.0);
    EXPECT_EQ(call(five, one, 1, 0), 0u);
    for (double v : out)
        EXPECT_EQ(std::bit_cast<ub8>(v), 0x80u);
}

// The norm of a zero vector makes cosine a NaN, and a negated dot product of 0 is -0.0.
TEST(DistanceDriver, ComparableOutputOfNanAndZero) {
    const vector_form form{1, false, false};
    vector_column col({plain_vector{1, 2, {0, 0}, {}}, plain_vector{1, 2, {0, 0}, {}}}, form);
    vector_column query({plain_vector{1, 2, {0x3f800000, 0}, {}}}, form);
    tavo_enc_ctx out_enc{};
    ub8 out[2];
    tavo_vec res{};
    res.data = out, res.size = 2, res.enc = &out_enc;
    tavo_env env{};
    ASSERT_EQ(lib.vector_distance(&res, &col.vec, &query.vec, 4, 0, &env, nullptr), 0u);
    EXPECT_EQ(out[1], 0xf8ffu); // bytes FF F8 00 ...
    env.resume_row = 0;
    ASSERT_EQ(lib.vector_distance(&res, &col.vec, &query.vec, 6, 0, &env, nullptr), 0u);
    EXPECT_EQ(out[1], 0x80u);
}

} // namespace
} // namespace tavo::test
