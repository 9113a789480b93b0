// The nearest k of many rows: a binary heap with the worst entry at the root, in the result array itself.
//
// Two equal distances have no order of their own: which of them stays in front follows from the steps below, which are
// therefore part of the result.
#pragma once

#include "frame/tavo_vector.h"

namespace tavo::vector {

// NaN is worse than any number; NaNs rank by row; numbers by themselves.
[[gnu::always_inline]] inline bool worse(const tavo_topk_entry &x, const tavo_topk_entry &y) {
    if (y.distance != y.distance)
        return x.distance != x.distance && x.row > y.row;
    return !(x.distance <= y.distance);
}

class topk_heap {
public:
    topk_heap(tavo_topk_entry *entries, ub4 k) : entries_(entries), k_(k) {}

    // k is at least 1. Most rows of a large column end at the comparison with the root, of which a copy is kept.
    [[gnu::always_inline]] void offer(ub4 row, double distance) {
        const tavo_topk_entry candidate{row, distance};
        if (size_ == k_) [[likely]] {
            if (!worse(root_, candidate)) [[likely]]
                return;
            pop();
        }
        push(candidate);
    }

    // Sorts the entries, nearest first, and returns how many there are.
    ub4 finish() {
        const ub4 found = size_;
        while (size_ != 0)
            pop();
        return found;
    }

private:
    void sift_up(ub4 hole, const tavo_topk_entry &entry) {
        while (hole > 0) {
            const ub4 parent = (hole - 1) / 2;
            if (!worse(entry, entries_[parent]))
                break;
            entries_[hole] = entries_[parent];
            hole = parent;
        }
        entries_[hole] = entry;
    }

    [[gnu::noinline]] void push(const tavo_topk_entry &candidate) {
        sift_up(size_++, candidate);
        root_ = entries_[0];
    }

    // Takes the root out: it moves behind the end of the heap. The hole that it leaves goes down along the worse
    // children, the right one where neither is worse, and the last entry comes up into it.
    void pop() {
        const ub4 n = --size_;
        if (n == 0)
            return;
        const tavo_topk_entry last = entries_[n];
        entries_[n] = entries_[0];
        ub4 hole = 0;
        while (hole < (n - 1) / 2) {
            ub4 child = 2 * hole + 2;
            if (worse(entries_[child - 1], entries_[child]))
                child--;
            entries_[hole] = entries_[child];
            hole = child;
        }
        if (n % 2 == 0 && hole == (n - 2) / 2) {
            entries_[hole] = entries_[2 * hole + 1];
            hole = 2 * hole + 1;
        }
        sift_up(hole, last);
    }

    tavo_topk_entry *entries_;
    ub4 k_, size_ = 0;
    tavo_topk_entry root_{};
};

} // namespace tavo::vector
