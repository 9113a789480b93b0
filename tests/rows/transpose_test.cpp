// Transposes against a plain loop: what they write into tables, byte by byte, and where their cursors stand.
#include <gtest/gtest.h>

#include "tests/rows/row_table.h"
#include "tests/scan/element_column.h"

namespace tavo::test {
namespace {

const tavo_specialized_ctx &library = tavo_global_specialized_ctx;

strings random_column(ub4 layout, std::size_t rows, std::mt19937_64 &rng) {
    const std::size_t one_length = random_length(rng);
    strings out(rows);
    for (std::string &s : out)
        s = random_string(layout == TAVO_FIXED ? one_length % 32 : random_length(rng), rng);
    return out;
}

// Arrays with one entry for each partition, of which one is in use.
struct cursors {
    ub1 *records[4] = {}, *bytes[4] = {}, *bytes_end[4] = {};
    ub4 *sums[4] = {};

    void give(tavo_gather_spec &shape) {
        shape.ref_cursor = records;
        shape.cla_cursor = sums;
        shape.byte_cursor = bytes;
        shape.byte_end = bytes_end;
    }
};

TEST(TransposeReference, EveryLayout) {
    std::mt19937_64 rng(821);
    for (ub4 layout : element_layouts())
        for (std::size_t rows : {0, 1, 7, 8, 9, 16, 17, 63, 64, 65, 129, 300})
            for (ub2 cols : {1, 2, 5})
                for (sb4 part : {-1, 0, 3}) {
                    const auto col = static_cast<ub2>(rng() % cols);
                    const strings elements = random_column(layout, rows, rng);
                    element_column column(layout, elements);
                    // From the column's first record to its last, with pages behind it and, of one column, before it.
                    const std::size_t last = rows == 0 ? 0 : (rows - 1) * cols * 10 + col * 10 + 10;
                    guarded table(last, guard::behind, 0xa5);
                    cursors at;
                    tavo_gather_spec shape{};
                    at.give(shape);
                    shape.flags = TAVO_TABLE_REFERENCE;
                    shape.row_cols = cols;
                    at.records[part < 0 ? 0 : part] = table.data();
                    ASSERT_EQ(library.transpose_reference(&shape, &column.vec, col, part), TAVO_DONE);
                    EXPECT_EQ(at.records[part < 0 ? 0 : part], table.data());
                    std::string expected(last, '\xa5');
                    const ub1 *packed = column.data.data();
                    for (std::size_t r = 0; r < rows; r++) {
                        const bool pointed = layout == TAVO_LP || layout == TAVO_LP_SEP;
                        const ub1 *address = pointed ? column.pool[r].data() : packed + (layout == TAVO_LV ? 2 : 0);
                        packed += bytes_in_data(layout, elements[r].size());
                        std::string record;
                        append_record(record, elements[r].size(), address);
                        expected.replace(r * cols * 10 + col * 10, 10, record);
                    }
                    ASSERT_TRUE(std::equal(expected.begin(), expected.end(), table.as<char>()))
                        << std::hex << layout << " rows " << rows << " columns " << cols;
                }
}

// The first layout in the order FIXED, LV_SEP, LV, LP_SEP, LP.
TEST(TransposeReference, FirstLayoutCounts) {
    element_column column(TAVO_LV_SEP, {"abc", "de"});
    guarded table(20);
    cursors at;
    tavo_gather_spec shape{};
    at.give(shape);
    shape.row_cols = 1;
    at.records[0] = table.data();
    EXPECT_EQ(library.transpose_reference(&shape, &column.vec, 0, 0), TAVO_UNSUPPORTED);
    shape.flags = TAVO_TABLE_REFERENCE;
    column.enc.flags = TAVO_DICT;
    EXPECT_EQ(library.transpose_reference(&shape, &column.vec, 0, 0), TAVO_UNSUPPORTED);
    for (ub1 byte : table.bytes())
        EXPECT_EQ(byte, 0xa5);
    column.enc.flags = TAVO_LV_SEP | TAVO_LV | TAVO_LP_SEP | TAVO_LP;
    EXPECT_EQ(library.transpose_reference(&shape, &column.vec, 0, 0), TAVO_DONE);
    std::string expected;
    append_record(expected, 3, column.data.data());
    append_record(expected, 2, column.data.data() + 3);
    EXPECT_EQ(std::string(table.as<char>(), 20), expected);
    column.enc.flags |= TAVO_FIXED;
    column.enc.width_bits = 8;
    EXPECT_EQ(library.transpose_reference(&shape, &column.vec, 0, 0), TAVO_DONE);
    EXPECT_EQ(table.data()[0], 1);
}

// ---- Fixed ----

TEST(TransposeFixed, EveryWidth) {
    std::mt19937_64 rng(822);
    for (ub1 width : {0, 1, 2, 3, 4, 5, 8, 12, 16, 31})
        for (std::size_t rows : {0, 1, 5, 64, 130})
            for (ub1 behind : {0, 3}) {
                strings values(rows);
                for (std::string &v : values)
                    v = random_string(width, rng);
                element_column column(TAVO_FIXED, values);
                ub1 col_bytes[] = {99, width}, col_offsets[] = {0, 6};
                const std::size_t row_bytes = 6 + width + behind,
                                  last = rows == 0 ? 0 : (rows - 1) * row_bytes + 6 + width;
                guarded table(last);
                cursors at;
                tavo_gather_spec shape{};
                at.give(shape);
                shape.flags = TAVO_TABLE_FIXED;
                shape.row_cols = 2;
                shape.row_bytes = static_cast<ub2>(row_bytes);
                shape.col_bytes = col_bytes;
                shape.col_offsets = col_offsets;
                at.bytes[2] = table.data();
                ASSERT_EQ(library.transpose_fixed(&shape, &column.vec, 1, 2), TAVO_DONE);
                EXPECT_EQ(at.bytes[2], table.data());
                std::string expected(last, '\xa5');
                for (std::size_t r = 0; r < rows; r++)
                    expected.replace(r * row_bytes + 6, width, values[r]);
                ASSERT_TRUE(std::equal(expected.begin(), expected.end(), table.as<char>())) << int{width};
            }
}

TEST(TransposeFixed, ValuesByCode) {
    const std::vector<ub4> codes = {2, 0, 1, 2, 2}, values_4 = {7, 70, 700};
    const std::vector<ub8> values_8 = {8, 80, ~ub8{0}};
    guarded code_memory(std::span(reinterpret_cast<const ub1 *>(codes.data()), 20));
    guarded side_4(std::span(reinterpret_cast<const ub1 *>(values_4.data()), 12)),
        side_8(std::span(reinterpret_cast<const ub1 *>(values_8.data()), 24));
    tavo_enc_ctx enc{};
    tavo_vec src{};
    src.enc = &enc;
    src.data = code_memory.data();
    src.size = 5;
    ub1 col_bytes[] = {4, 8, 2}, col_offsets[] = {0, 4, 12};
    guarded table(4 * 14 + 12);
    cursors at;
    tavo_gather_spec shape{};
    at.give(shape);
    at.bytes[0] = table.data();
    shape.flags = TAVO_TABLE_FIXED;
    shape.row_cols = 3;
    shape.row_bytes = 14;
    shape.col_bytes = col_bytes;
    shape.col_offsets = col_offsets;
    enc.flags = TAVO_SIDE_TABLE | TAVO_DICT;
    enc.side_table = side_4.data();
    EXPECT_EQ(library.transpose_fixed(&shape, &src, 0, 0), TAVO_DONE);
    enc.side_table = side_8.data();
    EXPECT_EQ(library.transpose_fixed(&shape, &src, 1, 0), TAVO_DONE);
    for (std::size_t r = 0; r < 5; r++) {
        EXPECT_EQ(std::memcmp(table.data() + 14 * r, &values_4[codes[r]], 4), 0);
        EXPECT_EQ(std::memcmp(table.data() + 14 * r + 4, &values_8[codes[r]], 8), 0);
    }
    // Other widths, and codes without a side table, have no values but fixed ones.
    EXPECT_EQ(library.transpose_fixed(&shape, &src, 2, 0), TAVO_UNSUPPORTED);
    enc.flags = TAVO_DICT;
    EXPECT_EQ(library.transpose_fixed(&shape, &src, 0, 0), TAVO_UNSUPPORTED);
    enc.flags = TAVO_FIXED;
    shape.flags = TAVO_TABLE_REFERENCE;
    EXPECT_EQ(library.transpose_fixed(&shape, &src, 0, 0), TAVO_UNSUPPORTED);
}

TEST(TransposeFixedDeath, PartitionMustBeGiven) {
    ub4 value = 1;
    ub1 width[] = {4}, offset[] = {0};
    tavo_enc_ctx enc{};
    enc.flags = TAVO_FIXED;
    enc.width_bits = 32;
    tavo_vec src{};
    src.enc = &enc;
    src.data = &value;
    src.size = 1;
    tavo_gather_spec shape{};
    shape.flags = TAVO_TABLE_FIXED;
    shape.col_bytes = width;
    shape.col_offsets = offset;
    EXPECT_DEATH(library.transpose_fixed(&shape, &src, 0, -1), "tavoc_avx512g.*tavo_transpose_fixed_fixed_4.*part");
    width[0] = 3;
    EXPECT_DEATH(library.transpose_fixed(&shape, &src, 0, -1), "tavoc_avx512g.*tavo_transpose_fixed_fixed.*part");
    enc.flags = TAVO_SIDE_TABLE | TAVO_DICT;
    width[0] = 4;
    EXPECT_DEATH(library.transpose_fixed(&shape, &src, 0, -1), "tavoc_avx512g.*tavo_transpose_fixed_gd.*part");
    width[0] = 8;
    EXPECT_DEATH(library.transpose_fixed(&shape, &src, 0, -1),
                 "tavoc_avx512g.*tavo_transpose_fixed_unpacked_dict.*part");
}

// ---- Conversion ----

constexpr ub4 conversions[] = {TAVO_TABLE_REFERENCE | TAVO_TABLE_ONE_ELEMENT,
                               TAVO_TABLE_REFERENCE | TAVO_TABLE_WITH_LENGTHS,
                               TAVO_TABLE_REFERENCE,
                               TAVO_TABLE_CLA | TAVO_TABLE_ONE_ELEMENT,
                               TAVO_TABLE_CLA,
                               TAVO_TABLE_REFERENCE | TAVO_TABLE_CLA,
                               TAVO_TABLE_REFERENCE | TAVO_TABLE_CLA | TAVO_TABLE_ONE_ELEMENT};

// The table that a conversion of these rows is to come to, bytes at `base`.
struct packed_image {
    std::string bytes, records, sums;
    std::vector<std::size_t> row_end; // in bytes

    packed_image(ub4 flags, const string_rows &rows, const ub1 *base) {
        const bool one = flags & TAVO_TABLE_ONE_ELEMENT;
        const bool lengths = one || ((flags & TAVO_TABLE_WITH_LENGTHS) && !(flags & TAVO_TABLE_CLA));
        ub4 sum = 0;
        if (flags & TAVO_TABLE_CLA)
            append(sums, sum);
        const auto index = [&](std::size_t size, const ub1 *address) {
            if (flags & TAVO_TABLE_REFERENCE)
                append_record(records, size, address);
            if (flags & TAVO_TABLE_CLA)
                append(sums, sum += static_cast<ub4>(size));
        };
        for (const strings &row : rows) {
            const std::size_t start = bytes.size();
            for (const std::string &e : row) {
                if (lengths)
                    append(bytes, static_cast<ub2>(e.size()));
                if (!one)
                    index(e.size(), base + bytes.size());
                bytes += e;
            }
            if (one)
                index(bytes.size() - start, base + start);
            row_end.push_back(bytes.size());
        }
    }
};

// Source and target of a conversion: the target's arrays end at unreadable pages.
struct conversion {
    row_table source;
    ub4 cols;
    guarded bytes, records, sums;
    tavo_gather_spec to{};
    cursors at;
    packed_image image;
    static constexpr sb4 to_part = 1, from_part = 0;

    conversion(ub4 flags, const string_rows &rows, ub4 of_cols)
        : source(TAVO_TABLE_REFERENCE, {rows}, of_cols, {}, true), cols(of_cols),
          bytes(packed_image(flags, rows, nullptr).bytes.size()),
          records(packed_image(flags, rows, nullptr).records.size()),
          sums(packed_image(flags, rows, nullptr).sums.size()), image(flags, rows, bytes.data()) {
        to.flags = flags;
        to.row_cols = static_cast<ub2>(cols);
        at.give(to);
        at.bytes[to_part] = at.bytes_end[to_part] = bytes.data();
        at.records[to_part] = records.data();
        at.sums[to_part] = sums.as<ub4>();
    }
    // Converts rows first to last with room for `room` further bytes, and holds status, cursors and what was written
    // against the image. `first` becomes the row reached.
    void step(ub4 &first, ub4 last, std::size_t room) {
        const std::size_t start = first == 0 ? 0 : image.row_end[first - 1];
        ASSERT_EQ(at.bytes[to_part], bytes.data() + start);
        room = std::min(room, bytes.size() - start);
        at.bytes_end[to_part] = bytes.data() + start + room;
        ub4 reached = first;
        while (reached <= last && image.row_end[reached] <= start + room)
            reached++;
        tavo_env env{};
        const ub4 status = library.transpose_convert(&to, &source.shape, to_part, from_part, first, last, &env);
        ASSERT_EQ(status, reached <= last ? TAVO_TARGET_FULL : TAVO_DONE);
        ASSERT_EQ(env.resume_row, reached);
        first = reached;
        const bool one = to.flags & TAVO_TABLE_ONE_ELEMENT;
        const std::size_t entries = std::size_t{reached} * (one ? 1 : cols);
        check(bytes, image.bytes, at.bytes[to_part], reached == 0 ? 0 : image.row_end[reached - 1]);
        check(records, image.records, at.records[to_part], to.flags & TAVO_TABLE_REFERENCE ? 10 * entries : 0);
        const bool begun = (to.flags & TAVO_TABLE_CLA) != 0 && reached != 0;
        check(sums, image.sums, reinterpret_cast<ub1 *>(at.sums[to_part]), begun ? 4 * (entries + 1) : 0);
    }
    static void check(const guarded &memory, const std::string &image, const ub1 *cursor, std::size_t written) {
        ASSERT_EQ(cursor, memory.data() + written);
        ASSERT_TRUE(std::equal(image.begin(), image.begin() + static_cast<std::ptrdiff_t>(written), memory.as<char>()));
    }
};

string_rows random_rows(std::size_t n, ub4 cols, std::mt19937_64 &rng) {
    string_rows rows(n);
    for (strings &row : rows)
        for (ub4 c = 0; c < cols; c++)
            row.push_back(random_string(random_length(rng), rng));
    return rows;
}

TEST(TransposeConvert, EveryFormDrained) {
    std::mt19937_64 rng(823);
    for (ub4 flags : conversions)
        for (ub4 cols : {1u, 2u, 3u, 31u, 63u, 64u, 65u, 150u}) {
            const std::size_t n = 1 + rng() % (cols > 10 ? 12 : 150);
            conversion c(flags, random_rows(n, cols, rng), cols);
            for (ub4 row = 0; row < n;) {
                // Some rows at a time, all of them or only as far as the room goes.
                const auto last = static_cast<ub4>(rng() % 3 == 0 ? n - 1 : row + rng() % (n - row));
                const std::size_t room = rng() % 3 == 0 ? ~0u : rng() % 5 == 0 ? 0 : rng() % (40 * cols);
                ASSERT_NO_FATAL_FAILURE(c.step(row, last, room)) << "flags " << flags << " columns " << cols;
            }
        }
}

// Whatever the room, to the byte, for rows in one batch and in several: nothing of a row that does not fit is left, and
// the call is made again.
TEST(TransposeConvert, EveryRoom) {
    string_rows rows = {{"one", "", "three"}, {"", "", ""}, {"4", "five", "s"}, {"ten", "eleven", ""}};
    for (ub4 cols : {3u, 65u}) {
        for (strings &row : rows)
            row.resize(cols);
        for (ub4 flags : conversions)
            for (std::size_t room = 0; room <= 24 + 9 * cols; room++) {
                conversion c(flags, rows, cols);
                ub4 row = 0;
                ASSERT_NO_FATAL_FAILURE(c.step(row, 3, room)) << "flags " << flags << " room " << room;
                if (row < 4) {
                    // Nothing in the bytes behind the rows that fit.
                    for (const ub1 *p = c.at.bytes[c.to_part]; p < c.bytes.data() + c.bytes.size(); p++)
                        ASSERT_EQ(*p, 0xa5);
                    ASSERT_NO_FATAL_FAILURE(c.step(row, 3, ~0u)) << "flags " << flags << " room " << room;
                }
                ASSERT_EQ(row, 4u);
            }
    }
}

TEST(TransposeConvert, RowsWithoutColumns) {
    for (ub4 flags : conversions) {
        conversion c(flags, string_rows(3), 0);
        ub4 row = 0;
        ASSERT_NO_FATAL_FAILURE(c.step(row, 1, 0)) << "flags " << flags;
        ASSERT_NO_FATAL_FAILURE(c.step(row, 2, 0)) << "flags " << flags;
        EXPECT_EQ(row, 3u);
    }
}

TEST(TransposeConvert, NothingToDo) {
    conversion c(TAVO_TABLE_CLA, {{"a"}, {"b"}}, 1);
    tavo_env env{};
    EXPECT_EQ(library.transpose_convert(&c.to, &c.source.shape, c.to_part, c.from_part, 1, 0, &env), TAVO_DONE);
    EXPECT_EQ(env.resume_row, 1u);
    EXPECT_EQ(c.at.sums[c.to_part], c.sums.as<ub4>());
    EXPECT_EQ(library.transpose_convert(nullptr, &c.source.shape, 0, 0, 0, 1, &env), TAVO_UNSUPPORTED);
    c.to.flags = TAVO_TABLE_FIXED | TAVO_TABLE_ONE_ELEMENT | TAVO_TABLE_WITH_LENGTHS;
    EXPECT_EQ(library.transpose_convert(&c.to, &c.source.shape, c.to_part, c.from_part, 0, 1, &env), TAVO_UNSUPPORTED);
    EXPECT_EQ(env.resume_row, 1u);
}

} // namespace
} // namespace tavo::test
