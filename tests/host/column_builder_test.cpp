// Dictionaries and codes against the obvious way: all texts in a set that is ordered by the plain comparison.
#include "host/column/column_builder.h"

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <random>
#include <set>

#include "host/error.h"
#include "host/query/recompute.h"

namespace {

using host::value_type;

std::vector<std::string> symbols_of(const host::dictionary &dict) {
    std::vector<std::string> symbols;
    for (ub8 code = 0; code < dict.end_code(); code++)
        symbols.push_back(dict.symbols()[code]);
    return symbols;
}

// A column of these values, an empty one being null; `many` as the builder takes it.
host::column_builder::result build(const host::csv_file &file, ub4 many) {
    host::column_builder builder("v", {file.text(), file.delimiter()}, {}, many);
    std::string made;
    file.records([&](const std::vector<host::csv_field> &fields, const host::csv_reader &reader) {
        if (fields[0].value(made).empty())
            builder.add_null();
        else
            builder.add(fields[0], reader.line());
    });
    return builder.finish();
}

void expect_right(const std::vector<std::string> &values, value_type type, const std::string &what) {
    std::string text = "v,w\n";
    for (const std::string &value : values) {
        if (value.size() % 3 == 1 && value.find('"') == std::string::npos)
            text += '"' + value + '"'; // quotes that nothing needs
        else
            host::append_csv(text, value);
        text += ",x\n";
    }
    const host::csv_file file("t.csv", text);
    const auto before = [type](const std::string &a, const std::string &b) {
        const int order = host::compare_values(type, a, b);
        return order != 0 ? order < 0 : a < b;
    };
    std::set<std::string, decltype(before)> set(before);
    bool has_null = false;
    for (const std::string &value : values)
        if (value.empty())
            has_null = true;
        else
            set.insert(value);
    std::vector<std::string> expected(set.begin(), set.end());
    if (has_null)
        expected.insert(expected.begin(), "");
    for (const ub4 many : {16u, 1u << 30}) { // by their places, and by a table of texts
        const host::column_builder::result built = build(file, many);
        EXPECT_EQ(built.dict.type(), type) << what;
        EXPECT_EQ(built.dict.has_null(), has_null) << what;
        ASSERT_EQ(symbols_of(built.dict), expected) << what << ", many " << many;
        ASSERT_EQ(built.codes.size(), values.size()) << what;
        for (std::size_t row = 0; row < values.size(); row++)
            ASSERT_EQ(expected[built.codes[row]], values[row]) << what << ", row " << row << ", many " << many;
    }
}

TEST(ColumnBuilder, AnyValues) {
    std::mt19937_64 rng(7);
    const std::string shared(300, 'p');
    for (const std::size_t rows : {1, 17, 300, 5000, 60000})
        for (unsigned kind = 0; kind < 8; kind++) {
            value_type type = value_type::text;
            std::vector<std::string> values;
            for (std::size_t row = 0; row < rows; row++) {
                const ub8 r = rng();
                const ub8 narrow = r % (rows / 2 + 1);
                switch (kind) {
                case 0: // integers in several spellings, with negative ones
                    type = value_type::integer;
                    values.push_back(fmt::format("{}{}{}", r % 5 == 0 ? "-" : "", r % 7 == 0 ? "0" : "", narrow));
                    break;
                case 1: // long numbers that differ behind the fourteenth digit
                    type = value_type::integer;
                    values.push_back(fmt::format("12345678901234567890{}", r % 3 == 0 ? narrow : r));
                    break;
                case 2:
                    type = value_type::decimal;
                    values.push_back(row == 0 ? "1.5" : fmt::format("{}e{}", narrow, static_cast<int>(r % 9) - 4));
                    break;
                case 3:
                    type = value_type::date_time;
                    values.push_back(fmt::format("20{:02}-{:02}-{:02}T{:02}:{:02}{}", r % 30, 1 + r / 64 % 12,
                                                 1 + r / 4096 % 28, r / 65536 % 24, r / 1048576 % 60,
                                                 r % 3 == 0   ? "Z"
                                                 : r % 3 == 1 ? "+01:00"
                                                              : ""));
                    break;
                case 4: values.push_back(fmt::format("{}{}", static_cast<char>('a' + r % 26), narrow)); break;
                case 5: // a long common beginning, and texts of which one begins another
                    values.push_back(shared.substr(0, r % 2 == 0 ? 300 : r / 2 % 300) + fmt::format("{}", r % 1000));
                    break;
                case 6: // zero bytes, quotes, separators
                    values.push_back("q");
                    for (ub8 i = 0; i < r % 12; i++)
                        values.back() += std::string("\0\0\"a,;", 6)[rng() % 6];
                    break;
                default: // mostly one value
                    values.push_back(r % 10 != 0 ? "same" : fmt::format("other {}", r));
                }
                if (kind % 2 == 0 && r / 3 % 50 == 0 && row > 0)
                    values.back() = "";
            }
            expect_right(values, type, fmt::format("{} rows, kind {}", rows, kind));
        }
}

TEST(ColumnBuilder, BadValuesAndLimits) {
    const host::csv_file file("t.csv", "v\n1\nN/A\n2\nN/A\n2.5\n" + std::string(65536, 'x') + "\n");
    host::column_builder builder("v", {file.text(), ','}, host::found_type(value_type::integer), 2);
    std::string message;
    try {
        file.records([&](const auto &fields, const auto &reader) { builder.add(fields[0], reader.line()); });
    } catch (const host::error &e) {
        message = e.what();
    }
    EXPECT_EQ(message, "column v does not fit: line 7 has a value of 65536 bytes, where 65535 is the limit");
    EXPECT_EQ(builder.bad_count(), 3u);
    ASSERT_EQ(builder.bad_values().size(), 3u);
    EXPECT_EQ(builder.bad_values()[1].line, 5u);
    EXPECT_EQ(builder.bad_values()[2].value, "2.5");
}

TEST(Dictionary, OrderedByValueThenText) {
    const host::csv_file file("t.csv", "v\n10\n9\n1.0\n-3\n1.00\n10\n1\n\"\"\n");
    const host::dictionary dict = build(file, 1 << 30).dict;
    EXPECT_EQ(dict.type(), value_type::decimal);
    EXPECT_EQ(symbols_of(dict), (std::vector<std::string>{"", "-3", "1", "1.0", "1.00", "9", "10"}));
    const auto key = [&](const char *text) { return *host::sort_key(dict.type(), text); };
    EXPECT_EQ(dict.first_not_below(key("1")), 2u);
    EXPECT_EQ(dict.first_above(key("1.000")), 5u);
    EXPECT_EQ(dict.first_not_below(key("-99")), 1u) << "never the null code";
    EXPECT_EQ(dict.first_above(key("10.5")), dict.end_code());
}

} // namespace
