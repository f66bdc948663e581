// The modern C interface's blendshape handle on the demo data: equal to the
// legacy export to the bit for any thread count, two handles side by side,
// and a missing file an error instead of the legacy exit.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "blendshape_demo_data.h"
#include "demo/demo_model.h"
#include "eyes_fixtures.h"
#include "meridian/meridian.h"
#include "meridian/meridian_api.h"
#include "modern_api_fixtures.h"

namespace {

using meridian::testing::bytesOf;
using meridian::testing::printedBy;

const std::string& kModelDir = meridian::testing::kBlendshapeDemoDir;
constexpr size_t kShapeFloats = 6 * 3 * 20481;

meridian::testing::ModernTask blendshapeTask(unsigned threads) {
    return {"blendshapes on " + std::to_string(threads) + " threads",
            [threads]() -> void* {
                meridian_blendshapes* shapes = meridian_blendshapes_open(kModelDir.c_str());
                if (shapes) {
                    EXPECT_EQ(meridian_blendshapes_set_thread_count(shapes, threads), MERIDIAN_OK);
                }
                return shapes;
            },
            [](void* h) { meridian_blendshapes_close(static_cast<meridian_blendshapes*>(h)); },
            [](void* h, const std::vector<float>& head, std::string& bytes) {
                std::vector<float> out(meridian_blendshapes_shape_count() * head.size());
                const meridian_status status =
                    meridian_blendshapes_run(static_cast<meridian_blendshapes*>(h), head.data(),
                                             head.size(), out.data(), out.size());
                bytes = bytesOf(out);
                return status;
            },
            [](const std::vector<float>& head) {
                std::string printed =
                    printedBy([] { EXPECT_EQ(AI_system_initDynamic_BS(kModelDir.c_str()), 1); });
                std::vector<float> out(kShapeFloats);
                EXPECT_EQ(AI_get_BS(head.data(), out.data()), 1);
                AI_system_over();
                return bytesOf(out);
            },
            [](void* h) {
                return meridian_blendshapes_last_error(static_cast<meridian_blendshapes*>(h));
            }};
}

TEST(BlendshapeDemoModern, EqualsTheLegacyExportOnAnyThreadCount) {
    REQUIRE_BLENDSHAPE_DEMO_DATA();
    const std::vector<float> sample = meridian::testing::planar(meridian::demo::sampleHead());
    for (unsigned threads : {1u, 0u}) meridian::testing::checkTask(blendshapeTask(threads), sample);
}

TEST(BlendshapeDemoModern, AMissingFileIsAnErrorNotAnExit) {
    REQUIRE_BLENDSHAPE_DEMO_DATA();
    meridian::testing::TempDir copy;
    std::filesystem::create_directories(copy.file("BS"));
    std::filesystem::copy_file(kModelDir + "/BS/kp_86_h_r_1_c_86.bin",
                               copy.file("BS/kp_86_h_r_1_c_86.bin"));
    meridian_blendshapes* shapes = nullptr;
    EXPECT_EQ(printedBy([&] { shapes = meridian_blendshapes_open(copy.str().c_str()); }), "");
    EXPECT_EQ(shapes, nullptr);
    EXPECT_EQ(meridian_open_status(), MERIDIAN_CANNOT_OPEN);
    EXPECT_NE(std::string(meridian_open_error()).find("tri_h_used_r_3_c_19394.bin"),
              std::string::npos)
        << meridian_open_error();
}

TEST(BlendshapeDemoModern, AssetFiguresNameEachRegionsLargestMove) {
    REQUIRE_BLENDSHAPE_DEMO_DATA();
    meridian_asset_builder* builder = meridian_asset_builder_open(kModelDir.c_str(), 1, 0, 0.0);
    if (builder == nullptr && meridian_open_status() == MERIDIAN_UNAVAILABLE)
        GTEST_SKIP() << "no asset builder in this build";
    ASSERT_NE(builder, nullptr) << meridian_open_error();
    const std::vector<float> sample = meridian::testing::planar(meridian::demo::sampleHead());
    meridian_asset_report report{};
    ASSERT_EQ(meridian_asset_builder_build(builder, sample.data(), sample.size(), &report),
              MERIDIAN_OK)
        << meridian_asset_builder_last_error(builder);
    for (double moved : report.region_max_displacement) {
        EXPECT_GT(moved, 0.0);
        EXPECT_LT(moved, report.bounds_max[1] - report.bounds_min[1]);
    }
    EXPECT_EQ(report.eye_scale, 1.0);  // no eyes
    EXPECT_EQ(report.eye_scale_clamped, 0);
    meridian_asset_builder_close(builder);
}

}  // namespace
