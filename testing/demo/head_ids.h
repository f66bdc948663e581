// Head vertex ids that the engines hard-code, and the positions the demo head
// gives them. The demo head is numbered so that every id here names the
// vertex the engines expect; the ids come from the engines' own tables.
#pragma once

#include <array>

#include "blendshape/backend_files.h"
#include "eyes/eye_tables.h"

namespace meridian::demo {

namespace eyes = kestrel::meridian::eyes;
namespace blendshape = kestrel::meridian::blendshape;

/// Landmark vertices the head is rigidly aligned by, in table order.
using eyes::kLandmarkCount;
inline constexpr const std::array<int, kLandmarkCount>& kLandmarkIds = eyes::kLandmarkVertices;

/// Position of landmark k in the reference landmark frame (template 0). The
/// demo head carries its landmark vertices exactly here (as floats).
inline constexpr const float (&kLandmarkPositions)[kLandmarkCount][3] = eyes::kLandmarkTemplates[0];

/// Socket rings: 45 vertices on the lid surface around each eye. Ring A
/// belongs to the second eye (+x side), ring B to the first eye (-x side).
using eyes::kRingA;
using eyes::kRingB;
using eyes::kRingSize;

/// Gaze vertices: the front centre of each socket.
using eyes::kGazeFirstEye;   // -x side, ring B
using eyes::kGazeSecondEye;  // +x side, ring A

/// The blendshape face: an ordered subset of head vertices. Regions address
/// it by list position, and the regions' anchor positions must hold these
/// places (subject's left is +x).
using blendshape::kFaceVertexCount;
inline constexpr int kFaceAnchorCheekLeft = blendshape::kRegions[0].anchor;
inline constexpr int kFaceAnchorCheekRight = blendshape::kRegions[1].anchor;
inline constexpr int kFaceAnchorNoseTip = blendshape::kRegions[2].anchor;
inline constexpr int kFaceAnchorEarLeft = blendshape::kRegions[3].anchor;
inline constexpr int kFaceAnchorEarRight = blendshape::kRegions[4].anchor;

}  // namespace meridian::demo
