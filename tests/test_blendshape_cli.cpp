// `meridian blendshapes` failures, reported as "error: ..." with exit code 1
// (the success run needs the demo data: test_blendshape_demo_cli.cpp).
#include <gtest/gtest.h>

#include <string>

#include "fixtures.h"

namespace {

using meridian::testing::runTool;
using meridian::testing::TempDir;
using meridian::testing::ToolRun;

TEST(BlendshapeCli, ExplainsWhatIsWrong) {
    TempDir model, scratch;
    const ToolRun demo = runTool("demo --no-blendshapes --out " + model.str());
    ASSERT_EQ(demo.exitCode, 0) << demo.output;
    const std::string sample = model.file("sample_head.obj");
    const std::string small = scratch.write("small.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n");
    const std::string aFile = scratch.write("a-file", "x");
    struct Case {
        std::string arguments;
        std::string says;
    };
    const Case cases[] = {
        {"--model " + scratch.file("nowhere") + " --in " + sample + " --out-dir " +
             scratch.file("o1"),
         "error: model directory not found"},
        {"--model " + model.str() + " --in " + small + " --out-dir " + scratch.file("o2"),
         "error: " + small + ": 3 vertices; a head in the template topology has 20481"},
        {"--model " + model.str() + " --in " + sample + " --out-dir " + aFile,
         "error: cannot create the output directory " + aFile},
        // No "BS/" in the model: the model check names the first file.
        {"--model " + model.str() + " --in " + sample + " --out-dir " + scratch.file("o3"),
         "error: " + model.str() + "/BS/kp_86_h_r_1_c_86.bin: no such file"},
    };
    for (const Case& c : cases) {
        const ToolRun run = runTool("blendshapes " + c.arguments);
        EXPECT_EQ(run.exitCode, 1) << run.output;
        EXPECT_NE(run.output.find(c.says), std::string::npos) << run.output;
    }
}

}  // namespace
