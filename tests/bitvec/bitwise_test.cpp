#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "frame/processor.h"
#include "tests/bitvec/families.h"
#include "tests/kit/guarded.h"

namespace tavo::test {
namespace {

using bytes = std::vector<ub1>;

// Restores the feature word, which a test may clear but not invent.
class vpopcdq_choice {
public:
    vpopcdq_choice() : saved_(tavo_has_vpopcdq) {}
    ~vpopcdq_choice() { tavo_has_vpopcdq = saved_; }
    static std::vector<ub4> both() {
        const ub4 info[3] = {};
        tavo_global_specialized_ctx.init_sharedlib(0, info);
        return tavo_has_vpopcdq ? std::vector<ub4>{0, 1} : std::vector<ub4>{0};
    }

private:
    ub4 saved_;
};

// One kernel of any number of sources, and what it computes for a bit.
struct kernel {
    std::string name;
    int sources;
    std::function<void(void *dst, ub4 *count, const ub1 *const src[3], ub8 nbits)> call;
    bool (*bit)(bool a, bool b, bool c);
};

std::vector<kernel> storing_kernels() {
    std::vector<kernel> list;
    for (const bitvec_family &f : bitvec_families()) {
        const auto two = [&](const char *name, two_operand_fn *fn, bool (*bit)(bool, bool, bool)) {
            list.push_back(
                {std::string(f.name) + name, 2,
                 [fn](void *dst, ub4 *count, const ub1 *const s[3], ub8 n) { fn(dst, count, s[0], s[1], n); }, bit});
        };
        const auto three = [&](const char *name, three_operand_fn *fn, bool (*bit)(bool, bool, bool)) {
            list.push_back(
                {std::string(f.name) + name, 3,
                 [fn](void *dst, ub4 *count, const ub1 *const s[3], ub8 n) { fn(dst, count, s[0], s[1], s[2], n); },
                 bit});
        };
        two("and", f.and_, [](bool a, bool b, bool) { return a && b; });
        two("or", f.or_, [](bool a, bool b, bool) { return a || b; });
        two("xor", f.xor_, [](bool a, bool b, bool) { return a != b; });
        two("andnot", f.andnot, [](bool a, bool b, bool) { return !a && b; });
        three("and3", f.and3, [](bool a, bool b, bool c) { return a && b && c; });
        three("or3", f.or3, [](bool a, bool b, bool c) { return a || b || c; });
        three("xor3", f.xor3, [](bool a, bool b, bool c) { return (a != b) != c; });
        list.push_back({std::string(f.name) + "not", 1,
                        [fn = f.not_](void *dst, ub4 *count, const ub1 *const s[3], ub8 n) { fn(dst, count, s[0], n); },
                        [](bool a, bool, bool) { return !a; }});
    }
    return list;
}

const ub8 sizes[] = {0,   1,   3,   7,   8,    9,    63,   64,   65,   255,  256,  257,  504,  505,  511,
                     512, 513, 520, 575, 1023, 1024, 1025, 1536, 2047, 2048, 2049, 2560, 4095, 4097, 70001};

bytes random_bytes(std::size_t n, std::mt19937_64 &rng) {
    bytes b(n);
    const unsigned kind = static_cast<unsigned>(rng() % 8);
    for (ub1 &x : b)
        x = kind == 0 ? 0 : kind == 1 ? 0xff : static_cast<ub1>(rng());
    return b;
}

// The result's bytes, spare bits clear, and its count.
std::pair<bytes, ub4> expected(const kernel &k, const bytes src[3], ub8 nbits) {
    bytes out((nbits + 7) / 8, 0);
    ub4 count = 0;
    for (ub8 r = 0; r < nbits; r++) {
        const auto bit = [&](int i) { return i < k.sources && bit_at(src[i].data(), r); };
        if (k.bit(bit(0), bit(1), bit(2))) {
            out[r / 8] |= static_cast<ub1>(1 << r % 8);
            count++;
        }
    }
    return {out, count};
}

// Every kernel against the bit-by-bit reading: guard pages at both ends of every operand, spare bits of the last bytes
// at random, with and without a count, by either counting method, into a vector of its own and over each source.
TEST(Bitwise, AgreesBitByBit) {
    const vpopcdq_choice restore;
    std::mt19937_64 rng(2101);
    for (const kernel &k : storing_kernels())
        for (ub8 nbits : sizes)
            for (guard side : {guard::behind, guard::before}) {
                const std::size_t size = (nbits + 7) / 8;
                const bytes src[3] = {random_bytes(size, rng), random_bytes(size, rng), random_bytes(size, rng)};
                const auto [bits, count] = expected(k, src, nbits);
                for (int target = -1; target < k.sources; target++) // -1: a vector of its own
                    for (ub4 has : vpopcdq_choice::both())
                        for (bool counting : {true, false}) {
                            SCOPED_TRACE(k.name + " " + std::to_string(nbits) + " bits, target " +
                                         std::to_string(target) + ", vpopcdq " + std::to_string(has));
                            tavo_has_vpopcdq = has;
                            const guarded memory[4] = {
                                {src[0], side}, {src[1], side}, {src[2], side}, guarded(size, side)};
                            const ub1 *const operands[3] = {memory[0].data(), memory[1].data(), memory[2].data()};
                            const guarded &dst = memory[target < 0 ? 3 : target];
                            ub4 got = 0xdeadbeef;
                            k.call(dst.data(), counting ? &got : nullptr, operands, nbits);
                            ASSERT_EQ(bytes(dst.bytes().begin(), dst.bytes().end()), bits);
                            ASSERT_EQ(got, counting ? count : 0xdeadbeef);
                            for (int i = 0; i < 3; i++)
                                ASSERT_TRUE(i == target || std::equal(src[i].begin(), src[i].end(), operands[i]));
                        }
            }
}

TEST(Bitwise, CountsBelowTheLastBitOnly) {
    const vpopcdq_choice restore;
    std::mt19937_64 rng(2103);
    for (const bitvec_family &f : bitvec_families())
        for (ub8 nbits : sizes)
            for (guard side : {guard::behind, guard::before}) {
                const guarded src(random_bytes((nbits + 7) / 8, rng), side);
                ub4 want = 0;
                for (ub8 r = 0; r < nbits; r++)
                    want += bit_at(src.data(), r);
                for (ub4 has : vpopcdq_choice::both()) {
                    tavo_has_vpopcdq = has;
                    ub4 count = 0xdeadbeef;
                    EXPECT_EQ(f.popcnt(&count, src.data(), nbits), want) << f.name << " " << nbits << " " << has;
                    EXPECT_EQ(count, want);
                }
            }
}

// Every range of a vector of 11 bytes that ends, or begins, at an unreadable page; and one long one.
TEST(BitRange, ChangesExactlyItsBits) {
    constexpr ub8 nbits = 88;
    for (const bitvec_family &f : bitvec_families())
        for (guard side : {guard::behind, guard::before})
            for (bool set : {true, false})
                for (ub8 first = 0; first < nbits; first++)
                    for (ub8 last = first; last < nbits; last++) {
                        const guarded v(nbits / 8, side, 0x96);
                        (set ? f.set_range : f.clr_range)(v.data(), first, last);
                        for (ub8 r = 0; r < nbits; r++)
                            ASSERT_EQ(bit_at(v.data(), r), r >= first && r <= last ? set : 0x96 >> r % 8 & 1)
                                << f.name << " " << first << " " << last << " " << r;
                    }
    const guarded v(5000, guard::behind, 0);
    bitvec_families()[1].set_range(v.data(), 13, 39999);
    ub4 count = 0;
    EXPECT_EQ(bitvec_families()[1].popcnt(&count, v.data(), 40000), 39987u);
}

} // namespace
} // namespace tavo::test
