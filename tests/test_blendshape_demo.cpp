// Blendshapes on the demo model set's data (written once per test run into
// the build tree by a CTest fixture, MERIDIAN_BLENDSHAPE_DEMO_DIR): the
// engine against the literal method and the rules every shape keeps, and the
// C interface end to end.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "blendshape/blendshape_engine.h"
#include "blendshape/blendshape_literal_reference.h"
#include "blendshape_demo_data.h"
#include "demo/demo_model.h"
#include "eyes_fixtures.h"
#include "io/matrix_file.h"
#include "io/planar.h"
#include "meridian/meridian.h"

namespace {

namespace bs = kestrel::meridian::blendshape;
namespace demo = meridian::demo;
using Eigen::Index;
using Eigen::Matrix3Xd;
using Eigen::MatrixXd;
using Eigen::Vector3d;
using kestrel::meridian::CBlendshapeEngine;
using kestrel::meridian::planarToVertices;
using meridian::testing::planar;

constexpr Index kHead = 20481;

const std::string& kModelDir = meridian::testing::kBlendshapeDemoDir;

TEST(BlendshapeDemo, EngineMatchesTheLiteralMethodAndKeepsTheRegionRules) {
    REQUIRE_BLENDSHAPE_DEMO_DATA();
    kestrel::meridian::Error error;
    const auto engine = CBlendshapeEngine::load(kModelDir, error);
    ASSERT_TRUE(engine) << error.message;
    // The literal method reads the whole back-end set; the engine keeps only
    // what generation uses.
    bs::BackendData data;
    ASSERT_TRUE(bs::loadBackendData(kModelDir, data, error)) << error.message;
    MatrixXd basis;  // the literal method's own, whole, column-major copy
    const bs::MatrixFileEntry& entry = bs::kBackendFiles[bs::kBasisFile];
    ASSERT_EQ(kestrel::meridian::readMatrixFile(kModelDir + "/BS/" + entry.name, entry.rows,
                                                entry.cols, basis),
              kestrel::meridian::MatrixFileStatus::ok);

    // The sample head: another person, moved and scaled.
    const Matrix3Xd head = planarToVertices(planar(demo::sampleHead()).data(), kHead);
    engine->setThreadCount(1);
    const CBlendshapeEngine::Shapes shapes = engine->generate(head);
    const MatrixXd literal = bs::literal::blendshapes(head, data, basis);
    const double scale = head.cwiseAbs().maxCoeff();
    for (int s = 0; s < CBlendshapeEngine::kShapeCount; ++s)
        EXPECT_LT((shapes[s] - literal.middleRows<3>(3 * s)).cwiseAbs().maxCoeff(), 1e-9 * scale)
            << "shape " << s;

    // The float path narrows the same values, in the documented layout, and
    // gives the same bits on any number of threads, call after call.
    const std::vector<float> in = planar(head);
    std::vector<float> one(CBlendshapeEngine::kShapeFloats), three(one.size());
    engine->generate(in.data(), one.data());
    engine->setThreadCount(3);
    engine->generate(in.data(), three.data());
    EXPECT_EQ(std::memcmp(one.data(), three.data(), one.size() * sizeof(float)), 0);
    engine->generate(in.data(), three.data());
    EXPECT_EQ(std::memcmp(one.data(), three.data(), one.size() * sizeof(float)), 0);
    for (int s = 0; s < CBlendshapeEngine::kShapeCount; ++s)
        for (int a = 0; a < 3; ++a)
            for (Index v = 0; v < kHead; v += 7)
                ASSERT_EQ(one[(3 * s + a) * kHead + v], static_cast<float>(shapes[s](a, v)));

    // Shape 0 is the input; vertices outside the face list never move.
    EXPECT_EQ(shapes[0], head);
    std::vector<bool> inFace(kHead, false);
    for (int id : data.faceList) inFace[id] = true;
    for (int s = 1; s < CBlendshapeEngine::kShapeCount; ++s)
        for (Index v = 0; v < kHead; ++v)
            if (!inFace[v]) {
                ASSERT_EQ(shapes[s].col(v), head.col(v));
            }

    const bs::FaceFrame& frame = engine->faceFrame();
    const Matrix3Xd face = bs::literal::faceInModelFrame(head, data.files[bs::kFaceListFile],
                                                         data.transforms[bs::kFaceFrameTransform]);
    const Eigen::Matrix3Xi& triangles = demo::demoHead().faces;
    for (int r = 0; r < bs::kRegionCount; ++r) {
        SCOPED_TRACE(bs::kRegions[r].name);
        const bs::RegionDefinition& region = data.definitions[r];
        const Matrix3Xd& shape = shapes[r + 1];
        const auto reference =
            bs::literal::deformRegion(basis, data.mean(), data.sigma(), face, data.regions[r]);
        auto at = [&](int k) { return Vector3d(shape.col(data.faceList[k])); };

        // Outside the region: the input, up to the face frame's round trip.
        std::set<int> inRegion(region.all.begin(), region.all.end());
        inRegion.insert(region.fixed.begin(), region.fixed.end());
        for (int k = 0; k < bs::kFaceVertexCount; ++k)
            if (!inRegion.count(k)) {
                ASSERT_LT((at(k) - head.col(data.faceList[k])).norm(), 1e-13 * scale) << k;
            }

        // Border weight 0 keeps the input, 1 takes the fitted surface, and
        // the fitted surface follows the input along the border.
        Vector3d centroid = Vector3d::Zero();
        for (int q : region.fixed) centroid += face.col(q);
        centroid /= static_cast<double>(region.fixed.size());
        const Vector3d push = (region.w3 - 1.0) * (face.col(region.anchor) - centroid);
        int weightZero = 0, weightOne = 0;
        for (size_t j = 0; j < region.fixed.size(); ++j) {
            const int q = region.fixed[j];
            EXPECT_LT((reference.reconstructed.col(q) - face.col(q)).norm(), 0.1 * push.norm());
            if (region.fixedWeights[j] == 0.0) {
                ++weightZero;
                EXPECT_EQ(at(q), frame.toHead(face.col(q)));
            } else if (region.fixedWeights[j] == 1.0) {
                ++weightOne;
                EXPECT_LT((at(q) - frame.toHead(reference.reconstructed.col(q))).norm(),
                          1e-9 * scale);
            }
        }
        EXPECT_GT(weightZero, 0);
        EXPECT_GT(weightOne, 0);

        // The anchor moves away from the border's centroid by the factor asked.
        const Vector3d moved = frame.toFace(at(region.anchor)) - face.col(region.anchor);
        const double along = moved.dot(push) / push.squaredNorm();
        EXPECT_NEAR(along, 1.0, 0.03);
        EXPECT_LT((moved - along * push).norm(), 0.05 * push.norm());

        // Smooth, no step at the border: along every edge of the head the
        // displacement changes by less than a third of the edge's length.
        const Matrix3Xd displacement = shape - head;
        double steepest = 0.0;
        for (Index t = 0; t < triangles.cols(); ++t)
            for (int e = 0; e < 3; ++e) {
                const int u = triangles(e, t), v = triangles((e + 1) % 3, t);
                steepest = std::max(steepest, (displacement.col(u) - displacement.col(v)).norm() /
                                                  (head.col(u) - head.col(v)).norm());
            }
        EXPECT_LT(steepest, 0.33);
    }
}

TEST(BlendshapeDemo, CInterfaceLoadsTimesAndWritesTheSixShapes) {
    REQUIRE_BLENDSHAPE_DEMO_DATA();
    ::testing::internal::CaptureStdout();
    const int64_t loaded = AI_system_initDynamic_BS(kModelDir.c_str());
    const std::string output = ::testing::internal::GetCapturedStdout();
    ASSERT_EQ(loaded, 1) << output;
    // The load time is printed as a double between fixed texts.
    const std::string opening = "init backend datas" + kModelDir + "\n----load next info use time ";
    const std::string tail = " ms\n";
    ASSERT_GT(output.size(), opening.size() + tail.size()) << output;
    EXPECT_EQ(output.substr(0, opening.size()), opening);
    EXPECT_EQ(output.substr(output.size() - tail.size()), tail);
    const std::string time =
        output.substr(opening.size(), output.size() - opening.size() - tail.size());
    size_t parsed = 0;
    EXPECT_GT(std::stod(time, &parsed), 0.0);
    EXPECT_EQ(parsed, time.size()) << time;

    const std::vector<float> head = planar(demo::demoHead().vertices);
    std::vector<float> out(CBlendshapeEngine::kShapeFloats, 5.0f);
    ASSERT_EQ(AI_get_BS(head.data(), out.data()), 1);
    EXPECT_TRUE(std::equal(head.begin(), head.end(), out.begin())) << "shape 0 is the input";
    // Shape s + 1 moves region s's anchor, and at most the region's vertices.
    const Matrix3Xd input = planarToVertices(head.data(), kHead);
    for (int r = 0; r < bs::kRegionCount; ++r) {
        SCOPED_TRACE(bs::kRegions[r].name);
        const Eigen::RowVectorXd moved =
            (planarToVertices(out.data() + (r + 1) * 3 * kHead, kHead) - input).colwise().norm();
        EXPECT_GT(moved(demo::faceVertexList()[bs::kRegions[r].anchor]), 0.4);
        EXPECT_LE((moved.array() > 1e-4).count(), bs::kRegions[r].all.cols);
    }

    AI_system_over();
    std::vector<float> after(CBlendshapeEngine::kShapeFloats, 5.0f);
    EXPECT_EQ(AI_get_BS(head.data(), after.data()), 0);
    EXPECT_EQ(after, std::vector<float>(after.size(), 5.0f));
}

TEST(BlendshapeDemo, DataSetHoldsEveryFileAtItsShapeAndTheDemoFaceAsMean) {
    REQUIRE_BLENDSHAPE_DEMO_DATA();
    const std::string dir = kModelDir + "/BS/";
    for (const bs::MatrixFileEntry& entry : bs::kBackendFiles)
        EXPECT_EQ(std::filesystem::file_size(dir + entry.name), 8u * entry.rows * entry.cols)
            << entry.name;
    for (const bs::RegionEntry& region : bs::kRegions)
        for (const bs::MatrixFileEntry& entry : {region.all, region.fixed, region.weights})
            EXPECT_EQ(std::filesystem::file_size(dir + region.directory + entry.name),
                      8u * entry.rows * entry.cols)
                << region.directory << entry.name;

    // The mean is the demo head's face in the model's frame, to the bit.
    MatrixXd mean;
    ASSERT_EQ(kestrel::meridian::readMatrixFile(dir + bs::kBackendFiles[bs::kMeanFile].name,
                                                3 * bs::kFaceVertexCount, 1, mean),
              kestrel::meridian::MatrixFileStatus::ok);
    const bs::FaceFrame frame = bs::faceFrame();
    const std::vector<int>& faceList = demo::faceVertexList();
    for (int k = 0; k < bs::kFaceVertexCount; ++k)
        ASSERT_EQ(Vector3d(mean.col(0).segment<3>(3 * k)),
                  frame.toFace(demo::demoHead().vertices.col(faceList[k])))
            << k;
}

}  // namespace
