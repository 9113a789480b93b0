// A host of dense group keys: dictionary, workers, a heap that counts and may refuse, columns of strings.
#pragma once

#include <atomic>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "frame/tavo.h"
#include "tests/kit/guarded.h"
#include "tests/kv/element_column.h"
#include "xlate/dense_node.h"

namespace tavo::test {

// Blocks end at an unreadable page where `guard_blocks`, and are aligned to 8 and not to 64.
struct dense_heap : tavo_dgk_heap {
    explicit dense_heap(bool guard_blocks = false) : tavo_dgk_heap{&give}, guard_blocks(guard_blocks) {}
    dense_heap(const dense_heap &) = delete;

    static void give(tavo_dgk_heap *heap, ub8 size, const char *label, ub4 one, ub4 zero, void **out) {
        auto &h = *static_cast<dense_heap *>(heap);
        const bool page = std::string(label) == "HashT";
        if ((!page && std::string(label) != "DGKPool") || one != 1 || zero != 0 || (page && size != 65600) ||
            (!page && (size < 4096 || size > 0x100000)))
            std::abort();
        const std::lock_guard lock(h.several_threads);
        *out = nullptr;
        if (h.refuse_every != 0 && ++h.calls % h.refuse_every == 0)
            return;
        (page ? h.pages : h.pool_blocks)++;
        h.pool_bytes += page ? 0 : size;
        if (h.guard_blocks) {
            h.guarded_blocks.emplace_back((size + 7) / 8 * 8);
            *out = h.guarded_blocks.back().data();
        } else {
            h.blocks.push_back(std::make_unique<ub8[]>(size / 8 + 9));
            const auto at = reinterpret_cast<ub8>(h.blocks.back().get());
            *out = reinterpret_cast<void *>((at & ~ub8{63}) + (at % 64 > 8 ? 72 : 8));
        }
    }

    bool guard_blocks;
    unsigned refuse_every = 0, calls = 0;
    ub8 pages = 0, pool_blocks = 0, pool_bytes = 0;
    std::mutex several_threads;
    std::vector<std::unique_ptr<ub8[]>> blocks;
    std::vector<guarded> guarded_blocks;
};

struct dense_dictionary_host {
    dense_dictionary_host(unsigned table_bits, ub8 pool_budget, sb8 page_budget, ub4 workers = 1, ub8 first_code = 0)
        : nodes(static_cast<dense_node *>(std::aligned_alloc(64, sizeof(dense_node) << table_bits)), &std::free) {
        std::memset(nodes.get(), 0, sizeof(dense_node) << table_bits);
        dgk.table_bits = static_cast<ub1>(table_bits);
        dgk.first_level = nodes.get();
        dgk.pool_budget = pool_budget;
        dgk.page_budget = page_budget;
        dgk.worker_count = workers;
        dgk.next_code = first_code;
    }
    void grant(const tavo_dgk_request &request) {
        __atomic_fetch_add(&dgk.pool_budget, request.pool_bytes, __ATOMIC_RELAXED);
        __atomic_fetch_add(&dgk.page_budget, static_cast<sb8>(request.page_units), __ATOMIC_RELAXED);
    }
    std::string symbol(ub4 code) const {
        ub8 address = 0;
        ub2 length = 0;
        tavo_vec out{}, codes{};
        out.data = &address;
        out.lengths = &length;
        codes.data = &code;
        codes.size = 1;
        EXPECT_EQ(tavo_global_specialized_ctx.dgk_code2symbol(7, &dgk, &out, &codes), TAVO_DONE);
        EXPECT_EQ(out.count, 1u);
        return {reinterpret_cast<const char *>(address), length};
    }

    std::unique_ptr<dense_node, void (*)(void *)> nodes;
    tavo_dgk dgk{};
};

struct dense_worker_host {
    dense_worker_host(dense_dictionary_host &host, dense_heap &heap, bool servicing = false) {
        worker.dgk = &host.dgk;
        worker.heap = &heap;
        worker.servicing = servicing;
    }
    tavo_dgk_worker worker{};
};

// Strings as addresses and lengths, with their hashes.
struct text_column {
    template <class Hash>
    text_column(const std::vector<const std::string *> &texts, Hash hash) {
        for (const std::string *text : texts) {
            addresses.push_back(reinterpret_cast<ub8>(text->data()));
            lengths.push_back(static_cast<ub2>(text->size()));
            hash_words.push_back(hash(*text));
        }
        enc.flags = TAVO_LP_SEP;
        hash_enc.flags = TAVO_HASHES;
        hash_enc.width_bits = 64;
        vec.data = addresses.data();
        vec.lengths = lengths.data();
        vec.enc = &enc;
        vec.size = static_cast<ub4>(texts.size());
        hashes.data = hash_words.data();
        hashes.enc = &hash_enc;
        hashes.size = vec.size;
        code.resize(texts.size(), 0xdeadbeef);
        codes.data = code.data();
    }
    std::vector<ub8> addresses, hash_words;
    std::vector<ub2> lengths;
    std::vector<ub4> code;
    tavo_enc_ctx enc{}, hash_enc{};
    tavo_vec vec{}, hashes{}, codes{};
};

inline ub8 text_hash(const std::string &s) { return test_hash(s.data(), s.size(), 99); }

} // namespace tavo::test
