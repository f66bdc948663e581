// `meridian swap`: carries a template-topology head into the engine vertex
// order and writes it as an OBJ.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>

#include "cli_common.h"
#include "commands.h"
#include "io/correspondence.h"
#include "io/mesh_readers.h"
#include "io/planar.h"
#include "meridian/meridian.h"

namespace meridian::cli {

namespace {

struct SwapOptions {
    std::string model;
    std::string in;
    std::string out;
};

// The caller sizes the output: N is the entry count of the engine-order file.
Eigen::Index engineVertexCount(const std::string& modelDir) {
    kestrel::meridian::Correspondence engineOrder;
    const auto path = (std::filesystem::path(modelDir) / "idx_head2ue4.corresp").string();
    kestrel::meridian::Error error;
    if (!kestrel::meridian::loadCorrespondence(engineOrder, path, error))
        throw CommandError("model directory has no idx_head2ue4.corresp: " + modelDir);
    return static_cast<Eigen::Index>(engineOrder.size());
}

void writeVertexObj(const std::string& path, const Eigen::Matrix3Xd& vertices) {
    std::ofstream out(path);
    char line[128];
    for (Eigen::Index k = 0; k < vertices.cols(); ++k) {
        std::snprintf(line, sizeof line, "v %.9g %.9g %.9g\n", vertices(0, k), vertices(1, k),
                      vertices(2, k));
        out << line;
    }
    if (!out.flush()) throw CommandError("cannot write " + path);
}

void runSwap(const SwapOptions& options) {
    requireModelDirectory(options.model);
    const std::vector<float> head = readHeadPlanar(options.in);
    requireWritable(options.out);
    const Eigen::Index n = engineVertexCount(options.model);

    const meridian_handle converter = AI_system_init_swaphead(options.model.c_str());
    if (converter == 0) throw CommandError("cannot load the head-swap model in " + options.model);
    std::vector<float> planar(3 * static_cast<size_t>(n));
    const int32_t written = AI_swap_head(converter, head.data(), planar.data(), 0);
    AI_system_over();
    if (written != n) throw CommandError("head swap failed");

    const Eigen::Matrix3Xd vertices = kestrel::meridian::planarToVertices(planar.data(), n);

    // With the engine-order template mesh the result keeps its faces and UVs.
    const auto templatePath = (std::filesystem::path(options.model) / "ue4_head.obj").string();
    if (std::filesystem::is_regular_file(templatePath) &&
        kestrel::meridian::readObjVertexLines(templatePath).cols() == n) {
        kestrel::meridian::Error error;
        if (!kestrel::meridian::rewriteObjVertexLines(templatePath, options.out, vertices, error))
            throw CommandError(error.message);
    } else {
        writeVertexObj(options.out, vertices);
    }
    std::cout << "wrote " << n << " vertices in engine order to " << options.out << '\n';
}

}  // namespace

void addSwapCommand(CLI::App& app) {
    auto options = std::make_shared<SwapOptions>();
    CLI::App* command = app.add_subcommand(
        "swap", "Carry a head in the 20481-vertex template topology into the engine vertex order");
    command->add_option("--model", options->model, "Model directory")->required();
    command->add_option("--in", options->in, "Head mesh (.obj or .ply, 20481 vertices)")
        ->required();
    command->add_option("--out", options->out, "Output OBJ in engine vertex order")->required();
    command->callback([options] { runSwap(*options); });
}

}  // namespace meridian::cli
