// What the host writes and what the library computes from it, held against plain arithmetic: every pair of forms
// through the distance operation, searches, and the check itself against answers that are wrong.
#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <numeric>
#include <random>

#include "host/error.h"
#include "host/vector/nearest.h"

namespace {

using namespace host;
using enum element_type;

constexpr tavo_metric metrics[] = {
    tavo_metric_euclid,          tavo_metric_euclid_squared, tavo_metric_cosine_similarity,
    tavo_metric_cosine_distance, tavo_metric_dotprod,        tavo_metric_dotprod_negated,
    tavo_metric_manhattan,       tavo_metric_hamming,        tavo_metric_jaccard_similarity,
    tavo_metric_jaccard_distance};

std::vector<vector_form> every_form() {
    std::vector<vector_form> forms;
    for (const element_kind &kind : element_kinds)
        for (const bool comparable : {false, true}) // of int8 and bits too, where it changes nothing
            for (const bool sparse : {false, true})
                forms.push_back({kind.type, comparable, sparse});
    return forms;
}

bool can_be_compared(tavo_metric metric, const vector_form &a, const vector_form &b, bool flexible) {
    const bool of_bits = metric == tavo_metric_jaccard_similarity || metric == tavo_metric_jaccard_distance;
    if (!flexible && a.sparse != b.sparse)
        return false;
    return a.sparse == b.sparse && (a.type == bits) == (b.type == bits) && (!of_bits || a.type == bits);
}

std::vector<double> random_vector(std::mt19937_64 &random, element_type type, std::size_t dims) {
    std::vector<double> values(dims);
    for (double &v : values)
        switch (type) {
        case bits: v = static_cast<double>(random() % 2); break;
        case int8: v = random() % 3 == 0 ? 0 : static_cast<double>(random() % 256) - 128; break;
        default: v = random() % 3 == 0 ? 0 : std::ldexp(static_cast<double>(random() % 4001) - 2000, -10); break;
        }
    return values;
}

bool agree(double result, const plain_result &plain) {
    return (std::isnan(result) && std::isnan(plain.distance)) || result == plain.distance ||
           std::fabs(result - plain.distance) <= plain.bound;
}

class VectorSearch : public ::testing::Test {
protected:
    VectorSearch() { library_.check_and_start(this_processor()); }

    // Distances of all rows, or of the listed or selected ones, in calls of `room` results each.
    std::vector<double> distances(vector_column &rows, vector_column &query, tavo_metric metric, ub4 room,
                                  tavo_env &env, std::size_t expected, void *scratch) {
        tavo_enc_ctx native{};
        native.flags = TAVO_NATIVE;
        std::vector<double> all, part(room);
        while (all.size() < expected) {
            const ub4 before = env.resume_row;
            tavo_vec res{};
            res.data = part.data();
            res.size = room;
            res.enc = &native;
            const ub4 status = library_.ctx().vector_distance(&res, rows.vec(), query.vec(), metric,
                                                              layout_of(query.form(), rows.form()), &env, scratch);
            EXPECT_EQ(status, static_cast<ub4>(TAVO_DONE));
            const std::size_t done = std::min<std::size_t>(room, expected - all.size());
            all.insert(all.end(), part.begin(), part.begin() + static_cast<std::ptrdiff_t>(done));
            if (status != TAVO_DONE || env.resume_row == before)
                break;
        }
        return all;
    }

    library library_{TAVO_LIBRARY_PATH};
    session session_{library_};
};

TEST_F(VectorSearch, EveryPairOfForms) {
    std::mt19937_64 random(11);
    constexpr ub4 rows = 19;
    unsigned pairs = 0;
    for (const ub4 dims : {5u, 131u, 520u})
        for (const vector_form &query_form : every_form())
            for (const vector_form &row_form : every_form()) {
                vector_column query(query_form, dims), column(row_form, dims);
                query.add(random_vector(random, query_form.type, dims));
                for (ub4 row = 0; row < rows; row++)
                    column.add(row == 7 ? std::vector<double>(dims) : random_vector(random, row_form.type, dims));
                std::vector<double> from, to;
                query.read(0, from);
                std::vector<ub8> scratch(query.bytes() / 8 + 8);
                for (const tavo_metric metric : metrics) {
                    const bool possible = can_be_compared(metric, query_form, row_form, false);
                    const auto kernel = library_.ctx().vector_pick_metric(
                        metric, static_cast<ub4>(query_form.type), query_form.is_comparable(), query_form.sparse,
                        static_cast<ub4>(row_form.type), row_form.is_comparable(), row_form.sparse);
                    ASSERT_EQ(kernel != nullptr, possible) << query_form.kernel_word() << row_form.kernel_word();
                    if (!possible)
                        continue;
                    pairs++;
                    for (void *memory : {static_cast<void *>(nullptr), static_cast<void *>(scratch.data())}) {
                        tavo_env env{};
                        const std::vector<double> found = distances(column, query, metric, 7, env, rows, memory);
                        ASSERT_EQ(found.size(), rows);
                        EXPECT_EQ(env.resume_row, rows);
                        for (ub4 row = 0; row < rows; row++) {
                            column.read(row, to);
                            const plain_result plain = plain_distance(metric, query_form, from, row_form, to);
                            ASSERT_TRUE(agree(found[row], plain))
                                << metric << " " << query_form.kernel_word() << "_" << row_form.kernel_word() << " row "
                                << row << ": " << found[row] << ", plain " << plain.distance << " +- " << plain.bound;
                        }
                    }
                }
            }
    EXPECT_EQ(pairs, 3u * (8 * (10 * 10 + 2 * 2) + 2 * 2 * 2) * 2); // jaccard is of bits alone
}

TEST_F(VectorSearch, ImagesOfAllFormsInOneColumn) {
    std::mt19937_64 random(12);
    constexpr ub4 dims = 37;
    vector_column column;
    std::vector<vector_form> forms;
    for (int round = 0; round < 2; round++)
        for (const vector_form &form : every_form()) {
            column.add_image(form, random_vector(random, form.type, dims));
            forms.push_back(form);
        }
    column.add_image({float_}, random_vector(random, float_, dims + 1)); // another dimension count
    forms.push_back({bits});                                             // of which nothing is expected
    std::vector<ub1> bad;
    append_image(bad, {float_}, random_vector(random, float_, dims));
    bad[0] ^= 1;
    column.add_image(bad);
    forms.push_back({bits});

    for (const vector_form &form : every_form()) {
        vector_column query;
        query.add_image(form, random_vector(random, form.type, dims));
        std::vector<double> from, to;
        query.read(0, from);
        for (const metric_kind &metric : metric_kinds) {
            if (metric.metric == tavo_metric_jaccard_distance && form.type != bits)
                continue;
            std::vector<query_step> steps;
            const std::vector<neighbour> found =
                nearest(session_, column, query, metric, column.rows(), nullptr, steps);
            std::vector<bool> seen(column.rows());
            for (const auto &[row, distance] : found) {
                ASSERT_TRUE(row < column.rows() - 2 && !seen[row] &&
                            can_be_compared(metric.metric, form, forms[row], true));
                seen[row] = true;
                column.read(row, to);
                const plain_result plain = plain_distance(metric.metric, form, from, forms[row], to);
                ASSERT_TRUE(agree(distance, plain))
                    << metric.name << " " << form.kernel_word() << "_" << forms[row].kernel_word() << ": " << distance
                    << ", plain " << plain.distance << " +- " << plain.bound;
            }
            std::size_t possible = 0;
            for (ub4 row = 0; row + 2 < column.rows(); row++)
                possible += can_be_compared(metric.metric, form, forms[row], true);
            EXPECT_EQ(found.size(), possible) << metric.name << " " << form.kernel_word();
        }
    }
}

selection every_third(ub4 rows) {
    selection s{std::vector<ub8>((rows + 63) / 64), 0};
    for (ub4 row = 0; row < rows; row += 3, s.count++)
        s.bits[row / 64] |= ub8{1} << row % 64;
    return s;
}

TEST_F(VectorSearch, NearestAreThePlainOnes) {
    std::mt19937_64 random(13);
    constexpr ub4 rows = 700, dims = 100;
    for (const element_kind &kind : element_kinds)
        for (const bool comparable : {false, true})
            for (const bool sparse : {false, true}) {
                const vector_form form{kind.type, comparable, sparse};
                vector_column column(form, dims), query(form, dims);
                for (ub4 row = 0; row < rows; row++) // some equal rows, some of nothing but zeros
                    column.add(row % 50 == 0   ? std::vector<double>(dims)
                               : row % 50 == 1 ? std::vector<double>(dims, 1)
                                               : random_vector(random, kind.type, dims));
                query.add(random_vector(random, kind.type, dims));
                const selection third = every_third(rows);
                for (const metric_kind &metric : metric_kinds) {
                    if (metric.metric == tavo_metric_jaccard_distance && kind.type != bits)
                        continue;
                    for (const selection *among : {static_cast<const selection *>(nullptr), &third})
                        for (const ub4 k : {1u, 2u, 10u, 233u, 234u, 699u, 700u, 5000u}) {
                            std::vector<query_step> steps;
                            const auto found = nearest(session_, column, query, metric, k, among, steps);
                            const nearest_check check = check_nearest(column, query, metric, k, among, found);
                            ASSERT_EQ(check.difference, "") << metric.name << " " << form.kernel_word() << " k " << k;
                            EXPECT_EQ(check.rows, among != nullptr ? 234u : rows);
                            EXPECT_LE(check.bound, 1e-4 * dims * 16384); // or the check would mean nothing
                        }
                }
            }
}

// Every kind of wrong answer is noticed.
TEST_F(VectorSearch, TheCheckNoticesWrongAnswers) {
    std::mt19937_64 random(14);
    constexpr ub4 rows = 300, dims = 50;
    vector_column column({float_}, dims), query({float_}, dims);
    for (ub4 row = 0; row < rows; row++)
        column.add(random_vector(random, float_, dims));
    column.add(std::vector<double>(dims)); // of which the cosine is no number
    query.add(random_vector(random, float_, dims));
    const selection third = every_third(rows + 1);
    for (const metric_kind &metric : metric_kinds) {
        if (metric.metric == tavo_metric_jaccard_distance)
            continue;
        std::vector<query_step> steps;
        const auto found = nearest(session_, column, query, metric, 20, &third, steps);
        const auto refused = [&](std::vector<neighbour> answer) {
            return !check_nearest(column, query, metric, 20, &third, answer).difference.empty();
        };
        ASSERT_FALSE(refused(found));
        const auto last = found.back().distance, first = found.front().distance;
        auto changed = found;
        changed.pop_back();
        EXPECT_TRUE(refused(changed)) << "one too few";
        changed = found;
        changed.erase(changed.begin());
        EXPECT_TRUE(refused(changed)) << "the nearest left out";
        changed = found;
        changed[5] = changed[4];
        EXPECT_TRUE(refused(changed)) << "a row twice";
        changed = found;
        changed[5].row += 1;
        EXPECT_TRUE(refused(changed)) << "a row that is not selected";
        changed = found;
        changed[5].row = rows + 3;
        EXPECT_TRUE(refused(changed)) << "no row";
        changed = found;
        changed[5].distance += 1e-3;
        EXPECT_TRUE(refused(changed)) << "a wrong distance";
        changed[5].distance = NAN;
        EXPECT_TRUE(refused(changed)) << "no distance";
        if (first < last) {
            changed = found;
            std::swap(changed.front(), changed.back());
            EXPECT_TRUE(refused(changed)) << "not in order";
        }
    }
    // A row without a number in place of one that has one.
    const metric_kind &cosine = *metric_of_name("cosine");
    std::vector<query_step> steps;
    auto found = nearest(session_, column, query, cosine, rows + 1, nullptr, steps);
    ASSERT_EQ(found.back().row, rows);
    ASSERT_TRUE(std::isnan(found.back().distance));
    EXPECT_EQ(check_nearest(column, query, cosine, rows + 1, nullptr, found).difference, "");
    found.erase(found.end() - 2);
    EXPECT_NE(check_nearest(column, query, cosine, rows, nullptr, found).difference, "");
}

// The bound follows the arithmetic: one unit in the last place of float for float vectors, none for whole counts.
TEST(PlainDistance, Bounds) {
    const std::vector<double> a{3, 0}, b{0, 4}, huge{1e30, 1};
    const plain_result euclid = plain_distance(tavo_metric_euclid, {float_}, a, {float_}, b);
    EXPECT_EQ(euclid.distance, 5);
    EXPECT_GT(euclid.bound, 0x1p-24);
    EXPECT_LT(euclid.bound, 1e-5);
    EXPECT_LT(plain_distance(tavo_metric_euclid, {double_}, a, {float_}, b).bound, 1e-13);
    EXPECT_EQ(plain_distance(tavo_metric_hamming, {int8}, a, {int8}, b).bound, 0);
    EXPECT_TRUE(std::isinf(plain_distance(tavo_metric_dotprod, {float_}, huge, {float_}, huge).bound));
    EXPECT_FALSE(std::isinf(plain_distance(tavo_metric_dotprod, {double_}, huge, {double_}, huge).bound));
    EXPECT_TRUE(std::isnan(plain_distance(tavo_metric_cosine_distance, {bits}, {{0, 0}}, {bits}, {{1, 0}}).distance));
}

} // namespace
