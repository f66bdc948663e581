// Eye part of the demo model set: the template eyeball, the eyeball and
// eyelash meshes of the aligners and their correspondences, all built around
// the demo head's two eye sockets.
//
// The template eyeball sits at the origin and looks toward -y, the way the
// demo face looks, so an eye placed without rotation looks forward. The
// subject's left is +x: the "left" eye of the aligners is the second eye
// (socket 1, ring A), the "right" eye the first (socket 0, ring B).
#pragma once

#include <array>
#include <string>
#include <vector>

#include <Eigen/Core>

namespace meridian::demo {

/// Radius of the template eyeball's sphere: that of the sockets, so an eye
/// fitted to the demo head keeps its size.
inline constexpr double kEyeballRadius = 5.0;
inline constexpr int kEyeballVertexCount = 770;
/// Template-eyeball vertex at the front of the pupil (the cornea apex).
inline constexpr int kEyeballFrontVertex = 480;

/// A mesh of the eye model set, with one texture coordinate per vertex.
struct EyeMesh {
    Eigen::Matrix3Xd vertices;  ///< 3 by #V, float-valued
    Eigen::Matrix3Xi faces;     ///< 3 by #F, 0-based, counter-clockwise seen from outside
    Eigen::Matrix2Xd uvs;       ///< 2 by #V
};

/// A head vertex tied to a point of a mesh: the blend of a mesh triangle.
struct HeadLink {
    int headVertex;
    int meshFace;  ///< the face the triangle comes from, or -1 for a single vertex
    std::array<int, 3> corners;
    std::array<double, 3> weights;
    double weight;  ///< the entry's weight in a side fit
};

struct DemoEyes {
    EyeMesh eyeball;  ///< the template eyeball, 770 vertices

    EyeMesh eyeballs;  ///< left eye (0..769), then right, at rest in the sockets
    std::array<std::vector<int>, 2> eyeballSide;  ///< mesh vertices of the left and right eye
    std::array<std::vector<HeadLink>, 2>
        eyeballLinks;                ///< per side: socket ring -> eyeball surface
    std::vector<int> eyeballExport;  ///< export vertex -> mesh vertex

    EyeMesh eyelashes;                   ///< left lash, then right, on the upper lids
    Eigen::Matrix3Xd eyelashBlendshape;  ///< the lashes lifted, 3 by #V
    std::array<std::vector<int>, 2> eyelashSide;
    std::array<std::vector<HeadLink>, 2> eyelashLinks;  ///< per side: ring vertex -> lash root
    std::vector<int> eyelashExport;
};

/// Built once from the demo head.
const DemoEyes& demoEyes();

/// Writes the "eyeball/" and "eyelash/" folders of the demo model set into
/// `dir`. On failure returns false and says why in `error`.
bool writeDemoEyeModel(const std::string& dir, std::string& error);

}  // namespace meridian::demo
