// Gathers against a plain loop: every table form, layout and source of codes, drained through outputs of any size.
#include <gtest/gtest.h>

#include <functional>

#include "tests/kit/host_stub.h"
#include "tests/kit/spak_stream.h"
#include "tests/rows/row_table.h"

namespace tavo::test {
namespace {

const tavo_specialized_ctx &library = tavo_global_specialized_ctx;

// One of the three operations, with the columns that it wants of a row.
struct operation {
    std::string name;
    std::vector<ub4> cols;
    std::function<ub4(tavo_vec *, tavo_vec *, const tavo_gather_spec *, tavo_env *)> call;
};
operation gather_all(ub4 cols) {
    operation o{"gather", {}, library.gather};
    for (ub4 c = 0; c < cols; c++)
        o.cols.push_back(c);
    return o;
}
operation gather_one_col(ub4 col) {
    return {"gather_one_col", {col}, [col](tavo_vec *dst, tavo_vec *src, const tavo_gather_spec *shape, tavo_env *env) {
                return library.gather_one_col(dst, src, shape, env, col);
            }};
}
operation gather_cols(std::vector<ub4> cols) {
    return {"gather_cols", cols, [cols](tavo_vec *dst, tavo_vec *src, const tavo_gather_spec *shape, tavo_env *env) {
                return library.gather_cols(dst, src, cols.data(), static_cast<ub4>(cols.size()), shape, env);
            }};
}

// What each source row gives.
using expected_rows = std::vector<strings>;

// One call with room for `bytes` bytes; the result must be what the plain loop says.
void check_call(const operation &op, tavo_vec *src, const tavo_gather_spec *shape, const expected_rows &rows,
                ub4 layout, std::size_t bytes, tavo_env &env) {
    // The plain loop.
    strings written;
    std::size_t room = bytes;
    ub4 stop = env.resume_row;
    bool full = false;
    for (; stop < rows.size() && !full; stop += !full)
        for (const std::string &e : rows[stop]) {
            if (room < room_needed(layout, e.size())) {
                full = true;
                break;
            }
            room -= room_needed(layout, e.size());
            written.push_back(e);
        }
    row_output out(layout, bytes, written.size());
    const ub4 status = op.call(&out.vec, src, shape, &env);
    ASSERT_EQ(status, full ? TAVO_ROWS_FULL : TAVO_DONE) << op.name << std::hex << " layout " << layout;
    ASSERT_EQ(env.resume_row, stop) << op.name << std::hex << " layout " << layout;
    std::size_t used = 0;
    ASSERT_EQ(out.elements(written.size(), written, used), written) << op.name << std::hex << " layout " << layout;
    ASSERT_TRUE(out.untouched_from(used, written.size())) << op.name << std::hex << " layout " << layout;
    ASSERT_EQ(out.vec.byte_size, bytes);
    ASSERT_EQ(out.vec.size + out.vec.count, 0u);
}

std::size_t room_for(const expected_rows &rows, std::size_t first, std::size_t n, ub4 layout) {
    std::size_t bytes = 0;
    for (std::size_t r = first; r < rows.size() && r < first + n; r++)
        for (const std::string &e : rows[r])
            bytes += room_needed(layout, e.size());
    return bytes;
}

// Calls until all rows are written, each time with another room: none, exactly some rows, some bytes.
void drain(const operation &op, tavo_vec *src, const tavo_gather_spec *shape, const expected_rows &rows, ub4 layout,
           std::mt19937_64 &rng) {
    tavo_env env{};
    for (;;) {
        const ub4 before = env.resume_row;
        std::size_t bytes = room_for(rows, before, rng() % 90, layout);
        if (rng() % 3 == 0)
            bytes += rng() % 30;
        ASSERT_NO_FATAL_FAILURE(check_call(op, src, shape, rows, layout, bytes, env));
        if (env.resume_row == rows.size())
            return;
    }
}

std::vector<string_rows> random_parts(std::size_t parts, std::size_t rows, const std::vector<ub1> &widths, ub4 cols,
                                      std::mt19937_64 &rng) {
    std::vector<string_rows> out(parts);
    for (string_rows &part : out)
        for (std::size_t r = 0; r < rows; r++) {
            strings row;
            for (ub4 c = 0; c < cols; c++)
                row.push_back(random_string(widths.empty() ? random_length(rng) : widths[c], rng));
            part.push_back(std::move(row));
        }
    return out;
}

const std::vector<ub4> &layouts_of(ub4 form) {
    static const std::vector<ub4> all = {TAVO_LV_SEP, TAVO_LV, TAVO_LP_SEP, TAVO_LP}, fixed = {TAVO_LP_SEP, TAVO_FIXED};
    return form == TAVO_TABLE_FIXED ? fixed : all;
}
constexpr ub4 forms[] = {TAVO_TABLE_REFERENCE, TAVO_TABLE_CLA, TAVO_TABLE_FIXED};

std::vector<operation> operations(ub4 cols, std::mt19937_64 &rng) {
    std::vector<operation> ops = {gather_all(cols), gather_one_col(static_cast<ub4>(rng() % cols))};
    std::vector<ub4> list(rng() % (cols + 2));
    for (ub4 &c : list)
        c = static_cast<ub4>(rng() % cols);
    ops.push_back(gather_cols(list));
    std::vector<ub4> tail; // columns that follow one another
    for (ub4 c = cols / 2; c < cols; c++)
        tail.push_back(c);
    ops.push_back(gather_cols(tail));
    return ops;
}

TEST(Gather, EveryFormLayoutAndSource) {
    std::mt19937_64 rng(811);
    for (int round = 0; round < 3; round++)
        for (ub4 form : forms)
            for (code_source source : code_sources)
                for (ub4 cols : {1u, 2u, 7u, 16u, 70u, form == TAVO_TABLE_FIXED ? 3u : 300u}) {
                    std::vector<ub1> widths;
                    if (form == TAVO_TABLE_FIXED) {
                        static const ub1 usual[] = {1, 2, 4, 8, 16, 0, 3, 40, 70};
                        // Offsets are bytes, gaps are up to three, and each later column needs one.
                        for (ub4 c = 0, used = cols < 16 ? 3 * cols : 0; c < cols; c++) {
                            const ub1 width = cols > 16 ? usual[rng() % 2] : usual[rng() % std::size(usual)];
                            widths.push_back(used + width + (cols - c - 1) <= 255 ? width : 1);
                            used += widths.back();
                        }
                    }
                    // Rows in the low bits, partitions above, and noise above these where the code has room for it.
                    const bool one_part = rng() % 2 == 0;
                    const unsigned bits = 8 * code_bytes(source);
                    const std::size_t rows = 1 + rng() % 60,
                                      parts = one_part ? 1 : 1 + rng() % (source == code_source::u8 ? 3 : 5);
                    row_table table(form, random_parts(parts, rows, widths, cols, rng), cols, widths, cols == 1,
                                    static_cast<ub1>(cols < 16 && rng() % 2 ? 3 : 0));
                    if (one_part && rng() % 2) {
                        table.shape.part_low = bits < 64 ? static_cast<ub1>(6) : 64;
                        table.shape.part_top = 5;
                    } else if (!one_part) {
                        table.shape.part_low = 6;
                        table.shape.part_top = static_cast<ub1>(bits == 8 ? 7 : rng() % 3 == 0 ? bits - 1 : 8);
                    }
                    const std::size_t n = rng() % 5 == 0 ? rng() % 3 : rng() % 140;
                    std::vector<ub8> codes(n);
                    std::vector<const strings *> named(n);
                    for (std::size_t r = 0; r < n; r++) {
                        const ub8 row = rng() % rows, part = rng() % parts;
                        codes[r] = row | (table.shape.part_low == 6 ? part << 6 : 0);
                        if (table.shape.part_low == 6 && table.shape.part_top < bits - 1 && bits > 8)
                            codes[r] |= rng() << (table.shape.part_top + 1);
                        named[r] = &table.parts[table.shape.part_low == 6 ? part : 0][row];
                    }
                    code_column column(source, codes);
                    for (const operation &op : operations(cols, rng)) {
                        expected_rows expected(n);
                        for (std::size_t r = 0; r < n; r++)
                            for (ub4 c : op.cols)
                                expected[r].push_back((*named[r])[c]);
                        for (ub4 layout : layouts_of(form))
                            ASSERT_NO_FATAL_FAILURE(drain(op, &column.vec, &table.shape, expected, layout, rng))
                                << "form " << form << " columns " << cols << " code bytes " << code_bytes(source);
                    }
                }
}

// Whatever the room, to the byte: the elements that fit are written, and no byte more.
TEST(Gather, EveryRoom) {
    std::mt19937_64 rng(812);
    for (ub4 form : forms) {
        const std::vector<ub1> widths = {8, 1, 0, 2};
        std::vector<string_rows> parts(1);
        for (int r = 0; r < 3; r++) {
            strings row;
            for (std::size_t c = 0; c < 4; c++)
                row.push_back(random_string(form == TAVO_TABLE_FIXED ? widths[c]
                                            : (r + c) % 3 == 0       ? 0
                                                                     : 1 + (5 * r + c) % 9,
                                            rng));
            parts[0].push_back(row);
        }
        row_table table(form, parts, 4, form == TAVO_TABLE_FIXED ? widths : std::vector<ub1>{});
        code_column column(code_source::u32, {2, 0, 1, 2});
        for (const operation &op :
             {gather_all(4), gather_one_col(1), gather_one_col(2), gather_cols({3, 0}), gather_cols({0, 1, 2})}) {
            expected_rows expected;
            for (ub8 row : {2, 0, 1, 2}) {
                expected.emplace_back();
                for (ub4 c : op.cols)
                    expected.back().push_back(table.parts[0][row][c]);
            }
            for (ub4 layout : layouts_of(form))
                for (ub4 first = 0; first <= 4; first++)
                    for (std::size_t bytes = 0; bytes <= room_for(expected, first, 4, layout) + 2; bytes++) {
                        tavo_env env{};
                        env.resume_row = first;
                        ASSERT_NO_FATAL_FAILURE(check_call(op, &column.vec, &table.shape, expected, layout, bytes, env))
                            << "form " << form << " room " << bytes << " from row " << first;
                    }
        }
    }
}

// Flag 2: a row is one element in the reference and cla forms, whatever row_cols says; column 0 in the fixed form.
TEST(Gather, OneElementRows) {
    std::mt19937_64 rng(813);
    for (ub4 form : forms) {
        const bool fixed = form == TAVO_TABLE_FIXED;
        const std::vector<ub1> widths = {8, 3};
        row_table table(form, random_parts(1, 50, fixed ? widths : std::vector<ub1>{}, fixed ? 2 : 1, rng),
                        fixed ? 2 : 1, fixed ? widths : std::vector<ub1>{});
        table.shape.flags |= TAVO_TABLE_ONE_ELEMENT;
        table.shape.row_cols = 3;
        std::vector<ub8> codes;
        expected_rows expected;
        for (int r = 0; r < 200; r++) {
            codes.push_back(rng() % 50);
            expected.push_back({table.parts[0][codes.back()][0]});
        }
        code_column column(code_source::u16, codes);
        operation op = gather_all(1);
        for (ub4 layout : layouts_of(form))
            ASSERT_NO_FATAL_FAILURE(drain(op, &column.vec, &table.shape, expected, layout, rng));
    }
    // The other operations do not look at the flag.
    row_table table(TAVO_TABLE_CLA, random_parts(1, 9, {}, 3, rng), 3);
    table.shape.flags |= TAVO_TABLE_ONE_ELEMENT;
    code_column column(code_source::u8, {4, 8});
    tavo_env env{};
    ASSERT_NO_FATAL_FAILURE(check_call(gather_one_col(2), &column.vec, &table.shape,
                                       {{table.parts[0][4][2]}, {table.parts[0][8][2]}}, TAVO_LV, 1000, env));
    env.resume_row = 0;
    ASSERT_NO_FATAL_FAILURE(
        check_call(gather_cols({2, 1}), &column.vec, &table.shape,
                   {{table.parts[0][4][2], table.parts[0][4][1]}, {table.parts[0][8][2], table.parts[0][8][1]}},
                   TAVO_LV_SEP, 1000, env));
}

// A pointer column into bytes: no table is read.
TEST(Gather, PointedBytes) {
    std::mt19937_64 rng(814);
    for (ub4 from : {TAVO_LP_SEP, TAVO_LP})
        for (ub4 to : {TAVO_LV_SEP, TAVO_LV})
            for (std::size_t n : {0, 1, 31, 32, 33, 64, 65, 200}) {
                expected_rows expected(n);
                std::vector<guarded> pool;
                std::string records, lengths;
                for (strings &row : expected) {
                    row.push_back(random_string(random_length(rng), rng));
                    pool.emplace_back(bytes_of(row[0]));
                    if (from == TAVO_LP)
                        append(records, static_cast<ub2>(row[0].size()));
                    append(records, pool.back().data());
                    append(lengths, static_cast<ub2>(row[0].size()));
                }
                guarded data(bytes_of(records)), lengths_memory(bytes_of(lengths));
                tavo_enc_ctx enc{};
                enc.flags = from;
                tavo_vec src{};
                src.enc = &enc;
                src.data = data.data();
                src.lengths = lengths_memory.as<ub2>();
                src.size = static_cast<ub4>(n);
                ASSERT_NO_FATAL_FAILURE(drain(gather_all(1), &src, nullptr, expected, to, rng));
            }
}

// Codes as they come: all 64 bits of a row index, and a partition field up to the top bit.
TEST(Gather, WholeCodes) {
    const strings row = {"element"};
    row_table table(TAVO_TABLE_FIXED, {{row}, {{"another"}}}, 1, {7});
    // part_low 64: a table whose row 0 stands far below its address.
    const ub8 index = ~ub8{0} - 2;
    table.part_bases[0] -= index * 7;
    code_column whole(code_source::u64, {index});
    tavo_env env{};
    ASSERT_NO_FATAL_FAILURE(check_call(gather_all(1), &whole.vec, &table.shape, {row}, TAVO_FIXED, 7, env));
    // part_top 63: the partition is all bits from part_low on.
    table.part_bases[0] += index * 7;
    table.shape.part_low = 63;
    code_column parts(code_source::u64, {ub8{1} << 63, 0});
    env.resume_row = 0;
    ASSERT_NO_FATAL_FAILURE(
        check_call(gather_all(1), &parts.vec, &table.shape, {{"another"}, row}, TAVO_FIXED, 14, env));
}

TEST(Gather, Refused) {
    std::mt19937_64 rng(815);
    row_table table(TAVO_TABLE_REFERENCE, random_parts(1, 2, {}, 1, rng), 1);
    code_column column(code_source::u32, {0});
    const auto status = [&](ub4 spec_flags, ub4 dst_flags, ub4 src_flags) {
        row_output out(dst_flags, 0, 0);
        tavo_env env{};
        env.resume_row = 1; // nothing left, so that an accepted call does nothing
        table.shape.flags = spec_flags;
        column.enc.flags = src_flags;
        const ub4 col = 0, results[] = {library.gather(&out.vec, &column.vec, &table.shape, &env),
                                        library.gather_one_col(&out.vec, &column.vec, &table.shape, &env, 0),
                                        library.gather_cols(&out.vec, &column.vec, &col, 1, &table.shape, &env)};
        EXPECT_EQ(results[0], results[1]);
        EXPECT_EQ(results[0], results[2]);
        EXPECT_EQ(env.resume_row, 1u);
        return results[0];
    };
    EXPECT_EQ(status(0, TAVO_LV, TAVO_FIXED), TAVO_UNSUPPORTED);
    EXPECT_EQ(status(2, TAVO_LV, TAVO_FIXED), TAVO_UNSUPPORTED);
    for (ub4 form : {TAVO_TABLE_REFERENCE, TAVO_TABLE_CLA}) {
        EXPECT_EQ(status(form, TAVO_FIXED, TAVO_FIXED), TAVO_UNSUPPORTED);
        EXPECT_EQ(status(form, TAVO_LP, TAVO_LP), TAVO_UNSUPPORTED);
        EXPECT_EQ(status(form, TAVO_LP, TAVO_DICT), TAVO_UNSUPPORTED);
        for (ub4 layout : {TAVO_LV_SEP, TAVO_LV, TAVO_LP_SEP, TAVO_LP})
            EXPECT_EQ(status(form, layout, TAVO_RECORD_CODE), TAVO_DONE);
    }
    EXPECT_EQ(status(TAVO_TABLE_FIXED, TAVO_LV_SEP, TAVO_FIXED), TAVO_UNSUPPORTED);
    EXPECT_EQ(status(TAVO_TABLE_FIXED, TAVO_LV, TAVO_FIXED), TAVO_UNSUPPORTED);
    EXPECT_EQ(status(TAVO_TABLE_FIXED, TAVO_LP, TAVO_FIXED), TAVO_UNSUPPORTED);
    EXPECT_EQ(status(TAVO_TABLE_FIXED, TAVO_LP_SEP, TAVO_FIXED), TAVO_DONE);
    EXPECT_EQ(status(TAVO_TABLE_FIXED, TAVO_FIXED, 0x42000000), TAVO_UNSUPPORTED);
    // A form before the others.
    EXPECT_EQ(status(TAVO_TABLE_REFERENCE | TAVO_TABLE_FIXED, TAVO_FIXED, TAVO_FIXED), TAVO_UNSUPPORTED);
    EXPECT_EQ(status(TAVO_TABLE_REFERENCE | TAVO_TABLE_FIXED, TAVO_LV, TAVO_FIXED), TAVO_DONE);
}

// Behind the last row nothing is read, whatever the pointers are; no columns are no elements.
TEST(Gather, NothingToDo) {
    row_table table(TAVO_TABLE_CLA, {{{"a"}}}, 1);
    code_column column(code_source::u32, {0, 0});
    row_output out(TAVO_LV, 0, 0);
    tavo_env env{};
    EXPECT_EQ(library.gather_cols(&out.vec, &column.vec, nullptr, 0, &table.shape, &env), TAVO_DONE);
    EXPECT_EQ(env.resume_row, 2u);
    table.shape.row_cols = 0;
    env.resume_row = 0;
    EXPECT_EQ(library.gather(&out.vec, &column.vec, &table.shape, &env), TAVO_DONE);
    EXPECT_EQ(env.resume_row, 2u);
    column.vec.data = nullptr;
    out.vec.data = nullptr;
    table.shape.cla_tables = nullptr;
    env.resume_row = 7;
    EXPECT_EQ(library.gather(&out.vec, &column.vec, &table.shape, &env), TAVO_DONE);
    EXPECT_EQ(env.resume_row, 2u);
}

TEST(Gather, CompressedCodes) {
    std::string bytes;
    for (ub4 code : {2u, 0u, 1u, 2u, 2u})
        append(bytes, code);
    const std::vector<ub1> stream = spak_of(bytes_of(bytes)).bytes();
    row_table table(TAVO_TABLE_CLA, {{{"zero"}, {"one"}, {"two"}}}, 1);
    host_stub host;
    host.record()->spak_decode = library.spak_decode;
    code_column column(code_source::u32, {});
    void *slot = nullptr;
    column.enc.flags |= TAVO_SPAK;
    column.vec.data = const_cast<ub1 *>(stream.data());
    column.vec.size = 5;
    column.vec.decomp_size = static_cast<ub4>(bytes.size());
    column.vec.decomp_slot = &slot;
    tavo_env env{};
    env.host = host.record();
    ASSERT_NO_FATAL_FAILURE(check_call(gather_all(1), &column.vec, &table.shape,
                                       {{"two"}, {"zero"}, {"one"}, {"two"}, {"two"}}, TAVO_LV_SEP, 16, env));
    ASSERT_EQ(host.allocations.size(), 1u);
    EXPECT_EQ(host.allocations[0].label, "tavo_gather_dydi: vec1_decomp");
}

} // namespace
} // namespace tavo::test
