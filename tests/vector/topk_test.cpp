// The nearest k: the heap's order against a literal restatement and a plain sort, walks, statuses, the output's form.
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>

#include "tests/vector/distance_model.h"
#include "tests/vector/vector_column.h"

namespace tavo::test {
namespace {

const tavo_specialized_ctx &lib = tavo_global_specialized_ctx;

struct found {
    ub4 row;
    double distance;
};

// ---- The heap as it is told ----

bool worse(const found &x, const found &y) {
    if (std::isnan(y.distance))
        return std::isnan(x.distance) && x.row > y.row;
    return std::isnan(x.distance) || x.distance > y.distance;
}

struct told_heap {
    std::vector<found> heap; // storage of k entries
    std::size_t size = 0;

    explicit told_heap(std::size_t k) : heap(k) {}
    void rise(std::size_t hole, found c) {
        for (; hole > 0 && worse(c, heap[(hole - 1) / 2]); hole = (hole - 1) / 2)
            heap[hole] = heap[(hole - 1) / 2];
        heap[hole] = c;
    }
    void push(found c) {
        rise(size, c);
        size++;
    }
    void pop() {
        if (size == 1) {
            size = 0;
            return;
        }
        const std::size_t n = size - 1;
        size = n;
        const found last = heap[n];
        heap[n] = heap[0];
        std::size_t hole = 0;
        while (hole < (n - 1) / 2) {
            std::size_t child = 2 * hole + 2;
            if (worse(heap[child - 1], heap[child]))
                child = child - 1;
            heap[hole] = heap[child];
            hole = child;
        }
        if (n % 2 == 0 && hole == (n - 2) / 2) {
            heap[hole] = heap[2 * hole + 1];
            hole = 2 * hole + 1;
        }
        rise(hole, last);
    }
    void offer(found c) {
        if (size < heap.size()) {
            push(c);
        } else if (worse(heap[0], c)) {
            pop();
            push(c);
        }
    }
    std::vector<found> sorted() {
        const std::size_t n = size;
        while (size > 0)
            pop();
        return {heap.begin(), heap.begin() + static_cast<std::ptrdiff_t>(n)};
    }
};

// One-dimensional doubles under the dot product with 1: distances at will.
class chosen_distances {
public:
    explicit chosen_distances(const std::vector<double> &d) : col(vectors(d), form), query(vectors({1.0}), form) {}
    static std::vector<plain_vector> vectors(const std::vector<double> &d) {
        std::vector<plain_vector> v;
        for (double x : d)
            v.push_back({TAVO_ELEM_DOUBLE, 1, {std::bit_cast<ub8>(x)}, {}});
        return v;
    }
    static constexpr vector_form form{TAVO_ELEM_DOUBLE, false, false};
    vector_column col, query;
};

std::vector<found> topk(vector_column &col, vector_column &query, ub4 metric, ub4 k, tavo_env &env, bool native = true,
                        ub8 layout = 0, void *scratch = nullptr) {
    const guarded memory(k * sizeof(tavo_topk_entry));
    tavo_enc_ctx enc{};
    enc.flags = native ? TAVO_NATIVE : 0;
    tavo_vec res{};
    res.data = memory.data(), res.size = k, res.enc = &enc;
    EXPECT_EQ(lib.vector_topk(&res, &col.vec, &query.vec, metric, layout, &env, scratch), 0u);
    std::vector<found> out;
    for (ub4 i = 0; i < res.size; i++)
        out.push_back({memory.as<tavo_topk_entry>()[i].row, memory.as<tavo_topk_entry>()[i].distance});
    for (std::size_t i = res.size * sizeof(tavo_topk_entry); i < memory.size(); i++) // entries not found
        EXPECT_EQ(memory.data()[i], 0xa5);
    return out;
}

void expect_equal(const std::vector<found> &got, const std::vector<found> &want) {
    ASSERT_EQ(got.size(), want.size());
    for (std::size_t i = 0; i < got.size(); i++) {
        ASSERT_EQ(got[i].row, want[i].row) << "place " << i;
        ASSERT_TRUE(got[i].distance == want[i].distance ||
                    (std::isnan(got[i].distance) && std::isnan(want[i].distance)))
            << "place " << i;
    }
}

double random_distance(int kind, std::mt19937_64 &rng) {
    const double few[] = {0, -0., 1, 1, 2, HUGE_VAL, -HUGE_VAL, std::nan(""), std::nan("")};
    switch (kind) {
    case 0: return static_cast<double>(rng() % 1000000) - 500000;
    case 1: return static_cast<double>(rng() % 5);
    case 2: return few[rng() % std::size(few)];
    case 3: return 4;
    default: return std::nan("");
    }
}

TEST(TopK, TiesAndNansAsTold) {
    std::mt19937_64 rng(9501);
    for (int kind = 0; kind < 5; kind++)
        for (ub4 rows : {1u, 2u, 3u, 10u, 64u, 500u})
            for (ub4 k : {1u, 2u, 3u, 4u, 7u, 10u, 11u, 63u, 600u})
                for (int repeat = 0; repeat < 4; repeat++) {
                    std::vector<double> d(rows);
                    for (double &x : d)
                        x = random_distance(kind, rng);
                    chosen_distances c(d);
                    tavo_env env{};
                    const std::vector<found> got = topk(c.col, c.query, 5, k, env);
                    SCOPED_TRACE("kind " + std::to_string(kind) + " rows " + std::to_string(rows) + " k " +
                                 std::to_string(k));
                    ASSERT_EQ(env.resume_row, rows);
                    told_heap told(k);
                    std::vector<found> all;
                    for (ub4 r = 0; r < rows; r++) {
                        told.offer({r, d[r]});
                        all.push_back({r, d[r]});
                    }
                    ASSERT_NO_FATAL_FAILURE(expect_equal(got, told.sorted()));
                    // The same distances as sorting gives, and rows that have them. NaNs come last, by row; of equal
                    // numbers the first rows stay.
                    std::stable_sort(all.begin(), all.end(),
                                     [](const found &x, const found &y) { return worse(y, x); });
                    ASSERT_EQ(got.size(), std::min<std::size_t>(k, rows));
                    std::vector<ub4> got_rows, due_rows;
                    for (std::size_t i = 0; i < got.size(); i++) {
                        ASSERT_TRUE(got[i].distance == all[i].distance || std::isnan(all[i].distance)) << i;
                        ASSERT_TRUE(got[i].distance == d[got[i].row] || std::isnan(d[got[i].row])) << i;
                        got_rows.push_back(got[i].row);
                        due_rows.push_back(all[i].row);
                    }
                    if (kind == 3) {
                        std::sort(got_rows.begin(), got_rows.end());
                        ASSERT_EQ(got_rows, due_rows);
                    }
                }
}

TEST(TopK, WalksFromTheResumeRowOn) {
    std::mt19937_64 rng(9502);
    std::vector<double> d(1000);
    for (double &x : d)
        x = random_distance(0, rng);
    chosen_distances c(d);
    std::vector<ub8> bits(16);
    std::vector<ub4> list;
    for (ub4 r = 0; r < 1000; r++)
        if (rng() % 3 == 0) {
            bits[r / 64] |= 1ull << r % 64;
            list.push_back(r);
        }
    const auto due = [&](ub4 from, bool selected) {
        told_heap told(5);
        for (ub4 r = from; r < 1000; r++)
            if (!selected || (bits[r / 64] >> r % 64 & 1))
                told.offer({r, d[r]});
        return told.sorted();
    };
    for (ub4 from : {0u, 1u, 700u, 999u, 1000u}) {
        tavo_env env{};
        env.resume_row = from;
        expect_equal(topk(c.col, c.query, 5, 5, env), due(from, false));
        EXPECT_EQ(env.resume_row, 1000u);
        env.resume_row = from;
        env.sel_bits = bits.data();
        expect_equal(topk(c.col, c.query, 5, 5, env), due(from, true));
        EXPECT_EQ(env.resume_row, from > list.back() ? from : list.back() + 1);
        env = {};
        env.ones_vec = list.data();
        env.ones_vec_size = static_cast<ub4>(list.size());
        env.resume_row = static_cast<ub4>(std::lower_bound(list.begin(), list.end(), from) - list.begin());
        expect_equal(topk(c.col, c.query, 5, 5, env), due(from, true));
        EXPECT_EQ(env.resume_row, list.size());
    }
}

TEST(TopK, ComparableDistancesNativeRows) {
    chosen_distances c({3.0, -2.5, std::nan(""), -0.0, 1e300});
    tavo_env env{};
    const std::vector<found> got = topk(c.col, c.query, 5, 5, env, false);
    ASSERT_EQ(got.size(), 5u);
    const ub4 rows[] = {1, 3, 0, 4, 2};
    ub1 before[8] = {};
    for (int i = 0; i < 5; i++) {
        EXPECT_EQ(got[static_cast<std::size_t>(i)].row, rows[i]);
        ub1 bytes[8];
        std::memcpy(bytes, &got[static_cast<std::size_t>(i)].distance, 8);
        EXPECT_GT(std::memcmp(bytes, before, 8), 0) << i;
        std::memcpy(before, bytes, 8);
    }
    EXPECT_EQ(before[0], 0xff);
    EXPECT_EQ(before[1], 0xf8);
}

// Paired columns and flexible ones, in which bad rows take no place.
TEST(TopK, PairedAndFlexible) {
    std::mt19937_64 rng(9503);
    for (bool paired : {false, true})
        for (bool flexible : {false, true}) {
            const vector_form form{TAVO_ELEM_FLOAT, true, false};
            const ub4 rows = 90;
            std::vector<plain_vector> left, right;
            for (ub4 r = 0; r < rows; r++) {
                right.push_back(random_dense(form.type, 17, content::ordinary, rng));
                if (paired || r == 0)
                    left.push_back(random_dense(form.type, 17, content::ordinary, rng));
            }
            const auto column = [&](const std::vector<plain_vector> &v) {
                return flexible ? std::make_unique<vector_column>(v, std::vector<vector_form>(v.size(), form))
                                : std::make_unique<vector_column>(v, form);
            };
            const auto col = column(right), query = column(left);
            tavo_env env{};
            std::vector<ub8> valid(2, ~0ull), want_valid(2, ~0ull);
            env.valid_rows = valid.data();
            told_heap told(70);
            for (ub4 r = 0; r < rows; r++) {
                if (flexible && r % 3 == 1) {
                    static_cast<ub1 *>(col->pointers[r])[4] = 7;
                    want_valid[r / 64] &= ~(1ull << r % 64);
                    continue;
                }
                told.offer({r, model_distance(2, left[paired ? r : 0], form, right[r], form)});
            }
            SCOPED_TRACE(paired * 2 + flexible);
            ASSERT_NO_FATAL_FAILURE(expect_equal(topk(*col, *query, 2, 70, env), told.sorted()));
            EXPECT_EQ(valid, want_valid);
        }
}

// A comparable query, decoded to scratch or read as it stands, in either layout and shape.
TEST(TopK, ScratchAndLayouts) {
    std::mt19937_64 rng(9504);
    const ub4 rows = 300, k = 20, dims = 40;
    for (ub4 metric : {1u, 4u, 6u})
        for (bool sparse : {false, true}) {
            const vector_form query_form{TAVO_ELEM_FLOAT16, true, sparse}, form{TAVO_ELEM_FLOAT, true, sparse};
            const auto random_row = [&](const vector_form &f) {
                return sparse ? random_sparse(f.type, dims, 15, content::ordinary, rng)
                              : random_dense(f.type, dims, content::ordinary, rng);
            };
            const plain_vector wanted = random_row(query_form);
            std::vector<plain_vector> right;
            std::vector<double> due, sorted;
            for (ub4 r = 0; r < rows; r++) {
                right.push_back(random_row(form));
                due.push_back(model_distance(metric, wanted, query_form, right[r], form));
            }
            sorted = due;
            std::sort(sorted.begin(), sorted.end());
            for (bool flexible : {false, true})
                for (bool with_scratch : {false, true}) {
                    SCOPED_TRACE("metric " + std::to_string(metric) + " sparse " + std::to_string(sparse) +
                                 " flexible " + std::to_string(flexible) + " scratch " + std::to_string(with_scratch));
                    const auto column = [&](const std::vector<plain_vector> &v, const vector_form &f) {
                        return flexible ? std::make_unique<vector_column>(v, std::vector<vector_form>(v.size(), f))
                                        : std::make_unique<vector_column>(v, f);
                    };
                    const auto col = column(right, form), query = column({wanted}, query_form);
                    // Behind a head the elements are aligned 17 bytes on.
                    const guarded memory(208);
                    ub1 *const scratch = memory.data() + (flexible ? 7 : 0);
                    ASSERT_EQ(reinterpret_cast<uintptr_t>(memory.data()) % 8, 0u);
                    tavo_env env{};
                    const std::vector<found> got =
                        topk(*col, *query, metric, k, env, true, flexible ? 0 : TAVO_VECTOR_LAYOUT(sparse, sparse),
                             with_scratch ? scratch : nullptr);
                    EXPECT_EQ(env.resume_row, rows);
                    ASSERT_EQ(got.size(), k);
                    for (ub4 i = 0; i < k; i++) {
                        ASSERT_EQ(got[i].distance, sorted[i]) << "place " << i;
                        ASSERT_EQ(got[i].distance, due[got[i].row]) << "place " << i;
                        for (ub4 j = 0; j < i; j++)
                            ASSERT_NE(got[i].row, got[j].row) << "places " << i << " and " << j;
                    }
                    bool written = false;
                    for (std::size_t i = 0; i < memory.size(); i++)
                        written |= memory.data()[i] != 0xa5;
                    EXPECT_EQ(written, with_scratch);
                }
        }
}

} // namespace
} // namespace tavo::test
