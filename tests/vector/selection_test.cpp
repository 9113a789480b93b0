// Which kernel stands behind each combination of metric, types, forms and layouts: all of them, by name.
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "frame/processor.h"
#include "frame/tavo.h"
#include "tests/kit/linked_functions.h"

namespace tavo::test {
namespace {

struct side {
    ub4 type, comparable, layout;
};

std::string word(const side &s, bool honour_comparable) {
    static const char *const names[] = {"", "float", "double", "", "", "int8", "bitmsb0", "float16", "bfloat16"};
    const bool number = s.type == 1 || s.type == 2 || s.type >= 7;
    return std::string(s.layout ? "S" : "") + (number && honour_comparable && s.comparable ? "C" : "") + names[s.type];
}

// The rule, written out; an empty name where there is no kernel.
std::string kernel_name(ub4 metric, const side &l, const side &r) {
    static const char *const families[] = {"",        "euclid",    "euclid",  "cosine",  "cosine", "dotprod",
                                           "dotprod", "manhattan", "hamming", "jaccard", "jaccard"};
    const auto is_vector = [](ub4 t) { return t == 1 || t == 2 || t == 5 || t == 7 || t == 8; };
    const bool bits = l.type == 6 && r.type == 6;
    if (metric < 1 || metric > 10 || l.layout != r.layout || l.layout > 1)
        return "";
    if (!bits && (metric >= 9 || !is_vector(l.type) || !is_vector(r.type)))
        return "";
    std::string extension;
    if (bits && l.layout == 0 && tavo_has_vpopcdq)
        extension = "vpopc_";
    if (l.type == 5 && r.type == 5 && l.layout == 0 && metric <= 6 && tavo_has_vnni)
        extension = "vnni_";
    const bool int8_flagged = (l.type == 5 && l.comparable) || (r.type == 5 && r.comparable);
    return std::string("tavo_dbv_") + families[metric] + "_" + extension + word(l, !int8_flagged) + "_" +
           word(r, !int8_flagged);
}

TEST(PickMetric, EveryCombinationByName) {
    const auto functions = linked_functions();
    const ub4 saved[2] = {tavo_has_vnni, tavo_has_vpopcdq};
    unsigned kernel_entries = 0;
    std::set<std::string> names;
    for (ub4 features = 0; features < 4; features++) {
        tavo_has_vnni = features & 1, tavo_has_vpopcdq = features >> 1;
        for (ub4 metric : {0u, 1u, 2u, 3u, 4u, 5u, 6u, 7u, 8u, 9u, 10u, 11u, 12u, 119304648u, ~0u})
            for (ub4 lt = 0; lt <= 10; lt++)
                for (ub4 rt = 0; rt <= 10; rt++)
                    for (ub4 layouts = 0; layouts < 16; layouts++)
                        for (ub4 flags = 0; flags < 9; flags++) {
                            const side l{lt, flags % 3, layouts % 4}, r{rt, flags / 3, layouts / 4};
                            const ub8 got = reinterpret_cast<ub8>(tavo_global_specialized_ctx.vector_pick_metric(
                                metric, l.type, l.comparable, l.layout, r.type, r.comparable, r.layout));
                            const std::string name = lt > 8 || rt > 8 ? "" : kernel_name(metric, l, r);
                            const auto found = functions.find(name);
                            ASSERT_TRUE(name.empty() || found != functions.end()) << name;
                            ASSERT_EQ(got, name.empty() ? 0 : found->second)
                                << name << " metric " << metric << " types " << lt << " " << rt << " layouts "
                                << layouts << " flags " << flags;
                            if (!name.empty())
                                names.insert(name);
                            kernel_entries += !name.empty() && features == 0 && l.comparable < 2 && r.comparable < 2;
                        }
    }
    tavo_has_vnni = saved[0], tavo_has_vpopcdq = saved[1];
    EXPECT_EQ(kernel_entries, 1680u);
    EXPECT_EQ(names.size(), 831u); // nobody is out of reach
}

} // namespace
} // namespace tavo::test
