// What the instructions are held against: operands as bytes, results as bytes, and a table of operations over them that
// is compiled twice, once for the processor's instructions and once for portable/.
#pragma once

#include <cstring>

#include "frame/tavo_types.h"

namespace tavo::test {

struct operands {
    alignas(64) ub1 vectors[6][64];
    alignas(64) ub1 memory[2048];
    alignas(64) sb4 indices[16]; // from -64 to 63, for gathers from the middle of memory
    alignas(64) sb8 wide_indices[8];
    ub8 masks[2];
    ub4 count; // 0 to 299
    ub8 numbers[2];
};

struct result {
    ub1 value[64];                // what the operation returned
    unsigned size;                // bytes of it
    alignas(64) ub1 memory[2048]; // what it stored, behind what was there
};

struct operation {
    const char *text; // the call, as in the list
    void (*run)(const operands &, result &);
};

// Both tables have the operations in one order.
extern const operation *const native_operations, *const portable_operations;
extern const unsigned native_operation_count, portable_operation_count;

} // namespace tavo::test
