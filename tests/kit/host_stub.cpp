#include "tests/kit/host_stub.h"

#include <cstdio>
#include <cstdlib>

extern "C" void hostraiseierr(void *handle, ub8 word72, const char *message, ub4 zero) {
    tavo::test::raised_errors().push_back({handle, word72, message, zero});
}

namespace tavo::test {

std::vector<raised_error> &raised_errors() {
    static std::vector<raised_error> list;
    return list;
}

namespace {
host_stub::allocation make(ub8 heap, ub8 size, const char *label, ub4 unit, ub4 alignment, ub8 tag) {
    void *block = nullptr;
    if (posix_memalign(&block, 64, size) != 0)
        std::abort();
    return {heap, size, label, unit, alignment, tag, {static_cast<ub1 *>(block), {}}};
}
host_stub *self(void *handle) { return reinterpret_cast<host_stub *>(static_cast<ub8 *>(handle)[0]); }
} // namespace

host_stub::host_stub() : handle_block_{} {
    handle_block_[0] = reinterpret_cast<ub8>(this);
    handle_block_[71] = stub_word72;
    host_ = {handle_block_, stub_heap, allocate, temp_allocate, temp_release, nullptr, 0};
    host_.spak_decode = tavo_global_specialized_ctx.spak_decode;
}

void *host_stub::allocate(void *handle, ub8 heap, ub8 size, const char *label, ub4 unit, ub4 alignment, ub8 tag) {
    auto &list = self(handle)->allocations;
    list.push_back(make(heap, size, label, unit, alignment, tag));
    return list.back().block();
}

void *host_stub::temp_allocate(void *handle, ub8 size, const char *label, ub4 alignment, ub4 zero, ub8 *cookie) {
    auto &list = self(handle)->temp_allocations;
    *cookie = 0xc00c1e00 + list.size();
    list.push_back(make(0, size, label, zero, alignment, *cookie));
    return list.back().block();
}

void host_stub::temp_release(void *handle, void *block, ub8 cookie) {
    host_stub *stub = self(handle);
    for (const auto &a : stub->temp_allocations)
        if (a.block() == block && a.tag == cookie) {
            stub->temp_released.push_back(block);
            return;
        }
    std::fprintf(stderr, "temp_release of a block that was not handed out\n");
    std::abort();
}

} // namespace tavo::test
