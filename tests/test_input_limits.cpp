// Hostile data files: counts and sizes a file cannot back are refused before
// anything is allocated for them, and the refusal reaches the caller as a
// message (init calls) or an error (the tool).
#include <filesystem>
#include <functional>
#include <string>

#include <gtest/gtest.h>

#include "fixtures.h"
#include "io/correspondence.h"
#include "io/input_limits.h"
#include "io/mesh_readers.h"
#include "meridian/meridian.h"

namespace {

namespace km = kestrel::meridian;
#if defined(MERIDIAN_CLI_PATH)
using meridian::testing::runTool;
#endif
using meridian::testing::TempDir;

std::string correspondence(long long count, const std::string& body) {
    return "# base 0\n# element count " + std::to_string(count) + "\n# a\n# b\n# end_header\n" +
           body;
}

// Tokens on one line after a keyword: "v 1 1 1 ...".
std::string oneLine(const char* keyword, long long tokens, const std::string& token = "1") {
    std::string text(keyword);
    text.reserve((token.size() + 1) * static_cast<size_t>(tokens) + 4);
    for (long long i = 0; i < tokens; ++i) text += " " + token;
    return text;
}

TEST(InputLimits, ReadersRefuseCountsTheFileCannotBack) {
    TempDir dir;
    const std::string sparse = dir.file("sparse.obj");
    std::filesystem::resize_file(dir.write("sparse.obj", ""), km::kMaxObjFileBytes + 1);
    const auto loadCorrespondence = [&](const std::string& text) {
        km::Correspondence r;
        km::Error error;
        km::loadCorrespondence(r, dir.write("map.corresp", text), error);
    };
    const struct {
        const char* name;
        std::function<void()> read;
        const char* says;
    } cases[] = {
        {"count above the file's bytes",
         [&] { loadCorrespondence(correspondence(1 << 24, "0 1\n")); },
         "element count 16777216 cannot be honest in a file of 59 bytes"},
        {"count line at the end of the file",
         [&] { loadCorrespondence("# base 0\n# element count 9999"); },
         "element count 9999 cannot be honest in a file of 29 bytes"},
        {"count above the limit", [&] { loadCorrespondence(correspondence((1 << 24) + 1, "")); },
         "element count 16777217 is above the limit of 16777216"},
        {"PLY vertices above the file's bytes",
         [&] { km::readPly(dir.write("c.ply", "ply\nelement vertex 60\nend_header\n1 2 3\n"), 3); },
         "vertex count 60 cannot be honest in a file of 39 bytes"},
        {"PLY count of any size",
         [&] { km::readPly(dir.write("d.ply", "ply\nelement face 1e300\nend_header\n"), 3); },
         "element count 1e300 is above the limit"},
        {"OBJ with too many numbers",
         // A corner a/b is two numbers.
         [&] { km::parseObj(oneLine("f", km::kMaxObjNumbers / 2 + 1, "1/1"), "big"); },
         "big: 16777218 numbers, above the limit of 16777216"},
        {"OBJ file too large", [&] { km::readObj(sparse); }, "268435457 bytes, above the limit"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        try {
            c.read();
            ADD_FAILURE() << "not refused";
        } catch (const km::InputRefused& refused) {
            EXPECT_NE(std::string(refused.what()).find(c.says), std::string::npos)
                << refused.what();
        }
    }
    // At the limit itself the numbers are read.
    EXPECT_EQ(km::parseObj(oneLine("v", 3 * 1000)).vertices.cols(), 1000);
}

TEST(InputLimits, InitCallsAndTheToolReportTheRefusal) {
    TempDir model;
    const std::string hostile =
        model.write("idx_tavi2head.corresp", correspondence(1 << 24, "0 1\n"));
    model.write("idx_head2ue4.corresp", correspondence(1, "0 0\n"));
    testing::internal::CaptureStdout();
    EXPECT_EQ(AI_system_init_swaphead(model.str().c_str()), 0u);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              hostile + ": element count 16777216 cannot be honest in a file of 59 bytes\n");

    std::filesystem::create_directories(model.path() / "TBN");
    std::filesystem::resize_file(model.write("TBN/std_20481_with_UV_F_TF.obj", ""),
                                 km::kMaxObjFileBytes + 1);
    testing::internal::CaptureStdout();
    EXPECT_EQ(AI_system_init_TBN(model.str().c_str()), -1);
    EXPECT_NE(testing::internal::GetCapturedStdout().find("bytes, above the limit"),
              std::string::npos);
    AI_system_over();

#if defined(MERIDIAN_CLI_PATH)
    const std::string head = model.write("head.obj", oneLine("v", km::kMaxObjNumbers + 3));
    const auto run = runTool("swap --model " + model.str() + " --in " + head + " --out " +
                             model.file("out.obj"));
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.output, "error: " + head +
                              ": line 1: vertex 0 has 16777219 numbers (x y z, with an optional w "
                              "or colour)\n");
#endif
}

}  // namespace
