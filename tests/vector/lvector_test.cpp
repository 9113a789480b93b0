// Heads of images, the two numberings of element types.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "tests/kit/guarded.h"
#include "vector/lvector.h"

namespace tavo::test {
namespace {

std::vector<ub1> head(ub1 version, ub1 flags, ub1 type) {
    return {0xdb, version, 0xee, flags, type, 0, 0, 1, 0, 1, 2, 3, 4, 5, 6, 7, 8};
}

TEST(ImageHead, EveryFlagAndType) {
    const guarded image(head(0, 0, 0));
    for (unsigned version : {0u, 1u, 2u, 3u})
        for (unsigned flags = 0; flags < 256; flags++)
            for (unsigned type = 0; type < 256; type++) {
                image.data()[1] = static_cast<ub1>(version);
                image.data()[3] = static_cast<ub1>(flags);
                image.data()[4] = static_cast<ub1>(type);
                lvector_header h;
                std::memset(&h, 0x5a, sizeof h);
                const sb4 status = lvector_to_header_basic(image.data(), &h);
                if (!(flags & 0x12)) {
                    ASSERT_EQ(status, -245);
                    ASSERT_EQ(h.dims, 0x5a5a5a5au);
                    continue;
                }
                ASSERT_EQ(status, 0);
                const bool wide = type == 1 || type == 2 || type == 3 || type == 6;
                ASSERT_EQ(h.data_offset, wide && (flags & 0x28) == 0x08 ? 24 : 17) << flags << " " << type;
                ASSERT_EQ(h.aux_offset, 9);
                ASSERT_EQ(h.flags, flags & 0x3b);
                ASSERT_EQ(h.type, type);
                ASSERT_EQ(h.dims, 256u);
            }
}

TEST(ImageHead, RefusalsInOrderWithNothingWritten) {
    lvector_header h{1, 2, 3, 4, 5};
    std::vector<ub1> image = head(4, 0, 2);
    EXPECT_EQ(lvector_to_header_basic(image.data(), &h), -226);
    image[0] = 0xda;
    EXPECT_EQ(lvector_to_header_basic(image.data(), &h), -251);
    image = head(3, 0x2d, 2);
    EXPECT_EQ(lvector_to_header_basic(image.data(), &h), -245);
    EXPECT_TRUE(h.type == 1 && h.data_offset == 2 && h.aux_offset == 3 && h.flags == 4 && h.dims == 5);
}

TEST(ImageHead, ElementTypes) {
    const ub4 types[] = {0, 7, 1, 2, 5, 6, 8};
    for (ub4 stored = 0; stored < 300; stored++)
        EXPECT_EQ(tavo_dbv_lvtype2tavo(stored), stored < 7 ? types[stored] : 0) << stored;
}

} // namespace
} // namespace tavo::test
