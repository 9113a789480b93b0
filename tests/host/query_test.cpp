// Queries through the kernels against the plain recomputation, and the recomputation against answers given by hand.
#include "host/query/query.h"

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <map>
#include <numeric>
#include <random>
#include <set>

#include "host/error.h"
#include "host/query/extremes.h"
#include "host/query/recompute.h"
#include "host/query/value_reader.h"

namespace {

const host::library &loaded() {
    static host::library library(TAVO_LIBRARY_PATH);
    static const bool started = (library.check_and_start(host::this_processor()), true);
    EXPECT_TRUE(started);
    return library;
}

struct answer {
    std::vector<ub4> by_kernels, by_text;
    std::vector<host::query_step> steps;
};

// A file with all of its columns encoded, to be asked any number of times.
class asked_file {
public:
    // `numbers`: columns may be without a dictionary.
    explicit asked_file(std::string text, const host::forms &forms = {}, bool numbers = false)
        : file_("t.csv", std::move(text)), table_(file_, all_columns(), {forms, {}, {}, numbers, {}}),
          session_(loaded()) {}

    answer ask(const std::vector<std::string> &where) {
        std::vector<host::predicate> predicates;
        for (const auto &text : where) {
            predicates.push_back(host::parse_predicate(text));
            host::resolve(predicates.back(), file_);
        }
        host::query query(session_, table_.rows());
        selected_ = query.run(host::plan_codes(predicates, table_));
        std::map<std::string, host::value_type> types;
        for (std::size_t number : all_columns())
            types[file_.columns()[number]] = table_.stored(number)->type();
        answer a{host::row_numbers(loaded().ctx(), selected_, table_.rows(), table_.rows()),
                 host::recompute(file_, predicates, types, {}), query.steps()};
        EXPECT_EQ(a.by_kernels.size(), selected_.count);
        return a;
    }

    // The values of the rows that were last asked for, through the decode kernels, as lines of CSV.
    std::string values(ub4 limit, std::vector<host::query_step> *steps = nullptr) {
        std::vector<host::stored_column *> columns;
        for (std::size_t number : all_columns())
            columns.push_back(table_.stored(number));
        host::value_reader reader(session_, columns, selected_, limit);
        std::string lines;
        while (const ub4 rows = reader.next())
            for (ub4 row = 0; row < rows; row++) {
                for (std::size_t c = 0; c < columns.size(); c++) {
                    lines += c == 0 ? "" : ",";
                    host::append_csv(lines, reader.value(c, row));
                }
                lines += '\n';
            }
        if (steps != nullptr)
            *steps = reader.steps();
        return lines;
    }

    // The smallest or largest value of a column in these rows, held against the text.
    std::string extreme(std::size_t column, host::extreme which, std::vector<host::query_step> &steps,
                        const std::vector<ub4> &rows) {
        host::stored_column &col = *table_.stored(column);
        const auto value = host::extreme_value(session_, col, selected_, which, steps);
        EXPECT_EQ(host::compare_extreme(file_, rows, column, col.type(), {}, which == host::extreme::smallest, value),
                  "");
        return value.value_or("");
    }

    std::vector<std::size_t> all_columns() const {
        std::vector<std::size_t> numbers(file_.columns().size());
        std::iota(numbers.begin(), numbers.end(), std::size_t{0});
        return numbers;
    }
    const host::csv_file &file() const { return file_; }
    const host::table &table() const { return table_; }

private:
    host::csv_file file_;
    host::table table_;
    host::session session_;
    host::selection selected_;
};

void expect_rows(asked_file &file, const std::string &where, const std::vector<ub4> &rows) {
    const answer a = file.ask({where});
    EXPECT_EQ(a.by_text, rows) << where;
    EXPECT_EQ(a.by_kernels, rows) << where;
}

TEST(Query, AnswersByHand) {
    //                                  0        1     2      3           4       5
    asked_file file("n,t,d,k\n"
                    "1,a,2001-01-01,1\n"
                    "1.0,b,2001-01-01 12:00,2\n"
                    ",a,2001-01-02,1\n"
                    "-2.5,,2001-01-03,2\n"
                    "007,A,,2\n"
                    "10,z,2001-01-01T00:00,1\n");
    expect_rows(file, "n = 1", {0, 1});
    expect_rows(file, "n = 1.000", {0, 1});
    expect_rows(file, "n <> 1", {3, 4, 5});
    expect_rows(file, "not n = 1", {3, 4, 5});
    expect_rows(file, "n = 2", {});
    expect_rows(file, "n <> 2", {0, 1, 3, 4, 5});
    expect_rows(file, "n < 2", {0, 1, 3});
    expect_rows(file, "not n < 2", {4, 5});
    expect_rows(file, "n >= -999", {0, 1, 3, 4, 5});
    expect_rows(file, "n > 10", {});
    expect_rows(file, "n > 7", {5});
    expect_rows(file, "1 < n < 10", {4});
    expect_rows(file, "1 <= n < 10", {0, 1, 4});
    expect_rows(file, "n not between 1 and 7", {3, 5});
    expect_rows(file, "n between 7 and 1", {});
    expect_rows(file, "n in (7, 10, 3)", {4, 5});
    expect_rows(file, "n not in (7, 10, 3)", {0, 1, 3});
    expect_rows(file, "n is null", {2});
    expect_rows(file, "n is not null", {0, 1, 3, 4, 5});
    expect_rows(file, "not (n is null or t = a)", {1, 4, 5});
    expect_rows(file, "not (n < 2 and t = a)", {1, 4, 5});
    expect_rows(file, "t = a or n is null", {0, 2});
    expect_rows(file, "t < a", {4});
    expect_rows(file, "t in (A, z)", {4, 5});
    expect_rows(file, "t is null and k = 2", {3});
    expect_rows(file, "d = 2001-01-01", {0, 5});
    expect_rows(file, "d > 2001-01-01", {1, 2, 3});
    expect_rows(file, "d between '2001-01-01 00:01' and 2001-01-02", {1, 2});
    expect_rows(file, "k = 1", {0, 2, 5});
    expect_rows(file, "k <> 1", {1, 3, 4});
    expect_rows(file, "k > 0 and k < 3", {0, 1, 2, 3, 4, 5});
    expect_rows(file, "k is null", {});
    expect_rows(file, "k is not null", {0, 1, 2, 3, 4, 5});
    expect_rows(file, "not (k = 1 or k = 2)", {});
    EXPECT_EQ(file.ask({}).by_kernels.size(), 6u);
    EXPECT_EQ(file.ask({"n > 0", "t = a"}).by_kernels, (std::vector<ub4>{0}));
    EXPECT_EQ(file.values(3), "1,a,2001-01-01,1\n");
    file.ask({});
    EXPECT_EQ(file.values(3), "1,a,2001-01-01,1\n1.0,b,2001-01-01 12:00,2\n,a,2001-01-02,1\n");
    EXPECT_THROW(file.ask({"n = x"}), host::error);
    EXPECT_THROW(file.ask({"d > 5"}), host::error);
    EXPECT_THROW(file.ask({"nn = 1"}), host::error);
    // Either way round, and names in any case.
    expect_rows(file, "2 > n", {0, 1, 3});
    expect_rows(file, "'1' = N", {0, 1});
    expect_rows(file, "not '2001-01-01' >= d", {1, 2, 3});
}

TEST(Query, TwoColumns) {
    //                                  0    1    2        3       4      5     6
    asked_file file("a,b,t,u,d\n1,1.0,x,x,2001-01-01\n2,10,y,x,2001-01-01\n,3,,,\n10,9.5,b,B,2001-01-01\n-3,,x,y,"
                    "2001-01-01\n-1,-1.5,x,y,2001-01-01\n007,7,z,z,2001-01-01\n");
    expect_rows(file, "a = b", {0, 6});
    expect_rows(file, "a <> b", {1, 3, 5});
    expect_rows(file, "not a = b", {1, 3, 5});
    expect_rows(file, "a < b", {1});
    expect_rows(file, "a <= b", {0, 1, 6});
    expect_rows(file, "b < a", {3, 5});
    expect_rows(file, "not (b < a)", {0, 1, 6});
    expect_rows(file, "a >= \"b\" and a > 0", {0, 3, 6});
    expect_rows(file, "t > u", {1, 3});
    expect_rows(file, "t = u or a = 2", {0, 1, 6});
    EXPECT_THROW(file.ask({"a = t"}), host::error) << "a number and a text";
    EXPECT_THROW(file.ask({"a > d"}), host::error) << "a number and a date";
    EXPECT_THROW(file.ask({"t in (u, x)"}), host::error) << "a text that is a column's name";
    expect_rows(file, "t in ('u', x)", {0, 4, 5});
}

TEST(Query, ColumnsOfTextAreNotNumbers) {
    asked_file file("n,d,t,e\n9,2001-01-01,x,\n10,soon,y,\nN/A,2001-01-02,z,\n");
    const auto message = [&](const char *where) {
        try {
            file.ask({where});
        } catch (const host::error &e) {
            return std::string(e.what());
        }
        return std::string();
    };
    for (const char *part : {"column n is text because of line 4, where it has 'N/A'", "--null 'N/A' ", "--type n=text",
                             "--type n=integer"})
        EXPECT_NE(message("n > 5").find(part), std::string::npos) << part << "\n" << message("n > 5");
    EXPECT_NE(message("5 < n < 7").find("because of line 4"), std::string::npos);
    EXPECT_NE(message("n between '5' and '7'").find("because of line 4"), std::string::npos);
    EXPECT_NE(message("not (d <= '2001-01-01 06:00')").find("line 3, where it has 'soon'"), std::string::npos);
    expect_rows(file, "n = 9", {0});
    expect_rows(file, "n in (9, 10)", {0, 1});
    expect_rows(file, "t > x", {1, 2});
    expect_rows(file, "e > 5", {});
}

TEST(Query, RangesOfOneColumnBecomeOneScan) {
    std::string text = "x,y\n";
    for (int i = 0; i < 1000; i++)
        text += fmt::format("{},{}\n", i * 7 % 1000, i % 3);
    asked_file file(text);
    const std::pair<std::vector<std::string>, const char *> cases[] = {
        {{"x > 5 and x < 10"}, "tavo_gt_lt_dict_10bit"},
        {{"x > 5", "x <= 10"}, "tavo_gt_le_dict_10bit"},
        {{"x >= 5", "10 > x > 2"}, "tavo_ge_lt_dict_10bit"},
        {{"x between 5 and 10"}, "tavo_ge_le_dict_10bit"},
        {{"not (x <= 5 or x >= 10)"}, "tavo_gt_lt_dict_10bit"},
        {{"x > 5"}, "tavo_gt_dict_10bit"},
        {{"x >= 5"}, "tavo_ge_dict_10bit"},
        {{"x < 5"}, "tavo_lt_dict_10bit"},
        {{"x <= 5"}, "tavo_le_dict_10bit"},
        {{"x = 5"}, "tavo_eq_dict_10bit"},
        {{"x <> 5"}, "tavo_ne_dict_10bit"}};
    for (const auto &[where, kernel] : cases) {
        const answer a = file.ask(where);
        EXPECT_EQ(a.by_kernels, a.by_text);
        ASSERT_EQ(a.steps.size(), 1u) << where[0];
        EXPECT_EQ(a.steps[0].kernel, kernel) << where[0];
    }
    // A list of more than two values is a set, however many; a thin selection takes the sparse path.
    const answer listed = file.ask({"x in (7, 5, 60, 61, 99999)"});
    EXPECT_EQ(listed.by_kernels, listed.by_text);
    ASSERT_EQ(listed.steps.size(), 1u);
    EXPECT_EQ(listed.steps[0].kernel, "tavo_set_dict_10bit");
    EXPECT_EQ(file.ask({"x in (7, 8)"}).steps[0].kernel, "tavo_ge_le_dict_10bit");
    const answer thin = file.ask({"x in (5, 7)", "x < 6 or y = 1"});
    EXPECT_EQ(thin.by_kernels, thin.by_text);
    EXPECT_NE(thin.steps.back().what.find("1 or 2 rows"), std::string::npos) << thin.steps.back().what;
    const answer sparse = file.ask({"x = 5", "y = 0"});
    EXPECT_EQ(sparse.by_kernels, sparse.by_text);
    EXPECT_EQ(sparse.steps.back().rows_in, 1u);
}

// A random column of one of many kinds: how many distinct values decides the width, long runs the form.
struct random_column {
    std::vector<std::string> values; // may hold "" for null
    std::size_t run = 1;
    bool as_numbers = false; // it can be without a dictionary
};

random_column make_column(std::mt19937_64 &rng, unsigned kind) {
    random_column c;
    const std::size_t distinct_choices[] = {1, 2, 3, 5, 16, 17, 200, 257, 3000, 70000};
    const std::size_t distinct = distinct_choices[rng() % 10];
    std::set<std::string> values;
    const bool padded = rng() % 2;
    const std::size_t zones = rng() % 3 == 0 ? 1 + rng() % 6 : 0;
    for (std::size_t i = 0; i < distinct; i++)
        switch (kind) {
        case 0:
            values.insert(std::to_string(static_cast<long>(rng() % (4 * distinct)) - static_cast<long>(distinct)));
            break;
        case 1:
            values.insert(
                fmt::format("{}.{:0{}}", static_cast<long>(rng() % (distinct + 1)) - 3, rng() % 100, padded ? 2 : 1));
            break;
        case 2:
            values.insert(fmt::format("{:04}-{:02}-{:02}", 1900 + rng() % 200, 1 + rng() % 12, 1 + rng() % 28));
            break;
        case 3:
            values.insert(
                fmt::format("2001-{:02}-{:02} {:02}:{:02}", 1 + rng() % 12, 1 + rng() % 28, rng() % 24, rng() % 60) +
                (zones == 0 ? "" : fmt::format("{}{:02}:30", rng() % 2 ? '+' : '-', rng() % zones)));
            break;
        default: values.insert(fmt::format("{}{}", static_cast<char>('a' + rng() % 26), rng() % (4 * distinct)));
        }
    c.values.assign(values.begin(), values.end());
    const host::value_type types[] = {host::value_type::integer, host::value_type::decimal, host::value_type::date,
                                      host::value_type::date_time, host::value_type::text};
    c.as_numbers = host::number_form::find(types[kind], [&](const auto &see) {
                       for (const std::string &value : c.values)
                           see(value);
                   }).is_form;
    if (rng() % 2)
        c.values.emplace_back();
    if (rng() % 4 == 0)
        c.run = rng() % 2 ? 40 : 700;
    return c;
}

TEST(Query, RandomTablesAndPredicates) {
    const std::vector<std::string> no_null_texts;
    std::mt19937_64 rng(20);
    std::map<std::string, unsigned> kernels;
    for (unsigned round = 0; round < 60; round++) {
        const std::size_t rows_choices[] = {1, 63, 64, 65, 511, 513, 4097, 20000};
        const std::size_t rows = rows_choices[rng() % 8];
        std::vector<random_column> columns;
        for (unsigned kind = 0; kind < 5; kind++)
            columns.push_back(make_column(rng, kind));
        std::string text = "c0,c1,c2,c3,c4\n";
        std::vector<std::string> now(5);
        for (std::size_t row = 0; row < rows; row++)
            for (unsigned c = 0; c < 5; c++) {
                if (row == 0 || rng() % columns[c].run == 0)
                    now[c] = columns[c].values[rng() % columns[c].values.size()];
                text += now[c] + (c < 4 ? "," : "\n");
            }
        host::forms forms;
        using enum host::column_form;
        const host::column_form choices[] = {plain, spak, rle, fixed, dynp};
        const bool numbers = rng() % 3 != 0;
        for (unsigned c = 0; c < 5; c++)
            if (const auto form = choices[rng() % 5]; rng() % 2 || numbers) {
                // Zones stand in a stream beside fixed numbers; those of varying length have none.
                const bool zoned = c == 3 && columns[c].values[0].size() > 16;
                if (form == plain || form == spak || form == rle ||
                    (numbers && columns[c].as_numbers && !(form == dynp && zoned)))
                    forms[fmt::format("c{}", c)] = form;
            }
        asked_file file(text, forms, numbers);

        // Values that stand in the column, and made ones that may not.
        auto value = [&](unsigned c) {
            std::string v = columns[c].values[rng() % columns[c].values.size()];
            if (v.empty())
                v = c == 0 ? "5" : c == 1 ? "2.5" : c == 2 ? "2000-02-29" : c == 3 ? "2001-06-01 00:00" : "m";
            if (rng() % 4 == 0 && c < 2)
                v += c == 0 ? ".5" : "5";
            if (rng() % 6 == 0)
                v = c == 0   ? "-99999"
                    : c == 1 ? "99999.9"
                    : c == 2 ? "1800-01-01"
                    : c == 3 ? "2099-01-01 00:00"
                             : "zzzz";
            return "'" + v + "'";
        };
        std::function<std::string(unsigned)> condition = [&](unsigned depth) -> std::string {
            if (depth > 0 && rng() % 2)
                return fmt::format("{}({} {} {})", rng() % 3 == 0 ? "not " : "", condition(depth - 1),
                                   rng() % 2 ? "and" : "or", condition(depth - 1));
            const unsigned c = rng() % 5;
            const char *ops[] = {"=", "<>", "<", "<=", ">", ">="};
            switch (rng() % 9) {
            case 8: // two columns of numbers, of dates, or one twice
                return c == 4 ? fmt::format("c4 {} c4", ops[rng() % 6])
                              : fmt::format("c{} {} c{}", c, ops[rng() % 6], c / 2 * 2 + rng() % 2);
            case 0: return fmt::format("c{} {}between {} and {}", c, rng() % 2 ? "" : "not ", value(c), value(c));
            case 1:
                return fmt::format("{} <{} c{} <{} {}", value(c), rng() % 2 ? "" : "=", c, rng() % 2 ? "" : "=",
                                   value(c));
            case 2:
                return fmt::format("c{} {}in ({}, {}, {})", c, rng() % 2 ? "" : "not ", value(c), value(c), value(c));
            case 3: return fmt::format("c{} is {}null", c, rng() % 2 ? "" : "not ");
            case 4:
                return fmt::format("(c{0} >{1} {2} and c{0} <{3} {4})", c, rng() % 2 ? "" : "=", value(c),
                                   rng() % 2 ? "" : "=", value(c));
            default: return fmt::format("c{} {} {}", c, ops[rng() % 6], value(c));
            }
        };
        for (unsigned query = 0; query < 12; query++) {
            std::vector<std::string> where;
            for (std::size_t i = 0; i <= rng() % 3; i++)
                where.push_back(condition(2));
            const answer a = file.ask(where);
            EXPECT_EQ(a.by_kernels, a.by_text) << fmt::format("{} rows, round {}: ", rows, round) << where[0];
            const auto which = rng() % 2 ? host::extreme::smallest : host::extreme::largest;
            std::vector<host::query_step> steps, found;
            file.extreme(rng() % 5, which, found, a.by_text);
            const ub4 limit = rng() % 3 == 0 ? static_cast<ub4>(rng() % 300) : 0xffffffff;
            const std::string lines = file.values(limit, &steps);
            std::vector<ub4> printed = a.by_text;
            printed.resize(std::min<std::size_t>(printed.size(), limit));
            host::printed_check check(file.file(), printed, file.all_columns(), no_null_texts);
            const std::size_t cut = lines.find('\n', lines.size() / 2) + 1; // in two pieces
            EXPECT_EQ(check.compare(std::string_view(lines).substr(0, cut)), "") << where[0];
            EXPECT_EQ(check.compare(std::string_view(lines).substr(cut)), "") << where[0];
            EXPECT_EQ(check.finish(), "") << where[0];
            steps.insert(steps.end(), found.begin(), found.end());
            for (const auto &step : steps)
                kernels[step.kernel]++;
            for (const auto &step : a.steps)
                kernels[step.kernel]++;
        }
    }
    EXPECT_GT(kernels.size(), 100u) << "the test must reach many kernels";
}

} // namespace
