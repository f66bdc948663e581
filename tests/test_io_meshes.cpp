// OBJ and PLY readers and the OBJ vertex-line rewriter, against the token
// and line rules of the two formats.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <sstream>
#include <string>
#include <vector>

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
using Values = std::vector<double>;

// A `rows` by n matrix from its values listed column after column.
Eigen::MatrixXd columns(Eigen::Index rows, const Values& values) {
    return Eigen::Map<const Eigen::MatrixXd>(values.data(), rows,
                                             static_cast<Eigen::Index>(values.size()) / rows);
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

struct ObjCase {
    std::string text;
    Values vertices = {}, texcoords = {}, faces = {}, textureFaces = {};  // empty: none
};

TEST(ObjReader, TokenStreamRules) {
    const double u = 0.1f, v = 0.7f;  // texture coordinates are floats too
    const ObjCase cases[] = {
        // Keywords switch modes as whole tokens.
        {"v 1 2 3\nvt 0.1 0.7\nv 4 5 6\nf 1 2 3\n", {1, 2, 3, 4, 5, 6}, {u, v}, {1, 2, 3}},
        // Other keywords are data of the mode before them: "vn" and its three
        // numbers make 7 vertex tokens, two columns, the second starting with
        // the failed "vn". Line structure is not used: comments are data too.
        {"v 1 2 3\nvn 0.5 0.25 1\nvt 0.5 0.75\n", {1, 2, 3, 0, 0.5, 0.25}, {0.5, 0.75}},
        {"vt 0.5 0.25\nvn 1 0 0\n", {}, {0.5, 0.25, 0, 1, 0, 0}},
        {"f 1 2 3\ns off\nf 4 5 6\n# done 7\n", {}, {}, {1, 2, 3, 0, 0, 4, 5, 6, 0}},
        {"# vertices 1 2 3\nmtllib head.mtl\no head 9\n7 8\nv 1 2 3\n", {1, 2, 3}},
        // A face token splits at its first slash; indices are kept as written.
        {"f 12/7 3/4 5/6\n", {}, {}, {12, 3, 5}, {7, 4, 6}},
        {"f 1/2/3 4/5/6 7/8/9\n", {}, {}, {1, 4, 7}, {2, 5, 8}},
        {"f 1//3 4//6 7//9\n", {}, {}, {1, 4, 7}, {0, 0, 0}},
        {"f 1 2 3 4/8 5 6/9 7/10 8 9\n", {}, {}, {1, 2, 3, 4, 5, 6, 7, 8, 9}, {8, 9, 10}},
        // A quad's fourth corner shifts the following faces.
        {"f 1/1 2/2 3/3 4/4\nf 5/5 6/6 7/7\n", {}, {}, {1, 2, 3, 4, 5, 6}, {1, 2, 3, 4, 5, 6}},
        // Incomplete groups are dropped.
        {"v 1 2 3 4 5\nvt 1 2 3\nf 1/1 2/2 3/3 4\n", {1, 2, 3}, {1, 2}, {1, 2, 3}, {1, 2, 3}},
        {"v 0 0 0 v 1 0 0 v 0 1 0 f 1 2 3", {0, 0, 0, 1, 0, 0, 0, 1, 0}, {}, {1, 2, 3}},
        // Any whitespace separates tokens.
        {"v\t1  2\t\t3\r\nvt 0.5\v\f0.25\r\n  f 1/1\t1/1 1/1",
         {1, 2, 3},
         {0.5, 0.25},
         {1, 1, 1},
         {1, 1, 1}},
        {""},
        {"\n\n"},
        {"# nothing here\n"},
        {"v"},
    };
    // A kind of record the file does not have gives 0 by 0, so an absent
    // texture table cannot pass as a 2-row one.
    const auto table = [](Eigen::Index rows, const Values& values) {
        return values.empty() ? Eigen::MatrixXd() : columns(rows, values);
    };
    TempDir dir;
    for (const ObjCase& c : cases) {
        SCOPED_TRACE("text: " + c.text);
        for (const ObjMeshData& m : {parseObj(c.text), readObj(dir.write("m.obj", c.text))}) {
            EXPECT_MATRIX_EQ(m.vertices, table(3, c.vertices));
            EXPECT_MATRIX_EQ(m.texcoords, table(2, c.texcoords));
            EXPECT_MATRIX_EQ(m.faces, table(3, c.faces));
            EXPECT_MATRIX_EQ(m.textureFaces, table(3, c.textureFaces));
        }
    }
    // Groups that never complete give no columns.
    const ObjMeshData partial = parseObj("v 1 2\nvt 3\nf 1 2\n");
    EXPECT_EQ(partial.vertices.cols() + partial.texcoords.cols() + partial.faces.cols(), 0);
    const ObjMeshData missing = readObj(dir.file("absent.obj"));
    for (const Eigen::MatrixXd* t :
         {&missing.vertices, &missing.texcoords, &missing.faces, &missing.textureFaces})
        EXPECT_TRUE(t->rows() == 0 && t->cols() == 0);
}

// Face corners read the same whether they are near the end of the text or
// have plenty of text after them (where short whole numbers take a shortcut).
TEST(ObjReader, FaceCornersReadAlikeAtAnyDistanceFromTheEnd) {
    struct Corner {
        std::string token;
        float vertex;
        std::vector<float> texture;  // empty: the corner names no texture entry
    };
    const Corner corners[] = {
        {"5", 5, {}},
        {"12/34", 12, {34}},
        {"1/2/3", 1, {2}},
        {"7//9", 7, {0}},
        {"0/0", 0, {0}},
        {"-1/2", -1, {2}},
        {"3/-4", 3, {-4}},
        {"+6/+7", 6, {7}},
        {"1.5/2", 1.5f, {2}},
        {"1/2.5", 1, {2.5f}},
        {"1/2e1", 1, {20}},
        {"4/5e", 4, {0}},
        {"1/x", 1, {0}},
        {"8a/3", 8, {3}},
        {"9999999/9999999", 9999999, {9999999}},
        {"12345678/9", 12345678, {9}},
        {"16777217/1", 16777216, {1}},  // halfway: ties to even
        {"3/16777219", 3, {16777220}},
        {"0000001/0000002", 1, {2}},
    };
    for (const Corner& c : corners) {
        const std::string line = "f " + c.token + " " + c.token + " " + c.token;
        for (const std::string& text : {line, line + "\n" + std::string(40, ' ')}) {
            SCOPED_TRACE("text: '" + text + "'");
            const ObjMeshData m = parseObj(text);
            EXPECT_MATRIX_EQ(m.faces, columns(3, Values(3, c.vertex)));
            if (c.texture.empty())
                EXPECT_EQ(m.textureFaces.size(), 0);
            else
                EXPECT_MATRIX_EQ(m.textureFaces, columns(3, Values(3, c.texture[0])));
        }
    }
}

TEST(ObjReader, NumbersConvertLikeAStringStreamFloatExtraction) {
    std::vector<std::string> tokens = {
        // Decimal strings near float rounding boundaries, where converting
        // to double first and then to float would round twice.
        "1.000000059604644775390625",   // halfway: ties to even, 1
        "1.000000059604644775390626",   // just above halfway: 1 + 2^-23
        "1.0000000596046447753906249",  // just below halfway: 1
        "16777217",                     // 2^24 + 1, halfway: 2^24
        "16777219",                     // halfway: ties to even, 16777220
        "16777217.0", "-16777219.00", "8388609.5", "-4194304.25", "8388610.5",  // with decimals
        "1.00000006", "0.00000000", "-0.0",
        // Short enough for one exact division, which gives a double that is
        // a float midpoint; the decimal lies above it, then below.
        "37.94973945617676", "0.4894915074110031",
        // Long, tiny, huge.
        "0.30000001192092895507812500001", "3.14159265358979323846264338327950288",
        "7.006492321624085354618e-46",  // below half the smallest subnormal
        "1.17549435e-38", "3.4028234e38", "0.000000000000000000000000000000000000000000001",
        "123456789012345678901234567890", "-0.0000152587890625", "0.123456789",
        // Overflow gives the largest float; signs, exponents, trailing text.
        "1e39", "-1e39", "+1.5", "-2.5e-3", "1E3", "+.5", "5.", "-0", "-0.0e7", "2.5E+2", "1.5abc",
        "2x", "0x10",
        // Extractions that fail give +0.
        "nothing", "-", ".", "-.e5", "1e", "1.5e+", "inf", "nan"};
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
        // A failed extraction stores 0, an overflow the largest float.
        std::istringstream in(tokens[i]);
        float want = 0;
        in >> want;
        const bool same = got == want && std::signbit(got) == std::signbit(want);
        mismatches += !same;
        EXPECT_TRUE(same) << "token " << tokens[i] << ": " << got << " vs " << want;
    }
}

// ---------------------------------------------------------------------------
// PLY reader

// Nine header lines, three vertices (with normals), two faces.
const char* const kPly =
    "ply\nformat ascii 1.0\nelement vertex 3\nproperty float x\nproperty float y\n"
    "property float z\nelement face 2\nproperty list uchar int vertex_indices\nend_header\n"
    "0.123456789 1 2 0 0 1\n3 4 5e-300 0.5 -0.5 0.25\n6 7 8\n3 0 1 2\n4 2 1 0 7\n";

struct PlyCase {
    std::string text;
    int headerLines = 0;
    Values vertexLines = {};  // 6 by #V: position, then the extra values
    Values faces = {};        // 3 by #F
};

TEST(PlyReader, HeaderCountsAndLineRules) {
    const PlyCase cases[] = {
        // Full double precision. Faces are tokens 1..3 (a fourth corner is
        // lost), the extra values tokens 3..5 of a vertex line or 0.
        {kPly,
         9,
         {0.123456789, 1, 2, 0, 0, 1, 3, 4, 5e-300, 0.5, -0.5, 0.25, 6, 7, 8, 0, 0, 0},
         {0, 1, 2, 2, 1, 0}},
        // One header line too few: "end_header" becomes vertex 0, the real
        // vertex lines move down one, and the last is taken as the first face.
        {kPly,
         8,
         {0, 0, 0, 0, 0, 0, 0.123456789, 1, 2, 0, 0, 1, 3, 4, 5e-300, 0.5, -0.5, 0.25},
         {7, 8, 0, 0, 1, 2}},
        // The format line is not looked at; the face element may come first.
        {"ply\nformat binary_little_endian 1.0\ncomment made by hand\nelement face 1\n"
         "property list uchar int vertex_indices\nelement vertex 2\nproperty double x\n"
         "end_header\n1 2 3\n4 5 6\n3 1 0 1\n",
         8,
         {1, 2, 3, 0, 0, 0, 4, 5, 6, 0, 0, 0},
         {1, 0, 1}},
        // Every blank separates a token: "element vertex 5 more" and "element
        // face 5" (two blanks) are no count lines; "1  2 3" is 1, "", 2, 3.
        {"ply\nelement vertex 2\nelement vertex 5 more\nelement face 1\nelement  face 5\n"
         "end_header\n1  2 3\n4 5 6\n3 0  1 2\n",
         6,
         {1, 0, 2, 3, 0, 0, 4, 5, 6, 0, 0, 0},
         {0, 0, 1}},
        // CR LF ends lines; a lone CR does not: "1 2 3\r4 5 6" is 1, 2, "3\r4", 5, 6.
        {"ply\r\nelement vertex 2\r\nelement face 1\r\nend_header\r\n1 2 3\r\n4 5 6\r\n3 0 1 1\r\n",
         4,
         {1, 2, 3, 0, 0, 0, 4, 5, 6, 0, 0, 0},
         {0, 1, 1}},
        {"ply\nelement vertex 2\nend_header\n1 2 3\r4 5 6\n7 8 9\n",
         3,
         {1, 2, 3, 5, 6, 0, 7, 8, 9, 0, 0, 0}},
        // A short file leaves zeros; negative counts give no elements.
        {"ply\nelement vertex 3\nelement face 2\nend_header\n1 2 3\n4 5\n",
         4,
         {1, 2, 3, 0, 0, 0, 4, 5, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0},
         Values(6, 0.0)},
        {"ply\nelement vertex -3\nelement face -1\nend_header\n1 2 3\n", 4},
    };
    TempDir dir;
    for (const PlyCase& c : cases) {
        SCOPED_TRACE("file:\n" + c.text);
        const auto m = readPly(dir.write("m.ply", c.text), c.headerLines);
        const Eigen::MatrixXd lines = columns(6, c.vertexLines);
        EXPECT_MATRIX_EQ(m.vertices, lines.topRows(3));
        EXPECT_MATRIX_EQ(m.extra, lines.bottomRows(3));
        EXPECT_MATRIX_EQ(m.faces, columns(3, c.faces));
    }
}

TEST(PlyReader, CountsHeaderLinesAndToleratesMissingFiles) {
    TempDir dir;
    const std::pair<std::string, int> cases[] = {
        {kPly, 9},
        {"ply\r\nformat ascii 1.0\r\nend_header\r\n1 2 3\r\n", 3},
        {"ply\nformat ascii 1.0\nelement vertex 0\n", 0},  // no end_header line
        {"ply\nformat ascii 1.0\nend_header\r", 0},        // nor is a lone CR a line end
    };
    for (const auto& [text, lines] : cases)
        EXPECT_EQ(countPlyHeaderLines(dir.write("m.ply", text)), lines) << text;
    EXPECT_EQ(countPlyHeaderLines(dir.file("absent.ply")), 0);
    const auto m = readPly(dir.file("absent.ply"), 9);
    EXPECT_EQ(m.vertices.size() + m.faces.size() + m.extra.size(), 0);
}

// ---------------------------------------------------------------------------
// OBJ vertex lines: reading positions and rewriting them into a template

// Three "v " lines; the tab and blank lines are no vertex lines. The last
// line has no line end.
const std::string kTemplate =
    "# template head\r\nmtllib head.mtl\nv 1 2 3\nvt 0.25 0.5\r\nvn 0 0 1\nv\t9 9 9\n v 8 8 8\n\n"
    "v 0.123456789012345 -5 6e2\nusemtl skin  \nf 1/1/1 2/1/1 3/1/1\nv 7 8 9";

TEST(ObjReaderVertexLines, ReadAndRewriteOnlyVLines) {
    TempDir dir;
    const std::string templatePath = dir.write("t.obj", kTemplate), outPath = dir.file("out.obj");
    EXPECT_MATRIX_EQ(readObjVertexLines(templatePath),
                     columns(3, {1, 2, 3, 0.123456789012345, -5, 600, 7, 8, 9}));
    EXPECT_MATRIX_EQ(readObjVertexLines(dir.file("absent.obj")), Eigen::Matrix3Xd(3, 0));

    Eigen::Matrix3Xd vertices(3, 2);
    vertices << 1.5, 1e6,   //
        -2.25, -0.0000004,  //
        0.1234567, 0;
    kestrel::meridian::Error error;
    ASSERT_TRUE(rewriteObjVertexLines(templatePath, outPath, vertices, error));
    // Vertex lines beyond the matrix, other line ends and a last line
    // without one stay as they are.
    std::string expected = kTemplate;
    expected.replace(expected.find("v 1 2 3\n"), 7, "v 1.500000 -2.250000 0.123457");
    expected.replace(expected.find("v 0.123456789012345 -5 6e2"), 26,
                     "v 1000000.000000 -0.000000 0.000000");
    EXPECT_EQ(readBytes(outPath), expected);

    // Files that cannot be opened are named.
    const std::string noDir = dir.file("no-such-dir/out.obj"), missing = dir.file("absent.obj");
    const struct {
        std::string from, to, unopenable;
    } cases[] = {{templatePath, noDir, noDir}, {missing, outPath, missing}};
    for (const auto& c : cases) {
        EXPECT_FALSE(rewriteObjVertexLines(c.from, c.to, vertices, error));
        EXPECT_EQ(error.path, c.unopenable);
    }
}

}  // namespace
