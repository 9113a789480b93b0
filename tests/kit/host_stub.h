// The host's side of the interface, for tests: callbacks that record what was asked of them.
#pragma once

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "frame/tavo.h"

namespace tavo::test {

// Messages that reached hostraiseierr since the last clear.
struct raised_error {
    void *handle;
    ub8 word72;
    std::string message;
    ub4 zero;
};
std::vector<raised_error> &raised_errors();

struct free_memory {
    void operator()(ub1 *p) const { std::free(p); }
};

class host_stub {
public:
    host_stub();
    host_stub(const host_stub &) = delete;

    tavo_host *record() { return &host_; }

    struct allocation {
        ub8 heap, size;
        std::string label;
        ub4 unit, alignment;
        ub8 tag;                                  // of temp_allocate: the cookie that was handed out
        std::unique_ptr<ub1, free_memory> memory; // 64-byte aligned
        ub1 *block() const { return memory.get(); }
    };
    std::vector<allocation> allocations;      // of allocate, all kept
    std::vector<allocation> temp_allocations; // of temp_allocate, in the order of the calls
    std::vector<void *> temp_released;        // blocks handed to temp_release, in order; a foreign one aborts

private:
    static void *allocate(void *handle, ub8 heap, ub8 size, const char *label, ub4 unit, ub4 alignment, ub8 tag);
    static void *temp_allocate(void *handle, ub8 size, const char *label, ub4 alignment, ub4 zero, ub8 *cookie);
    static void temp_release(void *handle, void *block, ub8 cookie);

    tavo_host host_{};
    ub8 handle_block_[72]; // word 0 leads back to this object, word 71 is the one that errors carry
};

constexpr ub8 stub_word72 = 0x7272727272727272;
constexpr ub8 stub_heap = 0x4ea9;

} // namespace tavo::test
