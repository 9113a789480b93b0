#include "host/column/value_type.h"

#include <gtest/gtest.h>

#include <tavo/tavo.h>

#include "host/query/recompute.h"

namespace {

using host::value_type;

TEST(ValueType, Narrowest) {
    const std::pair<const char *, value_type> cases[] = {
        {"0", value_type::integer},
        {"-17", value_type::integer},
        {"+5", value_type::integer},
        {"007", value_type::integer},
        {"123456789012345678901234567890", value_type::integer},
        {"1.5", value_type::decimal},
        {"-.5", value_type::decimal},
        {"5.", value_type::decimal},
        {".", value_type::text},
        {"-", value_type::text},
        {"1e3", value_type::decimal},
        {"-1.5E-07", value_type::decimal},
        {"1e", value_type::text},
        {"e5", value_type::text},
        {"1e1234567890", value_type::text},
        {"1,000", value_type::text},
        {"1 000", value_type::text},
        {" 1 ", value_type::integer},
        {" ", value_type::text},
        {" 2001-04-30", value_type::date},
        {"2001-04-30", value_type::date},
        {"2001-04-31", value_type::text},
        {"2001-02-29", value_type::text},
        {"2000-02-29", value_type::date},
        {"1900-02-29", value_type::text},
        {"2001-13-01", value_type::text},
        {"2001-00-10", value_type::text},
        {"2001-1-1", value_type::text},
        {"2001-04-30 06:15", value_type::date_time},
        {"2001-04-30T06:15:59", value_type::date_time},
        {"2001-04-30 06:15:59.125", value_type::date_time},
        {"2001-04-30T06:15Z", value_type::date_time},
        {"2001-04-30 06:15:59.5 +02:00", value_type::date_time},
        {"2001-04-30 06:15-0530", value_type::date_time},
        {"2001-04-30 06:15+02", value_type::date_time},
        {"2001-04-30 06:15+2", value_type::text},
        {"2001-04-30 06:15+02:60", value_type::text},
        {"2001-04-30Z", value_type::text},
        {"2001-04-30 24:00", value_type::text},
        {"2001-04-30 06:15:", value_type::text},
        {"2001-04-30 06:15:59.", value_type::text},
        {"SFO", value_type::text},
        {"NaN", value_type::text},
    };
    for (const auto &[text, type] : cases)
        EXPECT_EQ(host::type_of(text), type) << text;
    EXPECT_EQ(host::common_type(value_type::decimal, value_type::integer), value_type::decimal);
    EXPECT_EQ(host::common_type(value_type::date, value_type::date_time), value_type::date_time);
    EXPECT_EQ(host::common_type(value_type::date, value_type::integer), value_type::text);
    EXPECT_EQ(host::common_type(value_type::text, value_type::decimal), value_type::text);
}

// Keys must order as the values do; the expected order is by position in the list, '=' joins equal values.
void expect_order(value_type type, const std::vector<std::vector<std::string>> &rising) {
    for (std::size_t i = 0; i < rising.size(); i++)
        for (std::size_t j = 0; j < rising.size(); j++)
            for (const std::string &a : rising[i])
                for (const std::string &b : rising[j]) {
                    const int expected = i < j ? -1 : i > j;
                    const int by_key = host::sort_key(type, a)->compare(*host::sort_key(type, b));
                    EXPECT_EQ((by_key > 0) - (by_key < 0), expected) << a << " against " << b;
                    EXPECT_EQ(host::compare_values(type, a, b), expected) << a << " against " << b;
                }
}

TEST(ValueType, NumbersOrderExactly) {
    expect_order(value_type::decimal, {{"-1e999999999"},
                                       {"-1e63"},
                                       {"-123456789012345678901234567891"},
                                       {"-123456789012345678901234567890"},
                                       {"-100"},
                                       {"-99.5"},
                                       {"-10", "-10.0", "-010", "-1e1", " -100e-1 "},
                                       {"-9"},
                                       {"-1.25"},
                                       {"-1.2", "-1.20"},
                                       {"-1"},
                                       {"-0.5", "-.5"},
                                       {"-0.05"},
                                       {"0", "-0", "+0.00", "000"},
                                       {"1e-999999999"},
                                       {"1e-63", "0.1e-62"},
                                       {"1e-62"},
                                       {"0.0000000000000000001", "1e-19"},
                                       {"0.05"},
                                       {"0.5", ".5", "00.50"},
                                       {"0.55"},
                                       {"1", "1.", "1.0", "01", "+1"},
                                       {"1.1"},
                                       {"1.11"},
                                       {"2"},
                                       {"10"},
                                       {"99.99"},
                                       {"100", "1e2", "1.00E+2"},
                                       {"100.00000000000001"},
                                       {"9007199254740992"},
                                       {"9007199254740993"},
                                       {"123456789012345678901234567890"},
                                       {"1e61"},
                                       {"1e62"},
                                       {"1.5e62", "15e61"},
                                       {"1e999999999"}});
    // The short way to a key's first bytes.
    for (const std::string text :
         {"1", "9", "10", "99", "100", "120", "101", "99999999999999", "10000000000000", "7"}) {
        std::string key = *host::sort_key(value_type::integer, text);
        key.resize(8);
        ub8 first = 0;
        for (const char c : key)
            first = first << 8 | static_cast<unsigned char>(c);
        EXPECT_EQ(host::short_integer_key(text), first) << text;
    }
    for (const std::string text : {"", "0", "01", "-1", "1.0", "1e3", " 1", "100000000000000"})
        EXPECT_EQ(host::short_integer_key(text), 0u) << text;
}

TEST(ValueType, MomentsOrder) {
    expect_order(value_type::date_time,
                 {{"0000-01-01T00:00+01:00"},
                  {"0000-01-01"},
                  {"0000-02-29 23:59"},
                  {"0000-03-01"},
                  {"1999-12-31 23:59:59.999"},
                  {"1999-12-31 23:59:60"},
                  {"2000-01-01", "2000-01-01 00:00", "2000-01-01T00:00:00.0", "2000-01-01T00:00Z",
                   "1999-12-31 23:30-00:30", "2000-01-01T05:30:00+0530", " 2000-01-01 02:00:00.000 +02"},
                  {"2000-01-01 00:00:00.001"},
                  {"2000-01-01 00:00:01"},
                  {"2000-01-01 00:01", "2000-01-01T00:01:00"},
                  {"2000-01-02"},
                  {"2000-02-01"},
                  {"9999-12-31"},
                  {"9999-12-31 23:59-01"}});
}

TEST(ValueType, FoundFromAllValues) {
    host::found_type found;
    std::size_t line = 1;
    for (const char *value : {"1", "2.5", "N/A", "x", "3"})
        found.see(value, ++line);
    EXPECT_EQ(found.type(), value_type::text);
    EXPECT_EQ(found.text_line(), 4u);
    EXPECT_EQ(found.text_value(), "N/A");
    EXPECT_EQ(found.before_text(), value_type::decimal);
    host::found_type first;
    first.see("x", 2);
    EXPECT_EQ(first.text_line(), 2u);
    EXPECT_EQ(first.before_text(), std::nullopt);
}

} // namespace
