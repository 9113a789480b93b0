// Run expansion in place: the elements stand at the end of the output, which ends at an unreadable page.
#include "decode/rle_expand.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>

#include "tests/kit/guarded.h"

namespace tavo::test {
namespace {

struct member {
    const char *name;
    tavo_expand_runs_fn *call;
    unsigned entry_bytes, element_bytes;
};
constexpr member members[] = {
    {"tavo_rle8_expand_ub1", tavo_rle8_expand_ub1, 1, 1},   {"tavo_rle8_expand_ub2", tavo_rle8_expand_ub2, 1, 2},
    {"tavo_rle8_expand_ub4", tavo_rle8_expand_ub4, 1, 4},   {"tavo_rle16_expand_ub1", tavo_rle16_expand_ub1, 2, 1},
    {"tavo_rle16_expand_ub2", tavo_rle16_expand_ub2, 2, 2}, {"tavo_rle16_expand_ub4", tavo_rle16_expand_ub4, 2, 4},
};

void expand_and_compare(const member &m, const std::vector<ub4> &lengths, ub4 first_count, ub4 last_excess) {
    SCOPED_TRACE(m.name);
    const ub4 runs = static_cast<ub4>(lengths.size());
    std::vector<ub1> table, want, elements;
    for (ub4 i = 0; i < runs; i++) {
        const ub4 entry = i == 0 ? 0xee : lengths[i]; // the first entry isn't read: first_count stands for it
        if (m.entry_bytes == 2)
            table.push_back(static_cast<ub1>(entry >> 8));
        table.push_back(static_cast<ub1>(entry));
        ub1 element[4];
        for (unsigned b = 0; b < m.element_bytes; b++)
            element[b] = static_cast<ub1>(i * 37 + b * 91 + 1);
        elements.insert(elements.end(), element, element + m.element_bytes);
        ub4 rows = i == 0 ? first_count : lengths[i];
        if (i + 1 == runs)
            rows -= last_excess;
        for (; rows > 0; rows--)
            want.insert(want.end(), element, element + m.element_bytes);
    }
    const guarded run_table{std::span<const ub1>(table)};
    // In place where the rows are as many as the runs, else from memory of its own.
    const bool in_place = want.size() >= elements.size();
    const guarded out(want.size()), apart{std::span<const ub1>(elements)};
    tavo_vec dst{}, src{};
    dst.data = out.data();
    src.data = in_place ? out.data() + want.size() - elements.size() : apart.data();
    src.size = runs;
    std::memcpy(src.data, elements.data(), elements.size());
    m.call(&dst, &src, run_table.data(), first_count, last_excess);
    ASSERT_EQ(std::vector<ub1>(out.data(), out.data() + want.size()), want);
}

TEST(RleExpand, RunsOfEveryLength) {
    std::mt19937_64 rng(51);
    for (const member &m : members) {
        const ub4 longest = m.entry_bytes == 1 ? 255 : 65535;
        // Each length beside a short run, first, in the middle and last.
        for (ub4 length :
             {1u, 7u, 8u, 9u, 15u, 16u, 17u, 31u, 32u, 33u, 63u, 64u, 65u, 254u, 255u, 256u, 5000u, 65535u})
            if (length <= longest) {
                expand_and_compare(m, {length, 1, length, 2, length}, length, 0);
                expand_and_compare(m, {1, length, 1}, 1, 0);
            }
        for (int round = 0; round < 200; round++) {
            std::vector<ub4> lengths(1 + rng() % 100);
            const ub4 limit = rng() % 4 != 0 ? 6 : std::min(longest, 700u);
            for (ub4 &length : lengths)
                length = static_cast<ub4>(1 + rng() % limit);
            const ub4 first = static_cast<ub4>(1 + rng() % lengths[0]);
            const ub4 last = lengths.size() == 1 ? first : lengths.back();
            expand_and_compare(m, lengths, first, static_cast<ub4>(rng() % last));
        }
    }
}

TEST(RleExpand, Ends) {
    for (const member &m : members) {
        expand_and_compare(m, {9}, 9, 0);           // one run only
        expand_and_compare(m, {9}, 5, 4);           // of which one row is wanted
        expand_and_compare(m, {9}, 5, 5);           // or none
        expand_and_compare(m, {9, 3, 20}, 0, 0);    // nothing left of the first
        expand_and_compare(m, {9, 3, 20}, 2, 19);   // one row of the last
        expand_and_compare(m, {4, 0, 0, 40}, 4, 0); // empty runs between
    }
}

} // namespace
} // namespace tavo::test
