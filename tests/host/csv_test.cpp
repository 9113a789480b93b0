#include "host/column/csv.h"

#include <gtest/gtest.h>

#include "host/column/names.h"
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
    EXPECT_EQ(message_of("a;b\n1;2\n3\n"), "t.csv: line 3: 1 field where the header has 2")
        << "a faulty record is told as one";
    EXPECT_EQ(message_of(""), "t.csv: the file is empty; its first line must name the columns");
}

TEST(Csv, OtherFormatsAreNamed) {
    using namespace std::string_literals;
    const std::pair<std::string, const char *> cases[] = {
        {"\x1f\x8b\x08\0\0"s, "a gzip file, not CSV text: gunzip -c t.csv |"},
        {"\xff\xfe"
         "a\0"s,
         "UTF-16"},
        {"PK\x03\x04\x14"s, "a zip file"},
        {"a,b\r1,2\r3,4\r"s, "end with CR alone"},
    };
    for (const auto &[text, name] : cases)
        EXPECT_NE(message_of(text).find(name), std::string::npos) << message_of(text);
    EXPECT_EQ(message_of("a,b\r"), "") << "a header whose LF is missing";
}

TEST(Csv, Delimiters) {
    EXPECT_EQ(host::find_delimiter("a,b;c\n1,2;3\n"), ',');
    EXPECT_EQ(host::find_delimiter("a;b;c\n1,5;2;3\n"), ';') << "decimal commas";
    EXPECT_EQ(host::find_delimiter("a;b;c\n1,5;2,5;3\n"), ';');
    EXPECT_EQ(host::find_delimiter("a\tb\n\"x\ty\"\t2\n"), '\t');
    EXPECT_EQ(host::find_delimiter("a|b|c"), '|');
    EXPECT_EQ(host::find_delimiter("a\n1\n2\n"), ',');
    EXPECT_EQ(host::find_delimiter("a,b;c\n1,2\n3\n"), ',') << "a faulty record is told as one";
    std::string long_text = "a;b\n";
    while (long_text.size() < 100000)
        long_text += "1;2\n";
    EXPECT_EQ(host::find_delimiter(long_text + "3;"), ';');
}

TEST(Csv, Headers) {
    const host::csv_file made("t.csv", ", city ,city,,city_2,city\n1,2,3,4,5,6\n");
    EXPECT_EQ(made.columns(), (std::vector<std::string>{"column_1", "city", "city_3", "column_4", "city_2", "city_4"}));
    EXPECT_EQ(made.notes().size(), 4u);
    const host::csv_file bare("t.csv", "5;6\n7;8\n", {0, false});
    EXPECT_EQ(bare.columns(), (std::vector<std::string>{"column_1", "column_2"}));
    std::size_t rows = 0;
    bare.records([&](const auto &, const auto &) { rows++; });
    EXPECT_EQ(rows, 2u);
    const host::csv_file cases("t.csv", "Name,name,CITY\n");
    EXPECT_EQ(cases.column("name"), 1u);
    EXPECT_EQ(cases.column("city"), 2u);
    EXPECT_THROW(cases.column("NAME"), host::error) << "two columns are called that";
}

TEST(Csv, NearNames) {
    const std::vector<std::string> names = {"date", "delay", "distance", "origin", "destination"};
    using list = std::vector<std::string>;
    EXPECT_EQ(host::near_names("dely", names), list{"delay"});
    EXPECT_EQ(host::near_names("dealy", names), list{"delay"});
    EXPECT_EQ(host::near_names("adte", names), list{"date"});
    EXPECT_EQ(host::near_names("Origin", names), list{"origin"});
    EXPECT_EQ(host::near_names("dest", names), list{"destination"});
    EXPECT_EQ(host::near_names("xyzzy", names), list{});
    const list many(100, "some_column");
    EXPECT_TRUE(host::instead_of("x", many, "columns").ends_with(", ... and 88 more"));
}

} // namespace
