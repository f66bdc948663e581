// The blendshape back-end data set in memory, and its loader.
#pragma once

#include <array>
#include <string>
#include <vector>

#include <Eigen/Core>

#include "common/error.h"

#include "blendshape/backend_files.h"
#include "blendshape/basis_store.h"
#include "blendshape/region_fit.h"

namespace kestrel::meridian::blendshape {

/// A region as loaded. Index lists hold face-vertex indices as doubles.
struct RegionRecord {
    int anchor = -1;
    Eigen::MatrixXd all;      ///< 1 by #A
    Eigen::MatrixXd fixed;    ///< 1 by #F
    Eigen::MatrixXd weights;  ///< 3 by #F; row 0 is the blend weight of each border vertex
    float w0 = 1000000.0f;
    float w1 = 1000000.0f;
    float w2 = 10000.0f;
    float w3 = 1.2f;
    Eigen::MatrixXd fixedWithAnchor;  ///< 1 by #F + 1: `fixed`, then the anchor
};

struct BackendData {
    /// Every file of kBackendFiles at its shape, in that order, except the
    /// basis, which is held by `basis` (its entry here stays empty).
    std::array<Eigen::MatrixXd, kBackendFileCount> files;
    RegionBasisStore basis;                                  ///< 55554 by 500
    std::array<RegionRecord, kRegionCount> regions;          ///< in shape order
    std::array<Transform34, 5> transforms;                   ///< fixedTransforms()
    std::vector<int> faceList;                               ///< 18518 head vertex ids ("up")
    std::array<RegionDefinition, kRegionCount> definitions;  ///< the regions as fits take them

    const Eigen::MatrixXd& mean() const { return files[kMeanFile]; }    ///< 55554 by 1
    const Eigen::MatrixXd& sigma() const { return files[kSigmaFile]; }  ///< 500 by 1
};

/// Loads model_files::blendshapeFolder(modelDir): the 27 files in table order,
/// then each region's three files, then the fixed matrices. Then checks
/// that every index names an existing vertex and every sigma is positive,
/// and reads the basis into the layout of the region fits. The basis file
/// is checked (present, long enough) at its place in the order, so the
/// first missing or short file is the one reported. False with `error` set
/// on the first failure: cannotOpen, tooShort or tooLarge for a file,
/// badContent for an index that names no vertex or a sigma that is not
/// positive.
bool loadBackendData(const std::string& modelDir, BackendData& data, Error& error);

}  // namespace kestrel::meridian::blendshape
