// Blendshapes and assets for several heads in one call, on the demo data:
// each head's result is the bits the single-head calls give it (the legacy
// export for the shapes), whatever the batch size, and malformed batches are
// refused without touching the output.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "blendshape_demo_data.h"
#include "demo/demo_model.h"
#include "eyes_fixtures.h"
#include "meridian/meridian.h"
#include "meridian/meridian_api.h"
#include "modern_api_fixtures.h"

namespace {

using meridian::testing::printedBy;

const std::string& kModelDir = meridian::testing::kBlendshapeDemoDir;
constexpr size_t kHeadFloats = 3 * 20481;
constexpr size_t kShapeFloats = 6 * kHeadFloats;

// `count` distinct heads near the demo sample, one after the other: each
// scaled a little and moved by a smooth per-vertex offset of its own.
std::vector<float> variantHeads(size_t count) {
    const std::vector<float> sample = meridian::testing::planar(meridian::demo::sampleHead());
    std::vector<float> heads(count * kHeadFloats);
    for (size_t k = 0; k < count; ++k)
        for (size_t i = 0; i < kHeadFloats; ++i)
            heads[k * kHeadFloats + i] =
                sample[i] * (1.0f + 0.004f * static_cast<float>(k)) +
                0.05f * static_cast<float>(k) * std::sin(0.001f * static_cast<float>(i * (k + 1)));
    return heads;
}

std::vector<float> legacyShapes(const std::vector<float>& heads, size_t count) {
    std::vector<float> out(count * kShapeFloats);
    printedBy([] { EXPECT_EQ(AI_system_initDynamic_BS(kModelDir.c_str()), 1); });
    for (size_t k = 0; k < count; ++k)
        EXPECT_EQ(AI_get_BS(heads.data() + k * kHeadFloats, out.data() + k * kShapeFloats), 1);
    AI_system_over();
    return out;
}

bool sameBits(const float* a, const float* b, size_t count) {
    return std::memcmp(a, b, count * sizeof(float)) == 0;
}

TEST(BlendshapeDemoBatch, EveryHeadEqualsTheLegacyExportAtAnyBatchSize) {
    REQUIRE_BLENDSHAPE_DEMO_DATA();
    constexpr size_t kMost = 16;
    const std::vector<float> heads = variantHeads(kMost);
    const std::vector<float> expected = legacyShapes(heads, kMost);
    meridian_blendshapes* shapes = meridian_blendshapes_open(kModelDir.c_str());
    ASSERT_NE(shapes, nullptr) << meridian_open_error();
    for (unsigned threads : {1u, 0u}) {
        ASSERT_EQ(meridian_blendshapes_set_thread_count(shapes, threads), MERIDIAN_OK);
        for (size_t batch : {size_t{1}, size_t{3}, kMost}) {
            SCOPED_TRACE(testing::Message() << batch << " heads a batch, threads " << threads);
            for (size_t first = 0; first + batch <= kMost; first += batch) {
                std::vector<float> out(batch * kShapeFloats, -1.0f);
                ASSERT_EQ(meridian_blendshapes_run_batch(shapes, heads.data() + first * kHeadFloats,
                                                         batch * kHeadFloats, batch, out.data(),
                                                         out.size()),
                          MERIDIAN_OK)
                    << meridian_blendshapes_last_error(shapes);
                for (size_t k = 0; k < batch; ++k)
                    EXPECT_TRUE(sameBits(out.data() + k * kShapeFloats,
                                         expected.data() + (first + k) * kShapeFloats,
                                         kShapeFloats))
                        << "head " << first + k;
            }
        }
    }
    meridian_blendshapes_close(shapes);
}

TEST(BlendshapeDemoBatch, MalformedBatchesAreRefusedAndTheOutputLeftAlone) {
    REQUIRE_BLENDSHAPE_DEMO_DATA();
    meridian_blendshapes* shapes = meridian_blendshapes_open(kModelDir.c_str());
    ASSERT_NE(shapes, nullptr) << meridian_open_error();
    std::vector<float> heads = variantHeads(2);
    std::vector<float> badHeads = heads;
    badHeads[kHeadFloats + 5] = std::numeric_limits<float>::quiet_NaN();
    std::vector<float> out(2 * kShapeFloats, -1.0f);
    struct Case {
        const char* name;
        const float* heads;
        size_t headsCount, batch;
        float* out;
        size_t outCount;
        const char* message;
    };
    const Case cases[] = {
        {"no heads", heads.data(), 0, 0, out.data(), 0, "no heads"},
        {"null heads", nullptr, 2 * kHeadFloats, 2, out.data(), out.size(), "NULL"},
        {"null output", heads.data(), 2 * kHeadFloats, 2, nullptr, out.size(), "NULL"},
        {"heads one float short", heads.data(), 2 * kHeadFloats - 1, 2, out.data(), out.size(),
         "floats"},
        {"count of heads too large", heads.data(), 2 * kHeadFloats, 3, out.data(), out.size(),
         "floats"},
        {"output too small", heads.data(), 2 * kHeadFloats, 2, out.data(), kShapeFloats,
         "room for"},
        {"batch too large to size", heads.data(), 2 * kHeadFloats, size_t{1} << 62, out.data(),
         out.size(), "too large"},
        {"a NaN in the second head", badHeads.data(), 2 * kHeadFloats, 2, out.data(), out.size(),
         "head 1:"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(meridian_blendshapes_run_batch(shapes, c.heads, c.headsCount, c.batch, c.out,
                                                 c.outCount),
                  MERIDIAN_INVALID_ARGUMENT);
        EXPECT_NE(std::string(meridian_blendshapes_last_error(shapes)).find(c.message),
                  std::string::npos)
            << meridian_blendshapes_last_error(shapes);
        EXPECT_EQ(out[0], -1.0f);
        EXPECT_EQ(out.back(), -1.0f);
    }
    EXPECT_EQ(meridian_blendshapes_run_batch(nullptr, heads.data(), 2 * kHeadFloats, 2, out.data(),
                                             out.size()),
              MERIDIAN_NOT_LOADED);
    meridian_blendshapes_close(shapes);
}

TEST(BlendshapeDemoBatch, ABatchOfAssetsIsTheSingleBuildsByteForByte) {
    REQUIRE_BLENDSHAPE_DEMO_DATA();
    meridian_asset_builder* builder = meridian_asset_builder_open(kModelDir.c_str(), 1, 0, 0.0);
    if (builder == nullptr && meridian_open_status() == MERIDIAN_UNAVAILABLE)
        GTEST_SKIP() << "no asset builder in this build";
    ASSERT_NE(builder, nullptr) << meridian_open_error();
    ASSERT_EQ(meridian_asset_builder_set_thread_count(builder, 1), MERIDIAN_OK);
    constexpr size_t kCount = 3;
    const std::vector<float> heads = variantHeads(kCount);
    std::vector<std::string> single(kCount);
    std::vector<meridian_asset_report> singleReports(kCount);
    for (size_t k = 0; k < kCount; ++k) {
        ASSERT_EQ(meridian_asset_builder_build(builder, heads.data() + k * kHeadFloats, kHeadFloats,
                                               &singleReports[k]),
                  MERIDIAN_OK)
            << meridian_asset_builder_last_error(builder);
        single[k].resize(meridian_asset_builder_glb_size(builder));
        ASSERT_EQ(meridian_asset_builder_copy_glb(
                      builder, reinterpret_cast<uint8_t*>(single[k].data()), single[k].size()),
                  MERIDIAN_OK);
    }
    EXPECT_EQ(meridian_asset_builder_asset_count(builder), 1u);

    std::vector<meridian_asset_report> reports(kCount);
    ASSERT_EQ(meridian_asset_builder_build_batch(builder, heads.data(), heads.size(), kCount,
                                                 reports.data(), reports.size()),
              MERIDIAN_OK)
        << meridian_asset_builder_last_error(builder);
    ASSERT_EQ(meridian_asset_builder_asset_count(builder), kCount);
    for (size_t k = 0; k < kCount; ++k) {
        std::string glb(meridian_asset_builder_glb_size_at(builder, k), '\0');
        ASSERT_EQ(meridian_asset_builder_copy_glb_at(
                      builder, k, reinterpret_cast<uint8_t*>(glb.data()), glb.size()),
                  MERIDIAN_OK);
        EXPECT_TRUE(glb == single[k]) << "asset " << k;
        EXPECT_EQ(std::memcmp(&reports[k], &singleReports[k], sizeof(meridian_asset_report)), 0);
    }
    uint8_t byte = 0;
    EXPECT_EQ(meridian_asset_builder_glb_size_at(builder, kCount), 0u);
    EXPECT_EQ(meridian_asset_builder_copy_glb_at(builder, kCount, &byte, 1),
              MERIDIAN_INVALID_ARGUMENT);
    // A refused batch keeps the previous one.
    EXPECT_EQ(meridian_asset_builder_build_batch(builder, heads.data(), heads.size(), kCount,
                                                 reports.data(), 1),
              MERIDIAN_INVALID_ARGUMENT);
    EXPECT_EQ(meridian_asset_builder_asset_count(builder), kCount);
    meridian_asset_builder_close(builder);
}

}  // namespace
