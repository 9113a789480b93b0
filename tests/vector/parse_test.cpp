// Vector text: both character sets and all types against the model, the C library's reading, room, shapes, bad rows.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdlib>

#include "frame/tavo.h"
#include "tests/kit/guarded.h"
#include "tests/vector/text_model.h"
#include "tests/vector/vectors.h"

namespace tavo::test {
namespace {

const tavo_specialized_ctx &lib = tavo_global_specialized_ctx;
constexpr ub4 types[] = {TAVO_ELEM_FLOAT, TAVO_ELEM_DOUBLE, TAVO_ELEM_INT8};

// Rows of text as a host hands them over, each of which ends at an unreadable page.
struct text_column {
    text_column(const std::vector<std::u16string> &texts, bool utf16) {
        enc.flags = TAVO_LP_SEP;
        enc.vec_charset = utf16;
        for (const std::u16string &text : texts) {
            std::vector<ub1> bytes;
            for (const char16_t unit : text) {
                if (utf16)
                    bytes.push_back(static_cast<ub1>(unit >> 8));
                bytes.push_back(static_cast<ub1>(unit));
            }
            lengths.push_back(static_cast<ub2>(bytes.size()));
            memory.emplace_back(bytes);
            pointers.push_back(memory.back().data());
        }
        vec.data = pointers.data(), vec.lengths = lengths.data(), vec.enc = &enc;
        vec.size = static_cast<ub4>(texts.size());
    }
    text_column(const text_column &) = delete;
    tavo_enc_ctx enc{};
    tavo_vec vec{};
    std::vector<guarded> memory;
    std::vector<void *> pointers;
    std::vector<ub2> lengths;
};

struct parse_result {
    ub4 status, parsed_rows;
    std::vector<ub1> bytes; // all of the output
    std::vector<double> norms;
    std::vector<ub2> lengths;
    std::vector<ub8> bad;
};
constexpr double no_norm = -7.5;

parse_result run(text_column &text, ub4 type, bool native, ub4 dims, ub4 room, bool norms, bool keep_bad) {
    const ub4 rows = text.vec.size;
    parse_result out{0, 0, {}, std::vector<double>(rows, no_norm), std::vector<ub2>(rows, 0xabcd), {}};
    out.bad.assign(rows / 64 + 1, 0);
    const guarded memory(static_cast<std::size_t>(room) * element_bytes(type));
    tavo_enc_ctx enc{};
    enc.value_type = static_cast<ub1>(type), enc.vec_dims = dims, enc.flags = native ? TAVO_NATIVE : 0;
    tavo_vec res{}, norm_vec{};
    res.data = memory.data(), res.size = room, res.enc = &enc, res.lengths = out.lengths.data();
    norm_vec.data = out.norms.data();
    tavo_env env{};
    env.parsed_rows = 0xdead;
    out.status =
        lib.vector_parse(&res, norms ? &norm_vec : nullptr, &text.vec, keep_bad ? out.bad.data() : nullptr, &env);
    out.parsed_rows = env.parsed_rows;
    out.bytes.assign(memory.data(), memory.data() + memory.size());
    return out;
}

std::string shown(const std::u16string &text) {
    std::string s;
    for (const char16_t unit : text)
        s += unit < 128 ? static_cast<char>(unit) : '?';
    return s;
}

void hold(const std::vector<std::u16string> &texts, bool utf16, ub4 type, bool native, ub4 dims, ub4 room, bool norms,
          bool keep_bad) {
    text_column column(texts, utf16);
    const parse_result got = run(column, type, native, dims, room, norms, keep_bad);
    ub4 status = TAVO_DONE, good = 0;
    std::vector<ub8> elements, bad(texts.size() / 64 + 1);
    std::vector<double> norm(texts.size(), no_norm);
    std::vector<ub2> lengths(texts.size(), 0xabcd);
    bool reports = true; // parsed_rows
    for (std::size_t r = 0; r < texts.size(); r++) {
        const parsed_row row = text_model(texts[r], type, dims, room - elements.size());
        if (row.status == TAVO_DONE) {
            if (norms && !std::isfinite(row.squares)) {
                status = TAVO_OUT_OF_RANGE;
                reports = false;
                break;
            }
            if (norms)
                norm[r] = std::sqrt(row.squares);
            if (dims == 0)
                lengths[r] = static_cast<ub2>(row.values.size());
            for (const double v : row.values)
                elements.push_back(type == TAVO_ELEM_INT8 && std::isnan(v) ? 0 : bits_of(type, v));
            good++;
        } else if (keep_bad && row.status != TAVO_TEXT_FULL) {
            bad[r / 64] |= 1ull << r % 64;
        } else {
            status = row.status;
            break;
        }
    }
    std::string what = std::string(utf16 ? "utf16" : "ascii") + ", type " + std::to_string(type) + ", dims " +
                       std::to_string(dims) + ", room " + std::to_string(room);
    for (const std::u16string &text : texts)
        if (texts.size() < 4)
            what += "\n" + shown(text);
    ASSERT_EQ(got.status, status) << what;
    ASSERT_EQ(got.parsed_rows, reports ? good : 0xdead) << what;
    std::vector<ub1> bytes;
    write_payload(bytes, {type, static_cast<ub4>(elements.size()), elements, {}}, {type, !native, false}, 0);
    for (std::size_t i = 0; i < bytes.size(); i++)
        ASSERT_EQ(got.bytes[i], bytes[i]) << what << ": byte " << i;
    for (std::size_t r = 0; r < texts.size(); r++)
        ASSERT_EQ(std::bit_cast<ub8>(got.norms[r]), std::bit_cast<ub8>(norm[r])) << what << ": norm of row " << r;
    ASSERT_EQ(got.lengths, lengths) << what;
    ASSERT_EQ(got.bad, bad) << what;
}

std::u16string wide(const std::string &s) { return {s.begin(), s.end()}; }

// A number as programs print them, or as hardly any does.
std::string random_number(ub4 type, std::mt19937_64 &rng) {
    char s[64];
    const double v = std::normal_distribution<>(0, 1)(rng);
    const auto digits = [&](unsigned n) {
        std::string d;
        for (unsigned i = 0; i < n; i++)
            d += static_cast<char>('0' + rng() % 10);
        return d;
    };
    static const char *const signs[] = {"", "", "-", "+"};
    if (type == TAVO_ELEM_INT8 && rng() % 3 != 0) {
        std::snprintf(s, sizeof s, rng() % 2 ? "%.0f" : "%.4f", v * 40);
        return s;
    }
    switch (rng() % 10) {
    case 0: std::snprintf(s, sizeof s, "%.2f", v); return s;
    case 1: std::snprintf(s, sizeof s, "%.4f", v); return s;
    case 2: std::snprintf(s, sizeof s, "%.8f", v); return s;
    case 3: std::snprintf(s, sizeof s, "%.17g", v); return s;
    case 4: std::snprintf(s, sizeof s, "%.6e", v); return s;
    case 5: std::snprintf(s, sizeof s, "%d", static_cast<int>(rng() % 200) - 100); return s;
    case 6: return signs[rng() % 4] + digits(rng() % 4) + "." + digits(1 + rng() % 5);
    case 7: return signs[rng() % 4] + digits(1 + rng() % 12) + "." + digits(rng() % 30);
    case 8: return signs[rng() % 4] + digits(1 + rng() % 3) + (rng() % 2 ? "e" : "E") + signs[rng() % 4] + digits(1);
    default: return signs[rng() % 4] + digits(1 + rng() % (rng() % 20 ? 7 : 90));
    }
}

std::string blanks(std::mt19937_64 &rng, unsigned often) {
    return rng() % often == 0 ? std::string(1 + rng() % (rng() % 8 ? 3 : 90), ' ') : "";
}

std::u16string random_text(ub4 type, ub4 dims, std::mt19937_64 &rng) {
    const bool plain = rng() % 2, closings = rng() % 16 == 0;
    std::string s = blanks(rng, 8) + "[";
    for (ub4 i = 0; i < dims; i++) {
        if (i != 0)
            s += closings && rng() % 3 == 0 ? "]" : ",";
        s += (plain ? i != 0 ? " " : "" : blanks(rng, 4)) + random_number(type, rng) + (plain ? "" : blanks(rng, 8));
    }
    return wide(s + "]" + blanks(rng, 8));
}

// A unit changed, lost, doubled, put in, or the end cut off.
void damage(std::u16string &text, bool utf16, std::mt19937_64 &rng) {
    static const std::u16string units = u"0123456789+-.eE,[] \tx:/'\0nN"
                                        u"\u00ff\u3100\u2d31\u002c";
    if (text.empty())
        return;
    const std::size_t at = rng() % text.size();
    const char16_t unit = utf16 && rng() % 4 == 0 ? static_cast<char16_t>(text[at] << 8 | (rng() % 2 ? '1' : 0))
                                                  : units[rng() % units.size()];
    switch (rng() % 5) {
    case 0: text[at] = utf16 ? unit : unit & 0xff; break;
    case 1: text.erase(at, 1); break;
    case 2: text.insert(at, 1, text[at]); break;
    case 3: text.insert(at, 1, utf16 ? unit : unit & 0xff); break;
    default: text.erase(at);
    }
}

TEST(VectorParse, AgreesWithTheModel) {
    std::mt19937_64 rng(96);
    for (int round = 0; round < 1500; round++) {
        const ub4 type = types[rng() % 3], dims = static_cast<ub4>(rng() % (rng() % 4 ? 12 : 200)) + 1;
        const bool utf16 = rng() % 2, free = rng() % 3 == 0;
        std::vector<std::u16string> texts(1 + rng() % 5);
        ub8 total = 0;
        for (std::u16string &text : texts) {
            text = random_text(type, free || rng() % 8 == 0 ? 1 + rng() % (2 * dims) : dims, rng);
            while (rng() % 3 == 0)
                damage(text, utf16, rng);
            total += 2 * dims;
        }
        const ub4 room = static_cast<ub4>(rng() % 4 ? total : rng() % (total + 1));
        ASSERT_NO_FATAL_FAILURE(hold(texts, utf16, type, rng() % 2, free ? 0 : dims, room, rng() % 2, rng() % 4 != 0));
    }
}

// Every text of a few units over the alphabet of the grammar: what is taken and what is refused, and why.
TEST(VectorParse, EveryShortText) {
    const std::u16string alphabet = u"1.,]+eE -";
    std::vector<std::u16string> texts;
    for (ub4 number = 0; number < 9 * 9 * 9 * 9 * 9; number++) {
        std::u16string text = u"[";
        ub4 rest = number;
        for (int i = 0; i < 5; i++, rest /= 9)
            text += alphabet[rest % 9];
        if (number % 3 == 0) // one of the same with a long element before it
            text = u"[0.12345678," + text.substr(1);
        texts.push_back(text + (number % 2 ? u"]" : u""));
    }
    for (std::size_t from = 0; from < texts.size(); from += 640) {
        const std::vector<std::u16string> part(texts.begin() + from,
                                               texts.begin() + std::min(from + 640, texts.size()));
        ASSERT_NO_FATAL_FAILURE(hold(part, from / 640 % 2, TAVO_ELEM_FLOAT, true, from / 1280 % 3, 10000, false, true));
    }
    for (std::size_t i = 0; i < texts.size(); i += 7) { // the status itself
        const std::vector<std::u16string> one{texts[i]};
        ASSERT_NO_FATAL_FAILURE(hold(one, i % 2, TAVO_ELEM_DOUBLE, true, i % 3, 100, true, false));
    }
}

double parse_one(const std::string &number) {
    std::u16string text = u"[";
    text += wide(number);
    text += u"]";
    text_column column({text}, false);
    const parse_result got = run(column, TAVO_ELEM_DOUBLE, true, 1, 1, false, false);
    EXPECT_EQ(got.status, 0u) << number;
    double v;
    std::memcpy(&v, got.bytes.data(), 8);
    return v;
}

// Whole numbers below 2^53 are read exactly, others to within one rounding a digit and those of the exponent.
TEST(VectorParse, IsNearTheCLibrarysReading) {
    std::mt19937_64 rng(7);
    for (int i = 0; i < 20000; i++) {
        const std::string whole = std::to_string(rng() >> (11 + rng() % 50));
        ASSERT_EQ(parse_one(whole), std::strtod(whole.c_str(), nullptr)) << whole;
        ASSERT_EQ(parse_one(std::string(1, '-').append(whole).append(".000")), -std::strtod(whole.c_str(), nullptr))
            << whole;
        const std::string number = random_number(TAVO_ELEM_DOUBLE, rng);
        const double v = parse_one(number), want = std::strtod(number.c_str(), nullptr);
        const double roundings = static_cast<double>(number.size()) + 4;
        ASSERT_LE(std::fabs(v - want), std::fabs(want) * roundings * 0x1p-53) << number;
    }
    // As float, numbers of up to 8 digits in the shape that embeddings are printed in are read as strtof reads them.
    for (int i = 0; i < 100000; i++) {
        char s[32];
        const double value = std::normal_distribution<>(0, 1)(rng);
        std::snprintf(s, sizeof s, "%.*f", static_cast<int>(rng() % 8) + 1, value);
        ASSERT_EQ(static_cast<float>(text_value(wide(s[0] == '-' ? s + 1 : s), std::strlen(s))),
                  std::strtof(s[0] == '-' ? s + 1 : s, nullptr))
            << s;
    }
}

struct example {
    const char *text;
    ub4 type, dims, status;
    std::vector<double> values;
};

TEST(VectorParse, StatedExamples) {
    const ub4 F = TAVO_ELEM_FLOAT, D = TAVO_ELEM_DOUBLE, I = TAVO_ELEM_INT8;
    const example examples[] = {
        {"[]", F, 0, 21, {}},
        {"[1,2", F, 0, 22, {}},
        {"[", F, 0, 21, {}},
        {"", F, 0, 22, {}},
        {"1", F, 0, 22, {}},
        {" [1, 2 ] ", F, 0, 0, {1, 2}},
        {"[1.5, -2e3, 7]", F, 3, 0, {1.5, -2000, 7}},
        {"[1 2]", F, 0, 21, {}},
        {"[+.5e+1]", F, 0, 0, {5}},
        {"[.]", F, 0, 21, {}},
        {"[1e]", F, 0, 21, {}},
        {"[1,2]x", F, 0, 22, {}},
        {"[1,2,3,4]", F, 3, 22, {}},
        {"[1,2]3]", F, 3, 0, {1, 2, 3}},
        {"[1,2]", F, 3, 21, {}},
        {"\t[1]", F, 0, 22, {}},
        {"[127.4]", I, 0, 21, {}},
        {"[127,-128,2.5,-2.5,0.4999999]", I, 0, 0, {127, -128, 3, -3, 0}},
        {"[-128.0000001]", I, 0, 0, {-128}},
        {"[0e400]", I, 0, 0, {0}}, // a NaN that no range leaves out
        {"[1e39]", F, 0, 21, {}},
        {"[1e39]", D, 0, 0, {1e39}},
        {"[1e-400]", D, 0, 0, {0}},
        {"[1e400]", D, 0, 21, {}},
        {"[0e400]", D, 0, 21, {}},         // 0 * infinity
        {"[1e4294967296]", D, 0, 0, {1}},  // wraps to 0
        {"[1e-2147483648]", D, 0, 0, {0}}, // stays the smallest
        {"[0.3]", D, 0, 0, {3 * 0.1}},     // short: a product
        {"[0.30000]", D, 0, 0, {3 * 0.1}}, // of 7 units still
        {"[0.300000]", D, 0, 0, {0.3}},    // 8 units: a quotient
        {"[     0.3]", D, 0, 0, {0.3}},    // and blanks are units
        {"[-0]", D, 0, 0, {-0.0}},
    };
    for (const example &e : examples)
        for (const bool utf16 : {false, true}) {
            text_column column({wide(e.text)}, utf16);
            const parse_result got = run(column, e.type, true, e.dims, 8, false, false);
            ASSERT_EQ(got.status, e.status) << e.text;
            ASSERT_EQ(got.parsed_rows, e.status == 0) << e.text;
            for (std::size_t i = 0; i < e.values.size(); i++) {
                ub8 due = bits_of(e.type, e.values[i]), is = 0;
                std::memcpy(&is, got.bytes.data() + i * element_bytes(e.type), element_bytes(e.type));
                ASSERT_EQ(is, due) << e.text;
            }
        }
}

TEST(VectorParse, NormsBeyondDoubleEndTheCall) {
    for (const bool keep_bad : {false, true})
        for (const auto &[text, type] : {std::pair("[1e200]", TAVO_ELEM_DOUBLE), {"[0e400]", TAVO_ELEM_INT8}}) {
            text_column column({wide("[1]"), wide(text), wide("[1]")}, false);
            const parse_result got = run(column, type, true, 1, 8, true, keep_bad);
            EXPECT_EQ(got.status, TAVO_OUT_OF_RANGE) << text;
            EXPECT_EQ(got.norms[0], 1.0) << text;
            EXPECT_EQ(got.norms[2], no_norm) << text;
            EXPECT_EQ(got.bad[0], 0u) << text;
        }
}

TEST(VectorParse, OneRowWithoutPointers) {
    tavo_enc_ctx enc{}, text_enc{};
    tavo_vec res{}, text{}, norms{};
    tavo_env env{};
    double out[3] = {}, norm = 0;
    enc.value_type = TAVO_ELEM_DOUBLE, enc.vec_dims = 2, enc.flags = TAVO_NATIVE;
    res.data = out, res.size = 2, res.enc = &enc;
    const std::string bytes = "[3,-4]behind";
    text.data = const_cast<char *>(bytes.data()), text.byte_size = 6, text.size = 99, text.enc = &text_enc;
    norms.data = &norm;
    EXPECT_EQ(lib.vector_parse(&res, &norms, &text, nullptr, &env), 0u);
    EXPECT_EQ(out[0], 3);
    EXPECT_EQ(out[1], -4);
    EXPECT_EQ(norm, 5);
    EXPECT_EQ(env.parsed_rows, 1u);
    const std::u16string wide_text = u"[3,4]";
    std::string big_endian;
    for (const char16_t unit : wide_text)
        big_endian += {'\0', static_cast<char>(unit)};
    text.data = big_endian.data(), text.byte_size = 11, text_enc.vec_charset = 1; // half a unit is none
    EXPECT_EQ(lib.vector_parse(&res, nullptr, &text, nullptr, &env), 0u);
    EXPECT_EQ(out[1], 4);

    // Refused before anything is read.
    text.data = nullptr;
    env.parsed_rows = 5;
    text_enc.vec_charset = 2;
    EXPECT_EQ(lib.vector_parse(&res, nullptr, &text, nullptr, &env), TAVO_UNSUPPORTED);
    text_enc.vec_charset = 0;
    for (const ub4 type : {0u, 3u, 4u, 6u, 7u, 8u}) {
        enc.value_type = static_cast<ub1>(type);
        EXPECT_EQ(lib.vector_parse(&res, nullptr, &text, nullptr, &env), TAVO_UNSUPPORTED);
    }
    enc.value_type = TAVO_ELEM_FLOAT, enc.vec_dims = 0;
    EXPECT_EQ(lib.vector_parse(&res, nullptr, &text, nullptr, &env), TAVO_UNSUPPORTED);
    EXPECT_EQ(env.parsed_rows, 5u);
}

} // namespace
} // namespace tavo::test
