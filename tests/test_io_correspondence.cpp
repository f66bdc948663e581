// Correspondence, weight and index files: the loaders against the file
// grammar's edge cases, and the mappings they define.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include <Eigen/Geometry>

#include "fixtures.h"
#include "io/correspondence.h"

namespace {

using kestrel::meridian::applyCorrespondence;
using kestrel::meridian::applyIndexList;
using kestrel::meridian::BadSourceIndex;
using kestrel::meridian::Correspondence;
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

std::string pairHeader(int base, int count) {
    return header(base, count, 2);
}
std::string weightedHeader(int base, int count) {
    return header(base, count, 3);
}

Correspondence load(const TempDir& dir, const std::string& contents) {
    Correspondence record;
    EXPECT_TRUE(loadCorrespondence(record, dir.write("map.corresp", contents)));
    return record;
}

void expectAllZero(const Correspondence& r) {
    for (int32_t v : r.targets) EXPECT_EQ(v, 0);
    for (int32_t v : r.pairSources) EXPECT_EQ(v, 0);
    for (int32_t v : r.weightedSecond) EXPECT_EQ(v, 0);
    for (int32_t v : r.triangles) EXPECT_EQ(v, 0);
    for (double v : r.weights) EXPECT_EQ(v, 0.0);
}

// ---------------------------------------------------------------------------
// Loading correspondence files

TEST(CorrespondenceLoad, PairFormWithBaseZeroIsTakenAsWritten) {
    TempDir dir;
    const auto r = load(dir, pairHeader(0, 3) + "0 4\n1 2\n2 0\n");
    ASSERT_TRUE(r.isPairForm());
    EXPECT_EQ(r.size(), 3u);
    EXPECT_EQ(r.targets, (Ints{0, 1, 2}));
    EXPECT_EQ(r.pairSources, (Ints{4, 2, 0}));
    EXPECT_TRUE(r.weightedSecond.empty());
}

TEST(CorrespondenceLoad, BaseOneShiftsBothPairColumns) {
    TempDir dir;
    const auto r = load(dir, pairHeader(1, 3) + "1 5\n2 3\n3 1\n");
    ASSERT_TRUE(r.isPairForm());
    EXPECT_EQ(r.targets, (Ints{0, 1, 2}));
    EXPECT_EQ(r.pairSources, (Ints{4, 2, 0}));
}

TEST(CorrespondenceLoad, BaseOneShiftsOnlyTheFirstTwoWeightedFields) {
    TempDir dir;
    const auto r = load(dir, weightedHeader(1, 2) +
                                 "1 7 3 4 5 0.25 0.5 0.25\n"
                                 "2 9 0 1 2 1 0 0\n");
    ASSERT_FALSE(r.isPairForm());
    EXPECT_TRUE(r.pairSources.empty());
    EXPECT_EQ(r.targets, (Ints{0, 1}));
    EXPECT_EQ(r.weightedSecond, (Ints{6, 8}));
    // Triangle corners are 0-based whatever the base line says.
    EXPECT_EQ(r.triangles, (Ints{3, 4, 5, 0, 1, 2}));
    EXPECT_EQ(r.weights, (Doubles{0.25, 0.5, 0.25, 1, 0, 0}));
}

TEST(CorrespondenceLoad, ExactlyTwoExtraHeaderLinesSelectThePairForm) {
    // The same body reads as pairs or as eight-field lines depending only on
    // how many lines sit between the count line and the end line.
    const std::string body = "3 8\n5 6\n";
    for (int extra = 0; extra <= 4; ++extra) {
        SCOPED_TRACE("extra header lines: " + std::to_string(extra));
        TempDir dir;
        const auto r = load(dir, header(0, 2, extra) + body);
        EXPECT_EQ(r.targets, (Ints{3, 5}));
        if (extra == 2) {
            EXPECT_TRUE(r.isPairForm());
            EXPECT_EQ(r.pairSources, (Ints{8, 6}));
        } else {
            EXPECT_FALSE(r.isPairForm());
            EXPECT_EQ(r.weightedSecond, (Ints{8, 6}));
            EXPECT_EQ(r.triangles, (Ints(6, 0)));
            EXPECT_EQ(r.weights, (Doubles(6, 0.0)));
        }
    }
}

TEST(CorrespondenceLoad, UnreadableBaseLineMeansBaseZero) {
    for (const std::string first : {"# index base 1", "# base one", "base 1", ""}) {
        SCOPED_TRACE("first line: '" + first + "'");
        TempDir dir;
        const auto r = load(dir, first + "\n# element count 2\n# a\n# b\n# end_header\n1 5\n2 3\n");
        EXPECT_EQ(r.targets, (Ints{1, 2}));
        EXPECT_EQ(r.pairSources, (Ints{5, 3}));
    }
}

TEST(CorrespondenceLoad, UnreadableCountLineGivesNoEntriesButSucceeds) {
    for (const std::string second : {"# element count many", "# count 2", ""}) {
        SCOPED_TRACE("second line: '" + second + "'");
        TempDir dir;
        const auto r = load(dir, "# base 0\n" + second + "\n# a\n# b\n# end_header\n1 5\n2 3\n");
        EXPECT_EQ(r.size(), 0u);
        EXPECT_TRUE(r.pairSources.empty());
        EXPECT_TRUE(r.weightedSecond.empty());
    }
}

TEST(CorrespondenceLoad, NegativeCountGivesNoEntries) {
    TempDir dir;
    const auto r = load(dir, pairHeader(0, -3) + "1 5\n2 3\n");
    EXPECT_EQ(r.size(), 0u);
    EXPECT_TRUE(r.pairSources.empty());
}

TEST(CorrespondenceLoad, EmptyFileSucceedsWithNoEntries) {
    TempDir dir;
    EXPECT_EQ(load(dir, "").size(), 0u);
}

TEST(CorrespondenceLoad, ShortBodyLinesLeaveZeros) {
    TempDir dir;
    {
        const auto r = load(dir, pairHeader(0, 3) + "4\nfoo bar\n7 x\n");
        EXPECT_EQ(r.targets, (Ints{4, 0, 7}));
        EXPECT_EQ(r.pairSources, (Ints{0, 0, 0}));
    }
    {
        const auto r = load(dir, weightedHeader(0, 2) + "5 6 7\n1 2 3 4 5 0.5\n");
        EXPECT_EQ(r.targets, (Ints{5, 1}));
        EXPECT_EQ(r.weightedSecond, (Ints{6, 2}));
        EXPECT_EQ(r.triangles, (Ints{7, 0, 0, 3, 4, 5}));
        EXPECT_EQ(r.weights, (Doubles{0, 0, 0, 0.5, 0, 0}));
    }
    {
        // The base shift applies to cleared fields too.
        const auto r = load(dir, pairHeader(1, 1) + "4\n");
        EXPECT_EQ(r.targets, (Ints{3}));
        EXPECT_EQ(r.pairSources, (Ints{-1}));
    }
}

TEST(CorrespondenceLoad, DeclaredCountRulesOverTheLinesPresent) {
    TempDir dir;
    {
        const auto r = load(dir, pairHeader(0, 4) + "1 5\n2 6\n");
        EXPECT_EQ(r.targets, (Ints{1, 2, 0, 0}));
        EXPECT_EQ(r.pairSources, (Ints{5, 6, 0, 0}));
    }
    {
        const auto r = load(dir, pairHeader(1, 3) + "1 5\n");
        EXPECT_EQ(r.targets, (Ints{0, -1, -1}));
        EXPECT_EQ(r.pairSources, (Ints{4, -1, -1}));
    }
    {
        const auto r = load(dir, pairHeader(0, 1) + "1 5\n2 6\n3 7\n");
        EXPECT_EQ(r.targets, (Ints{1}));
        EXPECT_EQ(r.pairSources, (Ints{5}));
    }
}

TEST(CorrespondenceLoad, CrLfLineEndsReadLikeLf) {
    TempDir dir;
    const auto r = load(dir,
                        "# base 1\r\n# element count 2\r\n# a\r\n# b\r\n# end_header\r\n"
                        "1 5\r\n2 3\r\n");
    ASSERT_TRUE(r.isPairForm());
    EXPECT_EQ(r.targets, (Ints{0, 1}));
    EXPECT_EQ(r.pairSources, (Ints{4, 2}));

    const auto w = load(dir,
                        "# base 0\r\n# element count 1\r\n# a\r\n# end_header\r\n"
                        "1 2 3 4 5 0.125 0.375 0.5\r\n");
    ASSERT_FALSE(w.isPairForm());
    EXPECT_EQ(w.triangles, (Ints{3, 4, 5}));
    EXPECT_EQ(w.weights, (Doubles{0.125, 0.375, 0.5}));
}

TEST(CorrespondenceLoad, CarriageReturnNotFollowedByLineFeedKeepsTheHeaderOpen) {
    TempDir dir;
    {
        // At the very end of the file the '\r' stays, so the end line is one
        // more extra line: three of them, hence the weighted form.
        const auto r = load(dir, "# base 0\n# element count 2\n# a\n# b\n# end_header\r");
        EXPECT_FALSE(r.isPairForm());
        EXPECT_EQ(r.size(), 2u);
        expectAllZero(r);
    }
    {
        // "\r\r\n" loses only the last '\r': the header swallows the body.
        const auto r =
            load(dir, "# base 0\n# element count 2\n# a\n# b\n# end_header\r\r\n1 5\n2 3\n");
        EXPECT_FALSE(r.isPairForm());
        EXPECT_EQ(r.size(), 2u);
        expectAllZero(r);
    }
}

TEST(CorrespondenceLoad, EndLineMustMatchExactly) {
    TempDir dir;
    // A trailing blank makes the end line an ordinary header line.
    const auto r =
        load(dir, "# base 0\n# element count 1\n# a\n# end_header \n# end_header\n1 5\n");
    EXPECT_TRUE(r.isPairForm());
    EXPECT_EQ(r.targets, (Ints{1}));
    EXPECT_EQ(r.pairSources, (Ints{5}));
}

TEST(CorrespondenceLoad, MissingFileIsReportedAndLeavesTheRecordAlone) {
    TempDir dir;
    const std::string path = dir.file("absent.corresp");
    Correspondence record;
    record.targets = {7, 8};
    record.pairSources = {1, 2};
    record.vertexWeights = {0.5};

    testing::internal::CaptureStdout();
    const bool ok = loadCorrespondence(record, path);
    const std::string printed = testing::internal::GetCapturedStdout();

    EXPECT_FALSE(ok);
    EXPECT_EQ(printed, "Invalid correspondence file: " + path + "\n");
    EXPECT_EQ(record.targets, (Ints{7, 8}));
    EXPECT_EQ(record.pairSources, (Ints{1, 2}));
    EXPECT_TRUE(record.weightedSecond.empty());
    EXPECT_EQ(record.vertexWeights, (Doubles{0.5}));
}

// ---------------------------------------------------------------------------
// Weight and index files

TEST(CorrespondenceWeights, ReadsNumbersUntilTheFirstNonNumber) {
    TempDir dir;
    const std::string path = dir.write("w.corresp", "0.5 1e-3\n\t2\r\n  -7.25 abc 9\n");
    Correspondence record;
    record.targets = {3};
    record.pairSources = {4};
    record.vertexWeights = {9, 9, 9, 9, 9, 9};
    ASSERT_TRUE(loadWeightFile(record, path));
    EXPECT_EQ(record.vertexWeights, (Doubles{0.5, 1e-3, 2, -7.25}));
    EXPECT_EQ(record.targets, (Ints{3}));
    EXPECT_EQ(record.pairSources, (Ints{4}));
}

TEST(CorrespondenceWeights, FullDoublePrecision) {
    TempDir dir;
    Correspondence record;
    ASSERT_TRUE(loadWeightFile(record, dir.write("w", "0.123456789012345678")));
    ASSERT_EQ(record.vertexWeights.size(), 1u);
    EXPECT_EQ(record.vertexWeights[0], 0.123456789012345678);
}

TEST(CorrespondenceWeights, MissingFileFailsSilently) {
    TempDir dir;
    Correspondence record;
    record.vertexWeights = {1.5};
    testing::internal::CaptureStdout();
    const bool ok = loadWeightFile(record, dir.file("absent"));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_FALSE(ok);
    EXPECT_EQ(record.vertexWeights, (Doubles{1.5}));
}

TEST(CorrespondenceIndexList, StopsAtTheFirstTokenThatIsNotAnInteger) {
    TempDir dir;
    Ints list{99, 98};
    ASSERT_TRUE(loadIndexList(list, dir.write("a.txt", "3 1 4\n1 5\r\n9\t2 6 end 5 3\n")));
    EXPECT_EQ(list, (Ints{3, 1, 4, 1, 5, 9, 2, 6}));

    // "4.5" yields 4; the extraction after it meets ".5" and stops.
    ASSERT_TRUE(loadIndexList(list, dir.write("b.txt", "7 -2 4.5 8")));
    EXPECT_EQ(list, (Ints{7, -2, 4}));

    ASSERT_TRUE(loadIndexList(list, dir.write("c.txt", "")));
    EXPECT_TRUE(list.empty());
}

TEST(CorrespondenceIndexList, MissingFileIsReportedAndLeavesTheListAlone) {
    TempDir dir;
    const std::string path = dir.file("absent.txt");
    Ints list{1, 2, 3};
    testing::internal::CaptureStdout();
    const bool ok = loadIndexList(list, path);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Invalid indices file: " + path + "\n");
    EXPECT_FALSE(ok);
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

TEST(CorrespondenceApply, PairFormCopiesSourceColumnsExactly) {
    const Eigen::Matrix3Xd source = Eigen::Matrix3Xd::Random(3, 6);
    const auto r = pairRecord({5, 0, 5, 2});
    const Eigen::Matrix3Xd out = applyCorrespondence(r, source);
    ASSERT_EQ(out.cols(), 4);
    for (Eigen::Index k = 0; k < out.cols(); ++k)
        for (int row = 0; row < 3; ++row) EXPECT_EQ(out(row, k), source(row, r.pairSources[k]));
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
    // (1, 0, 0) reproduces the first corner exactly.
    EXPECT_EQ(out.col(0), source.col(0));
    // Equal weights give the centroid.
    EXPECT_TRUE(out.col(1).isApprox(Eigen::Vector3d(2.0 / 3, 2.0 / 3, 1), 1e-15));
    EXPECT_EQ(out.col(2), source.col(2));
    EXPECT_TRUE(out.col(3).isApprox(Eigen::Vector3d(0.5, 0.5, 1), 1e-15));
}

TEST(CorrespondenceApply, WeightedFormCommutesWithRigidMotions) {
    // Barycentric weights that sum to 1 make the mapping affine-equivariant:
    // moving the source moves the result the same way.
    std::srand(7);
    const int sourceCount = 50, entries = 200;
    const Eigen::Matrix3Xd source = Eigen::Matrix3Xd::Random(3, sourceCount);
    Ints triangles;
    Doubles weights;
    for (int k = 0; k < entries; ++k) {
        for (int c = 0; c < 3; ++c) triangles.push_back(std::rand() % sourceCount);
        const Eigen::Vector3d w =
            Eigen::Vector3d::Random().cwiseAbs() + Eigen::Vector3d::Constant(0.01);
        const Eigen::Vector3d normalised = w / w.sum();
        weights.insert(weights.end(), normalised.data(), normalised.data() + 3);
    }
    const auto r = weightedRecord(triangles, weights);

    const Eigen::Matrix3d rotation =
        Eigen::AngleAxisd(0.7, Eigen::Vector3d(1, -2, 0.5).normalized()).toRotationMatrix();
    const Eigen::Vector3d shift(3, -1, 10);
    const Eigen::Matrix3Xd moved = (rotation * source).colwise() + shift;

    const Eigen::Matrix3Xd direct = applyCorrespondence(r, moved);
    const Eigen::Matrix3Xd expected = (rotation * applyCorrespondence(r, source)).colwise() + shift;
    ASSERT_EQ(direct.cols(), entries);
    EXPECT_LT((direct - expected).cwiseAbs().maxCoeff(), 1e-12);
}

TEST(CorrespondenceApply, LoadedWeightedFileResamplesASource) {
    TempDir dir;
    const auto r = load(dir, weightedHeader(1, 2) +
                                 "1 1 0 1 2 0.5 0.5 0\n"
                                 "2 2 2 1 0 0.25 0 0.75\n");
    Eigen::Matrix3Xd source(3, 3);
    source << 4, 8, 0,  //
        0, 4, 16,       //
        2, 2, 2;
    const Eigen::Matrix3Xd out = applyCorrespondence(r, source);
    ASSERT_EQ(out.cols(), 2);
    EXPECT_EQ(out.col(0), Eigen::Vector3d(6, 2, 2));
    EXPECT_EQ(out.col(1), Eigen::Vector3d(3, 4, 2));
}

TEST(CorrespondenceApply, EmptyRecordGivesNoColumns) {
    EXPECT_EQ(applyCorrespondence(Correspondence{}, Eigen::Matrix3Xd::Random(3, 4)).cols(), 0);
}

TEST(CorrespondenceApply, IndexListGathersColumns) {
    const Eigen::Matrix3Xd source = Eigen::Matrix3Xd::Random(3, 5);
    const Ints list{4, 4, 0, 3};
    const Eigen::Matrix3Xd out = applyIndexList(list, source);
    ASSERT_EQ(out.cols(), 4);
    for (size_t k = 0; k < list.size(); ++k)
        EXPECT_EQ(out.col(static_cast<Eigen::Index>(k)), source.col(list[k]));
    EXPECT_EQ(applyIndexList({}, source).cols(), 0);
}

TEST(CorrespondenceRange, PairSourcesOutsideTheSourceAreFound) {
    BadSourceIndex bad{};
    EXPECT_FALSE(firstSourceOutOfRange(pairRecord({0, 4, 2}), 5, bad));

    ASSERT_TRUE(firstSourceOutOfRange(pairRecord({0, 4, 5, 9}), 5, bad));
    EXPECT_EQ(bad.entry, 2u);
    EXPECT_EQ(bad.index, 5);

    // Cleared fields of a base-1 file become -1.
    ASSERT_TRUE(firstSourceOutOfRange(pairRecord({1, -1}), 5, bad));
    EXPECT_EQ(bad.entry, 1u);
    EXPECT_EQ(bad.index, -1);
}

TEST(CorrespondenceRange, WeightedFormChecksEveryTriangleCornerOnly) {
    BadSourceIndex bad{};
    auto r = weightedRecord({0, 1, 2, 2, 1, 0}, Doubles(6, 1.0 / 3));
    // Neither the second field nor the target index refers to the source.
    r.weightedSecond = {100, -100};
    r.targets = {100, -100};
    EXPECT_FALSE(firstSourceOutOfRange(r, 3, bad));

    r.triangles[5] = 3;
    ASSERT_TRUE(firstSourceOutOfRange(r, 3, bad));
    EXPECT_EQ(bad.entry, 1u);
    EXPECT_EQ(bad.index, 3);

    r.triangles[1] = -4;
    ASSERT_TRUE(firstSourceOutOfRange(r, 3, bad));
    EXPECT_EQ(bad.entry, 0u);
    EXPECT_EQ(bad.index, -4);
}

}  // namespace
