// The strict OBJ reader takes the common lines of a mesh (short decimals,
// short indices) by a fast path and every other line by the general one.
// Each line below is read both ways: once where the fast path can take it,
// at every offset from the start of its 64-byte window, and once as the
// last bytes of the text without a line end, which only the general path
// reads. The two must give the same mesh, bit for bit, or the same refusal.
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "fixtures.h"
#include "io/input_error.h"
#include "io/strict_mesh.h"
#include "io/strict_tables.h"

namespace {

namespace km = kestrel::meridian;

struct Outcome {
    bool refused = false;
    km::InputFault fault{};
    std::string message;
    km::StrictMesh mesh;
};

Outcome readObj(const std::string& text) {
    Outcome outcome;
    try {
        outcome.mesh = km::parseStrictObj(text, "t.obj");
    } catch (const km::InputError& e) {
        outcome.refused = true;
        outcome.fault = e.fault();
        outcome.message = e.what();
    }
    return outcome;
}

template <typename T>
bool sameBits(const std::vector<T>& a, const std::vector<T>& b) {
    // An empty vector's data() may be null, which memcmp must not see.
    return a.size() == b.size() &&
           (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(T)) == 0);
}

void expectSame(const Outcome& fast, const Outcome& general) {
    ASSERT_EQ(fast.refused, general.refused) << fast.message << general.message;
    if (general.refused) {
        EXPECT_EQ(fast.fault, general.fault);
        EXPECT_EQ(fast.message, general.message);
        return;
    }
    EXPECT_TRUE(sameBits(fast.mesh.vertices, general.mesh.vertices));
    EXPECT_TRUE(sameBits(fast.mesh.texcoords, general.mesh.texcoords));
    EXPECT_TRUE(sameBits(fast.mesh.faces, general.mesh.faces));
    EXPECT_TRUE(sameBits(fast.mesh.textureFaces, general.mesh.textureFaces));
}

// Three vertices and three texture coordinates for the faces to name.
const char* kPreamble = "v 1.5 0.25 -3.0\nv 0 2.25 0\nv 0 0 -3\nvt 0 0\nvt 1 0\nvt 0 1\n";

void expectBothPathsAgree(const std::vector<std::string>& lines) {
    // Comments after the line keep the fast path's reach (a window and a
    // short number past it) inside the text.
    const std::string tail = "\n# " + std::string(120, '-') + "\n";
    for (const std::string& line : lines) {
        SCOPED_TRACE("line \"" + line + "\"");
        const Outcome general = readObj(kPreamble + line);
        if (!general.refused) {
            // A well-formed line also reads the same with a CR LF end.
            expectSame(readObj(kPreamble + line + "\r\n" + tail), general);
        }
        // A comment of growing length moves the line across the window.
        for (size_t pad = 0; pad < 72; ++pad) {
            SCOPED_TRACE("after a comment of " + std::to_string(pad) + " bytes");
            const std::string text = kPreamble + ("#" + std::string(pad, 'x') + "\n") + line;
            expectSame(readObj(text + tail), readObj(text));
        }
    }
}

TEST(StrictObjLines, VerticesReadTheSameOnBothPaths) {
    expectBothPathsAgree({
        "v 1.5 0.25 -3.0",
        "v -1.5614332 13.899514 40.110554",
        "v +0.5 -0.0 1.12345678",
        "v 1234567.12345678 0.00000001 -9999999.9",
        "v 8388608.5 4194304.25 -8388609.5",  // halfway between two floats
        "v\t1.5\t2.5\t3.5",
        "v 1.5  2.5   3.5   ",
        "v 1.5 2.5 3.5 1.0",
        "v 1.5 2.5 3.5 0.1 0.2 0.3",
        "v 1.5" + std::string(60, ' ') + "2.5 3.5",  // longer than a window
        "v 12345678.5 1 2",                          // a whole part of eight digits
        "v 1.123456789 0.5 0.5",                     // nine decimals
        "v 1.5e1 2.5E-1 3",
        "v 1.5 2.5",
        "v 1.5 2.5 3.5x",
        "v 1.5 2.5 3.5e",
        "v 1.5 2.5 1.5.5",
        "v 1.5 2.5 nan",
        "v 1.5 2.5 -",
        "v 1. 2.5 3.5",
        "v .5 2.5 3.5",
        "v 1.5 2.5 3.5 # note",
        "v1.5 2.5 3.5",
        " v 1.5 2.5 3.5",
        "v 1,5 2.5 3.5",
    });
}

TEST(StrictObjLines, TextureCoordinatesAndIgnoredLinesReadTheSameOnBothPaths) {
    expectBothPathsAgree({
        "vt 0.25 0.75",
        "vt 0.25 0.75 0.5",
        "vt 0.25",
        "vt 0.25 0.75 0.5 0.125",
        "vt 0.25 abc",
        "vt 0.25 0.75x",
        "vt  0.25\t0.75 ",
        "vn 0.1 0.2 0.3",
        "vn",
        "# v 1 2",
        "#",
        "",
        "g group",
        "o object",
        "usemtl skin",
        "l 1 2",
        "vp 0.5 0.5",
    });
}

TEST(StrictObjLines, FacesReadTheSameOnBothPaths) {
    expectBothPathsAgree({
        "f 1 2 3",
        "f 3 1 2",
        "f 1/1 2/2 3/3",
        "f 1/3/1 2/2/2 3/1/3",
        "f 1//1 2//2 3//3",
        "f 0000001 0000002 0000003",
        "f -1 -2 -3",
        "f +1 2 3",
        "f 1/1 2 3",
        "f 1//1 2/2 3//3",
        "f 1 2",
        "f 1 2 3 1",
        "f 1 2 4",
        "f 0 1 2",
        "f 1/4 2/1 3/1",
        "f 1/0 2/1 3/1",
        "f 1//0 2//1 3//1",
        "f 1/1/ 2/2/2 3/3/3",
        "f 1/ 2 3",
        "f 1// 2 3",
        "f 1/1/1/1 2 3",
        "f 1.0 2 3",
        "f 12345678 2 3",
        "f 1 2 3x",
        "f 1 2 3/",
        "f 1 2 3/1",
        "f 1 2 3 # note",
        "f 1 2" + std::string(70, ' ') + "3",
    });
}

// Files are read into storage that is not cleared first: what is read from
// disk must be exactly the file's bytes, however the text ends.
TEST(StrictObjLines, FilesReadLikeTheirBytes) {
    const meridian::testing::TempDir dir;
    const std::string mesh = kPreamble + std::string("f 1/1 2/2 3/3\n# ") + std::string(100, '-');
    const std::string texts[] = {
        "",
        mesh,
        mesh + "\nf 1/1 2/2 3/3",
        mesh + "\nf 1/1 2/2 3/3\n",
        mesh + "\nv 1.5 2.5 3.5x",
        mesh + "\nf 1/1 2/2 4/3",
    };
    for (const std::string& text : texts) {
        SCOPED_TRACE("text of " + std::to_string(text.size()) + " bytes");
        Outcome fromFile;
        try {
            fromFile.mesh = km::readStrictMesh(dir.write("mesh.obj", text));
        } catch (const km::InputError& e) {
            fromFile.refused = true;
            fromFile.fault = e.fault();
            fromFile.message = std::string(e.what()).substr(e.path().size());
        }
        Outcome fromBytes = readObj(text);
        if (fromBytes.refused) fromBytes.message = fromBytes.message.substr(std::strlen("t.obj"));
        expectSame(fromFile, fromBytes);
    }
    // The tables share the read.
    EXPECT_EQ(km::readStrictIndexList(dir.write("list.txt", "4 5\n6")),
              (std::vector<int32_t>{4, 5, 6}));
    EXPECT_TRUE(km::readStrictIndexList(dir.write("empty.txt", "")).empty());
}

}  // namespace
