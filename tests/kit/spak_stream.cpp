#include "tests/kit/spak_stream.h"

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

spak_stream spak_of(std::span<const ub1> plain) {
    spak_stream s;
    for (unsigned byte = 0; byte < 256; byte++)
        s.symbols.push_back({static_cast<ub1>(byte)});
    s.codes.assign(plain.begin(), plain.end());
    return s;
}

} // namespace tavo::test
