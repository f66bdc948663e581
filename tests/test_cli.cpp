// The `meridian` command-line tool, run as a user runs it.
#include <string>

#include <gtest/gtest.h>

#include "demo/demo_model.h"
#include "fixtures.h"
#include "io/mesh_readers.h"
#include "meridian/meridian_api.h"

namespace {

using meridian::testing::runTool;
using meridian::testing::TempDir;
using meridian::testing::ToolRun;

// One demo model directory for the whole file, written by the tool itself.
class Cli : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        model_ = new TempDir();
        const ToolRun demo = runTool("demo --no-blendshapes --out " + model_->str());
        ASSERT_EQ(demo.exitCode, 0) << demo.output;
    }
    static void TearDownTestSuite() {
        delete model_;
        model_ = nullptr;
    }
    static TempDir* model_;
};
TempDir* Cli::model_ = nullptr;

TEST_F(Cli, SwapWritesTheHeadInEngineOrderAsAFullMesh) {
    TempDir out;
    for (const char* input : {"sample_head.obj", "sample_head.ply"}) {
        const std::string target = out.file(std::string(input) + ".ue4.obj");
        const ToolRun run = runTool("swap --model " + model_->str() + " --in " +
                                    model_->file(input) + " --out " + target);
        ASSERT_EQ(run.exitCode, 0) << run.output;
        const auto mesh = kestrel::meridian::readObj(target);
        EXPECT_EQ(mesh.vertices.cols(), meridian::demo::kEngineVertexCount);
        EXPECT_GT(mesh.faces.cols(), 40000);
        EXPECT_EQ(mesh.texcoords.cols(), meridian::demo::kEngineVertexCount);
    }
}

TEST_F(Cli, SwapExplainsWhatIsWrong) {
    TempDir scratch;
    const std::string model = model_->str(), sample = model_->file("sample_head.obj");
    const std::string small = scratch.write("small.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n");
    const struct {
        std::string model, in, out, says;
    } cases[] = {
        {scratch.file("nowhere"), sample, scratch.file("a.obj"), "model directory not found"},
        {model, scratch.file("missing.obj"), scratch.file("b.obj"), "missing.obj: no such file"},
        {model, small, scratch.file("c.obj"),
         "3 vertices; a head in the template topology has 20481"},
        {model, sample, scratch.file("no/such/dir/d.obj"), "cannot write: no folder"},
        {scratch.str(), sample, scratch.file("e.obj"), "idx_tavi2head.corresp: no such file"},
    };
    for (const auto& c : cases) {
        const ToolRun run =
            runTool("swap --model " + c.model + " --in " + c.in + " --out " + c.out);
        EXPECT_EQ(run.exitCode, 1) << c.says << "\n" << run.output;
        EXPECT_NE(run.output.find("error: "), std::string::npos) << run.output;
        EXPECT_NE(run.output.find(c.says), std::string::npos) << run.output;
    }
}

TEST_F(Cli, ErrorLinesGoToStandardErrorAlone) {
    TempDir scratch;
    // Standard output only: a failed load prints nothing there.
    const ToolRun quiet = meridian::testing::runCommand(
        "(" + std::string(MERIDIAN_CLI_PATH) + " swap --model " + scratch.str() + " --in " +
        model_->file("sample_head.obj") + " --out " + scratch.file("a.obj") + " 2>/dev/null)");
    EXPECT_EQ(quiet.exitCode, 1);
    EXPECT_EQ(quiet.output, "");
    const ToolRun version = runTool("--version");
    EXPECT_EQ(version.exitCode, 0);
    EXPECT_EQ(version.output, std::string("meridian ") + meridian_version() + "\n");
}

TEST_F(Cli, MissingSubcommandIsAUsageError) {
    const ToolRun run = runTool("");
    EXPECT_NE(run.exitCode, 0);
    EXPECT_NE(run.output.find("A subcommand is required"), std::string::npos) << run.output;
}

}  // namespace
