// Binary matrix files: the layout (little-endian doubles, row after row),
// and every failure reported instead of read past.
#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "fixtures.h"
#include "io/matrix_file.h"

namespace {

using kestrel::meridian::checkMatrixFile;
using kestrel::meridian::matrixFileMessage;
using kestrel::meridian::MatrixFileStatus;
using kestrel::meridian::readMatrixFile;
using kestrel::meridian::readMatrixFileRows;
using kestrel::meridian::writeMatrixFile;
using meridian::testing::readBytes;
using meridian::testing::TempDir;

/// The file bytes of `values`: each an IEEE-754 double, least significant
/// byte first.
std::string littleEndian(const std::vector<uint64_t>& bitPatterns) {
    std::string bytes;
    for (uint64_t bits : bitPatterns)
        for (int b = 0; b < 8; ++b) bytes.push_back(static_cast<char>((bits >> (8 * b)) & 0xff));
    return bytes;
}

// 1.0 .. 6.0 as IEEE-754 doubles.
const std::vector<uint64_t> kOneToSix = {0x3FF0000000000000, 0x4000000000000000,
                                         0x4008000000000000, 0x4010000000000000,
                                         0x4014000000000000, 0x4018000000000000};

TEST(MatrixFile, ReadsAndWritesRowAfterRowLittleEndianDoubles) {
    TempDir dir;
    const std::string path = dir.write("m_r_3_c_2.bin", littleEndian(kOneToSix));
    Eigen::MatrixXd m;
    ASSERT_EQ(readMatrixFile(path, 3, 2, m), MatrixFileStatus::ok);
    Eigen::MatrixXd expected(3, 2);
    expected << 1, 2, 3, 4, 5, 6;
    EXPECT_EQ(m, expected);
    // The same bytes as other shapes; bytes beyond R * C are not read.
    ASSERT_EQ(readMatrixFile(path, 2, 3, m), MatrixFileStatus::ok);
    EXPECT_EQ(m, expected.reshaped<Eigen::RowMajor>(2, 3));
    ASSERT_EQ(readMatrixFile(path, 5, 1, m), MatrixFileStatus::ok);
    EXPECT_EQ(m, Eigen::VectorXd::LinSpaced(5, 1, 5));
    ASSERT_EQ(readMatrixFile(path, 1, 5, m), MatrixFileStatus::ok);
    EXPECT_EQ(m, Eigen::RowVectorXd::LinSpaced(5, 1, 5));

    const double values[] = {1, 2, 3, 4, 5, 6};
    ASSERT_TRUE(writeMatrixFile(dir.file("m.bin"), 3, 2, values));
    EXPECT_EQ(readBytes(dir.file("m.bin")), littleEndian(kOneToSix));
}

TEST(MatrixFile, ReportsFailuresWithoutReadingPastTheData) {
    TempDir dir;
    const std::string six = dir.write("six.bin", littleEndian(kOneToSix));
    const std::string short47 = dir.write("short.bin", littleEndian(kOneToSix).substr(0, 47));
    struct Case {
        std::string path;
        int rows, cols;
        MatrixFileStatus status;
        std::string message;
    };
    const Case cases[] = {
        {dir.file("missing.bin"), 3, 2, MatrixFileStatus::cannotOpen,
         "Unable to open file: " + dir.file("missing.bin")},
        {dir.str(), 1, 1, MatrixFileStatus::cannotOpen, "Unable to open file: " + dir.str()},
        {short47, 3, 2, MatrixFileStatus::tooShort,
         "Matrix file too short: " + short47 + " holds 47 bytes, 3 x 2 doubles need 48"},
        {six, 1, 7, MatrixFileStatus::tooShort,
         "Matrix file too short: " + six + " holds 48 bytes, 1 x 7 doubles need 56"},
        // 8 * R * C overflows 64 bits: refused before any allocation.
        {six, INT_MAX, INT_MAX, MatrixFileStatus::tooLarge,
         "Matrix too large: " + six + " as 2147483647 x 2147483647 doubles"},
        {six, -1, 2, MatrixFileStatus::invalidShape, "Invalid matrix shape -1 x 2 for " + six},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.message);
        Eigen::MatrixXd kept = Eigen::MatrixXd::Constant(2, 2, 7.0);
        EXPECT_EQ(readMatrixFile(c.path, c.rows, c.cols, kept), c.status);
        EXPECT_EQ(kept, Eigen::MatrixXd::Constant(2, 2, 7.0)) << "failed read changed the matrix";
        EXPECT_EQ(checkMatrixFile(c.path, c.rows, c.cols), c.status);
        bool called = false;
        EXPECT_EQ(
            readMatrixFileRows(c.path, c.rows, c.cols,
                               [&](Eigen::Index, Eigen::Index, const double*) { called = true; }),
            c.status);
        EXPECT_FALSE(called) << "rows passed on from a bad file";
        EXPECT_EQ(matrixFileMessage(c.status, c.path, c.rows, c.cols), c.message);
    }
}

TEST(MatrixFile, StreamsLargeFilesInOrderedBlocksOfWholeRows) {
    // 3 MB: several blocks of the reader's buffer, rows of an odd length.
    const int rows = 1021, cols = 367;
    std::vector<double> values(static_cast<size_t>(rows) * cols);
    for (size_t i = 0; i < values.size(); ++i) values[i] = static_cast<double>(i) * 0.5 - 3.0;
    TempDir dir;
    ASSERT_TRUE(writeMatrixFile(dir.file("big.bin"), rows, cols, values.data()));
    std::vector<double> seen;
    Eigen::Index expectedFirst = 0;
    int blocks = 0;
    ASSERT_EQ(readMatrixFileRows(dir.file("big.bin"), rows, cols,
                                 [&](Eigen::Index first, Eigen::Index count, const double* block) {
                                     EXPECT_EQ(first, expectedFirst);
                                     expectedFirst += count;
                                     seen.insert(seen.end(), block, block + count * cols);
                                     ++blocks;
                                 }),
              MatrixFileStatus::ok);
    EXPECT_GT(blocks, 1);
    EXPECT_EQ(seen, values);
    // A range of rows, as readers that share a file take it.
    std::vector<double> part;
    ASSERT_EQ(readMatrixFileRows(
                  dir.file("big.bin"), rows, cols,
                  [&](Eigen::Index first, Eigen::Index count, const double* block) {
                      EXPECT_GE(first, 500);
                      part.insert(part.end(), block, block + count * cols);
                  },
                  500, 300),
              MatrixFileStatus::ok);
    EXPECT_EQ(part, std::vector<double>(values.begin() + 500 * cols, values.begin() + 800 * cols));
    Eigen::MatrixXd m;
    ASSERT_EQ(readMatrixFile(dir.file("big.bin"), rows, cols, m), MatrixFileStatus::ok);
    EXPECT_EQ(m(0, 1), values[1]);
    EXPECT_EQ(m(1000, 366), values[1000 * cols + 366]);
}

}  // namespace
