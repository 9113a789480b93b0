#include "host/link/loader.h"

#include <gtest/gtest.h>

#include "host/column/column.h"
#include "host/command/library_report.h"
#include "host/error.h"
#include "host/link/callbacks.h"

namespace {

// A processor with all that is needed, less some bits.
struct feature_bits {
    std::uint32_t basic_ecx = 1u << 22 | 1u << 23 | 1u << 27 | 1u << 29;
    std::uint32_t structured_ebx = 1u << 3 | 1u << 8 | 1u << 16 | 1u << 17 | 1u << 30 | 1u << 31;
    std::uint32_t extended_ecx = 1u << 5;
    std::uint64_t os_state = 0xe7;
    std::uint32_t highest_leaf = 0xd;
};
host::processor made(const feature_bits &bits, bool *asked_xgetbv = nullptr) {
    return {[bits](std::uint32_t leaf, std::uint32_t) -> host::cpuid_words {
                switch (leaf) {
                case 0: return {bits.highest_leaf, 0, 0, 0};
                case 1: return {0, 0, bits.basic_ecx, 0};
                case 7: return {0, bits.structured_ebx, 0, 0};
                case 0x80000000u: return {0x80000008u, 0, 0, 0};
                case 0x80000001u: return {0, 0, bits.extended_ecx, 0};
                default: return {~0u, ~0u, ~0u, ~0u};
                }
            },
            [bits, asked_xgetbv] {
                if (asked_xgetbv != nullptr)
                    *asked_xgetbv = true;
                return bits.os_state;
            }};
}

TEST(Processor, EachFeatureIsNeeded) {
    EXPECT_EQ(host::missing_features(made({})), "");
    const std::pair<std::uint32_t feature_bits::*, std::vector<std::pair<unsigned, const char *>>> words[] = {
        {&feature_bits::basic_ecx, {{22, "MOVBE"}, {23, "POPCNT"}, {29, "F16C"}}},
        {&feature_bits::structured_ebx,
         {{3, "BMI1"}, {8, "BMI2"}, {16, "AVX512F"}, {17, "AVX512DQ"}, {30, "AVX512BW"}, {31, "AVX512VL"}}},
        {&feature_bits::extended_ecx, {{5, "LZCNT"}}}};
    for (const auto &[word, features] : words)
        for (const auto &[bit, name] : features) {
            feature_bits bits;
            bits.*word &= ~(1u << bit);
            EXPECT_EQ(host::missing_features(made(bits)), name);
        }
    const std::string state = "AVX-512 state saved by the operating system";
    for (unsigned bit : {1, 2, 5, 6, 7}) {
        feature_bits bits;
        bits.os_state &= ~(1ull << bit);
        EXPECT_EQ(host::missing_features(made(bits)), state) << bit;
    }
    // Without OSXSAVE the instruction faults: it must not be tried.
    feature_bits bits;
    bits.basic_ecx &= ~(1u << 27);
    bool asked = false;
    EXPECT_EQ(host::missing_features(made(bits, &asked)), state);
    EXPECT_FALSE(asked);
    // A leaf beyond the highest answers with another leaf's bits.
    feature_bits old;
    old.highest_leaf = 6;
    EXPECT_EQ(host::missing_features(made(old)), "AVX512F, AVX512BW, AVX512DQ, AVX512VL, BMI1, BMI2");
}

std::string message_of(const std::string &path, const host::processor &p) {
    try {
        host::library(path).check_and_start(p);
    } catch (const host::error &e) {
        return e.what();
    }
    return "";
}

TEST(Library, RefusesWhatItCannotRun) {
    const std::string folder = TAVO_FALSE_LIBRARIES "/";
    EXPECT_EQ(message_of(TAVO_LIBRARY_PATH, host::this_processor()), "");
    feature_bits bits;
    bits.structured_ebx &= ~(1u << 30);
    // The portable form runs on a processor that has nothing of it.
    EXPECT_EQ(message_of(TAVO_LIBRARY_PATH, made(bits)),
              TAVO_LIBRARY_IS_PORTABLE ? ""
                                       : "this processor cannot run " TAVO_LIBRARY_PATH
                                         ": missing AVX512BW; the portable form runs on every processor");
    EXPECT_NE(message_of(folder + "absent.so", made({})).find("cannot load the library"), std::string::npos);
    EXPECT_NE(message_of(folder + "false_wrong_magic.so", made({})).find("magic word"), std::string::npos);
    EXPECT_NE(message_of(folder + "false_wrong_version.so", made({})).find("needs MRV_23.0"), std::string::npos);
}

TEST(Library, ChosenByTheProcessor) {
    unsetenv("TAVO_LIB");
    feature_bits no_vl;
    no_vl.structured_ebx &= ~(1u << 31);
    // Neither lies where this program looks for them, so the dynamic loader is asked by name.
    const host::library_choice able = host::choose_library("", made({})),
                               lacking = host::choose_library("", made(no_vl));
    EXPECT_EQ(able.path, "libtavo_avx512g.so");
    EXPECT_EQ(able.why, "this processor has all that it needs");
    EXPECT_EQ(lacking.path, "libtavo_portable.so");
    EXPECT_EQ(lacking.why, "this processor lacks AVX512VL");
    setenv("TAVO_LIB", "/some/where.so", 1);
    EXPECT_EQ(host::choose_library("", made({})).path, "/some/where.so");
    EXPECT_EQ(host::choose_library("/asked.so", made(no_vl)).path, "/asked.so");
    unsetenv("TAVO_LIB");
}

TEST(Library, Described) {
    const host::library library(TAVO_LIBRARY_PATH);
    const std::string text = host::describe(library, made({}));
    EXPECT_NE(text.substr(0, text.find('\n')).find(" runs here"), std::string::npos) << text;
    EXPECT_NE(text.find("dictionary scans        460 of 460"), std::string::npos) << text;
    EXPECT_NE(text.find("30:lbiviter_clr"), std::string::npos);
    EXPECT_NE(text.find("of 925"), std::string::npos);
    EXPECT_EQ(text.find("MISSING"), std::string::npos);
    feature_bits no_bmi2;
    no_bmi2.structured_ebx &= ~(1u << 8);
    const std::string lacking = host::describe(library, made(no_bmi2));
    EXPECT_EQ(lacking.substr(0, lacking.find('\n')).find(" does not run here: this processor lacks BMI2") !=
                  std::string::npos,
              !TAVO_LIBRARY_IS_PORTABLE)
        << lacking;
}

TEST(Callbacks, RaisedErrorsComeAfterTheCall) {
    const host::library library(TAVO_LIBRARY_PATH);
    host::session session(library);
    tavo_host *record = session.record();
    EXPECT_NO_THROW(session.throw_raised());
    const ub8 word72 = static_cast<ub8 *>(record->handle)[71];
    hostraiseierr(record->handle, word72, "first", 0);
    hostraiseierr(record->handle, word72, std::string(1000, 'x').c_str(), 0);
    try {
        session.throw_raised();
        ADD_FAILURE() << "nothing thrown";
    } catch (const host::error &e) {
        EXPECT_STREQ(e.what(), "internal error in the library: first");
    }
    EXPECT_NO_THROW(session.throw_raised());

    void *block = record->allocate(record->handle, record->heap, 100, "test", 8, 64, 0);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block) % 64, 0u);
    ub8 cookie;
    void *scratch = record->temp_allocate(record->handle, 1, "test", 1, 0, &cookie);
    EXPECT_NE(scratch, nullptr);
    record->temp_release(record->handle, scratch, cookie);
}

TEST(Callbacks, RunsWidenToRows) {
    const host::library library(TAVO_LIBRARY_PATH);
    host::session session(library);
    for (const unsigned bits : {8u, 16u}) {
        const std::vector<ub4> lengths =
            bits == 8 ? std::vector<ub4>{1, 255, 0, 64, 3} : std::vector<ub4>{300, 1, 65535, 0, 7};
        std::vector<ub1> table;
        std::vector<ub4> cumulated = {0}; // big-endian
        ub4 rows = 0;
        for (const ub4 length : lengths) {
            if (bits == 16)
                table.push_back(static_cast<ub1>(length >> 8));
            table.push_back(static_cast<ub1>(length));
            rows += length;
            cumulated.push_back(__builtin_bswap32(rows));
        }
        table.resize(table.size() + 64);
        for (ub8 choice = 0; choice < 64; choice++) {
            const ub8 chosen = choice / 2;
            tavo_enc_ctx enc{};
            enc.flags = TAVO_RLE;
            enc.run_table = table.data();
            enc.run_entry_bits = static_cast<ub1>(bits);
            enc.run_count = 5;
            enc.run_cla = choice % 2 == 0 ? nullptr : cumulated.data();
            tavo_vec src{}, res{};
            src.enc = &enc;
            src.size = rows;
            std::vector<ub8> result((rows + 63) / 64, ~0ull), expected(result.size());
            res.bits = result.data();
            res.size = rows;
            ub8 runs = chosen;
            tavo_env env{};
            env.sel_bits = &runs;
            env.sel_count = static_cast<ub8>(__builtin_popcountll(chosen));
            ub4 count = 0, row = 0;
            for (unsigned run = 0; run < 5; run++)
                for (ub4 i = 0; i < lengths[run]; i++, row++)
                    if (chosen >> run & 1) {
                        expected[row / 64] |= 1ull << row % 64;
                        count++;
                    }
            EXPECT_EQ(host::widen_runs(session.record(), &res, &src, &env),
                      count == 0 ? TAVO_NONE_SELECTED : TAVO_DONE);
            EXPECT_EQ(result, expected) << bits << " bits, choice " << choice;
            EXPECT_EQ(res.count, count);
        }
    }
}

} // namespace
