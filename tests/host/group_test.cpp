// Groups in `tavo query`: what is printed, against numbers worked out by hand or by awk, and what is refused.
#include "host/group/measure.h"

#include "host/error.h"
#include "tests/host/command_fixture.h"

namespace {

TEST(Measure, ExactNumbers) {
    using host::scale_of;
    EXPECT_EQ(scale_of({"1.50", "2", "-3e2", "1e-3"}, 100).digits, 3u);
    EXPECT_EQ(host::scaled_number(" -12.50 ", 3), -12500);
    EXPECT_EQ(host::scaled_number("-3e2", 3), -300000);
    EXPECT_EQ(host::scaled_number("1.2e-1", 3), 120);
    EXPECT_EQ(host::scaled_number("0.0000000000000000000000000", 3), 0);
    // What doesn't fit, one by one or as a sum, is held as doubles.
    EXPECT_TRUE(scale_of({"999999999999999999"}, 9).exact);
    EXPECT_FALSE(scale_of({"999999999999999999"}, 10).exact);
    EXPECT_FALSE(scale_of({"1e18"}, 1).exact);
    EXPECT_FALSE(scale_of({"1e-19"}, 1).exact);
    EXPECT_FALSE(scale_of({"1000000000", "0.0000000001"}, 1).exact);
    EXPECT_EQ(host::text_of_sum(-5, 2), "-0.05");
    EXPECT_EQ(host::text_of_sum(1200, 2), "12.00");
    EXPECT_EQ(host::text_of_sum(0, 0), "0");
    // Halves away from zero, on the last of four digits more.
    EXPECT_EQ(host::text_of_average(1, 0, 3), "0.3333");
    EXPECT_EQ(host::text_of_average(-2, 0, 3), "-0.6667");
    EXPECT_EQ(host::text_of_average(1, 0, 20000), "0.0001");
    EXPECT_EQ(host::text_of_average(-1, 0, 20000), "-0.0001");
    EXPECT_EQ(host::text_of_average(INT64_MAX, 2, 1), "92233720368547758.070000");
}

TEST_F(Command, GroupsOfFlights) {
    // awk -F, 'NR>1 && ($4=="SFO" || $4=="LAX") {n[$4]++; s[$4]+=$2; d[$4]=$3>d[$4]?$3:d[$4]} END {for (k in n) ...}'
    outcome o = run("query " + flights_ +
                    " --where 'origin in (SFO, LAX)' --group-by origin --count --sum delay "
                    "--max distance --check --explain");
    EXPECT_EQ(o.status, 0) << o.err;
    EXPECT_EQ(o.out, "origin,count,sum(delay),max(distance)\nLAX,3811,26310,3386\nSFO,2015,10771,2704\n");
    for (const char *part : {"tavo_groupkey_dydi", "tavo_gby_sum_dydi", "keys of origin", "tavo_gather_dydi", "agrees"})
        EXPECT_NE(o.err.find(part), std::string::npos) << part << "\n" << o.err;

    // All forms of columns, more keys than are kept in an array, expressions, months: recomputed from the text.
    for (const char *encode : {"plain", "spak", "rle"})
        for (const char *query : {"--group-by 'origin,month(date)' --sum delay --avg delay --min date --max distance",
                                  "--group-by date,origin --count --avg delay",
                                  "--group-by destination --sum 'distance * 1.609344 as km' --avg 'delay + distance'",
                                  "--where 'delay > 200' --group-by origin --sum delay --having 'count > 3'"}) {
            o = run("query " + flights_ + " --encode " + encode + " --check " + query);
            EXPECT_EQ(o.status, 0) << query << "\n" << o.err;
        }
    o = run("query " + flights_ +
            " --group-by 'origin, month(date)' --count --having 'count > 800' "
            "--order-by 'count desc' --limit 2");
    EXPECT_EQ(std::count(o.out.begin(), o.out.end(), '\n'), 3) << o.out;
    EXPECT_TRUE(o.out.starts_with("origin,month(date),count\n")) << o.out;
}

TEST_F(Command, GroupsWithNullsAndDecimals) {
    const std::string csv = file("g.csv", "k,v,w,t\n"
                                          "b,1.50,1,2001-02-03\n,2,,2001-02-04 10:00\nb,,3,\na,-0.25,4,2001-01-31\n"
                                          "b,1e1,5,2001-02-28\n,,6,2000-12-31\n");
    outcome o = run("query " + csv + " --group-by k --count --sum v --avg v --min v --max w --check");
    EXPECT_EQ(o.status, 0) << o.err;
    EXPECT_EQ(o.out, "k,count,sum(v),avg(v),min(v),max(w)\n"
                     ",2,2.00,2.000000,2,6\na,1,-0.25,-0.250000,-0.25,4\nb,3,11.50,5.750000,1.50,5\n");
    o = run("query " + csv + " --group-by 'month(t)' --sum 'v * 2 as twice' --check --order-by 'sum(twice) desc'");
    EXPECT_EQ(o.out, "month(t),sum(twice)\n2001-02,27\n2001-01,-0.5\n,\n2000-12,\n") << o.err;
    // What only a condition or the order needs is not printed.
    o = run("query " + csv + " --group-by k --sum v --having 'count > 1' --order-by 'max(w) desc' --check");
    EXPECT_EQ(o.out, "k,sum(v)\n,2.00\nb,11.50\n") << o.err;
    // Without groups: one row, whatever there is.
    o = run("query " + csv + " --sum v --avg w --count --check");
    EXPECT_EQ(o.out, "count,sum(v),avg(w)\n6,13.25,3.8000\n") << o.err;
    o = run("query " + csv + " --where 'w > 100' --sum v --sum 'w + 1' --count --check");
    EXPECT_EQ(o.out, "count,sum(v),sum(w + 1)\n0,,\n") << o.err;
    o = run("query " + csv + " --where 'w > 100' --group-by k --sum v --check");
    EXPECT_EQ(o.out, "k,sum(v)\n") << o.err;
    o = run("query " + csv + " --group-by k --having 'sum(v) > 0 and \"max(w)\" = 5' --sum v --max w");
    EXPECT_EQ(o.out, "k,sum(v),max(w)\nb,11.50,5\n") << o.err;
    // More than 63 bits: doubles, added in the order of the rows.
    const std::string large = file("l.csv", "v\n9e18\n9e18\n1\n");
    EXPECT_EQ(run("query " + large + " --sum v --check").out, "sum(v)\n1.8e+19\n");
}

TEST_F(Command, ComputedColumns) {
    const std::string csv = file("c.csv", "a,b\n1,0.5\n2,\n3,1e2\n-4,2\n5,1\n");
    outcome o = run("query " + csv + " --select 'a * b as p' --select 'b - 1' --select a --columns b --check");
    EXPECT_EQ(o.status, 0) << o.err;
    EXPECT_EQ(o.out, "b,p,b - 1,a\n0.5,0.5,-0.5,1\n,,,2\n1e2,300,99,3\n2,-8,1,-4\n1,5,0,5\n");
    o = run("query " + csv + " --where 'a > 1' --select '10 - a as left' --columns a --limit 2 --check --explain");
    EXPECT_EQ(o.out, "a,left\n2,8\n3,7\n");
    EXPECT_NE(o.err.find("tavo_sub_double_n_n"), std::string::npos) << o.err;
    // The sum of an expression without nulls is the kernels' own.
    o = run("query " + csv + " --sum 'a * 1.1 as t' --avg 'a + a' --check --explain");
    EXPECT_EQ(o.out, "sum(t),avg(a + a)\n7.7,2.8\n") << o.err;
    EXPECT_NE(o.err.find("tavo_mul_double_n_n_sum"), std::string::npos) << o.err;
}

TEST_F(Command, GroupsThatAreRefused) {
    const std::string csv = file("r.csv", "k,v,name\n1,2,x\n");
    expect_refused("query " + csv + " --group-by nope", "nope");
    expect_refused("query " + csv + " --sum name", "name is no column of numbers");
    expect_refused("query " + csv + " --sum 'v * name'", "name is no column of numbers");
    expect_refused("query " + csv + " --sum 'v / 2'", "no expression");
    expect_refused("query " + csv + " --sum '1 + 2'", "no expression");
    expect_refused("query " + csv + " --group-by 'month(v)'", "v is no column of dates");
    expect_refused("query " + csv + " --group-by k --min 'v + 1'", "--min takes a column");
    expect_refused("query " + csv + " --having 'count > 1'", "goes with --group-by");
    expect_refused("query " + csv + " --group-by k --having 'nope > 1'", "nope");
    expect_refused("query " + csv + " --group-by k --order-by nope", "nope");
    expect_refused("query " + csv + " --group-by k --columns v", "no --columns");
    expect_refused("query " + csv + " --sum v --join " + csv + " --on k=k", "not for joined files");
    // 70,000 values in each of two columns: their keys don't fit 32 bits.
    std::string many = "a,b\n";
    for (int i = 0; i < 70000; i++)
        many += std::to_string(i) + "," + std::to_string(i * 7) + "\n";
    expect_refused("query " + file("many.csv", many) + " --group-by a,b", "do not fit 32 bits");
}

} // namespace
