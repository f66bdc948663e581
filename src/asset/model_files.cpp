#include "model_files.h"

#include <filesystem>

#include "blendshape/backend_files.h"
#include "common/model_paths.h"
#include "export_error.h"
#include "eyes/aligner_data.h"

namespace meridian::exporter {

namespace {

namespace fs = std::filesystem;
namespace bs = kestrel::meridian::blendshape;
namespace km = kestrel::meridian;

void requireFile(const std::string& path, AssetPart part) {
    if (!fs::is_regular_file(path)) throw ExportError("missing model file " + path, part);
}

void requireMatrixFile(const std::string& path, const bs::MatrixFileEntry& entry) {
    requireFile(path, AssetPart::kBlendshapes);
    const uintmax_t need = 8ull * static_cast<uintmax_t>(entry.rows) * entry.cols;
    const uintmax_t size = fs::file_size(path);
    if (size < need)
        throw ExportError("short blendshape data file " + path + ": " + std::to_string(size) +
                              " bytes, " + std::to_string(entry.rows) + " x " +
                              std::to_string(entry.cols) + " doubles need " + std::to_string(need),
                          AssetPart::kBlendshapes);
}

void requireAlignerFiles(const std::string& modelDir, const km::AlignerFiles& files) {
    for (const char* name :
         {files.mesh, files.headToMesh, files.headToMeshLeft, files.headToMeshRight,
          files.meshToExport, files.leftVertices, files.rightVertices})
        requireFile(modelPath(modelDir, name), AssetPart::kEyes);
}

}  // namespace

std::string modelPath(const std::string& modelDir, const std::string& name) {
    return (fs::path(modelDir) / name).string();
}

void checkHeadFiles(const std::string& modelDir) {
    for (const char* name :
         {km::model_files::kTemplateToHead, km::model_files::kHeadToEngine, kHeadTemplateFile})
        requireFile(modelPath(modelDir, name), AssetPart::kHead);
}

void checkBlendshapeFiles(const std::string& modelDir) {
    // The same path the loader forms: the directory, "/BS/", the name.
    const std::string dir = km::model_files::blendshapeFolder(modelDir);
    for (const bs::MatrixFileEntry& entry : bs::kBackendFiles)
        requireMatrixFile(dir + entry.name, entry);
    for (const bs::RegionEntry& region : bs::kRegions)
        for (const bs::MatrixFileEntry& entry : {region.all, region.fixed, region.weights})
            requireMatrixFile(dir + region.directory + entry.name, entry);
}

void checkEyeFiles(const std::string& modelDir) {
    // The plain eyeball fit appends its file name to the directory as it stands.
    requireFile(km::model_files::eyeballPlyPath(modelDir), AssetPart::kEyes);
    requireFile(modelPath(modelDir, km::model_files::kTemplateToHead), AssetPart::kEyes);
    requireAlignerFiles(modelDir, km::kEyeballAlignerFiles);
    requireAlignerFiles(modelDir, km::kEyelashAlignerFiles);
    requireFile(modelPath(modelDir, km::kEyelashBlendshapeFile), AssetPart::kEyes);
    for (const char* name : {kEyeballTemplateFile, kEyelashTemplateFile})
        requireFile(modelPath(modelDir, name), AssetPart::kEyes);
}

}  // namespace meridian::exporter
