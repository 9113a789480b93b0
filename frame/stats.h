// Dispatch statistics that a host keeps, and their printed form.
#pragma once

#include "frame/tavo_avx512g.h"

struct tavo_stats {
    ub4 calls[TAVO_DISPATCH_SLOTS];
    double mrows_per_sec[TAVO_DISPATCH_SLOTS];
};

// Prints one line a slot to standard output, by variant, class, operation and width code; with only_used non-zero only
// the slots that were called.
extern "C" void tavo_stats_dump(const tavo_stats *stats, ub4 only_used) noexcept;
