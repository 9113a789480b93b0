// The decoder on any bytes at all, within what it promises: whatever the head says is believed once the head has
// passed, so the source is padded with zeros as far as a stream with such a head reaches, and the output has room for
// exactly what its symbols come to. Both end at an unreadable page: a byte read or written too far is a crash. The
// result has to be that of the plain reading below.
#include <cstdlib>
#include <cstring>
#include <optional>
#include <span>
#include <vector>

#include "decode/spak.h"
#include "frame/tavo_status.h"
#include "tests/kit/guarded.h"

namespace {

constexpr std::size_t most_padding = 1 << 16; // streams that reach further behind the input are left out
constexpr ub4 capacity = 1 << 20;

// The input with zeros behind it, for as long as a reader asks for.
class padded {
public:
    explicit padded(std::span<const ub1> input)
        : bytes_(input.begin(), input.end()), limit_(input.size() + most_padding) {}

    bool reaches(std::size_t size) {
        if (size > limit_)
            return false;
        if (size > bytes_.size())
            bytes_.resize(size, 0);
        return true;
    }
    ub4 number(std::size_t at, unsigned size) const {
        ub4 value = 0;
        for (unsigned i = 0; i < size; i++)
            value = value << 8 | bytes_[at + i];
        return value;
    }
    ub4 bit(ub8 position) const { return bytes_[position / 8] >> (7 - position % 8) & 1; }
    const std::vector<ub1> &bytes() const { return bytes_; }

private:
    std::vector<ub1> bytes_;
    std::size_t limit_;
};

struct reading {
    bool refused = false;
    std::vector<ub1> output;
};

// What a stream comes to, and src as far as it may be read; nothing if that is too far, or a length above 8 is outside
// the format.
std::optional<reading> read_plainly(padded &src) {
    reading r;
    if (!src.reaches(18))
        return {};
    const ub4 n = src.number(16, 2);
    if (src.number(0, 4) != 0x5350414b || src.number(4, 1) != 0 || (src.number(5, 1) & 0x0b) != 0x02 ||
        src.number(12, 4) > capacity || n == 0 || n > 1024) {
        r.refused = true;
        return r;
    }
    const ub4 aux_count = src.number(10, 2);
    const bool has_aux = aux_count != 0 && aux_count < 0x8000;
    std::size_t at = 18 + (n + 1) / 2;
    if (!src.reaches(at))
        return {};
    std::vector<ub4> lengths(n);
    for (ub4 i = 0; i < n; i++)
        if ((lengths[i] = src.number(18 + i / 2, 1) >> (i % 2 == 0 ? 4 : 0) & 15) > 8)
            return {};
    at += has_aux ? 2 * n : 0;
    std::vector<std::size_t> symbols(n);
    for (ub4 i = 0; i < n; i++) {
        symbols[i] = at;
        at += lengths[i];
    }
    if (!src.reaches(symbols[n - 1] + 8) || !src.reaches(at + (has_aux ? 8 : 4)))
        return {};
    const ub4 count = src.number(at, 4);
    at += 4;
    if (has_aux)
        at += src.number(at, 4) >> 7;
    ub4 width = 0;
    while ((1u << width) < n)
        width++;
    if (count > 1 << 20 || !src.reaches(at + (static_cast<ub8>(count) * width + 7) / 8 + (width % 8 != 0)))
        return {};
    const ub4 in_blocks = width < 3 && count > 32 ? count / 32 * 32 - 32 : 0; // narrow codes that count as 0
    for (ub4 i = 0; i < count; i++) {
        ub4 code = 0;
        for (ub4 b = 0; b < width && i >= in_blocks; b++)
            code = code << 1 | src.bit(at * 8 + static_cast<ub8>(i) * width + b);
        if (code >= n)
            return {}; // a code without a symbol
        const auto symbol = src.bytes().begin() + static_cast<std::ptrdiff_t>(symbols[code]);
        r.output.insert(r.output.end(), symbol, symbol + lengths[code]);
    }
    return r;
}

void require(bool holds) {
    if (!holds)
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const ub1 *data, std::size_t size) {
    padded source({data, size});
    const std::optional<reading> expected = read_plainly(source);
    if (!expected)
        return 0;
    const tavo::test::guarded src{std::span<const ub1>(source.bytes())};
    const tavo::test::guarded dst(expected->output.size());
    tavo_spak_ctx ctx{};
    ctx.temp_allocate = [](void *, ub8 bytes, const char *, ub4, ub4, ub8 *) { return std::malloc(bytes); };
    ctx.temp_release = [](void *, void *block, ub8) { std::free(block); };
    ub4 length = 0xdeadbeef;
    const ub4 status = tavo_spak_decode_dydi(&ctx, src.data(), dst.data(), &length, capacity);
    if (expected->refused) {
        require(status == TAVO_BAD_INPUT && length == 0xdeadbeef);
        return 0;
    }
    require(length == expected->output.size());
    require(status == (length == source.number(12, 4) ? TAVO_DONE : TAVO_BAD_INPUT));
    require(length == 0 || std::memcmp(dst.data(), expected->output.data(), length) == 0);
    return 0;
}
