// The strict mesh and head readers against known answers: what each kind of
// file reads as, and which fault and place each damaged file is refused with.
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "fixtures.h"
#include "io/head_reader.h"
#include "io/input_error.h"
#include "io/strict_mesh.h"
#include "io/text_scan.h"

namespace {

namespace km = kestrel::meridian;
using km::InputFault;

// Appends `value` as `T` in the given byte order.
template <typename T>
void put(std::string& bytes, T value, bool bigEndian) {
    char raw[sizeof(T)];
    std::memcpy(raw, &value, sizeof(T));
    if (bigEndian)
        for (size_t k = 0; k < sizeof(T) / 2; ++k) std::swap(raw[k], raw[sizeof(T) - 1 - k]);
    bytes.append(raw, sizeof(T));
}

// A binary PLY of one triangle: double x, y, z, a uchar colour, and an int
// face list, with a comment in the header.
std::string binaryTriangle(bool bigEndian, double firstX = 1.5, int lastCorner = 2) {
    std::string bytes = std::string("ply\nformat ") +
                        (bigEndian ? "binary_big_endian" : "binary_little_endian") +
                        " 1.0\ncomment scanner output\nelement vertex 3\nproperty double x\n"
                        "property double y\nproperty double z\nproperty uchar red\n"
                        "element face 1\nproperty list uchar int vertex_indices\nend_header\n";
    const double xyz[3][3] = {{firstX, 0, 0}, {0, 2.25, 0}, {0, 0, -3}};
    for (const auto& v : xyz) {
        for (double c : v) put(bytes, c, bigEndian);
        put<uint8_t>(bytes, 200, bigEndian);
    }
    put<uint8_t>(bytes, 3, bigEndian);
    for (int corner : {0, 1, lastCorner}) put<int32_t>(bytes, corner, bigEndian);
    return bytes;
}

const char* kAsciiPlyHeader =
    "ply\nformat ascii 1.0\ncomment made by hand\nelement vertex 3\nproperty float x\n"
    "property float y\nproperty float z\nproperty float nx\nelement face 1\n"
    "property list uchar int vertex_indices\nend_header\n";

struct ReadCase {
    const char* name;
    const char* file;  // its extension selects OBJ; PLY is found by its first line
    std::string bytes;
    // Read: vertex, texture coordinate and face counts, the first vertex and
    // the first face's texture corners (-1: none).
    int64_t vertices, texcoords, faces;
    float first[3];
    int32_t firstTexture;
};

TEST(StrictReader, ReadsEveryWrittenFormOfAMesh) {
    const std::string tri = "v 1.5 0 0\nv 0 2.25 0\nv 0 0 -3\n";
    const ReadCase cases[] = {
        {"plain OBJ", "a.obj", tri + "f 1 2 3\n", 3, 0, 1, {1.5f, 0, 0}, -1},
        {"comments, normals, groups and materials ignored",
         "a.obj",
         "# head\nmtllib m.mtl\no head\ng skin\ns 1\nusemtl skin\n" + tri +
             "vn 0 0 1\nvn 0 0 1\nvn 0 0 1\nf 1//1 2//2 3//3\n",
         3,
         0,
         1,
         {1.5f, 0, 0},
         -1},
        {"vertex colours",
         "a.obj",
         "v 1.5 0 0 0.5 0.5 0.5\nv 0 2.25 0 1 1 1\nv 0 0 -3 0 0 0\nf 1 2 3\n",
         3,
         0,
         1,
         {1.5f, 0, 0},
         -1},
        {"v/t and v/t/n corners",
         "a.obj",
         tri + "vt 0 0\nvt 1 0\nvt 0 1 0\nvn 0 0 1\nf 1/3/1 2/2/1 3/1/1\n",
         3,
         3,
         1,
         {1.5f, 0, 0},
         2},
        {"negative indices count back",
         "a.obj",
         tri + "vt 0 0\nf -3/-1 -2/-1 -1/-1\n",
         3,
         1,
         1,
         {1.5f, 0, 0},
         0},
        {"CR LF line ends, a '+' sign, a tiny exponent",
         "a.OBJ",
         "v +1.5 0 0\r\nv 0 2.25 1e-60\r\nv 0 0 -3\r\nf 1 2 3\r\n",
         3,
         0,
         1,
         {1.5f, 0, 0},
         -1},
        {"more digits than a float holds",
         "a.obj",
         "v 0.123456789 0 0\n",
         1,
         0,
         0,
         {0.123456789f, 0, 0},
         -1},
        {"ascii PLY with a comment and normals",
         "a.ply",
         std::string(kAsciiPlyHeader) + "1.5 0 0 0\n0 2.25 0 0\n0 0 -3 1\n3 0 1 2\n",
         3,
         0,
         1,
         {1.5f, 0, 0},
         -1},
        {"binary little-endian PLY", "a.ply", binaryTriangle(false), 3, 0, 1, {1.5f, 0, 0}, -1},
        {"binary big-endian PLY", "head.bin", binaryTriangle(true), 3, 0, 1, {1.5f, 0, 0}, -1},
        // Items without properties take no bytes, so no count of them can
        // outrun the body (nor may reading them take time in their count).
        {"binary PLY with an element of no properties",
         "a.ply",
         binaryTriangle(false).insert(binaryTriangle(false).find("end_header"),
                                      "element marker 9000000000000000000\n"),
         3,
         0,
         1,
         {1.5f, 0, 0},
         -1},
        {"ascii PLY with an element of no properties",
         "a.ply",
         std::string(kAsciiPlyHeader)
                 .insert(std::string(kAsciiPlyHeader).find("end_header"),
                         "element marker 9000000000000000000\n") +
             "1.5 0 0 0\n0 2.25 0 0\n0 0 -3 1\n3 0 1 2\n",
         3,
         0,
         1,
         {1.5f, 0, 0},
         -1},
    };
    for (const ReadCase& c : cases) {
        SCOPED_TRACE(c.name);
        const km::StrictMesh mesh = km::parseStrictMesh(c.bytes, c.file);
        EXPECT_EQ(mesh.vertexCount(), c.vertices);
        EXPECT_EQ(mesh.texcoordCount(), c.texcoords);
        EXPECT_EQ(mesh.faceCount(), c.faces);
        for (int r = 0; r < 3; ++r) EXPECT_EQ(mesh.vertices[r], c.first[r]);
        if (c.faces > 0) {
            EXPECT_EQ(std::vector<int32_t>(mesh.faces.begin(), mesh.faces.begin() + 3),
                      (std::vector<int32_t>{0, 1, 2}));
        }
        EXPECT_EQ(mesh.textureFaces.empty() ? -1 : mesh.textureFaces[0], c.firstTexture);
    }
}

struct RefusedCase {
    const char* name;
    const char* file;
    std::string bytes;
    InputFault fault;
    const char* says;  // part of the message after the file name
};

TEST(StrictReader, RefusesDamagedMeshesNamingThePlace) {
    const std::string tri = "v 1.5 0 0\nv 0 2.25 0\nv 0 0 -3\n";
    std::string shortBinary = binaryTriangle(false);
    shortBinary.resize(shortBinary.size() - 30);
    const RefusedCase cases[] = {
        {"nan", "a.obj", "v 0 0 0\nv nan 0 0\n", InputFault::nonFinite,
         "line 2: vertex 1 has a non-finite coordinate 'nan'"},
        {"inf", "a.obj", "v 0 -inf 0\n", InputFault::nonFinite, "vertex 0 has a non-finite"},
        {"not a number", "a.obj", "v 0 0 0\nv 0 0 0\nv 0 abc 0\n", InputFault::nonFinite,
         "line 3: vertex 2 has a non-finite coordinate 'abc'"},
        {"overflow", "a.obj", "v 1e999 0 0\n", InputFault::nonFinite, "'1e999'"},
        {"above the float range", "a.obj", "v 0 0 1e39\n", InputFault::nonFinite, "'1e39'"},
        {"hexadecimal", "a.obj", "v 0x10 0 0\n", InputFault::nonFinite, "'0x10'"},
        {"two numbers", "a.obj", "v 0 0\n", InputFault::malformed, "vertex 0 has 2 numbers"},
        {"quad", "a.obj", tri + "v 1 1 1\nf 1 2 3 4\n", InputFault::malformed,
         "line 5: a face of 4 corners"},
        {"bare f", "a.obj", tri + "f\n", InputFault::malformed, "line 4: a face of 0 corners"},
        {"index past the end", "a.obj", tri + "f 1 2 4\n", InputFault::indexOutOfRange,
         "line 4: vertex index 4 names none of the 3"},
        {"index 0", "a.obj", tri + "f 0 1 2\n", InputFault::indexOutOfRange, "vertex index 0"},
        {"negative index too far back", "a.obj", tri + "f -4 1 2\n", InputFault::indexOutOfRange,
         "vertex index -4"},
        {"texture index past the end", "a.obj", tri + "vt 0 0\nf 1/2 2/1 3/1\n",
         InputFault::indexOutOfRange, "texture coordinate index 2"},
        {"corner with four parts", "a.obj", tri + "f 1/1/1/1 2 3\n", InputFault::malformed,
         "'1/1/1/1'"},
        {"texture at some corners only", "a.obj", tri + "vt 0 0\nf 1/1 2 3\n",
         InputFault::malformed, "some corners only"},
        {"unknown record", "a.obj", tri + "l 1 2\n", InputFault::malformed,
         "line 4: unknown record 'l'"},
        {"neither OBJ nor PLY", "a.stl", tri, InputFault::unknownFormat, "neither a PLY"},
        {"PLY body shorter than its header", "a.ply",
         std::string(kAsciiPlyHeader) + "1.5 0 0 0\n0 2.25 0 0\n", InputFault::truncated,
         "declares 3 vertex elements, the body ends after 2"},
        {"PLY count larger than the file", "a.ply",
         "ply\nformat ascii 1.0\nelement vertex 16777216\nproperty float x\nproperty float y\n"
         "property float z\nend_header\n0 0 0\n",
         InputFault::truncated, "16777216 vertex elements, the body has only 6 bytes"},
        {"PLY nan", "a.ply",
         std::string(kAsciiPlyHeader) + "1.5 0 0 0\n0 nan 0 0\n0 0 -3 1\n3 0 1 2\n",
         InputFault::nonFinite, "line 13: vertex 1 has a non-finite coordinate 'nan'"},
        {"PLY line with a value missing", "a.ply",
         std::string(kAsciiPlyHeader) + "1.5 0 0\n0 2.25 0 0\n0 0 -3 1\n3 0 1 2\n",
         InputFault::malformed, "line 12: vertex 0 lacks property nx"},
        {"PLY line with a value too many", "a.ply",
         std::string(kAsciiPlyHeader) + "1.5 0 0 0 9\n0 2.25 0 0\n0 0 -3 1\n3 0 1 2\n",
         InputFault::malformed, "line 12: vertex 0 has more values"},
        {"PLY text after the last element", "a.ply",
         std::string(kAsciiPlyHeader) + "1.5 0 0 0\n0 2.25 0 0\n0 0 -3 1\n3 0 1 2\n7\n",
         InputFault::malformed, "line 16: text after the last element"},
        {"PLY quad", "a.ply",
         std::string(kAsciiPlyHeader) + "1.5 0 0 0\n0 2.25 0 0\n0 0 -3 1\n4 0 1 2 0\n",
         InputFault::malformed, "face 0 has 4 corners"},
        {"binary PLY cut short", "a.ply", shortBinary, InputFault::truncated,
         "declares 3 vertex elements, the body ends after 2"},
        {"binary PLY non-finite", "a.ply", binaryTriangle(false, 1e300), InputFault::nonFinite,
         "vertex 0 has a non-finite coordinate"},
        {"binary PLY face out of range", "a.ply", binaryTriangle(true, 1.5, 3),
         InputFault::indexOutOfRange, "face 0 names vertex 3, outside 0..2"},
        {"binary PLY with bytes to spare", "a.ply", binaryTriangle(false) + "xx",
         InputFault::malformed, "2 bytes after the last element"},
        {"PLY without end_header", "a.ply", "ply\nformat ascii 1.0\nelement vertex 0\n",
         InputFault::truncated, "no end_header"},
        {"PLY of an unknown format", "a.ply", "ply\nformat binary_middle_endian 1.0\nend_header\n",
         InputFault::unknownFormat, "header line 2: format 'binary_middle_endian'"},
        {"PLY vertex without z", "a.ply",
         "ply\nformat ascii 1.0\nelement vertex 1\nproperty float x\nproperty float y\n"
         "end_header\n0 0\n",
         InputFault::malformed, "the vertex element has no property z"},
    };
    for (const RefusedCase& c : cases) {
        SCOPED_TRACE(c.name);
        try {
            km::parseStrictMesh(c.bytes, c.file);
            ADD_FAILURE() << "read";
        } catch (const km::InputError& e) {
            EXPECT_EQ(e.fault(), c.fault) << e.what();
            EXPECT_EQ(e.path(), c.file);
            EXPECT_EQ(std::string(e.what()).rfind(std::string(c.file) + ": ", 0), 0u) << e.what();
            EXPECT_NE(std::string(e.what()).find(c.says), std::string::npos) << e.what();
        }
    }
}

TEST(StrictReader, ReadsAHeadAsPlanarFloatsAndRefusesOtherCounts) {
    constexpr int64_t n = km::kStrictHeadVertexCount;
    std::string obj;
    for (int64_t j = 0; j < n; ++j)
        obj += "v " + std::to_string(j) + " " + std::to_string(-j) + " 0.5\n";
    const std::vector<float> planar = km::parseHeadPlanar(obj, "head.obj");
    ASSERT_EQ(planar.size(), static_cast<size_t>(3 * n));
    for (int64_t j : {int64_t{0}, int64_t{7}, n - 1}) {
        EXPECT_EQ(planar[j], static_cast<float>(j));
        EXPECT_EQ(planar[n + j], static_cast<float>(-j));
        EXPECT_EQ(planar[2 * n + j], 0.5f);
    }
    for (const char* extra : {"v 1 1 1\n", ""}) {
        const std::string text = extra[0] ? obj + extra : obj.substr(0, obj.rfind("v "));
        try {
            km::parseHeadPlanar(text, "head.obj");
            ADD_FAILURE() << "read";
        } catch (const km::InputError& e) {
            EXPECT_EQ(e.fault(), InputFault::wrongCount);
            const std::string count = std::to_string(extra[0] ? n + 1 : n - 1);
            EXPECT_EQ(std::string(e.what()), "head.obj: " + count +
                                                 " vertices; a head in the template topology "
                                                 "has 20481");
        }
    }
    meridian::testing::TempDir dir;
    try {
        km::readHeadPlanar(dir.file("absent.obj"));
        ADD_FAILURE() << "read";
    } catch (const km::InputError& e) {
        EXPECT_EQ(e.fault(), InputFault::missingFile);
    }
}

TEST(StrictReader, NumbersReadLikeStrtofWithoutLocale) {
    const struct {
        const char* token;
        km::scan::NumberStatus status;
        float value;
    } cases[] = {
        {"0.1", km::scan::NumberStatus::ok, 0.1f},
        // Short decimals take a fast path; longer ones from_chars. Both round
        // as the compiler rounds the same literal.
        {"-1.301489", km::scan::NumberStatus::ok, -1.301489f},
        {"1.6777217", km::scan::NumberStatus::ok, 1.6777217f},
        {"16777217", km::scan::NumberStatus::ok, 16777217.0f},
        {"40.110554", km::scan::NumberStatus::ok, 40.110554f},
        {"0.3121445178985595", km::scan::NumberStatus::ok, 0.3121445178985595f},
        {"33554433", km::scan::NumberStatus::ok, 33554433.0f},  // halfway: to even
        {"1.00000005960464478", km::scan::NumberStatus::ok, 1.00000005960464478f},
        {"0.31214451789855957", km::scan::NumberStatus::ok, 0.31214451789855957f},
        {"-0", km::scan::NumberStatus::ok, -0.0f},
        {"1.2.3", km::scan::NumberStatus::notANumber, 0},
        {"-2.5e3", km::scan::NumberStatus::ok, -2500.0f},
        {"+.5", km::scan::NumberStatus::ok, 0.5f},
        {"1e-50", km::scan::NumberStatus::ok, 0.0f},
        {"1.4e-45", km::scan::NumberStatus::ok, 1.4e-45f},
        {"3.4028236e38", km::scan::NumberStatus::outOfRange, 0},
        {"1,5", km::scan::NumberStatus::notANumber, 0},
        {"nan", km::scan::NumberStatus::notANumber, 0},
        {"-inf", km::scan::NumberStatus::notANumber, 0},
        {"", km::scan::NumberStatus::notANumber, 0},
        {"++1", km::scan::NumberStatus::notANumber, 0},
    };
    // A token inside a text is read the same whatever follows it, digits
    // included (the reader may look past the token's end).
    for (const auto& c : cases)
        for (const std::string after : {"", " 1", "\n", "12345678901234567890", ".5e"}) {
            const std::string text = std::string(c.token) + after;
            const std::string_view token(text.data(), std::strlen(c.token));
            float alone = 0, inText = 0;
            EXPECT_EQ(km::scan::parseFloat(token, alone), c.status) << c.token;
            EXPECT_EQ(km::scan::parseFloat(token, text, inText), c.status) << c.token << after;
            if (c.status == km::scan::NumberStatus::ok) {
                EXPECT_EQ(alone, c.value) << c.token;
                EXPECT_EQ(std::signbit(alone), std::signbit(c.value)) << c.token;
                EXPECT_EQ(std::memcmp(&alone, &inText, sizeof alone), 0) << c.token << after;
            }
        }
}

// Mesh-like decimals of every length the fast path takes, against strtof.
TEST(StrictReader, ShortDecimalsReadAsStrtofReadsThem) {
    std::mt19937_64 rng(18);
    int mismatches = 0;
    for (int k = 0; k < 200000; ++k) {
        const int digits = 1 + static_cast<int>(rng() % 17);
        const int point = static_cast<int>(rng() % (digits + 1));
        std::string text = rng() % 2 ? "-" : "";
        for (int d = 0; d < digits; ++d) {
            if (d == point && d > 0) text += '.';
            text += static_cast<char>('0' + rng() % 10);
        }
        const size_t length = text.size();
        text += "0 1.5\n";  // a digit right after the token, then more text
        const std::string_view token(text.data(), length);
        const std::string alone(token);
        float value = 0;
        if (km::scan::parseFloat(token, text, value) != km::scan::NumberStatus::ok) {
            ++mismatches;
            continue;
        }
        const float expected = std::strtof(alone.c_str(), nullptr);
        mismatches += std::memcmp(&value, &expected, sizeof value) != 0;
    }
    EXPECT_EQ(mismatches, 0);
}

}  // namespace
