// The fixed tangent-frame engine: the template's vertices are the 20481
// head vertices themselves.
#pragma once

#include <cstdint>
#include <string>

#include <Eigen/Core>

#include "tbn/frame_arithmetic.h"

namespace kestrel::meridian {

class TBNEngineStd {
  public:
    /// Vertices of every head this engine takes (and of its template).
    static constexpr Eigen::Index kHeadVertexCount = 20481;
    /// Template file, appended to the model directory as is.
    static constexpr const char* kTemplateFile = "/TBN/std_20481_with_UV_F_TF.obj";

    /// An engine with no faces: every vertex comes out unused.
    TBNEngineStd() { clear(); }

    /// Loads modelDir + kTemplateFile (plain concatenation). Returns 1, or -1
    /// after printing a message: when the texture table has neither 2 rows
    /// nor 20481 columns (a missing file), or when a face names a vertex
    /// outside 1..20481 or a texture coordinate that does not exist. On
    /// failure the engine is left with empty tables, so computeFrames still
    /// works (every vertex unused).
    int32_t initialise(const std::string& modelDir);

    /// Same checks on tables already in memory; `source` names them in
    /// messages.
    /// uv:      2 by #T texture coordinates
    /// faces:   3 by #F vertex indices, 1-based
    /// uvFaces: 3 by #F texture indices, 1-based
    int32_t load(const Eigen::MatrixXd& uv, const Eigen::MatrixXd& faces,
                 const Eigen::MatrixXd& uvFaces, const std::string& source);

    /// Tangent frames of one head.
    /// headPlanar:   3 * 20481 floats, planar (all x, all y, all z)
    /// framesPlanar: room for 9 * 20481 floats, written planar (component k of
    ///               vertex i at k * 20481 + i: tangent, bitangent, normal)
    /// Returns 1.
    int32_t computeFrames(const float* headPlanar, float* framesPlanar) const;

    const Eigen::MatrixXd& uv() const { return uv_; }            ///< 2 by #T
    const Eigen::MatrixXd& faces() const { return faces_; }      ///< 3 by #F, 1-based
    const Eigen::MatrixXd& uvFaces() const { return uvFaces_; }  ///< 3 by #F, 1-based

  private:
    void clear();

    Eigen::MatrixXd uv_;
    Eigen::MatrixXd faces_;
    Eigen::MatrixXd uvFaces_;
    FrameTopology topology_;
};

}  // namespace kestrel::meridian
