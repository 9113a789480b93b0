#include "host/column/csv.h"

#include <gtest/gtest.h>

#include "host/error.h"

namespace {

using records = std::vector<std::vector<std::string>>;

records read(std::string text) {
    host::csv_reader reader(text, "t.csv");
    std::vector<host::csv_field> fields;
    records all;
    while (reader.next(fields)) {
        all.emplace_back();
        for (const auto &field : fields)
            all.back().push_back(field.value());
    }
    return all;
}

std::string message_of(const std::string &text) {
    try {
        const host::csv_file file("t.csv", text);
        file.records([](const auto &, const auto &) {});
    } catch (const host::error &e) {
        return e.what();
    }
    return "";
}

TEST(Csv, FieldsAndRecords) {
    EXPECT_EQ(read(""), records{});
    EXPECT_EQ(read("a,b\n1,2\n"), (records{{"a", "b"}, {"1", "2"}}));
    EXPECT_EQ(read("a,b\r\n1,2\r\n"), (records{{"a", "b"}, {"1", "2"}}));
    EXPECT_EQ(read("a,b\n1,2"), (records{{"a", "b"}, {"1", "2"}}));
    EXPECT_EQ(read("a,b\n1,2\r"), (records{{"a", "b"}, {"1", "2"}}));
    EXPECT_EQ(read("\xef\xbb\xbf"
                   "a,b\n,\n"),
              (records{{"a", "b"}, {"", ""}}));
    EXPECT_EQ(read("a\n1\n\n\n"), (records{{"a"}, {"1"}})) << "empty lines at the end";
    EXPECT_EQ(read("a\n\n1\n"), (records{{"a"}, {""}, {"1"}})) << "an empty field of a single column";
    EXPECT_EQ(read(" a , b\n"), (records{{" a ", " b"}})) << "spaces belong to the field";
    EXPECT_EQ(read("a\rb,c\n"), (records{{"a\rb", "c"}})) << "a lone CR is text";
}

TEST(Csv, Quotes) {
    EXPECT_EQ(read("\"a,b\",\"c\nd\",\"e\r\nf\"\r\n"), (records{{"a,b", "c\nd", "e\r\nf"}}));
    EXPECT_EQ(read("\"W. H. \"\"Bud\"\" Barron\",\"\"\"\"\n"), (records{{"W. H. \"Bud\" Barron", "\""}}));
    EXPECT_EQ(read("\"\",x\n"), (records{{"", "x"}}));
    EXPECT_EQ(read("x,\"\""), (records{{"x", ""}}));
}

TEST(Csv, WrittenFieldsReadBack) {
    for (const std::string text : {"", "plain", "a,b", "say \"x\"", "two\nlines", "cr\r", "\"", " s "}) {
        std::string line;
        host::append_csv(line, text);
        line += ",end\n";
        EXPECT_EQ(read(line), (records{{text, "end"}})) << line;
    }
}

TEST(Csv, ErrorsNameTheLine) {
    EXPECT_EQ(message_of("a,b\n1,2\n3\n"), "t.csv: line 3: 1 field where the header has 2");
    EXPECT_EQ(message_of("a,b\n\"x\ny\",2\n3,4,5\n"), "t.csv: line 4: 3 fields where the header has 2");
    EXPECT_EQ(message_of("a,b\n\n1,2\n"), "t.csv: line 2: 1 field where the header has 2");
    EXPECT_EQ(message_of("a,b\n1,2\n3,\"open\n4,5\n"), "t.csv: line 3: a quote is opened and never closed");
    EXPECT_EQ(message_of("a,b\n1,\"x\"y\n"), "t.csv: line 2: text behind a closing quote");
    EXPECT_EQ(message_of("a,b\n1,x\"y\n"), "t.csv: line 2: a quote inside a field that does not begin with one");
    EXPECT_EQ(message_of("a,b,a\n1,2,3\n"), "t.csv: line 1: two columns are named 'a'");
    EXPECT_EQ(message_of("a,,b\n"), "t.csv: line 1: column 2 has no name");
    EXPECT_EQ(message_of(""), "t.csv: the file is empty; its first line must name the columns");
    EXPECT_NE(message_of("\xff\xfe"
                         "a"),
              "");
}

TEST(Csv, NearNames) {
    const std::vector<std::string> names = {"date", "delay", "distance", "origin", "destination"};
    using list = std::vector<std::string>;
    EXPECT_EQ(host::near_names("dely", names), list{"delay"});
    EXPECT_EQ(host::near_names("Origin", names), list{"origin"});
    EXPECT_EQ(host::near_names("dest", names), list{"destination"});
    EXPECT_EQ(host::near_names("xyzzy", names), list{});
}

} // namespace
