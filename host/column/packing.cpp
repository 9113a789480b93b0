#include "host/column/packing.h"

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

std::vector<ub1> pack(std::span<const ub4> codes, unsigned width) {
    std::vector<ub1> bytes(packed_bytes(codes.size(), width) + readable_behind, 0);
    ub1 *out = bytes.data();
    ub8 pending = 0; // the low `bits` bits wait to be written, the upper of them first
    unsigned bits = 0;
    for (ub4 code : codes) {
        pending = pending << width | code;
        for (bits += width; bits >= 8; bits -= 8)
            *out++ = static_cast<ub1>(pending >> (bits - 8));
    }
    if (bits > 0)
        *out = static_cast<ub1>(pending << (8 - bits));
    return bytes;
}

} // namespace host
