#include "host/query/predicate.h"

#include <gtest/gtest.h>

#include "host/error.h"

namespace {

// The tree in prefix form.
std::string shape(const host::predicate &p) {
    static const char *ops[] = {"=", "<>", "<", "<=", ">", ">="};
    std::string s;
    switch (p.kind) {
    case host::predicate_kind::compare: return p.column.text + ops[static_cast<int>(p.op)] + p.values[0].text;
    case host::predicate_kind::columns: return p.column.text + ops[static_cast<int>(p.op)] + "[" + p.other.text + "]";
    case host::predicate_kind::is_null: return p.column.text + "?";
    case host::predicate_kind::range:
        return p.column.text + (p.low_open ? "(" : "[") + p.values[0].text + "," + p.values[1].text +
               (p.high_open ? ")" : "]");
    case host::predicate_kind::in:
        for (const auto &value : p.values)
            s += (s.empty() ? "" : ",") + value.text;
        return p.column.text + "{" + s + "}";
    case host::predicate_kind::not_: return "!" + shape(p.operands[0]);
    case host::predicate_kind::and_: s = "&"; break;
    case host::predicate_kind::or_: s = "|"; break;
    }
    s += "(";
    for (const auto &operand : p.operands)
        s += (s.back() == '(' ? "" : " ") + shape(operand);
    return s + ")";
}
std::string shape(const char *text) { return shape(host::parse_predicate(text)); }

TEST(Predicate, Conditions) {
    EXPECT_EQ(shape("delay > 60"), "delay>60");
    EXPECT_EQ(shape("delay<=-60"), "delay<=-60");
    EXPECT_EQ(shape("a<>1"), "a<>1");
    EXPECT_EQ(shape("a != 1"), "a<>1");
    EXPECT_EQ(shape("distance between 500 and 1000"), "distance[500,1000]");
    EXPECT_EQ(shape("distance not between 500 and 1000"), "!distance[500,1000]");
    EXPECT_EQ(shape("500 < distance <= 1000"), "distance(500,1000]");
    EXPECT_EQ(shape("1000 > distance >= 500"), "distance[500,1000)");
    EXPECT_EQ(shape("1 < \"my column\" < 2"), "my column(1,2)");
    EXPECT_EQ(shape("origin in (SFO, 'LAX', 'O''Hare')"), "origin{SFO,LAX,O'Hare}");
    EXPECT_EQ(shape("origin NOT IN (SFO)"), "!origin{SFO}");
    EXPECT_EQ(shape("state is null"), "state?");
    EXPECT_EQ(shape("state is not null"), "!state?");
    EXPECT_EQ(shape("\"say \"\"x\"\"\" = 'and'"), "say \"x\"=and");
    EXPECT_EQ(shape("date >= '2001-01-15 06:00'"), "date>=2001-01-15 06:00");
    EXPECT_EQ(shape("a = ''"), "a=");
}

TEST(Predicate, KeywordsAreValuesWhereOnlyValuesStand) {
    EXPECT_EQ(shape("state = OR"), "state=OR");
    EXPECT_EQ(shape("state = or or state = IN"), "|(state=or state=IN)");
    EXPECT_EQ(shape("(state = OR) and a = 1"), "&(state=OR a=1)");
    EXPECT_EQ(shape("state in (OR, IN, not)"), "state{OR,IN,not}");
    EXPECT_EQ(shape("state between in and or"), "state[in,or]");
}

TEST(Predicate, ColumnsAreFound) {
    const host::csv_file file("t.csv", "delay,City,name,city,60\n1,2,3,4,5\n");
    const auto resolved = [&](const char *text) {
        host::predicate p = host::parse_predicate(text);
        host::resolve(p, file);
        return shape(p);
    };
    EXPECT_EQ(resolved("60 < delay"), "60<[delay]") << "a column may be called 60";
    EXPECT_EQ(resolved("61 < DELAY"), "delay>61");
    EXPECT_EQ(resolved("'60' >= delay"), "delay<=60");
    EXPECT_EQ(resolved("'x' = \"Delay\""), "delay=x");
    EXPECT_EQ(resolved("name = city"), "name=[city]");
    EXPECT_EQ(resolved("name = 'city'"), "name=city");
    EXPECT_EQ(resolved("name = CITY"), "name=CITY") << "two columns are called that";
    EXPECT_EQ(resolved("name = Delay"), "name=Delay") << "a text, unless it is written as the column is";
    EXPECT_EQ(resolved("not (name is null or 1 < Name < 2)"), "!|(name? name(1,2))");
    EXPECT_THROW(resolved("name between city and z"), host::error);
    EXPECT_THROW(resolved("nam = 1"), host::error);
    EXPECT_THROW(resolved("1 < dely"), host::error);
    EXPECT_THROW(resolved("'a' = 'b'"), host::error);
}

TEST(Predicate, BindingAndGrouping) {
    EXPECT_EQ(shape("a=1 or b=2 and not c=3"), "|(a=1 &(b=2 !c=3))");
    EXPECT_EQ(shape("(a=1 or b=2) and c=3 and d=4"), "&(|(a=1 b=2) c=3 d=4)");
    EXPECT_EQ(shape("not not a=1"), "!!a=1");
    EXPECT_EQ(shape("a between 1 and 2 and b=3"), "&(a[1,2] b=3)");
    const auto p = host::parse_predicate("a=1 or b in (2) or a is null");
    EXPECT_EQ(host::columns_of(p), (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(p.operands[1].text, "b in (2)");
}

TEST(Predicate, ErrorsMarkThePlace) {
    struct {
        const char *text;
        std::size_t at;
        const char *what;
    } cases[] = {
        {"delay >", 7, "a value"},
        {"", 0, "a column"},
        {"delay", 5, "a comparison"},
        {"delay > 60 70", 11, "expected 'and'"},
        {"(a = 1", 6, "expected ')'"},
        {"a = 1)", 5, "no '('"},
        {"a between 1 or 2", 12, "expected 'and'"},
        {"a in 1", 5, "expected '('"},
        {"a in (1 2)", 8, "expected ','"},
        {"a in ()", 6, "a value"},
        {"a = 'x", 4, "never closed"},
        {"a = null", 4, "is null"},
        {"a in (\"b\")", 6, "single quotes"},
        {"'a' is null", 0, "a column"},
        {"a == 1", 2, "'==' is written '='"},
        {"a => 1", 2, "'=>' is written '>='"},
        {"a =< 1", 2, "'=<' is written '<='"},
        {"a = 1 && b = 2", 6, "'&&' is written 'and'"},
        {"a > and b = 2", 4, "'and' has a meaning here"},
        {"a in (or 1)", 6, "'or' has a meaning here"},
        {"1 < a > 2", 6, "both sides"},
        {"a is nul", 5, "expected 'null'"},
        {"a not 5", 6, "'between' or 'in'"},
        {"and = 1", 0, "a column"},
        {"a ! b", 2, "operator"},
    };
    for (const auto &c : cases) {
        std::string message;
        try {
            host::parse_predicate(c.text);
        } catch (const host::error &e) {
            message = e.what();
        }
        EXPECT_NE(message.find(c.what), std::string::npos) << c.text << ": " << message;
        EXPECT_TRUE(message.ends_with("\n  " + std::string(c.text) + "\n  " + std::string(c.at, ' ') + "^")) << message;
    }
    EXPECT_THROW(host::parse_predicate(std::string(100000, '(')), host::error);
}

} // namespace
