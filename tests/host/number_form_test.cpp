// Numbers without a dictionary: texts to codes and back, and which columns have no such form.
#include "host/column/number_form.h"

#include <algorithm>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

namespace {

using host::value_type;
using texts = std::vector<std::string>;

host::number_form::found find(value_type type, const texts &values) {
    return host::number_form::find(type, [&](const auto &see) {
        for (const std::string &value : values)
            see(value);
    });
}

// Rising values: their codes rise from 0 and are as far apart as the values, and each comes back as it stood.
void expect_codes(value_type type, const texts &values, const std::vector<ub8> &codes,
                  const std::vector<ub1> &zones = {}) {
    const auto found = find(type, values);
    ASSERT_TRUE(found.is_form) << values[0] << ": " << found.why_not;
    for (std::size_t i = 0; i < values.size(); i++) {
        const host::stored_number n = found.form.store(values[i]);
        EXPECT_EQ(n.code, codes[i]) << values[i];
        EXPECT_EQ(n.zone, zones.empty() ? 0 : zones[i]) << values[i];
        EXPECT_EQ(found.form.text(n), values[i]);
    }
    EXPECT_EQ(found.form.largest(), codes.back());
}

TEST(NumberForm, CodesAndTexts) {
    expect_codes(value_type::integer, {"-3", "0", "255"}, {0, 3, 258});
    expect_codes(value_type::integer, {"-9223372036854775807", "9223372036854775806"}, {0, 18446744073709551613u});
    expect_codes(value_type::decimal, {"-0.25", "0", "1.5"}, {0, 25, 175});
    expect_codes(value_type::decimal, {"-0.50", "0.00", "1.50"}, {0, 50, 200});
    expect_codes(value_type::date, {"1969-12-31", "1970-01-01", "2000-02-29", "2000-03-01"}, {0, 1, 11017, 11018});
    expect_codes(value_type::date_time, {"1969-12-31 23:59", "1970-01-01 00:01"}, {0, 2});
    expect_codes(value_type::date_time, {"1969-12-31T23:59:59.250", "1970-01-01T00:00:00.000"}, {0, 750});
    // One instant in three zones, numbered from the westernmost on; +00:00 and Z are two spellings.
    expect_codes(value_type::date_time,
                 {"2001-03-01 00:30-01:00", "2001-03-01 01:30+00:00", "2001-03-01 01:30Z", "2001-03-01 07:00+05:30",
                  "2001-03-01 07:01+05:30"},
                 {0, 0, 0, 0, 1}, {0, 1, 2, 3, 3});
}

TEST(NumberForm, RandomMoments) {
    std::mt19937_64 random(7);
    texts values;
    for (int i = 0; i < 2000; i++)
        values.push_back(fmt::format("{:04}-{:02}-{:02} {:02}:{:02}:{:02}{}", 1 + random() % 9998, 1 + random() % 12,
                                     1 + random() % 28, random() % 24, random() % 60, random() % 60,
                                     texts{"-11:00", "-00:30", "Z", "+02:00", "+1345"}[random() % 5]));
    const auto found = find(value_type::date_time, values);
    ASSERT_TRUE(found.is_form) << found.why_not;
    for (const std::string &value : values)
        EXPECT_EQ(found.form.text(found.form.store(value)), value);
}

TEST(NumberForm, ColumnsThatHaveNone) {
    const auto refused = [](value_type type, const texts &values, const std::string &why) {
        const auto found = find(type, values);
        EXPECT_FALSE(found.is_form) << values[0];
        EXPECT_NE(found.why_not.find(why), std::string::npos) << values[0] << ": " << found.why_not;
    };
    refused(value_type::integer, {"8", "007"}, "'007', which would come back as 7");
    refused(value_type::integer, {"+7", "8"}, "'+7'");
    refused(value_type::integer, {"1", "99999999999999999999"}, "no room in 64 bits");
    refused(value_type::integer, {"-9223372036854775807", "9223372036854775807", "1e3"}, "'1e3'");
    refused(value_type::decimal, {"1.5", "1.50"}, "would come back as 1.5");
    refused(value_type::decimal, {"0.1", ".25"}, "'.25'");
    refused(value_type::decimal, {"0.1234567890123456789"}, "19 decimals");
    refused(value_type::date_time, {"2001-03-01 00:00", "2001-03-01 00:00:01"}, "not written like the others");
    refused(value_type::date_time, {"2001-03-01 00:00", "2001-03-01 00:00Z"}, "with a zone and times without");
    texts zones;
    for (int hour = 0; hour < 17; hour++)
        zones.push_back(fmt::format("2001-03-01 00:00+{:02}:00", hour));
    refused(value_type::date_time, zones, "more than 16 zones");
    refused(value_type::text, {"a"}, "texts");
}

} // namespace
