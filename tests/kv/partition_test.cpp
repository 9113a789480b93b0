// Partitioning: records of every form, from hashes, from record streams and from key columns, against a plain scatter;
// buffers of random room, filled, drained and continued.
#include <gtest/gtest.h>

#include <cstring>

#include "tests/kit/host_stub.h"
#include "tests/kit/spak_stream.h"
#include "tests/kv/element_column.h"

namespace tavo::test {
namespace {

const tavo_specialized_ctx &lib = tavo_global_specialized_ctx;

// What a record is, by the flags that ask for it.
struct record_form {
    ub1 flags;
    ub4 bytes;
};
constexpr record_form record_forms[] = {{0x08, 8},  {0x09, 16}, {0x0c, 16}, {0x0d, 24},
                                        {0x28, 24}, {0x29, 32}, {0x48, 24}};

// The partition buffers of one step; each drained into a list of its own.
struct buffers {
    buffers(unsigned high_bit, unsigned low_bit, ub4 bytes, ub4 most_records, std::mt19937_64 &rng) : bytes(bytes) {
        const std::size_t n = 1ull << (high_bit - low_bit + 1);
        for (std::size_t p = 0; p < n; p++) {
            memory.emplace_back((rng() % (most_records + 1)) * bytes + rng() % bytes);
            write.push_back(memory[p].data());
            end.push_back(memory[p].data() + memory[p].size());
        }
        drained.resize(n);
        ctx.high_bit = static_cast<ub1>(high_bit);
        ctx.low_bit = static_cast<ub1>(low_bit);
        ctx.write_pointers = write.data();
        ctx.end_pointers = end.data();
    }
    void drain(ub4 p) {
        drained[p].append(reinterpret_cast<char *>(memory[p].data()),
                          static_cast<std::size_t>(write[p] - memory[p].data()));
        if (memory[p].size() < bytes) // has no room for any record: another buffer, with room for exactly one
            memory[p] = guarded(bytes);
        write[p] = memory[p].data();
        end[p] = memory[p].data() + memory[p].size();
    }
    void drain_all() {
        for (ub4 p = 0; p < drained.size(); p++)
            drain(p);
    }

    ub4 bytes;
    std::vector<guarded> memory;
    std::vector<ub1 *> write, end;
    std::vector<std::string> drained;
    tavo_partition_ctx ctx{};
};

void append(std::string &to, auto... words) {
    for (ub8 word : {static_cast<ub8>(words)...})
        to.append(reinterpret_cast<const char *>(&word), 8);
}

// Value or key column of a record form; null for records without one.
std::unique_ptr<element_column> record_column(ub1 flags, ub4 rows, std::mt19937_64 &rng) {
    switch (flags & 0x64) {
    case 0x04: return std::make_unique<element_column>(column_form::fixed, rows, rng() % 2 ? 4 : 8, rng);
    case 0x20: return std::make_unique<element_column>(rng() % 2 ? column_form::lp : column_form::lp_sep, rows, 0, rng);
    case 0x40: return std::make_unique<element_column>(column_form::fixed, rows, 1 + rng() % 20, rng);
    default: return nullptr;
    }
}

std::string expected_record(ub1 flags, ub8 row_id, ub8 hash, const element_column *column, ub4 row, ub4 record_extra) {
    std::string r;
    const std::string element = column ? column->elements[row] : "";
    ub8 value = 0, key_address = 0;
    if (flags & 0x04)
        std::memcpy(&value, element.data(), element.size());
    if (flags & 0x20)
        std::memcpy(
            &key_address,
            static_cast<const ub1 *>(column->vec.data) + (column->enc.flags == TAVO_LP ? 10 * row + 2 : 8 * row), 8);
    switch (flags) {
    case 0x08: append(r, hash); break;
    case 0x09: append(r, row_id, hash); break;
    case 0x0c: append(r, value, hash); break;
    case 0x0d: append(r, value, hash, row_id); break;
    case 0x28: append(r, key_address, element.size(), hash); break;
    case 0x29: append(r, row_id, hash, key_address, element.size()); break;
    case 0x48:
        append(r, hash);
        r += element.substr(0, record_extra);
        r.resize(24);
    }
    return r;
}

// Calls until all rows are done; every stop names a partition whose room was too small.
void run_to_the_end(buffers &b, tavo_vec *source, tavo_vec *rids, tavo_vec *column, tavo_env &env,
                    const std::string &what) {
    for (ub4 before = 0;; before = env.resume_row) {
        const ub4 status = lib.partition(&b.ctx, source, rids, column, test_hash, &env);
        ASSERT_GE(env.resume_row, before) << what;
        if (status == TAVO_DONE)
            break;
        ASSERT_EQ(status, TAVO_PARTITION_FULL) << what;
        ASSERT_LT(env.full_partition, b.write.size()) << what;
        ASSERT_LT(b.end[env.full_partition] - b.write[env.full_partition], b.bytes) << what;
        b.drain(env.full_partition);
    }
    EXPECT_EQ(env.resume_row, source->size) << what;
    b.drain_all();
}

constexpr ub8 first_row_id = 0x100000000f0;

void check(record_form form, tavo_vec *source, const std::vector<ub8> &hashes, ub4 most_records, std::mt19937_64 &rng,
           const std::string &what) {
    const ub4 rows = source->size;
    const auto low_bit = static_cast<unsigned>(rng() % 60), high_bit = low_bit + static_cast<unsigned>(rng() % 4);
    const auto column = record_column(form.flags, rows, rng);
    buffers b(high_bit, low_bit, form.bytes, most_records, rng);
    b.ctx.flags = static_cast<ub1>(form.flags | (rng() % 2 ? 0x82 : 0)); // bits without a meaning
    b.ctx.record_extra =
        form.flags & 0x40 ? static_cast<ub4>(rng() % (std::min<std::size_t>(16, column->enc.width_bits / 8) + 1)) : 99;
    tavo_vec rids{};
    rids.first_row = first_row_id;
    tavo_env env{};
    run_to_the_end(b, source, form.flags & 1 ? &rids : nullptr, column ? &column->vec : nullptr, env, what);
    std::vector<std::string> expected(b.drained.size());
    for (ub4 row = 0; row < rows; row++)
        expected[hashes[row] >> low_bit & (expected.size() - 1)] +=
            expected_record(form.flags, first_row_id + row, hashes[row], column.get(), row, b.ctx.record_extra);
    for (std::size_t p = 0; p < expected.size(); p++)
        ASSERT_EQ(b.drained[p], expected[p]) << what << ", partition " << p;
}

TEST(partition, given_hashes) {
    std::mt19937_64 rng(655);
    for (record_form form : record_forms)
        for (ub4 rows : {0u, 1u, 2u, 63u, 1500u})
            for (ub4 most_records : {1u, 7u, 100u}) {
                std::vector<ub8> hashes(rows);
                for (ub8 &h : hashes)
                    h = rng();
                const guarded memory(std::span(reinterpret_cast<const ub1 *>(hashes.data()), rows * 8ull));
                tavo_enc_ctx enc{};
                enc.flags = TAVO_HASHES;
                tavo_vec source{};
                source.enc = &enc;
                source.data = memory.data();
                source.size = rows;
                check(form, &source, hashes, most_records, rng,
                      "record " + std::to_string(form.flags) + ", " + std::to_string(rows) + " rows");
            }
}

TEST(partition, key_columns_of_every_form) {
    std::mt19937_64 rng(656);
    for (column_form key_form : column_forms)
        for (record_form form : record_forms)
            for (ub4 rows : {0u, 1u, 1023u, 1024u, 3000u}) {
                element_column keys(key_form, rows, key_form == column_form::fixed ? 6 : 11, rng);
                std::vector<ub8> hashes;
                for (const std::string &e : keys.elements)
                    hashes.push_back(test_hash(e.data(), e.size(), 0));
                check(form, &keys.vec, hashes, rows / 5, rng,
                      "key form " + std::to_string(static_cast<int>(key_form)) + ", record " +
                          std::to_string(form.flags) + ", " + std::to_string(rows) + " rows");
            }
}

// Records of row id and hash are copied whole, whatever row ids the step has.
TEST(partition, record_stream) {
    std::mt19937_64 rng(657);
    const ub4 rows = 777;
    std::string records;
    std::vector<std::string> expected(16);
    for (ub4 row = 0; row < rows; row++) {
        const ub8 id = rng(), hash = rng();
        append(records, id, hash);
        append(expected[hash >> 9 & 15], id, hash);
    }
    const guarded memory(std::span(reinterpret_cast<const ub1 *>(records.data()), records.size()));
    for (ub4 class_flags : {TAVO_RECORD_RIDHASH | TAVO_HASHES, TAVO_RECORD_RIDHASH})
        for (ub1 flags : {ub1{0x08}, ub1{0x09}}) {
            tavo_enc_ctx enc{};
            enc.flags = class_flags;
            tavo_vec source{};
            source.enc = &enc;
            source.data = memory.data();
            source.size = rows;
            buffers b(12, 9, 16, 10, rng);
            b.ctx.flags = flags;
            tavo_env env{};
            run_to_the_end(b, &source, nullptr, nullptr, env, "records");
            EXPECT_EQ(b.drained, expected);
        }
}

// A key column and its values, both compressed: each is decoded once, under the operation's name, and a walk over
// lengths goes on at the byte that the stop has left.
TEST(partition, compressed_columns_and_offsets) {
    std::mt19937_64 rng(659);
    constexpr ub4 rows = 1500;
    element_column keys(column_form::lv, rows, 0, rng), values(column_form::fixed, rows, 8, rng);
    std::vector<ub8> starts(1, 0);
    for (const std::string &e : keys.elements)
        starts.push_back(starts.back() + 2 + e.size());
    host_stub host;
    void *slots[2] = {};
    std::vector<std::vector<ub1>> streams;
    for (const auto &[vec, bytes] : {std::pair(&keys.vec, starts.back()), {&values.vec, ub8{rows * 8}}}) {
        streams.push_back(spak_of({static_cast<const ub1 *>(vec->data), bytes}).bytes());
        streams.back().resize(streams.back().size() + 8);
        vec->enc->flags |= TAVO_SPAK;
        vec->data = streams.back().data();
        vec->decomp_size = static_cast<ub4>(bytes);
        vec->decomp_slot = &slots[streams.size() - 1];
    }
    buffers b(2, 0, 16, 300, rng);
    b.ctx.flags = TAVO_PARTITION_HASH | TAVO_PARTITION_VALUE;
    tavo_env env{};
    env.host = host.record();
    std::vector<std::string> expected(8);
    for (ub4 row = 0; row < rows; row++) {
        const ub8 hash = test_hash(keys.elements[row].data(), keys.elements[row].size(), 0);
        expected[hash & 7] += values.elements[row];
        append(expected[hash & 7], hash);
    }
    for (ub4 stops = 0;; stops++) {
        const ub4 status = lib.partition(&b.ctx, &keys.vec, nullptr, &values.vec, test_hash, &env);
        ASSERT_EQ(env.resume_offset, starts[env.resume_row]) << "stop " << stops;
        if (status == TAVO_DONE)
            break;
        ASSERT_EQ(status, TAVO_PARTITION_FULL);
        b.drain(env.full_partition);
    }
    b.drain_all();
    EXPECT_EQ(b.drained, expected);
    ASSERT_EQ(host.allocations.size(), 2u);
    for (const auto &a : host.allocations)
        EXPECT_EQ(a.label, "tavo_partition_dydi: vec1_decomp");
}

// The row in which a step stops: a buffer with exactly one record's room takes it, one byte less does not.
TEST(partition, room_for_one_record) {
    const ub8 hashes[] = {~0ull, ~0ull};
    tavo_enc_ctx enc{};
    enc.flags = TAVO_HASHES;
    tavo_vec source{}, rids{};
    source.enc = &enc;
    source.data = const_cast<ub8 *>(hashes);
    source.size = 2;
    for (unsigned high_bit : {3u, 63u})
        for (ub4 room : {15u, 16u, 31u, 32u}) {
            std::vector<ub1> buffer(64, 0xee);
            std::vector<ub1 *> write(16, buffer.data()), end(16, buffer.data());
            end[15] += room;
            tavo_partition_ctx ctx{
                0x09, static_cast<ub1>(high_bit), static_cast<ub1>(high_bit - 3), 0, write.data(), end.data()};
            tavo_env env{};
            EXPECT_EQ(lib.partition(&ctx, &source, &rids, nullptr, nullptr, &env),
                      room == 32 ? TAVO_DONE : TAVO_PARTITION_FULL);
            EXPECT_EQ(env.resume_row, room / 16);
            EXPECT_EQ(write[15], buffer.data() + room / 16 * 16);
            EXPECT_EQ(env.full_partition, room == 32 ? 0 : 15);
            for (std::size_t i = room / 16 * 16; i < buffer.size(); i++)
                ASSERT_EQ(buffer[i], 0xee);
        }
}

TEST(partition, what_is_refused) {
    std::mt19937_64 rng(658);
    element_column lp(column_form::lp, 10, 0, rng), fixed(column_form::fixed, 10, 8, rng),
        lv(column_form::lv, 10, 0, rng);
    tavo_enc_ctx hash_enc{};
    hash_enc.flags = TAVO_HASHES;
    std::vector<ub8> some(10, 1);
    tavo_vec hashes{}, rids{};
    hashes.enc = &hash_enc;
    hashes.data = some.data();
    hashes.size = 10;
    const auto status = [&](ub1 flags, tavo_vec *source, tavo_vec *column, ub4 record_extra = 8) {
        buffers b(3, 0, 32, 100, rng);
        b.ctx.flags = flags;
        b.ctx.record_extra = record_extra;
        const std::vector<ub1 *> write = b.write;
        tavo_env env{};
        const ub4 result = lib.partition(&b.ctx, source, &rids, column, test_hash, &env);
        if (result == TAVO_UNSUPPORTED) {
            EXPECT_EQ(b.write, write);
            EXPECT_EQ(env.resume_row, 0u);
        }
        return result;
    };
    for (ub1 flags : {0x00, 0x01, 0x05, 0x20, 0x40, 0x2c, 0x2d, 0x49, 0x4c, 0x68, 0x6d}) // no hash, or no such record
        for (tavo_vec *column : {&lp.vec, &fixed.vec})
            EXPECT_EQ(status(flags, &hashes, column), TAVO_UNSUPPORTED) << int{flags};
    for (ub1 flags : {0x0c, 0x0d, 0x28, 0x29, 0x48}) { // columns that are not of the form, or missing
        EXPECT_EQ(status(flags, &hashes, &lv.vec), TAVO_UNSUPPORTED) << int{flags};
        EXPECT_EQ(status(flags, &hashes, nullptr), TAVO_UNSUPPORTED) << int{flags};
    }
    EXPECT_EQ(status(0x48, &hashes, &fixed.vec, 9), TAVO_UNSUPPORTED); // more key bytes than there are
    for (ub4 bits : {8u, 16u, 48u, 128u}) {
        fixed.enc.width_bits = bits;
        EXPECT_EQ(status(0x0c, &hashes, &fixed.vec), TAVO_UNSUPPORTED) << bits;
    }
    EXPECT_NE(status(0x08, &lp.vec, nullptr), TAVO_UNSUPPORTED);
    EXPECT_EQ(status(0x18, &lp.vec, nullptr), TAVO_UNSUPPORTED); // given hashes are asked for
    EXPECT_NE(status(0x18, &hashes, nullptr), TAVO_UNSUPPORTED);
    lp.enc.flags = 0;
    EXPECT_EQ(status(0x08, &lp.vec, nullptr), TAVO_UNSUPPORTED);
    for (ub4 records : {TAVO_RECORD_GDHASH, TAVO_RECORD_FIXEDHASH, TAVO_RECORD_RIDLPHASH, TAVO_RECORD_GDCACHEDHASH}) {
        hash_enc.flags = records | TAVO_HASHES;
        EXPECT_EQ(status(0x08, &hashes, nullptr), TAVO_UNSUPPORTED) << records;
    }
}

} // namespace
} // namespace tavo::test
