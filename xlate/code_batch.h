// What a translation works on at a time: up to 256 rows' codes, by slot, whatever the layout of their column.
#pragma once

#include "frame/tavo_types.h"

namespace tavo {

constexpr unsigned batch_rows = 256;

// Slots behind the last row, up to a multiple of 16, hold some code: vector steps run over whole registers.
struct code_batch {
    alignas(64) ub4 code[batch_rows];
    ub8 has_code[batch_rows / 64]; // bit s: slot s has a code; those of other slots mean nothing
};

[[gnu::always_inline]] inline unsigned whole_registers(unsigned slots) noexcept { return (slots + 15) / 16 * 16; }

} // namespace tavo
