// Dense group keys, one worker at a time: every form of column against a map, budgets, refusals, the shape of nodes,
// pages, trie and blocks, and the keys that several columns' codes are packed into.
#include <gtest/gtest.h>

#include <map>
#include <random>

#include "tests/kit/host_stub.h"
#include "tests/xlate/dense_host.h"
#include "xlate/dense_steps.h"
#include "xlate/dense_worker.h"

namespace tavo::test {
namespace {

const tavo_specialized_ctx &lib = tavo_global_specialized_ctx;

// Codes in the order of first appearance.
struct code_model {
    explicit code_model(ub4 first) : next(first) {}
    ub4 operator()(const std::string &symbol) {
        const auto [at, fresh] = codes.try_emplace(symbol, next);
        next += fresh;
        return at->second;
    }
    std::map<std::string, ub4> codes;
    ub4 next;
};

TEST(dense, every_form_against_a_map) {
    std::mt19937_64 rng(81);
    for (column_form form : {column_form::codes_one_len, column_form::codes_cla, column_form::lp_sep,
                             column_form::lv_sep, column_form::fixed})
        for (bool hashed : {true, false})
            for (unsigned table_bits : {0u, 3u, 9u})
                for (ub8 first_code : {0ull, 65528ull, (1ull << 24) - 40, 0xffff0000ull}) {
                    dense_heap heap(true);
                    dense_dictionary_host host(table_bits, 1 << 24, 1 << 20, 1, first_code);
                    dense_worker_host w(host, heap);
                    code_model model(static_cast<ub4>(first_code));
                    // Without hashes all symbols stand in one chain of nodes.
                    const std::vector<ub4> shares =
                        hashed ? std::vector<ub4>{1000, 0, 700} : std::vector<ub4>{150, 0, 100};
                    for (ub4 rows : shares) {
                        element_column column(form, rows, 2, rng);
                        if (form == column_form::fixed)
                            column.enc.flags = TAVO_FIXED; // here the dictionary's flag would count first
                        const guarded codes(rows * 4);
                        guarded hash_memory(rows * 8);
                        for (ub4 row = 0; row < rows; row++)
                            hash_memory.as<ub8>()[row] = text_hash(column.elements[row]);
                        tavo_enc_ctx hash_enc{};
                        hash_enc.width_bits = 64;
                        tavo_vec out{}, hashes{};
                        out.data = codes.data();
                        hashes.data = hash_memory.data();
                        hashes.enc = &hash_enc;
                        tavo_dgk_request request{};
                        ASSERT_EQ(lib.dgk_symbol2code(&request, &w.worker, &out, &column.vec,
                                                      hashed ? &hashes : nullptr, nullptr),
                                  TAVO_DONE);
                        EXPECT_EQ(out.count, rows);
                        EXPECT_EQ(w.worker.rows_done, 0u);
                        for (ub4 row = 0; row < rows; row++)
                            ASSERT_EQ(codes.as<ub4>()[row], model(column.elements[row])) << row;
                    }
                    for (const auto &[symbol, code] : model.codes)
                        ASSERT_EQ(host.symbol(code), symbol) << code;
                    EXPECT_EQ(w.worker.all_symbols, model.codes.size());
                    EXPECT_EQ(w.worker.all_rows, hashed ? 1700u : 250u);
                }
}

TEST(dense, empty_and_longest_symbols) {
    dense_heap heap(true);
    dense_dictionary_host host(2, 1 << 20, 1 << 20);
    dense_worker_host w(host, heap);
    const std::string longest(65535, 'x'), nearly = longest.substr(1), none;
    std::vector<std::string> prefixes;
    std::vector<const std::string *> texts{&none, &longest, &nearly, &none, &longest, &nearly};
    for (std::size_t n = 1; n < 80; n++) // differ in their last byte alone
        for (char last : {'a', 'b'})
            prefixes.push_back(std::string(n - 1, 'x') + last);
    for (const std::string &p : prefixes)
        texts.push_back(&p);
    text_column column(texts, [](const std::string &) { return 5; });
    ASSERT_EQ(lib.dgk_symbol2code(nullptr, &w.worker, &column.codes, &column.vec, &column.hashes, nullptr), TAVO_DONE);
    EXPECT_EQ(std::vector(column.code.begin(), column.code.begin() + 6), (std::vector<ub4>{0, 1, 2, 0, 1, 2}));
    for (std::size_t i = 6; i < texts.size(); i++)
        ASSERT_EQ(column.code[i], i - 3);
    EXPECT_EQ(host.symbol(0), "");
    EXPECT_EQ(host.symbol(1), longest);
}

// Symbols that all collide fill node after node: three levels of pages, then single nodes cut from a shared page, and
// from the next one when that has no more.
TEST(dense, hashes_that_all_collide) {
    dense_heap heap;
    dense_dictionary_host host(1, 1 << 24, 1 << 20);
    dense_worker_host w(host, heap);
    std::vector<std::string> symbols;
    for (int i = 0; i < 80; i++)
        symbols.push_back(std::to_string(i));
    const auto codes_of = [&](std::size_t from, std::size_t to) {
        std::vector<const std::string *> texts;
        for (std::size_t i = from; i < to; i++)
            texts.push_back(&symbols[i]);
        text_column column(texts, [](const std::string &) { return 0x1234567890abcdef; });
        EXPECT_EQ(lib.dgk_symbol2code(nullptr, &w.worker, &column.codes, &column.vec, &column.hashes, nullptr),
                  TAVO_DONE);
        return column.code;
    };
    codes_of(0, 24); // first level and three pages
    EXPECT_EQ(heap.pages, 3u);
    codes_of(24, 36);
    EXPECT_EQ(heap.pages, 4u);
    auto &uses = *reinterpret_cast<ub4 *>(host.dgk.current_page + page_bytes);
    EXPECT_EQ(uses, 2u);
    uses = page_nodes - 2;
    codes_of(36, 80);
    EXPECT_EQ(heap.pages, 5u);
    EXPECT_EQ(*reinterpret_cast<ub4 *>(host.dgk.current_page + page_bytes),
              6u); // (80 - 36) / 6 nodes, two of the other
    const std::vector<ub4> all = codes_of(0, 80);
    for (std::size_t i = 0; i < 80; i++)
        ASSERT_EQ(all[i], i);
}

// The hash's folded bits are tag, place in the first level and places in pages; the seventh symbol of a node goes to a
// page, and the six stay.
TEST(dense, nodes_and_pages) {
    dense_heap heap;
    dense_dictionary_host host(4, 1 << 20, 1 << 20);
    dense_worker_host w(host, heap);
    const ub8 hash = 0xabcd0123456789ef, folded = hash ^ 0xabcd, walk = (folded & 0xffffffffffff) >> 8;
    std::vector<std::string> symbols;
    for (char c = 'a'; c < 'h'; c++)
        symbols.emplace_back(3, c);
    std::vector<const std::string *> texts;
    for (const std::string &s : symbols)
        texts.push_back(&s);
    // Tags 0xab, ...: the low byte differs, so does the tag, and not the place.
    text_column column(texts, [&](const std::string &s) { return hash + static_cast<ub8>(s[0] - 'a'); });
    ASSERT_EQ(lib.dgk_symbol2code(nullptr, &w.worker, &column.codes, &column.vec, &column.hashes, nullptr), TAVO_DONE);
    const dense_node &node = host.nodes.get()[walk & 15];
    EXPECT_EQ(node.head & 63, 12u);
    const auto *page = reinterpret_cast<const dense_node *>(node.head & ~ub8{63});
    const dense_node &in_page = page[walk >> 4 & 1023];
    EXPECT_EQ(in_page.head, 2u);
    for (unsigned slot = 0; slot < 7; slot++) {
        const dense_node &at = slot < 6 ? node : in_page;
        EXPECT_EQ(at.tags >> 8 * (slot % 6) & 255, ((hash + slot) ^ 0xabcd) & 255);
        const auto *record = reinterpret_cast<const ub1 *>(at.record[slot % 6]);
        EXPECT_EQ(dense_load<ub4>(record), slot);
        EXPECT_EQ(dense_load<ub2>(record + 4), 3);
        EXPECT_EQ(std::string(reinterpret_cast<const char *>(record + 6), 3), symbols[slot]);
    }
    EXPECT_EQ(heap.pages, 1u);
    EXPECT_EQ(w.worker.code_cursor, 7u);
    EXPECT_EQ(host.dgk.next_code, 8u);
    EXPECT_EQ(host.dgk.code_trie & 3, 0u);
    EXPECT_EQ(w.worker.pool_bytes, 7u * 9 + 2048);
    EXPECT_EQ(host.dgk.page_budget, (1 << 20) - 64);
    EXPECT_EQ(host.dgk.pool_budget, 0u); // all of it went into the worker's block
}

// Budgets that start at nothing, or at next to nothing: each call says what is missing, and what was done stays done.
TEST(dense, budgets) {
    std::mt19937_64 rng(82);
    for (ub8 pool_budget : {0, 4095, 4096, 10000})
        for (unsigned table_bits : {0u, 6u}) {
            dense_heap heap(true);
            dense_dictionary_host host(table_bits, pool_budget, 0);
            dense_worker_host w(host, heap, true);
            element_column column(column_form::lp_sep, 3000, 0, rng);
            std::vector<ub8> hash;
            for (const std::string &e : column.elements)
                hash.push_back(text_hash(e));
            tavo_enc_ctx hash_enc{};
            hash_enc.width_bits = 64;
            tavo_vec codes{}, hashes{};
            std::vector<ub4> code(3000, ~0u);
            codes.data = code.data();
            hashes.data = hash.data();
            hashes.enc = &hash_enc;
            code_model model(0);
            ub8 granted = pool_budget;
            ub4 before = 0, status = 0, calls = 0;
            do {
                tavo_dgk_request request{};
                status = lib.dgk_symbol2code(&request, &w.worker, &codes, &column.vec, &hashes, nullptr);
                ASSERT_EQ(w.worker.status, status);
                if (++calls == 1 && pool_budget < 4096) {
                    ASSERT_EQ(w.worker.rows_done, 0u); // no symbol, no code
                    ASSERT_EQ(w.worker.all_symbols, 0u);
                    ASSERT_EQ(host.dgk.next_code, 0u);
                }
                if (status == TAVO_DONE)
                    break;
                ASSERT_EQ(status, TAVO_BUDGET_EXHAUSTED);
                ASSERT_TRUE(w.worker.block_debt != 0 || w.worker.page_debt != 0);
                ASSERT_EQ(codes.count, w.worker.rows_done);
                ASSERT_GE(w.worker.rows_done, before);
                for (ub4 row = before; row < w.worker.rows_done; row++)
                    ASSERT_EQ(code[row], model(column.elements[row])) << row;
                ASSERT_EQ(code[w.worker.rows_done], ~0u);
                before = w.worker.rows_done;
                ASSERT_GE(request.pool_bytes, w.worker.block_debt * 1024ull);
                ASSERT_GE(request.page_units, w.worker.page_debt);
                // The least that the host may grant.
                request.pool_bytes = w.worker.block_debt * 1024ull;
                granted += request.pool_bytes;
                host.grant(request);
            } while (calls < 3000);
            ASSERT_EQ(status, TAVO_DONE);
            for (ub4 row = before; row < 3000; row++)
                ASSERT_EQ(code[row], model(column.elements[row])) << row;
            for (const auto &[symbol, c] : model.codes)
                ASSERT_EQ(host.symbol(c), symbol);
            EXPECT_EQ(heap.pool_bytes + w.worker.pool_credit + host.dgk.pool_budget, granted);
            EXPECT_EQ(host.dgk.page_budget, 0);
        }
}

TEST(dense, refused_allocations) {
    std::mt19937_64 rng(83);
    for (unsigned every : {1u, 2u, 3u}) {
        dense_heap heap(true);
        dense_dictionary_host host(0, 50000, 1 << 20);
        dense_worker_host w(host, heap);
        element_column column(column_form::lv_sep, 2000, 0, rng);
        std::vector<ub8> hash;
        for (const std::string &e : column.elements)
            hash.push_back(text_hash(e));
        tavo_enc_ctx hash_enc{};
        hash_enc.width_bits = 64;
        tavo_vec codes{}, hashes{};
        std::vector<ub4> code(2000, ~0u);
        codes.data = code.data();
        hashes.data = hash.data();
        hashes.enc = &hash_enc;
        code_model model(0);
        unsigned refusals = 0;
        for (;;) {
            heap.refuse_every = every == 1 && refusals % 2 == 1 ? 0 : every;
            tavo_dgk_request request{};
            const ub4 status = lib.dgk_symbol2code(&request, &w.worker, &codes, &column.vec, &hashes, nullptr);
            if (status == TAVO_DONE)
                break;
            if (status == TAVO_BUDGET_EXHAUSTED) {
                host.grant(request);
                continue;
            }
            ASSERT_EQ(status, TAVO_ALLOCATION_REFUSED);
            ASSERT_EQ(w.worker.status, TAVO_ALLOCATION_REFUSED);
            ASSERT_EQ(codes.count, w.worker.rows_done);
            ASSERT_EQ(host.nodes.get()->head & 1, 0u); // the node was left unlocked
            ASSERT_LT(++refusals, 10000u);
        }
        EXPECT_GT(refusals, 0u);
        EXPECT_EQ(w.worker.all_rows, 2000u); // those before a refusal are in a later estimate
        for (ub4 row = 0; row < 2000; row++)
            ASSERT_EQ(code[row], model(column.elements[row])) << row;
    }
}

TEST(dense, pages_and_blocks_on_offer_come_first) {
    dense_heap heap;
    dense_dictionary_host host(0, 1 << 20, 1 << 20);
    dense_worker_host w(host, heap);
    std::vector<std::string> symbols;
    std::vector<const std::string *> texts;
    for (int i = 0; i < 14; i++)
        symbols.push_back("symbol " + std::to_string(i));
    for (const std::string &s : symbols)
        texts.push_back(&s);
    const auto page = [] {
        return std::unique_ptr<void, void (*)(void *)>(std::memset(std::aligned_alloc(64, 65600), 0, 65600),
                                                       &std::free);
    };
    const auto shared = page(), last = page(), own = page();
    host.dgk.free_pages = reinterpret_cast<ub8>(shared.get()) + 31; // the tag wraps
    *static_cast<ub8 *>(shared.get()) = reinterpret_cast<ub8>(last.get());
    w.worker.local_free_pages = reinterpret_cast<ub8>(own.get());
    w.worker.local_free_count = 1;
    alignas(8) ub1 block[8192];
    *reinterpret_cast<ub8 *>(block) = reinterpret_cast<ub8>(block) + sizeof block;
    host.dgk.spare_block = reinterpret_cast<ub8>(block);
    w.worker.pool_credit = 5000;
    text_column column(texts, [](const std::string &) { return 77; });
    ASSERT_EQ(lib.dgk_symbol2code(nullptr, &w.worker, &column.codes, &column.vec, &column.hashes, nullptr), TAVO_DONE);
    EXPECT_EQ(heap.pages + heap.pool_blocks, 0u);
    EXPECT_EQ(host.dgk.spare_block, 0u);
    EXPECT_EQ(w.worker.pool_credit, 0u); // the block had been paid for by another
    EXPECT_EQ(host.dgk.pool_budget, (1u << 20) + 5000);
    EXPECT_EQ(w.worker.local_free_count, 0u);
    EXPECT_EQ(host.dgk.free_pages, reinterpret_cast<ub8>(last.get())); // its tag counted on to 0
    EXPECT_EQ(host.nodes.get()->head, reinterpret_cast<ub8>(own.get()) + 12);
    EXPECT_EQ(static_cast<dense_node *>(own.get())->head, reinterpret_cast<ub8>(shared.get()) + 12);
    for (int i = 0; i < 14; i++)
        EXPECT_EQ(host.symbol(column.code[static_cast<std::size_t>(i)]), symbols[static_cast<std::size_t>(i)]);
}

// What a worker that waits does: offers a piece of its block in reserve, the block, or a new one.
TEST(dense, service) {
    dense_heap heap;
    dense_dictionary_host host(0, 10000, 0, 2);
    dense_worker_host w(host, heap);
    dense_memory<processor_steps> memory(&w.worker);
    ASSERT_TRUE(memory.service()); // a new block of what the budget has
    EXPECT_EQ(heap.pool_bytes, 10000u);
    EXPECT_EQ(host.dgk.pool_budget, 0u);
    EXPECT_NE(host.dgk.spare_block, 0u);
    EXPECT_EQ(w.worker.spare_block, 0u);
    EXPECT_FALSE(memory.service()); // one is on offer
    w.worker.spare_block = std::exchange(host.dgk.spare_block, 0);
    EXPECT_FALSE(memory.service()); // no budget
    host.dgk.pool_budget = 100;
    const ub8 block = w.worker.spare_block, end = *reinterpret_cast<ub8 *>(block);
    ASSERT_TRUE(memory.service()); // 3000 bytes off its end
    EXPECT_EQ(host.dgk.spare_block, (end - 3000) & ~ub8{63});
    EXPECT_EQ(*reinterpret_cast<ub8 *>(host.dgk.spare_block), end);
    EXPECT_EQ(*reinterpret_cast<ub8 *>(block), host.dgk.spare_block);
    host.dgk.spare_block = 0;
    host.dgk.pool_budget = 1 << 20; // wants more than there is: the block whole
    ASSERT_TRUE(memory.service());
    EXPECT_EQ(host.dgk.spare_block, block);
    EXPECT_EQ(w.worker.spare_block, 0u);
    EXPECT_EQ(heap.pool_blocks, 1u);
}

TEST(dense, one_worker_has_the_service_duty) {
    dense_heap heap;
    dense_dictionary_host host(0, 1 << 20, 0, 2);
    dense_worker_host a(host, heap, true), b(host, heap, true);
    const std::string text = "x";
    text_column column({&text}, text_hash);
    a.worker.pool_credit = 300;
    ASSERT_EQ(lib.dgk_symbol2code(nullptr, &a.worker, &column.codes, &column.vec, &column.hashes, nullptr), TAVO_DONE);
    EXPECT_EQ(host.dgk.leader, 1u);
    EXPECT_EQ(a.worker.servicing, 1u);
    EXPECT_EQ(a.worker.pool_credit + host.dgk.pool_budget + heap.pool_bytes, (1u << 20) + 300);
    ASSERT_EQ(lib.dgk_symbol2code(nullptr, &b.worker, &column.codes, &column.vec, &column.hashes, nullptr), TAVO_DONE);
    EXPECT_EQ(b.worker.servicing, 0u);
    EXPECT_EQ(heap.pool_blocks, 1u); // b found the symbol
    ASSERT_EQ(lib.dgk_symbol2code(nullptr, &a.worker, &column.codes, &column.vec, &column.hashes, nullptr), TAVO_DONE);
    EXPECT_EQ(a.worker.servicing, 1u);
}

// 100 rows of 100 symbols, then 100 rows of 10 new ones.
TEST(dense, estimate) {
    dense_heap heap;
    dense_dictionary_host host(6, 1 << 20, 1 << 20);
    dense_worker_host w(host, heap);
    std::vector<std::string> symbols;
    for (int i = 0; i < 110; i++)
        symbols.push_back(std::to_string(i));
    std::vector<const std::string *> first, second;
    for (std::size_t i = 0; i < 100; i++) {
        first.push_back(&symbols[i]);
        second.push_back(&symbols[10 + i]);
    }
    tavo_dgk_request request{};
    text_column a(first, text_hash), b(second, text_hash);
    ASSERT_EQ(lib.dgk_symbol2code(&request, &w.worker, &a.codes, &a.vec, &a.hashes, nullptr), TAVO_DONE);
    EXPECT_EQ(request.symbols, 0); // no rows remain
    w.worker.estimate = 30;
    ASSERT_EQ(lib.dgk_symbol2code(&request, &w.worker, &b.codes, &b.vec, &b.hashes, nullptr), TAVO_DONE);
    const double r = 0.1, all = 1;
    EXPECT_DOUBLE_EQ(request.symbols, (30 + 0.25 * r * r * 200 / (all - r)) / 2);
    EXPECT_EQ(w.worker.all_rows, 200u);
    EXPECT_EQ(w.worker.all_symbols, 110u);
    // A third of a column done when the budget ends: as many symbols a row for the rest, at most six times those known.
    dense_heap small_heap;
    dense_dictionary_host small(6, 4096 + 8, 1 << 20);
    dense_worker_host s(small, small_heap);
    std::vector<std::string> many;
    for (int i = 0; i < 100000; i++)
        many.push_back("number " + std::to_string(i));
    std::vector<const std::string *> texts;
    for (const std::string &t : many)
        texts.push_back(&t);
    text_column c(texts, text_hash);
    ASSERT_EQ(lib.dgk_symbol2code(&request, &s.worker, &c.codes, &c.vec, &c.hashes, nullptr), TAVO_BUDGET_EXHAUSTED);
    EXPECT_DOUBLE_EQ(request.symbols, 3.0 * s.worker.rows_done);
    EXPECT_GE(request.pool_bytes, 3 * s.worker.pool_bytes - 1);
}

TEST(dense, other_forms_are_refused) {
    std::mt19937_64 rng(84);
    host_stub host_record;
    dense_heap heap;
    dense_dictionary_host host(0, 1 << 20, 1 << 20);
    dense_worker_host w(host, heap);
    const std::string text = "x";
    text_column column({&text}, text_hash);
    tavo_env env{};
    env.host = host_record.record();
    const auto call = [&](ub4 flags, ub4 kind) {
        column.enc.flags = flags;
        column.enc.dict_kind = kind;
        return lib.dgk_symbol2code(nullptr, &w.worker, &column.codes, &column.vec, &column.hashes, &env);
    };
    EXPECT_EQ(call(TAVO_DICT, 2), TAVO_BAD_INPUT);
    EXPECT_EQ(call(TAVO_DICT | TAVO_FIXED, 7), TAVO_BAD_INPUT);
    for (ub4 flags : {0u, TAVO_LV, TAVO_LP, TAVO_PACKED_KEYS, TAVO_RLE | TAVO_DICT})
        EXPECT_EQ(call(flags, 0), TAVO_BAD_INPUT) << flags;
    raised_errors().clear();
    column.hash_enc.width_bits = 32;
    EXPECT_EQ(call(TAVO_LP_SEP, 0), TAVO_BAD_INPUT);
    ASSERT_EQ(raised_errors().size(), 1u);
    EXPECT_EQ(raised_errors()[0].message, "tavo_dgk_symbol2code_dydi: hash vector is not 64 bits width");
    EXPECT_EQ(column.code[0], 0xdeadbeef);
    EXPECT_EQ(host.dgk.next_code, 0u);
}

// Columns into packed keys and out again, with fields that grow as codes do.
TEST(dense, packed_group_keys) {
    std::mt19937_64 rng(85);
    for (ub4 rows : {0, 1, 7, 8, 9, 16, 63, 1023, 1024, 1025, 3000}) {
        const guarded keys(rows * 8);
        std::memset(keys.data(), 0, rows * 8);
        const ub8 cardinality[] = {1, 2, 300, 1 << 20, 3, 0xffffffff};
        ub8 free_bits = ~ub8{0}, in_use[6] = {};
        ub4 used_bits[6] = {};
        std::vector<guarded> codes, outs;
        std::vector<ub4 *> out;
        for (unsigned c = 0; c < 6; c++) {
            codes.emplace_back(rows * 4);
            outs.emplace_back(rows * 4);
            out.push_back(outs.back().as<ub4>());
            for (ub4 row = 0; row < rows; row++)
                codes[c].as<ub4>()[row] = static_cast<ub4>(rng() % cardinality[c]);
            const ub8 free_before = free_bits;
            ub8 *const key = keys.as<ub8>();
            if (c == 5) { // 32 bits are not left; nor are 31, with a limit
                EXPECT_EQ(lib.dgk_concatenate(rows, cardinality[c], codes[c].as<ub4>(), &free_bits, &used_bits[c],
                                              &in_use[c], key, 63),
                          TAVO_OUT_OF_RANGE);
                EXPECT_EQ(free_bits, free_before);
                EXPECT_EQ(in_use[c], 0u);
                EXPECT_EQ(used_bits[c], 0u);
                continue;
            }
            EXPECT_EQ(lib.dgk_concatenate(rows, cardinality[c], codes[c].as<ub4>(), &free_bits, &used_bits[c],
                                          &in_use[c], key, 64),
                      TAVO_DONE);
            EXPECT_EQ(ub8{1} << used_bits[c] >= cardinality[c] && (ub8{1} << used_bits[c]) / 2 < cardinality[c], true);
            EXPECT_EQ(free_before & ~free_bits, in_use[c]);
        }
        EXPECT_EQ(in_use[3], 0xfffffull << 10);
        EXPECT_EQ(lib.extract_dgk(rows, keys.as<ub8>(), 6, in_use, out.data()), TAVO_DONE);
        for (unsigned c = 0; c < 6; c++)
            for (ub4 row = 0; row < rows; row++)
                ASSERT_EQ(out[c][row], c == 5 ? 0 : codes[c].as<ub4>()[row]) << c << ", row " << row << " of " << rows;
    }
    // A field that has its bits already; one that grows by the bits left above it.
    ub8 key[9] = {}, free_bits = 0xf0, in_use = 0x0c;
    ub4 used_bits = 2;
    const ub4 codes[9] = {0, 1, 2, 3, 4, 5, 6, 7, 6};
    EXPECT_EQ(lib.dgk_concatenate(9, 4, codes, &free_bits, &used_bits, &in_use, key, 8), TAVO_DONE);
    EXPECT_EQ(in_use, 0x0cu);
    EXPECT_EQ(key[8], 6u << 2);
    EXPECT_EQ(lib.dgk_concatenate(9, 5, codes, &free_bits, &used_bits, &in_use, key, 4), TAVO_OUT_OF_RANGE);
    EXPECT_EQ(lib.dgk_concatenate(9, 5, codes, &free_bits, &used_bits, &in_use, key, 5), TAVO_DONE);
    EXPECT_EQ(in_use, 0x1cu);
    EXPECT_EQ(free_bits, 0xe0u);
    EXPECT_EQ(used_bits, 3u);
}

} // namespace
} // namespace tavo::test
