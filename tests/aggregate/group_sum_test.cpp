// Grouped sums against the loop in the stated order, bit by bit: both layouts, every type, form and number of groups.
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "frame/tavo.h"
#include "tests/kit/codes.h"
#include "tests/kit/compressed_column.h"
#include "tests/kit/host_stub.h"
#include "tests/kit/numbers.h"

namespace tavo::test {
namespace {

const tavo_specialized_ctx &library = tavo_global_specialized_ctx;
constexpr ub4 no_keys = 0;

template <class T>
constexpr ub1 value_type = sizeof(T) == 4 ? TAVO_VALUE_FLOAT : TAVO_VALUE_DOUBLE;

std::vector<ub4> random_keys(ub4 rows, ub4 groups, std::mt19937_64 &rng) {
    std::vector<ub4> keys(rows);
    for (ub4 &key : keys)
        key = static_cast<ub4>(rng() % 3 == 0 ? 0 : rng() % groups);
    return keys;
}
guarded guarded_keys(const std::vector<ub4> &keys) {
    guarded memory(keys.size() * 4);
    if (!keys.empty())
        std::memcpy(memory.data(), keys.data(), memory.size());
    return memory;
}

// What an array of accumulators holds afterwards.
template <class T>
std::vector<T> array_model(std::vector<T> acc, const std::vector<T> &values, const std::vector<ub4> &keys,
                           bool with_keys) {
    if (!with_keys) {
        T total = 0;
        for (T v : values)
            total = total + v;
        acc[0] = acc[0] + total;
        return acc;
    }
    std::size_t row = 0;
    if (acc.size() == 2 || acc.size() == 3) {
        const std::size_t width = sizeof(T) == 4 ? 8 : 4, whole = values.size() / width * width;
        for (std::size_t g = 0; g < acc.size(); g++) {
            std::vector<T> lanes(width, T{0});
            for (std::size_t i = 0; i < whole; i++)
                if (keys[i] == g)
                    lanes[i % width] = lanes[i % width] + values[i];
            acc[g] = acc[g] + folded(lanes);
        }
        row = whole;
    }
    for (; row < values.size(); row++)
        acc[keys[row]] = acc[keys[row]] + values[row];
    return acc;
}

template <class T>
void hold_float_arrays() {
    std::mt19937_64 rng(5210 + sizeof(T));
    for (bool comparable : {false, true})
        for (ub4 groups : {no_keys, 1u, 2u, 3u, 4u, 256u, 100000u})
            for (ub4 rows : {0u, 1u, 3u, 4u, 7u, 8u, 9u, 15u, 16u, 17u, 24u, 31u, 32u, 513u, 1500u})
                for (sample kind : {sample::rounding, sample::special}) {
                    const bool shift = rng() % 2, null_vector = rng() % 2;
                    const auto values = random_numbers<T>(rows, kind, rng);
                    const stored_numbers<T> data(values, comparable, shift);
                    const ub4 size = std::max(groups, 1u);
                    const auto keys = random_keys(rows, size, rng);
                    const auto before = random_numbers<T>(size, sample::rounding, rng);
                    const stored_numbers<T> acc_memory(before, false);
                    const guarded key_memory = guarded_keys(keys);
                    tavo_enc_ctx enc{}, acc_enc{};
                    enc.value_type = value_type<T>;
                    enc.flags = comparable ? 0 : TAVO_NATIVE;
                    tavo_vec acc{}, src{}, key_vec{};
                    acc.data = acc_memory.data();
                    acc.size = size;
                    acc.enc = rng() % 2 ? &acc_enc : nullptr;
                    src.data = data.data();
                    src.enc = &enc;
                    src.size = rows;
                    key_vec.data = groups == no_keys ? nullptr : key_memory.data();
                    ASSERT_EQ(library.gby_sum(&acc, &src, groups == no_keys && null_vector ? nullptr : &key_vec,
                                              nullptr, nullptr),
                              TAVO_DONE);
                    const auto expected = array_model(before, values, keys, groups != no_keys);
                    for (ub4 g = 0; g < size; g++) {
                        T got;
                        std::memcpy(&got, acc_memory.data() + g * sizeof(T), sizeof got);
                        ASSERT_TRUE(same_number(got, expected[g]))
                            << "group " << g << " of " << groups << ", " << rows << " rows, comparable " << comparable
                            << ": " << got << " instead of " << expected[g];
                    }
                }
}
TEST(gby_sum, arrays_of_float) { hold_float_arrays<float>(); }
TEST(gby_sum, arrays_of_double) { hold_float_arrays<double>(); }

TEST(gby_sum, arrays_of_integers) {
    std::mt19937_64 rng(5211);
    for (unsigned bytes : {1u, 2u, 4u, 8u})
        for (bool big_endian : {false, true})
            for (ub4 groups : {no_keys, 1u, 2u, 3u, 4u, 256u, 100000u})
                for (ub4 rows : {0u, 1u, 7u, 8u, 9u, 15u, 16u, 17u, 513u, 1500u}) {
                    guarded data(rows * bytes + rows % 2);
                    const ub4 size = std::max(groups, 1u);
                    const auto keys = random_keys(rows, size, rng);
                    std::vector<ub8> expected(size);
                    for (ub8 &e : expected)
                        e = rng();
                    std::vector<ub8> acc_memory = expected;
                    for (ub4 i = 0; i < rows; i++) {
                        const ub8 v = rng() % 4 == 0 ? ~0ull << 7 : rng();
                        const unsigned above = 64 - 8 * bytes;
                        expected[groups == no_keys ? 0 : keys[i]] +=
                            static_cast<ub8>(static_cast<sb8>(v << above) >> above);
                        if (big_endian)
                            store_big_endian(data.data() + i * bytes, v, bytes);
                        else
                            std::memcpy(data.data() + i * bytes, &v, bytes);
                    }
                    const guarded key_memory = guarded_keys(keys);
                    tavo_enc_ctx enc{};
                    enc.value_type = TAVO_VALUE_INTEGER;
                    enc.width_bits = 8 * bytes;
                    tavo_env env{};
                    env.flags2 = big_endian ? TAVO_ENV2_BIG_ENDIAN | 2 : 2;
                    tavo_vec acc{}, src{}, key_vec{};
                    acc.data = acc_memory.data();
                    acc.size = size;
                    src.data = data.data();
                    src.enc = &enc;
                    src.size = rows;
                    key_vec.data = key_memory.data();
                    ASSERT_EQ(library.gby_sum(&acc, &src, groups == no_keys ? nullptr : &key_vec,
                                              big_endian || bytes == 1 ? &env : nullptr, nullptr),
                              TAVO_DONE);
                    ASSERT_EQ(acc_memory, expected) << bytes << " bytes, big-endian " << big_endian << ", " << groups
                                                    << " groups, " << rows << " rows";
                }
}

struct record_shape {
    ub4 width_bits;
    sb2 sum, count;
};

// Records of any size, in which nothing is aligned; with keys a comparable column counts as native.
template <class T>
void hold_records() {
    std::mt19937_64 rng(5212 + sizeof(T));
    constexpr sb2 size = sizeof(T);
    for (const record_shape &shape : {record_shape{8 * size + 32, 0, size}, record_shape{8 * size + 40, 5, 1},
                                      record_shape{8 * size + 23, 1, TAVO_NO_COUNT}, record_shape{400, 3, 40}})
        for (bool comparable : {false, true})
            for (bool with_keys : {false, true})
                for (ub4 rows : {0u, 1u, 17u, 300u}) {
                    const ub4 groups = with_keys ? 7 : 1, bytes = (shape.width_bits + 7) / 8;
                    const auto values = random_numbers<T>(rows, sample::rounding, rng);
                    const stored_numbers<T> data(values, comparable, rng() % 2);
                    const auto keys = random_keys(rows, groups, rng);
                    const guarded key_memory = guarded_keys(keys);
                    guarded records(groups * bytes);
                    std::vector<T> start(groups, static_cast<T>(0.75));
                    for (ub4 g = 0; g < groups; g++) {
                        std::memcpy(records.data() + g * bytes + shape.sum, &start[g], sizeof(T));
                        if (shape.count != TAVO_NO_COUNT) {
                            const ub4 count = 1000 + g;
                            std::memcpy(records.data() + g * bytes + shape.count, &count, 4);
                        }
                    }
                    std::vector<ub1> expected(records.data(), records.data() + records.size());
                    const auto change = [&](ub4 g, auto &&new_sum, auto &&new_count) {
                        T sum;
                        std::memcpy(&sum, &expected[g * bytes + shape.sum], sizeof sum);
                        sum = new_sum(sum);
                        std::memcpy(&expected[g * bytes + shape.sum], &sum, sizeof sum);
                        if (shape.count == TAVO_NO_COUNT)
                            return;
                        ub4 count;
                        std::memcpy(&count, &expected[g * bytes + shape.count], 4);
                        count = new_count(count);
                        std::memcpy(&expected[g * bytes + shape.count], &count, 4);
                    };
                    T total = 0;
                    for (T v : values)
                        total = total + v;
                    for (ub4 i = 0; with_keys && i < rows; i++) {
                        T stored;
                        std::memcpy(&stored, data.data() + i * sizeof(T), sizeof stored);
                        change(
                            keys[i], [&](T sum) { return sum + stored; }, [](ub4 count) { return count + 1; });
                    }
                    if (!with_keys)
                        change(
                            0, [&](T) { return total; }, [&](ub4) { return rows; });
                    tavo_enc_ctx enc{}, acc_enc{};
                    enc.value_type = value_type<T>;
                    enc.flags = comparable ? 0 : TAVO_NATIVE;
                    acc_enc.flags = TAVO_ACCUMULATORS;
                    acc_enc.width_bits = shape.width_bits;
                    tavo_vec acc{}, src{}, key_vec{};
                    acc.data = records.data();
                    acc.enc = &acc_enc;
                    src.data = data.data();
                    src.enc = &enc;
                    src.size = rows;
                    key_vec.data = with_keys ? key_memory.data() : nullptr;
                    sb2 offsets[2];
                    offsets[TAVO_OFFSET_OF_SUM] = shape.sum;
                    offsets[TAVO_OFFSET_OF_COUNT] = shape.count;
                    ASSERT_EQ(library.gby_sum(&acc, &src, &key_vec, nullptr, offsets), TAVO_DONE);
                    // Sums of stored comparable bits come out as some NaN at times: compared as numbers.
                    for (ub4 g = 0; g < groups; g++) {
                        T got, wanted;
                        std::memcpy(&got, records.data() + g * bytes + shape.sum, sizeof got);
                        std::memcpy(&wanted, &expected[g * bytes + shape.sum], sizeof wanted);
                        ASSERT_TRUE(same_number(got, wanted)) << "record " << g << ", " << rows << " rows, comparable "
                                                              << comparable << ", keys " << with_keys;
                        std::memcpy(&expected[g * bytes + shape.sum], &got, sizeof got);
                    }
                    ASSERT_EQ(std::vector<ub1>(records.data(), records.data() + records.size()), expected);
                }
}
TEST(gby_sum, records_of_float) { hold_records<float>(); }
TEST(gby_sum, records_of_double) { hold_records<double>(); }

TEST(gby_sum, what_is_refused) {
    double sums[4] = {1, 2, 3, 4};
    const double values[4] = {5, 6, 7, 8};
    ub4 keys[4] = {0, 1, 2, 3};
    const sb2 offsets[2] = {0, -1};
    const auto status = [&](ub1 type, ub4 width_bits, bool records, const sb2 *where) {
        tavo_enc_ctx enc{}, acc_enc{};
        enc.value_type = type;
        enc.flags = TAVO_NATIVE;
        enc.width_bits = width_bits;
        acc_enc.flags = records ? TAVO_ACCUMULATORS : 0;
        acc_enc.width_bits = 64;
        tavo_vec acc{}, src{}, key_vec{};
        acc.data = sums;
        acc.size = 4;
        acc.enc = &acc_enc;
        src.data = const_cast<double *>(values);
        src.enc = &enc;
        src.size = 4;
        key_vec.data = keys;
        return library.gby_sum(&acc, &src, &key_vec, nullptr, where);
    };
    for (int type = 0; type < 256; type++) {
        if (type != TAVO_VALUE_FLOAT && type != TAVO_VALUE_DOUBLE) {
            EXPECT_EQ(status(static_cast<ub1>(type), 64, true, offsets), TAVO_BAD_INPUT) << type;
            if (type != TAVO_VALUE_INTEGER) {
                EXPECT_EQ(status(static_cast<ub1>(type), 64, false, offsets), TAVO_BAD_INPUT) << type;
            }
        }
        EXPECT_EQ(status(static_cast<ub1>(type), 64, true, nullptr), TAVO_BAD_INPUT) << type;
    }
    for (ub4 width : {0u, 1u, 24u, 40u, 63u, 128u})
        EXPECT_EQ(status(TAVO_VALUE_INTEGER, width, false, nullptr), TAVO_DONE) << width;
    EXPECT_EQ(std::vector<double>(sums, sums + 4), (std::vector<double>{1, 2, 3, 4}));
    EXPECT_EQ(status(TAVO_VALUE_DOUBLE, 64, false, nullptr), TAVO_DONE);
    EXPECT_EQ(sums[3], 12);
}

TEST(gby_sum, compressed_column) {
    std::vector<ub1> plain(8000);
    for (ub4 i = 0; i < 1000; i++)
        store_number(plain.data() + 8 * i, i % 5 * 0.25, true);
    compressed_column col(plain, 1000);
    col.enc.value_type = TAVO_VALUE_DOUBLE;
    tavo_vec acc{};
    double sum = 1;
    acc.data = &sum;
    acc.size = 1;
    EXPECT_EQ(library.gby_sum(&acc, &col.vec, nullptr, &col.env, nullptr), TAVO_DONE);
    EXPECT_EQ(sum, 501);
    ASSERT_EQ(col.host.allocations.size(), 1u);
    EXPECT_EQ(col.host.allocations[0].label, "tavo_gby_sum_dydi: vec1_decomp");
}

} // namespace
} // namespace tavo::test
