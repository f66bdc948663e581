#include "head_export.h"

#include <algorithm>
#include <filesystem>

#include "blendshape/backend_files.h"
#include "blendshape/parallel_tasks.h"
#include "common/model_paths.h"
#include "common/template_head.h"
#include "eyes/aligner_data.h"
#include "eyes/eyelash_aligner.h"
#include "io/correspondence.h"
#include "io/planar.h"
#include "model_files.h"

namespace meridian::exporter {

namespace {

namespace km = kestrel::meridian;
namespace bs = kestrel::meridian::blendshape;

constexpr Eigen::Index kTemplateVertexCount = km::kTemplateHeadVertexCount;
constexpr size_t kShapeFloats = 3 * kTemplateVertexCount;

const Surface kSkin{"skin", {0.75, 0.45, 0.35, 1.0}, 0.6, false};
const Surface kEyeball{"eyeball", {0.9, 0.9, 0.88, 1.0}, 0.2, false};
// Lashes are open fringes, seen from both sides.
const Surface kEyelash{"eyelash", {0.03, 0.02, 0.015, 1.0}, 0.8, true};

km::Correspondence loadCorrespondenceFile(const std::string& path, AssetPart part) {
    km::Correspondence record;
    km::Error error;
    if (!km::loadCorrespondence(record, path, error))
        throw ExportError("cannot read the correspondence " + path, part);
    return record;
}

tinygltf::Value numbers(const double* values, int count) {
    tinygltf::Value::Array array;
    for (int i = 0; i < count; ++i) array.emplace_back(values[i]);
    return tinygltf::Value(std::move(array));
}

int idCountOf(const std::vector<int>& copyOf) {
    return copyOf.empty() ? 0 : *std::max_element(copyOf.begin(), copyOf.end()) + 1;
}

/// Columns `which` of a 3 by #V (or 2 by #V) matrix.
template <typename Matrix>
Matrix gather(const Matrix& all, const std::vector<int>& which) {
    Matrix part(all.rows(), static_cast<Eigen::Index>(which.size()));
    for (size_t i = 0; i < which.size(); ++i)
        part.col(static_cast<Eigen::Index>(i)) = all.col(which[i]);
    return part;
}

}  // namespace

HeadExporter::HeadExporter(const ExportSettings& settings, StageLog& log) : settings_(settings) {
    const std::string& dir = settings_.modelDir;
    if (!std::filesystem::is_directory(dir)) throw ExportError("model directory not found: " + dir);

    log.run("model check", [&] {
        checkHeadFiles(dir);
        if (settings_.blendshapes) checkBlendshapeFiles(dir);
        if (settings_.eyes) checkEyeFiles(dir);
        const km::Correspondence engineOrder = loadCorrespondenceFile(
            modelPath(dir, km::model_files::kHeadToEngine), AssetPart::kHead);
        head_.count = static_cast<Eigen::Index>(engineOrder.size());
        head_.layout = readEngineMeshLayout(modelPath(dir, kHeadTemplateFile), head_.count);
        head_.copyOf = copyIds(engineOrder);
        head_.idCount = idCountOf(head_.copyOf);
        head_.cornerIds = cornerIds(head_.layout.faces, head_.copyOf);
        if (!settings_.eyes) return;
        const km::AlignerFiles &ball = km::kEyeballAlignerFiles, &lash = km::kEyelashAlignerFiles;
        eyeballs_ = loadEyeMesh(kEyeballTemplateFile, ball.meshToExport, ball.leftVertices,
                                ball.rightVertices);
        eyelashes_ = loadEyeMesh(kEyelashTemplateFile, lash.meshToExport, lash.leftVertices,
                                 lash.rightVertices);
    });

    km::Error error;
    const auto unusable = [&](const std::string& what, AssetPart part) {
        return ExportError("cannot load " + what + " of " + dir + ": " + error.message, part);
    };
    log.run("load head swap", [&] {
        if (!headSwap_.initialise(dir, error)) throw unusable("the head swap", AssetPart::kHead);
    });
    if (settings_.blendshapes)
        log.run("load blendshape data", [&] {
            blendshapes_ = km::CBlendshapeEngine::load(dir, error);
            if (!blendshapes_) throw unusable("the blendshape data", AssetPart::kBlendshapes);
        });
    if (settings_.eyes)
        log.run("load eye models", [&] {
            eyeballFit_ = std::make_unique<km::EyeballFitState>();
            if (!eyeballFit_->load(dir, error))
                throw unusable("the template eyeball", AssetPart::kEyes);
            eyeballs_.aligner = std::make_unique<km::CKOVAEyeballAligner>();
            if (!eyeballs_.aligner->init(dir, error))
                throw unusable("the eyeball aligner", AssetPart::kEyes);
            eyelashes_.aligner = std::make_unique<km::CKOVAEyelashAligner>();
            if (!eyelashes_.aligner->init(dir, error))
                throw unusable("the eyelash aligner", AssetPart::kEyes);
        });
}

HeadExporter::~HeadExporter() = default;

HeadExporter::EyeMesh HeadExporter::loadEyeMesh(const char* templateFile, const char* exportFile,
                                                const char* leftFile, const char* rightFile) const {
    const std::string& dir = settings_.modelDir;
    EyeMesh eye;
    try {
        const km::Correspondence exportOrder =
            loadCorrespondenceFile(modelPath(dir, exportFile), AssetPart::kEyes);
        eye.mesh.count = static_cast<Eigen::Index>(exportOrder.size());
        eye.mesh.layout = readEngineMeshLayout(modelPath(dir, templateFile), eye.mesh.count);
        eye.mesh.copyOf = copyIds(exportOrder);
        std::vector<int32_t> left, right;
        km::Error error;
        if (!km::loadIndexList(left, modelPath(dir, leftFile), error) ||
            !km::loadIndexList(right, modelPath(dir, rightFile), error))
            throw ExportError("cannot read the side lists " + modelPath(dir, leftFile) + ", " +
                              rightFile);
        eye.sides = splitSides(exportOrder, left, right, eye.mesh.layout.faces,
                               modelPath(dir, templateFile));
    } catch (const ExportError& e) {
        throw ExportError(e.what(), AssetPart::kEyes);
    }
    return eye;
}

std::vector<float> HeadExporter::swap(const float* head) const {
    if (headSwap_.engineVertexCount() != head_.count)
        throw ExportError("the head swap gives " + std::to_string(headSwap_.engineVertexCount()) +
                          " vertices; the engine-order mesh has " + std::to_string(head_.count));
    std::vector<float> out(3 * static_cast<size_t>(head_.count));
    using Planar = km::CHeadConverter::PlanarVertices;
    headSwap_.swap(Eigen::Map<const Planar>(head, 3, kTemplateVertexCount),
                   Eigen::Map<Planar>(out.data(), 3, head_.count));
    return out;
}

HeadAsset HeadExporter::run(const std::vector<float>& head, StageLog& log) const {
    return run(head, nullptr, log);
}

HeadAsset HeadExporter::run(const std::vector<float>& head, const float* given,
                            StageLog& log) const {
    if (head.size() != kShapeFloats)
        throw ExportError("a head in the template topology has " +
                          std::to_string(kTemplateVertexCount) + " vertices");
    std::vector<float> engineHead;
    log.run("head swap", [&] { engineHead = swap(head.data()); });

    std::vector<std::vector<float>> shapes;
    if (settings_.blendshapes)
        log.run("blendshapes", [&] {
            std::vector<float> all;
            if (given == nullptr) {
                all.resize(km::CBlendshapeEngine::kShapeFloats);
                blendshapes_->generate(head.data(), all.data());
                given = all.data();
            }
            // Shape 0 is the head itself; each region's shape goes through the
            // same swap as the head.
            for (size_t s = 1; s <= bs::kRegions.size(); ++s)
                shapes.push_back(swap(given + s * kShapeFloats));
        });

    HeadAsset asset;
    if (settings_.eyes) log.run("eyes", [&] { addEyes(head, asset); });

    log.run("head normals and targets", [&] { addHead(engineHead, shapes, asset.head); });

    asset.extras = tinygltf::Value(tinygltf::Value::Object{
        {"metres_per_model_unit", tinygltf::Value(settings_.transform.metresPerUnit)},
        {"model_axes", tinygltf::Value(std::string("X = x, Y = z, Z = -y"))}});
    return asset;
}

namespace {

/// One mesh of the normals stage (the head or a shape): its positions and
/// its normals per copy id, both in glTF.
struct MappedMesh {
    Eigen::Matrix3Xd positions;   ///< 3 by #V
    std::vector<double> normals;  ///< 3 by #ids, x y z of id i from 3 * i
};

}  // namespace

void HeadExporter::addHead(const std::vector<float>& engineHead,
                           const std::vector<std::vector<float>>& shapes, MeshNode& node) const {
    // Kept by each thread that exports (about 1 MB per mesh for the demo
    // head; two meshes' worth on one thread), so that an export reuses pages
    // already mapped instead of having fresh ones zeroed. The tasks below
    // name it through a reference: inside a task running on another thread
    // the name of a thread_local is that thread's own.
    thread_local std::vector<MappedMesh> kept;
    std::vector<MappedMesh>& meshes = kept;
    const int meshCount = 1 + static_cast<int>(shapes.size());
    if (meshes.size() < static_cast<size_t>(meshCount)) meshes.resize(meshCount);
    const Eigen::Index count = head_.count;
    const int* const idOf = head_.copyOf.data();

    node.name = "head";
    node.uvs = head_.layout.uvs;
    node.faces = head_.layout.faces;
    node.surface = kSkin;
    node.positions.resize(3, count);
    node.normals.resize(3, count);
    for (size_t s = 0; s < shapes.size(); ++s)
        node.targets.push_back(
            {bs::kRegions[s].name, Eigen::Matrix3Xf(3, count), Eigen::Matrix3Xf(3, count)});

    // The meshes are independent until the targets take their differences
    // from the head: on the blendshape engine's threads when it has more
    // than one, each mesh with storage of its own. On one thread (as the
    // batch runs) each shape is written while its arrays are still in the
    // cache, all through one set of storage. Which thread maps a mesh does
    // not change its bits.
    const int threads = blendshapes_ ? blendshapes_->threadCount() : 1;
    const bool inTurn = threads < 2 || meshCount < 2;
    const auto storageOf = [&](int m) -> MappedMesh& {
        return meshes[static_cast<size_t>(inTurn ? std::min(m, 1) : m)];
    };
    const auto map = [&](int m) {
        MappedMesh& mesh = storageOf(m);
        settings_.transform.fromPlanar(m == 0 ? engineHead.data() : shapes[m - 1].data(), count,
                                       mesh.positions);
        seamlessNormalsPerId(mesh.positions.data(), head_.layout.faces, head_.cornerIds,
                             head_.idCount, mesh.normals);
    };
    // Each array is written in one pass over the vertices, straight from the
    // double values into the asset's floats.
    const auto write = [&](int m) {
        const double* const base = meshes[0].positions.data();
        const double* const baseNormal = meshes[0].normals.data();
        if (m == 0) {
            node.positions = meshes[0].positions.cast<float>();
            for (Eigen::Index v = 0; v < count; ++v)
                for (int r = 0; r < 3; ++r)
                    node.normals(r, v) = static_cast<float>(baseNormal[3 * idOf[v] + r]);
            return;
        }
        MorphTarget& target = node.targets[static_cast<size_t>(m - 1)];
        const double* const shape = storageOf(m).positions.data();
        const double* const shapeNormal = storageOf(m).normals.data();
        float* const positionOffset = target.positionOffsets.data();
        float* const normalOffset = target.normalOffsets.data();
        for (Eigen::Index v = 0; v < count; ++v) {
            const int id = idOf[v];
            for (int r = 0; r < 3; ++r) {
                positionOffset[3 * v + r] = static_cast<float>(shape[3 * v + r] - base[3 * v + r]);
                normalOffset[3 * v + r] =
                    static_cast<float>(shapeNormal[3 * id + r] - baseNormal[3 * id + r]);
            }
        }
    };
    if (inTurn) {
        for (int m = 0; m < meshCount; ++m) {
            map(m);
            write(m);
        }
        return;
    }
    bs::runTasks(meshCount, threads, map);
    bs::runTasks(meshCount, threads, write);
}

AssetQuality HeadExporter::quality(const std::vector<float>& head, const HeadAsset& asset) const {
    AssetQuality quality = measureAsset(asset);
    if (eyeballs_.aligner && head.size() == kShapeFloats) {
        const km::SimilarityTransform whole = eyeballs_.aligner->wholePlacement(
            km::planarToVertices(head.data(), kTemplateVertexCount));
        quality.eyeScale = whole.scale;
        quality.eyeScaleClamped = whole.scale != whole.unclampedScale;
    }
    return quality;
}

void HeadExporter::addEyes(const std::vector<float>& head, HeadAsset& asset) const {
    const Eigen::Matrix3Xd templateHead = km::planarToVertices(head.data(), kTemplateVertexCount);
    eyeballFit_->fit(templateHead, 0);
    const km::EyeballReport report = eyeballFit_->report();
    const double* angles[2] = {report.eye0Angles, report.eye1Angles};
    const double* positions[2] = {report.eye0Position, report.eye1Position};
    const double scale = report.scale;

    const ModelToGltf& toGltf = settings_.transform;
    const struct {
        const EyeMesh& eye;
        const char* name;
        const Surface& surface;
    } kinds[] = {{eyeballs_, "eyeball", kEyeball}, {eyelashes_, "eyelash", kEyelash}};
    for (const auto& kind : kinds) {
        const EngineMesh& mesh = kind.eye.mesh;
        Eigen::Matrix3Xd aligned;
        if (kind.eye.aligner->apply(templateHead, aligned) != mesh.count)
            throw ExportError(
                std::string("the ") + kind.name + " aligner gave an unexpected " + "vertex count",
                AssetPart::kEyes);
        // Through float, as the aligner's C interface hands it out.
        std::vector<float> out(3 * static_cast<size_t>(mesh.count));
        km::matrixToPlanar(aligned, out.data());
        const Eigen::Matrix3Xd inModel = km::planarToVertices(out.data(), mesh.count);
        const Eigen::Matrix3Xd placed = toGltf(inModel);
        const Eigen::Matrix3Xd normals = seamlessNormals(placed, mesh.layout.faces, mesh.copyOf);

        // Each eyeball carries the plain fit's pose of the eye nearest to it.
        const auto centreOf = [&](int side) -> Eigen::Vector3d {
            return gather(inModel, kind.eye.sides[static_cast<size_t>(side)].vertices)
                .rowwise()
                .mean();
        };
        const auto distance = [&](int eye, int side) {
            return (Eigen::Vector3d(positions[eye]) - centreOf(side)).norm();
        };
        const bool crossed =
            distance(0, kRight) + distance(1, kLeft) < distance(0, kLeft) + distance(1, kRight);
        const int eyeOfSide[2] = {crossed ? 1 : 0, crossed ? 0 : 1};

        for (int side : {kLeft, kRight}) {
            const MeshSide& part = kind.eye.sides[static_cast<size_t>(side)];
            MeshNode node;
            node.name = std::string(kind.name) + (side == kLeft ? "_left" : "_right");
            const Eigen::Matrix3Xd points = gather(placed, part.vertices);
            // The node sits at the middle of its mesh's bounds: an eyeball
            // turns about it.
            node.translation = 0.5 * (points.rowwise().minCoeff() + points.rowwise().maxCoeff());
            node.positions = (points.colwise() - node.translation).cast<float>();
            node.normals = gather(normals, part.vertices).cast<float>();
            if (mesh.layout.uvs.cols() > 0) node.uvs = gather(mesh.layout.uvs, part.vertices);
            node.faces = part.faces;
            node.surface = kind.surface;
            if (&kind.eye == &eyeballs_) {
                const int e = eyeOfSide[side];
                node.extras = tinygltf::Value(tinygltf::Value::Object{
                    {"eyeball_pose",
                     tinygltf::Value(tinygltf::Value::Object{{"eye", tinygltf::Value(e)},
                                                             {"template_index", tinygltf::Value(0)},
                                                             {"angles_deg", numbers(angles[e], 3)},
                                                             {"position", numbers(positions[e], 3)},
                                                             {"scale", tinygltf::Value(scale)}})}});
            }
            asset.parts.push_back(std::move(node));
        }
    }
}

}  // namespace meridian::exporter
