#include "host/column/spak_encoder.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <unordered_map>

#include "host/column/packing.h"

namespace host {

namespace {

constexpr unsigned longest_symbol = 8, narrowest_code = 3, widest_code = 10;

using symbol = spak_symbol;

struct symbol_hash {
    std::size_t operator()(const symbol &s) const {
        return static_cast<std::size_t>((s.bytes + s.length) * 0x9e3779b97f4a7c15ull >> 20);
    }
};

ub8 low_bytes(ub8 bytes, unsigned length) { return length == 8 ? bytes : bytes & ((1ull << 8 * length) - 1); }

// The eight bytes at a position, zero behind the end.
ub8 load8(std::span<const ub1> plain, std::size_t at) {
    ub8 bytes = 0;
    std::memcpy(&bytes, plain.data() + at, std::min<std::size_t>(8, plain.size() - at));
    return bytes;
}

// Symbols with their codes, found by their bytes.
class symbol_set {
public:
    explicit symbol_set(const std::vector<symbol> &symbols) : symbols_(symbols) {
        for (std::size_t code = 0; code < symbols.size(); code++) {
            codes_.try_emplace(symbols[code], static_cast<ub4>(code));
            unsigned &longest = longest_[symbols[code].bytes & 0xff];
            longest = std::max(longest, symbols[code].length);
        }
    }
    // Code of the longest symbol, of `most` bytes at most, that these bytes begin with. Single bytes are symbols.
    ub4 longest_of(ub8 bytes, std::size_t most) const {
        unsigned length = static_cast<unsigned>(std::min<std::size_t>(longest_[bytes & 0xff], most));
        for (;; length--)
            if (const auto found = codes_.find({low_bytes(bytes, length), length}); found != codes_.end())
                return found->second;
    }
    // How many codes the bytes of a symbol would take if it were not there.
    ub8 codes_without(ub4 code) const {
        symbol rest = symbols_[code];
        ub8 codes = 0;
        for (std::size_t most = rest.length - 1; rest.length > 0; most = rest.length, codes++) {
            const unsigned taken = symbols_[longest_of(rest.bytes, most)].length;
            rest = {taken == 8 ? 0 : rest.bytes >> 8 * taken, rest.length - taken};
        }
        return codes;
    }
    const symbol &operator[](ub4 code) const { return symbols_[code]; }

    template <class Use>
    void cut(std::span<const ub1> plain, Use use) const {
        for (std::size_t at = 0; at < plain.size();) {
            const ub4 code = longest_of(load8(plain, at), plain.size() - at);
            use(code);
            at += symbols_[code].length;
        }
    }

private:
    std::vector<symbol> symbols_;
    std::unordered_map<symbol, ub4, symbol_hash> codes_;
    std::array<unsigned, 256> longest_{};
};

// Pieces spread over the whole, so that training takes the same time for any column: some to train by, and others to
// judge by, as symbols fit the bytes that they were made from better than they fit any others.
struct samples {
    std::vector<ub1> training, judging;
};
samples samples_of(std::span<const ub1> plain, std::size_t pieces) {
    constexpr std::size_t piece = 4096;
    if (plain.size() <= 2 * pieces * piece)
        return {{plain.begin(), plain.end()}, {plain.begin(), plain.end()}};
    samples all;
    for (std::size_t i = 0; i < 2 * pieces; i++) {
        const auto from = plain.begin() + static_cast<std::ptrdiff_t>((plain.size() - piece) / (2 * pieces - 1) * i);
        std::vector<ub1> &one = i % 2 == 0 ? all.training : all.judging;
        one.insert(one.end(), from, from + piece);
    }
    return all;
}

// Greedy training: cut the sample by the symbols so far; each symbol used, and each two used side by side joined to
// one, is a candidate worth the codes that it saves; the best ones are the next round's symbols. The single bytes stay,
// so that everything can be cut.
std::vector<symbol> train(std::span<const ub1> sample, const std::vector<symbol> &single_bytes, std::size_t room,
                          unsigned rounds) {
    std::vector<symbol> symbols = single_bytes;
    for (unsigned round = 0; round < rounds && symbols.size() + 1 <= room; round++) {
        const symbol_set set(symbols);
        std::vector<ub8> uses(symbols.size());
        std::unordered_map<symbol, ub8, symbol_hash> gains;
        const symbol *previous = nullptr;
        set.cut(sample, [&](ub4 code) {
            const symbol &s = set[code];
            uses[code]++;
            if (previous != nullptr && previous->length + s.length <= longest_symbol)
                gains[{previous->bytes | s.bytes << 8 * previous->length, previous->length + s.length}]++;
            previous = &s;
        });
        for (std::size_t code = single_bytes.size(); code < symbols.size(); code++)
            gains[symbols[code]] += uses[code] * (set.codes_without(static_cast<ub4>(code)) - 1);
        std::vector<std::pair<ub8, symbol>> best;
        for (const auto &[s, gain] : gains)
            if (gain > 1)
                best.emplace_back(gain, s);
        const std::size_t kept = std::min(best.size(), room - single_bytes.size());
        std::partial_sort(best.begin(), best.begin() + static_cast<std::ptrdiff_t>(kept), best.end(),
                          [](const auto &a, const auto &b) {
                              if (a.first != b.first)
                                  return a.first > b.first;
                              return a.second.length != b.second.length ? a.second.length > b.second.length
                                                                        : a.second.bytes < b.second.bytes;
                          });
        symbols = single_bytes;
        for (std::size_t i = 0; i < kept; i++)
            symbols.push_back(best[i].second);
    }
    return symbols;
}

unsigned code_width(std::size_t symbols) {
    unsigned width = 0;
    for (std::size_t largest = symbols - 1; largest != 0; largest >>= 1)
        width++;
    return width;
}

void put_big_endian(std::vector<ub1> &bytes, ub8 value, unsigned length) {
    while (length-- > 0)
        bytes.push_back(static_cast<ub1>(value >> 8 * length));
}

// The bytes that occur, as symbols. Streams of fewer than five symbols have codes of less than three bits, which
// decoders read by value only near the end of a stream: filled up with symbols that no code names.
std::vector<symbol> bytes_of(std::span<const ub1> plain) {
    std::array<bool, 256> occurs{};
    for (const ub1 byte : plain)
        occurs[byte] = true;
    std::vector<symbol> single_bytes;
    for (unsigned byte = 0; byte < 256; byte++)
        if (occurs[byte])
            single_bytes.push_back({byte, 1});
    while (single_bytes.size() < 5)
        single_bytes.push_back({0, 1});
    return single_bytes;
}

// Of a stream with these symbols for so many times the sample.
ub8 bits_of(std::span<const ub1> sample, const std::vector<symbol> &symbols, double scale) {
    ub8 codes = 0, dictionary_bits = 8 * 22;
    symbol_set(symbols).cut(sample, [&](ub4) { codes++; });
    for (const symbol &s : symbols)
        dictionary_bits += 4 + 8 * s.length;
    return static_cast<ub8>(static_cast<double>(dictionary_bits) +
                            static_cast<double>(codes) * code_width(symbols.size()) * scale);
}

double scale_of(std::span<const ub1> plain, const samples &sample) {
    return plain.empty() ? 1 : static_cast<double>(plain.size()) / static_cast<double>(sample.judging.size());
}

} // namespace

bool spak_may_pay(std::span<const ub1> plain) {
    constexpr std::size_t pieces = 4;
    constexpr unsigned rounds = 2; // symbols of up to four bytes
    const samples sample = samples_of(plain, pieces);
    const std::vector<symbol> trained = train(sample.training, bytes_of(plain), 1u << widest_code, rounds);
    return bits_of(sample.judging, trained, scale_of(plain, sample)) * 10 < 8 * plain.size() * 9;
}

spak_dictionary spak_train(std::span<const ub1> plain) {
    constexpr std::size_t pieces = 16;
    constexpr unsigned rounds = 8;
    const std::vector<symbol> single_bytes = bytes_of(plain);
    // The number of symbols that makes the judging pieces smallest, the dictionary counted in its proportion.
    const samples sample = samples_of(plain, pieces);
    const double scale = scale_of(plain, sample);
    spak_dictionary best;
    for (unsigned width = std::max(narrowest_code, code_width(single_bytes.size())); width <= widest_code; width++) {
        std::vector<symbol> trained = train(sample.training, single_bytes, 1u << width, rounds);
        const ub8 bytes = bits_of(sample.judging, trained, scale) / 8;
        if (best.symbols.empty() || bytes < best.expected_bytes)
            best = {std::move(trained), bytes};
    }
    return best;
}

spak_stream spak_encode(std::span<const ub1> plain, const spak_dictionary &dictionary) {
    const std::vector<symbol> &symbols = dictionary.symbols;
    std::vector<ub1> head = {'S', 'P', 'A', 'K', 0, 0x02, 0, 0, 0, 0, 0, 0};
    put_big_endian(head, plain.size(), 4);
    put_big_endian(head, symbols.size(), 2);
    for (std::size_t i = 0; i < symbols.size(); i += 2)
        head.push_back(static_cast<ub1>(symbols[i].length << 4 | (i + 1 < symbols.size() ? symbols[i + 1].length : 0)));
    for (const symbol &s : symbols)
        for (unsigned i = 0; i < s.length; i++)
            head.push_back(static_cast<ub1>(s.bytes >> 8 * i));

    // Room for one code a byte; what is not written takes no memory.
    const unsigned width = code_width(symbols.size());
    spak_stream stream;
    block<ub1> &out = stream.bytes;
    out.resize(head.size() + 4 + packed_bytes(plain.size(), width) + readable_behind);
    code_writer writer(out.data() + head.size() + 4, width);
    ub8 codes = 0;
    symbol_set(symbols).cut(plain, [&](ub4 code) {
        writer.write(code);
        codes++;
    });
    stream.size = static_cast<ub8>(writer.finish() - out.data());
    put_big_endian(head, codes, 4);
    std::copy(head.begin(), head.end(), out.begin());
    out.resize(stream.size + readable_behind);
    std::fill(out.begin() + stream.size, out.end(), ub1{0});
    out.shrink();
    return stream;
}

} // namespace host
