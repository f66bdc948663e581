// `meridian eyes`: fits the eyeballs (poses) and the eyeball and eyelash
// meshes to a head, writes them as OBJ files and draws a preview.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "cli_common.h"
#include "commands.h"
#include "common/model_paths.h"
#include "debug/pose_debug.h"
#include "eyes_preview.h"
#include "io/correspondence.h"
#include "io/mesh_readers.h"
#include "io/planar.h"
#include "modern_handles.h"

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

/// Vertices and 0-based faces of an OBJ (no faces when it has none).
Mesh readMesh(const std::string& path) {
    const km::ObjMeshData obj = km::readObj(path);
    Mesh mesh;
    mesh.vertices =
        obj.vertices.rows() == 3 ? Eigen::Matrix3Xd(obj.vertices) : Eigen::Matrix3Xd(3, 0);
    if (obj.faces.rows() == 3)
        mesh.faces = (obj.faces.array() - 1.0).cast<int>().matrix();
    else
        mesh.faces.resize(3, 0);
    return mesh;
}

/// The head's faces: the template's, else those of the input OBJ.
Eigen::Matrix3Xi headFaces(const std::string& modelDir, const std::string& input) {
    for (const std::string& path : {km::model_files::tangentFrameTemplatePath(modelDir), input}) {
        if (!fs::is_regular_file(path) || fs::path(path).extension() != ".obj") continue;
        const Mesh mesh = readMesh(path);
        if (mesh.vertices.cols() == kHeadVertexCount && mesh.faces.cols() > 0) return mesh.faces;
    }
    return Eigen::Matrix3Xi(3, 0);
}

void writeObj(const std::string& path, const std::vector<const Mesh*>& parts) {
    std::ofstream out(path, std::ios::binary);
    char line[128];
    for (const Mesh* part : parts)
        for (Eigen::Index v = 0; v < part->vertices.cols(); ++v) {
            std::snprintf(line, sizeof line, "v %.9g %.9g %.9g\n", part->vertices(0, v),
                          part->vertices(1, v), part->vertices(2, v));
            out << line;
        }
    Eigen::Index offset = 1;
    for (const Mesh* part : parts) {
        for (Eigen::Index f = 0; f < part->faces.cols(); ++f)
            out << "f " << part->faces(0, f) + offset << ' ' << part->faces(1, f) + offset << ' '
                << part->faces(2, f) + offset << '\n';
        offset += part->vertices.cols();
    }
    if (!out.flush()) throw CommandError("cannot write " + path);
}

/// An aligned mesh in export order: the model's export-order template with
/// its vertex lines replaced, or plain vertex lines without one. Returns the
/// mesh with the template's faces (none without a template).
Mesh writeExportMesh(const std::string& templatePath, const std::string& path,
                     const Eigen::Matrix3Xd& vertices) {
    Mesh mesh{vertices, Eigen::Matrix3Xi(3, 0)};
    if (fs::is_regular_file(templatePath)) {
        const Mesh layout = readMesh(templatePath);
        if (layout.vertices.cols() == vertices.cols()) {
            km::Error error;
            if (!km::rewriteObjVertexLines(templatePath, path, vertices, error))
                throw CommandError(error.message);
            mesh.faces = layout.faces;
            return mesh;
        }
    }
    writeObj(path, {&mesh});
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
    std::error_code ec;
    fs::create_directories(options.outDir, ec);
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
    writeObj(headOut, {&headMesh, &posed[0], &posed[1]});
    std::cout << "wrote " << headOut << " (head and both posed eyeballs)\n";

    writeExportMesh((fs::path(options.model) / "eyeball/ue4_eyeball.obj").string(), eyeballsOut,
                    eyeballs);
    std::cout << "wrote " << eyeballsOut << " (" << eyeballs.cols()
              << " aligned eyeball vertices)\n";
    const Mesh lashMesh = writeExportMesh(
        (fs::path(options.model) / "eyelash/ue4_eyelash.obj").string(), lashesOut, lashes);
    std::cout << "wrote " << lashesOut << " (" << lashes.cols() << " aligned eyelash vertices)\n";

    writeEyesPreview(previewOut, {{headMesh.vertices, headMesh.faces, {0.72, 0.72, 0.72}, 0.0},
                                  {posed[0].vertices, posed[0].faces, {0.35, 0.6, 1.0}, 0.2},
                                  {posed[1].vertices, posed[1].faces, {0.35, 0.6, 1.0}, 0.2},
                                  {lashMesh.vertices, lashMesh.faces, {0.9, 0.3, 0.1}, 0.2}});
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
        ->add_option("--out-dir", options->outDir, "Directory for the results (created if missing)")
        ->required();
    command->callback([options] { runEyes(*options); });
}

}  // namespace meridian::cli
