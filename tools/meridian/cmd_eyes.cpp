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
#include "meridian/meridian.h"

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

/// Entries of a correspondence of the model: the vertex count of an output.
Eigen::Index entryCount(const std::string& modelDir, const char* name) {
    km::Correspondence record;
    km::Error error;
    const std::string path = (fs::path(modelDir) / name).string();
    if (!fs::is_regular_file(path) || !km::loadCorrespondence(record, path, error))
        throw CommandError("model directory has no " + std::string(name) + ": " + modelDir);
    return static_cast<Eigen::Index>(record.size());
}

/// The head's faces: the template's, else those of the input OBJ.
Eigen::Matrix3Xi headFaces(const std::string& modelDir, const std::string& input) {
    for (const std::string& path : {modelDir + "/TBN/std_20481_with_UV_F_TF.obj", input}) {
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

/// Runs an aligner through the C interface; `run` is the export name used.
Eigen::Matrix3Xd runAligner(meridian_handle handle, const std::vector<float>& head,
                            Eigen::Index count,
                            int32_t (*run)(meridian_handle, const float*, float*, int64_t)) {
    std::vector<float> planar(3 * static_cast<size_t>(count));
    if (run(handle, head.data(), planar.data(), 0) != count)
        throw CommandError("an aligner returned an unexpected vertex count");
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
    const Eigen::Index eyeballCount = entryCount(options.model, "eyeball/idx_eyeball2ue4.corresp");
    const Eigen::Index lashCount = entryCount(options.model, "eyelash/idx_eyelash2ue4.corresp");

    double angles[2][3], positions[2][3], scale = 0;
    const int loaded = AI_system_init_eyeball(options.model.c_str());
    const int fitted = loaded == 1 && AI_add_eyeball(head.data(), 0, angles[0], angles[1],
                                                     positions[0], positions[1], &scale) == 1;
    const meridian_handle eyeballAligner = AI_system_init_eyeball_kova(options.model.c_str());
    const meridian_handle lashAligner = AI_system_init_eyelash_kova(options.model.c_str());
    Eigen::Matrix3Xd eyeballs, lashes;
    if (fitted && eyeballAligner && lashAligner) {
        eyeballs = runAligner(eyeballAligner, head, eyeballCount, AI_add_eyeball_kova);
        lashes = runAligner(lashAligner, head, lashCount, AI_add_eyelash_kova);
    }
    AI_system_over();
    if (!fitted)
        throw CommandError("cannot load the eyeball model " + options.model +
                           "/eyeball/new_eye.ply");
    if (!eyeballAligner)
        throw CommandError("cannot load the eyeball aligner data in " + options.model);
    if (!lashAligner)
        throw CommandError("cannot load the eyelash aligner data in " + options.model);

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
