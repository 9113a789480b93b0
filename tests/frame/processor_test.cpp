// Start-up: every feature word, from made-up processors and from this one.
#ifndef TAVO_PORTABLE
#include <cpuid.h>
#endif
#include <gtest/gtest.h>

#include <map>
#include <tuple>
#include <vector>

#include "frame/processor.h"
#include "frame/tavo.h"

namespace {

enum reg { eax, ebx, ecx, edx };

struct feature {
    const char *name;
    ub4 *global;
    ub4 leaf, subleaf;
    reg from;
    unsigned bit;
};
#define FEATURE(name, leaf, subleaf, from, bit)                                                                        \
    feature { #name, &name, leaf, subleaf, from, bit }
const feature features[] = {
    FEATURE(tavo_has_ifma, 7, 0, eax, 21), // an odd source, and kept
    FEATURE(tavo_has_vbmi1, 7, 0, ecx, 1),         FEATURE(tavo_has_vbmi2, 7, 0, ecx, 6),
    FEATURE(tavo_has_gfni, 7, 0, ecx, 8),          FEATURE(tavo_has_vnni, 7, 0, ecx, 11),
    FEATURE(tavo_has_bitalg, 7, 0, ecx, 12),       FEATURE(tavo_has_vpopcdq, 7, 0, ecx, 14),
    FEATURE(tavo_has_fsrm, 7, 0, edx, 4),          FEATURE(tavo_has_amx_bf16, 7, 0, edx, 22),
    FEATURE(tavo_has_fp16, 7, 0, edx, 23),         FEATURE(tavo_has_amx_tile, 7, 0, edx, 24),
    FEATURE(tavo_has_amx_int8, 7, 0, edx, 25),     FEATURE(tavo_has_avx_vnni, 7, 1, eax, 4),
    FEATURE(tavo_has_bf16, 7, 1, eax, 5),          FEATURE(tavo_has_fsrs, 7, 1, eax, 11),
    FEATURE(tavo_has_amx_fp16, 7, 1, edx, 21),     FEATURE(tavo_has_avx_ifma, 7, 1, eax, 23),
    FEATURE(tavo_has_avx_vnni_int8, 7, 1, edx, 4), FEATURE(tavo_has_avx10_128, 0x24, 0, ebx, 16),
    FEATURE(tavo_has_avx10_256, 0x24, 0, ebx, 17), FEATURE(tavo_has_avx10_512, 0x24, 0, ebx, 18),
};
#undef FEATURE

constexpr unsigned avx10_bit = 19; // of EDX of leaf 7 subleaf 1: leaf 0x24 may be asked

// The made-up processor. Leaves that are not listed answer with all bits set: asking one of them shows.
std::map<std::pair<ub4, ub4>, tavo::cpuid_words> answers;
std::vector<std::pair<ub4, ub4>> asked;

tavo::cpuid_words answer(ub4 leaf, ub4 subleaf) {
    asked.emplace_back(leaf, subleaf);
    const auto found = answers.find({leaf, subleaf});
    return found == answers.end() ? tavo::cpuid_words{~0u, ~0u, ~0u, ~0u} : found->second;
}
ub4 &word_of(tavo::cpuid_words &words, reg r) {
    ub4 *const each[] = {&words.eax, &words.ebx, &words.ecx, &words.edx};
    return *each[r];
}

class StartUp : public testing::Test {
protected:
    void SetUp() override {
        answers = {{{0, 0}, {0x24, 0, 0, 0}}, {{7, 0}, {}}, {{7, 1}, {}}, {{0x24, 0}, {}}};
        set_all(0);
    }
    void TearDown() override { // leave the process as a host would have it
        const ub4 info[3] = {};
        tavo_global_specialized_ctx.init_sharedlib(0, info);
    }
    static void set_all(ub4 value) {
        for (const feature &f : features)
            *f.global = value;
        tavo_avx10_version = tavo_is_Intel = tavo_is_AMD = value;
    }
    static void record() {
        asked.clear();
        tavo::record_processor_features(answer);
    }
};

TEST_F(StartUp, EverySourceBitSetsItsOwnFeatureAndNoOther) {
    for (auto [leaf, subleaf] : {std::pair{7u, 0u}, {7u, 1u}, {0x24u, 0u}})
        for (reg from : {eax, ebx, ecx, edx})
            for (unsigned bit = 0; bit < 32; bit++) {
                SetUp();
                word_of(answers[{7, 1}], edx) = 1u << avx10_bit;
                word_of(answers[{leaf, subleaf}], from) |= 1u << bit;
                record();
                for (const feature &f : features) {
                    const bool own = std::tie(f.leaf, f.subleaf, f.from, f.bit) == std::tie(leaf, subleaf, from, bit);
                    EXPECT_EQ(*f.global, own ? 1u : 0u)
                        << f.name << ", leaf " << leaf << '.' << subleaf << " register " << from << " bit " << bit;
                }
                const bool version = leaf == 0x24 && from == ebx && bit < 8;
                EXPECT_EQ(tavo_avx10_version, version ? 1u << bit : 0u) << "register " << from << " bit " << bit;
            }
}

TEST_F(StartUp, ClearBitsClearFeaturesOfAnEarlierCall) {
    set_all(1);
    word_of(answers[{7, 1}], edx) = 1u << avx10_bit;
    record();
    for (const feature &f : features)
        EXPECT_EQ(*f.global, 0u) << f.name;
    EXPECT_EQ(tavo_avx10_version, 0u);
}

TEST_F(StartUp, LeavesThatAProcessorLacksAreNotAsked) {
    for (ub4 max_leaf : {0u, 1u, 6u})
        for (ub4 before : {0u, 1u}) { // what was there stays
            answers = {{{0, 0}, {max_leaf, 0, 0, 0}}};
            set_all(before);
            record();
            EXPECT_EQ(asked, (std::vector<std::pair<ub4, ub4>>{{0, 0}}));
            for (const feature &f : features)
                EXPECT_EQ(*f.global, before) << f.name;
        }
    answers = {{{0, 0}, {7, 0, 0, 0}}, {{7, 0}, {}}, {{7, 1}, {~0u, ~0u, ~0u, ~(1u << avx10_bit)}}};
    set_all(0);
    record();
    EXPECT_EQ(asked, (std::vector<std::pair<ub4, ub4>>{{0, 0}, {7, 0}, {7, 1}}));
    EXPECT_EQ(tavo_avx10_version, 0u);
    EXPECT_EQ(tavo_has_avx10_512, 0u);
    EXPECT_EQ(tavo_has_amx_fp16, 1u);
}

TEST_F(StartUp, Makers) {
    struct {
        ub4 ecx, edx, intel, amd;
    } const cases[] = {
        {0x6c65746e, 0x49656e69, 1, 0}, // "ntel", "ineI"
        {0x6c65746e, 0x48656e69, 0, 0}, // the last letter before it differs
        {0x6c65746e, 0x49000000, 1, 0}, // only that letter counts
        {0x6c65746d, 0x49656e69, 0, 0},
        {0x444d4163, 0x69746e65, 0, 0}, // "cAMD": as such processors answer, not recognised, and kept so
        {0x00444d41, 0, 0, 1},          // what the test looks for
        {0xff444d41, 0x49656e69, 0, 1},
        {0, 0, 0, 0},
    };
    for (const auto &c : cases) {
        answers[{0, 0}] = {0x24, 0, c.ecx, c.edx};
        set_all(9);
        record();
        EXPECT_EQ(tavo_is_Intel, c.intel) << std::hex << c.ecx << ' ' << c.edx;
        EXPECT_EQ(tavo_is_AMD, c.amd) << std::hex << c.ecx << ' ' << c.edx;
    }
}

TEST_F(StartUp, ThroughTheDescriptorOnThisProcessor) {
    set_all(0);
    for (int call = 0; call < 2; call++) { // a second call gives the same
        const ub4 info[3] = {0x11111111u + call, 0x22222222u, 0xffffffffu};
        EXPECT_EQ(tavo_global_specialized_ctx.init_sharedlib(0x1234, info), 0u);
        for (int i = 0; i < 3; i++)
            EXPECT_EQ(cpuinfo[i], info[i]);
#ifdef TAVO_PORTABLE // its answer is the same everywhere: both members that features choose, and no vendor
        EXPECT_EQ(tavo_has_vpopcdq, 1u);
        EXPECT_EQ(tavo_has_vnni, 1u);
        for (const ub4 other :
             {tavo_is_Intel, tavo_is_AMD, tavo_has_fsrm, tavo_has_bf16, tavo_has_vbmi1, tavo_has_gfni})
            EXPECT_EQ(other, 0u);
#else
        ub4 a, b, c, d;
        ASSERT_GE(__get_cpuid_max(0, nullptr), 7u);
        __cpuid_count(7, 0, a, b, c, d);
        EXPECT_EQ(tavo_has_vpopcdq, c >> 14 & 1);
        EXPECT_EQ(tavo_has_vnni, c >> 11 & 1);
        EXPECT_EQ(tavo_has_fsrm, d >> 4 & 1);
        __cpuid_count(7, 1, a, b, c, d);
        EXPECT_EQ(tavo_has_bf16, a >> 5 & 1);
#endif
    }
}

} // namespace
