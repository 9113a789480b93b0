// Joins through the library against the plain join of the texts, and the pieces that a join is made of.
#include "host/join/join.h"

#include <algorithm>
#include <cstring>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <map>
#include <numeric>
#include <random>

#include "host/error.h"
#include "host/join/join_hash.h"
#include "host/join/joined_rows.h"
#include "host/join/radix_partitions.h"

namespace {

const host::library &loaded() {
    static host::library library(TAVO_LIBRARY_PATH);
    static const bool started = (library.check_and_start(host::this_processor()), true);
    EXPECT_TRUE(started);
    return library;
}

// Two files with their columns encoded.
class joined_files {
public:
    joined_files(std::string left, std::string right, const host::forms &forms = {})
        : left_file_("dir/left file.csv", std::move(left)), right_file_("other.csv", std::move(right)),
          names(left_file_, right_file_), left_(left_file_, all(left_file_), options(forms)),
          right_(right_file_, all(right_file_), options(forms)), session_(loaded()) {}

    // Both answers as lines of the printed columns, by default each file's first.
    struct answers {
        std::string by_library, plain;
        std::vector<host::query_step> steps;
    };
    answers ask(host::join_kind kind, const std::vector<std::string> &on, const std::vector<std::string> &where = {},
                const host::join_settings &settings = {}) {
        host::join_question q;
        q.kind = kind;
        q.keys = names.key_columns(on);
        for (const std::string &text : where) {
            q.where.push_back(host::parse_predicate(text));
            names.resolve(q.where.back());
        }
        q.printed = {{host::join_side::left, 0}, {host::join_side::right, 0}};
        std::vector<std::vector<host::value_type>> types(2);
        for (const host::table *t : {&left_, &right_})
            for (const std::size_t c : all(t->file()))
                types[t == &right_].push_back(t->encoded(c)->dict().type());
        const host::joined_rows joined = host::join_rows_of(session_, q, names, left_, right_, settings);
        answers a;
        a.plain = host::join_plainly(q, names, types, {"NULL"}).lines;
        a.steps = joined.steps;
        for (const host::row_pair &pair : joined.pairs)
            a.by_library += fmt::format("{},{}\n", pair.left == host::no_row ? "" : std::to_string(pair.left),
                                        pair.right == host::no_row ? "" : std::to_string(pair.right));
        return a;
    }

private:
    static std::vector<std::size_t> all(const host::csv_file &file) {
        std::vector<std::size_t> numbers(file.columns().size());
        std::iota(numbers.begin(), numbers.end(), std::size_t{0});
        return numbers;
    }
    static host::read_options options(const host::forms &forms) {
        host::read_options o;
        o.form_of = forms;
        o.null_texts = {"NULL"};
        return o;
    }

    host::csv_file left_file_, right_file_;

public:
    host::join_names names;

private:
    host::table left_, right_;
    host::session session_;
};

constexpr host::join_kind kinds[] = {host::join_kind::inner, host::join_kind::left, host::join_kind::right,
                                     host::join_kind::anti, host::join_kind::right_anti};

void expect_agreement(joined_files &files, const std::vector<std::string> &on, const std::vector<std::string> &where,
                      const std::string &what, const host::join_settings &settings = {}) {
    for (const host::join_kind kind : kinds) {
        const auto a = files.ask(kind, on, where, settings);
        ASSERT_EQ(a.by_library, a.plain) << what << ", kind " << static_cast<int>(kind);
    }
}

// A key column's values: some of them common to both sides, several to a value, in several spellings, some null.
std::string key_text(const std::string &form, std::mt19937_64 &rng, unsigned values) {
    const auto n = rng() % values;
    if (rng() % 20 == 0)
        return rng() % 2 ? "" : "NULL";
    if (form == "fixed")
        return fmt::format("k{:03}", n);
    if (form == "short")
        return std::string(n % 9, 'x') + std::to_string(n % 7);
    if (form == "eleven") // lengths to the longest that a slot takes
        return std::string(1 + n % 11, static_cast<char>('a' + n % 3));
    if (form == "long")
        return fmt::format("a text longer than any slot: {}", n);
    if (form == "twelve")
        return fmt::format("{:012}x", n).substr(0, 12);
    if (form == "integer")
        return rng() % 3 == 0 ? fmt::format("0{}", n) : std::to_string(n);
    if (form == "decimal")
        return rng() % 3 == 0 ? fmt::format("{}.0", n) : fmt::format("{}.5", n);
    if (form == "date")
        return fmt::format("2001-01-{:02}", 1 + n % 28) + (rng() % 4 == 0 ? " 00:00" : "");
    return fmt::format("{}", static_cast<char>('a' + n % 26)); // one byte
}

// Rows: number, key, second key, something to ask for.
std::string random_file(const std::string &form, const std::string &second, unsigned rows, unsigned values,
                        std::mt19937_64 &rng) {
    std::string text = "row,key,second,v\n";
    for (unsigned row = 0; row < rows; row++)
        text += fmt::format("{},{},{},{}\n", row, key_text(form, rng, values), key_text(second, rng, 5),
                            rng() % 10 == 0 ? "" : std::to_string(rng() % 10));
    return text;
}

TEST(Join, AgreesWithThePlainJoin) {
    std::mt19937_64 rng(69);
    const std::pair<const char *, const char *> forms[] = {
        {"fixed", "fixed"}, {"short", "short"},   {"eleven", "eleven"},    {"long", "long"},
        {"long", "short"},  {"twelve", "twelve"}, {"integer", "integer"},  {"decimal", "integer"},
        {"date", "date"},   {"integer", "short"}, {"one byte", "one byte"}};
    for (const auto &[left_form, right_form] : forms)
        for (const auto &[left_rows, right_rows, values] : {std::tuple(0u, 10u, 5u),
                                                            {10u, 0u, 5u},
                                                            {1u, 1u, 1u},
                                                            {300u, 40u, 30u},
                                                            {400u, 400u, 60u},
                                                            {400u, 400u, 5000u}, // nearly each row its own value
                                                            {2000u, 20u, 200u}}) {
            joined_files files(random_file(left_form, "integer", left_rows, values, rng),
                               random_file(right_form, "decimal", right_rows, values, rng));
            host::join_settings settings;
            settings.batch_rows = 1 + rng() % 500;
            const std::string what =
                fmt::format("{} and {}, {} and {} rows", left_form, right_form, left_rows, right_rows);
            expect_agreement(files, {"key"}, {}, what, settings);
            expect_agreement(files, {"key", "second"}, {}, what + ", two columns", settings);
            expect_agreement(files, {"key,second=second", "v"}, {}, what + ", three columns", settings);
            expect_agreement(files, {"key"}, {"left.v > 3", "other.v < 8"}, what + ", filtered", settings);
        }
}

// Conditions on the side that an outer join may leave out, and on both sides at once.
TEST(Join, ConditionsAreOnPairs) {
    std::mt19937_64 rng(70);
    joined_files files(random_file("short", "integer", 300, 40, rng), random_file("short", "integer", 100, 40, rng));
    for (const auto &where :
         std::vector<std::vector<std::string>>{{"other.v is null"},
                                               {"left.v is null"},
                                               {"other.v is null or left.v > 5"},
                                               {"left.v = 3 and other.v = 3 or left.row < 20"},
                                               {"not (left.v > 4 and other.v > 4)"},
                                               {"not (left.v > 4 or other.v is not null)", "left.row > 10"},
                                               {"other.v in (1, 2) or other.v is null", "left.v < 8 or left.v is null"},
                                               {"left.v > other.v"},
                                               {"not (other.v <= left.v)"},
                                               {"left.row = other.row or left.v is null"},
                                               {"left.v > 100"},
                                               {"other.v > 100"}})
        for (const host::join_kind kind : {host::join_kind::inner, host::join_kind::left, host::join_kind::right}) {
            const auto a = files.ask(kind, {"key"}, where);
            ASSERT_EQ(a.by_library, a.plain) << where[0] << ", kind " << static_cast<int>(kind);
        }
    const auto no_pairs = [&] { files.ask(host::join_kind::anti, {"key"}, {"other.v is null or left.v > 5"}); };
    EXPECT_THROW(no_pairs(), host::error);
}

TEST(Join, AnswersByHand) {
    joined_files files("row,code,n\n0,a,1\n1,b,1.0\n2,,2\n3,c,3\n4,a,01\n", "row,name,m\n0,a,1\n1,a,2\n2,,9\n3,d,1\n");
    const auto lines = [&](host::join_kind kind, const std::string &on) {
        const auto a = files.ask(kind, {on});
        EXPECT_EQ(a.by_library, a.plain);
        return a.by_library;
    };
    EXPECT_EQ(lines(host::join_kind::inner, "code=name"), "0,0\n0,1\n4,0\n4,1\n");
    EXPECT_EQ(lines(host::join_kind::inner, "name=code"), "0,0\n0,1\n4,0\n4,1\n"); // whichever way round
    EXPECT_EQ(lines(host::join_kind::left, "code=name"), "0,0\n0,1\n1,\n2,\n3,\n4,0\n4,1\n");
    EXPECT_EQ(lines(host::join_kind::right, "code=name"), "0,0\n0,1\n4,0\n4,1\n,2\n,3\n");
    EXPECT_EQ(lines(host::join_kind::anti, "code=name"), "1,\n2,\n3,\n");
    EXPECT_EQ(lines(host::join_kind::right_anti, "code=name"), ",2\n,3\n");
    EXPECT_EQ(lines(host::join_kind::inner, "n=m"),
              "0,0\n0,3\n1,0\n1,3\n2,1\n4,0\n4,3\n"); // 1, 1.0 and 01 are one value
}

// Each lookup and each element, chosen by the codes that have a partner, against the partners one by one.
TEST(JoinParts, TranslationByDensity) {
    std::mt19937_64 rng(75);
    host::session session(loaded());
    struct {
        const char *kernel;
        ub4 codes, first, last, step; // codes with a partner, when every step-th has one
        ub4 targets;
    } const cases[] = {
        {"sim_nib", 500, 0, 499, 2, 15},           {"sim_ub1", 500, 3, 499, 2, 16},
        {"sim_ub1", 500, 100, 499, 3, 255},        {"sim_ub2", 500, 0, 499, 1, 256},
        {"sim_ub2", 500, 0, 499, 1, 65535},        {"sim_ub4", 500, 0, 499, 1, 65536},
        {"off_nib", 5000, 4000, 4999, 2, 3},       {"off_ub1", 5000, 101, 500, 1, 200},
        {"off_ub2", 5000, 4990, 4999, 9, 60000},   {"off_ub4", 5000, 4999, 4999, 1, 1u << 31},
        {"ind_nib", 100000, 5, 99999, 33331, 15},  {"ind_ub1", 100000, 300, 99999, 33233, 255},
        {"ind_ub2", 100000, 0, 99999, 9999, 9999}, {"ind_ub4", 100000, 70000, 99999, 29999, ~0u},
    };
    for (const auto &c : cases) {
        std::vector<ub4> partners(c.codes, host::translation::no_partner);
        for (ub4 code = c.first; code <= c.last; code += c.step)
            partners[code] = static_cast<ub4>(rng() % c.targets);
        partners[c.first] = c.targets - 1; // the largest, several codes with one partner, and some without
        host::translation table(partners);
        EXPECT_EQ(table.kernel_name(), fmt::format("tavo_xlate_{}_c2d", c.kernel)) << table.describe();
        for (const ub4 rows : {1u, 63u, 64u, 1000u, 1011u}) {
            std::vector<ub4> codes, out;
            std::vector<ub8> bits, before;
            for (ub4 row = 0; row < rows; row++) {
                if (row % 64 == 0)
                    bits.push_back(rng() | 1);
                codes.push_back(rng() % 2
                                    ? static_cast<ub4>(rng() % c.codes)
                                    : c.first + static_cast<ub4>(rng() % ((c.last - c.first) / c.step + 1)) * c.step);
            }
            codes[0] = c.first;
            bits.back() &= rows % 64 == 0 ? ~0ull : ~0ull >> (64 - rows % 64);
            before = bits;
            host::step_list steps;
            const bool selected = rows % 3 == 1;
            const ub4 count = table.run(session, "c", codes.data(), rows, selected, bits, out, steps);
            ub4 expected = 0;
            for (ub4 row = 0; row < rows; row++) {
                const bool has = (!selected || (before[row / 64] >> row % 64 & 1) != 0) &&
                                 partners[codes[row]] != host::translation::no_partner;
                expected += has;
                ASSERT_EQ((bits[row / 64] >> row % 64 & 1) != 0, has) << c.kernel << ", row " << row;
                if (has) {
                    ASSERT_EQ(out[row], partners[codes[row]]) << c.kernel << ", row " << row;
                }
            }
            EXPECT_EQ(count, expected);
            EXPECT_GE(count, 1u);
        }
    }
    // Nothing has a partner.
    std::vector<ub8> bits{7};
    std::vector<ub4> out;
    host::step_list steps;
    const ub4 codes[] = {0, 1, 2};
    host::translation none(std::vector<ub4>(3, host::translation::no_partner));
    EXPECT_EQ(none.run(session, "c", codes, 3, true, bits, out, steps), 0u);
    EXPECT_EQ(bits[0], 0u);
}

// Joins through translation, each of its lookups: key sets that are disjoint, overlap, and have several spellings.
TEST(Join, ThroughTranslation) {
    struct {
        const char *kernel;
        unsigned left_to, right_from, right_to, right_step;
    } const cases[] = {
        {"tavo_xlate_sim_ub1_c2d", 200, 0, 150, 1},       {"tavo_xlate_sim_nib_c2d", 3, 0, 12, 1},
        {"tavo_xlate_off_ub1_c2d", 1000, 700, 800, 1},    {"tavo_xlate_off_nib_c2d", 500, 490, 520, 3},
        {"tavo_xlate_ind_nib_c2d", 9000, 17, 9500, 3000}, {"tavo_xlate_ind_ub1_c2d", 20000, 10, 20000, 800},
        {"no code has a partner", 100, 200, 300, 1},
    };
    for (const auto &c : cases) {
        std::string left = "row,key\n", right = "row,key\n", steps;
        ub4 row = 0;
        for (unsigned copy = 0; copy < 3; copy++)
            for (unsigned k = 0; k < c.left_to; k++, row++)
                left += fmt::format("{},{}{:05}\n", row, copy == 0 && k % 97 == 0 ? "0" : "", k);
        left += fmt::format("{},\n", row);
        row = 0;
        for (unsigned copy = 0; copy < 4; copy++)
            for (unsigned k = c.right_from; k < c.right_to; k += c.right_step, row++)
                right += fmt::format("{},{:05}{}\n", row, k, copy == 3 && k % 5 == 0 ? ".0" : "");
        right += fmt::format("{},\n", row);
        joined_files files(left, right);
        expect_agreement(files, {"key"}, {}, c.kernel);
        const auto a = files.ask(host::join_kind::inner, {"key"});
        for (const host::query_step &s : a.steps)
            steps += s.kernel + " " + s.what + "\n";
        EXPECT_NE(steps.find(c.kernel), std::string::npos) << c.kernel << ", but\n" << steps;
        EXPECT_EQ(a.by_library.empty(), std::string(c.kernel).starts_with("no"));
    }
}

// Compressed and run-length key columns, long chains of equal keys, output that fills up many times.
TEST(Join, FormsAndManyPairs) {
    std::mt19937_64 rng(71);
    std::string left = "row,key\n", right = "row,key\n";
    for (unsigned row = 0; row < 3000; row++)
        left += fmt::format("{},{}\n", row, row / 300);
    for (unsigned row = 0; row < 200; row++)
        right += fmt::format("{},{}\n", row, row % 3);
    for (const host::column_form form : {host::column_form::plain, host::column_form::spak, host::column_form::rle}) {
        joined_files files(left, right, {{"", form}});
        expect_agreement(files, {"key"}, {}, host::name_of(form));
    }
}

TEST(Join, TablesBuiltBySegment) {
    std::mt19937_64 rng(72);
    joined_files files(random_file("long", "integer", 3000, 20000, rng),
                       random_file("long", "integer", 16000, 20000, rng));
    joined_files short_keys(random_file("integer", "integer", 3000, 20000, rng),
                            random_file("integer", "integer", 16000, 20000, rng));
    host::join_settings settings;
    settings.partition_from = 1000;
    settings.batch_rows = 1500;
    for (joined_files *f : {&files, &short_keys}) {
        expect_agreement(*f, {"key"}, {}, "by segment", settings);
        expect_agreement(*f, {"key", "second"}, {}, "two columns by segment", settings);
        const auto a = f->ask(host::join_kind::inner, {"key"}, {}, settings);
        EXPECT_TRUE(std::any_of(a.steps.begin(), a.steps.end(),
                                [](const host::query_step &s) { return s.kernel == "tavo_partition_dydi"; }));
    }
}

TEST(Join, Names) {
    joined_files files("row,code,n\n0,a,1\n", "row,name,left.n\n0,a,1\n");
    const auto column = [&](const std::string &name) {
        const host::join_names::place p = files.names.find(name);
        return (p.side == host::join_side::left ? "L" : "R") + std::to_string(p.column);
    };
    EXPECT_EQ(column("code"), "L1");
    EXPECT_EQ(column("left file.code"), "L1");
    EXPECT_EQ(column("other.row"), "R0");
    EXPECT_EQ(column("right.row"), "R0");
    EXPECT_EQ(column("left.n"), "R2"); // a column's own name goes first
    for (const char *name : {"row", "zzz", "other.code", "file.code"})
        EXPECT_THROW(files.names.find(name), host::error) << name;
    for (const char *on : {"", "=", "code=", "code=zzz", "row=,", "code=name,", "zzz"})
        EXPECT_THROW(files.names.key_columns({on}), host::error) << on;
}

// A table's overflow stops at its limit, in the middle of a batch, and goes on when there is more.
TEST(JoinParts, OverflowWithALimit) {
    const tavo_specialized_ctx &ctx = loaded().ctx();
    constexpr ub4 rows = 30000, keys = 5; // chains of thousands of buckets
    for (const bool pointer_form : {false, true}) {
        host::table_memory table(ctx, {TAVO_KV_FIXED_KEY, TAVO_KV_K4V4, keys, rows, pointer_form}, 0);
        std::vector<ub4> key(rows + 16), values(rows);
        std::vector<ub8> hash(rows);
        for (ub4 row = 0; row < rows; row++) {
            key[row] = row % keys;
            values[row] = row;
            hash[row] = host::join_hash(&key[row], 4, 0);
        }
        tavo_enc_ctx key_enc{}, value_enc{}, hash_enc{};
        key_enc.flags = value_enc.flags = TAVO_FIXED;
        key_enc.width_bits = value_enc.width_bits = 32;
        hash_enc.flags = TAVO_HASHES;
        hash_enc.width_bits = 64;
        hash_enc.width_code = TAVO_WIDTH_CODE_64;
        tavo_vec key_vec{}, value_vec{}, hash_vec{};
        const auto fill = [](tavo_vec &v, tavo_enc_ctx &enc, void *data) {
            v.enc = &enc;
            v.data = data;
            v.size = rows;
        };
        fill(key_vec, key_enc, key.data());
        fill(value_vec, value_enc, values.data());
        fill(hash_vec, hash_enc, hash.data());
        tavo_env env{};
        tavo_kv_status missing{};
        int stops = 0;
        for (ub8 limit = 0;; limit += 4096 * 64) {
            table.set_overflow_limit(limit);
            const ub4 before = env.resume_row;
            const ub4 status = ctx.create_add_kv(table.kv(), &hash_vec, &value_vec, &key_vec, -1, &env,
                                                 host::table_memory::hand_out, &missing);
            EXPECT_LE(table.overflow_bytes(), limit);
            if (status == TAVO_DONE)
                break;
            ASSERT_EQ(status, host::table_memory::over_limit);
            EXPECT_EQ(missing.build.region_class, 1u);
            EXPECT_EQ(missing.build.segment, table.overflow_bytes() / (4096 * 64));
            EXPECT_TRUE(env.resume_row > before || stops == 0);
            stops++;
        }
        EXPECT_GE(stops, 2);
        // All rows of each key are in it, once.
        std::vector<ub8> rids(keys), rid_out(rows + 64), value_out(rows / 2 + 64);
        tavo_enc_ctx rid_enc{};
        rid_enc.flags = TAVO_ROWID_BASE;
        tavo_vec rid_vec{}, out{};
        rid_vec.enc = &rid_enc;
        out.data = value_out.data();
        out.size = rows + 64;
        key_vec.size = hash_vec.size = rid_vec.size = keys;
        tavo_aux_info aux{};
        tavo_env probe_env{};
        probe_env.aux = &aux;
        ASSERT_EQ(ctx.probe_kv(&out, rid_out.data(), &hash_vec, &rid_vec, &key_vec, table.kv(), TAVO_PROBE_PAIRS,
                               &probe_env, &missing),
                  TAVO_DONE);
        ASSERT_EQ(out.size, rows);
        const auto *found = reinterpret_cast<const ub4 *>(value_out.data()),
                   *of = reinterpret_cast<const ub4 *>(rid_out.data());
        std::vector<ub4> sorted(found, found + rows);
        for (ub4 i = 0; i < rows; i++)
            ASSERT_EQ(found[i] % keys, of[i]);
        std::sort(sorted.begin(), sorted.end());
        EXPECT_EQ(sorted, values);
    }
}

TEST(JoinParts, BloomFilterAsTheKernelsTestIt) {
    std::mt19937_64 rng(73);
    for (const ub4 n : {1u, 3u, 100u, 20000u}) {
        host::bloom_filter filter(n);
        std::vector<ub8> hashes(n), strangers(20000), bits(20000 / 64 + 1);
        for (auto *list : {&hashes, &strangers})
            for (ub8 &h : *list)
                h = rng();
        filter.add(hashes);
        tavo_enc_ctx enc{};
        enc.flags = TAVO_HASHES;
        enc.width_bits = 64;
        for (const auto &list : {hashes, strangers}) {
            tavo_vec vec{}, res{};
            vec.enc = &enc;
            vec.data = const_cast<ub8 *>(list.data());
            vec.size = static_cast<ub4>(list.size());
            ub4 extent[2];
            res.bits = bits.data();
            res.data = extent;
            tavo_env env{};
            loaded().ctx().bloom(&res, &vec, filter.vec(), &env, host::bloom_filter::mode);
            for (std::size_t i = 0; i < list.size(); i++)
                ASSERT_EQ(bits[i / 64] >> i % 64 & 1, filter.may_hold(list[i])) << n << " hashes, " << i;
            if (&list[0] != &strangers[0] && list == hashes)
                EXPECT_EQ(res.count, n);
            else
                EXPECT_LT(res.count, list.size() / 20) << n << " hashes";
        }
    }
}

TEST(JoinParts, PartitionsDrivenToTheEnd) {
    std::mt19937_64 rng(74);
    std::vector<ub8> hashes(5000);
    for (ub8 &h : hashes)
        h = rng() % 4 == 0 ? 0 : rng(); // one partition gets most
    tavo_enc_ctx enc{};
    enc.flags = TAVO_HASHES;
    tavo_vec vec{}, rids{};
    vec.enc = &enc;
    vec.data = hashes.data();
    vec.size = 5000;
    for (const std::size_t chunk : {1u, 7u, 1024u}) {
        host::radix_partitions partitions(loaded().ctx(), 20, 4, TAVO_PARTITION_HASH | TAVO_PARTITION_ROW_ID, 16,
                                          chunk);
        for (const ub8 first : {0u, 5000u}) {
            rids.first_row = first;
            partitions.add(&vec, &rids);
        }
        std::vector<std::vector<ub8>> expected(16);
        for (ub8 row = 0; row < 10000; row++) {
            auto &list = expected[hashes[row % 5000] >> 20 & 15];
            list.push_back(row);
            list.push_back(hashes[row % 5000]);
        }
        for (std::size_t p = 0; p < 16; p++) {
            std::vector<ub8> words;
            partitions.each_chunk(p, [&](std::span<const ub1> bytes) {
                const std::size_t before = words.size();
                words.resize(before + bytes.size() / 8);
                std::memcpy(words.data() + before, bytes.data(), bytes.size());
            });
            EXPECT_EQ(words, expected[p]) << p;
        }
    }
}

} // namespace
