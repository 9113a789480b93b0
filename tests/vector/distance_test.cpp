// Every distance kernel against the plain model, bit for bit.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <string>

#include "frame/processor.h"
#include "frame/tavo.h"
#include "tests/vector/distance_model.h"

namespace tavo::test {
namespace {

const tavo_specialized_ctx &lib = tavo_global_specialized_ctx;

// Sets the feature words, which a test may clear but not invent.
class features {
public:
    features() : vnni_(tavo_has_vnni), vpopcdq_(tavo_has_vpopcdq) {
        const ub4 info[3] = {};
        lib.init_sharedlib(0, info);
        has_vnni_ = tavo_has_vnni, has_vpopcdq_ = tavo_has_vpopcdq;
    }
    ~features() { tavo_has_vnni = vnni_, tavo_has_vpopcdq = vpopcdq_; }
    void choose(bool wanted) { tavo_has_vnni = wanted && has_vnni_, tavo_has_vpopcdq = wanted && has_vpopcdq_; }

private:
    ub4 vnni_, vpopcdq_, has_vnni_, has_vpopcdq_;
};

bool same(double got, double want) {
    return std::isnan(want) ? std::isnan(got) : std::bit_cast<ub8>(got) == std::bit_cast<ub8>(want);
}

// One entry of the selection, as a host asks for it, and the forms that its kernel reads.
struct entry {
    ub4 metric;
    vector_form left, right; // as asked
    vector_form reads_left() const { return read(left, right); }
    vector_form reads_right() const { return read(right, left); }
    std::string text() const {
        return "metric " + std::to_string(metric) + ", left " + text(left) + ", right " + text(right);
    }
    tavo_distance_kernel *kernel() const {
        return lib.vector_pick_metric(metric, left.type, left.comparable, left.sparse, right.type, right.comparable,
                                      right.sparse);
    }

private:
    // Flagged as comparable beside a comparable int8, a vector counts as native.
    static vector_form read(vector_form side, const vector_form &other) {
        side.comparable = side.comparable && !(other.type == TAVO_ELEM_INT8 && other.comparable) &&
                          side.type != TAVO_ELEM_INT8 && side.type != TAVO_ELEM_BITMSB0;
        return side;
    }
    static std::string text(const vector_form &f) {
        return "type " + std::to_string(f.type) + (f.comparable ? " comparable" : "") + (f.sparse ? " sparse" : "");
    }
};

template <class Each>
unsigned each_entry(Each each) {
    unsigned entries = 0;
    for (ub4 metric = 1; metric <= 10; metric++)
        for (ub4 left : {1u, 2u, 5u, 6u, 7u, 8u})
            for (ub4 right : {1u, 2u, 5u, 6u, 7u, 8u})
                for (unsigned flags = 0; flags < 8; flags++) {
                    const entry e{
                        metric, {left, (flags & 1) != 0, flags >> 2 != 0}, {right, (flags & 2) != 0, flags >> 2 != 0}};
                    if (e.kernel() == nullptr)
                        continue;
                    entries++;
                    each(e);
                    if (testing::Test::HasFatalFailure())
                        return entries;
                }
    return entries;
}

void check(const entry &e, const plain_vector &a, const plain_vector &b, guarded_payload &left, guarded_payload &right,
           const std::string &what) {
    double got = -12345;
    const ub1 *const l = left.place(a, e.reads_left()), *const r = right.place(b, e.reads_right());
    // Sparse kernels find their sizes in the vectors.
    ASSERT_EQ(e.kernel()(e.left.sparse ? 0xdeadbeef : a.dims, l, r, e.metric, &got), 0u);
    const double want = model_distance(e.metric, a, e.reads_left(), b, e.reads_right(), tavo_has_vnni);
    ASSERT_TRUE(same(got, want)) << e.text() << ", " << what << ": " << std::hexfloat << got << " and not " << want;
}

const ub4 dense_sizes[] = {0,   1,   7,   8,   9,   15,  16,  17,  23,  24,  25,  31,  47,   48,  49,
                           63,  64,  65,  71,  95,  96,  97,  127, 128, 129, 143, 144, 145,  191, 192,
                           193, 255, 256, 257, 272, 385, 449, 511, 512, 513, 520, 777, 1024, 2049};

TEST(Distance, EveryDenseEntryAgreesWithTheModel) {
    features choice;
    guarded_payload left, right;
    std::mt19937_64 rng(9201);
    for (bool extended : {false, true}) {
        choice.choose(extended);
        unsigned entries = each_entry([&](const entry &e) {
            const bool has_extension = e.left.type == e.right.type && (e.left.type == 5 || e.left.type == 6);
            if (e.left.sparse || (extended && !has_extension))
                return;
            for (ub4 dims : dense_sizes)
                for (content kind : {content::ordinary, content::odd, content::threshold, content::zero}) {
                    const bool counts = e.metric == tavo_metric_hamming;
                    if ((kind == content::ordinary && counts) || (kind == content::threshold && !counts) ||
                        (kind == content::odd && dims % 4 != 1) || (kind == content::zero && dims % 8 != 1))
                        continue;
                    const plain_vector a = random_dense(e.left.type, dims, kind, rng);
                    const plain_vector b = random_dense(e.right.type, dims, kind, rng);
                    ASSERT_NO_FATAL_FAILURE(
                        check(e, a, b, left, right,
                              std::to_string(dims) + " dims, kind " + std::to_string(static_cast<int>(kind))));
                }
        });
        EXPECT_EQ(entries, 1680u);
    }
}

// Sums of int8 are exact up to 2^24 a lane, in any order. Values of one sign take them past that, where the lanes, the
// blocks and the order of the last additions show.
TEST(Distance, Int8SumsPastTheExactOnes) {
    features choice;
    guarded_payload left(1 << 19), right(1 << 19);
    std::mt19937_64 rng(9204);
    const vector_form form{TAVO_ELEM_INT8, false, false};
    const auto one_sided = [&](ub4 dims, bool negative) {
        plain_vector v{TAVO_ELEM_INT8, dims, std::vector<ub8>(dims), {}};
        for (ub8 &e : v.elements)
            e = negative ? 0x80 + rng() % 8 : 120 + rng() % 8;
        return v;
    };
    for (ub4 metric : {2u, 3u, 5u}) {
        bool members_differ = false;
        for (ub4 dims : {50003u, 60011u, 300017u}) {
            const plain_vector a = one_sided(dims, false), b = one_sided(dims, metric == 2);
            for (bool extended : {false, true}) {
                choice.choose(extended);
                ASSERT_NO_FATAL_FAILURE(
                    check({metric, form, form}, a, b, left, right, std::to_string(dims) + " one-sided dims"));
            }
            members_differ |=
                model_distance(metric, a, form, b, form, false) != model_distance(metric, a, form, b, form, true);
        }
        EXPECT_TRUE(members_differ) << "metric " << metric << " does not tell the orders apart";
    }
}

TEST(Distance, EverySparseEntryAgreesWithTheModel) {
    guarded_payload left, right;
    std::mt19937_64 rng(9202);
    const ub4 counts[] = {0, 1, 2, 3, 4, 5, 7, 8, 9, 12, 33, 64, 65, 130, 300};
    each_entry([&](const entry &e) {
        if (!e.left.sparse)
            return;
        for (ub4 n : counts)
            for (ub4 m : {n, counts[rng() % std::size(counts)]})
                for (ub4 dims : {(n > m ? n : m) + 1, 700u, 30000u}) { // nearly all shared, some, next to none
                    const content kind = rng() % 4 == 0   ? content::odd
                                         : rng() % 3 == 0 ? content::threshold
                                                          : content::ordinary;
                    const plain_vector a = random_sparse(e.left.type, dims, n, kind, rng);
                    const plain_vector b = random_sparse(e.right.type, dims, m, kind, rng);
                    ASSERT_NO_FATAL_FAILURE(
                        check(e, a, b, left, right,
                              std::to_string(n) + " and " + std::to_string(m) + " of " + std::to_string(dims)));
                }
    });
}

// Lists long enough that matches come in several batches.
TEST(Distance, LongSparseLists) {
    guarded_payload left(1 << 19), right(1 << 19);
    std::mt19937_64 rng(9203);
    for (ub4 metric : {1u, 4u, 6u, 7u, 8u})
        for (ub4 dims : {2001u, 4000u, 100000u})
            for (ub4 m : {2000u, 1999u, 40u}) {
                const entry e{metric, {TAVO_ELEM_FLOAT, false, true}, {TAVO_ELEM_FLOAT16, true, true}};
                const plain_vector a = random_sparse(e.left.type, dims, 2000, content::ordinary, rng);
                const plain_vector b = random_sparse(e.right.type, dims, m, content::ordinary, rng);
                ASSERT_NO_FATAL_FAILURE(check(e, a, b, left, right, std::to_string(m) + " of " + std::to_string(dims)));
            }
    // As long as lists get: positions need all 16 bits, most of them matching or about half.
    for (ub4 dims : {66000u, 120000u}) {
        const plain_vector a = random_sparse(TAVO_ELEM_FLOAT, dims, 65535, content::ordinary, rng);
        const plain_vector b = random_sparse(TAVO_ELEM_FLOAT16, dims, 65535, content::ordinary, rng);
        const std::vector<ub8> ones(65535, 1);
        const plain_vector a_bits{TAVO_ELEM_BITMSB0, dims, ones, a.at}, b_bits{TAVO_ELEM_BITMSB0, dims, ones, b.at};
        const vector_form bits{TAVO_ELEM_BITMSB0, false, true};
        for (ub4 metric : {1u, 4u, 6u, 7u, 8u}) {
            const std::string what = "65535 of " + std::to_string(dims);
            ASSERT_NO_FATAL_FAILURE(check({metric, {TAVO_ELEM_FLOAT, false, true}, {TAVO_ELEM_FLOAT16, true, true}}, a,
                                          b, left, right, what));
            ASSERT_NO_FATAL_FAILURE(check({metric, bits, bits}, a_bits, b_bits, left, right, what));
        }
    }
}

double distance(ub4 metric, ub4 left_type, ub4 right_type, const std::vector<double> &a, const std::vector<double> &b) {
    plain_vector l{left_type, static_cast<ub4>(a.size()), {}, {}}, r{right_type, static_cast<ub4>(b.size()), {}, {}};
    for (double v : a)
        l.elements.push_back(bits_of(left_type, v));
    for (double v : b)
        r.elements.push_back(bits_of(right_type, v));
    guarded_payload left, right;
    double got = -12345;
    lib.vector_pick_metric(metric, left_type, 0, 0, right_type, 0, 0)(
        l.dims, left.place(l, {left_type, false, false}), right.place(r, {right_type, false, false}), metric, &got);
    return got;
}

// What hosts may rely on, in figures rather than by the model.
TEST(Distance, FiguresOfTheContract) {
    const double nan = std::nan("");
    EXPECT_EQ(distance(1, 1, 1, {0, 0, 0}, {2, 3, 6}), 7.0);
    EXPECT_EQ(distance(2, 1, 2, {0, 0, 0}, {2, 3, 6}), 49.0);
    EXPECT_EQ(distance(3, 1, 1, {3, 4}, {6, 8}), 1.0);
    EXPECT_EQ(distance(7, 5, 5, {-128, 127}, {127, -128}), 510.0);
    EXPECT_TRUE(std::isnan(distance(3, 1, 1, {0, 0}, {1, 2})));
    EXPECT_TRUE(std::isnan(distance(4, 1, 1, {0, 0}, {1, 2})));
    EXPECT_TRUE(std::isnan(distance(3, 1, 1, {}, {})));
    EXPECT_TRUE(std::isnan(distance(9, 6, 6, {0, 0}, {0, 0})));
    EXPECT_TRUE(std::isnan(distance(1, 1, 1, {nan}, {1})));
    EXPECT_TRUE(std::signbit(distance(6, 1, 1, {0}, {1})));  // -0.0
    EXPECT_FALSE(std::signbit(distance(6, 6, 6, {0}, {1}))); // negated as an integer
    EXPECT_EQ(distance(6, 6, 6, {1, 1, 0}, {1, 1, 1}), -2.0);
    // A difference of the threshold counts where both sides have one type, and nowhere else.
    EXPECT_EQ(distance(8, 1, 1, {0}, {0x1p-23}), 1.0);
    EXPECT_EQ(distance(8, 1, 2, {0}, {0x1p-23}), 0.0);
    EXPECT_EQ(distance(8, 1, 2, {0}, {0x1.000001p-23}), 1.0);
    EXPECT_EQ(distance(8, 7, 7, {0}, {0x1p-9}), 1.0);
    EXPECT_EQ(distance(8, 8, 8, {0}, {0x1p-9}), 0.0); // bfloat16 asks for a little more
    EXPECT_EQ(distance(8, 8, 2, {0}, {0.001954}), 0.0);
    EXPECT_EQ(distance(8, 8, 1, {0}, {0.001954}), 0.0);
    EXPECT_EQ(distance(8, 8, 2, {0}, {std::nextafter(0.001954, 1)}), 1.0);
    EXPECT_EQ(distance(8, 1, 1, {nan, 1}, {nan, 1}), 0.0);
}

// Stray bits behind the last dimension of a bit vector count: 513 bits are one block and one byte.
TEST(Distance, UnusedBitsCountAsTheyStand) {
    features choice;
    for (bool extended : {false, true}) {
        choice.choose(extended);
        std::vector<ub1> a(65, 0), b(65, 0);
        double got;
        a[64] = 0x7f;
        lib.vector_pick_metric(8, 6, 0, 0, 6, 0, 0)(513, a.data(), b.data(), 8, &got);
        EXPECT_EQ(got, 7.0);
        b[64] = 0x80;
        lib.vector_pick_metric(8, 6, 0, 0, 6, 0, 0)(513, a.data(), b.data(), 8, &got);
        EXPECT_EQ(got, 8.0);
    }
}

} // namespace
} // namespace tavo::test
