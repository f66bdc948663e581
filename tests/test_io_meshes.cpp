// OBJ and PLY readers and the OBJ vertex-line rewriter, against the token
// and line rules of the two formats.
#include <gtest/gtest.h>

#include <initializer_list>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include <Eigen/Geometry>

#include "fixtures.h"
#include "io/mesh_readers.h"

namespace {

using kestrel::meridian::countPlyHeaderLines;
using kestrel::meridian::ObjMeshData;
using kestrel::meridian::parseObj;
using kestrel::meridian::readObj;
using kestrel::meridian::readObjVertexLines;
using kestrel::meridian::readPly;
using kestrel::meridian::rewriteObjVertexLines;
using meridian::testing::readBytes;
using meridian::testing::TempDir;

// A matrix from its values listed column after column.
Eigen::MatrixXd columns(Eigen::Index rows, std::initializer_list<double> values) {
    const Eigen::Index cols = static_cast<Eigen::Index>(values.size()) / rows;
    return Eigen::Map<const Eigen::MatrixXd>(values.begin(), rows, cols);
}

// The value `std::istringstream >> float` gives for a token (0 on failure).
double streamFloat(const std::string& token) {
    std::istringstream in(token);
    float value = 0;
    in >> value;
    return in.fail() ? 0.0 : static_cast<double>(value);
}

#define EXPECT_MATRIX_EQ(actual, expected)                                   \
    do {                                                                     \
        const Eigen::MatrixXd a_ = (actual), e_ = (expected);                \
        ASSERT_EQ(a_.rows(), e_.rows());                                     \
        ASSERT_EQ(a_.cols(), e_.cols());                                     \
        EXPECT_TRUE(a_ == e_) << "actual:\n" << a_ << "\nexpected:\n" << e_; \
    } while (0)

// ---------------------------------------------------------------------------
// OBJ reader

TEST(ObjReader, KeywordsSwitchModesAsWholeTokens) {
    const ObjMeshData m = parseObj(
        "v 1 2 3\n"
        "vt 0.5 0.25\n"
        "v 4 5 6\n"
        "f 1 2 3\n");
    EXPECT_MATRIX_EQ(m.vertices, columns(3, {1, 2, 3, 4, 5, 6}));
    EXPECT_MATRIX_EQ(m.texcoords, columns(2, {0.5, 0.25}));
    EXPECT_MATRIX_EQ(m.faces, columns(3, {1, 2, 3}));
    EXPECT_EQ(m.textureFaces.cols(), 0);
}

TEST(ObjReader, OtherKeywordsAreDataOfThePrecedingMode) {
    {
        // "vn" itself and its three numbers land among the vertex tokens:
        // 7 tokens give two columns, the second starting with the failed "vn".
        const ObjMeshData m = parseObj("v 1 2 3\nvn 0.5 0.25 1\nvt 0.5 0.75\n");
        EXPECT_MATRIX_EQ(m.vertices, columns(3, {1, 2, 3, 0, 0.5, 0.25}));
        EXPECT_MATRIX_EQ(m.texcoords, columns(2, {0.5, 0.75}));
    }
    {
        const ObjMeshData m = parseObj("vt 0.5 0.25\nvn 1 0 0\n");
        EXPECT_MATRIX_EQ(m.texcoords, columns(2, {0.5, 0.25, 0, 1, 0, 0}));
        EXPECT_EQ(m.vertices.cols(), 0);
    }
    {
        // Smoothing groups, and comments too: line structure is not used.
        const ObjMeshData m = parseObj("f 1 2 3\ns off\nf 4 5 6\n# done 7\n");
        EXPECT_MATRIX_EQ(m.faces, columns(3, {1, 2, 3, 0, 0, 4, 5, 6, 0}));
    }
}

TEST(ObjReader, TokensBeforeTheFirstKeywordAreIgnored) {
    const ObjMeshData m = parseObj("# exported 1 2 3\nmtllib head.mtl\no head 9\n7 8\nv 1 2 3\n");
    EXPECT_MATRIX_EQ(m.vertices, columns(3, {1, 2, 3}));
    EXPECT_EQ(m.texcoords.cols(), 0);
    EXPECT_EQ(m.faces.cols(), 0);
    EXPECT_EQ(m.textureFaces.cols(), 0);
}

TEST(ObjReader, FaceTokensSplitAtTheFirstSlash) {
    {
        // Indices are kept as written: no 1-based shift.
        const ObjMeshData m = parseObj("f 12/7 3/4 5/6\n");
        EXPECT_MATRIX_EQ(m.faces, columns(3, {12, 3, 5}));
        EXPECT_MATRIX_EQ(m.textureFaces, columns(3, {7, 4, 6}));
    }
    {
        // a/b/c: the texture part "b/c" converts to its leading number b.
        const ObjMeshData m = parseObj("f 1/2/3 4/5/6 7/8/9\n");
        EXPECT_MATRIX_EQ(m.faces, columns(3, {1, 4, 7}));
        EXPECT_MATRIX_EQ(m.textureFaces, columns(3, {2, 5, 8}));
    }
    {
        // a//c: the texture part "/c" does not convert and gives 0.
        const ObjMeshData m = parseObj("f 1//3 4//6 7//9\n");
        EXPECT_MATRIX_EQ(m.faces, columns(3, {1, 4, 7}));
        EXPECT_MATRIX_EQ(m.textureFaces, columns(3, {0, 0, 0}));
    }
    {
        // Only corners with a slash feed the texture faces.
        const ObjMeshData m = parseObj("f 1 2 3 4/8 5 6/9 7/10 8 9\n");
        EXPECT_MATRIX_EQ(m.faces, columns(3, {1, 2, 3, 4, 5, 6, 7, 8, 9}));
        EXPECT_MATRIX_EQ(m.textureFaces, columns(3, {8, 9, 10}));
    }
}

TEST(ObjReader, QuadCornersShiftTheFollowingFaces) {
    const ObjMeshData m = parseObj("f 1/1 2/2 3/3 4/4\nf 5/5 6/6 7/7\n");
    EXPECT_MATRIX_EQ(m.faces, columns(3, {1, 2, 3, 4, 5, 6}));
    EXPECT_MATRIX_EQ(m.textureFaces, columns(3, {1, 2, 3, 4, 5, 6}));
}

TEST(ObjReader, IncompleteGroupsAreDropped) {
    const ObjMeshData m = parseObj("v 1 2 3 4 5\nvt 1 2 3\nf 1/1 2/2 3/3 4\n");
    EXPECT_MATRIX_EQ(m.vertices, columns(3, {1, 2, 3}));
    EXPECT_MATRIX_EQ(m.texcoords, columns(2, {1, 2}));
    EXPECT_MATRIX_EQ(m.faces, columns(3, {1, 2, 3}));
    EXPECT_MATRIX_EQ(m.textureFaces, columns(3, {1, 2, 3}));
}

TEST(ObjReader, NumbersCarrySinglePrecisionOnly) {
    const ObjMeshData m = parseObj("v 0.123456789 -0.987654321 3.14159265358979\nvt 0.1 0.7\n");
    ASSERT_EQ(m.vertices.cols(), 1);
    EXPECT_EQ(m.vertices(0, 0), static_cast<double>(0.123456789f));
    EXPECT_NE(m.vertices(0, 0), 0.123456789);
    EXPECT_EQ(m.vertices(1, 0), static_cast<double>(-0.987654321f));
    EXPECT_EQ(m.vertices(2, 0), static_cast<double>(3.14159265358979f));
    EXPECT_EQ(m.texcoords(0, 0), static_cast<double>(0.1f));
    EXPECT_EQ(m.texcoords(1, 0), static_cast<double>(0.7f));
}

TEST(ObjReader, SignsExponentsAndTrailingText) {
    const ObjMeshData m = parseObj(
        "v +1.5 -2.5e-3 1E3\n"
        "v +.5 5. -0\n"
        "v 2.5E+2 1.5abc 2x\n"
        "v nothing - .\n");
    EXPECT_MATRIX_EQ(m.vertices, columns(3, {1.5, static_cast<double>(-2.5e-3f), 1000,  //
                                             0.5, 5, 0,                                 //
                                             250, 1.5, 2,                               //
                                             0, 0, 0}));
}

TEST(ObjReader, RoundsLikeAStringStreamFloatExtraction) {
    // Decimal strings near float rounding boundaries, where converting to
    // double first and then to float would round twice.
    std::vector<std::string> tokens = {
        "1.000000059604644775390625",   // halfway: ties to even, 1
        "1.000000059604644775390626",   // just above halfway: 1 + 2^-23
        "1.0000000596046447753906249",  // just below halfway: 1
        "16777217",                     // 2^24 + 1, halfway: 2^24
        "16777219",                     // halfway: ties to even, 16777220
        "0.30000001192092895507812500001",
        "3.14159265358979323846264338327950288",
        "7.006492321624085354618e-46",  // below half the smallest subnormal
        "1.17549435e-38",
        "3.4028234e38",
        "0.000000000000000000000000000000000000000000001",
        "123456789012345678901234567890",
        "-0.0000152587890625",
    };
    // And plenty of ordinary ones with up to 17 significant digits.
    std::mt19937 random(20481);
    std::uniform_int_distribution<int> digit(0, 9), length(0, 8), exponent(-20, 20), coin(0, 1);
    for (int i = 0; i < 3000; ++i) {
        std::string token = coin(random) ? "-" : (coin(random) ? "+" : "");
        for (int n = length(random); n >= 0; --n) token += static_cast<char>('0' + digit(random));
        token += '.';
        for (int n = length(random) - 1; n >= 0; --n)
            token += static_cast<char>('0' + digit(random));
        if (coin(random)) token += (coin(random) ? "e" : "E") + std::to_string(exponent(random));
        tokens.push_back(token);
    }
    while (tokens.size() % 3 != 0) tokens.push_back("0");

    std::string text;
    for (size_t i = 0; i < tokens.size(); i += 3)
        text += "v " + tokens[i] + " " + tokens[i + 1] + " " + tokens[i + 2] + "\n";
    const ObjMeshData m = parseObj(text);
    ASSERT_EQ(m.vertices.cols(), static_cast<Eigen::Index>(tokens.size() / 3));
    int mismatches = 0;
    for (size_t i = 0; i < tokens.size() && mismatches < 10; ++i) {
        const double got =
            m.vertices(static_cast<Eigen::Index>(i % 3), static_cast<Eigen::Index>(i / 3));
        const double want = streamFloat(tokens[i]);
        if (got != want) ++mismatches;
        EXPECT_EQ(got, want) << "token " << tokens[i];
    }
}

TEST(ObjReader, AnyWhitespaceSeparatesTokens) {
    const ObjMeshData lf = parseObj("v 1 2 3\nvt 0.5 0.25\nf 1/1 1/1 1/1\n");
    const ObjMeshData crlf = parseObj("v\t1  2\t\t3\r\nvt 0.5\r\n0.25\r\n  f 1/1\t1/1 1/1");
    EXPECT_MATRIX_EQ(crlf.vertices, lf.vertices);
    EXPECT_MATRIX_EQ(crlf.texcoords, lf.texcoords);
    EXPECT_MATRIX_EQ(crlf.faces, lf.faces);
    EXPECT_MATRIX_EQ(crlf.textureFaces, lf.textureFaces);
}

TEST(ObjReader, EmptyInputGivesEmptyMatrices) {
    for (const std::string text : {"", "\n\n", "# nothing here\n", "v", "v 1 2\nvt 3\nf 1 2\n"}) {
        SCOPED_TRACE("input: '" + text + "'");
        const ObjMeshData m = parseObj(text);
        EXPECT_EQ(m.vertices.cols(), 0);
        EXPECT_EQ(m.texcoords.cols(), 0);
        EXPECT_EQ(m.faces.cols(), 0);
        EXPECT_EQ(m.textureFaces.cols(), 0);
    }
}

TEST(ObjReader, MissingFileGivesEmptyMatrices) {
    TempDir dir;
    const ObjMeshData m = readObj(dir.file("absent.obj"));
    EXPECT_EQ(m.vertices.size(), 0);
    EXPECT_EQ(m.texcoords.size(), 0);
    EXPECT_EQ(m.faces.size(), 0);
    EXPECT_EQ(m.textureFaces.size(), 0);
    // No rows either: an absent texture table must not pass as a 2-row one.
    EXPECT_EQ(m.texcoords.rows(), 0);
    const ObjMeshData noTexture = parseObj("v 0 0 0 v 1 0 0 v 0 1 0 f 1 2 3");
    EXPECT_EQ(noTexture.texcoords.rows(), 0);
    EXPECT_EQ(noTexture.textureFaces.rows(), 0);
}

TEST(ObjReader, FileAndMemoryReadersAgree) {
    TempDir dir;
    const std::string text =
        "# head\r\nv 0.123456789 1 2\r\nv 3 4 5\r\nvt 0.25 0.5\nvn 0 0 1\n"
        "f 1/1 2/1 1/1\nf 2/1 1/1 2/1\n";
    const ObjMeshData fromFile = readObj(dir.write("mesh.obj", text));
    const ObjMeshData fromText = parseObj(text);
    EXPECT_MATRIX_EQ(fromFile.vertices, fromText.vertices);
    EXPECT_MATRIX_EQ(fromFile.texcoords, fromText.texcoords);
    EXPECT_MATRIX_EQ(fromFile.faces, fromText.faces);
    EXPECT_MATRIX_EQ(fromFile.textureFaces, fromText.textureFaces);
    EXPECT_EQ(fromFile.vertices.cols(), 2);
    EXPECT_EQ(fromFile.faces.cols(), 2);
}

TEST(ObjReader, ReadsATemplateSizedHead) {
    // Every value is exact in float, so the whole matrix can be compared.
    const int count = 20481;
    std::string text;
    for (int k = 0; k < count; ++k)
        text += "v " + std::to_string(k) + " " + std::to_string(k) + ".5 -" +
                std::to_string(k % 97) + ".25\n";
    for (int k = 0; k + 2 < count; k += 3)
        text += "f " + std::to_string(k + 1) + " " + std::to_string(k + 2) + " " +
                std::to_string(k + 3) + "\n";
    TempDir dir;
    const ObjMeshData m = readObj(dir.write("head.obj", text));
    ASSERT_EQ(m.vertices.rows(), 3);
    ASSERT_EQ(m.vertices.cols(), count);
    for (int k = 0; k < count; ++k) {
        ASSERT_EQ(m.vertices(0, k), k);
        ASSERT_EQ(m.vertices(1, k), k + 0.5);
        ASSERT_EQ(m.vertices(2, k), -(k % 97) - 0.25);
    }
    ASSERT_EQ(m.faces.cols(), count / 3);
    EXPECT_EQ(m.faces(0, 0), 1);
    EXPECT_EQ(m.faces(2, count / 3 - 1), count);
}

// ---------------------------------------------------------------------------
// PLY reader

// Nine header lines, three vertices (with normals), two faces.
const char* const kPly =
    "ply\n"
    "format ascii 1.0\n"
    "element vertex 3\n"
    "property float x\n"
    "property float y\n"
    "property float z\n"
    "element face 2\n"
    "property list uchar int vertex_indices\n"
    "end_header\n"
    "0.123456789 1 2 0 0 1\n"
    "3 4 5e-300 0.5 -0.5 0.25\n"
    "6 7 8\n"
    "3 0 1 2\n"
    "4 2 1 0 7\n";

TEST(PlyReader, ReadsAnAsciiBodyWithFullDoublePrecision) {
    TempDir dir;
    const auto m = readPly(dir.write("eye.ply", kPly), 9);
    EXPECT_MATRIX_EQ(m.vertices, columns(3, {0.123456789, 1, 2, 3, 4, 5e-300, 6, 7, 8}));
    // Tokens 1..3 of each face line; a fourth corner is lost.
    EXPECT_MATRIX_EQ(m.faces, columns(3, {0, 1, 2, 2, 1, 0}));
    // Tokens 3..5 of each vertex line, 0 where the line has none.
    EXPECT_MATRIX_EQ(m.extra, columns(3, {0, 0, 1, 0.5, -0.5, 0.25, 0, 0, 0}));
}

TEST(PlyReader, CountsComeFromElementLinesAnywhereInTheHeader) {
    TempDir dir;
    // The format line is not looked at; the face element may come first.
    const auto m = readPly(dir.write("a.ply",
                                     "ply\n"
                                     "format binary_little_endian 1.0\n"
                                     "comment made by hand\n"
                                     "element face 1\n"
                                     "property list uchar int vertex_indices\n"
                                     "element vertex 2\n"
                                     "property double x\n"
                                     "end_header\n"
                                     "1 2 3\n"
                                     "4 5 6\n"
                                     "3 1 0 1\n"),
                           8);
    EXPECT_MATRIX_EQ(m.vertices, columns(3, {1, 2, 3, 4, 5, 6}));
    EXPECT_MATRIX_EQ(m.faces, columns(3, {1, 0, 1}));
}

TEST(PlyReader, OneHeaderLineTooFewShiftsTheBodyByOneLine) {
    TempDir dir;
    const auto m = readPly(dir.write("eye.ply", kPly), 8);
    // "end_header" becomes vertex 0 (no number in it), the real vertex lines
    // move down one, and the last vertex line is taken as the first face.
    EXPECT_MATRIX_EQ(m.vertices, columns(3, {0, 0, 0, 0.123456789, 1, 2, 3, 4, 5e-300}));
    EXPECT_MATRIX_EQ(m.faces, columns(3, {7, 8, 0, 0, 1, 2}));
    EXPECT_MATRIX_EQ(m.extra, columns(3, {0, 0, 0, 0, 0, 1, 0.5, -0.5, 0.25}));
}

TEST(PlyReader, EveryBlankSeparatesATokenSoDoubleBlanksGiveEmptyOnes) {
    TempDir dir;
    const auto m = readPly(dir.write("gaps.ply",
                                     "ply\n"
                                     "element vertex 2\n"
                                     "element vertex 5 more\n"  // four tokens: not a count line
                                     "element face 1\n"
                                     "element  face 5\n"  // four tokens too
                                     "end_header\n"
                                     "1  2 3\n"  // tokens 1, "", 2, 3
                                     "4 5 6\n"
                                     "3 0  1 2\n"  // tokens 3, 0, "", 1, 2
                                     ),
                           6);
    EXPECT_MATRIX_EQ(m.vertices, columns(3, {1, 0, 2, 4, 5, 6}));
    EXPECT_MATRIX_EQ(m.extra, columns(3, {3, 0, 0, 0, 0, 0}));
    EXPECT_MATRIX_EQ(m.faces, columns(3, {0, 0, 1}));
}

TEST(PlyReader, CrLfEndsLinesButALoneCarriageReturnDoesNot) {
    TempDir dir;
    const auto crlf =
        readPly(dir.write("crlf.ply",
                          "ply\r\nelement vertex 2\r\nelement face 1\r\nend_header\r\n"
                          "1 2 3\r\n4 5 6\r\n3 0 1 1\r\n"),
                4);
    EXPECT_MATRIX_EQ(crlf.vertices, columns(3, {1, 2, 3, 4, 5, 6}));
    EXPECT_MATRIX_EQ(crlf.faces, columns(3, {0, 1, 1}));

    // "1 2 3\r4 5 6" is one line; its tokens are 1, 2, "3\r4", 5, 6.
    const auto lone = readPly(dir.write("cr.ply",
                                        "ply\nelement vertex 2\nend_header\n"
                                        "1 2 3\r4 5 6\n7 8 9\n"),
                              3);
    EXPECT_MATRIX_EQ(lone.vertices, columns(3, {1, 2, 3, 7, 8, 9}));
    EXPECT_MATRIX_EQ(lone.extra, columns(3, {5, 6, 0, 0, 0, 0}));
}

TEST(PlyReader, ShortFileLeavesZeros) {
    TempDir dir;
    const auto m = readPly(dir.write("short.ply",
                                     "ply\nelement vertex 3\nelement face 2\nend_header\n"
                                     "1 2 3\n4 5\n"),
                           4);
    EXPECT_MATRIX_EQ(m.vertices, columns(3, {1, 2, 3, 4, 5, 0, 0, 0, 0}));
    EXPECT_MATRIX_EQ(m.faces, Eigen::MatrixXd::Zero(3, 2));
}

TEST(PlyReader, NegativeCountsGiveNoElements) {
    TempDir dir;
    const auto m = readPly(
        dir.write("neg.ply", "ply\nelement vertex -3\nelement face -1\nend_header\n1 2 3\n"), 4);
    EXPECT_EQ(m.vertices.cols(), 0);
    EXPECT_EQ(m.extra.cols(), 0);
    EXPECT_EQ(m.faces.cols(), 0);
}

TEST(PlyReader, MissingFileGivesEmptyMatrices) {
    TempDir dir;
    const auto m = readPly(dir.file("absent.ply"), 9);
    EXPECT_EQ(m.vertices.size(), 0);
    EXPECT_EQ(m.faces.size(), 0);
    EXPECT_EQ(m.extra.size(), 0);
}

TEST(PlyReader, CountsHeaderLinesThroughEndHeader) {
    TempDir dir;
    EXPECT_EQ(countPlyHeaderLines(dir.write("a.ply", kPly)), 9);
    EXPECT_EQ(countPlyHeaderLines(
                  dir.write("b.ply", "ply\r\nformat ascii 1.0\r\nend_header\r\n1 2 3\r\n")),
              3);
    EXPECT_EQ(countPlyHeaderLines(dir.write("c.ply", "ply\nformat ascii 1.0\nelement vertex 0\n")),
              0);
    EXPECT_EQ(countPlyHeaderLines(dir.write("d.ply", "ply\nformat ascii 1.0\nend_header\r")), 0);
    EXPECT_EQ(countPlyHeaderLines(dir.file("absent.ply")), 0);
}

// ---------------------------------------------------------------------------
// OBJ vertex lines: reading positions and rewriting them into a template

const char* const kTemplate =
    "# template head\n"
    "mtllib head.mtl\n"
    "v 1 2 3\n"
    "vt 0.25 0.5\n"
    "vn 0 0 1\n"
    "v\t9 9 9\n"
    " v 8 8 8\n"
    "v 0.123456789012345 -5 6e2\n"
    "usemtl skin  \n"
    "f 1/1/1 2/1/1 3/1/1\n"
    "v 7 8 9\n";

TEST(ObjReaderVertexLines, ReadsOnlyVLinesAtFullPrecision) {
    TempDir dir;
    const Eigen::Matrix3Xd v = readObjVertexLines(dir.write("t.obj", kTemplate));
    EXPECT_MATRIX_EQ(v, columns(3, {1, 2, 3, 0.123456789012345, -5, 600, 7, 8, 9}));
    const Eigen::Matrix3Xd none = readObjVertexLines(dir.file("absent.obj"));
    EXPECT_EQ(none.cols(), 0);
}

TEST(ObjReaderVertexLines, RewriteReplacesVLinesAndCopiesTheRest) {
    TempDir dir;
    const std::string templatePath = dir.write("t.obj", kTemplate);
    const std::string outPath = dir.file("out.obj");
    Eigen::Matrix3Xd vertices(3, 3);
    vertices << 1.5, 0.1234567, 1e6,  //
        -2.25, 0, -0.0000004,         //
        3, -1e-7, 42;
    ASSERT_TRUE(rewriteObjVertexLines(templatePath, outPath, vertices));
    EXPECT_EQ(readBytes(outPath),
              "# template head\n"
              "mtllib head.mtl\n"
              "v 1.500000 -2.250000 3.000000\n"
              "vt 0.25 0.5\n"
              "vn 0 0 1\n"
              "v\t9 9 9\n"
              " v 8 8 8\n"
              "v 0.123457 0.000000 -0.000000\n"
              "usemtl skin  \n"
              "f 1/1/1 2/1/1 3/1/1\n"
              "v 1000000.000000 -0.000000 42.000000\n");
}

TEST(ObjReaderVertexLines, VertexLinesBeyondTheMatrixAreCopied) {
    TempDir dir;
    const std::string outPath = dir.file("out.obj");
    const Eigen::Matrix3Xd one = Eigen::Vector3d(4, 5, 6);
    ASSERT_TRUE(rewriteObjVertexLines(dir.write("t.obj", kTemplate), outPath, one));
    const std::string out = readBytes(outPath);
    EXPECT_NE(out.find("\nv 4.000000 5.000000 6.000000\n"), std::string::npos);
    EXPECT_NE(out.find("\nv 0.123456789012345 -5 6e2\n"), std::string::npos);
    EXPECT_NE(out.find("\nv 7 8 9\n"), std::string::npos);
}

TEST(ObjReaderVertexLines, RewriteKeepsOtherLineEndsAsTheyAre) {
    TempDir dir;
    const std::string outPath = dir.file("out.obj");
    const Eigen::Matrix3Xd one = Eigen::Vector3d(4, 5, 6);
    ASSERT_TRUE(rewriteObjVertexLines(
        dir.write("t.obj", "# crlf\r\nv 1 2 3\nvt 0 1\r\n\nf 1/1 1/1 1/1"), outPath, one));
    EXPECT_EQ(readBytes(outPath),
              "# crlf\r\nv 4.000000 5.000000 6.000000\nvt 0 1\r\n\nf 1/1 1/1 1/1");
}

TEST(ObjReaderVertexLines, RewrittenPositionsReadBackWithinPrintPrecision) {
    TempDir dir;
    const std::string templatePath = dir.write("t.obj", kTemplate);
    const std::string outPath = dir.file("out.obj");
    const Eigen::Matrix3Xd original = readObjVertexLines(templatePath);
    const Eigen::Matrix3d rotation =
        Eigen::AngleAxisd(1.1, Eigen::Vector3d(0.3, 1, -0.2).normalized()).toRotationMatrix();
    const Eigen::Matrix3Xd moved = rotation * original;
    ASSERT_TRUE(rewriteObjVertexLines(templatePath, outPath, moved));
    const Eigen::Matrix3Xd back = readObjVertexLines(outPath);
    ASSERT_EQ(back.cols(), original.cols());
    // "%f" keeps six decimals: half a unit in the last place at most.
    EXPECT_LE((back - moved).cwiseAbs().maxCoeff(), 5e-7 + 1e-12);
    // Undoing the rotation recovers the template.
    EXPECT_LE((rotation.transpose() * back - original).cwiseAbs().maxCoeff(), 2e-6);
}

TEST(ObjReaderVertexLines, UnopenableFilesAreReported) {
    TempDir dir;
    const Eigen::Matrix3Xd one = Eigen::Vector3d(1, 2, 3);
    {
        const std::string target = dir.file("no-such-dir/out.obj");
        testing::internal::CaptureStdout();
        const bool ok = rewriteObjVertexLines(dir.write("t.obj", kTemplate), target, one);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), "can't open " + target + "\n");
        EXPECT_FALSE(ok);
    }
    {
        const std::string missing = dir.file("absent.obj");
        testing::internal::CaptureStdout();
        const bool ok = rewriteObjVertexLines(missing, dir.file("out.obj"), one);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), "can't open " + missing + "\n");
        EXPECT_FALSE(ok);
    }
}

}  // namespace
