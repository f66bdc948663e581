// `meridian eyes` as a user runs it.
#include <string>

#include <gtest/gtest.h>

#include "eyes_fixtures.h"
#include "io/mesh_readers.h"

namespace {

namespace km = kestrel::meridian;
using meridian::testing::demoModel;
using meridian::testing::runTool;
using meridian::testing::TempDir;
using meridian::testing::ToolRun;

TEST(EyesCli, WritesPosesMeshesAndPreview) {
    TempDir out;
    const ToolRun run =
        runTool("eyes --model " + demoModel().str() + " --in " +
                demoModel().file("sample_head.ply") + " --out-dir " + out.file("results"));
    ASSERT_EQ(run.exitCode, 0) << run.output;
    for (const char* says : {"eye 0: angles ", "eye 1: angles ", "scale: "})
        EXPECT_NE(run.output.find(says), std::string::npos) << run.output;
    // The sample head is the demo head scaled by 1.04.
    EXPECT_NEAR(std::stod(run.output.substr(run.output.find("scale: ") + 7)), 1.04, 1e-5);

    const struct {
        const char* file;
        Eigen::Index vertices;
        bool hasUvs;
    } meshes[] = {{"results/head_with_eyes.obj", 20481 + 2 * 770, false},
                  {"results/eyeballs_ue4.obj", 1540, true},
                  {"results/eyelashes_ue4.obj", 188, true}};
    for (const auto& m : meshes) {
        const km::ObjMeshData mesh = km::readObj(out.file(m.file));
        EXPECT_EQ(mesh.vertices.cols(), m.vertices) << m.file;
        EXPECT_GT(mesh.faces.cols(), 0) << m.file;
        EXPECT_EQ(mesh.texcoords.cols(), m.hasUvs ? m.vertices : 0) << m.file;
    }
    EXPECT_EQ(meridian::testing::readBytes(out.file("results/eyes_preview.png")).substr(1, 3),
              "PNG");
}

TEST(EyesCli, ExplainsWhatIsWrong) {
    TempDir scratch;
    const std::string sample = demoModel().file("sample_head.obj");
    const std::string small = scratch.write("small.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\n");
    const std::string blocker = scratch.write("blocker", "a file, not a directory");
    const std::string demo = demoModel().str(), out = scratch.file("out");
    const struct {
        std::string model, in, outDir, says;
    } cases[] = {
        {scratch.file("nowhere"), sample, out, "model directory not found"},
        {demo, small, out, "has 3 vertices"},
        {scratch.str(), sample, out, "cannot load the eyeball model of " + scratch.str()},
        {demo, sample, blocker + "/sub", "error: cannot write"},
    };
    for (const auto& c : cases) {
        const ToolRun run =
            runTool("eyes --model " + c.model + " --in " + c.in + " --out-dir " + c.outDir);
        EXPECT_EQ(run.exitCode, 1) << run.output;
        EXPECT_NE(run.output.find("error: "), std::string::npos) << run.output;
        EXPECT_NE(run.output.find(c.says), std::string::npos) << run.output;
    }
}

}  // namespace
