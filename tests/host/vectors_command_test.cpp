// `tavo vectors` from outside: texts to files of word vectors, what is left out and why, the check.
#include <cmath>
#include <string>
#include <vector>

#include "host/vector/word_vectors.h"
#include "tests/host/command_fixture.h"

namespace {

class VectorsCommand : public Command {
protected:
    std::vector<double> row(const std::string &path, ub4 row) const {
        const host::word_vectors file(path);
        std::vector<double> values;
        file.read(row, values);
        return values;
    }
};

const char *const three_good = "name,where,embedding\n"
                               "one,x,\"[0.5, -1.25, 3]\"\n"
                               "\"t,wo\",y,\"[1,2]\"\n"
                               "bad,y,\"[1, 2x, 3]\"\n"
                               "\"two\nlines\",y,\"[1, 2, 3]\"\n"
                               "three,z,  [+.5e+1; 2]\n"
                               "four,z,\"  [1e2 ,-0.00001, 7.75]  \"\n"
                               "five,z,\"[1,2,3,4]\"\n"
                               "six,,\"[1e400,0,0]\"\n"
                               "seven,z,\"[-2.5,2.5,0.123456789012345678]\"\n";

TEST_F(VectorsCommand, WritesWhatNearestReads) {
    const std::string csv = file("some.csv", three_good), vectors = folder_ + "/some.vectors";
    const outcome o = run("vectors " + csv + " --column embedding --type float --check --explain");
    EXPECT_EQ(o.status, 0) << o.err;
    EXPECT_TRUE(o.out.starts_with(vectors + ": 3 vectors of 3 dimensions as float, norms from 3.28824 to 100.3, 6 rows "
                                            "left out, "))
        << o.out;
    for (const char *part : {"tavo_vector_parse_ascii_float", "check: 9 elements of 3 vectors", "agrees\n"})
        EXPECT_NE(o.err.find(part), std::string::npos) << o.err;
    for (const char *part :
         {":3: left out: it has 2 elements, the rows before it have 3\n",
          ":4: left out: a number is missing, malformed", ":5: left out: its word has a line break\n",
          ":7: left out: a number is missing", ":9: left out: it has 4 elements, the rows before it have 3\n",
          ":10: left out: a number is missing, malformed or beyond"})
        EXPECT_NE(o.err.find(part), std::string::npos) << part << "\n" << o.err;
    EXPECT_EQ(row(vectors, 1), (std::vector<double>{100, -0.00001f, 7.75}));
    EXPECT_EQ(host::word_vectors(vectors).words()[2], "seven");
    const outcome nearest = run("nearest one --check --k 1 --data " + vectors);
    EXPECT_EQ(nearest.status, 0) << nearest.err;
    EXPECT_NE(nearest.out.find("four,"), std::string::npos) << nearest.out;
}

TEST_F(VectorsCommand, EveryTypeAgreesWithAPlainReading) {
    const std::string out = folder_ + "/out.vectors";
    for (const std::string type : {"float", "double", "float16", "bfloat16", "int8", "bits"}) {
        outcome o = run("vectors '" TAVO_DATA "/word-texts.csv' --column vector --word word --check --type " + type +
                        " --out " + out);
        EXPECT_EQ(o.status, 0) << type << o.err;
        EXPECT_NE(o.out.find("100 vectors of 100 dimensions as " + type), std::string::npos) << o.out;
        EXPECT_EQ(run("nearest city --check --data " + out).status, 0) << type;
    }
    const std::string csv = file("some.csv", three_good);
    const outcome o = run("vectors " + csv + " --column embedding --word where --type int8 --check --out " + out);
    EXPECT_EQ(o.status, 0) << o.err;
    EXPECT_EQ(row(out, 0), (std::vector<double>{1, -1, 3})); // halves away from zero
    const host::word_vectors written(out);
    EXPECT_EQ(written.words()[0], "x");
    // One row in a thousand damaged, and long ones.
    std::string many = "w,v\n";
    for (int i = 0; i < 3000; i++) {
        many += "w" + std::to_string(i) + ",\"[" + std::to_string(i * 0.37);
        for (int k = 1; k < 40; k++)
            many += k % 3 ? ", " + std::to_string((i - k) * 1e-4) : "," + std::to_string(i % 10 - k);
        many += i % 1000 == 7 ? "\"\n" : "]\"\n";
    }
    const outcome large = run("vectors " + file("many.csv", many) + " --column v --type double --check");
    EXPECT_EQ(large.status, 0) << large.err;
    EXPECT_NE(large.out.find("2997 vectors of 40 dimensions as double"), std::string::npos) << large.out;
    EXPECT_NE(large.err.find("many.csv:9: left out: it is no vector"), std::string::npos) << large.err;
}

TEST_F(VectorsCommand, BadInput) {
    const std::string csv = file("some.csv", three_good);
    expect_refused("vectors " + csv, "--column");
    expect_refused("vectors " + csv + " --column embeding", "did you mean embedding?");
    expect_refused("vectors " + csv + " --column embedding --type float8", "the types are float, double,");
    expect_refused("vectors " + csv + " --column where",
                   "some.csv:2: no row is a vector; of this one, it is no vector");
    expect_refused("vectors " + file("one.csv", "v\n\"[1,2]\"\n") + " --column v", "another one has to name");
    expect_refused("vectors " + file("none.csv", "w,v\n") + " --column v", "there are no rows");
    expect_refused("vectors " + csv + " --column embedding --out " + folder_ + "/no/file", "it cannot be written");
    expect_refused("vectors - --column embedding", "--out FILE");
    expect_refused("vectors " + csv + " --column embedding --lib '" TAVO_FALSE_LIBRARIES "/false_lying.so'",
                   "has no operation tavo_vector_parse_dydi");
}

} // namespace
