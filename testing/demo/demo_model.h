// Demo model set: a synthetic, deterministic head at the sizes the engines
// hard-code, and the model directory built around it. It stands in for real
// model data in tests, benchmarks and the command-line tool.
//
// Frame: x across the face (the subject's left is +x), z up, the face looks
// toward -y. Units are those of the landmark table (eyes about 22 apart).
#pragma once

#include <string>
#include <vector>

#include <Eigen/Core>

#include "common/template_head.h"
#include "demo/head_ids.h"

namespace meridian::demo {

constexpr int kTemplateVertexCount = kestrel::meridian::kTemplateHeadVertexCount;
constexpr int kEngineVertexCount = 20864;

/// The demo head in the template topology: closed, outward oriented, with a
/// texture layout cut along the back of the head and around the neck cap.
struct DemoHead {
    Eigen::Matrix3Xd vertices;  ///< 3 by 20481, float-valued
    Eigen::Matrix3Xi faces;     ///< 3 by #F, 0-based vertex ids, counter-clockwise from outside
    Eigen::Matrix2Xd uvs;       ///< 2 by #T texture coordinates in [0,1]
    Eigen::Matrix3Xi uvFaces;   ///< 3 by #F, 0-based uv ids, column f belongs to faces column f
};

/// The demo head, built once on first use.
const DemoHead& demoHead();

/// A sphere the lid surface of one eye socket follows.
struct SocketSphere {
    Eigen::Vector3d centre;
    double radius = 0.0;
};

/// Socket spheres of the demo head: eye 0 is the first eye (-x side, ring B,
/// gaze vertex 12322), eye 1 the second eye (+x side, ring A, gaze 7166).
/// Every ring vertex lies on its sphere (to float precision).
const SocketSphere& socketSphere(int eye);

/// The 25 landmark positions (template 0 of the landmark table), 3 by 25,
/// float constants widened to double. The demo head has its landmark
/// vertices exactly here.
Eigen::Matrix3Xd landmarkPositions();

/// The blendshape face: 18518 distinct head vertex ids (every vertex but the
/// lowest ones of the neck). Positions kFaceAnchor* hold the left and right
/// cheek, the nose tip and the left and right ear.
const std::vector<int>& faceVertexList();

/// A local change of one facial feature: points within `reach` of `centre`
/// move along the ray from the head centre by
/// amplitude * (1 - |p - centre|^2 / reach^2)^3.
struct FeatureChange {
    double centre[3];
    double reach;
    double amplitude;
};

/// The feature changes that make the sample head another person (nose,
/// chin, jaw, ears, crown); the demo face model varies along them too.
const std::vector<FeatureChange>& sampleFeatureChanges();

/// The shape change that turns the demo head into the sample head: sample =
/// scale * rotation * (demo + local change) + translation, where the local
/// change (nose, jaw, chin, ears, crown) is exactly zero near the landmarks
/// and the eye sockets. So the sample's landmarks and socket spheres are the
/// demo's under this similarity.
struct SampleMotion {
    Eigen::Matrix3d rotation;
    Eigen::Vector3d translation;
    double scale = 1.0;
};
const SampleMotion& sampleMotion();

/// A reconstructed head of another "person" in the template topology, 3 by
/// 20481, float-valued: the demo head changed by sampleMotion().
Eigen::Matrix3Xd sampleHead();

/// What writeDemoModel writes beyond the files every task reads.
struct DemoModelOptions {
    /// The blendshape data ("BS/", 229 MB, a few tenths of a second).
    bool blendshapes = false;
};

/// Writes the demo model directory (creating `dir` and its
/// subdirectories). On failure returns false and says why in `error`.
/// The files are byte-identical from run to run.
bool writeDemoModel(const std::string& dir, std::string& error,
                    const DemoModelOptions& options = {});

}  // namespace meridian::demo
