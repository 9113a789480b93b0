// The steps on memory that workers share, by meaning. The dictionary's text takes them as a template argument: the
// library has these, the test of interleavings has steps that hand over between workers.
//
// Memory orders on plain fields, through the compilers' built-ins. A word that leads to memory (a node's first word,
// trie slots, page and block addresses) is stored with release after that memory is written, and loaded with acquire
// before it is read. Words that only count (codes, budgets, a page's use count) lead to nothing and are relaxed.
#pragma once

#include <sched.h>

#include "frame/tavo_types.h"

namespace tavo {

struct processor_steps {
    template <class T>
    [[gnu::always_inline]] static T acquire(const T &word) noexcept {
        return __atomic_load_n(&word, __ATOMIC_ACQUIRE);
    }
    template <class T>
    [[gnu::always_inline]] static T relaxed(const T &word) noexcept {
        return __atomic_load_n(&word, __ATOMIC_RELAXED);
    }
    template <class T>
    [[gnu::always_inline]] static void release(T &word, T value) noexcept {
        __atomic_store_n(&word, value, __ATOMIC_RELEASE);
    }
    template <class T>
    [[gnu::always_inline]] static void store_relaxed(T &word, T value) noexcept {
        __atomic_store_n(&word, value, __ATOMIC_RELAXED);
    }
    // Replaces `expected`; on failure `expected` is what stands there. Acquires what the word leads to, and releases.
    template <class T>
    [[gnu::always_inline]] static bool replace(T &word, T &expected, T value) noexcept {
        return __atomic_compare_exchange_n(&word, &expected, value, false, __ATOMIC_ACQ_REL, __ATOMIC_ACQUIRE);
    }
    template <class T>
    [[gnu::always_inline]] static bool replace_count(T &word, T &expected, T value) noexcept {
        return __atomic_compare_exchange_n(&word, &expected, value, false, __ATOMIC_RELAXED, __ATOMIC_RELAXED);
    }
    template <class T>
    [[gnu::always_inline]] static T add(T &word, T value) noexcept {
        return __atomic_fetch_add(&word, value, __ATOMIC_RELAXED);
    }
    template <class T>
    [[gnu::always_inline]] static T take(T &word) noexcept {
        return __atomic_exchange_n(&word, T{0}, __ATOMIC_ACQUIRE);
    }
    static void yield() noexcept { sched_yield(); }
};

} // namespace tavo
