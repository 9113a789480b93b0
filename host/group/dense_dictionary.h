// One dictionary of dense group keys, fed by several threads: each distinct symbol gets a code, from 0 on.
//
// A thread has a worker, a heap and a session of its own and takes one stretch of rows after the other. A worker that
// has used up what was granted is granted what the library's request tells, as long as the memory allows it.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <tavo/tavo.h>

#include "host/column/block.h"
#include "host/join/step_list.h"
#include "host/link/callbacks.h"

namespace host {

// What the dictionaries of a query may take for nodes, symbols and secondary tables.
class memory_budget {
public:
    static constexpr ub8 no_limit = ~0ull;
    explicit memory_budget(ub8 bytes = no_limit) : limit_(bytes), left_(bytes) {}

    ub8 limit() const { return limit_; }
    ub8 left() const { return left_; }
    bool take(ub8 bytes) {
        if (bytes > left_)
            return false;
        left_ -= limit_ == no_limit ? 0 : bytes;
        return true;
    }
    void give_back(ub8 bytes) { left_ += limit_ == no_limit ? 0 : bytes; }

private:
    ub8 limit_, left_;
};

// Symbols to be given codes: those of a column of texts (addresses and lengths) in all rows or in the listed ones, or
// numbers of 8 bytes.
struct symbol_source {
    std::string name; // in messages and --explain
    tavo_vec column;
    const std::vector<ub4> *rows = nullptr; // null: all

    ub4 size() const { return rows != nullptr ? static_cast<ub4>(rows->size()) : column.size; }
    bool has_texts() const { return column.lengths != nullptr; }
};

class dense_dictionary {
public:
    static constexpr unsigned most_threads = 256;

    // The source, the memory and the library must outlive the dictionary. Throws if the memory is not enough for an
    // empty one.
    dense_dictionary(const library &, const symbol_source &, unsigned threads, memory_budget &);
    ~dense_dictionary();

    // Feeds the source: the code of each of its rows. Throws if the memory is not enough.
    std::vector<ub4> codes(step_list &);
    // Above all codes; up to seven for each thread are never given.
    ub4 end_code() const { return static_cast<ub4>(dgk_.next_code); }
    // Where the symbols of given codes stand, as long as the dictionary is there.
    void symbols(std::vector<ub4> codes, std::vector<ub8> &addresses, std::vector<ub2> &lengths, step_list &) const;

private:
    struct thread_part;

    void make_nodes();
    void feed(thread_part &, std::vector<ub4> &codes);
    tavo_vec next_rows(thread_part &, ub4 from, ub4 rows) const;
    void hash_rows(thread_part &, tavo_vec &column) const;
    bool grant(const tavo_dgk_request &, const tavo_dgk_worker &, ub4 grants_before);
    bool take(ub8 bytes);
    void give_back_unused();
    ub8 bytes_allocated() const;
    [[noreturn]] void too_little_memory() const;

    const library &kernels_;
    const symbol_source &source_;
    memory_budget &memory_;
    block<ub8> nodes_;
    tavo_dgk dgk_{};
    std::vector<std::unique_ptr<thread_part>> parts_;
    ub4 stretch_;
    std::atomic<ub8> next_{0}; // row that no thread has taken yet
    std::atomic<ub8> done_{0};
    std::atomic<bool> stopped_{false};
    std::mutex granting_; // memory_, taken_ and writes of grants_
    ub8 taken_ = 0;       // of the memory
    std::atomic<ub4> grants_{0};
};

} // namespace host
