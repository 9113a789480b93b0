// Vectors as the host writes them: elements against their definition and their neighbours,
// layouts against bytes spelled out, and everything read back.
#include <algorithm>
#include <bit>
#include <cmath>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <random>
#include <sstream>

#include "host/error.h"
#include "host/vector/vector_column.h"
#include "host/vector/word_search.h"
#include "host/vector/word_vectors.h"

namespace {

using namespace host;
using enum element_type;

// IEEE 754's own formula; a bfloat16 is the upper half of a float.
double by_definition(element_type type, ub2 bits) {
    if (type == bfloat16)
        return std::bit_cast<float>(static_cast<ub4>(bits) << 16);
    const int exponent = bits >> 10 & 31, fraction = bits & 1023;
    const double size = exponent == 31  ? (fraction == 0 ? HUGE_VAL : std::nan(""))
                        : exponent == 0 ? std::ldexp(fraction, -24)
                                        : std::ldexp(1024 + fraction, exponent - 25);
    return (bits & 0x8000) != 0 ? -size : size;
}

TEST(VectorElement, SixteenBits) {
    for (const element_type type : {float16, bfloat16}) {
        const ub4 infinity = type == float16 ? 0x7c00 : 0x7f80;
        for (ub4 bits = 0; bits < 0x10000; bits++) {
            const double value = element_value(type, bits), expected = by_definition(type, static_cast<ub2>(bits));
            if ((bits & 0x7fff) > infinity) {
                ASSERT_TRUE(std::isnan(value) && std::isnan(expected)) << bits;
                ASSERT_TRUE(std::isnan(element_value(type, element_bits(type, value).value())));
                continue;
            }
            ASSERT_EQ(value, expected) << bits;
            ASSERT_EQ(element_bits(type, value), bits);
            if ((bits & 0x7fff) >= infinity - 1)
                continue;
            // Half way to the next: the even one of the two; a little to either side: the nearer one.
            const double half = (value + element_value(type, bits + 1)) / 2;
            ASSERT_EQ(element_bits(type, half), bits + bits % 2) << bits;
            ASSERT_EQ(element_bits(type, std::nextafter(half, value)), bits);
            ASSERT_EQ(element_bits(type, std::nextafter(half, 2 * half - value)), bits + 1);
        }
        const double largest = kind_of(type).largest;
        const double beyond = largest + (largest - element_value(type, infinity - 2)) / 2;
        EXPECT_EQ(element_value(type, infinity - 1), largest);
        EXPECT_EQ(element_bits(type, std::nextafter(beyond, 0)), infinity - 1);
        for (const double out : {beyond, -beyond, 1e300, -0x1p128})
            EXPECT_EQ(element_bits(type, out), std::nullopt) << out;
        EXPECT_EQ(element_bits(type, -INFINITY), 0x8000u | infinity);
        EXPECT_EQ(element_bits(type, 5e-324), 0u);
    }
}

TEST(VectorElement, OtherTypesRoundToEvenAndKnowTheirRange) {
    EXPECT_EQ(element_bits(float_, 0x1.0000010p0), std::bit_cast<ub4>(1.0f)); // half way: even
    EXPECT_EQ(element_bits(float_, 0x1.0000030p0), std::bit_cast<ub4>(0x1.000004p0f));
    EXPECT_EQ(element_bits(float_, 0x1.fffffefp127), std::bit_cast<ub4>(0x1.fffffep127f));
    EXPECT_EQ(element_bits(float_, 0x1.ffffffp127), std::nullopt);
    for (const auto &[value, expected] :
         {std::pair(0.5, 0), {1.5, 2}, {2.5, 2}, {-2.5, -2}, {127.4, 127}, {-128.5, -128}, {-0.4, 0}})
        EXPECT_EQ(element_value(int8, element_bits(int8, value).value()), expected) << value;
    for (const double out : {127.5, -129.0, std::nan(""), -HUGE_VAL})
        EXPECT_EQ(element_bits(int8, out), std::nullopt) << out;
    for (const double out : {0.5, -1.0, 2.0, std::nan("")})
        EXPECT_EQ(element_bits(element_type::bits, out), std::nullopt) << out;
}

TEST(VectorElement, ComparableFormOrdersAsNumbersDo) {
    for (const element_kind &kind : element_kinds) {
        if (!kind.has_comparable)
            continue;
        std::mt19937_64 random(7);
        std::vector<double> values{0.0, 1.0, -1.0, INFINITY, -INFINITY, kind.largest, -kind.largest, 0x1p-24, -0x1p-24};
        for (int i = 0; i < 5000; i++)
            if (const double v = element_value(kind.type, random()); !std::isnan(v))
                values.push_back(v);
        std::sort(values.begin(), values.end());
        ub8 before = 0;
        for (std::size_t i = 0; i < values.size(); i++) {
            const ub8 native = element_bits(kind.type, values[i]).value();
            const ub8 comparable = comparable_bits(kind.type, native);
            ASSERT_TRUE(i == 0 || (values[i] == values[i - 1] ? comparable == before : comparable > before))
                << kind.name << " " << values[i];
            ASSERT_EQ(element_value(kind.type, native_bits(kind.type, comparable)), values[i]);
            before = comparable;
        }
        // Every NaN is one, above all numbers; there is no zero below zero.
        const ub8 top = ub8{1} << (kind.width - 1);
        const ub8 nan = comparable_bits(kind.type, element_bits(kind.type, NAN).value());
        EXPECT_GT(nan, before);
        EXPECT_EQ(comparable_bits(kind.type, 2 * top - 1), nan);
        EXPECT_EQ(comparable_bits(kind.type, top), top);
    }
    EXPECT_EQ(comparable_bits(float_, std::bit_cast<ub4>(-NAN)), 0xffc00000u);
    EXPECT_EQ(comparable_bits(double_, std::bit_cast<ub8>(std::nan(""))), 0xfff8000000000000u);
}

std::vector<ub1> image(const vector_form &form, std::vector<double> values) {
    std::vector<ub1> bytes;
    append_image(bytes, form, values);
    return bytes;
}
std::vector<ub1> head(ub1 flags, ub1 type, ub1 dims, const std::vector<ub1> &data) {
    std::vector<ub1> bytes{219, 0, 0, flags, type, 0, 0, 0, dims, 0, 0, 0, 0, 0, 0, 0, 0};
    std::copy(data.begin(), data.end(), std::back_inserter(bytes));
    return bytes;
}

TEST(VectorImage, Bytes) {
    EXPECT_EQ(image({float_}, {1, -2}), head(0x0a, 2, 2, {0, 0, 0, 0, 0, 0, 0, 0, 0, 0x80, 0x3f, 0, 0, 0, 0xc0}));
    EXPECT_EQ(image({float_, true}, {1, -2}), head(0x02, 2, 2, {0xbf, 0x80, 0, 0, 0x3f, 0xff, 0xff, 0xff}));
    // 17 + 2 + 2 * 4 = 27: the values of a native sparse vector begin at 32.
    EXPECT_EQ(image({float16, false, true}, {0, 1, 0, -2}),
              head(0x2a, 1, 4, {0, 2, 0, 0, 0, 1, 0, 0, 0, 3, 0, 0, 0, 0, 0, 0, 0x3c, 0, 0xc0}));
    EXPECT_EQ(image({bfloat16, true, true}, {0, 1, 0}), head(0x22, 6, 3, {0, 1, 0, 0, 0, 1, 0xbf, 0x80}));
    EXPECT_EQ(image({int8, true}, {-1, 5}), head(0x0a, 4, 2, {0xff, 5}));
    EXPECT_EQ(image({bits}, {1, 0, 0, 0, 0, 0, 1, 0, 1}), head(0x0a, 5, 9, {0x82, 0x80}));
    EXPECT_EQ(image({bits, false, true}, {0, 1, 0}), head(0x2a, 5, 3, {0, 1, 0, 0, 0, 1}));
    EXPECT_EQ(image({double_, true, true}, {0, 0}), head(0x22, 3, 2, {0, 0}));
}

TEST(VectorColumn, EveryFormIsReadBack) {
    std::mt19937_64 random(1);
    for (const element_kind &kind : element_kinds)
        for (const bool comparable : {false, true})
            for (const bool sparse : {false, true}) {
                const vector_form form{kind.type, comparable, sparse};
                vector_column flexible;
                std::vector<std::vector<double>> rows;
                for (const std::size_t dims : {0, 1, 7, 8, 9, 64, 100, 513}) {
                    vector_column uniform(form, static_cast<ub4>(dims));
                    for (int i = 0; i < 3; i++) {
                        std::vector<double> values(dims);
                        for (double &v : values)
                            v = kind.type == bits  ? static_cast<double>(random() % 2)
                                : random() % 3 < 1 ? 0
                                                   : static_cast<double>(static_cast<int>(random() % 255) - 127);
                        uniform.add(values);
                        flexible.add_image(form, values);
                        rows.push_back(values);
                        std::vector<double> read{99};
                        uniform.read(static_cast<ub4>(i), read);
                        ASSERT_EQ(read, values) << form.kernel_word() << " " << dims;
                    }
                    EXPECT_THROW(uniform.add(std::vector<double>(dims + 1)), error);
                }
                for (std::size_t i = 0; i < rows.size(); i++) {
                    std::vector<double> read;
                    flexible.read(static_cast<ub4>(i), read);
                    ASSERT_EQ(read, rows[i]) << form.kernel_word();
                    ASSERT_EQ(reinterpret_cast<std::uintptr_t>(flexible.row_begin(static_cast<ub4>(i))) % 8, 0u);
                }
            }
}

TEST(VectorColumn, ARefusedRowLeavesItAsItWas) {
    vector_column column({float16}, 2);
    column.add(std::vector<double>{1, 2});
    try {
        column.add(std::vector<double>{1, 65520});
        FAIL() << "65520 went into a float16";
    } catch (const error &e) {
        EXPECT_STREQ(e.what(), "element 2, 65520, is no value of float16, which ends at 65504");
    }
    column.add(std::vector<double>{3, 4});
    ASSERT_EQ(column.rows(), 2u);
    EXPECT_EQ(column.bytes(), 8u);
    std::vector<double> values;
    column.read(1, values);
    EXPECT_EQ(values, (std::vector<double>{3, 4}));
}

TEST(VectorImage, DamagedOnesAreRefused) {
    const std::vector<ub1> good = image({float_, false, true}, {0, 1, 0, 2});
    const auto refused = [](std::vector<ub1> bytes, const char *why) {
        std::vector<double> values;
        try {
            read_image(bytes.data(), bytes.data() + bytes.size(), values);
            ADD_FAILURE() << "read, although " << why;
        } catch (const error &e) {
            EXPECT_NE(std::string(e.what()).find(why), std::string::npos) << e.what();
        }
    };
    const auto changed = [&](std::size_t at, ub1 byte) {
        std::vector<ub1> bytes = good;
        bytes[at] = byte;
        return bytes;
    };
    refused(changed(0, 218), "begins with 218");
    refused(changed(1, 4), "version is 4");
    refused(changed(3, 0x28), "format marks");
    refused(changed(4, 7), "element type 7");
    refused(changed(8, 3), "dimension 3 of 3"); // dimensions
    refused(changed(22, 3), "do not ascend");   // first listed dimension
    refused(changed(18, 3), "ends");            // listed elements
    for (std::size_t size = 0; size < good.size(); size++)
        refused(std::vector<ub1>(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(size)), "early");
    refused(changed(5, 1), "more than");

    // Whatever the bytes are: read within their end, or refused. (For the sanitizers.)
    std::mt19937_64 random(5);
    for (int i = 0; i < 1500; i++) {
        std::vector<ub1> bytes = image({element_kinds[i % 6].type, i % 4 < 2, i % 3 == 0}, {0, 1, 0, 1, 1});
        for (unsigned j = random() % 4; j > 0; j--)
            bytes[random() % bytes.size()] = static_cast<ub1>(random());
        std::vector<double> values;
        try {
            read_image(bytes.data(), bytes.data() + bytes.size(), values);
            EXPECT_LE(values.size(), 1u << 24);
        } catch (const error &) {
        }
    }
}

TEST(VectorText, Parsed) {
    EXPECT_EQ(parse_vector(" [1, -2e3 ,+.5,\t7. ] ", 4), (std::vector<double>{1, -2000, 0.5, 7}));
    for (const char *bad : {"", "1]", "[", "[]", "[1,]", "[1 2]", "[1,2", "[1,2]3", "[1,x]", "[inf,1]", "[nan,1]",
                            "[1e999,1]", "[+-1,2]", "[1]", "[1,2,3]"})
        EXPECT_THROW(parse_vector(bad, 2), error) << bad;
}

TEST(WordVectors, TheSample) {
    const word_vectors words(TAVO_DATA "/words-10k.vectors");
    ASSERT_EQ(words.rows(), 10000u);
    ASSERT_EQ(words.dims(), 100u);
    EXPECT_EQ(words.type(), float16);
    EXPECT_EQ(words.row_of("the"), 0u);
    EXPECT_EQ(words.words().back(), "deceased");
    std::vector<double> values;
    words.read(0, values);
    EXPECT_EQ(values[0], element_value(float16, element_bits(float16, -0.038194).value()));
    EXPECT_EQ(values[99], element_value(float16, element_bits(float16, 0.27062).value()));
}

TEST(WordVectors, DamagedFiles) {
    std::ostringstream text;
    text << std::ifstream(TAVO_DATA "/words-10k.vectors", std::ios::binary).rdbuf();
    const std::string good = text.str();
    const auto refused = [](std::string content) {
        try {
            word_vectors words("some.vectors", std::move(content));
            return std::string("read");
        } catch (const error &e) {
            return std::string(e.what());
        }
    };
    std::mt19937_64 random(3);
    for (int i = 0; i < 40; i++) {
        std::string bad = good;
        const std::size_t at = i < 32 ? static_cast<std::size_t>(i) : random() % good.size();
        bad[at] = static_cast<char>(bad[at] ^ 1 << random() % 8);
        EXPECT_TRUE(refused(bad).starts_with("some.vectors: ")) << at << ": " << refused(bad);
    }
    for (const std::size_t size : {std::size_t{0}, std::size_t{7}, std::size_t{35}, good.size() / 2, good.size() - 1})
        EXPECT_TRUE(refused(good.substr(0, size)).starts_with("some.vectors: ")) << size;
    EXPECT_EQ(refused(good + "x"), "some.vectors: the file is damaged: there is something behind its vectors");
    std::string flipped = good;
    flipped[good.size() / 2] ^= 1;
    EXPECT_EQ(refused(flipped), "some.vectors: the file is damaged: its checksum is another than that of its content");
}

} // namespace
