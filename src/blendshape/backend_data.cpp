#include "blendshape/backend_data.h"

#include <cmath>
#include <sstream>

#include "common/model_paths.h"

namespace kestrel::meridian::blendshape {

namespace {

using Eigen::Index;

ErrorCode codeOf(MatrixFileStatus status) {
    switch (status) {
        case MatrixFileStatus::ok:
            return ErrorCode::ok;
        case MatrixFileStatus::cannotOpen:
            return ErrorCode::cannotOpen;
        case MatrixFileStatus::tooShort:
            return ErrorCode::tooShort;
        case MatrixFileStatus::tooLarge:
        case MatrixFileStatus::invalidShape:
            return ErrorCode::tooLarge;
    }
    return ErrorCode::badContent;
}

std::string text(double value) {
    std::ostringstream out;
    out << value;
    return out.str();
}

bool fail(Error& error, MatrixFileStatus status, const std::string& path,
          const MatrixFileEntry& entry) {
    error = {codeOf(status), path, matrixFileMessage(status, path, entry.rows, entry.cols)};
    return false;
}

bool read(const std::string& path, const MatrixFileEntry& entry, Eigen::MatrixXd& out,
          Error& error) {
    const MatrixFileStatus status = readMatrixFile(path, entry.rows, entry.cols, out);
    return status == MatrixFileStatus::ok || fail(error, status, path, entry);
}

/// Index values are whole numbers held as doubles and are truncated, as
/// their users always did. Each must name one of `count` vertices.
bool toIndices(const Eigen::MatrixXd& values, int count, const char* what, const std::string& path,
               std::vector<int>& out, Error& error) {
    out.resize(static_cast<size_t>(values.size()));
    for (Index k = 0; k < values.size(); ++k) {
        const double v = values(k);
        if (!(v > -1.0 && v < count)) {
            error = {ErrorCode::badContent, path,
                     path + ": entry " + std::to_string(k) + " names " + what + " " + text(v) +
                         ", outside 0.." + std::to_string(count - 1)};
            return false;
        }
        out[static_cast<size_t>(k)] = static_cast<int>(v);
    }
    return true;
}

/// Stores the region's lists and parameters and appends the anchor to the
/// fixed list.
void setUpRegion(RegionRecord& region, int anchor, Eigen::MatrixXd all, Eigen::MatrixXd fixed,
                 Eigen::MatrixXd weights, float w0, float w1, float w2, float w3) {
    region.anchor = anchor;
    region.all = std::move(all);
    region.fixed = std::move(fixed);
    region.weights = std::move(weights);
    region.w0 = w0;
    region.w1 = w1;
    region.w2 = w2;
    region.w3 = w3;
    const Index count = region.fixed.size();
    region.fixedWithAnchor.resize(1, count + 1);
    for (Index k = 0; k < count; ++k) region.fixedWithAnchor(0, k) = region.fixed(k);
    region.fixedWithAnchor(0, count) = anchor;
}

bool buildFitDefinition(const RegionRecord& record, const std::string& regionDir,
                        const RegionEntry& entry, RegionDefinition& fit, Error& error) {
    if (!toIndices(record.all, kFaceVertexCount, "face vertex", regionDir + entry.all.name, fit.all,
                   error) ||
        !toIndices(record.fixed, kFaceVertexCount, "face vertex", regionDir + entry.fixed.name,
                   fit.fixed, error))
        return false;
    fit.fixedWeights.assign(record.weights.row(0).begin(), record.weights.row(0).end());
    fit.anchor = record.anchor;
    fit.w0 = record.w0;
    fit.w1 = record.w1;
    fit.w2 = record.w2;
    fit.w3 = record.w3;
    return true;
}

}  // namespace

bool loadBackendData(const std::string& modelDir, BackendData& data, Error& error) {
    const std::string dir = model_files::blendshapeFolder(modelDir);
    for (int f = 0; f < kBackendFileCount; ++f) {
        const MatrixFileEntry& entry = kBackendFiles[f];
        const std::string path = dir + entry.name;
        if (f == kBasisFile) {
            // Read last, into the regions' layout, once the regions are known.
            const MatrixFileStatus status = checkMatrixFile(path, entry.rows, entry.cols);
            if (status != MatrixFileStatus::ok) return fail(error, status, path, entry);
        } else if (!read(path, entry, data.files[f], error)) {
            return false;
        }
    }
    for (int r = 0; r < kRegionCount; ++r) {
        const RegionEntry& entry = kRegions[r];
        const std::string regionDir = dir + entry.directory;
        Eigen::MatrixXd all, fixed, weights;
        if (!read(regionDir + entry.all.name, entry.all, all, error) ||
            !read(regionDir + entry.fixed.name, entry.fixed, fixed, error) ||
            !read(regionDir + entry.weights.name, entry.weights, weights, error))
            return false;
        setUpRegion(data.regions[r], entry.anchor, std::move(all), std::move(fixed),
                    std::move(weights), entry.w0, entry.w1, entry.w2, entry.w3);
    }
    data.transforms = fixedTransforms();

    if (!toIndices(data.files[kFaceListFile], kHeadVertexCount, "head vertex",
                   dir + kBackendFiles[kFaceListFile].name, data.faceList, error))
        return false;
    const Eigen::MatrixXd& sigma = data.sigma();
    for (Index i = 0; i < sigma.size(); ++i)
        if (!(sigma(i) > 0 && std::isfinite(sigma(i)))) {
            const std::string path = dir + kBackendFiles[kSigmaFile].name;
            error = {ErrorCode::badContent, path,
                     path + ": entry " + std::to_string(i) + " is " + text(sigma(i)) +
                         ", not a positive standard deviation"};
            return false;
        }
    std::vector<std::vector<int>> regionRows;
    for (int r = 0; r < kRegionCount; ++r) {
        if (!buildFitDefinition(data.regions[r], dir + kRegions[r].directory, kRegions[r],
                                data.definitions[r], error))
            return false;
        regionRows.push_back(RegionFit::rowVertices(data.definitions[r]));
    }

    const MatrixFileEntry& basisEntry = kBackendFiles[kBasisFile];
    data.basis = RegionBasisStore(basisEntry.rows, basisEntry.cols, regionRows);
    const std::string basisPath = dir + basisEntry.name;
    const MatrixFileStatus status = data.basis.read(basisPath);
    return status == MatrixFileStatus::ok || fail(error, status, basisPath, basisEntry);
}

}  // namespace kestrel::meridian::blendshape
