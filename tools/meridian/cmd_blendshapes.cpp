// `meridian blendshapes`: the six dynamic blendshapes of a head as OBJ
// files, and a picture of them side by side.
#include <chrono>
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "blendshape/blendshape_engine.h"
#include "blendshape_sheet.h"
#include "cli_common.h"
#include "commands.h"
#include "common/model_paths.h"
#include "io/atomic_file.h"
#include "io/model_check.h"
#include "io/planar.h"
#include "io/strict_mesh.h"
#include "modern_handles.h"
#include "obj_text.h"

namespace meridian::cli {

namespace {

namespace fs = std::filesystem;
using kestrel::meridian::CBlendshapeEngine;
namespace bs = kestrel::meridian::blendshape;

struct BlendshapeOptions {
    std::string model;
    std::string in;
    std::string outDir;
};

std::string shapeName(int s) {
    return s == 0 ? "neutral" : bs::kRegions[s - 1].name;
}

using BlendshapesHandle = OwnedHandle<meridian_blendshapes, meridian_blendshapes_close>;

BlendshapesHandle loadEngine(const std::string& modelDir) {
    std::cout << "loading blendshape data from " << modelDir << "/BS/ ..." << std::flush;
    const auto start = std::chrono::steady_clock::now();
    BlendshapesHandle engine(meridian_blendshapes_open(modelDir.c_str()));
    if (!engine) {
        std::cout << std::endl;
        throw CommandError(std::string("cannot load the blendshape data: ") +
                           meridian_open_error());
    }
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    std::cout << " done in " << took.count() << " s" << std::endl;
    return engine;
}

void runBlendshapes(const BlendshapeOptions& options) {
    requireModelDirectory(options.model);
    const std::vector<float> head = readHeadPlanar(options.in);
    namespace km = kestrel::meridian;
    const std::string templatePath =
        kestrel::meridian::model_files::tangentFrameTemplatePath(options.model);
    const bool haveTemplate = fs::exists(templatePath);
    // Refused outputs first; the folder itself is created only once the model passes.
    if (fs::exists(options.outDir) && !fs::is_directory(options.outDir))
        throw CommandError("cannot create the output directory " + options.outDir);
    km::checkModel(options.model, km::ModelTask::blendshapes);
    if (haveTemplate) km::checkModel(options.model, km::ModelTask::tangentFrames);
    std::error_code ec;
    fs::create_directories(options.outDir, ec);
    if (ec || !fs::is_directory(options.outDir))
        throw CommandError("cannot create the output directory " + options.outDir);

    const BlendshapesHandle engine = loadEngine(options.model);
    std::vector<float> planarShapes(meridian_blendshapes_shape_count() * head.size());
    requireOk(meridian_blendshapes_run(engine.get(), head.data(), head.size(), planarShapes.data(),
                                       planarShapes.size()),
              "the blendshapes", meridian_blendshapes_last_error(engine.get()));
    std::vector<Eigen::Matrix3Xd> shapes;
    for (size_t s = 0; s < meridian_blendshapes_shape_count(); ++s)
        shapes.push_back(kestrel::meridian::planarToVertices(planarShapes.data() + s * head.size(),
                                                             CBlendshapeEngine::kHeadVertexCount));

    km::AtomicFileSet outputs;
    for (int s = 0; s < CBlendshapeEngine::kShapeCount; ++s) {
        const std::string path =
            (fs::path(options.outDir) / ("bs_" + std::to_string(s) + "_" + shapeName(s) + ".obj"))
                .string();
        requireWritable(path);
        outputs.add(path, haveTemplate ? objWithVertexLines(templatePath, shapes[s])
                                       : vertexObjText(shapes[s]));
    }
    if (!haveTemplate) {
        outputs.commit();
        std::cout << "wrote " << CBlendshapeEngine::kShapeCount << " shapes to " << options.outDir
                  << " (vertices only: no template mesh " << templatePath << ")" << std::endl;
        return;
    }

    const km::StrictMesh templateMesh = km::readStrictMesh(templatePath);
    const Eigen::Matrix3Xi zeroBased =
        Eigen::Map<const Eigen::Matrix3Xi>(templateMesh.faces.data(), 3, templateMesh.faceCount());
    // The ears are seen from their own side, everything else from the front.
    const Eigen::Vector3d front(0, -1, 0), left(1, 0, 0), right(-1, 0, 0);
    const Eigen::Vector3d views[] = {front, front, front, front, left, right};
    std::vector<SheetPanel> panels;
    for (int s = 0; s < CBlendshapeEngine::kShapeCount; ++s)
        panels.push_back({std::to_string(s) + " " + shapeName(s), shapes[s], views[s]});
    const std::string picture = (fs::path(options.outDir) / "blendshapes.png").string();
    // The shapes and their picture appear together, or none does.
    writeBlendshapeSheet(picture, panels, zeroBased, &outputs);
    outputs.commit();
    std::cout << "wrote " << CBlendshapeEngine::kShapeCount << " shapes to " << options.outDir
              << std::endl;
    std::cout << "wrote " << picture << std::endl;
}

}  // namespace

void addBlendshapesCommand(CLI::App& app) {
    auto options = std::make_shared<BlendshapeOptions>();
    CLI::App* command = app.add_subcommand(
        "blendshapes",
        "Dynamic blendshapes of a template-topology head: the head and five local deformations "
        "(cheeks, nose, ears) as OBJ files, and a picture of them");
    command->add_option("--model", options->model, "Model directory (holds BS/ and TBN/)")
        ->required();
    command->add_option("--in", options->in, "Head mesh (.obj or .ply, 20481 vertices)")
        ->required();
    command
        ->add_option(
            "--out-dir", options->outDir,
            "Directory for bs_<s>_<name>.obj and blendshapes.png (created if missing; \"-\" "
            "is not standard output)")
        ->required();
    command->callback([options] { runBlendshapes(*options); });
}

}  // namespace meridian::cli
