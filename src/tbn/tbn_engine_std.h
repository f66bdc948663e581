// The fixed tangent-frame engine: the template's vertices are the 20481
// head vertices themselves.
#pragma once

#include <cstdint>
#include <string>

#include <Eigen/Core>

#include "common/error.h"
#include "common/template_head.h"
#include "tbn/frame_arithmetic.h"

namespace kestrel::meridian {

class TBNEngineStd {
  public:
    /// Vertices of every head this engine takes (and of its template).
    static constexpr Eigen::Index kHeadVertexCount = kTemplateHeadVertexCount;

    /// An engine with no faces: every vertex comes out unused.
    TBNEngineStd() { clear(); }

    /// Loads model_files::tangentFrameTemplatePath(modelDir). False with
    /// `error` set: badContent when the texture table has neither 2 rows nor
    /// 20481 columns (a missing file), indexOutOfRange when a face names a
    /// vertex outside 1..20481 or a texture coordinate that does not exist.
    /// On failure the engine is left with empty tables, so computeFrames
    /// still works (every vertex unused).
    bool initialise(const std::string& modelDir, Error& error);

    /// Same checks on tables already in memory; `source` names them in
    /// errors (error.path).
    /// uv:      2 by #T texture coordinates
    /// faces:   3 by #F vertex indices, 1-based
    /// uvFaces: 3 by #F texture indices, 1-based
    bool load(const Eigen::MatrixXd& uv, const Eigen::MatrixXd& faces,
              const Eigen::MatrixXd& uvFaces, const std::string& source, Error& error);

    /// Tangent frames of one head.
    /// headPlanar:   3 * 20481 floats, planar (all x, all y, all z)
    /// framesPlanar: room for 9 * 20481 floats, written planar (component k of
    ///               vertex i at k * 20481 + i: tangent, bitangent, normal)
    /// threads:      1 or 2, or 0 for frameThreadCount; the bits are the same
    void computeFrames(const float* headPlanar, float* framesPlanar, int threads = 0) const;

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
