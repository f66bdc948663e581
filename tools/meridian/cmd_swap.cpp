// `meridian swap`: carries a template-topology head into the engine vertex
// order and writes it as an OBJ.
#include <filesystem>
#include <iostream>
#include <memory>

#include "cli_common.h"
#include "commands.h"
#include "io/model_check.h"
#include "io/planar.h"
#include "modern_handles.h"
#include "obj_text.h"

namespace meridian::cli {

namespace {

struct SwapOptions {
    std::string model;
    std::string in;
    std::string out;
};

void runSwap(const SwapOptions& options) {
    namespace km = kestrel::meridian;
    requireModelDirectory(options.model);
    const std::vector<float> head = readHeadPlanar(options.in);
    requireWritable(options.out);
    // The engine-order template mesh is optional; when present it must fit.
    const auto templatePath = (std::filesystem::path(options.model) / "ue4_head.obj").string();
    const bool haveTemplate = std::filesystem::exists(templatePath);
    km::checkModel(options.model, km::ModelTask::headSwap);
    if (haveTemplate) km::checkModel(options.model, km::ModelTask::engineHeadMesh);
    const HeadSwapHandle swap(requireOpened(meridian_head_swap_open(options.model.c_str()),
                                            "the head-swap model in " + options.model));
    const auto n = static_cast<Eigen::Index>(meridian_head_swap_output_vertex_count(swap.get()));
    std::vector<float> planar(3 * static_cast<size_t>(n));
    requireOk(
        meridian_head_swap_run(swap.get(), head.data(), head.size(), planar.data(), planar.size()),
        "head swap", meridian_head_swap_last_error(swap.get()));

    const Eigen::Matrix3Xd vertices = kestrel::meridian::planarToVertices(planar.data(), n);

    // With the engine-order template mesh the result keeps its faces and UVs.
    writeOutputFile(options.out, haveTemplate ? objWithVertexLines(templatePath, vertices)
                                              : vertexObjText(vertices));
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
    command->add_option("--out", options->out, outputHelp("Output OBJ in engine vertex order"))
        ->required();
    command->callback([options] { runSwap(*options); });
}

}  // namespace meridian::cli
