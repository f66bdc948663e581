// The demo "BS/" directory: region masks, the face model and the other sets
// of the back-end data, as matrix files. Indices are 0-based.
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <functional>
#include <numeric>
#include <stdexcept>
#include <system_error>

#include "blendshape/backend_files.h"
#include "demo/blendshape_demo.h"
#include "demo/demo_model.h"
#include "demo/float_round.h"
#include "demo/head_shape.h"
#include "demo/head_topology.h"
#include "io/atomic_file.h"
#include "io/input_error.h"
#include "io/matrix_file.h"

namespace meridian::demo {

namespace bs = kestrel::meridian::blendshape;
namespace fs = std::filesystem;
using Eigen::Index;
using Eigen::Vector3d;

namespace {

/// The `take` ids among 0..count-1 with the smallest key (ties: lower id
/// first), in ascending id order.
template <typename Key>
std::vector<int> smallestBy(int count, int take, const Key& key) {
    std::vector<int> ids(static_cast<size_t>(count));
    std::iota(ids.begin(), ids.end(), 0);
    std::stable_sort(ids.begin(), ids.end(), [&](int a, int b) { return key(a) < key(b); });
    ids.resize(static_cast<size_t>(take));
    std::sort(ids.begin(), ids.end());
    return ids;
}

const Eigen::Matrix3Xd& headVertices() {
    return demoHead().vertices;
}

int headCount() {
    return static_cast<int>(headVertices().cols());
}

/// Triangles (0-based corners, one per column) of `faces`, in face order.
std::vector<double> triangleRows(const std::vector<int>& faces) {
    const Eigen::Matrix3Xi& all = demoHead().faces;
    const size_t n = faces.size();
    std::vector<double> rows(3 * n);
    for (size_t k = 0; k < n; ++k)
        for (int c = 0; c < 3; ++c) rows[c * n + k] = all(c, faces[k]);
    return rows;
}

/// The `take` faces whose centroid has the smallest key.
template <typename Key>
std::vector<double> trianglesBy(int take, const Key& key) {
    const Eigen::Matrix3Xi& faces = demoHead().faces;
    auto centroid = [&](int f) {
        return Vector3d((headVertices().col(faces(0, f)) + headVertices().col(faces(1, f)) +
                         headVertices().col(faces(2, f))) /
                        3.0);
    };
    return triangleRows(
        smallestBy(static_cast<int>(faces.cols()), take, [&](int f) { return key(centroid(f)); }));
}

std::vector<double> toDoubles(const std::vector<int>& ids) {
    return std::vector<double>(ids.begin(), ids.end());
}

/// 3 by n rows of a vertex set, float-valued.
std::vector<double> vertexRows(const Eigen::Matrix3Xd& vertices) {
    const Index n = vertices.cols();
    std::vector<double> rows(static_cast<size_t>(3 * n));
    for (int a = 0; a < 3; ++a)
        for (Index v = 0; v < n; ++v) rows[static_cast<size_t>(a * n + v)] = vertices(a, v);
    return rows;
}

const Vector3d kMouthCentre(0.0, -16.0, -32.0);

/// Distance to the nearest eye socket centre or the mouth, and which (0, 1
/// the sockets, 2 the mouth).
std::pair<double, int> eyeMouthDistance(const Vector3d& p) {
    std::pair<double, int> best{(p - kMouthCentre).norm(), 2};
    for (int eye = 0; eye < 2; ++eye)
        best = std::min(best, {(p - socketSphere(eye).centre).norm(), eye});
    return best;
}

std::vector<int> faceListPositions(const std::vector<int>& headIds) {
    std::vector<int> position(static_cast<size_t>(headCount()), -1);
    const std::vector<int>& list = faceVertexList();
    for (size_t i = 0; i < list.size(); ++i) position[list[i]] = static_cast<int>(i);
    std::vector<int> result;
    for (int id : headIds) result.push_back(position[id]);
    return result;
}

/// Landmarks, gaze vertices, the five anchors, every third vertex of both
/// eye rings and vertices down the front profile: 86 distinct head ids.
std::vector<int> keyPoints() {
    std::vector<int> ids(kLandmarkIds.begin(), kLandmarkIds.end());
    ids.push_back(kGazeFirstEye);
    ids.push_back(kGazeSecondEye);
    for (int anchor : {kFaceAnchorCheekLeft, kFaceAnchorCheekRight, kFaceAnchorNoseTip,
                       kFaceAnchorEarLeft, kFaceAnchorEarRight})
        ids.push_back(faceVertexList()[anchor]);
    for (size_t k = 0; k < kRingA.size(); k += 3) ids.push_back(kRingA[k]);
    for (size_t k = 0; k < kRingB.size(); k += 3) ids.push_back(kRingB[k]);
    const Eigen::Matrix3Xd& v = headVertices();
    std::vector<int> profile;
    for (int id = 0; id < headCount(); ++id)
        if (v(1, id) < 0 && std::abs(v(0, id)) < 1.0 &&
            std::find(ids.begin(), ids.end(), id) == ids.end())
            profile.push_back(id);
    std::stable_sort(profile.begin(), profile.end(),
                     [&](int a, int b) { return v(2, a) < v(2, b); });
    const size_t wanted = 86 - ids.size();
    for (size_t k = 0; k < wanted; ++k) ids.push_back(profile[k * profile.size() / wanted]);
    return ids;
}

static_assert(bs::kRegions[0].anchor == kFaceAnchorCheekLeft &&
                  bs::kRegions[1].anchor == kFaceAnchorCheekRight &&
                  bs::kRegions[2].anchor == kFaceAnchorNoseTip &&
                  bs::kRegions[3].anchor == kFaceAnchorEarLeft &&
                  bs::kRegions[4].anchor == kFaceAnchorEarRight,
              "the demo face list holds the region anchors");

/// Values of file `f` of bs::kBackendFiles (all but the basis), row after
/// row.
std::vector<double> smallSet(int f, const detail::DemoFaceModel& model) {
    const Eigen::Matrix3Xd& v = headVertices();
    const int n = headCount();
    auto x = [&](int id) { return v(0, id); };
    auto y = [&](int id) { return v(1, id); };
    auto z = [&](int id) { return v(2, id); };
    auto eyeMouth = [&](int id) { return eyeMouthDistance(v.col(id)).first; };
    auto mouth = [&](int id) { return (v.col(id) - kMouthCentre).norm(); };
    const std::vector<int>& list = faceVertexList();
    const int listCount = static_cast<int>(list.size());
    const int cols = bs::kBackendFiles[f].cols;
    switch (f) {
        case 0:  // kp_86_h
            return toDoubles(keyPoints());
        case 1:  // tri_h_used: the front of the head
            return trianglesBy(cols, [](const Vector3d& c) { return c.y(); });
        case 2:  // tri_next_h: the head without the neck
        case 3:  // tri_next: all but the bottom of the neck cap
            return trianglesBy(cols, [](const Vector3d& c) { return -c.z(); });
        case 4:  // vertex_h_used: the front
            return toDoubles(smallestBy(n, cols, y));
        case 5:  // the face model's mean
            return std::vector<double>(demoModelFace().data(),
                                       demoModelFace().data() + demoModelFace().size());
        case 7:  // its standard deviations
            return std::vector<double>(model.sigma().data(),
                                       model.sigma().data() + model.sigma().size());
        case 8:   // vertex_tavi_wh
        case 9:   // vertex_std_male_wh
        case 10:  // vertex_next_pca_m
            return vertexRows(v);
        case 11: {  // vertex_next_pca_f: 0.94 times the demo head about its centre
            Eigen::Matrix3Xd smaller(3, n);
            const Vector3d centre = detail::headCentre();
            for (int id = 0; id < n; ++id)
                smaller.col(id) =
                    detail::roundToFloat(Vector3d(centre + 0.94 * (v.col(id) - centre)));
            return vertexRows(smaller);
        }
        case 12:  // idx_em: around the eyes and the mouth
        case 13:  // idx_em_need_update: the nearest of them
            return toDoubles(smallestBy(n, cols, eyeMouth));
        case 14:  // idx_em_in_face: those, as face-list positions
            return toDoubles(faceListPositions(smallestBy(n, cols, eyeMouth)));
        case 15: {  // diff_from_face_to_esle: eye vertex to socket sphere; 0 at the mouth
            const std::vector<int> ids = smallestBy(n, cols, eyeMouth);
            std::vector<double> rows(3 * ids.size(), 0.0);
            for (size_t k = 0; k < ids.size(); ++k) {
                const Vector3d p = v.col(ids[k]);
                const int eye = eyeMouthDistance(p).second;
                if (eye == 2) continue;
                const SocketSphere& s = socketSphere(eye);
                const Vector3d offset = s.centre + s.radius * (p - s.centre).normalized() - p;
                for (int a = 0; a < 3; ++a) rows[a * ids.size() + k] = offset(a);
            }
            return rows;
        }
        case 16: {  // idx_in_face_used: an even sample of the face list
            std::vector<int> positions;
            for (int k = 0; k < cols; ++k) positions.push_back(k * (listCount / cols));
            return toDoubles(positions);
        }
        case 17:  // up: the face list
            return toDoubles(list);
        case 18:  // b4_mouth_h_idx
            return toDoubles(smallestBy(n, cols, mouth));
        case 19:  // b4_idx_backhead
            return toDoubles(smallestBy(n, cols, [&](int id) { return -y(id); }));
        case 20:    // b4_idx_contout: the lowest face vertices,
        case 23: {  // b4_weight_in: and a weight rising with height
            std::vector<int> ids;
            for (int i : smallestBy(listCount, cols, [&](int i) { return z(list[i]); }))
                ids.push_back(list[i]);
            if (f == 20) return toDoubles(ids);
            double low = z(ids[0]), high = low;
            for (int id : ids) low = std::min(low, z(id)), high = std::max(high, z(id));
            std::vector<double> rows;
            for (int a = 0; a < 3; ++a)
                for (int id : ids) rows.push_back((z(id) - low) / (high - low));
            return rows;
        }
        case 21:  // b4_idx_fix_face_part: the front
            return toDoubles(smallestBy(n, cols, y));
        case 22:  // b4_shoulder_idx: the lowest vertices
            return toDoubles(smallestBy(n, cols, z));
        case 24:  // ue_idx_next_2_ue: the engine order
            return toDoubles(demoTopology().engineToHead);
        case 25:  // vertex_left (+x)
            return toDoubles(smallestBy(n, cols, [&](int id) { return -x(id); }));
        case 26:  // vertex_right
            return toDoubles(smallestBy(n, cols, x));
    }
    throw std::logic_error("demo blendshape data: no small set " + std::to_string(f));
}

// Every data file is written atomically: a failed write leaves no part of it.
bool writeAtomically(const fs::path& path, const std::function<bool(const std::string&)>& writer,
                     std::string& error) {
    try {
        kestrel::meridian::writeFileAtomicallyVia(path.string(), writer);
        return true;
    } catch (const kestrel::meridian::InputError& e) {
        error = e.what();
        return false;
    }
}

bool writeSet(const fs::path& path, const bs::MatrixFileEntry& entry,
              const std::vector<double>& values, std::string& error) {
    if (values.size() != static_cast<size_t>(entry.rows) * static_cast<size_t>(entry.cols))
        throw std::logic_error("demo blendshape data: wrong size for " + std::string(entry.name));
    return writeAtomically(
        path,
        [&](const std::string& temporary) {
            return kestrel::meridian::writeMatrixFile(temporary, entry.rows, entry.cols,
                                                      values.data());
        },
        error);
}

}  // namespace

DemoRegionMask demoRegionMask(int region) {
    const bs::RegionEntry& entry = bs::kRegions.at(static_cast<size_t>(region));
    const Eigen::Matrix3Xd& face = demoModelFace();
    const auto count = static_cast<int>(face.cols());
    std::vector<double> distance(static_cast<size_t>(count));
    for (int k = 0; k < count; ++k) distance[k] = (face.col(k) - face.col(entry.anchor)).norm();
    std::vector<int> order(static_cast<size_t>(count));
    std::iota(order.begin(), order.end(), 0);
    std::stable_sort(order.begin(), order.end(),
                     [&](int a, int b) { return distance[a] < distance[b]; });

    DemoRegionMask mask;
    mask.all.assign(order.begin(), order.begin() + entry.all.cols);
    mask.fixed.assign(order.begin() + entry.all.cols - entry.fixed.cols,
                      order.begin() + entry.all.cols);
    const double inner = distance[mask.fixed.front()], outer = distance[mask.fixed.back()];
    std::sort(mask.all.begin(), mask.all.end());
    std::sort(mask.fixed.begin(), mask.fixed.end());
    for (int k : mask.fixed) {
        const double t = std::clamp((outer - distance[k]) / (outer - inner), 0.0, 1.0);
        mask.weight.push_back(t * t * (3.0 - 2.0 * t));
    }
    return mask;
}

bool writeBlendshapeDemoData(const std::string& modelDir, std::string& error) {
    const fs::path root = fs::path(modelDir) / "BS";
    for (const bs::RegionEntry& region : bs::kRegions) {
        std::error_code ec;
        fs::create_directories(root / region.directory, ec);
        if (ec) {
            error = "cannot create " + (root / region.directory).string() + ": " + ec.message();
            return false;
        }
    }
    const detail::DemoFaceModel model;
    for (int f = 0; f < bs::kBackendFileCount; ++f) {
        const bs::MatrixFileEntry& entry = bs::kBackendFiles[f];
        const fs::path path = root / entry.name;
        if (f != bs::kBasisFile) {
            if (!writeSet(path, entry, smallSet(f, model), error)) return false;
            continue;
        }
        const auto basisRows = [&](Index first, Index count, double* rows) {
            model.basisRows(first, count, rows);
        };
        if (!writeAtomically(
                path,
                [&](const std::string& temporary) {
                    return kestrel::meridian::writeMatrixFileRows(temporary, entry.rows, entry.cols,
                                                                  basisRows);
                },
                error))
            return false;
    }
    for (int r = 0; r < bs::kRegionCount; ++r) {
        const bs::RegionEntry& entry = bs::kRegions[r];
        const fs::path dir = root / entry.directory;
        const DemoRegionMask mask = demoRegionMask(r);
        std::vector<double> weights;
        for (int a = 0; a < 3; ++a)
            weights.insert(weights.end(), mask.weight.begin(), mask.weight.end());
        if (!writeSet(dir / entry.all.name, entry.all, toDoubles(mask.all), error) ||
            !writeSet(dir / entry.fixed.name, entry.fixed, toDoubles(mask.fixed), error) ||
            !writeSet(dir / entry.weights.name, entry.weights, weights, error))
            return false;
    }
    return true;
}

}  // namespace meridian::demo
