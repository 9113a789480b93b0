#include "frame/stats.h"

#include <stdio.h>

#include "frame/dispatch_table.h"

extern "C" TAVO_KEPT void tavo_stats_dump(const tavo_stats *stats, ub4 only_used) noexcept {
    for (unsigned variant = 0; variant < 2; variant++)
        for (unsigned encoding_class = 0; encoding_class < 4; encoding_class++)
            for (unsigned operation = 0; operation < 32; operation++)
                for (unsigned code = 0; code < 32; code++) {
                    const unsigned i = tavo::dispatch_index(operation, encoding_class, code, variant);
                    if (only_used != 0 && stats->calls[i] == 0)
                        continue;
                    printf("%-30s", tavo_dispatch_func_names.name[i]);
                    printf("Call Freq: %d\tMrowsPerSec: %0.0f\n", static_cast<int>(stats->calls[i]),
                           stats->mrows_per_sec[i]);
                }
}
