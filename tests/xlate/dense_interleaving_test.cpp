// The dictionary's own text, run through all orders of its workers' steps: insertion into nodes, the hanging of pages,
// deep nodes cut from a shared page, the growth of the trie, budgets and blocks on offer. Two planted faults, an
// exchange that is not one step and a store that comes too late, have to be found.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "tests/xlate/dense_host.h"
#include "tests/xlate/interleavings.h"
#include "xlate/dense_dictionary.h"

namespace tavo::test {
namespace {

enum class fault { none, torn_exchange, late_store };

// The steps of dense_steps.h, each after a chance for the other workers.
template <fault Planted>
struct scheduled_steps {
    template <class T>
    static T acquire(const T &word) {
        interleavings::step();
        return word;
    }
    template <class T>
    static T relaxed(const T &word) {
        interleavings::step();
        return word;
    }
    template <class T>
    static void release(T &word, T value) {
        interleavings::step();
        word = value;
        interleavings::changed();
        if (late.word != nullptr) { // after what should have published it
            const auto [place, stored] = std::exchange(late, {});
            interleavings::step();
            *place = stored;
        }
    }
    template <class T>
    static void store_relaxed(T &word, T value) {
        interleavings::step();
        if constexpr (Planted == fault::late_store && sizeof(T) == 8)
            late = {reinterpret_cast<ub8 *>(&word), static_cast<ub8>(value)};
        else
            word = value;
    }
    template <class T>
    static bool replace(T &word, T &expected, T value) {
        interleavings::step();
        const T found = word;
        if (found != expected) {
            expected = found;
            return false;
        }
        if constexpr (Planted == fault::torn_exchange)
            interleavings::step();
        word = value;
        interleavings::changed();
        return true;
    }
    template <class T>
    static bool replace_count(T &word, T &expected, T value) {
        return replace(word, expected, value);
    }
    template <class T>
    static T add(T &word, T value) {
        interleavings::step();
        interleavings::changed();
        return std::exchange(word, static_cast<T>(word + value));
    }
    template <class T>
    static T take(T &word) {
        interleavings::step();
        interleavings::changed();
        return std::exchange(word, T{0});
    }
    static void yield() { interleavings::wait(); }

    struct late_word {
        ub8 *word = nullptr;
        ub8 value = 0;
    };
    static inline late_word late;
};

constexpr ub8 one_hash = 0xab; // leads to the first node of each level, and gives tags that are not zero

// A dictionary of one first-level node, and workers with a block and codes of their own or without.
template <fault Planted = fault::none>
class scene {
public:
    using steps = scheduled_steps<Planted>;

    scene() { std::memset(pages, 0, sizeof pages); }

    void set(unsigned workers, bool ready, unsigned symbols_before, ub8 pool_budget = 4 << 20) {
        steps::late = {};
        heap_used = 0;
        node = {};
        dgk = {};
        dgk.first_level = &node;
        dgk.worker_count = workers;
        dgk.pool_budget = pool_budget;
        dgk.page_budget = 64 * static_cast<sb8>(std::size(pages));
        results.assign(workers, {});
        for (unsigned i = 0; i < workers; i++) {
            worker[i] = {};
            worker[i].dgk = &dgk;
            worker[i].heap = &heap;
            if (ready) {
                block[i][0] = reinterpret_cast<ub8>(block[i] + std::size(block[i]));
                worker[i].pool_cursor = reinterpret_cast<ub8>(block[i] + 1);
                worker[i].pool_end = block[i][0];
            }
        }
        for (unsigned s = 0; s < symbols_before; s++)
            code(0, before(s));
        if (ready)
            for (unsigned i = 0; i < workers; i++) { // a code each, and the trie for it
                auto &state = state_of(worker[i]);
                if (worker[i].code_cursor % 8 == 0 && !state.block_opened) {
                    state.code_block = std::exchange(dgk.next_code, dgk.next_code + 8);
                    state.block_opened = 1;
                    dense_memory<steps> memory(&worker[i]);
                    worker[i].trie_base = extend_trie<steps>(dgk, memory, state.code_block);
                    state.trie_range = 1;
                }
            }
    }
    static std::string before(unsigned s) { return "before " + std::to_string(s); }

    ub4 code(unsigned i, const std::string &symbol) {
        dense_dictionary<steps> dictionary(&worker[i]);
        ub4 result = ~0u;
        if (!dictionary.code_of({reinterpret_cast<const ub1 *>(symbol.data()), static_cast<ub2>(symbol.size())},
                                dense_hash(one_hash), result))
            result = ~0u;
        return result;
    }
    // A worker that looks these symbols up, or puts them in.
    std::function<void()> finds(unsigned i, std::vector<std::string> symbols) {
        return [=, this] {
            for (const std::string &s : symbols)
                results[i].push_back({s, code(i, s)});
        };
    }
    // Every symbol has one code, every code one symbol; all are there, and lead back.
    std::string check() {
        std::map<std::string, ub4> all;
        std::map<ub4, std::string> back;
        for (const auto &part : results)
            for (const auto &[symbol, c] : part) {
                if (c == ~0u)
                    return symbol + " was refused";
                if (all.try_emplace(symbol, c).first->second != c)
                    return symbol + " has two codes";
                if (back.try_emplace(c, symbol).first->second != symbol)
                    return "two symbols have code " + std::to_string(c);
            }
        for (const auto &[symbol, c] : all) {
            const ub8 next_code = dgk.next_code;
            if (code(0, symbol) != c || dgk.next_code != next_code)
                return symbol + " is lost";
            const ub8 length = trie_leaf<steps>(dgk, c);
            if (length == 0 ||
                std::string(reinterpret_cast<const char *>(length + 2), dense_load<ub2>(address(length))) != symbol)
                return "the trie has not " + symbol;
        }
        return "";
    }

    tavo_dgk dgk;
    alignas(64) dense_node node;
    tavo_dgk_worker worker[3];
    std::vector<std::vector<std::pair<std::string, ub4>>> results;

private:
    struct own_heap : tavo_dgk_heap {
        scene *of;
    };
    static void allocate(tavo_dgk_heap *h, ub8 size, const char *label, ub4, ub4, void **out) {
        scene &s = *static_cast<own_heap *>(h)->of;
        if (std::string(label) == "HashT")
            *out = s.heap_used < std::size(s.pages) ? s.pages[s.heap_used++] : nullptr;
        else
            *out = std::memset(s.pool[s.pool_used++ % std::size(s.pool)], 0xa5, size < 8192 ? size : 8192);
    }

    own_heap heap{{&allocate}, this};
    ub8 block[3][2048];
    alignas(64) ub1 pages[5][page_block_bytes];
    alignas(64) ub1 pool[16][1 << 20];
    std::size_t heap_used = 0, pool_used = 0;
};

template <fault Planted>
interleavings::outcome insertions(unsigned preemptions, bool ready, unsigned symbols_before,
                                  const std::vector<std::vector<std::string>> &symbols) {
    auto s = std::make_unique<scene<Planted>>();
    return interleavings::explore(
        preemptions,
        [&] {
            s->set(static_cast<unsigned>(symbols.size()), ready, symbols_before);
            std::vector<std::function<void()>> workers;
            for (unsigned i = 0; i < symbols.size(); i++)
                workers.push_back(s->finds(i, symbols[i]));
            return workers;
        },
        [&] { return s->check(); });
}

constexpr unsigned all_orders = ~0u;

void expect_sound(const char *what, unsigned preemptions, bool ready, unsigned symbols_before,
                  const std::vector<std::vector<std::string>> &symbols) {
#ifdef __SANITIZE_ADDRESS__ // twenty times as slow, and the orders are those of every build
    preemptions = std::min(preemptions, 2u);
#endif
    const auto found = insertions<fault::none>(preemptions, ready, symbols_before, symbols);
    EXPECT_EQ(found.complaint, "") << what << ", order " << found.orders;
    EXPECT_GT(found.orders, 50u) << what;
    std::printf("%s: %lu orders\n", what, static_cast<unsigned long>(found.orders));
}

class dense_interleavings : public testing::Test {
#ifdef __SANITIZE_THREAD__
    void SetUp() override { GTEST_SKIP() << "contexts of one thread are not for this sanitizer"; }
#endif
};

TEST_F(dense_interleavings, nodes) {
    expect_sound("one symbol twice", all_orders, true, 0, {{"a"}, {"a"}});
    expect_sound("two symbols", all_orders, true, 0, {{"a"}, {"b"}});
    expect_sound("one symbol thrice", 3, true, 0, {{"a"}, {"a"}, {"a"}});
    expect_sound("three workers", 3, true, 3, {{"a", "b"}, {"b", "c"}, {"before 1", "c"}});
    expect_sound("workers without blocks and codes", 3, false, 0, {{"a"}, {"a"}});
}

TEST_F(dense_interleavings, pages) {
    expect_sound("a page for one symbol twice", 4, true, 6, {{"a"}, {"a"}});
    expect_sound("a page for two symbols", 4, true, 6, {{"a"}, {"b"}});
    expect_sound("the sixth and the seventh symbol", 3, true, 5, {{"a", "b"}, {"b", "a"}});
    expect_sound("a deep node for one symbol twice", 3, true, 24, {{"a"}, {"a"}});
    expect_sound("deep nodes for three symbols", 3, true, 23, {{"a", "b"}, {"c"}});
}

TEST_F(dense_interleavings, planted_faults_are_found) {
    const auto torn = insertions<fault::torn_exchange>(2, true, 0, {{"a"}, {"b"}});
    EXPECT_NE(torn.complaint, "");
    const auto late = insertions<fault::late_store>(2, true, 1, {{"a"}, {"a"}});
    EXPECT_NE(late.complaint, "");
    const auto torn_page = insertions<fault::torn_exchange>(3, true, 24, {{"a"}, {"b"}});
    EXPECT_NE(torn_page.complaint, "");
    std::printf("found: %s; %s; %s\n", torn.complaint.c_str(), late.complaint.c_str(), torn_page.complaint.c_str());
}

// Two workers make room for codes of their own: the root, its growth and the blocks below it.
TEST_F(dense_interleavings, trie) {
    using steps = scheduled_steps<fault::none>;
    for (auto [first, second] :
         {std::pair(0, 8), {0, 256}, {256, 0}, {65536, 300}, {1 << 24, 1 << 24 | 8}, {512, 70000}}) {
        auto s = std::make_unique<scene<>>();
        ub8 leaf[2] = {};
        const ub8 code[2] = {static_cast<ub8>(first), static_cast<ub8>(second)};
        const auto found = interleavings::explore(
            all_orders,
            [&] {
                s->set(2, true, 0);
                s->dgk.code_trie = 0;
                std::vector<std::function<void()>> workers;
                for (unsigned i = 0; i < 2; i++)
                    workers.emplace_back([&, i] {
                        dense_memory<steps> memory(&s->worker[i]);
                        leaf[i] = extend_trie<steps>(s->dgk, memory, code[i]);
                        trie_slot(leaf[i], code[i], 0) = 1000 + i;
                    });
                return workers;
            },
            [&]() -> std::string {
                for (unsigned i = 0; i < 2; i++)
                    if (trie_leaf<steps>(s->dgk, code[i]) != 1000 + i)
                        return "code " + std::to_string(code[i]) + " is lost";
                return (leaf[0] == leaf[1]) == (code[0] >> 8 == code[1] >> 8) ? "" : "two leaves for one range";
            });
        EXPECT_EQ(found.complaint, "") << first << ", " << second;
    }
}

// Bytes are in budgets, credits or blocks, and each block belongs to one.
TEST_F(dense_interleavings, budgets_and_blocks) {
    using steps = scheduled_steps<fault::none>;
    auto s = std::make_unique<scene<>>();
    const auto found = interleavings::explore(
        5,
        [&] {
            s->set(2, false, 0, 20000);
            std::vector<std::function<void()>> workers;
            for (unsigned i = 0; i < 2; i++)
                workers.emplace_back([&, i] {
                    dense_memory<steps> memory(&s->worker[i]);
                    memory.service();
                    memory.reserve(5000);
                });
            return workers;
        },
        [&]() -> std::string {
            ub8 bytes = s->dgk.pool_budget;
            std::multiset<ub8> blocks;
            const auto count = [&](ub8 block, ub8 end) {
                if (block == 0)
                    return;
                bytes += end - block;
                blocks.insert(block);
            };
            count(s->dgk.spare_block, s->dgk.spare_block == 0 ? 0 : word_at(s->dgk.spare_block));
            for (unsigned i = 0; i < 2; i++) {
                const tavo_dgk_worker &w = s->worker[i];
                bytes += w.pool_credit;
                count(w.spare_block, w.spare_block == 0 ? 0 : word_at(w.spare_block));
                count(w.pool_cursor == 0 ? 0 : w.pool_cursor - block_head, w.pool_end);
            }
            for (ub8 block : blocks)
                if (blocks.count(block) != 1)
                    return "a block belongs to two";
            return bytes == 20000 ? "" : std::to_string(bytes) + " bytes of 20000";
        });
    EXPECT_EQ(found.complaint, "");
    EXPECT_GT(found.orders, 100u);
}

// Pages on offer are taken once.
TEST_F(dense_interleavings, pages_on_offer) {
    using steps = scheduled_steps<fault::none>;
    auto s = std::make_unique<scene<>>();
    alignas(64) dense_node pages[3];
    ub8 got[2];
    const auto found = interleavings::explore(
        all_orders,
        [&] {
            s->set(2, false, 0);
            for (unsigned i = 0; i < 3; i++)
                pages[i].head = i < 2 ? reinterpret_cast<ub8>(pages + i + 1) : 0;
            s->dgk.free_pages = reinterpret_cast<ub8>(pages) + 30;
            std::vector<std::function<void()>> workers;
            for (unsigned i = 0; i < 2; i++)
                workers.emplace_back([&, i] {
                    dense_memory<steps> memory(&s->worker[i]);
                    got[i] = memory.child_for(0);
                });
            return workers;
        },
        [&]() -> std::string {
            if (got[0] == got[1] || word_at(got[0]) != 0 || word_at(got[1]) != 0)
                return "a page was taken twice";
            return s->dgk.free_pages == reinterpret_cast<ub8>(pages + 2) ? "" : "the list has lost a page";
        });
    EXPECT_EQ(found.complaint, "");
    EXPECT_GT(found.orders, 10u);
}

} // namespace
} // namespace tavo::test
