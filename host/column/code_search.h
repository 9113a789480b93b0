// Searching among codes, which order as their values do.
#pragma once

#include <tavo/tavo.h>

namespace host {

// The first code from `first` up to `end` for which `holds`, which none before it and all behind it do.
template <class Holds>
ub8 first_where(ub8 first, ub8 end, Holds holds) {
    while (first < end) {
        const ub8 middle = first + (end - first) / 2;
        if (holds(middle))
            end = middle;
        else
            first = middle + 1;
    }
    return first;
}

} // namespace host
