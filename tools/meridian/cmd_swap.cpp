// `meridian swap`: carries a template-topology head into the engine vertex
// order and writes it as an OBJ.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>

#include "cli_common.h"
#include "commands.h"
#include "common/model_paths.h"
#include "io/mesh_readers.h"
#include "io/planar.h"
#include "modern_handles.h"

namespace meridian::cli {

namespace {

struct SwapOptions {
    std::string model;
    std::string in;
    std::string out;
};

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
    const HeadSwapHandle swap(requireOpened(meridian_head_swap_open(options.model.c_str()),
                                            "the head-swap model in " + options.model));
    const auto n = static_cast<Eigen::Index>(meridian_head_swap_output_vertex_count(swap.get()));
    std::vector<float> planar(3 * static_cast<size_t>(n));
    requireOk(
        meridian_head_swap_run(swap.get(), head.data(), head.size(), planar.data(), planar.size()),
        "head swap", meridian_head_swap_last_error(swap.get()));

    const Eigen::Matrix3Xd vertices = kestrel::meridian::planarToVertices(planar.data(), n);

    // With the engine-order template mesh the result keeps its faces and UVs.
    const auto templatePath = kestrel::meridian::model_files::modelFilePath(
        options.model, kestrel::meridian::model_files::kEngineHeadMesh);
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
