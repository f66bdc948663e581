// The debug exports: head meshes read into planar arrays, the GBK messages,
// and the template eye mesh written with a pose.
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "debug/head_data.h"
#include "fixtures.h"
#include "meridian/meridian.h"

namespace {

using meridian::testing::readBytes;
using meridian::testing::TempDir;

// The Chinese texts in the GBK code page, byte by byte.
const std::string kPathMissing = "\x20\xC2\xB7\xBE\xB6\xB2\xBB\xB4\xE6\xD4\xDA";
const std::string kIncorrect = "\x20\xB2\xBB\xD5\xFD\xC8\xB7";

TEST(DebugHeadData, ReadsPlyAndObjPlanarAndReportsInGbk) {
    TempDir dir;
    const std::string ply =
        dir.write("head.ply",
                  "ply\nformat ascii 1.0\nelement vertex 2\nproperty float x\nproperty float y\n"
                  "property float z\nend_header\n1 2 3\n4 5 6.5\n");
    const std::string obj = dir.write("head.obj", "v 1 2 3\nv 4 5 6\nv 7 8 9\nf 1 2 3\n");
    std::vector<float> out(9, -1.0f);
    EXPECT_EQ(debug_get_head_data_from_ply(ply.c_str(), out.data()), 1);
    EXPECT_EQ(out, (std::vector<float>{1, 4, 2, 5, 3, 6.5f, -1, -1, -1}));
    EXPECT_EQ(debug_get_head_data_from_obj(obj.c_str(), out.data()), 1);
    EXPECT_EQ(out, (std::vector<float>{1, 4, 7, 2, 5, 8, 3, 6, 9}));

    const std::string missing = dir.file("missing.ply");
    std::fill(out.begin(), out.end(), -1.0f);
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(debug_get_head_data_from_ply(missing.c_str(), out.data()), 0);
    EXPECT_EQ(debug_get_head_data_from_obj(missing.c_str(), out.data()), 0);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(),
              missing + kPathMissing + "\n" + missing + kIncorrect + "\n");
    EXPECT_EQ(out, std::vector<float>(9, -1.0f));
    EXPECT_EQ(debug_get_head_data_from_ply(nullptr, out.data()), 0);
    EXPECT_EQ(debug_get_head_data_from_obj(obj.c_str(), nullptr), 0);

    // A table of one row per vertex is copied as it is, row after row.
    Eigen::MatrixXd rows(20481, 3);
    for (Eigen::Index k = 0; k < rows.size(); ++k) rows.data()[k] = static_cast<double>(k);
    out.resize(rows.size());
    kestrel::meridian::Error error;
    EXPECT_TRUE(kestrel::meridian::copyHeadVertices(rows, "h", out.data(), error));
    EXPECT_EQ(out[3 * 7 + 2], rows(7, 2));
    EXPECT_EQ(out[3 * 20480 + 1], rows(20480, 1));
    EXPECT_FALSE(
        kestrel::meridian::copyHeadVertices(Eigen::MatrixXd::Ones(4, 3), "h", out.data(), error));
    EXPECT_EQ(error.code, kestrel::meridian::ErrorCode::badContent);
    EXPECT_EQ(error.path, "h");
}

class DebugPose : public ::testing::Test {
  protected:
    void SetUp() override {
        model_.write("eyeball/color_eye/EyeNew.obj",
                     "v 1 0 0\nv 0 2 0\nvt 0.5 0.5\nf 1/1 2/1 1/1\n");
        // No eyeball PLY: the init fails but keeps the model directory.
        ::testing::internal::CaptureStdout();
        EXPECT_EQ(AI_system_init_eyeball(model_.str().c_str()), 0);
        ::testing::internal::GetCapturedStdout();
    }
    void TearDown() override { AI_system_over(); }

    // The written file and what was printed.
    std::pair<std::string, std::string> pose(const double (&angles)[3], const double (&t)[3],
                                             double scale) {
        const std::string out = model_.file("posed.obj");
        std::filesystem::remove(out);
        ::testing::internal::CaptureStdout();
        debug_apply_one_pose_save_obj(angles, t, scale, out.c_str());
        const std::string printed = ::testing::internal::GetCapturedStdout();
        return {readBytes(out), printed};
    }

    TempDir model_;
};

TEST_F(DebugPose, AnglesTurnAboutZYXWithTheSecondNegatedAnd314ForPi) {
    const struct {
        double angles[3], t[3], scale;
        const char* vertexLines;
    } cases[] = {
        {{0, 0, 0}, {0, 0, 0}, 1, "v 1.000000 0.000000 0.000000\nv 0.000000 2.000000 0.000000\n"},
        // 180 degrees is 3.14 radians, not pi.
        {{180, 0, 0},
         {0, 0, 0},
         1,
         "v -0.999999 0.001593 0.000000\nv -0.003185 -1.999997 0.000000\n"},
        // The second angle turns the other way about y.
        {{0, 90, 0}, {0, 0, 0}, 1, "v 0.000796 0.000000 1.000000\nv 0.000000 2.000000 0.000000\n"},
        {{0, 0, 90}, {0, 0, 0}, 1, "v 1.000000 0.000000 0.000000\nv 0.000000 0.001593 1.999999\n"},
        {{0, 0, 0}, {1, 2, 3}, 2, "v 3.000000 2.000000 3.000000\nv 1.000000 6.000000 3.000000\n"},
    };
    for (const auto& c : cases) {
        const auto [file, printed] = pose(c.angles, c.t, c.scale);
        EXPECT_EQ(file, std::string(c.vertexLines) + "vt 0.5 0.5\nf 1/1 2/1 1/1\n");
        EXPECT_EQ(printed.rfind(
                      " --------------   " + model_.file("posed.obj") + ": -------------- \n", 0),
                  0u)
            << printed;
    }
    const auto [file, printed] = pose({0, 0, 0}, {1, 2, 3}, 2);
    EXPECT_NE(printed.find(" tt: 1 2 3\n scale: 2\n"), std::string::npos) << printed;
}

TEST_F(DebugPose, WritesNothingWithoutStateOrTemplate) {
    std::filesystem::remove(model_.file("eyeball/color_eye/EyeNew.obj"));
    const auto [file, printed] = pose({0, 0, 0}, {0, 0, 0}, 1);
    EXPECT_EQ(file, "");
    EXPECT_EQ(printed.rfind("can't open " + model_.str() + "/eyeball/color_eye/EyeNew.obj\n", 0),
              0u);

    AI_system_over();
    EXPECT_EQ(pose({0, 0, 0}, {0, 0, 0}, 1), std::make_pair(std::string(), std::string()));
    EXPECT_FALSE(std::filesystem::exists(model_.file("posed.obj")));
}

}  // namespace
