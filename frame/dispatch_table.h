// The dispatch table and its names, built at compile time from the kernel lists of the families.
//
// A family provides `consteval void put_<family>(dispatch_tables &t)`, which puts each of its members into its slot;
// dispatch_table.cpp calls them all. A second kernel put into one slot does not compile.
#pragma once

#include "frame/tavo_avx512g.h"

namespace tavo {

constexpr const char *invalid_dispatch = "tavo_invalid_dispatch";

struct kernel_slots {
    tavo_kernel_slot slot[TAVO_DISPATCH_SLOTS];
};
struct kernel_names {
    const char *name[TAVO_DISPATCH_SLOTS];
};

// Width code of data kernels; widths other than 1 to 20, 24, 32 and 64 have none.
constexpr bool has_width_code(unsigned width) {
    return (width >= 1 && width <= 20) || width == 24 || width == 32 || width == 64;
}
constexpr unsigned width_code(unsigned width) {
    return width <= 20   ? width - 1
           : width == 24 ? TAVO_WIDTH_CODE_24
           : width == 32 ? TAVO_WIDTH_CODE_32
                         : TAVO_WIDTH_CODE_64;
}

constexpr unsigned dispatch_index(unsigned operation, unsigned encoding_class, unsigned code, unsigned variant) {
    return variant << 12 | code << 7 | encoding_class << 5 | operation;
}

struct dispatch_tables {
    kernel_slots slots{};
    kernel_names names{};
    unsigned filled = 0;

    consteval dispatch_tables() {
        for (unsigned i = 0; i < TAVO_DISPATCH_SLOTS; i++) {
            slots.slot[i].scan = nullptr;
            names.name[i] = invalid_dispatch;
        }
    }

    // One overload per calling pattern: the kernel's type picks the union's member. Scans, arithmetic and translations
    // have one type, so the kernels of all three go in through .scan: a slot is one pointer by any member.
    consteval void put(unsigned index, tavo_scan_fn *kernel, const char *name) {
        slots.slot[claim(index, name)].scan = kernel;
    }
    consteval void put(unsigned index, tavo_range_scan_fn *kernel, const char *name) {
        slots.slot[claim(index, name)].range_scan = kernel;
    }
    consteval void put(unsigned index, tavo_row_move_fn *kernel, const char *name) {
        slots.slot[claim(index, name)].row_move = kernel;
    }
    consteval void put(unsigned index, tavo_xlate_groupkey_fn *kernel, const char *name) {
        slots.slot[claim(index, name)].xlate_groupkey = kernel;
    }
    consteval void put(unsigned index, tavo_minmax_fn *kernel, const char *name) {
        slots.slot[claim(index, name)].minmax = kernel;
    }

private:
    static void two_kernels_in_one_slot() {} // not constexpr: reaching it ends the constant evaluation

    consteval unsigned claim(unsigned index, const char *name) {
        if (names.name[index] != invalid_dispatch)
            two_kernels_in_one_slot();
        names.name[index] = name;
        filled++;
        return index;
    }
};

} // namespace tavo

// The table, its names and the functions below are part of the library whether or not a kernel uses them: debuggers and
// profilers find them in its symbol table. TAVO_KEPT holds them against the linker's removal of unused sections.
#define TAVO_KEPT [[gnu::used, gnu::retain]]

extern "C" {
extern const tavo::kernel_slots tavo_dispatch_table;      // what the descriptor points at
extern const tavo::kernel_names tavo_dispatch_func_names; // parallel to it; empty slots have the text invalid_dispatch

ub4 tavo_dispatch_table_size(void) noexcept; // TAVO_DISPATCH_SLOTS
ub4 tavo_convert_width(ub4 width) noexcept;  // width code of data kernels; asserts that the width has one
// Width code of translation kernels: element -1 bit, -4 nib, 1, 2, 4 for ub1, ub2, ub4; form 0 plain, 1 cla, 2 const,
// 3 sep. Asserts that the element is one of these.
ub4 tavo_xlate_convert_width(sb4 element, ub4 form) noexcept;
// Encoding class of translation type 1, 2, 3 (sim, off, ind); asserts that it is one of these.
ub4 tavo_xlate_convert_type(ub4 type) noexcept;
}
