// `meridian eyes`: fits the eyeballs (poses) and the eyeball and eyelash
// meshes to a head, writes them as OBJ files and draws a preview.
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "cli_common.h"
#include "commands.h"
#include "common/model_paths.h"
#include "debug/pose_debug.h"
#include "eyes_preview.h"
#include "io/atomic_file.h"
#include "io/model_check.h"
#include "io/planar.h"
#include "io/strict_mesh.h"
#include "modern_handles.h"
#include "obj_text.h"

namespace meridian::cli {

namespace {

namespace fs = std::filesystem;
namespace km = kestrel::meridian;

struct EyesOptions {
    std::string model;
    std::string in;
    std::string outDir;
};

struct Mesh {
    Eigen::Matrix3Xd vertices;
    Eigen::Matrix3Xi faces;  // 0-based
};

/// Vertices and 0-based faces of a mesh file, read strictly.
Mesh readMesh(const std::string& path) {
    const km::StrictMesh strict = km::readStrictMesh(path);
    return {Eigen::Map<const Eigen::Matrix3Xf>(strict.vertices.data(), 3, strict.vertexCount())
                .cast<double>(),
            Eigen::Map<const Eigen::Matrix3Xi>(strict.faces.data(), 3, strict.faceCount())};
}

/// The head's faces: the template's, else those of the input OBJ.
Eigen::Matrix3Xi headFaces(const std::string& modelDir, const std::string& input) {
    for (const std::string& path : {km::model_files::tangentFrameTemplatePath(modelDir), input}) {
        if (!fs::is_regular_file(path)) continue;
        const Mesh mesh = readMesh(path);
        if (mesh.vertices.cols() == kHeadVertexCount && mesh.faces.cols() > 0) return mesh.faces;
    }
    return Eigen::Matrix3Xi(3, 0);
}

std::string objText(const std::vector<const Mesh*>& parts) {
    std::string text;
    char line[128];
    for (const Mesh* part : parts)
        for (Eigen::Index v = 0; v < part->vertices.cols(); ++v) {
            std::snprintf(line, sizeof line, "v %.9g %.9g %.9g\n", part->vertices(0, v),
                          part->vertices(1, v), part->vertices(2, v));
            text += line;
        }
    Eigen::Index offset = 1;
    for (const Mesh* part : parts) {
        for (Eigen::Index f = 0; f < part->faces.cols(); ++f)
            text += "f " + std::to_string(part->faces(0, f) + offset) + ' ' +
                    std::to_string(part->faces(1, f) + offset) + ' ' +
                    std::to_string(part->faces(2, f) + offset) + '\n';
        offset += part->vertices.cols();
    }
    return text;
}

/// An aligned mesh in export order: the model's export-order template with
/// its vertex lines replaced (the model check has matched its vertex count),
/// or plain vertex lines without one. Adds the file to `outputs` and returns
/// the mesh with the template's faces (none without a template).
Mesh exportMesh(const std::string& templatePath, const std::string& path,
                const Eigen::Matrix3Xd& vertices, km::AtomicFileSet& outputs) {
    Mesh mesh{vertices, Eigen::Matrix3Xi(3, 0)};
    if (fs::exists(templatePath)) {
        mesh.faces = readMesh(templatePath).faces;
        outputs.add(path, objWithVertexLines(templatePath, vertices));
    } else {
        outputs.add(path, objText({&mesh}));
    }
    return mesh;
}

/// Opens an aligner and fits its mesh to `head`, sized by its count query.
Eigen::Matrix3Xd runAligner(meridian_eye_aligner* opened, const std::string& what,
                            const std::vector<float>& head) {
    const EyeAlignerHandle aligner(requireOpened(opened, what));
    const auto count =
        static_cast<Eigen::Index>(meridian_eye_aligner_output_vertex_count(aligner.get()));
    std::vector<float> planar(3 * static_cast<size_t>(count));
    requireOk(meridian_eye_aligner_run(aligner.get(), head.data(), head.size(), planar.data(),
                                       planar.size()),
              what, meridian_eye_aligner_last_error(aligner.get()));
    return km::planarToVertices(planar.data(), count);
}

void printEye(int eye, const double* angles, const double* position) {
    std::printf("eye %d: angles %.4f %.4f %.4f deg, position %.4f %.4f %.4f\n", eye, angles[0],
                angles[1], angles[2], position[0], position[1], position[2]);
}

void runEyes(const EyesOptions& options) {
    requireModelDirectory(options.model);
    const std::vector<float> head = readHeadPlanar(options.in);
    const std::string eyeballTemplate =
        (fs::path(options.model) / "eyeball/ue4_eyeball.obj").string();
    const std::string lashTemplate = (fs::path(options.model) / "eyelash/ue4_eyelash.obj").string();
    // Refused outputs first; the folder itself is created only once the model passes.
    if (fs::exists(options.outDir) && !fs::is_directory(options.outDir))
        throw CommandError("cannot create the output directory " + options.outDir);
    km::checkModel(options.model, {km::ModelTask::eyeballFit, km::ModelTask::posedEyeMesh,
                                   km::ModelTask::eyeballAligner, km::ModelTask::eyelashAligner});
    // The export-order templates are optional; when present they must fit.
    if (fs::exists(eyeballTemplate))
        km::checkModel(options.model, km::ModelTask::eyeballExportMesh);
    if (fs::exists(lashTemplate)) km::checkModel(options.model, km::ModelTask::eyelashExportMesh);
    std::error_code ec;
    fs::create_directories(options.outDir, ec);
    if (ec || !fs::is_directory(options.outDir))
        throw CommandError("cannot create the output directory " + options.outDir);
    const auto out = [&](const char* name) { return (fs::path(options.outDir) / name).string(); };
    const std::string headOut = out("head_with_eyes.obj"), eyeballsOut = out("eyeballs_ue4.obj"),
                      lashesOut = out("eyelashes_ue4.obj"), previewOut = out("eyes_preview.png");
    for (const std::string& path : {headOut, eyeballsOut, lashesOut, previewOut})
        requireWritable(path);
    meridian_eye_poses poses{};
    {
        const EyeballFitHandle fit(requireOpened(meridian_eyeball_fit_open(options.model.c_str()),
                                                 "the eyeball model of " + options.model));
        requireOk(meridian_eyeball_fit_run(fit.get(), head.data(), head.size(), 0, &poses),
                  "the eyeball fit", meridian_eyeball_fit_last_error(fit.get()));
    }
    const auto& angles = poses.angles_deg;
    const auto& positions = poses.positions;
    const double scale = poses.scale;
    const Eigen::Matrix3Xd eyeballs =
        runAligner(meridian_eye_aligner_open_eyeball(options.model.c_str()),
                   "the eyeball aligner data of " + options.model, head);
    const Eigen::Matrix3Xd lashes =
        runAligner(meridian_eye_aligner_open_eyelash(options.model.c_str()),
                   "the eyelash aligner data of " + options.model, head);

    printEye(0, angles[0], positions[0]);
    printEye(1, angles[1], positions[1]);
    std::printf("scale: %.6f\n", scale);

    // The host's part: place the template eye with each reported pose.
    const Mesh eye = readMesh(km::model_files::templateEyeMeshPath(options.model));
    Mesh posed[2];
    for (int e = 0; e < 2; ++e) {
        const Eigen::Matrix3d rotation = km::reportedAnglesRotation(angles[e]);
        const Eigen::Vector3d position(positions[e][0], positions[e][1], positions[e][2]);
        posed[e] = {(scale * rotation * eye.vertices).colwise() + position, eye.faces};
    }
    const Mesh headMesh{km::planarToVertices(head.data(), kHeadVertexCount),
                        headFaces(options.model, options.in)};
    // The three meshes and the preview appear together, or none does.
    km::AtomicFileSet outputs;
    outputs.add(headOut, objText({&headMesh, &posed[0], &posed[1]}));
    exportMesh(eyeballTemplate, eyeballsOut, eyeballs, outputs);
    const Mesh lashMesh = exportMesh(lashTemplate, lashesOut, lashes, outputs);
    std::vector<PreviewLayer> layers{{headMesh.vertices, headMesh.faces, {0.72, 0.72, 0.72}, 0.0},
                                     {posed[0].vertices, posed[0].faces, {0.35, 0.6, 1.0}, 0.2},
                                     {posed[1].vertices, posed[1].faces, {0.35, 0.6, 1.0}, 0.2},
                                     {lashMesh.vertices, lashMesh.faces, {0.9, 0.3, 0.1}, 0.2}};
    layers[0].name = "head";
    layers[1].name = layers[2].name = "eyeballs, posed by the fit";
    layers[3].name = "eyelashes, aligned";
    writeEyesPreview(previewOut, std::move(layers), &outputs);
    outputs.commit();
    std::cout << "wrote " << headOut << " (head and both posed eyeballs)\n";
    std::cout << "wrote " << eyeballsOut << " (" << eyeballs.cols()
              << " aligned eyeball vertices)\n";
    std::cout << "wrote " << lashesOut << " (" << lashes.cols() << " aligned eyelash vertices)\n";
    std::cout << "wrote " << previewOut << " (front and side views)\n";
}

}  // namespace

void addEyesCommand(CLI::App& app) {
    auto options = std::make_shared<EyesOptions>();
    CLI::App* command = app.add_subcommand(
        "eyes", "Fit eyeballs and eyelashes to a head in the 20481-vertex template topology");
    command->add_option("--model", options->model, "Model directory (holds eyeball/, eyelash/)")
        ->required();
    command->add_option("--in", options->in, "Head mesh (.obj or .ply, 20481 vertices)")
        ->required();
    command
        ->add_option("--out-dir", options->outDir,
                     "Directory for the results (created if missing; \"-\" is not standard output)")
        ->required();
    command->callback([options] { runEyes(*options); });
}

}  // namespace meridian::cli
