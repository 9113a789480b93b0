// What a host reads by position: the 88 words, the dispatch table, the index functions.
#include <gtest/gtest.h>

#include <cstring>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "frame/dispatch_table.h"
#include "frame/tavo.h"
#include "tests/kit/linked_functions.h"

namespace {

using tavo::test::linked_functions;

ub8 word(unsigned i) {
    ub8 value;
    std::memcpy(&value, reinterpret_cast<const char *>(&tavo_global_specialized_ctx) + 8 * i, 8);
    return value;
}
const char *text(unsigned i) { return reinterpret_cast<const char *>(word(i)); }

// A slot as the host sees it: one pointer, whatever its calling pattern.
ub8 slot_word(unsigned i) {
    ub8 value;
    std::memcpy(&value, &tavo_dispatch_table.slot[i], 8);
    return value;
}

TEST(Descriptor, IdentificationByPosition) {
    EXPECT_EQ(word(0), 0xc16182c0u);
    EXPECT_STREQ(text(1), "MRV_23.0");
    EXPECT_EQ(word(2), 3u);
    EXPECT_STREQ(text(3), "smrvavx512g");
    for (unsigned i = 4; i <= 10; i++)
        EXPECT_EQ(word(i), 8u) << "word " << i;
    EXPECT_EQ(word(11), 16u);
    EXPECT_EQ(word(12), 0u);
    EXPECT_EQ(word(13), 64u);
    EXPECT_EQ(word(14), reinterpret_cast<ub8>(&tavo_dispatch_table));
}

// Each operation stands in its own word; a name in the wrong place would be called with the wrong arguments.
TEST(Descriptor, OperationsByPosition) {
    std::istringstream list(
        "init_sharedlib set_trace_level lbivpopcnt lbivnot lbivand lbivor lbivxor lbivandnot lbivand3 lbivor3 "
        "lbivxor3 lbivset_range lbivclr_range lbiv_ictx_ini2 lbiviter lbiviter_clr lbivones lbivrun lbivruns "
        "lbiwvpopcnt lbiwvnot lbiwvand lbiwvor lbiwvxor lbiwvandnot lbiwvand3 lbiwvor3 lbiwvxor3 "
        "lbiwvset_range lbiwvclr_range lbiwv_ictx_ini2 lbiwviter lbiwviter_clr lbiwvones lbiwvrun lbiwvruns "
        "bloom spatial_pip spheric_pip groupkey dgk_concatenate extract_dgk gby_sum convert prefix_decode "
        "hash partition gather gather_one_col gather_cols transpose_reference transpose_convert "
        "transpose_fixed layout_kv create_add_kv probe_kv mut_kv_scan dgk_symbol2code dgk_code2symbol "
        "eq_stream selective spak_decode thread_ctx_init thread_ctx_fini sum_vec lookup_and_compare "
        "prefix_sum_vec vector_distance vector_topk vector_pick_metric vector_parse vector_convert_fp "
        "vector_arith");
    const std::vector<std::string> names{std::istream_iterator<std::string>(list), {}};
    ASSERT_EQ(names.size(), TAVO_OPERATIONS);
    const auto functions = linked_functions();
    for (unsigned i = 0; i < TAVO_OPERATIONS; i++) {
        const std::string name = std::string("tavo_") + names[i] + "_dydi";
        const auto found = functions.find(name);
        const ub8 address = found == functions.end() ? 0 : found->second;
        EXPECT_EQ(word(TAVO_FIRST_OPERATION_WORD + i), address) << "word " << 15 + i << ", " << name;
    }
    for (unsigned i = 15; i <= 50; i++)
        EXPECT_NE(word(i), 0u) << "word " << i;
    EXPECT_NE(word(77), 0u);
    EXPECT_NE(word(78), 0u);
}

TEST(Descriptor, CallsThatDoNothing) {
    const tavo_specialized_ctx &tavo = tavo_global_specialized_ctx;
    tavo.set_trace_level(~0u);
    EXPECT_EQ(tavo.thread_ctx_init(), 0u);
    EXPECT_EQ(tavo.thread_ctx_fini(), 0u);
}

TEST(DispatchTable, KernelsStandWhereHostsLookForThem) {
    EXPECT_EQ(tavo_dispatch_table_size(), 8192u);
    EXPECT_EQ(sizeof tavo_dispatch_table, 8192u * 8);
    const auto name = [](unsigned i) { return std::string(tavo_dispatch_func_names.name[i]); };
    EXPECT_EQ(slot_word(0), 0u);
    EXPECT_EQ(name(0), "tavo_invalid_dispatch");
    EXPECT_EQ(name(32), "tavo_eq_dict_1bit");
    EXPECT_EQ(name(4128), "tavo_eq_dict_1bit_null");
    EXPECT_EQ(name(43), "tavo_decode_unpack_dict_1bit");
    EXPECT_EQ(name(11 * 128 + 32 + 9), "tavo_ge_le_dict_12bit");
    EXPECT_EQ(name(7 * 128 + 32 + 12), "tavo_decode_symbol_dict_8bit");
    EXPECT_EQ(name(15 * 128 + 96 + 14), "tavo_burst_rle_16bit_cla");
    EXPECT_EQ(name(20 * 128 + 32 + 5), "tavo_ne_dict_24bit");
    EXPECT_EQ(name(4096 + 22 * 128 + 32 + 1), "tavo_lt_dict_64bit_null");
    EXPECT_EQ(name(23 * 128 + 32), "tavo_invalid_dispatch"); // no width beyond 64
    EXPECT_EQ(TAVO_DISPATCH_INDEX(TAVO_KERNEL_ROW(1, 21, TAVO_CLASS_DICT), TAVO_OP_GE_LE), 4096 + 21 * 128 + 32 + 9u);
    // A kernel row is one byte: whatever a host keeps above it does not count.
    EXPECT_EQ(TAVO_DISPATCH_INDEX(0x1a5, 31), 0xa5u * 32 + 31);
}

TEST(DispatchTable, EverySlotHoldsTheFunctionOfItsName) {
    const auto functions = linked_functions();
    ASSERT_TRUE(functions.contains("tavo_eq_dict_1bit")) << "this executable has no symbol table";
    std::map<std::string, unsigned> slot_of;
    for (unsigned i = 0; i < TAVO_DISPATCH_SLOTS; i++) {
        const std::string name = tavo_dispatch_func_names.name[i];
        if (slot_word(i) == 0) {
            EXPECT_EQ(name, "tavo_invalid_dispatch") << "empty slot " << i;
            continue;
        }
        const auto [other, fresh] = slot_of.emplace(name, i);
        EXPECT_TRUE(fresh) << name << " stands in slots " << other->second << " and " << i;
        const auto function = functions.find(name);
        ASSERT_NE(function, functions.end()) << "slot " << i << ": no function is called " << name;
        EXPECT_EQ(slot_word(i), function->second) << "slot " << i << ": not " << name;
    }
    EXPECT_EQ(slot_of.size(), 925u); // all of them
    EXPECT_FALSE(functions.contains("tavo_invalid_dispatch"));
}

TEST(DispatchIndex, WidthCodes) {
    for (ub4 width = 1; width <= 20; width++)
        EXPECT_EQ(tavo_convert_width(width), width - 1);
    EXPECT_EQ(tavo_convert_width(24), 20u);
    EXPECT_EQ(tavo_convert_width(32), 21u);
    EXPECT_EQ(tavo_convert_width(64), 22u);
    const sb4 elements[] = {-1, -4, 1, 2, 4};
    for (ub4 form = 0; form < 4; form++)
        for (ub4 i = 0; i < 5; i++)
            EXPECT_EQ(tavo_xlate_convert_width(elements[i], form), form * 8 + i);
    for (ub4 type = 1; type <= 3; type++)
        EXPECT_EQ(tavo_xlate_convert_type(type), type - 1);
}

TEST(DispatchIndexDeathTest, OthersAreACallersBug) {
    // The text names the source and the condition, as the C library words it.
    const char *const text = "tavoc_avx512g:[0-9]+: .*Assertion `0' failed";
    for (ub4 width : {0u, 21u, 23u, 25u, 31u, 33u, 63u, 65u, 128u, 256u + 8, 1u << 31})
        EXPECT_DEATH(tavo_convert_width(width), text) << width;
    for (sb4 element : {0, -2, -3, 3, 5, 8})
        EXPECT_DEATH(tavo_xlate_convert_width(element, 0), text) << element;
    for (ub4 type : {0u, 4u})
        EXPECT_DEATH(tavo_xlate_convert_type(type), text) << type;
}

} // namespace
