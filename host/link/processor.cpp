#include "host/link/processor.h"

#ifdef __x86_64__
#include <cpuid.h>
#endif

namespace host {

#ifdef __x86_64__
processor this_processor() {
    return {[](std::uint32_t leaf, std::uint32_t subleaf) {
                cpuid_words w{};
                __cpuid_count(leaf, subleaf, w.eax, w.ebx, w.ecx, w.edx);
                return w;
            },
            [] {
                std::uint32_t low, high;
                asm volatile("xgetbv" : "=a"(low), "=d"(high) : "c"(0));
                return static_cast<std::uint64_t>(high) << 32 | low;
            }};
}
#else
// Another architecture has none of these features.
processor this_processor() {
    return {[](std::uint32_t, std::uint32_t) { return cpuid_words{}; }, [] { return std::uint64_t{0}; }};
}
#endif

std::vector<feature> needed_features(const processor &p) {
    // A leaf beyond the largest one answers with another leaf's words, so it counts as all zero.
    auto leaf = [&p](std::uint32_t number) {
        return p.cpuid(number & 0x80000000u, 0).eax >= number ? p.cpuid(number, 0) : cpuid_words{};
    };
    const cpuid_words basic = leaf(1), structured = leaf(7), extended = leaf(0x80000001u);
    auto bit = [](std::uint32_t word, unsigned number) { return (word >> number & 1) != 0; };

    // The operating system must save the SSE and AVX registers, the mask registers, the upper halves of the first
    // sixteen 512-bit registers and the other sixteen: bits 1, 2, 5, 6 and 7 of the extended control register.
    constexpr std::uint64_t avx512_state = 0xe6;
    const bool os_state = bit(basic.ecx, 27) && (p.xgetbv() & avx512_state) == avx512_state;

    return {{"AVX512F", bit(structured.ebx, 16)},
            {"AVX512BW", bit(structured.ebx, 30)},
            {"AVX512DQ", bit(structured.ebx, 17)},
            {"AVX512VL", bit(structured.ebx, 31)},
            {"BMI1", bit(structured.ebx, 3)},
            {"BMI2", bit(structured.ebx, 8)},
            {"F16C", bit(basic.ecx, 29)},
            {"MOVBE", bit(basic.ecx, 22)},
            {"LZCNT", bit(extended.ecx, 5)},
            {"POPCNT", bit(basic.ecx, 23)},
            {"AVX-512 state saved by the operating system", os_state}};
}

std::string missing_features(const processor &p) {
    std::string missing;
    for (const feature &f : needed_features(p))
        if (!f.present)
            missing += (missing.empty() ? "" : ", ") + std::string(f.name);
    return missing;
}

} // namespace host
