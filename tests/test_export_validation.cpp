// The exported head asset checked by the Khronos glTF validator (the npm
// package gltf-validator, run with node). Outside CI a machine without node
// or the package skips; MERIDIAN_REQUIRE_GLTF_VALIDATOR=1 (CI) makes that a
// failure. MERIDIAN_GLTF_VALIDATOR_DIR names the npm prefix holding it.
#include <cstdlib>
#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "blendshape_demo_data.h"
#include "fixtures.h"

namespace {

using meridian::testing::runCommand;
using meridian::testing::ToolRun;

const std::string& kModelDir = meridian::testing::kBlendshapeDemoDir;

std::string environment(const char* name, const std::string& otherwise) {
    const char* value = std::getenv(name);
    return value && *value ? value : otherwise;
}

TEST(ExportValidation, TheValidatorFindsNoErrorsAndNoWarnings) {
    const bool required = environment("MERIDIAN_REQUIRE_GLTF_VALIDATOR", "0") == "1";
    const std::string validator =
        environment("MERIDIAN_GLTF_VALIDATOR_DIR", MERIDIAN_GLTF_VALIDATOR_DIR);
    std::string missing;
    if (runCommand("node --version").exitCode != 0)
        missing = "node is not on PATH";
    else if (!std::filesystem::exists(validator + "/node_modules/gltf-validator"))
        missing = "no gltf-validator in " + validator + " (npm install --prefix " + validator +
                  " gltf-validator)";
    if (!missing.empty()) {
        if (required) FAIL() << missing;
        GTEST_SKIP() << missing;
    }
    REQUIRE_BLENDSHAPE_DEMO_DATA();

    meridian::testing::TempDir out;
    const ToolRun run =
        meridian::testing::runTool("export --model " + kModelDir + " --in " + kModelDir +
                                   "/sample_head.obj --out " + out.file("head.glb"));
    ASSERT_EQ(run.exitCode, 0) << run.output;
    const ToolRun check = runCommand("node " MERIDIAN_VALIDATE_GLB_SCRIPT " " + validator + " " +
                                     out.file("head.glb"));
    EXPECT_EQ(check.exitCode, 0) << check.output;
    EXPECT_NE(check.output.find("errors 0 warnings 0"), std::string::npos) << check.output;
}

}  // namespace
