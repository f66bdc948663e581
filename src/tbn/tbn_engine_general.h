// The general tangent-frame engine: a template OBJ with its own vertex
// numbering (e.g. split along UV seams), linked to the 20481-vertex head by
// two index lists.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <Eigen/Core>

#include "common/error.h"
#include "common/template_head.h"
#include "tbn/frame_arithmetic.h"

class TBNEngineGeneral {
  public:
    /// Vertices of every head this engine takes.
    static constexpr Eigen::Index kHeadVertexCount = kestrel::meridian::kTemplateHeadVertexCount;

    /// Loads the template OBJ at `templatePath` (used as given) and copies
    /// the two index lists. False, with `error` set, when anything would
    /// later be read out of range:
    ///   badContent       no 2-row texture table (missing or bad OBJ)
    ///   tooLarge         countHeadToTavi above the largest signed 32-bit value
    ///   invalidArgument  countTaviToHead differs from the template's vertex count
    ///   indexOutOfRange  an index list or a template face names a vertex or
    ///                    texture coordinate that does not exist
    /// taviToHead: countTaviToHead ints, entry i = head vertex (0..20480) of
    ///             template vertex i; the count must equal the template's
    ///             vertex count
    /// headToTavi: countHeadToTavi ints, entry j = template vertex whose frame
    ///             becomes output vertex j
    bool initialise(const std::string& templatePath, const int* taviToHead,
                    unsigned countTaviToHead, const int* headToTavi, unsigned countHeadToTavi,
                    kestrel::meridian::Error& error);

    /// Same, with the template's tables already in memory; `source` names
    /// them in messages.
    /// vertices: 3 by #M template positions (only the count is used)
    /// uv:       2 by #T texture coordinates
    /// faces:    3 by #F template vertex indices, 1-based
    /// uvFaces:  3 by #F texture indices, 1-based
    bool load(const Eigen::MatrixXd& vertices, const Eigen::MatrixXd& uv,
              const Eigen::MatrixXd& faces, const Eigen::MatrixXd& uvFaces,
              const std::string& source, const int* taviToHead, unsigned countTaviToHead,
              const int* headToTavi, unsigned countHeadToTavi, kestrel::meridian::Error& error);

    /// Tangent frames of one head, one per entry of idx_head2tavi.
    /// headPlanar:   3 * 20481 floats, planar
    /// framesPlanar: room for 9 * outputVertexCount() floats, written planar
    /// threads:      1 or 2, or 0 for frameThreadCount; the bits are the same
    void computeFrames(const float* headPlanar, float* framesPlanar, int threads = 0) const;

    /// Output vertices per call (entries of idx_head2tavi).
    Eigen::Index outputVertexCount() const { return static_cast<Eigen::Index>(headToTavi_.size()); }

    const Eigen::MatrixXd& uv() const { return uv_; }            ///< 2 by #T
    const Eigen::MatrixXd& faces() const { return faces_; }      ///< 3 by #F, 1-based
    const Eigen::MatrixXd& uvFaces() const { return uvFaces_; }  ///< 3 by #F, 1-based
    const std::vector<int32_t>& taviToHead() const { return taviToHead_; }
    const std::vector<int32_t>& headToTavi() const { return headToTavi_; }

  private:
    Eigen::MatrixXd uv_;
    Eigen::MatrixXd faces_;
    Eigen::MatrixXd uvFaces_;
    std::vector<int32_t> taviToHead_;
    std::vector<int32_t> headToTavi_;
    kestrel::meridian::FrameTopology topology_;
};

namespace kestrel::meridian {

/// Reads whitespace-separated decimal integers until the first token that is
/// not one (an empty file gives an empty list). Returns false, with `error`
/// set (cannotOpenIndexList), when the file cannot be opened.
bool readTangentFrameIndexFile(const std::string& path, std::vector<int>& indices, Error& error);

}  // namespace kestrel::meridian
