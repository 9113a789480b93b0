// Does this processor have what the kernels take for granted, and has the operating system switched it on?
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace host {

struct cpuid_words {
    std::uint32_t eax, ebx, ecx, edx;
};

// Where the answers come from: this_processor() outside of tests. xgetbv is asked only where cpuid says that the
// operating system allows it.
struct processor {
    std::function<cpuid_words(std::uint32_t leaf, std::uint32_t subleaf)> cpuid;
    std::function<std::uint64_t()> xgetbv;
};
processor this_processor();

struct feature {
    const char *name;
    bool present;
};
// The features that the kernels use without asking, in a fixed order, the operating system's AVX-512 state last.
std::vector<feature> needed_features(const processor &);

// The names of those that are absent, separated by commas; empty if the kernels can run.
std::string missing_features(const processor &);

} // namespace host
