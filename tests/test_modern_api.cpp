// The modern C interface on the demo model set: every task equals its legacy
// export to the bit, handles of one task live side by side, and failures
// come back as codes and messages with nothing printed.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "demo/demo_model.h"
#include "eyes_fixtures.h"
#include "meridian/meridian.h"
#include "meridian/meridian_api.h"
#include "modern_api_fixtures.h"

namespace {

using meridian::testing::bytesOf;
using meridian::testing::demoModel;
using meridian::testing::ModernTask;
using meridian::testing::planar;
using meridian::testing::printedBy;

constexpr size_t kHeadFloats = 3 * 20481;

std::string model() {
    return demoModel().str();
}
std::string tbnFile(const char* name) {
    return demoModel().file(std::string("TBN/") + name);
}

/// A task whose run writes `outputFloats(handle)` floats.
template <typename Handle>
ModernTask floatTask(std::string name, std::function<Handle*()> open, void (*close)(Handle*),
                     meridian_status (*run)(Handle*, const float*, size_t, float*, size_t),
                     std::function<size_t(Handle*)> outputFloats,
                     const char* (*lastError)(const Handle*),
                     std::function<std::string(const std::vector<float>&)> legacy) {
    return {std::move(name),
            [open] { return static_cast<void*>(open()); },
            [close](void* h) { close(static_cast<Handle*>(h)); },
            [run, outputFloats](void* h, const std::vector<float>& head, std::string& bytes) {
                auto* handle = static_cast<Handle*>(h);
                std::vector<float> out(outputFloats(handle));
                const meridian_status status =
                    run(handle, head.data(), head.size(), out.data(), out.size());
                bytes = bytesOf(out);
                return status;
            },
            std::move(legacy),
            [lastError](void* h) { return lastError(static_cast<Handle*>(h)); }};
}

std::vector<ModernTask> tasks() {
    const auto aligner = [](const char* name, meridian_eye_aligner* (*open)(const char*),
                            meridian_handle (*legacyInit)(const char*)) {
        return floatTask<meridian_eye_aligner>(
            name, [open] { return open(model().c_str()); }, meridian_eye_aligner_close,
            meridian_eye_aligner_run,
            [](meridian_eye_aligner* h) { return 3 * meridian_eye_aligner_output_vertex_count(h); },
            meridian_eye_aligner_last_error,
            [open, legacyInit](const std::vector<float>& head) {
                const meridian_handle handle = legacyInit(model().c_str());
                meridian_eye_aligner* sizes = open(model().c_str());
                std::vector<float> out(3 * meridian_eye_aligner_output_vertex_count(sizes));
                meridian_eye_aligner_close(sizes);
                EXPECT_EQ(AI_add_eyeball_kova(handle, head.data(), out.data(), 0),
                          static_cast<int32_t>(out.size() / 3));
                return bytesOf(out);
            });
    };
    std::vector<ModernTask> all = {
        floatTask<meridian_head_swap>(
            "head swap", [] { return meridian_head_swap_open(model().c_str()); },
            meridian_head_swap_close, meridian_head_swap_run,
            [](meridian_head_swap* h) { return 3 * meridian_head_swap_output_vertex_count(h); },
            meridian_head_swap_last_error,
            [](const std::vector<float>& head) {
                const meridian_handle handle = AI_system_init_swaphead(model().c_str());
                std::vector<float> out(3 * meridian::demo::kEngineVertexCount);
                EXPECT_EQ(AI_swap_head(handle, head.data(), out.data(), 0),
                          meridian::demo::kEngineVertexCount);
                return bytesOf(out);
            }),
        floatTask<meridian_tangent_frames>(
            "fixed tangent frames", [] { return meridian_tangent_frames_open(model().c_str()); },
            meridian_tangent_frames_close, meridian_tangent_frames_run,
            [](meridian_tangent_frames* h) {
                return 9 * meridian_tangent_frames_output_vertex_count(h);
            },
            meridian_tangent_frames_last_error,
            [](const std::vector<float>& head) {
                EXPECT_EQ(AI_system_init_TBN(model().c_str()), 1);
                std::vector<float> out(9 * 20481);
                EXPECT_EQ(AI_get_TBN(head.data(), out.data()), 1);
                return bytesOf(out);
            }),
        floatTask<meridian_tangent_frames>(
            "general tangent frames",
            [] {
                return meridian_tangent_frames_open_general_files(
                    tbnFile("head_split_uv.obj").c_str(), tbnFile("idx_tavi2head.txt").c_str(),
                    tbnFile("idx_head2tavi.txt").c_str());
            },
            meridian_tangent_frames_close, meridian_tangent_frames_run,
            [](meridian_tangent_frames* h) {
                return 9 * meridian_tangent_frames_output_vertex_count(h);
            },
            meridian_tangent_frames_last_error,
            [](const std::vector<float>& head) {
                const meridian_handle handle = AI_system_init_TBN_g2(
                    tbnFile("head_split_uv.obj").c_str(), tbnFile("idx_tavi2head.txt").c_str(),
                    tbnFile("idx_head2tavi.txt").c_str());
                std::vector<float> out(9 * 20481);
                EXPECT_EQ(AI_get_TBN_g(handle, head.data(), out.data()), 0);
                return bytesOf(out);
            }),
        aligner("eyeball aligner", meridian_eye_aligner_open_eyeball, AI_system_init_eyeball_kova),
        aligner("eyelash aligner", meridian_eye_aligner_open_eyelash, AI_system_init_eyelash_kova),
    };
    all.push_back(
        {"eyeball fit",
         [] { return static_cast<void*>(meridian_eyeball_fit_open(model().c_str())); },
         [](void* h) { meridian_eyeball_fit_close(static_cast<meridian_eyeball_fit*>(h)); },
         [](void* h, const std::vector<float>& head, std::string& bytes) {
             meridian_eye_poses poses{};
             const meridian_status status = meridian_eyeball_fit_run(
                 static_cast<meridian_eyeball_fit*>(h), head.data(), head.size(), 1, &poses);
             bytes = std::string(reinterpret_cast<const char*>(&poses), sizeof poses);
             return status;
         },
         [](const std::vector<float>& head) {
             EXPECT_EQ(AI_system_init_eyeball(model().c_str()), 1);
             meridian_eye_poses poses{};
             EXPECT_EQ(AI_add_eyeball(head.data(), 1, poses.angles_deg[0], poses.angles_deg[1],
                                      poses.positions[0], poses.positions[1], &poses.scale),
                       1);
             return std::string(reinterpret_cast<const char*>(&poses), sizeof poses);
         },
         [](void* h) {
             return meridian_eyeball_fit_last_error(static_cast<meridian_eyeball_fit*>(h));
         }});
    return all;
}

class ModernApi : public ::testing::Test {
  protected:
    void TearDown() override { AI_system_over(); }
};

TEST_F(ModernApi, EveryTaskEqualsItsLegacyExportAndHandlesLiveSideBySide) {
    const std::vector<float> sample = planar(meridian::demo::sampleHead());
    for (const ModernTask& task : tasks()) meridian::testing::checkTask(task, sample);
}

TEST_F(ModernApi, FailedOpensGiveCodesAndMessagesPerThreadAndPrintNothing) {
    const std::string missing = demoModel().file("no-such-model");
    const std::string missingObj = missing + "/head.obj";
    const int32_t indices[] = {0, 1};
    const struct {
        const char* what;
        std::function<void*()> open;
        meridian_status status;
        std::string mentions;
    } cases[] = {
        {"head swap", [&] { return (void*)meridian_head_swap_open(missing.c_str()); },
         MERIDIAN_CANNOT_OPEN_CORRESPONDENCE, missing + "/idx_tavi2head.corresp"},
        {"fixed frames", [&] { return (void*)meridian_tangent_frames_open(missing.c_str()); },
         MERIDIAN_CANNOT_OPEN_MESH, missing + "/TBN/std_20481_with_UV_F_TF.obj"},
        {"general frames",
         [&] {
             return (void*)meridian_tangent_frames_open_general(missingObj.c_str(), indices, 2,
                                                                indices, 2);
         },
         MERIDIAN_BAD_CONTENT, missingObj},
        {"general frames, no list",
         [&] {
             return (void*)meridian_tangent_frames_open_general_files(
                 tbnFile("head_split_uv.obj").c_str(), missingObj.c_str(),
                 tbnFile("idx_head2tavi.txt").c_str());
         },
         MERIDIAN_CANNOT_OPEN_INDEX_LIST, missingObj},
        {"eyeball fit", [&] { return (void*)meridian_eyeball_fit_open(missing.c_str()); },
         MERIDIAN_CANNOT_OPEN_MESH, missing + "/eyeball/new_eye.ply"},
        {"eyeball aligner",
         [&] { return (void*)meridian_eye_aligner_open_eyeball(missing.c_str()); },
         MERIDIAN_CANNOT_OPEN_CORRESPONDENCE, "idx_tavi2head.corresp"},
        {"eyelash aligner", [&] { return (void*)meridian_eye_aligner_open_eyelash(nullptr); },
         MERIDIAN_INVALID_ARGUMENT, "the model directory is NULL"},
        {"blendshapes", [&] { return (void*)meridian_blendshapes_open(missing.c_str()); },
         MERIDIAN_CANNOT_OPEN, missing + "/BS/"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        void* handle = nullptr;
        EXPECT_EQ(printedBy([&] { handle = c.open(); }), "");
        EXPECT_EQ(handle, nullptr);
        EXPECT_EQ(meridian_open_status(), c.status);
        EXPECT_NE(std::string(meridian_open_error()).find(c.mentions), std::string::npos)
            << meridian_open_error();
    }
    // The open error is the calling thread's; a success clears it.
    std::thread([&] {
        meridian_head_swap* swap = meridian_head_swap_open(model().c_str());
        EXPECT_NE(swap, nullptr);
        EXPECT_EQ(meridian_open_status(), MERIDIAN_OK);
        EXPECT_STREQ(meridian_open_error(), "");
        meridian_head_swap_close(swap);
    }).join();
    EXPECT_EQ(meridian_open_status(), MERIDIAN_CANNOT_OPEN);
}

TEST_F(ModernApi, BadRunArgumentsAreRefusedWithAMessageAndNothingWritten) {
    meridian_tangent_frames* frames = meridian_tangent_frames_open(model().c_str());
    ASSERT_NE(frames, nullptr) << meridian_open_error();
    const std::vector<float> good = planar(meridian::demo::sampleHead());
    std::vector<float> withNan = good, out(9 * 20481, 7.0f);
    withNan[20481 + 5] = std::numeric_limits<float>::quiet_NaN();
    const struct {
        const float* head;
        size_t headCount;
        float* out;
        size_t outCount;
        std::string says;
    } cases[] = {
        {nullptr, kHeadFloats, out.data(), out.size(), "the head is NULL"},
        {good.data(), kHeadFloats - 1, out.data(), out.size(), "the head has 61442 floats"},
        {withNan.data(), kHeadFloats, out.data(), out.size(),
         "the head's coordinate 1 of vertex 5 is not finite"},
        {good.data(), kHeadFloats, nullptr, out.size(), "the output is NULL"},
        {good.data(), kHeadFloats, out.data(), out.size() - 1,
         "the output has room for 184328 floats; the call writes 184329"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.says);
        meridian_status status = MERIDIAN_OK;
        EXPECT_EQ(printedBy([&] {
                      status = meridian_tangent_frames_run(frames, c.head, c.headCount, c.out,
                                                           c.outCount);
                  }),
                  "");
        EXPECT_EQ(status, MERIDIAN_INVALID_ARGUMENT);
        EXPECT_NE(std::string(meridian_tangent_frames_last_error(frames)).find(c.says),
                  std::string::npos)
            << meridian_tangent_frames_last_error(frames);
    }
    EXPECT_TRUE(std::all_of(out.begin(), out.end(), [](float v) { return v == 7.0f; }));
    // A success clears the last error; a null handle is not loaded.
    EXPECT_EQ(meridian_tangent_frames_run(frames, good.data(), kHeadFloats, out.data(), out.size()),
              MERIDIAN_OK);
    EXPECT_STREQ(meridian_tangent_frames_last_error(frames), "");
    meridian_tangent_frames_close(frames);
    EXPECT_EQ(meridian_head_swap_run(nullptr, good.data(), kHeadFloats, out.data(), out.size()),
              MERIDIAN_NOT_LOADED);
    EXPECT_STREQ(meridian_head_swap_last_error(nullptr), "");
    EXPECT_EQ(meridian_head_swap_output_vertex_count(nullptr), 0u);

    meridian_eyeball_fit* fit = meridian_eyeball_fit_open(model().c_str());
    ASSERT_NE(fit, nullptr);
    meridian_eye_poses poses{};
    EXPECT_EQ(meridian_eyeball_fit_run(fit, good.data(), kHeadFloats, 3, &poses),
              MERIDIAN_INVALID_ARGUMENT);
    EXPECT_STREQ(meridian_eyeball_fit_last_error(fit), "template 3 does not exist (0..2)");
    meridian_eyeball_fit_close(fit);
}

TEST_F(ModernApi, TangentFramesAreTheSameBitsOnOneThreadAndTwo) {
    const std::vector<float> head = planar(meridian::demo::sampleHead());
    for (const bool general : {false, true}) {
        SCOPED_TRACE(general ? "general engine" : "fixed engine");
        meridian_tangent_frames* frames = general ? meridian_tangent_frames_open_general_files(
                                                        tbnFile("head_split_uv.obj").c_str(),
                                                        tbnFile("idx_tavi2head.txt").c_str(),
                                                        tbnFile("idx_head2tavi.txt").c_str())
                                                  : meridian_tangent_frames_open(model().c_str());
        ASSERT_NE(frames, nullptr) << meridian_open_error();
        const size_t count = 9 * meridian_tangent_frames_output_vertex_count(frames);
        std::vector<std::string> results;
        for (const unsigned threads : {1u, 2u, 0u}) {
            ASSERT_EQ(meridian_tangent_frames_set_thread_count(frames, threads), MERIDIAN_OK);
            std::vector<float> out(count);
            ASSERT_EQ(meridian_tangent_frames_run(frames, head.data(), head.size(), out.data(),
                                                  out.size()),
                      MERIDIAN_OK);
            results.push_back(bytesOf(out));
        }
        EXPECT_EQ(results[1], results[0]);
        EXPECT_EQ(results[2], results[0]);
        // Three threads are refused and the count stays.
        EXPECT_EQ(meridian_tangent_frames_set_thread_count(frames, 3), MERIDIAN_INVALID_ARGUMENT);
        EXPECT_STREQ(meridian_tangent_frames_last_error(frames), "threads: 0, 1 or 2, not 3");
        meridian_tangent_frames_close(frames);
    }
    EXPECT_EQ(meridian_tangent_frames_set_thread_count(nullptr, 1), MERIDIAN_NOT_LOADED);
}

}  // namespace

#if defined(MERIDIAN_CLI_PATH)  // the tool, and the asset builder with it
namespace {

TEST(ModernAssetBuilder, BuildsTheToolsAssetToBytesAndAtomicallyToAPathWithItsFigures) {
    const meridian::testing::TempDir out;
    const std::string toolGlb = out.file("tool.glb");
    const auto run = meridian::testing::runCommand(
        std::string(MERIDIAN_CLI_PATH) + " export --model " + model() + " --in " +
        demoModel().file("sample_head.obj") + " --skip blendshapes --out " + toolGlb);
    ASSERT_EQ(run.exitCode, 0) << run.output;
    const std::vector<float> sample = planar(meridian::demo::sampleHead());

    std::vector<std::string> glbs;
    meridian_asset_report report{};
    std::string printed = printedBy([&] {
        meridian_asset_builder* first = meridian_asset_builder_open(model().c_str(), 0, 1, 0.0);
        meridian_asset_builder* second = meridian_asset_builder_open(model().c_str(), 0, 1, 0.0);
        ASSERT_NE(first, nullptr) << meridian_open_error();
        ASSERT_NE(second, nullptr) << meridian_open_error();
        EXPECT_EQ(meridian_asset_builder_glb_size(first), 0u);
        ASSERT_EQ(meridian_asset_builder_build(first, sample.data(), sample.size(), &report),
                  MERIDIAN_OK)
            << meridian_asset_builder_last_error(first);
        ASSERT_EQ(meridian_asset_builder_build(second, sample.data(), sample.size(), nullptr),
                  MERIDIAN_OK);
        meridian_asset_builder_close(second);
        std::vector<uint8_t> bytes(meridian_asset_builder_glb_size(first));
        ASSERT_EQ(meridian_asset_builder_copy_glb(first, bytes.data(), bytes.size()), MERIDIAN_OK);
        glbs.push_back(bytesOf(bytes));
        ASSERT_EQ(meridian_asset_builder_write_glb(first, out.file("api.glb").c_str()),
                  MERIDIAN_OK);
        EXPECT_EQ(meridian_asset_builder_write_glb(first, out.file("no/such/dir.glb").c_str()),
                  MERIDIAN_WRITE_FAILED);
        meridian_asset_builder_close(first);
    });
    EXPECT_EQ(printed, "");
    ASSERT_EQ(glbs.size(), 1u);
    EXPECT_TRUE(glbs[0] == meridian::testing::readBytes(toolGlb)) << "differs from the tool's";
    EXPECT_TRUE(glbs[0] == meridian::testing::readBytes(out.file("api.glb")));
    EXPECT_FALSE(std::filesystem::exists(out.file(".api.glb.partial")));

    EXPECT_GE(report.eye_scale, 0.9);
    EXPECT_LE(report.eye_scale, 1.1);
    for (int a = 0; a < 3; ++a) EXPECT_LT(report.bounds_min[a], report.bounds_max[a]) << a;
    EXPECT_EQ(report.non_finite_positions, 0u);
    EXPECT_EQ(report.non_finite_normals, 0u);
    for (double moved : report.region_max_displacement) EXPECT_EQ(moved, 0.0);  // skipped
}

TEST(ModernAssetBuilder, StagedCallsTellEachStageAndBuildTheSameAsset) {
    const std::vector<float> sample = planar(meridian::demo::sampleHead());
    auto record = [](const char* stage, void* user) {
        static_cast<std::vector<std::string>*>(user)->push_back(stage);
    };
    std::vector<std::string> plainGlb, stagedGlb;
    std::vector<std::string> openStages, buildStages;
    meridian_asset_summary summary{};
    const std::string printed = printedBy([&] {
        meridian_asset_builder* plain = meridian_asset_builder_open(model().c_str(), 0, 1, 0.0);
        meridian_asset_builder* staged =
            meridian_asset_builder_open_staged(model().c_str(), 0, 1, 0.0, record, &openStages);
        ASSERT_NE(plain, nullptr) << meridian_open_error();
        ASSERT_NE(staged, nullptr) << meridian_open_error();
        ASSERT_EQ(meridian_asset_builder_build(plain, sample.data(), sample.size(), nullptr),
                  MERIDIAN_OK);
        ASSERT_EQ(meridian_asset_builder_build_staged(staged, sample.data(), sample.size(), nullptr,
                                                      record, &buildStages, &summary),
                  MERIDIAN_OK)
            << meridian_asset_builder_last_error(staged);
        // No callback and no summary are fine too.
        EXPECT_EQ(meridian_asset_builder_build_staged(staged, sample.data(), sample.size(), nullptr,
                                                      nullptr, nullptr, nullptr),
                  MERIDIAN_OK);
        EXPECT_EQ(meridian_asset_builder_build_staged(staged, sample.data(), 3, nullptr, record,
                                                      &buildStages, &summary),
                  MERIDIAN_INVALID_ARGUMENT);
        for (auto [builder, glbs] : {std::pair{plain, &plainGlb}, std::pair{staged, &stagedGlb}}) {
            std::vector<uint8_t> bytes(meridian_asset_builder_glb_size(builder));
            ASSERT_EQ(meridian_asset_builder_copy_glb(builder, bytes.data(), bytes.size()),
                      MERIDIAN_OK);
            glbs->push_back(bytesOf(bytes));
            meridian_asset_builder_close(builder);
        }
    });
    EXPECT_EQ(printed, "");
    EXPECT_EQ(meridian_asset_builder_build_staged(nullptr, sample.data(), sample.size(), nullptr,
                                                  nullptr, nullptr, nullptr),
              MERIDIAN_NOT_LOADED);
    ASSERT_EQ(stagedGlb.size(), 1u);
    ASSERT_EQ(plainGlb.size(), 1u);
    EXPECT_TRUE(stagedGlb[0] == plainGlb[0]);
    EXPECT_FALSE(openStages.empty());
    EXPECT_EQ(buildStages,
              (std::vector<std::string>{"head swap", "eyes", "head normals and targets"}));
    EXPECT_EQ(summary.head_vertices, 20864u);
    EXPECT_EQ(summary.morph_targets, 0u);
    EXPECT_EQ(summary.eye_meshes, 4u);
}

}  // namespace
#endif
