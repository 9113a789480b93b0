// `tavo nearest` from outside.
#include <algorithm>
#include <string>
#include <vector>

#include "tests/host/command_fixture.h"

namespace {

class NearestCommand : public Command {
protected:
    const std::string words_ = "'" TAVO_DATA "/words-10k.vectors'";

    // The words of an answer, and what stands behind it.
    std::vector<std::string> words_of(const outcome &o) const {
        std::istringstream lines(o.out);
        std::vector<std::string> words;
        std::string line;
        std::getline(lines, line);
        while (std::getline(lines, line))
            words.push_back(line.substr(0, line.rfind(',')));
        return words;
    }
};

TEST_F(NearestCommand, NeighboursOfAWord) {
    outcome o = run("nearest king --data " + words_ + " --k 3");
    EXPECT_EQ(o.status, 0) << o.err;
    // From the package's own numbers, in doubles: prince 0.2318, queen 0.2492, son 0.2979.
    EXPECT_EQ(words_of(o), (std::vector<std::string>{"prince", "queen", "son"})) << o.out;
    EXPECT_TRUE(o.out.starts_with("word,cosine_distance\nprince,0.23")) << o.out;
    EXPECT_EQ(o.err, "");
    o = run("nearest king --data " + words_ + " --k 2 --metric dot"); // the largest first
    EXPECT_TRUE(o.out.starts_with("word,dot_product\nemperor,28.5")) << o.out;
}

TEST_F(NearestCommand, EveryMetricAndTypeAgreesWithPlainLoops) {
    for (const std::string metric : {"cosine", "euclid", "dot", "manhattan", "hamming", "jaccard"})
        for (const std::string type : {"", "float", "double", "float16", "bfloat16", "int8", "bits"}) {
            if (metric == "jaccard" && type != "bits")
                continue;
            const outcome o = run("nearest water --check --explain --data " + words_ + " --metric " + metric +
                                  (type.empty() ? "" : " --type " + type));
            EXPECT_EQ(o.status, 0) << metric << " " << type << o.err;
            EXPECT_EQ(words_of(o).size(), 10u) << o.out;
            EXPECT_EQ(o.out.find("\nwater,"), std::string::npos) << "the word itself";
            for (const char *part : {"tavo_vector_topk_dydi", "check: 10000 of 10000 words", "allowed: agrees\n"})
                EXPECT_NE(o.err.find(part), std::string::npos) << o.err;
        }
}

TEST_F(NearestCommand, FilteredByColumnsOfTheWords) {
    outcome o = run("nearest music --data " + words_ +
                    " --where 'first = b' --where 'length < 8 and rank <= 5000' --k 4 --check --explain");
    EXPECT_EQ(o.status, 0) << o.err;
    const std::vector<std::string> found = words_of(o);
    EXPECT_EQ(found.size(), 4u) << o.out;
    EXPECT_TRUE(std::all_of(found.begin(), found.end(), [](const std::string &w) {
        return w[0] == 'b' && w.size() < 8;
    })) << o.out;
    for (const char *part : {"tavo_eq_dict_", "tavo_le_dict_", "tavo_lbiwvand_dydi", "agrees"})
        EXPECT_NE(o.err.find(part), std::string::npos) << part << "\n" << o.err;

    // Words with commas and quotes are words; few or none left to choose from are no error.
    o = run("nearest , --data " + words_ + " --where 'length = 1' --where 'not first > ;' --k 2000 --check");
    EXPECT_EQ(o.status, 0) << o.err;
    EXPECT_NE(o.out.find("\n\"\"\"\","), std::string::npos) << o.out;
    EXPECT_EQ(run("nearest king --data " + words_ + " --where 'word = king' --check").status, 0);
    EXPECT_EQ(run("nearest king --data " + words_ + " --where 'length > 99'").out, "word,cosine_distance\n");
}

TEST_F(NearestCommand, ByNumbers) {
    std::string vector = "[1";
    for (int i = 1; i < 100; i++)
        vector += ", " + std::to_string(i % 7 - 3) + "e-1";
    for (const std::string type : {"float", "int8", "bits", "float16"}) {
        const outcome o = run("nearest '" + vector + "]' --check --k 5 --data " + words_ + " --type " + type);
        EXPECT_EQ(o.status, 0) << o.err;
        EXPECT_EQ(words_of(o).size(), 5u);
    }
    // Nothing but zeros: no bit is set, and it has no direction.
    std::string zeros = "[0";
    for (int i = 1; i < 100; i++)
        zeros += ",-0";
    const outcome o = run("nearest '" + zeros + "]' --check --k 1 --type bits --data " + words_);
    EXPECT_EQ(o.status, 0) << o.err;
    EXPECT_NE(o.out.find(",nan\n"), std::string::npos) << o.out;
    expect_refused("nearest '" + vector + ", 1]' --data " + words_,
                   "the query has 101 dimensions, the words' vectors have 100");
    expect_refused("nearest '[1,2,x]' --data " + words_, "expected a number\n  [1,2,x]\n       ^");
    expect_refused("nearest '" + vector.replace(1, 1, "1e9") + "]' --data " + words_,
                   "the query: element 1, 1000000000, is no value of float16");
}

TEST_F(NearestCommand, SumsOfWords) {
    outcome o = run("nearest --query 'king - man + woman' --k 1 --check --explain --data " + words_);
    EXPECT_EQ(o.status, 0) << o.err;
    EXPECT_EQ(words_of(o), std::vector<std::string>{"queen"}) << o.out;
    for (const char *part : {"tavo_vector_arith_sub_float_float_float_vec", "less man",
                             "tavo_vector_arith_add_float_float_float_vec", "plus woman", "agrees"})
        EXPECT_NE(o.err.find(part), std::string::npos) << part << "\n" << o.err;
    // The words of the sum are no answers, however often they stand in it.
    o = run("nearest 'paris - france + italy + italy' --k 9998 --check --data " + words_);
    EXPECT_EQ(o.status, 0) << o.err;
    const std::vector<std::string> found = words_of(o);
    EXPECT_EQ(found.size(), 9997u);
    for (const char *word : {"paris", "france", "italy"})
        EXPECT_EQ(std::count(found.begin(), found.end(), word), 0) << word;
    for (const std::string type : {"double", "int8", "bits"})
        EXPECT_EQ(run("nearest 'king - man' --check --data " + words_ + " --type " + type).status, 0) << type;

    const std::string data = " --data " + words_;
    expect_refused("nearest 'king - man +'" + data, "a word is missing at the end");
    expect_refused("nearest 'king queen'" + data, "expected + or - between two words");
    expect_refused("nearest 'king + + queen'" + data, "expected a word");
    expect_refused("nearest ' '" + data, "expected a word");
    expect_refused("nearest 'king - womna'" + data, "there is no word 'womna'; did you mean woman");
}

TEST_F(NearestCommand, BadInput) {
    const std::string data = " --data " + words_;
    expect_refused("nearest Kng" + data, "there is no word 'Kng'; did you mean king");
    expect_refused("nearest king" + data + " --metric l2", "the metrics are cosine, euclid, dot,");
    expect_refused("nearest king" + data + " --type float8", "the types are float, double,");
    expect_refused("nearest king" + data + " --metric jaccard", "needs --type bits");
    expect_refused("nearest king" + data + " --k 0", "must be at least 1");
    expect_refused("nearest king" + data + " --k -3", "--k");
    expect_refused("nearest king" + data + " --where 'lenght < 5'", "did you mean length?");
    expect_refused("nearest king" + data + " --where 'first ='", "first =");
    expect_refused("nearest king", "--data");
    expect_refused("nearest" + data, "query");
    expect_refused("nearest king --data " + folder_, "it is a folder");
    expect_refused("nearest king --data " + folder_ + "/absent", "No such file");
    expect_refused("nearest king --data " + flights_, "no file of word vectors");
    std::string damaged = content(TAVO_DATA "/words-10k.vectors");
    expect_refused("nearest king --data " + file("short", damaged.substr(0, 1000)), "damaged");
    damaged[damaged.size() / 2] ^= 4;
    expect_refused("nearest king --data " + file("flipped", damaged), "damaged: its checksum");
    expect_refused("nearest king --lib '" TAVO_FALSE_LIBRARIES "/false_lying.so'" + data,
                   "has no operation tavo_vector_topk_dydi");
}

} // namespace
