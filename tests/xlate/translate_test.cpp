// Translations: every member against the plain reading of the rule. Codes, numbers, offsets, lengths, tables, leaves,
// results and outputs end at an unreadable page; what a member must not touch is unreadable or no address at all.
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "frame/dispatch_table.h"
#include "frame/tavo.h"
#include "tests/kit/guarded.h"
#include "tests/kit/host_stub.h"
#include "tests/xlate/number_model.h"

namespace tavo::test {
namespace {

const tavo_specialized_ctx &lib = tavo_global_specialized_ctx;

enum form { plain, cla, constant, sep };
constexpr const char *lookups[] = {"sim", "off", "ind"};
struct element_type {
    const char *name;
    sb4 number; // as tavo_xlate_convert_width takes it
    unsigned bits;
};
constexpr element_type elements[] = {{"bit", -1, 1}, {"nib", -4, 4}, {"ub1", 1, 8}, {"ub2", 2, 16}, {"ub4", 4, 32}};

unsigned member(unsigned lookup, const element_type &element, form layout, bool c2d) {
    return TAVO_DISPATCH_INDEX(
        TAVO_KERNEL_ROW(c2d, tavo_xlate_convert_width(element.number, layout), tavo_xlate_convert_type(lookup + 1)),
        TAVO_OP_XLATE);
}
std::string member_name(unsigned lookup, const element_type &element, form layout, bool c2d) {
    static constexpr const char *tags[] = {"", "_cla", "_const", "_sep"};
    return std::string("tavo_xlate_") + lookups[lookup] + "_" + element.name + (c2d ? "_c2d" : "") + tags[layout];
}

struct code_range {
    ub4 low, high, shift;
};

// `rows` rows around a range of codes. const_length: bytes of each number of the constant layout.
class code_column {
public:
    code_column(form layout, unsigned const_length, ub4 rows, code_range range, std::mt19937_64 &rng,
                guard side = guard::behind)
        : layout(layout) {
        std::string bytes;
        std::vector<ub4> offsets = {0};
        std::vector<ub2> lengths;
        for (ub4 row = 0; row < rows; row++) {
            ub4 code = range.low + static_cast<ub4>(rng() % (ub8{range.high} - range.low + 1));
            if (rng() % 4 == 0)
                code = (rng() % 2 ? range.low : range.high) + static_cast<ub4>(rng() % 5) - 2;
            if (layout == plain) {
                codes.push_back(code);
                const ub4 stored = __builtin_bswap32(code);
                bytes.append(reinterpret_cast<const char *>(&stored), 4);
                continue;
            }
            const auto n = static_cast<unsigned>(layout == constant ? const_length
                                                 : rng() % 16 == 0  ? rng() % 12
                                                                    : 1 + rng() % 5);
            auto number = number_with_code(code, n, rng);
            if (!number || rng() % 16 == 0)
                number = odd_number(n, rng);
            codes.push_back(number_model(*number));
            bytes += *number;
            offsets.push_back(__builtin_bswap32(static_cast<ub4>(bytes.size())));
            lengths.push_back(static_cast<ub2>(n));
        }
        vec.data = keep(bytes.data(), bytes.size(), side);
        vec.enc = &enc;
        vec.size = rows;
        enc.flags = layout == plain ? TAVO_HASHES : layout == constant ? TAVO_FIXED : TAVO_LV_SEP;
        enc.width_bits = layout == plain ? 32 : const_length * 8;
        if (layout == cla)
            enc.cla = static_cast<ub4 *>(keep(offsets.data(), offsets.size() * 4, guard::behind));
        if (layout == sep)
            vec.lengths = static_cast<ub2 *>(keep(lengths.data(), lengths.size() * 2, guard::behind));
    }

    form layout;
    tavo_enc_ctx enc{};
    tavo_vec vec{};
    std::vector<std::optional<ub4>> codes;

private:
    void *keep(const void *content, std::size_t size, guard side) {
        memory.push_back(std::make_unique<guarded>(std::span(static_cast<const ub1 *>(content), size), side));
        return memory.back()->data();
    }
    std::vector<std::unique_ptr<guarded>> memory;
};

// A table for a range of codes; a quarter of its entries has no partner.
class table_case {
public:
    table_case(unsigned lookup, const element_type &element, code_range range, std::mt19937_64 &rng)
        : lookup(lookup), element(element), range(range), none((1ull << element.bits) - 1) {
        if (range.low > range.high)
            return;
        if (lookup < 2) {
            vec.bits =
                reinterpret_cast<ub8 *>(add(lookup == 0 ? range.high + 1ull : range.high - range.low + 1ull, rng));
            return;
        }
        const ub8 leaf_entries = 1ull << range.shift, first = range.low >> range.shift,
                  last = range.high >> range.shift;
        for (ub8 i = 0; i <= last; i++)
            if (i < first)
                leaves.push_back(1); // no address: codes below the range lead nowhere
            else
                leaves.push_back(i % 5 == 3 && first != last
                                     ? 0
                                     : reinterpret_cast<ub8>(
                                           add(i == last ? range.high - last * leaf_entries + 1 : leaf_entries, rng)));
        memory.push_back(
            std::make_unique<guarded>(std::span(reinterpret_cast<const ub1 *>(leaves.data()), leaves.size() * 8)));
        vec.bits = memory.back()->as<ub8>();
    }

    // The partner of a row's code; `none` if it has none.
    ub8 partner(std::optional<ub4> code) const {
        if (!code || *code < range.low || *code > range.high)
            return none;
        if (lookup < 2)
            return entry(reinterpret_cast<const ub1 *>(vec.bits), lookup == 0 ? *code : *code - range.low);
        const ub8 leaf = leaves[*code >> range.shift];
        return leaf == 0 ? none : entry(reinterpret_cast<const ub1 *>(leaf), *code % (1u << range.shift));
    }

    unsigned lookup;
    element_type element;
    code_range range;
    ub8 none;
    tavo_vec vec{};

private:
    ub8 entry(const ub1 *table, ub8 i) const {
        ub8 value = 0;
        if (element.bits < 8)
            return table[i * element.bits / 8] >> i * element.bits % 8 & none;
        std::memcpy(&value, table + i * element.bits / 8, element.bits / 8);
        return value;
    }
    ub1 *add(ub8 entries, std::mt19937_64 &rng) {
        memory.push_back(std::make_unique<guarded>((entries * element.bits + 7) / 8));
        ub1 *table = memory.back()->data();
        for (std::size_t i = 0; i < memory.back()->size(); i++)
            table[i] = static_cast<ub1>(rng());
        for (ub8 i = 0; i < entries; i++) // all ones, or all but one bit of it
            if (element.bits >= 4 && rng() % 4 == 0)
                for (ub8 bit = i * element.bits; bit < (i + 1) * element.bits; bit++)
                    table[bit / 8] |= static_cast<ub1>(1 << bit % 8);
            else if (element.bits >= 8 && rng() % 8 == 0) {
                std::memset(table + i * element.bits / 8, 0xff, element.bits / 8);
                table[i * element.bits / 8] = 0xfe;
            }
        return table;
    }
    std::vector<std::unique_ptr<guarded>> memory;
    std::vector<ub8> leaves;
};

constexpr ub8 noise = 0xa5a5a5a5a5a5a5a5; // what a fresh guarded block holds

void check(const code_column &column, const table_case &table, bool c2d, ub4 start, const ub8 *selection,
           const std::string &what) {
    const ub4 rows = column.vec.size;
    const unsigned index = member(table.lookup, table.element, column.layout, c2d);
    const std::string name = member_name(table.lookup, table.element, column.layout, c2d);
    ASSERT_EQ(tavo_dispatch_func_names.name[index], name);
    const unsigned entry_bytes = table.element.bits <= 8 ? 1 : table.element.bits / 8;
    guarded bits((rows + 63ull) / 64 * 8), extent(8), out(c2d ? rows * entry_bytes : 0);
    tavo_vec res{}, src = column.vec, dict = table.vec;
    res.bits = bits.as<ub8>();
    res.data = extent.data();
    tavo_xlate_ctx ctx{table.range.low, table.range.high, table.range.shift};
    tavo_env env{};
    env.start_row = start;
    env.sel_bits = const_cast<ub8 *>(selection);
    env.xlate_ctx = &ctx;
    env.xlate_out = c2d ? out.data() : nullptr;
    const ub4 status = lib.dispatch_table[index].xlate(&res, &src, &dict, &env);

    std::vector<ub8> expected(bits.size() / 8, 0);
    std::vector<ub1> expected_out(out.size(), 0xa5);
    ub4 count = 0, first = ~0u, last = ~0u;
    for (ub4 row = 0; row < rows; row++) {
        if (row < start) {
            expected[row / 64] |= noise & 1ull << row % 64;
            continue;
        }
        if (selection != nullptr && !(selection[row / 64] >> row % 64 & 1))
            continue;
        const ub8 partner = table.partner(column.codes[row]);
        if (c2d)
            std::memcpy(&expected_out[row * entry_bytes], &partner, entry_bytes);
        if (partner != table.none) {
            expected[row / 64] |= 1ull << row % 64;
            first = count++ == 0 ? row : first;
            last = row;
        }
    }
    for (ub4 w = 0; w < expected.size() && w < (start < rows ? start / 64 : ~0u); w++)
        expected[w] = noise; // holds no row from start_row on
    for (ub4 w = 0; w < expected.size(); w++)
        ASSERT_EQ(bits.as<ub8>()[w], expected[w]) << name << ", " << what << ", word " << w;
    ASSERT_EQ(status, count == 0 ? TAVO_NONE_SELECTED : TAVO_DONE) << name << ", " << what;
    ASSERT_EQ(res.count, count) << name << ", " << what;
    ASSERT_EQ(extent.as<ub4>()[0], first) << name << ", " << what;
    ASSERT_EQ(extent.as<ub4>()[1], last) << name << ", " << what;
    for (std::size_t i = 0; i < expected_out.size(); i++)
        ASSERT_EQ(out.data()[i], expected_out[i]) << name << ", " << what << ", byte " << i << " of the output";
    ASSERT_EQ(env.result_flags2, selection != nullptr ? 1 : 0) << name;
    ASSERT_EQ(env.result_flags, 0) << name;
}

std::vector<ub8> random_selection(ub4 rows, std::mt19937_64 &rng) {
    std::vector<ub8> selection((rows + 63ull) / 64);
    for (ub8 &word : selection)
        word = rng() % 3 == 0 ? 0 : rng() % 2 ? rng() : rng() & rng() & rng();
    return selection;
}

TEST(translate, every_member_against_the_rule) {
    std::mt19937_64 rng(71);
    const code_range ranges[] = {{0, 16500, 6},         {129, 129, 3},    {70, 5000, 9}, {0x0ffff000, 0x0fffffff, 11},
                                 {~0u - 3000, ~0u, 10}, {0, 1u << 14, 14}};
    for (const code_range &range : ranges)
        for (unsigned lookup = 0; lookup < 3; lookup++) {
            if (lookup == 0 && range.high > 1 << 20)
                continue; // a table of all codes
            std::vector<table_case> tables;
            for (const element_type &element : elements)
                tables.emplace_back(lookup, element, range, rng);
            for (int layout = 0; layout < 4; layout++)
                for (unsigned length = 0; length < (layout == constant ? 8 : 1); length++)
                    for (ub4 rows : {0, 1, 15, 16, 17, 63, 64, 65, 127, 129, 255, 256, 257, 320, 511, 513, 1025}) {
                        const code_column column(static_cast<form>(layout), length, rows, range, rng,
                                                 rng() % 2 ? guard::behind : guard::before);
                        const std::vector<ub8> selection = random_selection(rows, rng);
                        const auto start = static_cast<ub4>(rng() % (rows + 2));
                        for (const table_case &table : tables)
                            for (bool c2d : {false, true})
                                if (!c2d || table.element.bits > 1)
                                    for (int way = 0; way < 4; way++) {
                                        const std::string what =
                                            std::to_string(rows) + " rows of " + std::to_string(length) + " bytes" +
                                            (way & 1 ? " from " + std::to_string(start) : "") +
                                            (way & 2 ? ", selected" : "") + ", codes from " + std::to_string(range.low);
                                        check(column, table, c2d, way & 1 ? start : 0,
                                              way & 2 ? selection.data() : nullptr, what);
                                        if (HasFatalFailure())
                                            return;
                                    }
                    }
        }
}

TEST(translate, rows_of_an_empty_range_touch_no_table) {
    std::mt19937_64 rng(72);
    const code_range around{0, 300, 4};
    for (unsigned lookup = 0; lookup < 3; lookup++)
        for (const element_type &element : elements) {
            const table_case empty(lookup, element, {5, 4, 4}, rng); // a null pointer
            for (form layout : {plain, sep})
                for (bool c2d : {false, true})
                    if (!c2d || element.bits > 1)
                        check(code_column(layout, 0, 300, around, rng), empty, c2d, 0, nullptr, "no range");
        }
}

// Each length with each exponent byte.
TEST(translate, numbers_of_every_length_and_exponent) {
    std::mt19937_64 rng(73);
    const table_case small(1, elements[4], {0, 1 << 17, 0}, rng),
        large(1, elements[4], {(1 << 28) - 999, (1 << 28) + 70000, 0}, rng);
    for (unsigned length = 0; length <= 6; length++) {
        code_column numbers(constant, length, 256 * 12, {0, 0, 0}, rng);
        auto *bytes = static_cast<ub1 *>(numbers.vec.data);
        for (ub4 row = 0; row < numbers.vec.size; row++) {
            for (unsigned i = 0; i < length; i++)
                bytes[row * length + i] = static_cast<ub1>(i == 0          ? row
                                                           : row / 256 < 3 ? 1 + row / 256 // pairs of 0, 1, 2
                                                           : row / 256 < 4 ? 100
                                                                           : 1 + rng() % 100);
            numbers.codes[row] = number_model({reinterpret_cast<const char *>(bytes + row * length), length});
        }
        for (const table_case *table : {&small, &large})
            check(numbers, *table, true, 0, nullptr, "length " + std::to_string(length));
    }
    EXPECT_EQ(number_model("\xc2\x02"), 128u);             // 100
    EXPECT_EQ(number_model("\xc2\x30\x03"), 47u << 7 | 2); // 4702
}

// A filter after another narrows one bit vector.
TEST(translate, result_in_the_place_of_the_selection) {
    std::mt19937_64 rng(74);
    const code_range range{0, 200, 4};
    const table_case table(0, elements[2], range, rng);
    const code_column column(plain, 0, 5000, range, rng);
    std::vector<ub8> selection = random_selection(5000, rng), before = selection;
    ub4 extent[2];
    tavo_vec res{}, src = column.vec, dict = table.vec;
    res.bits = selection.data();
    res.data = extent;
    tavo_xlate_ctx ctx{range.low, range.high, range.shift};
    tavo_env env{};
    env.sel_bits = selection.data();
    env.xlate_ctx = &ctx;
    EXPECT_EQ(lib.dispatch_table[member(0, elements[2], plain, false)].xlate(&res, &src, &dict, &env), TAVO_DONE);
    for (ub4 row = 0; row < 5000; row++)
        ASSERT_EQ(selection[row / 64] >> row % 64 & 1,
                  (before[row / 64] >> row % 64 & 1) && table.partner(column.codes[row]) != table.none)
            << row;
}

// Rows before the last 300 lie in unreadable memory, or nowhere.
TEST(translate, selections_read_selected_rows_only) {
    std::mt19937_64 rng(75);
    const code_range range{0, 200, 4};
    const table_case table(1, elements[3], range, rng);
    const ub4 rows = 300, far = 64 * 4096;
    for (form layout : {plain, cla, constant}) {
        code_column column(layout, 3, rows, range, rng);
        const unsigned row_bytes = layout == plain ? 4 : 3;
        if (layout == cla)
            column.enc.cla -= far;
        else
            column.vec.data = static_cast<ub1 *>(column.vec.data) - far * ub8{row_bytes};
        column.vec.size = far + rows;
        column.codes.insert(column.codes.begin(), far, std::nullopt);
        std::vector<ub8> selection((far + rows + 63) / 64);
        for (ub4 row = far + 8; row < far + rows; row += 1 + static_cast<ub4>(rng() % 4))
            selection[row / 64] |= 1ull << row % 64;
        for (bool c2d : {false, true})
            check(column, table, c2d, 0, selection.data(), "far rows");
    }
}

TEST(translate, other_forms_are_refused) {
    std::mt19937_64 rng(76);
    const code_range range{0, 200, 4};
    code_column column(plain, 0, 100, range, rng);
    tavo_vec res{};
    res.count = 77;
    tavo_xlate_ctx ctx{0, 200, 4};
    tavo_env env{};
    env.xlate_ctx = &ctx;
    env.sel_bits = reinterpret_cast<ub8 *>(8); // not read
    for (auto [flags, width] : {std::pair(TAVO_FIXED, 32u), {TAVO_HASHES, 64u}, {TAVO_HASHES, 16u}}) {
        column.enc.flags = flags;
        column.enc.width_bits = width;
        for (unsigned lookup = 0; lookup < 3; lookup++)
            for (const element_type &element : elements)
                for (bool c2d : {false, true})
                    if (!c2d || element.bits > 1) {
                        const unsigned index = member(lookup, element, plain, c2d);
                        EXPECT_EQ(lib.dispatch_table[index].xlate(&res, &column.vec, nullptr, &env), TAVO_UNSUPPORTED);
                    }
    }
    EXPECT_EQ(res.count, 77u);
    EXPECT_EQ(env.result_flags2, 0);
}

// A stream is decompressed by the first kernel that meets it.
TEST(translate, compressed_codes) {
    std::mt19937_64 rng(77);
    const code_range range{0, 200, 4};
    const table_case table(0, elements[2], range, rng);
    code_column column(plain, 0, 100, range, rng);
    host_stub host;
    void *slot = column.vec.data; // as an earlier kernel left it
    column.vec.decomp_slot = &slot;
    column.vec.data = nullptr;
    column.enc.flags |= TAVO_SPAK;
    check(column, table, false, 0, nullptr, "decompressed");
}

TEST(translate, group_keys) {
    std::mt19937_64 rng(78);
    for (const element_type &element : std::span(elements).subspan(1)) {
        const unsigned index = TAVO_DISPATCH_INDEX(
            TAVO_KERNEL_ROW(TAVO_VARIANT_SECOND, tavo_xlate_convert_width(element.number, 0), TAVO_CLASS_OTHER),
            TAVO_OP_XLATE);
        ASSERT_EQ(tavo_dispatch_func_names.name[index], std::string("tavo_xlate_groupkey_") + element.name + "_c2d");
        for (ub4 highest : {0u, 1u, 6u, 1000u}) {
            const table_case table(0, element, {0, highest, 0}, rng);
            for (ub4 rows : {0, 1, 15, 16, 17, 64, 255, 256, 257, 1000}) {
                const guarded codes(rows * 4), keys(rows * 4);
                std::vector<ub4> expected(rows);
                const auto stride = static_cast<ub4>(rng());
                for (ub4 row = 0; row < rows; row++) {
                    const auto code = static_cast<ub4>(rng() % (highest + 1));
                    codes.as<ub4>()[row] = __builtin_bswap32(code);
                    keys.as<ub4>()[row] = static_cast<ub4>(rng());
                    expected[row] = keys.as<ub4>()[row] + static_cast<ub4>(table.partner(code)) * stride;
                }
                tavo_vec key_vec{}, src{};
                key_vec.data = keys.data();
                src.data = codes.data();
                src.size = rows;
                const tavo_xlate_groupkey_ctx ctx{stride, table.vec.bits};
                EXPECT_EQ(lib.dispatch_table[index].xlate_groupkey(&key_vec, &src, nullptr, &ctx), TAVO_DONE);
                for (ub4 row = 0; row < rows; row++)
                    ASSERT_EQ(keys.as<ub4>()[row], expected[row]) << element.name << ", row " << row << " of " << rows;
            }
        }
    }
}

} // namespace
} // namespace tavo::test
