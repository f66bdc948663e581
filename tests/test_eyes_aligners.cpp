// The eyeball and eyelash aligners: placement on the demo heads, the scale
// clamp, the side lists, the blendshape weights against heads built with a
// known weight, handles and the init checks.
#include <cmath>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "demo/demo_model.h"
#include "demo/eye_model.h"
#include "eyes/eyeball_aligner.h"
#include "eyes/eyelash_aligner.h"
#include "eyes_fixtures.h"
#include "meridian/meridian.h"

namespace {

namespace demo = meridian::demo;
namespace fs = std::filesystem;
namespace km = kestrel::meridian;
using Eigen::Vector3d;
using meridian::testing::demoModel;
using meridian::testing::planar;
using meridian::testing::TempDir;

/// A copy of the demo model that a test may change.
void copyDemoModel(const TempDir& to) {
    fs::copy(demoModel().path(), to.path(), fs::copy_options::recursive);
}

template <typename Aligner>
Eigen::Matrix3Xd aligned(const std::string& model, const Eigen::Matrix3Xd& head) {
    Aligner aligner;
    km::Error error;
    EXPECT_TRUE(aligner.init(model, error)) << error.message;
    Eigen::Matrix3Xd result;
    aligner.apply(head, result);
    return result;
}

TEST(EyeAligners, DemoHeadKeepsTheRestPlacementAndTheSampleFollowsItsSockets) {
    const demo::DemoEyes& eyes = demo::demoEyes();
    const std::string model = demoModel().str();
    for (const bool sample : {false, true}) {
        const Eigen::Matrix3Xd head = sample ? demo::sampleHead() : demo::demoHead().vertices;
        const Eigen::Matrix3Xd balls = aligned<km::CKOVAEyeballAligner>(model, head);
        // The demo eyeballs at rest in export order, moved as the sample is.
        const demo::SampleMotion& m = demo::sampleMotion();
        Eigen::Matrix3Xd restBalls = eyes.eyeballs.vertices(Eigen::all, eyes.eyeballExport);
        if (sample) restBalls = ((m.scale * m.rotation) * restBalls).colwise() + m.translation;
        // The links lie on flat faces, a little inside the sphere: close, not
        // exact. On the rotated sample the whole placement, which does not
        // rotate, over-estimates the size (sum of |coordinates|) by about 5%.
        const double ballTolerance = sample ? 0.6 : 0.02;
        EXPECT_LT((balls - restBalls).colwise().norm().maxCoeff(), ballTolerance) << sample;

        km::CKOVAEyelashAligner lashAligner;
        km::Error error;
        ASSERT_TRUE(lashAligner.init(model, error)) << error.message;
        Eigen::Matrix3Xd lash;
        const auto weights = lashAligner.fitLash(head, lash);
        if (!sample) {
            // The lash roots lie on the head's rim vertices: nothing to fit,
            // no blendshape.
            EXPECT_LT((lash - eyes.eyelashes.vertices).cwiseAbs().maxCoeff(), 1e-12);
            for (double w : weights) EXPECT_LT(std::abs(w), 1e-12);
            continue;
        }
        // The roots follow the sample's rim vertices (to 3% of the eye's
        // radius: the lash, too, is placed about 5% too large).
        for (const auto& side : eyes.eyelashLinks)
            for (const demo::HeadLink& link : side)
                EXPECT_LT((lash.col(link.corners[0]) - head.col(link.headVertex)).norm(), 0.15);
        // The side fits and the blendshape share the work: every pass adds.
        for (double w : weights) EXPECT_GT(std::abs(w), 1e-3);
    }
}

TEST(EyeAligners, WholeEyeballScaleIsClampedAtBothEnds) {
    const demo::DemoEyes& eyes = demo::demoEyes();
    // Export vertex 0 is the front of the first exported eye, 769 its back.
    const double rest = (eyes.eyeballs.vertices.col(eyes.eyeballExport[0]) -
                         eyes.eyeballs.vertices.col(eyes.eyeballExport[769]))
                            .norm();
    const struct {
        double headScale, eyeScale, tolerance;
    } cases[] = {{0.5, 0.9, 1e-9}, {0.95, 0.95, 1e-3}, {1.06, 1.06, 1e-3}, {2.0, 1.1, 1e-9}};
    for (const auto& c : cases) {
        const Eigen::Matrix3Xd balls = aligned<km::CKOVAEyeballAligner>(
            demoModel().str(), meridian::testing::scaledDemoHead(c.headScale, Vector3d(2, -1, 3)));
        EXPECT_NEAR((balls.col(0) - balls.col(769)).norm() / rest, c.eyeScale, c.tolerance)
            << c.headScale;
    }
}

TEST(EyeAligners, VerticesInNeitherSideListKeepTheWholePlacement) {
    TempDir model;
    copyDemoModel(model);
    const Eigen::Matrix3Xd head = demo::sampleHead();
    model.write("eyeball/idx_eyeball_left.txt", "");
    model.write("eyeball/idx_eyeball_right.txt", "");
    const Eigen::Matrix3Xd whole = aligned<km::CKOVAEyeballAligner>(model.str(), head);
    // Only the first 100 vertices of the left eye are listed.
    std::string firstHundred;
    for (int v = 0; v < 100; ++v) firstHundred += std::to_string(v) + "\n";
    model.write("eyeball/idx_eyeball_left.txt", firstHundred);
    const Eigen::Matrix3Xd partly = aligned<km::CKOVAEyeballAligner>(model.str(), head);
    const std::vector<int>& order = demo::demoEyes().eyeballExport;
    int moved = 0;
    for (size_t e = 0; e < order.size(); ++e) {
        if (order[e] < 100)
            moved += (partly.col(e) - whole.col(e)).norm() > 1e-3;
        else
            EXPECT_EQ(partly.col(e), whole.col(e)) << e;
    }
    EXPECT_EQ(moved, 100);
}

// A small lash model whose answers are known. Lash vertices 0..3 are fixed
// anchors, 4..7 move with the blendshape (by d along y), 8 is a tip. Head
// vertices 0..7 sit on lash vertices 0..7 moved by k * d. The y offsets are
// chosen so that k * d changes neither the spread (sum of |coordinates|) nor
// the fit's rotation: the whole placement only shifts the lash. The side fit
// uses one lash vertex s: a pure translation that carries vertex s onto its
// head vertex. Each pass then solves w = (k - a) * f with a the weight so far
// and f = 1 - d_s * sum(d) / <d, d>: w_p = k f (1 - f)^(p - 1).
class KnownLash : public ::testing::Test {
  protected:
    static constexpr double kD[8] = {0, 0, 0, 0, 1.0, 0.5, 0.5, 1.0};
    static constexpr double kY[8] = {-3, -1, 1, 3, -2, -0.5, 0.5, 2};

    // A correspondence file pairing each of `count` vertices from `first` on with itself.
    static std::string pairs(int count, int first = 0) {
        std::ostringstream text;
        text << "# base 0\n# element count " << count << "\n# a\n# b\n# end_header\n";
        for (int v = first; v < first + count; ++v) text << v << ' ' << v << '\n';
        return text.str();
    }

    void write(double k, int sideVertex) {
        std::ostringstream lash, blend;
        head_ = Eigen::Matrix3Xd::Zero(3, 20481);
        for (int v = 0; v < 8; ++v) {
            const Vector3d p(v % 4, kY[v], v < 4 ? 1.0 : 2.0 + v);
            lash << "v " << p.x() << ' ' << p.y() << ' ' << p.z() << '\n';
            blend << "v " << p.x() << ' ' << p.y() + kD[v] << ' ' << p.z() << '\n';
            head_.col(v) = p + Vector3d(0, k * kD[v], 0);
        }
        dir_.write("idx_tavi2head.corresp", pairs(20481));
        dir_.write("eyelash/eyelash_tri.obj", lash.str() + "v 5 6 7\n");
        dir_.write("eyelash/eyelash_bs01.obj", blend.str() + "v 5.25 6.5 6.75\n");
        dir_.write("eyelash/idx_head2eyelash.corresp", pairs(8));
        dir_.write("eyelash/idx_head2eyelash_left.corresp", pairs(1, sideVertex));
        dir_.write("eyelash/idx_head2eyelash_right.corresp", pairs(0));
        dir_.write("eyelash/idx_eyelash2ue4.corresp", pairs(9));
        dir_.write("eyelash/idx_eyelash_left.txt", "0\n1\n2\n3\n4\n5\n6\n7\n8\n");
        dir_.write("eyelash/idx_eyelash_right.txt", "");
    }
    void TearDown() override { AI_system_over(); }

    TempDir dir_;
    Eigen::Matrix3Xd head_;
};

TEST_F(KnownLash, PassesSolveAndAccumulateTheKnownWeight) {
    double sum = 0, squares = 0;
    for (double d : kD) sum += d, squares += d * d;
    for (const int sideVertex : {0, 5})
        for (const double k : {0.0, 0.6, 1.8, -1.2}) {
            write(k, sideVertex);
            km::CKOVAEyelashAligner aligner;
            km::Error error;
            ASSERT_TRUE(aligner.init(dir_.str(), error)) << error.message;
            Eigen::Matrix3Xd lash;
            const auto weights = aligner.fitLash(head_, lash);
            const double f = 1.0 - kD[sideVertex] * sum / squares;
            double total = 0, beforeLast = 0;
            for (int p = 0; p < 5; ++p) {
                EXPECT_NEAR(weights[p], k * f * std::pow(1 - f, p), 1e-12) << k << " pass " << p;
                beforeLast = total;
                total += weights[p];
            }
            // The tip carries the sum of the five weights of the blendshape,
            // plus the last side fit's shift.
            const Vector3d tip = Vector3d(5, 6, 7) + total * Vector3d(0.25, 0.5, -0.25) +
                                 Vector3d(0, (k - beforeLast) * kD[sideVertex], 0);
            EXPECT_LT((lash.col(8) - tip).norm(), 1e-12) << k;

            // The same through the C interface, under the eyelash name.
            const meridian_handle handle = AI_system_init_eyelash_kova(dir_.str().c_str());
            ASSERT_NE(handle, 0u);
            const std::vector<float> in = planar(head_);
            std::vector<float> out(27);
            ASSERT_EQ(AI_add_eyelash_kova(handle, in.data(), out.data(), 0), 9);
            for (int r = 0; r < 3; ++r) EXPECT_NEAR(out[r * 9 + 8], tip[r], 1e-5);
        }
}

TEST(EyeAlignerHandles, OneRunFunctionTakesBothAlignerKindsAndNothingElse) {
    const std::string model = demoModel().str();
    const std::vector<float> head = planar(demo::sampleHead());
    const meridian_handle eyeball = AI_system_init_eyeball_kova(model.c_str());
    const meridian_handle lash = AI_system_init_eyelash_kova(model.c_str());
    const meridian_handle converter = AI_system_init_swaphead(model.c_str());
    const meridian_handle frames = AI_system_init_TBN_g2(
        (model + "/TBN/head_split_uv.obj").c_str(), (model + "/TBN/idx_tavi2head.txt").c_str(),
        (model + "/TBN/idx_head2tavi.txt").c_str());
    ASSERT_TRUE(eyeball && lash && converter && frames);
    std::vector<float> out(3 * 1540, -7.0f);
    EXPECT_EQ(AI_add_eyeball_kova(eyeball, head.data(), out.data(), 0), 1540);
    EXPECT_EQ(AI_add_eyelash_kova(eyeball, head.data(), out.data(), 0), 1540);
    EXPECT_EQ(AI_add_eyeball_kova(lash, head.data(), out.data(), 0), 188);
    std::fill(out.begin(), out.end(), -7.0f);
    for (const meridian_handle other : {meridian_handle{0}, converter, frames, frames + 1})
        EXPECT_EQ(AI_add_eyeball_kova(other, head.data(), out.data(), 0), 0);
    EXPECT_EQ(AI_add_eyeball_kova(eyeball, nullptr, out.data(), 0), 0);
    EXPECT_EQ(AI_add_eyeball_kova(eyeball, head.data(), nullptr, 0), 0);
    AI_system_over();
    EXPECT_EQ(AI_add_eyeball_kova(eyeball, head.data(), out.data(), 0), 0);
    EXPECT_EQ(AI_add_eyelash_kova(lash, head.data(), out.data(), 0), 0);
    for (float v : out) ASSERT_EQ(v, -7.0f);
}

TEST(EyeAlignerInit, EveryIndexIsCheckedAgainstItsTable) {
    const struct {
        const char* file;
        std::string text;
        bool eyelash;
        std::string says;  // empty: init succeeds
    } cases[] = {
        {"eyeball/idx_eyeball_left.txt", "5\n1540\n", false,
         "entry 1 names vertex 1540, outside 0..1539"},
        {"eyeball/idx_head2eyeball_right.corresp",
         "# base 0\n# element count 1\n# a\n# b\n# end_header\n20576 3\n", false,
         "entry 0 names vertex 20576, outside 0..20575"},
        {"eyeball/idx_eyeball2ue4.corresp",
         "# base 0\n# element count 2\n# a\n# b\n# end_header\n0 0\n1 -1\n", false,
         "entry 1 names vertex -1, outside 0..1539"},
        {"eyeball/w_head2eyeball_left.corresp", "1 2 3\n", false, "3 weights, but"},
        {"eyeball/eyeball_tri.obj", "v 0 0 0\nf 1 1 2\n", false,
         "face 0 names vertex 2, outside 1..1"},
        {"idx_tavi2head.corresp", "# base 0\n# element count 1\n# a\n# b\n# end_header\n0 20481\n",
         true, "entry 0 names vertex 20481, outside 0..20480"},
        {"eyelash/eyelash_bs01.obj", "v 0 0 0\n", true, "1 vertices, but"},
        {"eyeball/w_head2eyeball_left.corresp", "", false, ""},  // an empty weight file: unweighted
    };
    for (const auto& c : cases) {
        TempDir model;
        copyDemoModel(model);
        model.write(c.file, c.text);
        ::testing::internal::CaptureStdout();
        const meridian_handle handle = c.eyelash ? AI_system_init_eyelash_kova(model.str().c_str())
                                                 : AI_system_init_eyeball_kova(model.str().c_str());
        const std::string printed = ::testing::internal::GetCapturedStdout();
        if (c.says.empty()) {
            EXPECT_NE(handle, 0u) << printed;
            continue;
        }
        EXPECT_EQ(handle, 0u) << c.file;
        EXPECT_NE(printed.find(c.file), std::string::npos) << printed;
        EXPECT_NE(printed.find(c.says), std::string::npos) << printed;
    }
    // Missing weight files are allowed.
    TempDir model;
    copyDemoModel(model);
    fs::remove(model.file("eyeball/w_head2eyeball_left.corresp"));
    fs::remove(model.file("eyeball/w_head2eyeball_right.corresp"));
    EXPECT_NE(AI_system_init_eyeball_kova(model.str().c_str()), 0u);
    AI_system_over();
}

}  // namespace
