// Prints the kernels of the dispatch table: slot number and name, one a line.
#include <cstdio>

#include "frame/dispatch_table.h"

int main() {
    for (unsigned i = 0; i < TAVO_DISPATCH_SLOTS; i++)
        if (tavo_dispatch_table.slot[i].scan != nullptr)
            std::printf("%4u %s\n", i, tavo_dispatch_func_names.name[i]);
}
