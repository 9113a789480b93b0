#include "host/column/packing.h"

#include <algorithm>
#include <cstring>

namespace host {

unsigned width_for(ub8 largest) {
    for (unsigned width = 1; width <= 20; width++)
        if (largest >> width == 0)
            return width;
    return largest >> 24 == 0 ? 24 : 32;
}

unsigned width_code(unsigned width) {
    return width <= 20 ? width - 1 : width == 24 ? TAVO_WIDTH_CODE_24 : TAVO_WIDTH_CODE_32;
}

block<ub1> pack(std::span<const ub4> codes, unsigned width) {
    block<ub1> bytes(packed_bytes(codes.size(), width) + readable_behind);
    code_writer writer(bytes.data(), width);
    for (const ub4 code : codes)
        writer.write(code);
    std::fill_n(writer.finish(), readable_behind, ub1{0});
    return bytes;
}

block<ub1> pack_in_place(block<ub4> codes, unsigned width) {
    // No code takes more bytes packed than not, so the writer is never ahead of the reader.
    const std::size_t rows = codes.size();
    codes.resize(std::max<std::size_t>(rows, 1)); // so that there is memory
    ub4 *const from = codes.data();
    code_writer writer(reinterpret_cast<ub1 *>(from), width);
    for (std::size_t row = 0; row < rows; row++) {
        ub4 code;
        std::memcpy(&code, from + row, sizeof code); // the compiler must not move it behind the writes
        writer.write(code);
    }
    writer.finish();
    block<ub1> bytes = std::move(codes).as<ub1>();
    const ub8 size = packed_bytes(rows, width);
    bytes.resize(size + readable_behind);
    bytes.shrink();
    std::fill(bytes.begin() + size, bytes.end(), ub1{0});
    return bytes;
}

} // namespace host
