// `meridian tbn`: tangent frames of a head, written as a PLY with per-vertex
// normal, tangent and bitangent, and optionally a front-view preview.
#include <cstdio>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "cli_common.h"
#include "commands.h"
#include "common/model_paths.h"
#include "io/atomic_file.h"
#include "io/model_check.h"
#include "io/strict_mesh.h"
#include "modern_handles.h"
#include "tbn_preview.h"

namespace meridian::cli {

namespace {

struct TbnOptions {
    std::string model;
    std::string in;
    std::string out;
    std::string preview;
};

// The template's faces, 0-based; the model check has read them strictly.
Eigen::Matrix3Xi templateFaces(const std::string& modelDir) {
    const kestrel::meridian::StrictMesh mesh = kestrel::meridian::readStrictMesh(
        kestrel::meridian::model_files::tangentFrameTemplatePath(modelDir));
    return Eigen::Map<const Eigen::Matrix3Xi>(mesh.faces.data(), 3, mesh.faceCount());
}

// Component k of vertex i of a planar array of n vertices.
float at(const std::vector<float>& planar, Eigen::Index n, int k, Eigen::Index i) {
    return planar[static_cast<size_t>(k * n + i)];
}

std::string framesPlyText(const std::vector<float>& head, const std::vector<float>& frames,
                          const Eigen::Matrix3Xi& faces) {
    constexpr Eigen::Index n = kHeadVertexCount;
    std::string text = "ply\nformat ascii 1.0\nelement vertex " + std::to_string(n) + "\n";
    for (const char* name : {"x", "y", "z", "nx", "ny", "nz", "tx", "ty", "tz", "bx", "by", "bz"})
        text += std::string("property float ") + name + "\n";
    text += "element face " + std::to_string(faces.cols()) +
            "\nproperty list uchar int vertex_indices\nend_header\n";
    // Frames are tangent (0-2), bitangent (3-5), normal (6-8); the file lists
    // the normal first, as viewers expect nx ny nz right after the position.
    constexpr int kOrder[9] = {6, 7, 8, 0, 1, 2, 3, 4, 5};
    char number[32];
    for (Eigen::Index i = 0; i < n; ++i) {
        for (int c = 0; c < 3; ++c) {
            std::snprintf(number, sizeof number, c ? " %.9g" : "%.9g", at(head, n, c, i));
            text += number;
        }
        for (int k : kOrder) {
            std::snprintf(number, sizeof number, " %.9g", at(frames, n, k, i));
            text += number;
        }
        text += '\n';
    }
    for (Eigen::Index f = 0; f < faces.cols(); ++f)
        text += "3 " + std::to_string(faces(0, f)) + ' ' + std::to_string(faces(1, f)) + ' ' +
                std::to_string(faces(2, f)) + '\n';
    return text;
}

void runTbn(const TbnOptions& options) {
    requireModelDirectory(options.model);
    const std::vector<float> head = readHeadPlanar(options.in);
    requireWritable(options.out);
    if (!options.preview.empty()) {
        if (!isPreviewImagePath(options.preview))
            throw CommandError("no image format for " + options.preview + " (use .png)");
        requireWritable(options.preview);
    }
    kestrel::meridian::checkModel(options.model, kestrel::meridian::ModelTask::tangentFrames);

    constexpr Eigen::Index n = kHeadVertexCount;
    std::vector<float> frames(9 * n);
    const TangentFramesHandle engine(
        requireOpened(meridian_tangent_frames_open(options.model.c_str()),
                      "the tangent-frame template of " + options.model));
    requireOk(meridian_tangent_frames_run(engine.get(), head.data(), head.size(), frames.data(),
                                          frames.size()),
              "tangent-frame computation", meridian_tangent_frames_last_error(engine.get()));

    // The frames and the preview appear together, or neither does.
    const Eigen::Matrix3Xi faces = templateFaces(options.model);
    kestrel::meridian::AtomicFileSet outputs;
    outputs.add(options.out, framesPlyText(head, frames, faces));
    if (!options.preview.empty()) {
        Eigen::Matrix3Xd vertices(3, n), normals(3, n);
        for (int c = 0; c < 3; ++c)
            for (Eigen::Index i = 0; i < n; ++i) {
                vertices(c, i) = at(head, n, c, i);
                normals(c, i) = at(frames, n, 6 + c, i);
            }
        writeNormalPreview(options.preview, vertices, faces, normals, &outputs);
    }
    outputs.commit();
    std::cout << "wrote frames of " << n << " vertices to " << options.out << '\n';
    if (!options.preview.empty()) std::cout << "wrote preview to " << options.preview << '\n';
}

}  // namespace

void addTbnCommand(CLI::App& app) {
    auto options = std::make_shared<TbnOptions>();
    CLI::App* command = app.add_subcommand(
        "tbn",
        "Per-vertex tangent frames (tangent, bitangent, normal) of a template-topology head");
    command->add_option("--model", options->model, "Model directory (holds TBN/)")->required();
    command->add_option("--in", options->in, "Head mesh (.obj or .ply, 20481 vertices)")
        ->required();
    command
        ->add_option("--out", options->out, outputHelp("Output ASCII PLY with per-vertex frames"))
        ->required();
    command->add_option("--preview", options->preview,
                        outputHelp("Also write a front-view PNG of the normals"));
    command->callback([options] { runTbn(*options); });
}

}  // namespace meridian::cli
