// The array kinds: slots, records, blocks and nodes as rows arrive; every refusal; probes against a plain map.
#include <gtest/gtest.h>

#include <set>

#include "kv/array_probe.h"
#include "tests/kv/table_host.h"

namespace tavo::test {
namespace {

const tavo_specialized_ctx *lib() { return &tavo_global_specialized_ctx; }

using lists = std::map<ub4, std::vector<ub8>>; // rows of each key, in order

struct array_case {
    ub4 kind, type;
    ub4 value_bytes;
    const char *name;
};
constexpr array_case arid4{4, 4, 4, "arid4"}, arid8{4, 5, 8, "arid8"}, acnt{5, 3, 0, "acnt"};

// Keys, and values as the rows' payload, their numbers, or the ids of a record stream.
enum class array_rows { payload, autorid, records };

struct array_vectors {
    host_vector hashes, keys, values;
    std::vector<ub4> key_of;
    std::vector<ub8> row_of;

    array_vectors(const std::vector<ub4> &k, const std::vector<ub8> &rows, ub4 value_bytes, array_rows form)
        : hashes(form == array_rows::records ? k.size() * 16 : 0), keys(k.size() * 4),
          values(form == array_rows::payload ? k.size() * value_bytes : 0), key_of(k), row_of(rows) {
        for (std::size_t i = 0; i < k.size(); i++) {
            keys.memory.as<ub4>()[i] = k[i];
            if (form == array_rows::records) {
                ub1 *record = hashes.memory.data() + 16 * i;
                const ub4 head[2] = {0xdeadbeef, k[i]};
                std::memcpy(record, head, 8);
                std::memcpy(record + 8, &rows[i], 8);
            } else if (form == array_rows::payload) {
                std::memcpy(values.memory.data() + i * value_bytes, &rows[i], value_bytes);
            }
        }
        for (host_vector *v : {&hashes, &keys, &values})
            v->vec.size = static_cast<ub4>(k.size());
        if (form == array_rows::records)
            hashes.enc.flags = TAVO_RECORD_RIDGDHASH;
        if (form == array_rows::autorid) {
            values.enc.flags = TAVO_ROWID_BASE;
            values.vec.first_row = rows.empty() ? 0 : rows[0];
        }
    }
};

// Adds all rows, mapping what is missing; returns the codes that were met on the way.
std::set<ub4> add_all(host_table &table, array_vectors &v) {
    std::set<ub4> met;
    tavo_env env{};
    tavo_kv_status status{};
    for (int calls = 0;; calls++) {
        const ub4 result = lib()->create_add_kv(&table.kv, v.hashes.enc.flags ? &v.hashes.vec : nullptr, &v.values.vec,
                                                &v.keys.vec, -1, &env, &host_table::alloc, &status);
        met.insert(result);
        if (result == 0) {
            EXPECT_EQ(env.resume_row, v.key_of.size());
            return met;
        }
        if (calls > 200000) {
            ADD_FAILURE() << "no way on";
            return met;
        }
        table.map_missing(status);
        if (result == 11) // the last key of what is mapped does not pass in a batch: one segment more
            table.map(0, status.build.segment + 1);
    }
}

TEST(KvArray, Arid8SlotStates) {
    host_table table(4, 5, 100, 1000);
    table.map(0, 0);
    ub8 *slot = static_cast<ub8 *>(table.kv.region[0].segments[0]) + 9;
    std::vector<ub8> added;
    const auto words = [&](ub8 at) { return reinterpret_cast<ub8 *>(at & ~7ull); };
    ub8 block = 0, first_node = 0, newest = 0;
    for (ub8 v = 0; v < 100; v++) {
        array_vectors one({9}, {1000 + v}, 8, array_rows::payload);
        ASSERT_EQ(add_all(table, one), std::set<ub4>{0});
        added.push_back(1000 + v);
        SCOPED_TRACE(v + 1);
        switch (v + 1) {
        case 1: ASSERT_EQ(*slot, 1000 * 2 + 2u); break;
        case 2:
            block = *slot - 1;
            ASSERT_EQ(block, reinterpret_cast<ub8>(table.kv.region[1].segments[0]));
            ASSERT_EQ(words(block)[2], 1000u);
            ASSERT_EQ(words(block)[3], 1001u);
            break;
        case 3:
            ASSERT_EQ(*slot, block + 3);
            ASSERT_EQ(words(block)[0], 1002u);
            break;
        case 4:
            ASSERT_EQ(*slot, block + 5);
            ASSERT_EQ(words(block)[1], 1003u);
            break;
        case 5:
            first_node = newest = *slot - 7;
            ASSERT_EQ(first_node, block + 4 * 8);
            ASSERT_EQ(words(first_node)[0], block + 1);
            ASSERT_EQ(words(first_node)[1], 7ull << 32 | 3);
            ASSERT_EQ(words(first_node)[2], 1002u);
            ASSERT_EQ(words(first_node)[4], 1004u);
            ASSERT_EQ(words(block)[0], first_node);
            ASSERT_EQ(words(block)[1], 2ull << 32 | 2);
            break;
        case 10: // the first node is full: (7 + 2) * 1.618 = 14 units
            ASSERT_EQ(words(first_node)[0], *slot - 7);
            newest = *slot - 7;
            ASSERT_EQ(newest, first_node + 9 * 8);
            ASSERT_EQ(words(newest)[0], block + 1);
            ASSERT_EQ(words(newest)[1], 12ull << 32 | 1);
            break;
        case 22: ASSERT_EQ(words(*slot)[1] >> 32, 20u); break; // (12 + 2) * 1.618 = 22 units
        default: break;
        }
        // The reader, at every length, in outputs of any size.
        for (ub4 capacity : {4u, 5u, 9u, 200u}) {
            tavo_aux_info aux{};
            std::vector<ub8> read;
            sb8 n = 0;
            do {
                std::vector<ub8> out(capacity);
                n = tavo_kv_list8_read(slot, &aux, out.data(), capacity);
                ASSERT_EQ(n < 0 ? -n : n, n < 0 ? static_cast<sb8>(capacity) : n);
                read.insert(read.end(), out.begin(), out.begin() + (n < 0 ? capacity : n));
            } while (n < 0);
            ASSERT_EQ(read, added);
            ASSERT_EQ(aux.tavo_aux_stream_position, 0u);
        }
        std::vector<ub8> bits(2);
        tavo_aux_info aux{0, 0, nullptr, 1000, bits.data()};
        ASSERT_EQ(tavo_kv_list8_read_noridout_segbv(slot, &aux), static_cast<sb8>(v + 1));
        ASSERT_EQ(bits[0], v >= 63 ? ~0ull : (2ull << v) - 1);
        std::vector<ub8> again(2), out(200);
        aux.segbv = again.data();
        ASSERT_EQ(tavo_kv_list8_read_segbv(slot, &aux, out.data(), 200), static_cast<sb8>(v + 1));
        ASSERT_EQ(again, bits);
        ASSERT_EQ(tavo_kv_list8_read_segbv(slot, &aux, nullptr, 3), 0);
    }
}

TEST(KvArray, Arid4GroupsRecordsAndNodes) {
    host_table table(4, 4, 100, 1000);
    table.map(0, 0);
    const auto *group = static_cast<ub1 *>(table.kv.region[0].segments[0]) + 34; // of key 13
    const auto word = [](const ub1 *p) {
        ub4 v;
        std::memcpy(&v, p, 4);
        return v;
    };
    const auto half = [](const ub1 *p) { return static_cast<ub4>(p[0] | p[1] << 8); };
    const auto address = [](const ub1 *p) {
        const ub1 *v;
        std::memcpy(&v, p, 8);
        return v;
    };
    array_vectors other({1}, {5}, 4, array_rows::payload), other2({1}, {6}, 4, array_rows::payload);
    add_all(table, other), add_all(table, other2); // record 0 is somebody else's
    for (ub4 v = 0; v < 40; v++) {
        array_vectors one({13}, {100 + v}, 4, array_rows::payload);
        ASSERT_EQ(add_all(table, one), std::set<ub4>{0});
        SCOPED_TRACE(v + 1);
        ASSERT_EQ(group[0], v >= 1 ? 0x20 : 0);
        ASSERT_EQ(group[1], v >= 4 ? 0x20 : 0);
        ASSERT_EQ(word(group + 2 + 20), v == 0 ? 101u : 1u);
        const auto *record = static_cast<ub1 *>(table.kv.region[1].segments[0]) + 17;
        if (v >= 1) {
            ASSERT_EQ(record[0], v >= 4 ? 2 : v + 1);
            ASSERT_EQ(word(record + 1), 100u);
            ASSERT_EQ(word(record + 5), 101u);
        }
        if (v >= 4) {
            const auto *first = static_cast<ub1 *>(table.kv.region[2].segments[0]);
            const ub1 *newest = address(record + 9);
            ASSERT_EQ(half(first), std::min(v - 1, 8u));
            ASSERT_EQ(half(first + 2), 8u);
            for (ub4 i = 0; i < half(first); i++)
                ASSERT_EQ(word(first + 12 + 4 * i), 102 + i);
            // From the tenth value on: 16 places, behind the first node's 22 units; then (16 + 2) * 1.618 = 29.
            ASSERT_EQ(newest, v < 10 ? first : v < 26 ? first + 44 : first + 44 + 2 * ((16 * 4 + 13) / 2));
            if (v == 10) {
                ASSERT_EQ(half(newest), 1u);
                ASSERT_EQ(half(newest + 2), 16u);
            } else if (v == 26) {
                ASSERT_EQ(half(newest + 2), 29u);
                ASSERT_EQ(address(first + 4), first + 44);
            }
            ASSERT_EQ(v < 10 ? address(first + 4) : address(newest + 4), first); // a ring
        }
    }
}

TEST(KvArray, UniqueKeepsTheFirstRow) {
    for (const array_case &c : {arid4, arid8, acnt}) {
        host_table table(c.kind, c.type, 1000, 10000);
        table.kv.flags |= TAVO_KV_UNIQUE;
        std::vector<ub4> keys(2000);
        std::vector<ub8> rows(2000);
        for (ub4 i = 0; i < 2000; i++)
            keys[i] = i * 7 % 500, rows[i] = 1 + i;
        array_vectors v(keys, rows, c.value_bytes, array_rows::payload);
        add_all(table, v);
        EXPECT_EQ(table.allocated(1), 0u) << c.name;
        EXPECT_EQ(table.kv.region[1].mapped_segments, 0u) << c.name;
        if (c.type == 5)
            for (ub4 k = 0; k < 500; k++) {
                const ub8 first = static_cast<ub8>(std::find(keys.begin(), keys.end(), k) - keys.begin());
                EXPECT_EQ(static_cast<ub8 *>(table.kv.region[0].segments[0])[k], (1 + first) * 2 + 2);
            }
    }
}

// Where a key passes: in a batch below the last key of the map, among the last rows of a vector up to it.
TEST(KvArray, TheEdgeOfTheMap) {
    const auto add = [](const array_case &c, const std::vector<ub4> &keys, tavo_kv_status &status, ub4 &resume_row,
                        bool counters = true) {
        host_table table(c.kind, c.type, 1 << 20, 1000);
        table.map(0, 0);
        if (c.kind == 5 && counters)
            table.map(1, 0);
        array_vectors v(keys, std::vector<ub8>(keys.size(), 7), c.value_bytes, array_rows::payload);
        tavo_env env{};
        const ub4 result = lib()->create_add_kv(&table.kv, &v.hashes.vec, &v.values.vec, &v.keys.vec, -1, &env,
                                                &host_table::alloc, &status);
        resume_row = env.resume_row;
        return result;
    };
    tavo_kv_status status{};
    ub4 row = 0;
    const auto expect = [&](ub4 region_class, ub8 segment, ub4 resume_row) {
        EXPECT_EQ(status.build.region_class, region_class);
        EXPECT_EQ(status.build.segment, segment);
        EXPECT_EQ(row, resume_row);
    };
    for (const array_case &c : {arid4, arid8}) {
        SCOPED_TRACE(c.name);
        const ub4 last = 0x1ffff;
        EXPECT_EQ(add(c, {1, 2, 3, last - 1}, status, row), 0u);
        EXPECT_EQ(add(c, {1, 2, 3, last}, status, row), 11u);
        expect(0, 0, 0);
        EXPECT_EQ(add(c, {1, 2, 3, 4, last, 5, last}, status, row), 0u);
        EXPECT_EQ(add(c, {1, 2, 3, 4, 5, last + 1, 3 << 17}, status, row), 11u);
        expect(0, 1, 5);
        std::vector<ub4> two_batches(232 + 4, 9);
        two_batches[233] = 5 << 17;
        two_batches[234] = 4 << 17;
        EXPECT_EQ(add(c, two_batches, status, row), 11u);
        expect(0, 5, 232);
    }
    const ub4 last = 0x3ffff;
    EXPECT_EQ(add(acnt, {last, last, last, last, last}, status, row), 0u);
    EXPECT_EQ(add(acnt, {1, 2, 3 << 18, 9 << 18, 5}, status, row), 11u);
    expect(0, 9, 0);
    EXPECT_EQ(add(acnt, {1, 2, 3, 4, 5, last + 1}, status, row), 11u);
    expect(1, 1, 5); // among the last rows the class is another
    EXPECT_EQ(add(acnt, {1, 2, 3, 4, 2, 5}, status, row, false), 12u);
    expect(1, 0, 4);
}

// An arid4 node that is refused with exactly 1 costs its row and nothing else.
TEST(KvArray, RefusalWithOneDropsTheRow) {
    host_table table(4, 4, 100, 1000);
    table.map(0, 0);
    array_vectors four({8, 8, 8, 8}, {1, 2, 3, 4}, 4, array_rows::payload);
    add_all(table, four);
    table.refuse = 1;
    table.refuse_with = 1;
    array_vectors dropped({8, 9}, {5, 6}, 4, array_rows::payload);
    EXPECT_EQ(add_all(table, dropped), std::set<ub4>{0});
    const auto *group = static_cast<ub1 *>(table.kv.region[0].segments[0]) + 34;
    EXPECT_EQ(group[1], 1);
    table.refuse = 0;
    array_vectors more({8, 8}, {7, 8}, 4, array_rows::payload);
    add_all(table, more);
    host_vector keys(4, 1), out(40 * 4, 40), rids(0);
    put<ub4>(keys.memory.data(), 8);
    rids.enc.flags = TAVO_ROWID_BASE;
    tavo_aux_info aux{};
    tavo_env env{};
    env.aux = &aux;
    tavo_kv_status status{};
    std::vector<ub4> rid_out(40);
    EXPECT_EQ(lib()->probe_kv(&out.vec, rid_out.data(), nullptr, &rids.vec, &keys.vec, &table.kv, 0, &env, &status),
              0u);
    EXPECT_EQ(std::vector<ub4>(out.memory.as<ub4>(), out.memory.as<ub4>() + out.vec.size),
              (std::vector<ub4>{1, 2, 3, 4, 7, 8}));
}

struct array_result {
    std::vector<std::pair<ub8, ub8>> pairs;
    ub8 count = 0;
    std::set<ub8> matched_rows, matched_values;
};

array_result plain_probe(const lists &rows_of, const std::vector<ub4> &keys, ub4 mode, ub8 first_row) {
    array_result result;
    for (std::size_t r = 0; r < keys.size(); r++) {
        const auto at = rows_of.find(keys[r]);
        std::vector<ub8> rows = at == rows_of.end() ? std::vector<ub8>{} : at->second;
        if ((mode == 5 || mode == 4) && !rows.empty())
            rows = {rows.back()};
        for (ub8 v : rows) {
            result.pairs.emplace_back(mode == 3 ? 0 : first_row + r, v);
            result.matched_rows.insert(first_row + r);
            result.matched_values.insert(v);
        }
        result.count += mode == 6 && rows.empty() ? 1 : rows.size();
    }
    return result;
}

TEST(KvArray, JoinsInEveryMode) {
    std::mt19937_64 rng(41);
    ub8 outputs = 0, refusals = 0;
    std::set<ub4> met;
    for (const array_case &c : {arid4, arid8, acnt})
        for (array_rows form : {array_rows::payload, array_rows::autorid, array_rows::records})
            for (int round = 0; round < 6; round++) {
                if (c.kind == 5 && form != array_rows::payload)
                    continue;
                SCOPED_TRACE(std::string(c.name) + " form " + std::to_string(static_cast<int>(form)) + " round " +
                             std::to_string(round));
                // Few keys with long lists, and many with short ones over several segments.
                const ub4 distinct = round % 2 ? 20 : 300000, size = round % 3 == 2 ? 6000 : 1500;
                host_table table(c.kind, c.type, distinct, size * 2);
                if (c.kind == 4)
                    table.refuse = round < 2 ? 0 : 0.1;
                lists rows_of;
                for (int part = 0; part < 2; part++) {
                    const ub4 n = size / 2 + static_cast<ub4>(rng() % 5);
                    std::vector<ub4> keys(n);
                    std::vector<ub8> rows(n);
                    const ub8 first = rng() % 1000;
                    for (ub4 i = 0; i < n; i++) {
                        keys[i] = static_cast<ub4>(rng() % (rng() % 2 ? distinct : 20));
                        rows[i] = form == array_rows::autorid ? first + i : rng() % 60000;
                        rows_of[keys[i]].push_back(c.kind == 5 ? 0 : rows[i]);
                    }
                    array_vectors v(keys, rows, c.value_bytes, form);
                    met.merge(add_all(table, v));
                }
                refusals += table.refusals;

                for (ub4 mode :
                     c.kind == 5 ? std::vector<ub4>{0, 1, 4, 5, 6, 7} : std::vector<ub4>{0, 1, 3, 5, 7, 10, 11}) {
                    SCOPED_TRACE("mode " + std::to_string(mode));
                    const bool counting = mode == 1 || mode == 4 || mode == 6 || mode == 10, autorid = rng() % 2;
                    const ub4 n = static_cast<ub4>(rng() % 500);
                    const ub8 first_row = rng() % 100000;
                    std::vector<ub4> keys(n);
                    for (ub4 &k : keys)
                        k = static_cast<ub4>(rng() % 4 == 0 ? rng() : rng() % (rng() % 2 ? distinct : 30));
                    const array_result want = plain_probe(rows_of, keys, mode, first_row);
                    array_vectors v(keys, std::vector<ub8>(n), 0, array_rows::payload);
                    host_vector rids(autorid ? 0 : n * 8, n);
                    for (ub4 r = 0; r < n && !autorid; r++)
                        rids.memory.as<ub8>()[r] = first_row + r;
                    rids.enc.flags = autorid ? TAVO_ROWID_BASE : 0;
                    rids.vec.first_row = first_row;
                    std::vector<ub8> row_bits(n / 64 + 1, ~0ull), value_bits(1000);
                    tavo_aux_info aux{0, 0, row_bits.data(), mode == 7 ? first_row : 0, value_bits.data()};
                    tavo_env env{};
                    env.aux = &aux;
                    tavo_kv_status status{};
                    array_result got;
                    ub4 result = 15;
                    const bool small = rng() % 2;
                    while (result == 15) {
                        const ub4 capacity = counting ? 0 : small ? 4 + static_cast<ub4>(rng() % 30) : 3000000;
                        host_vector out(counting ? 0 : std::size_t{capacity} * c.value_bytes, capacity);
                        guarded rid_out(counting || mode == 3 ? 0 : std::size_t{capacity} * (autorid ? 4 : 8));
                        result = lib()->probe_kv(&out.vec, rid_out.data(), nullptr, &rids.vec, &v.keys.vec, &table.kv,
                                                 mode, &env, &status);
                        ASSERT_TRUE(result == 0 || result == 15);
                        got.count += out.vec.size;
                        for (ub4 i = 0; !counting && i < out.vec.size; i++) {
                            ub8 rid = 0, value = 0;
                            if (mode != 3)
                                std::memcpy(&rid, rid_out.data() + i * (autorid ? 4 : 8), autorid ? 4 : 8);
                            std::memcpy(&value, out.memory.data() + std::size_t{i} * c.value_bytes, c.value_bytes);
                            got.pairs.emplace_back(rid, value);
                        }
                    }
                    ASSERT_EQ(got.count, want.count);
                    if (!counting) {
                        ASSERT_EQ(got.pairs, want.pairs);
                    }
                    for (ub4 r = 0; r < n; r++)
                        if (!(row_bits[r / 64] >> r % 64 & 1))
                            got.matched_rows.insert(first_row + r);
                    for (ub8 b = 0; b < value_bits.size() * 64; b++)
                        if (value_bits[b / 64] >> b % 64 & 1)
                            got.matched_values.insert(b);
                    ASSERT_EQ(got.matched_rows, mode == 7 ? want.matched_rows : std::set<ub8>{});
                    ASSERT_EQ(got.matched_values, mode >= 10 ? want.matched_values : std::set<ub8>{});
                    outputs += got.count;
                }
            }
    EXPECT_GT(outputs, 1000000u);
    EXPECT_GT(refusals, 300u);
    EXPECT_EQ(met, (std::set<ub4>{0, 11, 12, refusal}));
}

TEST(KvArray, WhatIsRefused) {
    tavo_kv_status status{};
    for (const array_case &c : {arid4, arid8, acnt}) {
        host_table table(c.kind, c.type, 100, 100);
        table.map(0, 0);
        array_vectors v({1, 2}, {1, 2}, c.value_bytes, array_rows::payload);
        v.hashes.enc.flags = TAVO_RECORD_GDHASH; // no stream of these
        tavo_env env{};
        EXPECT_EQ(lib()->create_add_kv(&table.kv, &v.hashes.vec, &v.values.vec, &v.keys.vec, -1, &env,
                                       &host_table::alloc, &status),
                  2u);
        v.hashes.enc.flags = TAVO_RECORD_KEY32; // the keys in both places
        EXPECT_EQ(lib()->create_add_kv(&table.kv, &v.hashes.vec, &v.values.vec, &v.keys.vec, -1, &env,
                                       &host_table::alloc, &status),
                  0u);
        for (ub4 mode = 0; mode < 14; mode++) {
            const bool takes =
                c.kind == 5 ? mode <= 7 && mode != 2 && mode != 3 : mode <= 11 && mode != 2 && mode != 4 && mode != 6;
            const bool marks = mode == 8 || mode == 9;
            tavo_aux_info aux{};
            ub8 bits[2] = {};
            aux.nonmatch_bv = aux.segbv = bits;
            tavo_env probe_env{};
            probe_env.aux = &aux;
            host_vector out(100, 10), rids(0);
            rids.enc.flags = TAVO_ROWID_BASE;
            ub4 rid_out[10];
            EXPECT_EQ(lib()->probe_kv(&out.vec, rid_out, nullptr, &rids.vec, &v.keys.vec, &table.kv, mode, &probe_env,
                                      &status),
                      !takes  ? 14u
                      : marks ? 2u
                              : 0u)
                << c.name << " mode " << mode;
        }
    }
}

} // namespace
} // namespace tavo::test
