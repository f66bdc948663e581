// Correspondence, weight and index files: the loaders against the file
// grammar's edge cases, and the mappings they define.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "fixtures.h"
#include "io/correspondence.h"

namespace {

using kestrel::meridian::applyCorrespondence;
using kestrel::meridian::applyIndexList;
using kestrel::meridian::BadSourceIndex;
using kestrel::meridian::Correspondence;
using kestrel::meridian::Error;
using kestrel::meridian::ErrorCode;
using kestrel::meridian::firstSourceOutOfRange;
using kestrel::meridian::loadCorrespondence;
using kestrel::meridian::loadIndexList;
using kestrel::meridian::loadWeightFile;
using meridian::testing::TempDir;
using Ints = std::vector<int32_t>;
using Doubles = std::vector<double>;

// Base line, count line, `extraLines` uninterpreted lines, end line.
std::string header(int base, int count, int extraLines) {
    std::string text =
        "# base " + std::to_string(base) + "\n# element count " + std::to_string(count) + "\n";
    for (int i = 0; i < extraLines; ++i) text += "# property " + std::to_string(i) + "\n";
    return text + "# end_header\n";
}

// Two extra header lines select the pair form, any other number the weighted one.
std::string pairs(int base, int count) {
    return header(base, count, 2);
}
std::string blends(int base, int count) {
    return header(base, count, 3);
}

std::string crlf(const std::string& text) {
    std::string out;
    for (char c : text) out += c == '\n' ? std::string("\r\n") : std::string(1, c);
    return out;
}

// A record as loaded; no triangles means the pair form.
struct LoadCase {
    std::string text;
    Ints targets = {}, sources = {};  // sources: pair sources or the weighted second field
    Ints triangles = {};
    Doubles weights = {};
};

std::vector<LoadCase> loadCases() {
    const Ints zeros(6, 0);
    const Doubles noWeights(6, 0.0);
    std::vector<LoadCase> cases = {
        {pairs(0, 3) + "0 4\n1 2\n2 0\n", {0, 1, 2}, {4, 2, 0}},
        {pairs(1, 3) + "1 5\n2 3\n3 1\n", {0, 1, 2}, {4, 2, 0}},
        // Base 1 shifts the first two fields only: corners are always 0-based.
        {blends(1, 2) + "1 7 3 4 5 0.25 0.5 0.25\n2 9 0 1 2 1 0 0\n",
         {0, 1},
         {6, 8},
         {3, 4, 5, 0, 1, 2},
         {0.25, 0.5, 0.25, 1, 0, 0}},
        // An unreadable count means no entries, a negative one too.
        {"# base 0\n# element count many\n# a\n# b\n# end_header\n1 5\n"},
        {"# base 0\n# count 2\n# a\n# b\n# end_header\n1 5\n"},
        {"# base 0\n\n# a\n# b\n# end_header\n1 5\n2 3\n"},
        {pairs(0, -3) + "1 5\n2 3\n"},
        {""},
        // Fields that do not convert stay 0, and the base shift applies to them.
        {pairs(0, 3) + "4\nfoo bar\n7 x\n", {4, 0, 7}, {0, 0, 0}},
        {blends(0, 2) + "5 6 7\n1 2 3 4 5 0.5\n",
         {5, 1},
         {6, 2},
         {7, 0, 0, 3, 4, 5},
         {0, 0, 0, 0.5, 0, 0}},
        {pairs(1, 1) + "4\n", {3}, {-1}},
        // The declared count rules over the lines present.
        {pairs(0, 4) + "1 5\n2 6\n", {1, 2, 0, 0}, {5, 6, 0, 0}},
        {pairs(1, 3) + "1 5\n", {0, -1, -1}, {4, -1, -1}},
        {pairs(0, 1) + "1 5\n2 6\n3 7\n", {1}, {5}},
        {crlf(pairs(1, 2) + "1 5\n2 3\n"), {0, 1}, {4, 2}},
        {crlf(header(0, 1, 1) + "1 2 3 4 5 0.125 0.375 0.5\n"),
         {1},
         {2},
         {3, 4, 5},
         {0.125, 0.375, 0.5}},
        // A '\r' at the very end of the file stays, so the end line is one
        // more extra line: three of them, hence the weighted form.
        {"# base 0\n# element count 2\n# a\n# b\n# end_header\r", {0, 0}, {0, 0}, zeros, noWeights},
        // "\r\r\n" loses only the last '\r': the header swallows the body.
        {"# base 0\n# element count 2\n# a\n# b\n# end_header\r\r\n1 5\n2 3\n",
         {0, 0},
         {0, 0},
         zeros,
         noWeights},
        // A trailing blank makes the end line an ordinary header line.
        {"# base 0\n# element count 1\n# a\n# end_header \n# end_header\n1 5\n", {1}, {5}},
    };
    // The same body reads as pairs or as eight-field lines depending only on
    // how many lines sit between the count line and the end line.
    for (int extra : {0, 1, 3, 4})
        cases.push_back({header(0, 2, extra) + "3 8\n5 6\n", {3, 5}, {8, 6}, zeros, noWeights});
    cases.push_back({header(0, 2, 2) + "3 8\n5 6\n", {3, 5}, {8, 6}});
    // An unreadable base line means base 0.
    for (const std::string first : {"# index base 1", "# base one", "base 1", ""})
        cases.push_back(
            {first + "\n# element count 2\n# a\n# b\n# end_header\n1 5\n2 3\n", {1, 2}, {5, 3}});
    return cases;
}

// ---------------------------------------------------------------------------
// Loading

TEST(CorrespondenceLoad, FileGrammarEdgeCases) {
    TempDir dir;
    for (const LoadCase& c : loadCases()) {
        SCOPED_TRACE("file:\n" + c.text);
        const bool pair = c.triangles.empty();
        // Whatever the record held is replaced, except the vertex weights.
        Correspondence r;
        r.targets = r.pairSources = r.weightedSecond = r.triangles = {9, 9, 9, 9};
        r.weights = r.vertexWeights = {0.5};
        Error error;
        ASSERT_TRUE(loadCorrespondence(r, dir.write("map.corresp", c.text), error));
        EXPECT_EQ(r.targets, c.targets);
        EXPECT_EQ(r.pairSources, pair ? c.sources : Ints{});
        EXPECT_EQ(r.weightedSecond, pair ? Ints{} : c.sources);
        EXPECT_EQ(r.triangles, c.triangles);
        EXPECT_EQ(r.weights, c.weights);
        EXPECT_EQ(r.vertexWeights, Doubles{0.5});
    }
}

TEST(CorrespondenceLoad, WeightAndIndexFilesStopAtTheFirstForeignToken) {
    TempDir dir;
    Correspondence record;
    record.targets = {3};
    record.pairSources = {4};
    record.vertexWeights = {9, 9, 9, 9, 9, 9};
    ASSERT_TRUE(loadWeightFile(
        record, dir.write("w", "0.5 1e-3\n\t2\r\n 0.123456789012345678  -7.25 abc 9\n")));
    // Full double precision, and only the weights change.
    EXPECT_EQ(record.vertexWeights, (Doubles{0.5, 1e-3, 2, 0.123456789012345678, -7.25}));
    EXPECT_EQ(record.targets, Ints{3});
    EXPECT_EQ(record.pairSources, Ints{4});

    Ints list{99, 98};
    Error error;
    ASSERT_TRUE(loadIndexList(list, dir.write("a.txt", "3 1 4\n1 5\r\n9\t2 6 end 5 3\n"), error));
    EXPECT_EQ(list, (Ints{3, 1, 4, 1, 5, 9, 2, 6}));
    // "4.5" yields 4; the extraction after it meets ".5" and stops.
    ASSERT_TRUE(loadIndexList(list, dir.write("b.txt", "7 -2 4.5 8"), error));
    EXPECT_EQ(list, (Ints{7, -2, 4}));
    ASSERT_TRUE(loadIndexList(list, dir.write("c.txt", ""), error));
    EXPECT_TRUE(list.empty());
}

TEST(CorrespondenceLoad, MissingFilesAreReportedAndChangeNothing) {
    TempDir dir;
    const std::string path = dir.file("absent");
    Correspondence record;
    record.targets = {7, 8};
    record.pairSources = {1, 2};
    record.vertexWeights = {0.5};
    Ints list{1, 2, 3};
    Error error;
    const struct {
        std::function<bool()> load;
        ErrorCode code;
    } cases[] = {
        {[&] { return loadCorrespondence(record, path, error); },
         ErrorCode::cannotOpenCorrespondence},
        {[&] { return loadWeightFile(record, path); }, ErrorCode::ok},
        {[&] { return loadIndexList(list, path, error); }, ErrorCode::cannotOpenIndexList},
    };
    for (const auto& c : cases) {
        error = {};
        testing::internal::CaptureStdout();
        EXPECT_FALSE(c.load());
        EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
        EXPECT_EQ(error.code, c.code);
        EXPECT_EQ(error.path, error ? path : "");
    }
    EXPECT_EQ(record.targets, (Ints{7, 8}));
    EXPECT_EQ(record.pairSources, (Ints{1, 2}));
    EXPECT_TRUE(record.weightedSecond.empty());
    EXPECT_EQ(record.vertexWeights, Doubles{0.5});
    EXPECT_EQ(list, (Ints{1, 2, 3}));
}

// ---------------------------------------------------------------------------
// Applying correspondences and index lists

Correspondence pairRecord(Ints sources) {
    Correspondence r;
    for (size_t k = 0; k < sources.size(); ++k) r.targets.push_back(static_cast<int32_t>(k));
    r.pairSources = std::move(sources);
    return r;
}

Correspondence weightedRecord(Ints triangles, Doubles weights) {
    Correspondence r;
    const size_t n = triangles.size() / 3;
    // Targets in reverse: the output order follows the entries, not targets.
    for (size_t k = 0; k < n; ++k) r.targets.push_back(static_cast<int32_t>(n - 1 - k));
    r.weightedSecond.assign(n, 0);
    r.triangles = std::move(triangles);
    r.weights = std::move(weights);
    return r;
}

TEST(CorrespondenceApply, PairFormAndIndexListsCopyColumnsExactly) {
    const Eigen::Matrix3Xd source = Eigen::Matrix3Xd::Random(3, 6);
    const Ints picks{5, 0, 5, 2};
    for (const Eigen::Matrix3Xd& out :
         {applyCorrespondence(pairRecord(picks), source), applyIndexList(picks, source)}) {
        ASSERT_EQ(out.cols(), 4);
        for (Eigen::Index k = 0; k < 4; ++k) EXPECT_EQ(out.col(k), source.col(picks[k]));
    }
    EXPECT_EQ(applyIndexList({}, source).cols(), 0);
    EXPECT_EQ(applyCorrespondence(Correspondence{}, source).cols(), 0);
}

TEST(CorrespondenceApply, WeightedFormBlendsTriangleCorners) {
    Eigen::Matrix3Xd source(3, 4);
    source << 0, 2, 0, 5,  //
        0, 0, 2, 5,        //
        1, 1, 1, 5;
    const auto r = weightedRecord({0, 1, 2, 0, 1, 2, 3, 1, 2, 0, 1, 2},
                                  {1, 0, 0, 1.0 / 3, 1.0 / 3, 1.0 / 3, 0, 0, 1, 0.5, 0.25, 0.25});
    const Eigen::Matrix3Xd out = applyCorrespondence(r, source);
    ASSERT_EQ(out.cols(), 4);
    // (1, 0, 0) reproduces the first corner exactly; equal weights give the centroid.
    EXPECT_EQ(out.col(0), source.col(0));
    EXPECT_TRUE(out.col(1).isApprox(Eigen::Vector3d(2.0 / 3, 2.0 / 3, 1), 1e-15));
    EXPECT_EQ(out.col(2), source.col(2));
    EXPECT_TRUE(out.col(3).isApprox(Eigen::Vector3d(0.5, 0.5, 1), 1e-15));
}

TEST(CorrespondenceRange, FirstSourceOutsideTheSourceIsFound) {
    using Found = std::pair<size_t, int32_t>;  // entry, index
    const Found none{~size_t{0}, 0};
    const auto firstBad = [&](const Correspondence& r, int64_t sourceCount) {
        BadSourceIndex bad{};
        return firstSourceOutOfRange(r, sourceCount, bad) ? Found{bad.entry, bad.index} : none;
    };
    EXPECT_EQ(firstBad(pairRecord({0, 4, 2}), 5), none);
    EXPECT_EQ(firstBad(pairRecord({0, 4, 5, 9}), 5), Found(2, 5));
    // Cleared fields of a base-1 file become -1.
    EXPECT_EQ(firstBad(pairRecord({-1, 1}), 5), Found(0, -1));

    // The weighted form checks every triangle corner and nothing else.
    auto r = weightedRecord({0, 1, 2, 2, 1, 0}, Doubles(6, 1.0 / 3));
    r.weightedSecond = {100, -100};
    r.targets = {100, -100};
    EXPECT_EQ(firstBad(r, 3), none);
    r.triangles[5] = 3;
    EXPECT_EQ(firstBad(r, 3), Found(1, 3));
    r.triangles[1] = -4;
    EXPECT_EQ(firstBad(r, 3), Found(0, -4));
}

}  // namespace
