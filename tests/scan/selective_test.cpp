// Row selection in every layout and both forms, drained through outputs of any capacity.
#include <gtest/gtest.h>

#include <array>
#include <random>

#include "tests/kit/host_stub.h"
#include "tests/scan/element_column.h"

namespace tavo::test {
namespace {

using strings = std::vector<std::string>;

std::string random_string(std::size_t length, std::mt19937_64 &rng) {
    std::string s(length, 0);
    for (char &c : s)
        c = static_cast<char>(rng());
    return s;
}
strings random_strings(ub4 layout, std::size_t rows, std::mt19937_64 &rng) {
    const std::size_t one_length = rng() % 32, longest = rng() % 4 == 0 ? 70 : 9;
    strings out(rows);
    for (std::string &s : out)
        s = random_string(layout == TAVO_FIXED ? one_length : rng() % longest, rng);
    return out;
}

// An output of exactly this many elements and bytes.
struct output {
    ub4 layout;
    guarded data, lengths;
    tavo_enc_ctx enc{};
    tavo_vec vec{};

    output(ub4 of_layout, ub4 capacity, std::size_t bytes)
        : layout(of_layout), data(bytes), lengths(std::size_t{2} * capacity) {
        enc.flags = layout;
        vec.enc = &enc;
        vec.data = data.data();
        vec.lengths = lengths.as<ub2>();
        vec.size = capacity;
        vec.byte_size = bytes;
    }
    // The elements written, taken apart by the layout's own rule.
    strings elements(std::size_t fixed_length) const {
        strings out;
        const ub1 *p = data.data();
        for (ub4 i = 0; i < vec.size; i++) {
            ub2 length = 0;
            const ub1 *bytes = p;
            if (layout == TAVO_LP || layout == TAVO_LV)
                std::memcpy(&length, p, 2);
            else
                std::memcpy(&length, lengths.data() + 2 * i, 2);
            if (layout == TAVO_FIXED)
                length = static_cast<ub2>(fixed_length);
            if (layout == TAVO_LP || layout == TAVO_LP_SEP)
                std::memcpy(&bytes, layout == TAVO_LP ? p + 2 : p, 8);
            if (layout == TAVO_LV)
                bytes += 2;
            out.emplace_back(reinterpret_cast<const char *>(bytes), length);
            p += bytes_in_data(layout, length);
        }
        if (is_walked(layout)) {
            EXPECT_EQ(vec.byte_size, static_cast<ub8>(p - data.data()));
        }
        return out;
    }
};

// Calls until the rows are exhausted, each time with another output; every one but the last is as full as it can be.
void drain(element_column &column, tavo_env &env, const strings &expected, std::mt19937_64 &rng) {
    const ub4 layout = column.layout;
    const std::size_t fixed_length = column.enc.width_bits / 8;
    strings got;
    for (;;) {
        const auto left = static_cast<ub4>(expected.size() - got.size());
        // Now and then no room at all, and now and then exactly what is left.
        const ub4 capacity = rng() % 5 == 0 ? left : static_cast<ub4>(rng() % 40);
        std::size_t needed = 0;
        for (std::size_t i = got.size(); i < std::min<std::size_t>(expected.size(), got.size() + capacity); i++)
            needed += bytes_in_data(layout, layout == TAVO_FIXED ? fixed_length : expected[i].size());
        const std::size_t bytes = is_walked(layout) && rng() % 3 == 0 ? rng() % 100 : needed;
        output out(layout, capacity, bytes);
        const ub4 status = tavo_global_specialized_ctx.selective(&out.vec, &column.vec, &env);
        for (std::string &e : out.elements(fixed_length))
            got.push_back(std::move(e));
        ASSERT_LE(got.size(), expected.size()) << std::hex << layout;
        ASSERT_TRUE(std::equal(got.begin(), got.end(), expected.begin())) << std::hex << layout;
        ASSERT_EQ(status, got.size() == expected.size() ? TAVO_DONE : TAVO_OUTPUT_FULL) << std::hex << layout;
        if (status == TAVO_DONE)
            return;
        if (out.vec.size < capacity) { // then it was for want of bytes
            ASSERT_TRUE(is_walked(layout));
            ASSERT_GT(out.vec.byte_size + bytes_in_data(layout, expected[got.size()].size()), bytes);
        }
    }
}

TEST(Selective, EveryLayoutByBits) {
    std::mt19937_64 rng(3311);
    for (int round = 0; round < 12; round++)
        for (ub4 layout : element_layouts())
            for (ub4 rows : {0u, 1u, 63u, 64u, 65u, 300u}) {
                const strings elements = random_strings(layout, rows, rng);
                element_column column(layout, elements);
                std::vector<ub8> selection((rows + 63) / 64 + 1, 0);
                strings expected;
                const ub8 one_in = std::array{1, 3, 10, 19}[rng() % 4];
                for (ub4 r = 0; r < rows; r++)
                    if (rng() % one_in == 0) {
                        selection[r / 64] |= 1ull << r % 64;
                        expected.push_back(elements[r]);
                    }
                selection[rows / 64] |= ~0ull << rows % 64; // behind the last row
                tavo_env env{};
                env.sel_bits = selection.data();
                ASSERT_NO_FATAL_FAILURE(drain(column, env, expected, rng));
                EXPECT_EQ(env.resume_row, rows);
            }
}

// The list goes before the bits; in the indexed layouts it may have any order.
TEST(Selective, EveryLayoutByList) {
    std::mt19937_64 rng(3312);
    for (int round = 0; round < 12; round++)
        for (ub4 layout : element_layouts())
            for (ub4 rows : {1u, 64u, 300u}) {
                const strings elements = random_strings(layout, rows, rng);
                element_column column(layout, elements);
                std::vector<ub4> list(rng() % (2 * rows));
                for (ub4 &entry : list)
                    entry = static_cast<ub4>(rng() % rows);
                if (is_walked(layout))
                    std::sort(list.begin(), list.end()); // with entries that repeat
                strings expected;
                for (ub4 entry : list)
                    expected.push_back(elements[entry]);
                tavo_env env{};
                std::vector<ub8> everything((rows + 63) / 64, ~0ull);
                env.sel_bits = everything.data();
                list.push_back(0); // never empty, so never without an address
                env.ones_vec = list.data();
                env.ones_vec_size = static_cast<ub4>(list.size() - 1);
                ASSERT_NO_FATAL_FAILURE(drain(column, env, expected, rng));
                EXPECT_EQ(env.resume_row, env.ones_vec_size);
            }
}

TEST(Selective, FirstCommonLayoutCounts) {
    const strings elements = {"abc", "de", "fgh"};
    element_column column(TAVO_LV, elements);
    ub8 selection = 0b111;
    tavo_env env{};
    env.sel_bits = &selection;
    output out(TAVO_LV, 3, 20);
    column.enc.flags |= TAVO_LV_SEP | TAVO_LP_SEP | TAVO_FIXED;
    out.enc.flags |= TAVO_LV_SEP | TAVO_LP | TAVO_FIXED;
    EXPECT_EQ(tavo_global_specialized_ctx.selective(&out.vec, &column.vec, &env), TAVO_DONE);
    EXPECT_EQ(out.elements(0), elements);

    out.enc.flags = TAVO_LP | TAVO_OVERREAD_OK;
    column.enc.flags = TAVO_LP_SEP | TAVO_OVERREAD_OK;
    EXPECT_EQ(tavo_global_specialized_ctx.selective(&out.vec, &column.vec, &env), TAVO_UNSUPPORTED);
}

// A row longer than the free bytes stops the pass at its start, whatever room for elements there is.
TEST(Selective, RowThatDoesNotFitIsTheNextOne) {
    element_column column(TAVO_LV, {"1234", "", "56789", "a"});
    ub8 selection = 0b1101;
    tavo_env env{};
    env.sel_bits = &selection;
    output out(TAVO_LV, 10, 12);
    EXPECT_EQ(tavo_global_specialized_ctx.selective(&out.vec, &column.vec, &env), TAVO_OUTPUT_FULL);
    EXPECT_EQ(out.elements(0), (strings{"1234"}));
    EXPECT_EQ(env.resume_row, 2u);
    EXPECT_EQ(env.resume_offset, 8u);
}

TEST(Selective, DecreasingListOfAWalkedColumnIsReported) {
    for (ub4 layout : {TAVO_LV, TAVO_LV_SEP}) {
        element_column column(layout, {"zero", "one", "two", "three"});
        host_stub host;
        raised_errors().clear();
        ub4 list[] = {2, 1, 3};
        tavo_env env{};
        env.host = host.record();
        env.ones_vec = list;
        env.ones_vec_size = 3;
        output out(layout, 3, 100);
        EXPECT_EQ(tavo_global_specialized_ctx.selective(&out.vec, &column.vec, &env), TAVO_DONE);
        ASSERT_EQ(raised_errors().size(), 1u);
        EXPECT_EQ(raised_errors()[0].message,
                  "tavo_selective found decreasing indices in ones_vec with LV or LV_SEP input");
        EXPECT_EQ(raised_errors()[0].word72, stub_word72);
        EXPECT_EQ(out.elements(0), (strings{"two", "two", "three"})); // it goes on from where it stands
    }
}

} // namespace
} // namespace tavo::test
