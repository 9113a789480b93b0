#include "host/column/value_type.h"

#include <gtest/gtest.h>

#include "host/column/dictionary.h"
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
        {"1e5", value_type::text},
        {"1 000", value_type::text},
        {" 1", value_type::text},
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
    expect_order(value_type::decimal, {{"-123456789012345678901234567891"},
                                       {"-123456789012345678901234567890"},
                                       {"-100"},
                                       {"-99.5"},
                                       {"-10", "-10.0", "-010"},
                                       {"-9"},
                                       {"-1.25"},
                                       {"-1.2", "-1.20"},
                                       {"-1"},
                                       {"-0.5", "-.5"},
                                       {"-0.05"},
                                       {"0", "-0", "+0.00", "000"},
                                       {"0.0000000000000000001"},
                                       {"0.05"},
                                       {"0.5", ".5", "00.50"},
                                       {"0.55"},
                                       {"1", "1.", "1.0", "01", "+1"},
                                       {"1.1"},
                                       {"1.11"},
                                       {"2"},
                                       {"10"},
                                       {"99.99"},
                                       {"100"},
                                       {"9007199254740992"},
                                       {"9007199254740993"},
                                       {"123456789012345678901234567890"}});
}

TEST(ValueType, MomentsOrder) {
    expect_order(value_type::date_time, {{"0000-01-01"},
                                         {"1999-12-31 23:59:59.999"},
                                         {"2000-01-01", "2000-01-01 00:00", "2000-01-01T00:00:00.0"},
                                         {"2000-01-01 00:00:00.001"},
                                         {"2000-01-01 00:00:01"},
                                         {"2000-01-01 00:01", "2000-01-01T00:01:00"},
                                         {"2000-01-02"},
                                         {"2000-02-01"},
                                         {"9999-12-31"}});
}

TEST(Dictionary, OrderedByValueThenText) {
    host::dictionary_builder builder;
    const std::vector<std::string> fields = {"10", "9", "1.0", "-3", "1.00", "10", "1"};
    std::vector<ub4> numbers;
    for (const auto &field : fields)
        numbers.push_back(builder.number_of(field));
    builder.saw_null();
    EXPECT_EQ(builder.number_of_copy("9"), numbers[1]) << "a known text keeps its number";
    const host::dictionary_builder::result built = builder.finish();
    const host::dictionary &dict = built.dict;
    EXPECT_EQ(dict.type(), value_type::decimal);
    EXPECT_EQ(dict.symbols(), (std::vector<std::string>{"", "-3", "1", "1.0", "1.00", "9", "10"}));
    for (std::size_t i = 0; i < fields.size(); i++)
        EXPECT_EQ(dict.symbols()[built.code_of[numbers[i]]], fields[i]);
    const auto key = [&](const char *text) { return *host::sort_key(dict.type(), text); };
    EXPECT_EQ(dict.first_not_below(key("1")), 2u);
    EXPECT_EQ(dict.first_above(key("1.000")), 5u);
    EXPECT_EQ(dict.first_not_below(key("-99")), 1u) << "never the null code";
    EXPECT_EQ(dict.first_above(key("10.5")), dict.end_code());
}

} // namespace
