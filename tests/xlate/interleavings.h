// All orders in which two or three workers can take their steps on shared memory. Workers are contexts of one thread
// that hand over before each step; an order is a list of choices, and the next one to try changes the last choice that
// can be changed (as stateless model checkers do, after Godefroid's VeriSoft). Steps are sequentially consistent here;
// orders of memory are the business of the thread sanitizer.
#pragma once

#include <ucontext.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "frame/tavo_types.h"

namespace tavo::test {

class interleavings {
public:
    // Runs until every order has been tried that takes a step from a worker that could have gone on at most
    // `preemptions` times, or until `check` complains. `prepare` sets a fresh scene and returns its workers; `check`
    // looks at the end and returns what is wrong.
    struct outcome {
        ub8 orders;
        std::string complaint;
    };
    static outcome explore(unsigned preemptions, const std::function<std::vector<std::function<void()>>()> &prepare,
                           const std::function<std::string()> &check) {
        interleavings all;
        all.preemptions_ = preemptions;
        ub8 orders = 0;
        do {
            all.run(prepare());
            orders++;
            if (std::string complaint = all.stuck_ ? "the workers wait for each other" : check(); !complaint.empty())
                return {orders, complaint};
        } while (all.next_order());
        return {orders, ""};
    }

    // Called by workers: before a step, and where they wait for another's.
    static void step() { hand_over(false); }
    static void wait() { hand_over(true); }
    // A step has changed something: those who wait look again.
    static void changed() {
        if (current != nullptr)
            for (auto &w : current->workers_)
                w->waiting = false;
    }

private:
    struct worker {
        std::function<void()> work;
        ucontext_t context;
        std::unique_ptr<char[]> stack = std::make_unique<char[]>(stack_size);
        bool done = true, waiting = false;
    };
    struct choice {
        unsigned taken, of;
    };
    static constexpr std::size_t stack_size = 128 << 10;
    static inline interleavings *current = nullptr;

    static void hand_over(bool waiting) {
        if (current == nullptr)
            return;
        interleavings &all = *current;
        worker &self = *all.workers_[all.active_];
        self.waiting = waiting;
        const unsigned before = all.active_;
        if (!all.choose())
            swapcontext(&self.context, &all.scheduler_); // stuck: for good
        else if (all.active_ != before)
            swapcontext(&self.context, &all.workers_[all.active_]->context);
    }
    static void enter() {
        worker &self = *current->workers_[current->active_];
        self.work();
        self.done = true; // and on to the scheduler, which is the context's successor
    }

    void run(std::vector<std::function<void()>> work) {
        while (workers_.size() < work.size())
            workers_.push_back(std::make_unique<worker>());
        current = this;
        for (std::size_t i = 0; i < work.size(); i++) {
            worker &w = *workers_[i];
            w.work = std::move(work[i]);
            w.done = w.waiting = false;
            getcontext(&w.context);
            w.context.uc_stack.ss_sp = w.stack.get();
            w.context.uc_stack.ss_size = stack_size;
            w.context.uc_link = &scheduler_;
            makecontext(&w.context, &enter, 0);
        }
        count_ = static_cast<unsigned>(work.size());
        active_ = place_ = used_ = in_vain_ = 0;
        stuck_ = false;
        while (choose())
            swapcontext(&scheduler_, &workers_[active_]->context); // comes back when a worker is done
        current = nullptr;
    }

    // Which worker takes the next step; false: none, because all are done or stuck.
    bool choose() {
        unsigned options[8], n = 0;
        bool unfinished = false, may_stay = false;
        for (unsigned i = 0; i < count_; i++) { // the active worker first
            const unsigned w = (active_ + i) % count_;
            unfinished |= !workers_[w]->done;
            if (!workers_[w]->done && !workers_[w]->waiting) {
                options[n++] = w;
                may_stay |= i == 0;
            }
        }
        if (!unfinished)
            return false;
        if (n == 0) {
            stuck_ = ++in_vain_ > 50;
            if (stuck_)
                return false;
            for (unsigned w = 0; w < count_; w++)
                workers_[w]->waiting = false;
            return choose();
        }
        unsigned taken = 0;
        if (n > 1 && !(may_stay && used_ == preemptions_)) {
            if (place_ == choices_.size())
                choices_.push_back({0, n});
            taken = choices_[place_++].taken;
        }
        used_ += may_stay && taken != 0;
        active_ = options[taken];
        return true;
    }
    bool next_order() {
        while (!choices_.empty() && choices_.back().taken + 1 == choices_.back().of)
            choices_.pop_back();
        if (choices_.empty())
            return false;
        choices_.back().taken++;
        return true;
    }

    std::vector<std::unique_ptr<worker>> workers_;
    std::vector<choice> choices_;
    ucontext_t scheduler_;
    unsigned count_ = 0, active_ = 0, preemptions_ = 0;
    unsigned place_ = 0;   // in choices_
    unsigned used_ = 0;    // preemptions of this order
    unsigned in_vain_ = 0; // times that all who are left waited
    bool stuck_ = false;
};

} // namespace tavo::test
