#include "tests/kit/spak_stream.h"

#include <algorithm>
#include <cstring>
#include <unordered_map>

#include "tests/kit/codes.h"

namespace tavo::test {

unsigned spak_stream::width() const {
    unsigned width = 0;
    while ((1u << width) < symbols.size())
        width++;
    return width;
}

std::vector<ub1> spak_stream::decoded() const {
    std::vector<ub1> out;
    for (ub4 code : codes)
        out.insert(out.end(), symbols[code].begin(), symbols[code].end());
    return out;
}

std::vector<ub1> spak_stream::bytes(ub4 raw_length) const {
    std::vector<ub1> out = {'S', 'P', 'A', 'K', format, flags, 0xde, 0xad, 0xbe, 0xef};
    auto put = [&](ub8 value, unsigned size) {
        while (size-- > 0)
            out.push_back(static_cast<ub1>(value >> 8 * size));
    };
    put(static_cast<ub2>(aux_count), 2);
    put(raw_length, 4);
    put(symbols.size(), 2);
    for (std::size_t i = 0; i < symbols.size(); i += 2)
        put(symbols[i].size() << 4 | (i + 1 < symbols.size() ? symbols[i + 1].size() : nibble_noise), 1);
    if (aux_count > 0)
        out.insert(out.end(), 2 * symbols.size(), 0x77);
    for (const auto &symbol : symbols)
        out.insert(out.end(), symbol.begin(), symbol.end());
    put(codes.size(), 4);
    if (aux_count > 0) {
        put((4 + aux_body.size()) << 7 | 0x55, 4);
        out.insert(out.end(), aux_body.begin(), aux_body.end());
    }
    const std::vector<ub1> packed = pack_codes({codes.begin(), codes.end()}, width());
    out.insert(out.end(), packed.begin(), packed.end());
    return out;
}

namespace {

// The dictionary while it is trained: symbols of up to 8 bytes as numbers, found by the bytes at a position.
class trainer {
public:
    explicit trainer(std::span<const ub1> plain) : plain_(plain) {
        for (ub1 byte : plain)
            add(1, byte);
    }

    std::size_t size() const { return symbols_.size(); }

    void add(unsigned length, ub8 value) {
        if (by_bytes_[length].emplace(value, static_cast<ub4>(symbols_.size())).second)
            symbols_.push_back({length, value});
    }

    // Cuts the first `limit` bytes into the longest symbols that fit.
    std::vector<ub4> cut(std::size_t limit) const {
        std::vector<ub4> codes;
        for (std::size_t at = 0; at < limit;)
            for (unsigned length = static_cast<unsigned>(std::min<std::size_t>(8, plain_.size() - at));; length--)
                if (auto found = by_bytes_[length].find(value_at(at, length)); found != by_bytes_[length].end()) {
                    codes.push_back(found->second);
                    at += length;
                    break;
                }
        return codes;
    }

    // Adds up to `more` joined neighbours of the cut text, those first that spare the most codes.
    void join_neighbours(const std::vector<ub4> &codes, std::size_t more) {
        std::unordered_map<ub8, ub4> pairs;
        for (std::size_t i = 0; i + 1 < codes.size(); i++)
            if (symbols_[codes[i]].length + symbols_[codes[i + 1]].length <= 8)
                pairs[static_cast<ub8>(codes[i]) << 32 | codes[i + 1]]++;
        std::vector<std::pair<ub4, ub8>> ranked;
        for (auto [pair, count] : pairs)
            if (count > 2)
                ranked.emplace_back(count, pair);
        std::sort(ranked.begin(), ranked.end(), std::greater<>());
        for (std::size_t i = 0; i < std::min(more, ranked.size()); i++) {
            const symbol a = symbols_[ranked[i].second >> 32], b = symbols_[ranked[i].second & 0xffffffff];
            add(a.length + b.length, a.value | b.value << 8 * a.length);
        }
    }

    // Keeps the symbols that occur most often in `codes`, and every single byte.
    void keep_most_used(const std::vector<ub4> &codes, std::size_t limit) {
        std::vector<ub4> uses(symbols_.size());
        for (ub4 code : codes)
            uses[code]++;
        std::vector<ub4> order(symbols_.size());
        for (ub4 i = 0; i < order.size(); i++)
            order[i] = i;
        auto rank = [&](ub4 i) { return symbols_[i].length == 1 ? ~0u : uses[i]; };
        std::stable_sort(order.begin(), order.end(), [&](ub4 a, ub4 b) { return rank(a) > rank(b); });
        std::vector<symbol> kept;
        for (ub4 i : order)
            if (kept.size() < limit && rank(i) > 0)
                kept.push_back(symbols_[i]);
        symbols_.clear();
        for (auto &map : by_bytes_)
            map.clear();
        for (symbol s : kept)
            add(s.length, s.value);
    }

    std::vector<std::vector<ub1>> symbols() const {
        std::vector<std::vector<ub1>> out;
        for (symbol s : symbols_) {
            const auto *bytes = reinterpret_cast<const ub1 *>(&s.value);
            out.emplace_back(bytes, bytes + s.length);
        }
        return out;
    }

private:
    struct symbol {
        unsigned length;
        ub8 value; // first byte lowest
    };

    ub8 value_at(std::size_t at, unsigned length) const {
        ub8 value = 0;
        std::memcpy(&value, plain_.data() + at, length);
        return value;
    }

    std::span<const ub1> plain_;
    std::vector<symbol> symbols_;
    std::unordered_map<ub8, ub4> by_bytes_[9]; // by length
};

} // namespace

spak_stream spak_compress(std::span<const ub1> plain) {
    constexpr std::size_t sample = 1 << 17, full = 1024;
    trainer t(plain);
    for (unsigned round = 0; round < 6; round++) {
        const std::vector<ub4> codes = t.cut(std::min(sample, plain.size()));
        if (t.size() > full * 3 / 4)
            t.keep_most_used(codes, full * 3 / 4);
        else
            t.join_neighbours(codes, full - t.size());
    }
    t.keep_most_used(t.cut(std::min(sample, plain.size())), full);
    for (ub1 byte = 0; t.size() < 5; byte++) // codes below 3 bits are good for short streams only
        t.add(1, byte);
    spak_stream stream;
    stream.codes = t.cut(plain.size());
    stream.symbols = t.symbols();
    return stream;
}

} // namespace tavo::test
