// Conversion of elements: every pair of types against a loop, norms to the last bit, bad rows.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>

#include "frame/tavo.h"
#include "tests/vector/vectors.h"

namespace tavo::test {
namespace {

const tavo_specialized_ctx &lib = tavo_global_specialized_ctx;
constexpr ub4 types[] = {TAVO_ELEM_FLOAT, TAVO_ELEM_DOUBLE, TAVO_ELEM_INT8};

// ---- The model ----

struct converted {
    ub4 status = 0;
    std::vector<ub8> elements; // native bits
    std::vector<double> norms;
    std::vector<ub4> bad;
};

// One element; false: out of range. `term` is what a sum of squares is made of.
bool element(ub4 from, ub4 to, double v, double &out, double &term) {
    if (from == to) {
        out = term = v;
        return true;
    }
    const float narrow = static_cast<float>(v);
    if (to == TAVO_ELEM_INT8) {
        if (narrow < -128.0f || narrow > 127.0f)
            return false;
        out = term = std::round(narrow);
    } else if (to == TAVO_ELEM_FLOAT) {
        if (from == TAVO_ELEM_DOUBLE && !std::isfinite(narrow))
            return false;
        out = term = narrow;
    } else {
        out = term = v;
    }
    return true;
}

converted model(ub4 from, ub4 to, const std::vector<ub8> &in, ub4 dims, ub4 rows, bool norms, bool keep_bad) {
    converted out;
    for (ub4 r = 0; r < rows; r++) {
        std::vector<ub8> row;
        std::vector<double> terms;
        bool good = true;
        for (ub4 i = 0; i < dims && good; i++) {
            double v = 0, term = 0;
            good = element(from, to, number_of(from, in[r * dims + i]), v, term);
            row.push_back(to == TAVO_ELEM_INT8 && std::isnan(v) ? 0 : bits_of(to, v));
            terms.push_back(term);
        }
        if (!good) {
            if (!keep_bad) {
                out.status = TAVO_BAD_SHAPE;
                return out;
            }
            out.bad.push_back(r);
            continue;
        }
        out.elements.insert(out.elements.end(), row.begin(), row.end());
        if (!norms)
            continue;
        double sum = 0;
        ub4 i = 0;
        if (from == to)
            for (; i + 8 <= dims; i += 8) {
                const double *const t = &terms[i];
                const auto square = [&](int k) { return t[k] * t[k]; };
                sum += ((square(0) + square(4)) + (square(2) + square(6))) +
                       ((square(1) + square(5)) + (square(3) + square(7)));
            }
        for (; i < dims; i++)
            if (to == TAVO_ELEM_FLOAT && from == TAVO_ELEM_DOUBLE) {
                const float f = static_cast<float>(terms[i]);
                sum += static_cast<double>(f * f);
            } else if (from == to) {
                sum += terms[i] * terms[i];
            } else {
                sum = std::fma(terms[i], terms[i], sum);
            }
        if (!std::isfinite(sum)) {
            out.status = TAVO_OUT_OF_RANGE;
            return out;
        }
        out.norms.push_back(std::sqrt(sum));
    }
    return out;
}

// ---- The operation ----

// Both arrays end at unreadable pages; the output has room for the rows that come out good and no more.
void hold(ub4 from, ub4 to, const std::vector<ub8> &in, ub4 dims, ub4 rows, bool norms, bool keep_bad,
          const std::string &what) {
    std::vector<ub1> bytes;
    std::vector<ub8> read = in;
    for (ub8 &e : read)
        e = through_comparable(from, e);
    write_payload(bytes, {from, static_cast<ub4>(in.size()), in, {}}, {from, true, false}, 0);
    const converted want = model(from, to, read, dims, rows, norms, keep_bad);
    const guarded source(bytes), out(static_cast<std::size_t>(element_bytes(to)) * dims * rows),
        norm_memory(8 * rows + 8);
    std::vector<ub8> bad(rows / 64 + 2, 0x8000000000000000);
    tavo_enc_ctx src_enc{}, res_enc{};
    tavo_vec src{}, res{}, norm_vec{};
    src_enc.value_type = static_cast<ub1>(from), src_enc.vec_dims = dims, res_enc.value_type = static_cast<ub1>(to);
    src_enc.flags = res_enc.flags = rows % 2 ? TAVO_NATIVE : 0; // makes no difference
    src.data = source.data(), src.size = rows, src.enc = &src_enc;
    res.data = out.data(), res.enc = &res_enc, norm_vec.data = norm_memory.data();
    ASSERT_EQ(lib.vector_convert_fp(&res, norms ? &norm_vec : nullptr, &src, keep_bad ? bad.data() : nullptr, nullptr),
              want.status)
        << what;
    std::vector<ub1> due;
    write_payload(due, {to, static_cast<ub4>(want.elements.size()), want.elements, {}}, {to, true, false}, 0);
    for (std::size_t i = 0; i < due.size(); i++)
        ASSERT_EQ(out.data()[i], due[i]) << what << ": byte " << i;
    for (std::size_t i = 0; i < want.norms.size(); i++) {
        double norm;
        std::memcpy(&norm, norm_memory.data() + 8 * i, 8);
        ASSERT_EQ(std::bit_cast<ub8>(norm), std::bit_cast<ub8>(want.norms[i])) << what << ": norm " << i;
    }
    for (std::size_t i = 8 * want.norms.size(); i < norm_memory.size(); i++) // those behind are untouched
        ASSERT_EQ(norm_memory.data()[i], 0xa5) << what;
    for (const ub4 r : want.bad)
        bad[r / 64] ^= 1ull << r % 64;
    for (const ub8 word : bad)
        ASSERT_EQ(word, 0x8000000000000000) << what;
}

TEST(VectorConvert, EveryPairOfTypes) {
    std::mt19937_64 rng(97);
    for (const ub4 from : types)
        for (const ub4 to : types)
            for (const ub4 dims : {0u, 1u, 7u, 8u, 9u, 15u, 16u, 17u, 33u, 100u})
                for (const ub4 rows : {0u, 1u, 5u, 62u})
                    for (int flags = 0; flags < 8; flags++) {
                        std::vector<ub8> in(dims * rows);
                        for (ub8 &e : in) {
                            e = random_element(from, (flags & 4) && rng() % 30 == 0 ? content::odd : content::ordinary,
                                               rng);
                            // Halves, whole numbers and the ends of int8's range.
                            if (from != TAVO_ELEM_INT8 && rng() % 2)
                                e = bits_of(from, static_cast<double>(static_cast<int>(rng() % 510) - 256) / 2);
                            if (from == TAVO_ELEM_DOUBLE && (flags & 4) && rng() % 400 == 0)
                                e = bits_of(from, rng() % 2 ? 1e39 : -127.4);
                        }
                        ASSERT_NO_FATAL_FAILURE(hold(from, to, in, dims, rows, flags & 1, flags & 2,
                                                     std::to_string(from) + " to " + std::to_string(to) + ", " +
                                                         std::to_string(rows) + " x " + std::to_string(dims) +
                                                         ", flags " + std::to_string(flags)));
                    }
}

// All 256 bytes, and as many floats around every boundary of rounding and range.
TEST(VectorConvert, Int8FromEveryNeighbourhood) {
    std::vector<ub8> bytes(256), floats, doubles;
    for (ub4 i = 0; i < 256; i++)
        bytes[i] = i;
    for (double v = -128.5; v <= 128; v += 0.5)
        for (int step = -3; step <= 3; step++) {
            floats.push_back(std::bit_cast<ub4>(static_cast<float>(v)) + static_cast<ub4>(step));
            doubles.push_back(std::bit_cast<ub8>(v) + static_cast<ub8>(step));
        }
    floats[3] = 0x3effffff; // below a half
    doubles[4] = 0x3fdfffffffffffff;
    for (const ub4 to : types)
        hold(TAVO_ELEM_INT8, to, bytes, 64, 4, true, false, "all bytes");
    hold(TAVO_ELEM_FLOAT, TAVO_ELEM_INT8, floats, 1, static_cast<ub4>(floats.size()), true, true, "floats");
    hold(TAVO_ELEM_DOUBLE, TAVO_ELEM_INT8, doubles, 1, static_cast<ub4>(doubles.size()), true, true, "doubles");
}

ub4 convert_one(ub4 from, ub4 to, double v, double *norm, std::vector<ub1> &out) {
    std::vector<ub1> in;
    write_payload(in, {from, 1, {bits_of(from, v)}, {}}, {from, true, false}, 0);
    out.assign(8, 0xee);
    tavo_enc_ctx src_enc{}, res_enc{};
    tavo_vec src{}, res{}, norms{};
    src_enc.value_type = static_cast<ub1>(from), src_enc.vec_dims = 1, res_enc.value_type = static_cast<ub1>(to);
    src.data = in.data(), src.size = 1, src.enc = &src_enc, res.data = out.data(), res.enc = &res_enc;
    norms.data = norm;
    return lib.vector_convert_fp(&res, norm ? &norms : nullptr, &src, nullptr, nullptr);
}

TEST(VectorConvert, StatedExamples) {
    std::vector<ub1> out;
    double norm = 0;
    EXPECT_EQ(convert_one(TAVO_ELEM_FLOAT, TAVO_ELEM_DOUBLE, -0.0, &norm, out), 0u);
    EXPECT_EQ(out, (std::vector<ub1>{0x80, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(convert_one(TAVO_ELEM_FLOAT, TAVO_ELEM_INT8, -2.5, &norm, out), 0u);
    EXPECT_EQ(out[0], static_cast<ub1>(-3));
    EXPECT_EQ(norm, 3.0);
    EXPECT_EQ(convert_one(TAVO_ELEM_DOUBLE, TAVO_ELEM_INT8, 127.4, nullptr, out), TAVO_BAD_SHAPE);
    EXPECT_EQ(convert_one(TAVO_ELEM_DOUBLE, TAVO_ELEM_FLOAT, 1e39, nullptr, out), TAVO_BAD_SHAPE);
    EXPECT_EQ(convert_one(TAVO_ELEM_FLOAT, TAVO_ELEM_INT8, NAN, nullptr, out), 0u);
    EXPECT_EQ(convert_one(TAVO_ELEM_FLOAT, TAVO_ELEM_INT8, NAN, &norm, out), TAVO_OUT_OF_RANGE);
    EXPECT_EQ(convert_one(TAVO_ELEM_DOUBLE, TAVO_ELEM_DOUBLE, 1e200, &norm, out), TAVO_OUT_OF_RANGE);
    for (const ub4 other : {0u, 3u, 4u, 6u, 7u, 8u, 200u}) {
        EXPECT_EQ(convert_one(other, TAVO_ELEM_FLOAT, 1, nullptr, out), TAVO_UNSUPPORTED);
        EXPECT_EQ(convert_one(TAVO_ELEM_FLOAT, other, 1, nullptr, out), TAVO_UNSUPPORTED);
    }
}

} // namespace
} // namespace tavo::test
