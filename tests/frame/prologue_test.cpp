// Compressed columns: the decompressed copy is made once, through the host, and its failure is the host's to judge.
#include <cstring>

#include "tests/frame/coded_column.h"

namespace {

using namespace tavo::test;

// A decoder in the place of the library's own: the "stream" is the plain data behind one byte, its status.
struct decoder_call {
    tavo_spak_ctx ctx;
    const ub1 *src;
    ub1 *dst;
    ub4 capacity;
};
std::vector<decoder_call> decoder_calls;

ub4 byte_and_copy(tavo_spak_ctx *ctx, const ub1 *src, ub1 *dst, ub4 *out_len, ub4 capacity) noexcept {
    decoder_calls.push_back({*ctx, src, dst, capacity});
    std::memcpy(dst, src + 1, capacity);
    *out_len = capacity;
    return src[0];
}

class Prologue : public testing::Test {
protected:
    Prologue() {
        decoder_calls.clear();
        raised_errors().clear();
        host.record()->spak_decode = byte_and_copy;
        env.host = host.record();
        compressed.assign(1, 0);
        compressed.insert(compressed.end(), column.stream.begin(), column.stream.end());
        column.enc.flags |= TAVO_SPAK;
        column.src.data = compressed.data();
        column.src.decomp_size = static_cast<ub4>(column.stream.size());
        column.src.decomp_slot = &slot;
        column.src.decomp_tag = 0x7a97a97a97a97a9;
    }
    std::vector<ub8> rows_equal(ub8 code) {
        return column.rows_where([&](std::size_t r) { return column.codes[r] == code; });
    }

    host_stub host;
    tavo_env env{};
    coded_column column{{5, 4095, 0, 7, 5, 5, 3000, 1, 7}};
    std::vector<ub1> compressed;
    void *slot = nullptr;
};

TEST_F(Prologue, DecompressesOnceForAllKernels) {
    EXPECT_EQ(column.eq(5, &env), TAVO_DONE);
    EXPECT_EQ(column.bits, rows_equal(5));
    EXPECT_EQ(column.res.count, 3u);
    ASSERT_EQ(host.allocations.size(), 1u);
    const auto &a = host.allocations[0];
    EXPECT_EQ(a.label, "tavo_eq_dict_12bit: vec1_decomp");
    EXPECT_EQ(a.heap, stub_heap);
    EXPECT_EQ(a.size, column.src.decomp_size);
    EXPECT_EQ(a.unit, 8u);
    EXPECT_EQ(a.alignment, 64u);
    EXPECT_EQ(a.tag, column.src.decomp_tag);
    EXPECT_EQ(slot, a.block());

    ASSERT_EQ(decoder_calls.size(), 1u);
    const auto &d = decoder_calls[0];
    EXPECT_EQ(d.src, compressed.data());
    EXPECT_EQ(d.dst, a.block());
    EXPECT_EQ(d.capacity, column.src.decomp_size);
    EXPECT_EQ(d.ctx.handle, host.record()->handle);
    EXPECT_EQ(d.ctx.heap, stub_heap);
    EXPECT_EQ(d.ctx.temp_allocate, host.record()->temp_allocate);
    EXPECT_EQ(d.ctx.temp_release, host.record()->temp_release);

    // Another kernel on the same vector finds the slot filled and asks the host for nothing, not even with an env.
    EXPECT_EQ(column.ge_le(7, 3000, nullptr), TAVO_DONE);
    EXPECT_EQ(column.res.count, 3u);
    column.src.data = nullptr;
    EXPECT_EQ(column.eq(4094, nullptr), TAVO_NONE_SELECTED);
    EXPECT_EQ(host.allocations.size(), 1u);
    EXPECT_EQ(decoder_calls.size(), 1u);
    EXPECT_TRUE(host.temp_allocations.empty());
    EXPECT_TRUE(raised_errors().empty());

    // The label is that of the kernel that came first.
    slot = nullptr;
    column.src.data = compressed.data();
    EXPECT_EQ(column.ge_le(7, 3000, &env), TAVO_DONE);
    ASSERT_EQ(host.allocations.size(), 2u);
    EXPECT_EQ(host.allocations[1].label, "tavo_ge_le_dict_12bit: vec1_decomp");
}

TEST_F(Prologue, HostFlagsReachTheDecoder) {
    for (auto [flags, expected] : {std::pair{0x00, 0u}, {0x10, 1u}, {0x20, 1u}, {0x30, 1u}, {0xcf, 0u}, {0xff, 1u}}) {
        slot = nullptr;
        host.record()->flags = static_cast<ub1>(flags);
        EXPECT_EQ(column.eq(5, &env), TAVO_DONE);
        EXPECT_EQ(decoder_calls.back().ctx.flag, expected) << flags;
    }
}

// Any status but 0 is a failure.
TEST_F(Prologue, FailingDecoderIsRaisedAndTheScanGoesOn) {
    for (int status : {1, 2, 24, 255}) {
        SCOPED_TRACE(status);
        compressed[0] = static_cast<ub1>(status);
        slot = nullptr;
        decoder_calls.clear();
        raised_errors().clear();
        EXPECT_EQ(column.eq(5, &env), TAVO_DONE);
        ASSERT_EQ(raised_errors().size(), 1u);
        const raised_error &e = raised_errors()[0];
        EXPECT_EQ(e.message, "tavo_eq_dict_12bit: tavo_spak_decode failed");
        EXPECT_EQ(e.handle, host.record()->handle);
        EXPECT_EQ(e.word72, stub_word72);
        EXPECT_EQ(e.zero, 0u);
        EXPECT_EQ(column.bits, rows_equal(5)); // over what the decoder left in the buffer
        EXPECT_EQ(slot, host.allocations.back().block());
        // The slot keeps the buffer: it is not tried again.
        EXPECT_EQ(column.eq(7, &env), TAVO_DONE);
        EXPECT_EQ(raised_errors().size(), 1u);
        EXPECT_EQ(decoder_calls.size(), 1u);
    }
}

TEST_F(Prologue, PlainColumnNeedsNoEnvironmentAndNoSlot) {
    column.enc.flags &= ~TAVO_SPAK;
    column.src.data = column.stream.data();
    column.src.decomp_slot = nullptr;
    EXPECT_EQ(column.eq(7, nullptr), TAVO_DONE);
    EXPECT_EQ(column.bits, rows_equal(7));
    EXPECT_TRUE(host.allocations.empty());
}

} // namespace
