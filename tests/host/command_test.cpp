// The command `tavo` from outside: what it prints, what it says when something is wrong, and its exit status.
#include <algorithm>

#include "tests/host/command_fixture.h"

namespace {

TEST_F(Command, Flights) {
    const std::string query =
        "query " + flights_ +
        " --where 'distance between 500 and 1000' --where 'origin in (SFO, LAX)' --where 'delay > 60'";
    outcome o = run(query + " --count");
    EXPECT_EQ(o.status, 0);
    // awk -F, 'NR>1 && $3>=500 && $3<=1000 && ($4=="SFO" || $4=="LAX") && $2>60' flights-100k.csv | wc -l
    EXPECT_EQ(o.out, "50\n");
    EXPECT_EQ(o.err, "");

    o = run(query + " --explain --check --columns origin,delay --limit 2");
    EXPECT_EQ(o.status, 0);
    EXPECT_TRUE(o.out.starts_with("origin,delay\n")) << o.out;
    EXPECT_EQ(std::count(o.out.begin(), o.out.end(), '\n'), 3) << "the answer alone\n" << o.out;
    EXPECT_TRUE(o.err.starts_with("tavo: the first 2 of 50 rows\nstep ")) << o.err;
    for (const char *part : {"tavo_ge_le_dict_11bit", "tavo_lbiwvor_dydi", "tavo_gt_dict_9bit", "Mrows/s",
                             "check: 50 of 100000 rows, recomputed from the text: agrees\n"})
        EXPECT_NE(o.err.find(part), std::string::npos) << part << "\n" << o.err;

    o = run("query " + flights_ + " --where 'delay > 600' --where 'distance < 400'");
    EXPECT_EQ(o.out, "date,delay,distance,origin,destination\n2001-06-01 01:01,1024,226,LAS,SNA\n");
}

TEST_F(Command, NullsAndQuotes) {
    outcome o =
        run("query " + airports_ + " --null NA --where 'state is null and country <> USA' --columns iata --check");
    EXPECT_EQ(o.status, 0);
    EXPECT_EQ(o.out, "iata\nROP\nROR\nSPN\nYAP\n");
    EXPECT_TRUE(o.err.starts_with("check: 4 of 3376")) << o.err;
    o = run("query " + airports_ + " --where \"name = 'W. H. \\\"Bud\\\" Barron'\"");
    EXPECT_EQ(o.out, "iata,name,city,state,country,latitude,longitude\n"
                     "DBN,\"W. H. \"\"Bud\"\" Barron\",Dublin,GA,USA,32.56445806,-82.98525556\n");
    const std::string csv = file("q.csv", "\xef\xbb\xbf"
                                          "a,\"b c\"\r\n\"x\r\ny\",1\r\n\"\",2\r\nz,3");
    EXPECT_EQ(run("query " + csv).out, "a,b c\n\"x\r\ny\",1\n,2\nz,3\n");
    EXPECT_EQ(run("query " + csv + " --where 'a is null'").out, "a,b c\n,2\n");
    EXPECT_EQ(run("query " + csv + " --where '\"b c\" >= 3' --columns '\"b c\",a'").out, "b c,a\n3,z\n");
}

TEST_F(Command, ValuesPrintAsTheyStood) {
    const std::string csv = file("v.csv", "v\n1\n1.0\n007\n-0\n2\n");
    EXPECT_EQ(run("query " + csv + " --where 'v = 1'").out, "v\n1\n1.0\n");
    EXPECT_EQ(run("query " + csv + " --where 'v in (7, 0)'").out, "v\n007\n-0\n");
}

TEST_F(Command, FormsOfColumns) {
    // The same answer, whatever the form, through the kernels of that form.
    const std::string query = "query " + flights_ + " --where 'delay > 300' --check --explain --encode ";
    std::string rows;
    for (const auto &[form, kernel] : {std::pair("plain", "tavo_decode_dict_9bit"),
                                       {"spak", "tavo_spak_decode_dydi"},
                                       {"rle", "tavo_decode_unpack_dict_9bit"}}) {
        const outcome o = run(query + form);
        EXPECT_EQ(o.status, 0) << o.err;
        EXPECT_NE(o.err.find(kernel), std::string::npos) << o.err;
        EXPECT_NE(o.err.find("recomputed from the text: agrees"), std::string::npos);
        EXPECT_TRUE(rows.empty() || rows == o.out);
        rows = o.out;
    }
    EXPECT_EQ(std::count(rows.begin(), rows.end(), '\n'), 1 + 71); // awk -F, '$2>300' | wc -l, and the header

    const outcome o = run("columns " + airports_ + " --null NA --encode state=spak");
    EXPECT_EQ(o.status, 0);
    for (const char *part : {"state text 56 yes 6 spak", "country text 5 no 3 rle 8 ", "3376 rows;"})
        EXPECT_NE(squeezed(o.out).find(part), std::string::npos) << part << "\n" << o.out;
    // One column left to choose while all others have a form.
    const outcome chosen = run("columns " + airports_ + " --encode spak --encode country=auto");
    EXPECT_NE(squeezed(chosen.out).find(" 3 rle "), std::string::npos) << chosen.out;
    EXPECT_NE(squeezed(chosen.out).find(" 6 spak "), std::string::npos) << chosen.out;
    expect_refused("columns " + airports_ + " --encode =rle", "there is no column ''");
    expect_refused("columns " + airports_ + " --encode zip",
                   "the forms are auto, plain, spak, rle, fixed, dynp and text");
    expect_refused("columns " + airports_ + " --encode stat=rle", "did you mean state");
    expect_refused("query " + file("long.csv", "a,b\n1," + std::string(65536, 'x') + "\n"), "column b does not fit");
}

TEST_F(Command, NumbersWithoutDictionary) {
    // Of 2500 departures: two columns of times with zones, by themselves without a dictionary, and numbers told to be
    // so.
    const std::string departures = "'" TAVO_DATA "/departures.csv' --encode distance=dynp ";
    const outcome o = run("query " + departures +
                          "--where 'departed < scheduled' --where 'distance in (77, 235, 954, 1542, 1589)' "
                          "--columns scheduled,departed,distance --limit 2 --explain --check");
    EXPECT_EQ(o.status, 0);
    EXPECT_EQ(o.out, "scheduled,departed,distance\n2001-01-13 23:27-05:00,2001-01-13 23:05-05:00,77\n"
                     "2001-03-01 13:16-06:00,2001-03-01 13:07-06:00,235\n");
    for (const char *part : {"tavo_lookup_and_compare_dydi", "tavo_eq_dynp_16bit", "tavo_selective_dydi", "agrees"})
        EXPECT_NE(o.err.find(part), std::string::npos) << part << "\n" << o.err;

    const outcome extremes = run("query " + departures +
                                 "--where \"scheduled < '2001-01-02'\" --min distance --max "
                                 "departed --max origin --count --explain --check");
    EXPECT_EQ(extremes.status, 0) << extremes.err;
    EXPECT_EQ(extremes.out.substr(0, extremes.out.find('\n')), "count,min(distance),max(departed),max(origin)");
    for (const char *part : {"tavo_lt_fixed_64bit_tz", "tavo_minmax_dict_8bit", "agrees"})
        EXPECT_NE(extremes.err.find(part), std::string::npos) << part << "\n" << extremes.err;
    const std::string few = file("few.csv", "n,t\n30,2001-01-01 05:00+02:00\n,2001-01-01 04:00+01:00\n7,\n");
    EXPECT_EQ(run("query " + few + " --encode fixed --min n --max n --min t --max t --check").out,
              "min(n),min(t),max(n),max(t)\n7,2001-01-01 05:00+02:00,30,2001-01-01 05:00+02:00\n"); // the first of one
                                                                                                    // instant
    EXPECT_EQ(run("query " + few + " --where 'n > 30' --min n --max t --check").out, "min(n),max(t)\n,\n");

    expect_refused("query " + few + " --encode n=fixed --min m", "there is no column 'm'");
    expect_refused("query " + few + " --encode t=dynp", "times with a zone are of form fixed");
    expect_refused("query " + airports_ + " --encode city=fixed",
                   "column city cannot be of form fixed: it holds texts");
    expect_refused("query " + file("zeros.csv", "n\n007\n8\n") + " --encode n=dynp",
                   "'007', which would come back as 7");
    expect_refused("query " + few + " --where \"t = '2001-01-01 05:00+24:00'\"", "date-time");
}

TEST_F(Command, BadFiles) {
    expect_refused("query " + folder_ + "/absent.csv", "absent.csv: No such file");
    expect_refused("query " + folder_, "it is a folder");
    expect_refused("query " + file("empty.csv", ""), "empty");
    expect_refused("query " + file("packed.csv", "\x1f\x8b\x08"), "a gzip file");
    expect_refused("query " + file("short.csv", "a,b\n1,2\n3\n") + " --count",
                   "line 3: 1 field where the header has 2");
    expect_refused("query " + file("open.csv", "a,b\n1,2\n3,\"x\n") + " --where 'a = 1'", "line 3: a quote is opened");
}

TEST_F(Command, BadPredicates) {
    expect_refused("query " + flights_ + " --where 'dely > 5'", "there is no column 'dely'; did you mean delay?");
    expect_refused("query " + flights_ + " --columns date,destinatoin", "did you mean destination?");
    expect_refused("query " + flights_ + " --where 'delay > '", "delay > \n          ^\n");
    expect_refused(
        "query " + flights_ + " --where 'delay > 5' --where 'delay > x1'",
        "'x1' cannot be compared with column delay, whose values are of type integer\n  delay > x1\n          ^");
    expect_refused("query " + flights_ + " --where 'date > 2001-02-30'", "date-time");
    expect_refused("query " + flights_ + " --where 'dealy > 5'", "did you mean delay?");
    expect_refused("query", "FILE");
    expect_refused("query " + flights_ + " --wher x", "there is no option --wher; did you mean --where?");
    expect_refused("quary " + flights_, "there is no 'quary'; did you mean query?");
    for (const char *list :
         {"''", "'date,'", "date,,delay", "'date\ndely'", "'date delay'", "'\"date'", "'\"date\" x'"})
        expect_refused("query " + flights_ + " --columns " + list, "");
    expect_refused("query " + flights_ + " --limit many", "limit");
    expect_refused("", "subcommand");
}

TEST_F(Command, NumbersAmongWhichATextStands) {
    // One of 2,000 delays is changed.
    std::string text = "delay,when\n";
    unsigned above = 0;
    for (int i = 0; i < 2000; i++) {
        above += i != 17 && i * 37 % 500 > 60;
        text += (i == 17 ? "N/A" : std::to_string(i * 37 % 500)) + ",2001-01-01T0" + std::to_string(i % 10) + ":00Z\n";
    }
    const std::string csv = file("d.csv", text), query = "query " + csv + " --count --check --where 'delay > 60' ";
    expect_refused(query, "column delay is text because of line 19, where it has 'N/A'");
    EXPECT_EQ(run(query + "--null N/A").out, std::to_string(above) + "\n");
    EXPECT_NE(run(query + "--type delay=text").out, std::to_string(above) + "\n");
    EXPECT_EQ(run(query + "--type delay=text").status, 0);
    expect_refused(query + "--type delay=integer", "1 value is not:\n  line 19: 'N/A'\n");
    expect_refused(query + "--type delay=number", "the types are integer, decimal, date, date-time and text");
    expect_refused(query + "--type dely=text", "did you mean delay?");
    EXPECT_NE(squeezed(run("columns " + csv).out).find("line 19: 'N/A'\n"), std::string::npos);
    EXPECT_NE(squeezed(run("columns " + csv).out).find("when date-time 10 "), std::string::npos);
    EXPECT_EQ(run("query " + csv + " --count --where \"when > '2001-01-01 09:30:00+01:00'\"").out, "200\n");
}

TEST_F(Command, OtherKindsOfFiles) {
    EXPECT_EQ(run("query " + file("semicolons.csv", "a;b\n1,5;x\n2,5;\"y;z\"\n") + " --where 'b <> x'").out,
              "a,b\n\"2,5\",y;z\n");
    EXPECT_EQ(run("query " + file("tabs.csv", "a\tb\n1\t,\n") + " --delimiter tab").out, "a,b\n1,\",\"\n");
    EXPECT_EQ(run("query " + file("hash.csv", "a#b\n1#2\n") + " --delimiter '#' --columns ' b , A'").out, "b,a\n2,1\n");
    expect_refused("query " + flights_ + " --delimiter '\"'", "a single character");
    EXPECT_EQ(run("query " + file("bare.csv", "1,2\n3,4\n") + " --no-header --where 'column_1 > 1'").out,
              "column_1,column_2\n3,4\n");
    // A header and nothing else is a table without rows.
    const std::string empty = file("empty_table.csv", "a,b\n");
    for (const std::string where :
         {"", "--where 'a > 5'", "--where 'a = b and b is null'", "--where 'not a in (x, y)'"}) {
        EXPECT_EQ(run("query " + empty + " --check " + where).out, "a,b\n") << where;
        EXPECT_EQ(run("query " + empty + " --count " + where).out, "0\n") << where;
    }
    EXPECT_EQ(run("columns " + empty).status, 0);
    const outcome made = run("query " + file("index.csv", ",city,city\n0,a,b\n") + " --where 'city_2 = b'");
    EXPECT_EQ(made.out, "column_1,city,city_2\n0,a,b\n");
    EXPECT_NE(made.err.find("column 1 has no name and is called column_1"), std::string::npos) << made.err;
    EXPECT_NE(made.err.find("is called city_2"), std::string::npos) << made.err;
    // Standard input, and more rows than are decoded at a time.
    std::string rows = "n\n";
    for (int i = 0; i < 30000; i++)
        rows += std::to_string(i) + "\n";
    const outcome piped =
        run("query - --check", "sh -c \"cat '" + file("many.csv", rows) +
                                   "' | TAVO_LIB='" TAVO_LIBRARY_PATH "' \\\"\\$0\\\" \\\"\\$@\\\"\"");
    EXPECT_EQ(piped.out, rows);
    EXPECT_EQ(piped.err, "check: 30000 of 30000 rows, recomputed from the text: agrees\n");
}

TEST_F(Command, Version) {
    const outcome o = run("--version");
    EXPECT_EQ(o.status, 0);
    EXPECT_TRUE(o.out.starts_with("tavo ")) << o.out;
    EXPECT_NE(run("query --help").out.find("4,294,967,294 rows"), std::string::npos);
}

#ifndef __SANITIZE_ADDRESS__ // which needs more address space than there is here
TEST_F(Command, OutOfMemory) {
    // 40 MB of unique keys where 90 MB of address space are left to the process.
    std::string text = "n\n";
    for (int i = 10000000; i < 14500000; i++)
        text += std::to_string(i) + "\n";
    const std::string csv = file("large.csv", text), out = folder_ + "/out", err = folder_ + "/err";
    const int status = std::system(("ulimit -v 90000; TAVO_LIB='" TAVO_LIBRARY_PATH "' '" TAVO_COMMAND "' query '" +
                                    csv + "' --count --where 'n = 5' >'" + out + "' 2>'" + err + "'")
                                       .c_str());
    EXPECT_EQ(WEXITSTATUS(status), 2);
    EXPECT_EQ(content(out), "");
    EXPECT_NE(content(err).find("out of memory: " + csv + " has 40.5 MB"), std::string::npos) << content(err);
}
#endif

TEST_F(Command, Joins) {
    const std::string join = "query " + flights_ + " --join " + airports_ + " --on origin=iata ";
    outcome o = run(join + "--where 'airports.state = CA' --where 'delay > 200' --count --check");
    EXPECT_EQ(o.status, 0) << o.err;
    // awk -F, 'NR==FNR {if ($4=="CA") ca[$1]=1; next} $2>200 && ($4 in ca)' airports.csv flights-100k.csv | wc -l
    EXPECT_EQ(o.out, "35\n");
    EXPECT_EQ(o.err, "check: 35 rows of 100000 and 3376, joined from the text: agrees\n");

    o = run(join +
            "--where 'state = CA' --where 'delay > 200' --columns airports.city,delay,right.iata --explain --check");
    EXPECT_EQ(o.status, 0) << o.err;
    EXPECT_TRUE(o.out.starts_with("city,delay,iata\n")) << o.out;
    for (const char *part : {"tavo_hash_dydi", "tavo_layout_kv_dydi", "tavo_create_add_kv_dydi",
                             "tavo_xlate_sim_ub2_c2d", "tavo_probe_kv_dydi", "joined from the text: agrees\n"})
        EXPECT_NE(o.err.find(part), std::string::npos) << part << "\n" << o.err;

    const std::string left = file("a.csv", "id,name\n1,x\n2,\n3,z\n"),
                      right = file("b.csv", "id,name\n3,c\n1,a\n3,d\n9,\n");
    const std::string small = "query " + left + " --join " + right + " --on id --check";
    const auto answer = [&](const std::string &options) {
        const outcome out = run(small + " " + options);
        EXPECT_EQ(out.status, 0) << options << "\n" << out.err;
        return out.out;
    };
    EXPECT_EQ(answer(""), "a.id,a.name,b.id,b.name\n1,x,1,a\n3,z,3,c\n3,z,3,d\n");
    EXPECT_EQ(answer("--left"), "a.id,a.name,b.id,b.name\n1,x,1,a\n2,,,\n3,z,3,c\n3,z,3,d\n");
    EXPECT_EQ(answer("--right"), "a.id,a.name,b.id,b.name\n1,x,1,a\n3,z,3,c\n3,z,3,d\n,,9,\n");
    EXPECT_EQ(answer("--anti"), "a.id,a.name\n2,\n");
    EXPECT_EQ(answer("--right --anti --columns b.name"), "b.name\n\"\"\n");
    EXPECT_EQ(answer("--limit 1 --columns b.name,a.name"), "b.name,a.name\na,x\n");
    EXPECT_EQ(answer("--where 'b.name > c or a.name = x' --columns b.name"), "b.name\na\nd\n");

    const std::string none = file("none.csv", "id,name\n");
    EXPECT_EQ(run("query " + left + " --join " + none + " --on id --left --count --check").out, "3\n");
    EXPECT_EQ(run("query " + none + " --join " + left + " --on id --count --check").out, "0\n");
    EXPECT_EQ(run("query " + none + " --join " + none + " --on id --right --count --check").out, "0\n");

    expect_refused("query " + left + " --join " + right, "--join needs --on");
    expect_refused("query " + left + " --on id", "go with --join");
    expect_refused(small + " --left --right", "exclude each other");
    expect_refused("query " + left + " --join " + right + " --on id=nam", "did you mean name");
    expect_refused("query " + left + " --join " + right + " --on id, ", "--on id,");
    expect_refused("query " + left + " --join " + right + " --on id,id,id,id", "up to 3 pairs");
    expect_refused("query " + left + " --join '" + folder_ + "/absent.csv' --on id", "absent.csv");
    expect_refused(small + " --where 'name = x'", "both files have a column name: write a.name or b.name");
    expect_refused(small + " --where 'c.name = x'", "there is no column 'c.name'; did you mean a.name or b.name?");
    expect_refused(small + " --where 'a.id = x'", "'x' cannot be compared with column id");
    expect_refused(small + " --min a.id", "don't go with --join");
    expect_refused(small + " --left --anti", "exclude each other");
    expect_refused(small + " --join-memory 99999999999999G", "more than 64 bits");
    expect_refused("query " + flights_ + " --join-memory 1G --count", "go with --join");
    expect_refused(small + " --anti --where 'a.id = 1 or b.id = 2'", "one file alone");
    expect_refused(small + " --join-memory 12X", "expected a number of bytes");
    expect_refused("query " + flights_ + " --join " + flights_ + " --on origin --join-memory 100K --count",
                   "needs more memory than it may take");
}

TEST_F(Command, Orders) {
    const auto answer = [&](const std::string &arguments) {
        const outcome o = run("query " + arguments + " --check");
        EXPECT_EQ(o.status, 0) << arguments << "\n" << o.err;
        EXPECT_NE(o.err.find("agrees\n"), std::string::npos) << arguments << "\n" << o.err;
        return o.out;
    };
    const std::string rows = file("rows.csv", "n,t\n5,b\n,a\n10,\n5,a\n-3,B\n");
    // Rows of equal values as they came, nulls last in either direction.
    EXPECT_EQ(answer(rows + " --order-by n"), "n,t\n-3,B\n5,b\n5,a\n10,\n,a\n");
    EXPECT_EQ(answer("--order-by n desc " + rows), "n,t\n10,\n5,b\n5,a\n-3,B\n,a\n");
    EXPECT_EQ(answer(rows + " --order-by 't asc' --columns n"), "n\n-3\n\"\"\n5\n5\n10\n");
    EXPECT_EQ(answer(rows + " --order-by t desc --where 'n > 0' --limit 2"), "n,t\n5,b\n5,a\n");
    EXPECT_EQ(answer(rows + " --order-by t --where 'n > 99'"), "n,t\n");
    for (const char *form : {"fixed", "dynp"})
        EXPECT_EQ(answer(rows + " --order-by n desc --columns t --encode n=" + form), "t\n\"\"\nb\na\nB\na\n");
    EXPECT_EQ(answer(file("named.csv", "b desc,b\n1,2\n2,1\n") + " --order-by 'b desc'"), "b desc,b\n1,2\n2,1\n");
    EXPECT_EQ(answer(rows + " --order-by n desc --columns t --select 'n * 2 as d' --limit 3"),
              "t,d\n,20\nb,10\na,10\n");
    // Spellings of one value, and one moment in several zones, are equal.
    EXPECT_EQ(answer(file("spelled.csv", "n\n2\n1.0\n01\n1\n0\n1.0\n") + " --order-by n"),
              "n\n0\n1.0\n01\n1\n1.0\n2\n");
    for (const char *form : {"plain", "fixed"})
        answer(file("zones.csv", "t\n2001-01-01 09:00+01:00\n2001-01-01 00:00-08:00\n2001-01-01 07:00+00:00\n"
                                 "2001-01-01 08:00+00:00\n") +
               " --order-by t --encode t=" + form);
    for (const char *form : {"", " --encode scheduled=plain"})
        answer("'" TAVO_DATA "/departures.csv' --order-by scheduled desc --limit 40" + std::string(form));
    answer(flights_ + " --order-by delay --where 'distance > 2000' --encode delay=rle");

    // Rows of more columns than one table takes, and values that fill its blocks.
    std::string wide = "c0", first, second;
    for (int c = 1; c < 600; c++)
        wide += ",c" + std::to_string(c);
    for (int c = 0; c < 600; c++) {
        first += (c ? "," : "") + std::to_string(2 * c);
        second += (c ? "," : "") + std::to_string(c);
    }
    EXPECT_EQ(answer(file("wide.csv", wide + "\n" + first + "\n" + second + "\n") + " --order-by c599"),
              wide + "\n" + second + "\n" + first + "\n");
    std::string long_rows = "n,t\n", expected = "n,t\n";
    for (int row = 0; row < 60; row++)
        long_rows += std::to_string(row) + "," + std::string(60000 - row, static_cast<char>('a' + row % 26)) + "\n";
    for (int row = 60; row-- > 0;)
        expected += std::to_string(row) + "," + std::string(60000 - row, static_cast<char>('a' + row % 26)) + "\n";
    EXPECT_EQ(answer(file("long.csv", long_rows) + " --order-by n desc"), expected);

    // Of joined rows, by a column of either side.
    const std::string join = file("a.csv", "id,name\n1,x\n2,\n3,z\n") + " --join " +
                             file("b.csv", "id,name\n3,c\n1,a\n3,d\n9,\n") + " --on id ";
    EXPECT_EQ(answer(join + "--order-by b.name desc --columns b.name,a.name"), "b.name,a.name\nd,z\nc,z\na,x\n");
    EXPECT_EQ(answer(join + "--left --order-by b.name --columns b.name,a.id"), "b.name,a.id\na,1\nc,3\nd,3\n,2\n");
    EXPECT_EQ(answer(join + "--right --order-by a.name desc --limit 2 --columns b.name"), "b.name\nc\nd\n");
    EXPECT_EQ(answer(join + "--anti --order-by a.name"), "a.id,a.name\n2,\n");
    const outcome o = run("query " + flights_ + " --join " + airports_ +
                          " --on origin=iata --where 'state = CA' --order-by delay desc --columns delay,city,state"
                          " --limit 3 --explain --check");
    EXPECT_EQ(o.status, 0) << o.err;
    for (const char *part : {"tavo_transpose_reference_dydi", "tavo_transpose_convert_dydi", "tavo_gather_dydi",
                             "joined rows in order", "joined from the text: agrees\n"})
        EXPECT_NE(o.err.find(part), std::string::npos) << part << "\n" << o.err;

    expect_refused("query " + rows + " --order-by m", "there is no column 'm'");
    expect_refused("query " + rows + " --order-by n down --count", "down");
    expect_refused("query " + rows + " --order-by n --min n", "there is no order");
    expect_refused("query " + join + "--order-by name", "both files have a column name");
}

TEST_F(Command, OutputFile) {
    const std::string rows = file("rows.csv", "n,t\n1,\"a,b\"\n2,\"say \"\"x\"\"\"\n3,\"two\nlines\"\n");
    const std::string path = folder_ + "/answer.csv";
    outcome o = run("query " + rows + " --output " + path);
    EXPECT_EQ(o.status, 0) << o.err;
    EXPECT_EQ(o.out, "");
    EXPECT_EQ(content(path), "n,t\n1,\"a,b\"\n2,\"say \"\"x\"\"\"\n3,\"two\nlines\"\n");
    EXPECT_EQ(run("query " + path + " --order-by n desc --output -").out,
              "n,t\n3,\"two\nlines\"\n2,\"say \"\"x\"\"\"\n1,\"a,b\"\n");
    run("query " + rows + " --join " + path + " --on n --columns left.n,right.t --where 'left.n = 1' --output " + path);
    EXPECT_EQ(content(path), "rows.n,answer.t\n1,\"a,b\"\n");
    expect_refused("query " + rows + " --output '" + folder_ + "/absent/answer.csv'", "cannot write");
}

TEST_F(Command, BadLibraries) {
    const std::string query = "query " + file("t.csv", "x\na\nb\n") + " --where 'x = b'";
    const auto library = [](const std::string &name) { return "'" TAVO_FALSE_LIBRARIES "/false_" + name + ".so'"; };
    expect_refused(query + " --lib " + folder_ + "/absent.so", "cannot load the library");
    expect_refused(query + " --lib " + library("wrong_magic"), "magic word");
    expect_refused(query, "MRV_22.0", "TAVO_LIB=" + library("wrong_version"));
    expect_refused(query + " --lib " + library("no_operations"), "has no operation tavo_lbiwvand_dydi");
    expect_refused(query + " --lib " + library("no_kernels"), "has no kernel tavo_eq_dict_1bit");
    expect_refused(query + " --lib " + library("raising"),
                   "internal error in the library: false_scan: raised on purpose");
    const outcome o = run(query + " --check --library " + library("lying"));
    EXPECT_EQ(o.status, 1);
    EXPECT_EQ(o.out, "");
    EXPECT_NE(o.err.find("the check fails"), std::string::npos) << o.err;
}

TEST_F(Command, FindsTheLibraryByItself) {
    const outcome o = run("info", "-u TAVO_LIB");
    EXPECT_EQ(o.status, 0) << o.err;
    EXPECT_NE(o.out.find("MRV_23.0"), std::string::npos);
    EXPECT_NE(run("info '" TAVO_FALSE_LIBRARIES "/false_no_kernels.so'").out.find("kernels: 0 of 925"),
              std::string::npos);
}

TEST_F(Command, FullDisk) {
    const std::string command = "TAVO_LIB='" TAVO_LIBRARY_PATH "' '" TAVO_COMMAND "' query " + flights_ +
                                " --count >/dev/full 2>'" + folder_ + "/err'";
    const int status = std::system(command.c_str());
    EXPECT_EQ(WEXITSTATUS(status), 2);
    EXPECT_NE(content(folder_ + "/err").find("cannot write the answer: No space left"), std::string::npos);
}

} // namespace
