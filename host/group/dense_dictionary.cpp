#include "host/group/dense_dictionary.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <exception>
#include <fmt/format.h>
#include <new>
#include <string_view>
#include <thread>

#include "host/error.h"
#include "host/join/join_hash.h"

namespace host {

namespace {

constexpr ub8 node_bytes = 64, page_units = 64, page_bytes = 65600;
constexpr ub4 longest_stretch = 16384, shortest_stretch = 64; // rows that a thread takes at a time
constexpr ub4 sampled_rows = 4096;

std::string_view symbol_at(const symbol_source &s, ub8 i) {
    if (!s.has_texts())
        return {static_cast<const char *>(s.column.data) + i * 8, 8};
    const ub8 row = s.rows != nullptr ? (*s.rows)[i] : i;
    return {std::bit_cast<const char *>(static_cast<const ub8 *>(s.column.data)[row]), s.column.lengths[row]};
}

// About how many distinct symbols there are, rather too many than too few: a symbol that occurs once in a sample stands
// for as many others as there are rows for one of the sample.
ub8 expected_symbols(const symbol_source &s) {
    const ub4 rows = s.size(), n = std::min(rows, sampled_rows);
    std::vector<ub8> hashes(n);
    for (ub4 i = 0; i < n; i++) {
        const std::string_view symbol = symbol_at(s, static_cast<ub8>(i) * rows / n);
        hashes[i] = join_hash(symbol.data(), symbol.size(), 0);
    }
    std::sort(hashes.begin(), hashes.end());
    ub8 distinct = 0, once = 0;
    for (std::size_t i = 0; i < hashes.size();) {
        const std::size_t first = i;
        while (i < hashes.size() && hashes[i] == hashes[first])
            i++;
        distinct++;
        once += i - first == 1;
    }
    return n == 0 ? 0 : distinct + once * (rows / n - 1);
}

std::string text_of_bytes(ub8 bytes) {
    return bytes >= 1 << 20 ? fmt::format("{:.1f} MiB", static_cast<double>(bytes) / (1 << 20))
                            : fmt::format("{:.1f} KiB", static_cast<double>(bytes) / 1024);
}

} // namespace

// What one thread has for itself.
struct dense_dictionary::thread_part {
    struct heap : tavo_dgk_heap {
        heap() : tavo_dgk_heap{&give} {}
        // Called by the library, so that nothing may be thrown: null is an answer.
        static void give(tavo_dgk_heap *self, ub8 size, const char *, ub4, ub4, void **out) noexcept {
            auto &h = *static_cast<heap *>(self);
            *out = nullptr;
            try {
                block<ub8> fresh((size + 7) / 8);
                *out = fresh.data();
                h.blocks.push_back(std::move(fresh));
                h.bytes += size;
            } catch (const std::bad_alloc &) {
                *out = nullptr;
            }
        }
        std::vector<block<ub8>> blocks;
        ub8 bytes = 0;
    };

    explicit thread_part(const library &l) : own_session(l) {}

    session own_session;
    heap memory;
    tavo_dgk_worker worker{};
    std::vector<ub8> addresses, hashes; // of a stretch of rows
    std::vector<ub2> lengths;
    double selecting = 0, hashing = 0, coding = 0; // seconds
    std::exception_ptr failure;
};

dense_dictionary::dense_dictionary(const library &l, const symbol_source &source, unsigned threads,
                                   memory_budget &memory)
    : kernels_(l), source_(source), memory_(memory),
      stretch_(std::clamp(source.size() / (threads * 4), shortest_stretch, longest_stretch)) {
    const tavo_specialized_ctx &ctx = l.ctx();
    if (ctx.dgk_symbol2code == nullptr || ctx.dgk_code2symbol == nullptr || ctx.hash == nullptr ||
        ctx.selective == nullptr)
        throw error(l.path() + " has no dense group keys");
    make_nodes();
    dgk_.worker_count = threads;
    // A start without questions, if there is plenty: up to an eighth of the memory for either.
    const ub8 plenty = memory_.left() / 8, pools = std::min<ub8>(threads * ub8{1 << 16}, plenty),
              pages = std::min<ub8>(threads * ub8{2}, plenty / page_bytes);
    take(pools + pages * page_bytes);
    dgk_.pool_budget = pools;
    dgk_.page_budget = static_cast<sb8>(pages * page_units);
    for (unsigned t = 0; t < threads; t++) {
        parts_.push_back(std::make_unique<thread_part>(l));
        parts_[t]->worker.dgk = &dgk_;
        parts_[t]->worker.heap = &parts_[t]->memory;
        parts_[t]->worker.servicing = t == 0;
    }
}

dense_dictionary::~dense_dictionary() = default;

// A node for each symbol that is expected: one that overflows takes a table of a thousand others. At most a
// quarter of the memory: symbols need the rest.
void dense_dictionary::make_nodes() {
    ub8 nodes = std::bit_ceil(std::max<ub8>(expected_symbols(source_), 16));
    while (nodes > 1 && nodes * node_bytes > memory_.left() / 4)
        nodes /= 2;
    if (!take(nodes * node_bytes))
        too_little_memory();
    nodes_.resize((nodes + 1) * node_bytes / sizeof(ub8)); // one more, as the first one is aligned
    const auto first = (std::bit_cast<ub8>(nodes_.data()) + node_bytes - 1) / node_bytes * node_bytes;
    dgk_.first_level = std::bit_cast<void *>(first);
    std::memset(dgk_.first_level, 0, nodes * node_bytes);
    dgk_.table_bits = static_cast<ub1>(std::countr_zero(nodes));
}

void dense_dictionary::too_little_memory() const {
    throw error(
        fmt::format("--memory is too little: with {} bytes {} of {} rows get the code of their {}; allow more, or "
                    "group by what has fewer or shorter values",
                    memory_.limit(), done_.load(), source_.size(), source_.name));
}

// Rows of the source as a column that dgk_symbol2code and hash take.
tavo_vec dense_dictionary::next_rows(thread_part &part, ub4 from, ub4 rows) const {
    tavo_vec column = source_.column;
    column.size = rows;
    if (!source_.has_texts() || source_.rows == nullptr) {
        column.data = static_cast<ub8 *>(source_.column.data) + from;
        column.lengths = source_.has_texts() ? source_.column.lengths + from : nullptr;
        return column;
    }
    const step_clock clock;
    part.addresses.resize(stretch_);
    part.lengths.resize(stretch_);
    column.data = part.addresses.data();
    column.lengths = part.lengths.data();
    tavo_vec all = source_.column;
    tavo_env env{};
    env.host = part.own_session.record();
    env.ones_vec = const_cast<ub4 *>(source_.rows->data() + from); // read only
    env.ones_vec_size = rows;
    const ub4 status = kernels_.ctx().selective(&column, &all, &env);
    part.own_session.throw_raised();
    if (status != TAVO_DONE || column.size != rows)
        throw error(fmt::format("tavo_selective_dydi: status {}, {} of {} texts", status, column.size, rows));
    part.selecting += clock.seconds();
    return column;
}

void dense_dictionary::hash_rows(thread_part &part, tavo_vec &column) const {
    const step_clock clock;
    part.hashes.resize(stretch_);
    ub8 seed = 0;
    tavo_enc_ctx enc{};
    enc.flags = TAVO_HASHES;
    tavo_vec hashes{}, seeds{};
    hashes.data = part.hashes.data();
    hashes.enc = &enc;
    seeds.data = &seed;
    seeds.enc = &enc;
    seeds.size = 1;
    tavo_env env{};
    env.host = part.own_session.record();
    const ub4 status = kernels_.ctx().hash(&hashes, &column, &seeds, &join_hash, &env);
    part.own_session.throw_raised();
    if (status != TAVO_DONE)
        throw error(fmt::format("tavo_hash_dydi failed with status {} ({})", status, source_.name));
    part.hashing += clock.seconds();
}

bool dense_dictionary::take(ub8 bytes) {
    if (!memory_.take(bytes))
        return false;
    taken_ += bytes;
    return true;
}

ub8 dense_dictionary::bytes_allocated() const {
    ub8 bytes = node_bytes << dgk_.table_bits;
    for (const auto &part : parts_)
        bytes += part->memory.bytes;
    return bytes;
}

// Budgets that nobody has used, when all symbols are in: the next dictionary may need them.
void dense_dictionary::give_back_unused() {
    if (const ub8 used = bytes_allocated(); used < taken_) {
        memory_.give_back(taken_ - used);
        taken_ = used;
    }
}

// Grants what a worker asks for; where memory is limited of the pool bytes no more than its share of what is left, if
// it can go on with that. True if another call may succeed: also where others were granted something in the meantime,
// as budgets are everybody's.
bool dense_dictionary::grant(const tavo_dgk_request &request, const tavo_dgk_worker &worker, ub4 grants_before) {
    const std::lock_guard lock(granting_);
    const ub8 least = worker.block_debt * 1024ull, pages = (request.page_units + page_units - 1) / page_units;
    if (pages == 0 && least == 0)
        return false;
    if (pages > memory_.left() / page_bytes || least > memory_.left() - pages * page_bytes)
        return grants_ != grants_before;
    const ub8 share = (memory_.left() - pages * page_bytes) / parts_.size(),
              bytes = std::max(std::min(request.pool_bytes, share), least);
    take(pages * page_bytes + bytes);
    grants_++;
    __atomic_fetch_add(&dgk_.pool_budget, bytes, __ATOMIC_RELAXED);
    __atomic_fetch_add(&dgk_.page_budget, static_cast<sb8>(pages * page_units), __ATOMIC_RELAXED);
    return true;
}

// One thread: stretch by stretch until there is none left.
void dense_dictionary::feed(thread_part &part, std::vector<ub4> &codes) {
    tavo_enc_ctx hash_enc{};
    hash_enc.flags = TAVO_HASHES;
    hash_enc.width_bits = 64;
    for (;;) {
        const ub8 from = next_.fetch_add(stretch_);
        if (from >= codes.size() || stopped_)
            return;
        const ub4 rows = static_cast<ub4>(std::min<ub8>(stretch_, codes.size() - from));
        tavo_vec column = next_rows(part, static_cast<ub4>(from), rows);
        hash_rows(part, column);
        const step_clock clock;
        tavo_vec hashes{}, out{};
        hashes.data = part.hashes.data();
        hashes.enc = &hash_enc;
        hashes.size = rows;
        out.data = codes.data() + from;
        out.size = rows;
        tavo_env env{};
        env.host = part.own_session.record();
        ub4 status;
        do {
            tavo_dgk_request request{};
            const ub4 before = part.worker.rows_done, grants_before = grants_;
            status = kernels_.ctx().dgk_symbol2code(&request, &part.worker, &out, &column, &hashes, &env);
            part.own_session.throw_raised();
            done_ += out.count - before;
            if (status == TAVO_BUDGET_EXHAUSTED && !grant(request, part.worker, grants_before))
                too_little_memory();
        } while (status == TAVO_BUDGET_EXHAUSTED && !stopped_);
        if (status == TAVO_ALLOCATION_REFUSED)
            throw error(fmt::format("out of memory: {} of {} rows have the code of their {}", done_.load(),
                                    codes.size(), source_.name));
        if (status != TAVO_DONE && !stopped_)
            throw error(fmt::format("tavo_dgk_symbol2code_dydi failed with status {} ({})", status, source_.name));
        part.coding += clock.seconds();
    }
}

std::vector<ub4> dense_dictionary::codes(step_list &steps) {
    std::vector<ub4> codes(source_.size());
    const auto work = [&](thread_part &part) {
        try {
            feed(part, codes);
        } catch (...) {
            part.failure = std::current_exception();
            stopped_ = true;
        }
    };
    std::vector<std::thread> threads;
    threads.reserve(parts_.size());
    try {
        for (std::size_t t = 1; t < parts_.size(); t++)
            threads.emplace_back(work, std::ref(*parts_[t]));
    } catch (const std::exception &) { // those that have started must be waited for
        stopped_ = true;
        parts_[0]->failure = std::make_exception_ptr(
            error(fmt::format("no more than {} threads can be started here", threads.size() + 1)));
    }
    work(*parts_[0]);
    for (std::thread &t : threads)
        t.join();
    for (const auto &part : parts_)
        if (part->failure)
            std::rethrow_exception(part->failure);

    const auto slowest = [&](double thread_part::*seconds) {
        double most = 0;
        for (const auto &part : parts_)
            most = std::max(most, (*part).*seconds);
        return most;
    };
    give_back_unused();
    const ub4 n = source_.size();
    const std::string by = fmt::format("{} thread{}", parts_.size(), parts_.size() == 1 ? "" : "s");
    const char *const what = source_.has_texts() ? "texts" : "keys";
    const std::string column = source_.has_texts() ? source_.name : "";
    if (source_.rows != nullptr)
        steps.add("tavo_selective_dydi", column, "texts of the selected rows, " + by, n, n,
                  slowest(&thread_part::selecting));
    steps.add("tavo_hash_dydi", column, fmt::format("{}, {}", what, by), n, n, slowest(&thread_part::hashing));
    steps.add("tavo_dgk_symbol2code_dydi", column,
              fmt::format("{} to dense codes by tavo_dgk_sym2code_ex_{}, {}  [codes below {}, {}, {} grant{}]", what,
                          source_.has_texts() ? "lp_sep" : "fixed", by, end_code(), text_of_bytes(bytes_allocated()),
                          grants_.load(), grants_ == 1 ? "" : "s"),
              n, n, slowest(&thread_part::coding));
    return codes;
}

void dense_dictionary::symbols(std::vector<ub4> codes, std::vector<ub8> &addresses, std::vector<ub2> &lengths,
                               step_list &steps) const {
    addresses.resize(codes.size());
    lengths.resize(codes.size());
    tavo_vec src{}, out{};
    src.data = codes.data();
    src.size = static_cast<ub4>(codes.size());
    out.data = addresses.data();
    out.lengths = lengths.data();
    const step_clock clock;
    const ub4 status = kernels_.ctx().dgk_code2symbol(0, &dgk_, &out, &src);
    steps.add("tavo_dgk_code2symbol_dydi", source_.has_texts() ? source_.name : "",
              source_.has_texts() ? "codes to texts" : "codes to keys", src.size, src.size, clock.seconds());
    if (status != TAVO_DONE || out.count != src.size)
        throw error(fmt::format("tavo_dgk_code2symbol_dydi: status {}, {} of {} symbols", status, out.count, src.size));
}

} // namespace host
