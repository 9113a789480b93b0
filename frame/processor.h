// Processor features, recorded once at start-up. Of all these only tavo_has_vpopcdq and tavo_has_vnni steer kernels.
#pragma once

#include "frame/tavo_types.h"
#include "portable/processor.h"

extern "C" {
extern ub4 cpuinfo[3]; // what the host passed to init_sharedlib; no kernel reads it

extern ub4 tavo_is_Intel, tavo_is_AMD;
extern ub4 tavo_has_ifma, tavo_has_vbmi1, tavo_has_vbmi2, tavo_has_gfni, tavo_has_vnni, tavo_has_bitalg,
    tavo_has_vpopcdq, tavo_has_fsrm, tavo_has_amx_bf16, tavo_has_fp16, tavo_has_amx_tile, tavo_has_amx_int8;
extern ub4 tavo_has_avx_vnni, tavo_has_bf16, tavo_has_fsrs, tavo_has_amx_fp16, tavo_has_avx_ifma,
    tavo_has_avx_vnni_int8;
extern ub4 tavo_avx10_version, tavo_has_avx10_128, tavo_has_avx10_256, tavo_has_avx10_512;
}

namespace tavo {

using cpuid_fn = cpuid_words(ub4 leaf, ub4 subleaf);

// Sets the feature globals from what `cpuid` answers.
void record_processor_features(cpuid_fn *cpuid) noexcept;

} // namespace tavo
