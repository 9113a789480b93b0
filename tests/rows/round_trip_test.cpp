// Columns through tables back to columns: transposed, packed, and gathered in every layout.
#include <gtest/gtest.h>

#include "tests/rows/row_table.h"
#include "tests/scan/element_column.h"

namespace tavo::test {
namespace {

const tavo_specialized_ctx &library = tavo_global_specialized_ctx;
constexpr ub4 parts = 3, cols = 4;

// A table of `parts` partitions with room for the rows of all of them.
struct table_memory {
    std::vector<std::vector<ub1>> records, bytes;
    std::vector<std::vector<ub4>> sums;
    std::vector<ub1 *> ref_tables, ref_cursor, byte_cursor, byte_end;
    std::vector<ub4 *> cla_tables, cla_cursor;
    std::vector<ub8> part_bases;
    tavo_gather_spec shape{};

    table_memory(ub4 flags, std::size_t elements, std::size_t byte_room) {
        shape.flags = flags;
        shape.row_cols = cols;
        shape.part_low = 20;
        shape.part_top = 21;
        for (ub4 p = 0; p < parts; p++) {
            records.emplace_back(elements * 10);
            bytes.emplace_back(byte_room);
            sums.emplace_back(elements + 1);
        }
        for (ub4 p = 0; p < parts; p++) {
            ref_tables.push_back(records[p].data());
            byte_cursor.push_back(bytes[p].data());
            byte_end.push_back(bytes[p].data() + byte_room);
            cla_tables.push_back(sums[p].data());
            part_bases.push_back(reinterpret_cast<ub8>(bytes[p].data()));
        }
        ref_cursor = ref_tables;
        cla_cursor = cla_tables;
        shape.ref_tables = ref_tables.data();
        shape.cla_tables = cla_tables.data();
        shape.part_bases = part_bases.data();
        shape.ref_cursor = ref_cursor.data();
        shape.cla_cursor = cla_cursor.data();
        shape.byte_cursor = byte_cursor.data();
        shape.byte_end = byte_end.data();
    }
    table_memory(const table_memory &) = delete;
};

// Gathers through an output that holds some elements at a time, and returns all of them.
strings gather_everything(const tavo_gather_spec &shape, std::vector<ub8> &codes, ub4 col, ub4 layout,
                          const strings &expected) {
    code_column column(code_source::u64, codes);
    tavo_env env{};
    strings got;
    for (std::size_t bytes = 0;; bytes += 97) {
        const ub4 before = env.resume_row;
        row_output out(layout, bytes, expected.size());
        const ub4 status = library.gather_one_col(&out.vec, &column.vec, &shape, &env, col);
        std::size_t used;
        const strings rest(expected.begin() + before, expected.end());
        for (std::string &e : out.elements(env.resume_row - before, rest, used))
            got.push_back(std::move(e));
        EXPECT_LE(used, bytes);
        if (status != TAVO_ROWS_FULL) {
            EXPECT_EQ(status, TAVO_DONE);
            return got;
        }
    }
}

TEST(RoundTrip, ColumnsThroughTablesToColumns) {
    std::mt19937_64 rng(831);
    for (ub4 layout : element_layouts())
        for (std::size_t rows : {1, 40, 130}) {
            // parts * cols columns of `rows` elements each.
            std::vector<std::unique_ptr<element_column>> columns;
            std::vector<strings> elements;
            std::size_t all_bytes = 0;
            for (ub4 i = 0; i < parts * cols; i++) {
                strings column(rows);
                for (std::string &s : column)
                    s = random_string(layout == TAVO_FIXED ? 9 : random_length(rng), rng);
                for (const std::string &s : column)
                    all_bytes += s.size();
                columns.push_back(std::make_unique<element_column>(layout, column));
                elements.push_back(std::move(column));
            }
            table_memory references(TAVO_TABLE_REFERENCE, rows * cols, 0),
                packed(TAVO_TABLE_REFERENCE | TAVO_TABLE_CLA, rows * cols, all_bytes);
            for (ub4 p = 0; p < parts; p++) {
                for (ub2 c = 0; c < cols; c++)
                    ASSERT_EQ(library.transpose_reference(&references.shape, &columns[p * cols + c]->vec, c,
                                                          static_cast<sb4>(p)),
                              TAVO_DONE);
                tavo_env env{};
                ASSERT_EQ(library.transpose_convert(&packed.shape, &references.shape, static_cast<sb4>(p),
                                                    static_cast<sb4>(p), 0, static_cast<ub4>(rows - 1), &env),
                          TAVO_DONE);
            }
            std::vector<ub8> codes;
            for (int i = 0; i < 200; i++)
                codes.push_back(rng() % rows | rng() % parts << 20);
            tavo_gather_spec cla = packed.shape;
            cla.flags = TAVO_TABLE_CLA;
            for (ub4 c = 0; c < cols; c++) {
                strings expected;
                for (ub8 code : codes)
                    expected.push_back(elements[(code >> 20) * cols + c][code & 0xfffff]);
                for (ub4 to : {TAVO_LV_SEP, TAVO_LV, TAVO_LP_SEP, TAVO_LP})
                    for (tavo_gather_spec *shape : {&references.shape, &packed.shape, &cla})
                        ASSERT_EQ(gather_everything(*shape, codes, c, to, expected), expected)
                            << std::hex << "from " << layout << " to " << to;
            }
        }
}

// The same for values in fixed rows.
TEST(RoundTrip, ValuesThroughFixedRows) {
    std::mt19937_64 rng(832);
    ub1 widths[cols] = {8, 4, 16, 3}, offsets[cols] = {0, 8, 12, 28};
    constexpr std::size_t rows = 100, row_bytes = 31;
    table_memory table(TAVO_TABLE_FIXED, 0, rows * row_bytes);
    table.shape.row_bytes = row_bytes;
    table.shape.col_bytes = widths;
    table.shape.col_offsets = offsets;
    std::vector<strings> values;
    for (ub4 p = 0; p < parts; p++)
        for (ub2 c = 0; c < cols; c++) {
            strings column(rows);
            for (std::string &s : column)
                s = random_string(widths[c], rng);
            element_column source(TAVO_FIXED, column);
            ASSERT_EQ(library.transpose_fixed(&table.shape, &source.vec, c, static_cast<sb4>(p)), TAVO_DONE);
            values.push_back(std::move(column));
        }
    std::vector<ub8> codes;
    for (int i = 0; i < 300; i++)
        codes.push_back(rng() % rows | rng() % parts << 20);
    for (ub4 c = 0; c < cols; c++) {
        strings expected;
        for (ub8 code : codes)
            expected.push_back(values[(code >> 20) * cols + c][code & 0xfffff]);
        for (ub4 to : {TAVO_FIXED, TAVO_LP_SEP})
            ASSERT_EQ(gather_everything(table.shape, codes, c, to, expected), expected);
    }
}

} // namespace
} // namespace tavo::test
