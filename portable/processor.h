// What the processor says of itself. The portable form has its own answer, the same on every machine: no vendor, and of
// the features that steer kernels both, since portable/ has all of their instructions.
#pragma once

#include "frame/tavo_types.h"

#ifndef TAVO_PORTABLE
#include <cpuid.h>
#endif

namespace tavo {

struct cpuid_words {
    ub4 eax, ebx, ecx, edx;
};

inline cpuid_words this_processor(ub4 leaf, ub4 subleaf) noexcept {
#ifdef TAVO_PORTABLE
    constexpr ub4 vnni = 1u << 11, vpopcntdq = 1u << 14;
    if (leaf == 0)
        return {7, 0, 0, 0};
    return leaf == 7 && subleaf == 0 ? cpuid_words{0, 0, vnni | vpopcntdq, 0} : cpuid_words{};
#else
    cpuid_words w;
    __cpuid_count(leaf, subleaf, w.eax, w.ebx, w.ecx, w.edx);
    return w;
#endif
}

} // namespace tavo
