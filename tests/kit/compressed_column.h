// A column compressed as a whole, with a slot for what is decoded and a host that counts what that takes.
#pragma once

#include <span>
#include <vector>

#include "tests/kit/host_stub.h"
#include "tests/kit/spak_stream.h"

namespace tavo::test {

struct compressed_column {
    compressed_column(std::span<const ub1> plain, ub4 rows) : stream_(spak_of(plain).bytes()) {
        stream_.resize(stream_.size() + 64); // decoding reads on behind its end
        env.host = host.record();
        enc.flags = TAVO_SPAK;
        vec.data = stream_.data();
        vec.enc = &enc;
        vec.size = rows;
        vec.decomp_size = static_cast<ub4>(plain.size());
        vec.decomp_slot = &slot_;
    }
    compressed_column(const compressed_column &) = delete;
    compressed_column &operator=(const compressed_column &) = delete;

    host_stub host;
    tavo_env env{};
    tavo_enc_ctx enc{}; // the rest of it is the test's
    tavo_vec vec{};

private:
    std::vector<ub1> stream_;
    void *slot_ = nullptr;
};

} // namespace tavo::test
