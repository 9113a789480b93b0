// Dense group keys, many threads: one code a symbol, whoever comes first, with readers at work while writers insert.
#include <gtest/gtest.h>

#include <map>
#include <random>
#include <thread>

#include "tests/xlate/dense_host.h"

namespace tavo::test {
namespace {

const tavo_specialized_ctx &lib = tavo_global_specialized_ctx;

#ifdef __SANITIZE_THREAD__ // tens of times slower
constexpr unsigned rounds = 1, less = 4;
#else
constexpr unsigned rounds = 3, less = 1;
#endif

struct setting {
    const char *name;
    unsigned threads, table_bits, symbols, rows;
    ub8 pool_budget, first_code;
    bool one_hash;         // for all symbols
    unsigned refuse_every; // allocation of each heap
};

void feed(const setting &s, dense_dictionary_host &host, const std::vector<std::string> &symbols, unsigned seed,
          std::map<std::string, ub4> &codes_of) {
    std::mt19937_64 rng(seed);
    dense_heap heap;
    heap.refuse_every = s.refuse_every;
    dense_worker_host w(host, heap, seed % 2 == 0);
    for (unsigned share = 0; share < 4; share++) {
        std::vector<const std::string *> texts;
        for (unsigned row = 0; row < s.rows / less; row++)
            texts.push_back(&symbols[rng() % symbols.size()]);
        text_column column(texts, [&](const std::string &text) { return s.one_hash ? 7 : text_hash(text); });
        ub4 status, checked = 0;
        do {
            tavo_dgk_request request{};
            status = lib.dgk_symbol2code(&request, &w.worker, &column.codes, &column.vec, &column.hashes, nullptr);
            if (status == TAVO_BUDGET_EXHAUSTED)
                host.grant({0, w.worker.block_debt * 1024ull, w.worker.page_debt});
            ASSERT_TRUE(status == TAVO_DONE || status == TAVO_BUDGET_EXHAUSTED ||
                        (status == TAVO_ALLOCATION_REFUSED && s.refuse_every != 0))
                << s.name << ": status " << status;
            for (; checked < column.codes.count; checked++) {
                const auto [at, fresh] = codes_of.try_emplace(*texts[checked], column.code[checked]);
                ASSERT_EQ(at->second, column.code[checked]) << s.name;
                if (fresh) {
                    ASSERT_EQ(host.symbol(column.code[checked]), *texts[checked]) << s.name;
                }
            }
        } while (status != TAVO_DONE);
    }
    static std::mutex keep_memory; // blocks live as long as the dictionary
    static std::vector<std::unique_ptr<ub8[]>> kept;
    const std::lock_guard lock(keep_memory);
    for (auto &block : heap.blocks)
        kept.push_back(std::move(block));
}

TEST(dense_threads, one_code_a_symbol) {
    const setting settings[] = {
        {"many new symbols", 4, 8, 20000, 8000, 1 << 26, 0, false, 0},
        {"few symbols", 4, 4, 50, 3000, 1 << 26, 65500 / 8 * 8, false, 0},
        {"tight budgets", 3, 3, 3000, 2000, 0, (1 << 24) - 800, false, 0},
        {"refused allocations", 3, 0, 3000, 2000, 20000, 0, false, 3},
        {"one hash", 4, 0, 120, 400, 1 << 24, 250 / 8 * 8, true, 0},
    };
    for (const setting &s : settings)
        for (unsigned round = 0; round < rounds; round++) {
            std::vector<std::string> symbols;
            for (unsigned i = 0; i < s.symbols / less; i++)
                symbols.push_back("word " + std::to_string(i * 7919 + round));
            dense_dictionary_host host(s.table_bits, s.pool_budget, s.pool_budget == 0 ? 0 : 1 << 20, s.threads,
                                       s.first_code);
            std::vector<std::map<std::string, ub4>> codes(s.threads);
            std::vector<std::thread> threads;
            for (unsigned t = 0; t < s.threads; t++)
                threads.emplace_back([&, t] { feed(s, host, symbols, 10 * round + t, codes[t]); });
            for (std::thread &t : threads)
                t.join();
            std::map<std::string, ub4> all;
            std::map<ub4, std::string> back;
            for (const auto &part : codes)
                for (const auto &[symbol, code] : part) {
                    ASSERT_EQ(all.try_emplace(symbol, code).first->second, code) << s.name << ": " << symbol;
                    ASSERT_EQ(back.try_emplace(code, symbol).first->second, symbol) << s.name << ": " << code;
                    ASSERT_LT(code, host.dgk.next_code);
                }
            // Dense: at most the rest of a block of 8 a thread is left over.
            EXPECT_LE(host.dgk.next_code - s.first_code, all.size() + 8 * s.threads) << s.name;
            ASSERT_FALSE(HasFailure());
        }
}

} // namespace
} // namespace tavo::test
