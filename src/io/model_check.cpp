#include "io/model_check.h"

#include <cmath>
#include <filesystem>
#include <vector>

#include "blendshape/backend_files.h"
#include "eyes/aligner_data.h"
#include "eyes/eye_tables.h"
#include "io/input_error.h"
#include "io/matrix_file.h"
#include "io/strict_mesh.h"
#include "io/strict_tables.h"

namespace kestrel::meridian {

namespace {

namespace fs = std::filesystem;
namespace bs = blendshape;

constexpr int64_t kTemplateVertices = 20481;

std::string modelFile(const std::string& dir, const std::string& name) {
    return (fs::path(dir) / name).string();
}

void requireCount(const std::string& path, const char* what, int64_t found, int64_t expected,
                  const std::string& because) {
    if (found != expected)
        throw InputError(InputFault::wrongCount, path,
                         std::to_string(found) + " " + what + ", but " + because + " needs " +
                             std::to_string(expected));
}

void requireIndices(const std::string& path, const char* what, const std::vector<int32_t>& list,
                    size_t stride, int64_t count, const std::string& of) {
    for (size_t k = 0; k < list.size(); ++k)
        if (list[k] < 0 || list[k] >= count)
            throw InputError(InputFault::indexOutOfRange, path,
                             "entry " + std::to_string(k / stride) + " names " + what + " " +
                                 std::to_string(list[k]) + ", outside 0.." +
                                 std::to_string(count - 1) + " of " + of);
}

/// Sources of a correspondence (pair sources or triangle corners) in
/// 0..sourceCount-1.
void requireSources(const std::string& path, const Correspondence& record, int64_t sourceCount,
                    const std::string& source) {
    if (record.isPairForm())
        requireIndices(path, "source vertex", record.pairSources, 1, sourceCount, source);
    else
        requireIndices(path, "source vertex", record.triangles, 3, sourceCount, source);
}

StrictMesh mesh(const std::string& path) {
    return readStrictMesh(path);
}

Correspondence templateToHead(const std::string& dir) {
    const std::string path = modelFile(dir, "idx_tavi2head.corresp");
    Correspondence record = readStrictCorrespondence(path);
    requireSources(path, record, kTemplateVertices, "the 20481 template vertices");
    return record;
}

void checkHeadSwap(const std::string& dir) {
    const int64_t headCount = static_cast<int64_t>(templateToHead(dir).size());
    const std::string path = modelFile(dir, "idx_head2ue4.corresp");
    requireSources(path, readStrictCorrespondence(path), headCount,
                   "the head vertices of idx_tavi2head.corresp");
}

void checkEngineMesh(const std::string& dir, const char* meshName, const char* orderName) {
    const int64_t entries =
        static_cast<int64_t>(readStrictCorrespondence(modelFile(dir, orderName)).size());
    const std::string path = modelFile(dir, meshName);
    requireCount(path, "vertices", mesh(path).vertexCount(), entries, orderName);
}

void checkTangentTemplate(const std::string& dir) {
    const std::string path = dir + "/TBN/std_20481_with_UV_F_TF.obj";
    const StrictMesh m = mesh(path);
    requireCount(path, "vertices", m.vertexCount(), kTemplateVertices, "the template topology");
    if (m.faceCount() == 0 || m.textureFaces.empty())
        throw InputError(InputFault::malformed, path,
                         "no faces with texture coordinates; tangent frames need them");
}

void checkEyeballFit(const std::string& dir) {
    // The fit appends its file name to the directory as it stands.
    const std::string path = dir + "/eyeball/new_eye.ply";
    const int64_t count = mesh(path).vertexCount();
    if (count < eyes::kEyeballMinVertexCount)
        throw InputError(InputFault::wrongCount, path,
                         std::to_string(count) + " vertices; the eyeball fit needs at least " +
                             std::to_string(eyes::kEyeballMinVertexCount));
}

void checkAligner(const std::string& dir, const AlignerFiles& files, const char* leftWeights,
                  const char* rightWeights) {
    const int64_t headCount = static_cast<int64_t>(templateToHead(dir).size());
    const std::string meshPath = modelFile(dir, files.mesh);
    const int64_t meshCount = mesh(meshPath).vertexCount();
    const std::string meshName = std::string("the vertices of ") + files.mesh;
    const struct {
        const char* file;
        const char* weights;
    } sides[] = {{files.headToMesh, nullptr},
                 {files.headToMeshLeft, leftWeights},
                 {files.headToMeshRight, rightWeights}};
    for (const auto& side : sides) {
        const std::string path = modelFile(dir, side.file);
        const Correspondence record = readStrictCorrespondence(path);
        requireIndices(path, "head vertex", record.targets, 1, headCount,
                       "the head vertices of idx_tavi2head.corresp");
        requireSources(path, record, meshCount, meshName);
        if (!side.weights) continue;
        // The weights are optional; when present there is one per entry.
        const std::string weightPath = modelFile(dir, side.weights);
        if (!fs::exists(weightPath)) continue;
        requireCount(weightPath, "weights",
                     static_cast<int64_t>(readStrictWeights(weightPath).size()),
                     static_cast<int64_t>(record.size()), side.file);
    }
    const std::string exportPath = modelFile(dir, files.meshToExport);
    requireSources(exportPath, readStrictCorrespondence(exportPath), meshCount, meshName);
    for (const char* list : {files.leftVertices, files.rightVertices}) {
        const std::string path = modelFile(dir, list);
        requireIndices(path, "mesh vertex", readStrictIndexList(path), 1, meshCount, meshName);
    }
}

void checkEyelashAligner(const std::string& dir) {
    checkAligner(dir, kEyelashAlignerFiles, nullptr, nullptr);
    const std::string path = modelFile(dir, kEyelashBlendshapeFile);
    requireCount(path, "vertices", mesh(path).vertexCount(),
                 mesh(modelFile(dir, kEyelashAlignerFiles.mesh)).vertexCount(),
                 kEyelashAlignerFiles.mesh);
}

void checkMatrixFile(const std::string& path, const bs::MatrixFileEntry& entry, bool values) {
    std::error_code ec;
    if (!fs::is_regular_file(path, ec))
        throw InputError(InputFault::missingFile, path, "no such file");
    const uintmax_t need = 8ull * static_cast<uintmax_t>(entry.rows) * entry.cols;
    const uintmax_t size = fs::file_size(path, ec);
    if (ec || size != need)
        throw InputError(size < need ? InputFault::truncated : InputFault::wrongCount, path,
                         std::to_string(size) + " bytes, but " + std::to_string(entry.rows) +
                             " x " + std::to_string(entry.cols) + " doubles take exactly " +
                             std::to_string(need));
    if (!values) return;
    Eigen::MatrixXd matrix;
    const MatrixFileStatus status = readMatrixFile(path, entry.rows, entry.cols, matrix);
    if (status != MatrixFileStatus::ok)
        throw InputError(InputFault::unreadable, path,
                         matrixFileMessage(status, path, entry.rows, entry.cols));
    for (Eigen::Index k = 0; k < matrix.size(); ++k)
        if (!std::isfinite(matrix.data()[k]))
            throw InputError(InputFault::nonFinite, path,
                             "row " + std::to_string(k % matrix.rows()) + ", column " +
                                 std::to_string(k / matrix.rows()) + " is not finite");
}

void checkBlendshapeFiles(const std::string& dir) {
    // The same path the loader forms: the directory, "/BS/", the name. The
    // 222 MB basis is checked for its size only; every other set is small
    // enough to be read for its values too.
    const std::string bsDir = dir + "/BS/";
    for (size_t k = 0; k < bs::kBackendFiles.size(); ++k)
        checkMatrixFile(bsDir + bs::kBackendFiles[k].name, bs::kBackendFiles[k],
                        static_cast<int>(k) != bs::kBasisFile);
    for (const bs::RegionEntry& region : bs::kRegions)
        for (const bs::MatrixFileEntry& entry : {region.all, region.fixed, region.weights})
            checkMatrixFile(bsDir + region.directory + entry.name, entry, true);
}

}  // namespace

void checkModel(const std::string& modelDir, ModelTask task) {
    switch (task) {
        case ModelTask::headSwap:
            return checkHeadSwap(modelDir);
        case ModelTask::engineHeadMesh:
            return checkEngineMesh(modelDir, "ue4_head.obj", "idx_head2ue4.corresp");
        case ModelTask::tangentFrames:
            return checkTangentTemplate(modelDir);
        case ModelTask::eyeballFit:
            return checkEyeballFit(modelDir);
        case ModelTask::posedEyeMesh: {
            mesh(modelDir + "/eyeball/color_eye/EyeNew.obj");
            return;
        }
        case ModelTask::eyeballAligner:
            return checkAligner(modelDir, kEyeballAlignerFiles,
                                "eyeball/w_head2eyeball_left.corresp",
                                "eyeball/w_head2eyeball_right.corresp");
        case ModelTask::eyelashAligner:
            return checkEyelashAligner(modelDir);
        case ModelTask::eyeballExportMesh:
            return checkEngineMesh(modelDir, "eyeball/ue4_eyeball.obj",
                                   "eyeball/idx_eyeball2ue4.corresp");
        case ModelTask::eyelashExportMesh:
            return checkEngineMesh(modelDir, "eyelash/ue4_eyelash.obj",
                                   "eyelash/idx_eyelash2ue4.corresp");
        case ModelTask::blendshapes:
            return checkBlendshapeFiles(modelDir);
    }
}

void checkModel(const std::string& modelDir, std::initializer_list<ModelTask> tasks) {
    for (ModelTask task : tasks) checkModel(modelDir, task);
}

}  // namespace kestrel::meridian
