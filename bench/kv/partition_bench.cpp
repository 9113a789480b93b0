// Partitioning into 256 buffers beside a copy of the records' bytes, of the same size and to fresh buffers, and beside
// the obvious loop. Bytes are those of the records, items are rows.
#include <sys/mman.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "bench/kit/plain.h"
#include "frame/tavo.h"

namespace tavo::bench {
namespace {

const tavo_specialized_ctx &lib = tavo_global_specialized_ctx;
constexpr unsigned partitions = 256, low_bit = 40, high_bit = 47;

ub8 multiply_hash(const void *data, ub8, ub8 seed) {
    ub8 key;
    std::memcpy(&key, data, sizeof key);
    return (key ^ seed) * 0x9e3779b97f4a7c15;
}

// One buffer a partition with room to spare; written through once before anything is measured.
struct step {
    step(ub1 flags, std::size_t record_bytes, ub4 rows, bool hashed)
        : rows(rows), record_bytes(record_bytes), hashes(rows), values(rows), texts(rows * 10ull),
          room((rows / partitions + rows / partitions / 4 + 64) * record_bytes), memory(room * partitions, 1),
          copied(rows * record_bytes, 1), records(rows * record_bytes, 2), write(partitions), end(partitions) {
        std::mt19937_64 rng(65);
        for (ub8 &h : hashes)
            h = rng();
        for (ub8 &v : values)
            v = rng();
        ctx.flags = flags;
        ctx.high_bit = high_bit;
        ctx.low_bit = low_bit;
        ctx.record_extra = 8;
        ctx.write_pointers = write.data();
        ctx.end_pointers = end.data();
        source_enc.flags = hashed ? TAVO_HASHES : TAVO_FIXED;
        source_enc.width_bits = 64;
        source.enc = &source_enc;
        source.data = hashes.data();
        source.size = rows;
        column_enc.flags = flags & TAVO_PARTITION_KEY_REFERENCE ? TAVO_LP : TAVO_FIXED;
        column_enc.width_bits = 64;
        column.enc = &column_enc;
        column.data = flags & TAVO_PARTITION_KEY_REFERENCE ? static_cast<void *>(texts.data()) : values.data();
        column.size = rows;
    }
    void reset() {
        for (std::size_t p = 0; p < partitions; p++) {
            write[p] = memory.data() + p * room;
            end[p] = write[p] + room;
        }
    }
    ub4 run() {
        reset();
        tavo_env env{};
        return lib.partition(&ctx, &source, &rids, &column, multiply_hash, &env);
    }
    // Row id and hash.
    void obvious_loop() {
        reset();
        for (ub4 row = 0; row < rows; row++) {
            const ub8 p = hashes[row] >> low_bit & (partitions - 1);
            if (end[p] - write[p] < 16)
                return;
            const ub8 id = row;
            std::memcpy(write[p], &id, 8);
            std::memcpy(write[p] + 8, &hashes[row], 8);
            write[p] += 16;
        }
    }
    void copy() { std::memcpy(copied.data(), records.data(), records.size()); }

    ub4 rows;
    std::size_t record_bytes;
    std::vector<ub8> hashes, values;
    std::vector<ub1> texts;
    std::size_t room;
    std::vector<ub1> memory, copied, records;
    std::vector<ub1 *> write, end;
    tavo_partition_ctx ctx{};
    tavo_enc_ctx source_enc{}, column_enc{};
    tavo_vec source{}, rids{}, column{};
};

void measure(const char *where, ub4 rows) {
    const auto add = [=](const std::string &name, ub1 flags, std::size_t record_bytes, bool hashed, auto body) {
        benchmark::RegisterBenchmark(("partition/" + std::string(where) + "/" + name).c_str(),
                                     [=](benchmark::State &state) {
                                         step s(flags, record_bytes, rows, hashed);
                                         if (s.run() != TAVO_DONE)
                                             return state.SkipWithError("a buffer was full");
                                         report_best(state, rows * record_bytes, rows, [&] { body(s); });
                                     })
            ->Apply(by_best_time);
    };
    const std::pair<ub1, std::size_t> forms[] = {{0x08, 8},  {0x09, 16}, {0x0c, 16}, {0x0d, 24},
                                                 {0x28, 24}, {0x29, 32}, {0x48, 24}};
    const char *const names[] = {"hash",          "row_id",         "value",    "value_row_id",
                                 "key_reference", "row_id_key_ref", "fixed_key"};
    for (std::size_t i = 0; i < std::size(forms); i++) {
        const auto [flags, bytes] = forms[i];
        add(std::string(names[i]) + "/limit/memcpy", flags, bytes, true, [](step &s) { s.copy(); });
        if (flags == 0x09)
            add(std::string(names[i]) + "/plain", flags, bytes, true, [](step &s) { s.obvious_loop(); });
        add(std::string(names[i]) + "/kernel/hashes", flags, bytes, true, [](step &s) { s.run(); });
        if (flags == 0x09)
            add(std::string(names[i]) + "/kernel/keys", flags, bytes, false, [](step &s) { s.run(); });
    }
}

const bool registered = [] {
    measure("L2", 16 << 10);
    measure("L3", 256 << 10);
    measure("memory", 16 << 20);
    return true;
}();

} // namespace
} // namespace tavo::bench
BENCHMARK_MAIN();
