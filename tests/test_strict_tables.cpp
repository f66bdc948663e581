// Strict correspondence, index and weight files: what each form reads as,
// and the fault and line each damaged file is refused with.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "fixtures.h"
#include "io/input_error.h"
#include "io/strict_tables.h"

namespace {

namespace km = kestrel::meridian;
using km::InputFault;
using meridian::testing::TempDir;

const std::string kPairHeader = "# base 1\n# element count 2\n# a\n# b\n# end_header\n";
const std::string kWeightedHeader = "# base 0\n# element count 1\n# fields\n# end_header\n";

TEST(StrictTables, CorrespondencesReadAsTheLenientLoaderReadsWellFormedFiles) {
    TempDir dir;
    const km::Correspondence pairs =
        km::readStrictCorrespondence(dir.write("p.corresp", kPairHeader + "1 5\r\n2 7\n\n"));
    EXPECT_TRUE(pairs.isPairForm());
    EXPECT_EQ(pairs.targets, (std::vector<int32_t>{0, 1}));
    EXPECT_EQ(pairs.pairSources, (std::vector<int32_t>{4, 6}));

    // The triangle corners are not shifted by the base, like the lenient loader.
    const km::Correspondence weighted = km::readStrictCorrespondence(
        dir.write("w.corresp",
                  "# base 1\n# element count 1\n# fields\n# end_header\n3 9 0 1 2 0.5 0.25 "
                  "0.25\n"));
    EXPECT_FALSE(weighted.isPairForm());
    EXPECT_EQ(weighted.targets, (std::vector<int32_t>{2}));
    EXPECT_EQ(weighted.weightedSecond, (std::vector<int32_t>{8}));
    EXPECT_EQ(weighted.triangles, (std::vector<int32_t>{0, 1, 2}));
    EXPECT_EQ(weighted.weights, (std::vector<double>{0.5, 0.25, 0.25}));

    EXPECT_EQ(km::readStrictIndexList(dir.write("i.txt", "3 -1\n 7\r\n")),
              (std::vector<int32_t>{3, -1, 7}));
    EXPECT_EQ(km::readStrictWeights(dir.write("w.txt", "0.5\n1e-3 2\n")),
              (std::vector<double>{0.5, 1e-3, 2}));
}

TEST(StrictTables, DamagedTablesAreRefusedWithTheirLine) {
    enum Kind { correspondence, indexList, weights };
    const struct {
        const char* name;
        Kind kind;
        std::string text;
        InputFault fault;
        const char* says;
    } cases[] = {
        {"base 2", correspondence, "# base 2\n# element count 0\n# end_header\n",
         InputFault::malformed, "line 1: expected \"# base 0\" or \"# base 1\""},
        {"no count", correspondence, "# base 0\n# elements 3\n# end_header\n",
         InputFault::malformed, "line 2: expected \"# element count <N>\""},
        {"no end_header", correspondence, "# base 0\n# element count 1\n# a\n",
         InputFault::truncated, "no \"# end_header\" line"},
        {"end_header with a carriage return inside", correspondence,
         "# base 0\n# element count 1\n# end_header\r\r\n0 0\n", InputFault::malformed,
         "line 4: header line without '#'"},
        {"header line without #", correspondence, "# base 0\n# element count 1\nsource\n",
         InputFault::malformed, "line 3: header line without '#'"},
        {"count above the file", correspondence,
         "# base 0\n# element count 16777216\n# a\n# b\n# end_header\n0 0\n", InputFault::truncated,
         "declares 16777216 entries, the body has only 4 bytes"},
        {"body short", correspondence, kPairHeader + "1 5\n", InputFault::truncated,
         "declares 2 entries, the body ends after 1"},
        {"body long", correspondence, kPairHeader + "1 5\n2 7\n3 9\n", InputFault::malformed,
         "line 8: more body lines than the header's 2"},
        {"pair with one field", correspondence, kPairHeader + "1 5\n2\n", InputFault::malformed,
         "line 7: entry 1 does not have 2 fields"},
        {"weighted with seven fields", correspondence, kWeightedHeader + "0 0 0 1 2 0.5 0.5\n",
         InputFault::malformed, "line 5: entry 0 does not have 8 fields"},
        {"index that is not one", correspondence, kPairHeader + "1 5\n2 7.5\n",
         InputFault::malformed, "line 7: '7.5' is not an index"},
        {"index beyond 32 bits", correspondence, kPairHeader + "1 5\n2 4294967296\n",
         InputFault::malformed, "'4294967296' is not an index"},
        {"weight nan", correspondence, kWeightedHeader + "0 0 0 1 2 nan 0.5 0.5\n",
         InputFault::nonFinite, "line 5: entry 0 has a non-finite weight 'nan'"},
        {"index list with a word", indexList, "1 2\n3 end\n", InputFault::malformed,
         "line 2: 'end' is not an index"},
        {"weights with inf", weights, "0.5\n0.25 inf\n", InputFault::nonFinite,
         "line 2: weight 2 is not a finite number: 'inf'"},
        {"weights with 1e999", weights, "1e999\n", InputFault::nonFinite, "'1e999'"},
    };
    TempDir dir;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string path = dir.write("table", c.text);
        try {
            if (c.kind == correspondence) km::readStrictCorrespondence(path);
            if (c.kind == indexList) km::readStrictIndexList(path);
            if (c.kind == weights) km::readStrictWeights(path);
            ADD_FAILURE() << "read";
        } catch (const km::InputError& e) {
            EXPECT_EQ(e.fault(), c.fault) << e.what();
            EXPECT_EQ(e.path(), path);
            EXPECT_NE(std::string(e.what()).find(c.says), std::string::npos) << e.what();
        }
    }
}

}  // namespace
