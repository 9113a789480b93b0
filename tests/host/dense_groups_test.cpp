// Groups by columns held as texts: the dictionary that threads feed, and `tavo query --threads`, against plain maps and
// the text of the file.
#include "host/group/dense_groups.h"

#include <fmt/format.h>
#include <map>
#include <random>
#include <set>

#include "host/error.h"
#include "tests/host/command_fixture.h"

namespace {

using host::dense_dictionary;
using host::memory_budget;

const host::library &loaded() {
    static host::library library(TAVO_LIBRARY_PATH);
    static const bool started = (library.check_and_start(host::this_processor()), true);
    EXPECT_TRUE(started);
    return library;
}

// Texts as a file's column has them, and which of its rows count.
struct texts {
    explicit texts(std::vector<std::string> values, unsigned one_row_in = 1) : values(std::move(values)) {
        for (const std::string &value : this->values) {
            addresses.push_back(std::bit_cast<ub8>(value.data()));
            lengths.push_back(static_cast<ub2>(value.size()));
        }
        enc.flags = TAVO_LP_SEP;
        source.name = "c";
        source.column.enc = &enc;
        source.column.data = addresses.data();
        source.column.lengths = lengths.data();
        source.column.size = static_cast<ub4>(addresses.size());
        for (ub4 row = 0; row < addresses.size(); row += one_row_in)
            rows.push_back(row);
        if (one_row_in > 1)
            source.rows = &rows;
    }
    std::vector<std::string> values;
    std::vector<ub8> addresses;
    std::vector<ub2> lengths;
    std::vector<ub4> rows;
    tavo_enc_ctx enc{};
    host::symbol_source source{};
};

// One code for each text, the text for each code, and no more codes than can be left over. Returns the grants, as
// --explain tells them.
std::string expect_one_code_a_text(const texts &t, unsigned threads, memory_budget memory = memory_budget()) {
    dense_dictionary dictionary(loaded(), t.source, threads, memory);
    host::step_list steps;
    const std::vector<ub4> codes = dictionary.codes(steps);
    EXPECT_EQ(codes.size(), t.rows.size());
    std::map<std::string, ub4> code_of;
    std::set<ub4> given;
    for (std::size_t i = 0; i < codes.size(); i++) {
        const std::string &text = t.values[t.rows[i]];
        EXPECT_EQ(code_of.try_emplace(text, codes[i]).first->second, codes[i]) << text.substr(0, 20);
        given.insert(codes[i]);
    }
    EXPECT_EQ(given.size(), code_of.size()) << "two texts have one code";
    EXPECT_LE(dictionary.end_code(), code_of.size() + 8 * threads);
    EXPECT_TRUE(given.empty() || *given.rbegin() < dictionary.end_code());
    std::vector<ub8> addresses;
    std::vector<ub2> lengths;
    dictionary.symbols(codes, addresses, lengths, steps);
    for (std::size_t i = 0; i < codes.size(); i++)
        EXPECT_EQ(std::string(std::bit_cast<const char *>(addresses[i]), lengths[i]), t.values[t.rows[i]]);
    for (const host::query_step &step : steps.all())
        if (step.kernel == "tavo_dgk_symbol2code_dydi")
            return step.what.substr(step.what.rfind("B, ") + 3);
    return "";
}

TEST(DenseDictionary, OneCodeATextFromAllThreads) {
    std::mt19937_64 rng(1);
    std::vector<std::string> few, many, lengths;
    for (unsigned i = 0; i < 40000; i++) {
        few.push_back(rng() % 9 == 0 ? "" : "word " + std::to_string(rng() % 300));
        many.push_back(std::to_string(rng() % 30000 * 2654435761u));
    }
    // Every length from 0 to 300, and around the largest, with texts that differ in their last byte alone.
    for (unsigned round = 0; round < 2; round++)
        for (unsigned n = 0; n < 300; n++)
            for (const char last : {'a', 'b'})
                lengths.push_back(n == 0 ? "" : std::string(n - 1, 'x') + last);
    for (unsigned n = 65520; n < 65536; n++)
        for (const char last : {'a', 'b', 'a'})
            lengths.push_back(std::string(n - 1, 'x') + last);
    for (const unsigned one_in : {1u, 3u}) {
        const texts all[] = {texts(few, one_in), texts(many, one_in), texts(lengths, one_in),
                             texts(std::vector<std::string>(), one_in),
                             texts(std::vector<std::string>{"only"}, one_in)};
        for (const texts &t : all)
            for (const unsigned threads : {1u, 2u, 4u, 9u})
                expect_one_code_a_text(t, threads);
    }
}

TEST(DenseDictionary, MemoryIsGrantedUpToTheLimit) {
    std::vector<std::string> values;
    for (unsigned i = 0; i < 30000; i++)
        values.push_back("a value of some length " + std::to_string(i * 7919 % 5000));
    const texts t(values);
    // Twice as much each time: at first too little, and then enough, by grants on demand, whatever the threads.
    for (const unsigned threads : {1u, 4u}) {
        bool enough = false;
        unsigned refused = 0;
        for (ub8 limit = 1 << 10; limit <= 1 << 28; limit *= 2) {
            try {
                const std::string grants = expect_one_code_a_text(t, threads, memory_budget(limit));
                EXPECT_TRUE(enough || grants != "0 grants]") << limit;
                enough = true;
            } catch (const host::error &e) {
                EXPECT_FALSE(enough) << "enough before, not with " << limit << ": " << e.what();
                EXPECT_NE(std::string(e.what()).find(fmt::format("--memory is too little: with {} bytes", limit)),
                          std::string::npos)
                    << e.what();
                refused++;
            }
        }
        EXPECT_TRUE(enough);
        EXPECT_GE(refused, 8u) << threads; // 5000 symbols of 28 bytes take more than 128 KiB
    }
    EXPECT_EQ(expect_one_code_a_text(texts(std::vector<std::string>{"a", "b", "a"}), 1, memory_budget(16 << 10)),
              "1 grant]");
}

TEST_F(Command, GroupsOfTexts) {
    // The groups of columns with dictionaries, from texts by any number of threads.
    for (const char *query :
         {"--group-by origin --count --sum delay --avg 'delay * 2 as d' --min delay --max date",
          "--where 'delay > 60' --group-by origin --count --having 'count > 20' --order-by 'count desc, origin'",
          "--where 'distance = 77' --group-by origin,destination --avg delay",
          "--group-by origin --where 'delay > 5000'",
          "--group-by 'origin,month(date),destination' --sum delay --limit 50"}) {
        const outcome plain = run("query " + flights_ + " " + query);
        EXPECT_EQ(plain.status, 0) << plain.err;
        for (const char *threads : {"1", "2", "4"}) {
            const outcome o = run("query " + flights_ + " --encode origin=text --threads " + threads + " " + query +
                                  " --check --explain");
            EXPECT_EQ(o.status, 0) << query << "\n" << o.err;
            EXPECT_EQ(o.out, plain.out) << query << ", " << threads;
            const std::string told = std::string(threads) + " thread" + (*threads == '1' ? "" : "s");
            for (const std::string &part : {"tavo_dgk_sym2code_ex_lp_sep, " + told,
                                            std::string("tavo_dgk_code2symbol_dydi"), std::string("agrees")})
                EXPECT_NE(o.err.find(part), std::string::npos) << part << "\n" << o.err;
            const bool several = std::string(query).find("origin,") != std::string::npos;
            for (const std::string &part :
                 {std::string("tavo_dgk_concatenate_dydi"), "tavo_dgk_sym2code_ex_fixed, " + told,
                  std::string("tavo_extract_dgk_dydi")})
                EXPECT_EQ(o.err.find(part) != std::string::npos, several) << part << "\n" << o.err;
        }
    }
    // More keys than 32 bits take, of texts alone; nearly every row is a group.
    const outcome o = run("query " + flights_ +
                          " --encode date=text --encode destination=text --encode delay=text --encode distance=text "
                          "--group-by date,destination,delay,distance --threads 2 --check --order-by 'count desc' "
                          "--limit 1");
    EXPECT_EQ(o.status, 0) << o.err;
}

TEST_F(Command, TextsOfGroupsComeBackAsTheyStand) {
    const std::string csv = file("g.csv", "k,n,v\n\"a\"\"b\",10,1\n,2,2\n\"\",9,3\n\"a\"\"b\",1.0,4\nNA,1,5\n"
                                          "\"x,\ny\",10,6\n" +
                                              std::string(65535, 'z') + ",,7\n");
    for (const char *threads : {"", " --threads 3"}) {
        outcome o = run("query " + csv + " --encode k=text --null NA --group-by k --sum v --check" + threads);
        EXPECT_EQ(o.status, 0) << o.err;
        EXPECT_EQ(o.out,
                  "k,sum(v)\n,10\n\"a\"\"b\",5\n\"x,\ny\",6\n" + std::string(65535, 'z') + ",7\n"); // nulls first
        // Ordered as the numbers that they are, each spelling by itself.
        o = run("query " + csv + " --encode n=text --group-by n --count --check" + threads);
        EXPECT_EQ(o.out, "n,count\n,1\n1,1\n1.0,1\n2,1\n9,1\n10,2\n") << o.err;
    }
    expect_refused("query " + file("long.csv", "k\n" + std::string(65536, 'z') + "\n") +
                       " --encode k=text --group-by k",
                   "line 2 has a value of 65536 bytes");
}

TEST_F(Command, ThreadsAndMemoryThatAreRefused) {
    const std::string query = "query " + flights_ + " --encode origin=text --group-by origin";
    for (const char *threads : {"0", "two", "257", "''", "2x", "99999999999999999999"})
        expect_refused(query + " --threads " + threads, "a number from 1 to 256");
    expect_refused(query + " --threads=-1", "a number from 1 to 256");
    expect_refused(query + " --memory 2T", "--memory 2T: expected a number of bytes");
    expect_refused(query + " --threads 2 --memory 1K",
                   "--memory is too little: with 1024 bytes 0 of 100000 rows get the code of their origin");
    EXPECT_EQ(run(query + " --threads 2 --memory 1M --check").status, 0);
    const std::string text_alone = "group-by) and nothing else";
    expect_refused("query " + flights_ + " --group-by origin --threads 2", "--encode COLUMN=text");
    expect_refused("query " + flights_ + " --threads 2", "--encode COLUMN=text");
    expect_refused("query " + flights_ + " --encode origin=text --limit 1", text_alone);
    expect_refused("columns " + flights_ + " --encode origin=text", text_alone);
    expect_refused(query + " --where 'origin = SFO'", text_alone);
    expect_refused("query " + flights_ + " --encode delay=text --group-by delay --sum delay", text_alone);
    expect_refused("query " + flights_ + " --encode date=text --group-by 'month(date)'", text_alone);
    expect_refused("query " + flights_ + " --encode delay=text --type delay=integer --group-by delay", "form text");
    expect_refused("query " + flights_ + " --encode text --group-by origin", "COLUMN=text");
    expect_refused("query " + flights_ + " --join " + airports_ + " --on origin=iata --encode origin=text", text_alone);
    expect_refused("query " + flights_ + " --join " + airports_ + " --on origin=iata --threads 2", "--threads");
}

} // namespace
