// Column hashing: every form against the elements that the column was made of.
#include <gtest/gtest.h>

#include "tests/kit/host_stub.h"
#include "tests/kit/spak_stream.h"
#include "tests/kv/element_column.h"

namespace tavo::test {
namespace {

const tavo_specialized_ctx &lib = tavo_global_specialized_ctx;

struct seed_vector {
    explicit seed_vector(std::vector<ub8> seeds)
        : memory(std::span(reinterpret_cast<const ub1 *>(seeds.data()), seeds.size() * 8)) {
        enc.flags = TAVO_HASHES;
        vec.enc = &enc;
        vec.data = memory.data();
        vec.size = static_cast<ub4>(seeds.size());
    }
    guarded memory;
    tavo_enc_ctx enc{};
    tavo_vec vec{};
};

void check(element_column &column, std::mt19937_64 &rng, const std::string &what, tavo_env *env = nullptr) {
    const ub4 rows = column.vec.size;
    for (bool seed_each : {false, true}) {
        std::vector<ub8> seeds(seed_each ? rows : 1);
        for (ub8 &s : seeds)
            s = rng();
        seed_vector s(seeds);
        const guarded hashes(rows * 8ull);
        tavo_vec out{};
        out.data = hashes.data();
        ASSERT_EQ(lib.hash(&out, &column.vec, &s.vec, test_hash, env), TAVO_DONE) << what;
        for (ub4 row = 0; row < rows; row++) {
            const std::string &e = column.elements[row];
            ASSERT_EQ(hashes.as<ub8>()[row], test_hash(e.data(), e.size(), seeds[seed_each && rows != 1 ? row : 0]))
                << what << ", row " << row;
        }
    }
}

TEST(column_hash, every_form) {
    std::mt19937_64 rng(651);
    for (column_form form : column_forms)
        for (ub4 rows : {0u, 1u, 2u, 15u, 16u, 17u, 33u, 1000u}) {
            std::vector<unsigned> widths = {0};
            if (form == column_form::fixed)
                widths = {1, 3, 8, 31};
            else if (form == column_form::packed_one_len || form == column_form::packed_cla)
                widths = {1, 2, 7, 8, 12, 19, 20, 24, 32};
            for (unsigned width : widths) {
                element_column column(form, rows, width, rng);
                check(column, rng,
                      "form " + std::to_string(static_cast<int>(form)) + ", width " + std::to_string(width) + ", " +
                          std::to_string(rows) + " rows");
            }
        }
}

TEST(column_hash, what_is_refused) {
    std::mt19937_64 rng(652);
    element_column column(column_form::lp, 20, 0, rng);
    std::vector<ub8> hashes(20, 7);
    tavo_vec out{};
    out.data = hashes.data();
    seed_vector seeds({1});
    for (ub4 flags : {0u, TAVO_HASHES, TAVO_NATIVE, TAVO_DICT | TAVO_RLE}) {
        column.enc.flags = flags;
        EXPECT_EQ(lib.hash(&out, &column.vec, &seeds.vec, test_hash, nullptr), TAVO_UNSUPPORTED) << flags;
    }
    column.enc.flags = TAVO_PACKED_KEYS;
    for (ub4 width : {0u, 33u, 64u}) {
        column.enc.width_bits = width;
        EXPECT_EQ(lib.hash(&out, &column.vec, &seeds.vec, test_hash, nullptr), TAVO_UNSUPPORTED) << width;
    }
    column.enc.flags = TAVO_LP;
    seeds.enc.flags = 0;
    EXPECT_EQ(lib.hash(&out, &column.vec, &seeds.vec, test_hash, nullptr), TAVO_UNSUPPORTED);
    EXPECT_EQ(hashes, std::vector<ub8>(20, 7));
}

// A key of several columns chains its hashes in one array; so does the one seed of the first.
TEST(column_hash, result_in_the_place_of_the_seeds) {
    std::mt19937_64 rng(654);
    element_column column(column_form::lv, 40, 0, rng);
    for (bool seed_each : {false, true}) {
        std::vector<ub8> hashes(40, 0x1234);
        seed_vector seeds(seed_each ? hashes : std::vector<ub8>{0x1234});
        seeds.vec.data = hashes.data();
        tavo_vec out{};
        out.data = hashes.data();
        EXPECT_EQ(lib.hash(&out, &column.vec, &seeds.vec, test_hash, nullptr), TAVO_DONE);
        for (ub4 row = 0; row < 40; row++)
            ASSERT_EQ(hashes[row], test_hash(column.elements[row].data(), column.elements[row].size(), 0x1234)) << row;
    }
}

TEST(column_hash, compressed_column) {
    std::mt19937_64 rng(653);
    element_column column(column_form::lv, 300, 0, rng);
    std::size_t bytes = 0;
    for (const std::string &e : column.elements)
        bytes += 2 + e.size();
    const std::vector<ub1> stream = spak_of({static_cast<const ub1 *>(column.vec.data), bytes}).bytes();
    std::vector<ub1> readable = stream;
    readable.resize(stream.size() + 8);
    host_stub host;
    tavo_env env{};
    env.host = host.record();
    void *slot = nullptr;
    column.enc.flags |= TAVO_SPAK;
    column.vec.data = readable.data();
    column.vec.decomp_size = static_cast<ub4>(bytes);
    column.vec.decomp_slot = &slot;
    check(column, rng, "compressed", &env);
    ASSERT_EQ(host.allocations.size(), 1u);
    EXPECT_EQ(host.allocations[0].label, "tavo_hash_dydi: vec1_decomp");
}

} // namespace
} // namespace tavo::test
