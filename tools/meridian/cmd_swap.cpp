// `meridian swap`: carries a template-topology head into the engine vertex
// order and writes it as an OBJ.
#include <filesystem>
#include <iostream>
#include <memory>

#include "cli_common.h"
#include "commands.h"
#include "io/model_check.h"
#include "io/planar.h"
#include "io/strict_tables.h"
#include "meridian/meridian.h"
#include "obj_text.h"

namespace meridian::cli {

namespace {

struct SwapOptions {
    std::string model;
    std::string in;
    std::string out;
};

// The caller sizes the output: N is the entry count of the engine-order
// file, which the model check has read strictly.
Eigen::Index engineVertexCount(const std::string& modelDir) {
    const auto path = (std::filesystem::path(modelDir) / "idx_head2ue4.corresp").string();
    return static_cast<Eigen::Index>(kestrel::meridian::readStrictCorrespondence(path).size());
}

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
    const Eigen::Index n = engineVertexCount(options.model);

    const meridian_handle converter = AI_system_init_swaphead(options.model.c_str());
    if (converter == 0) throw CommandError("cannot load the head-swap model in " + options.model);
    std::vector<float> planar(3 * static_cast<size_t>(n));
    const int32_t written = AI_swap_head(converter, head.data(), planar.data(), 0);
    AI_system_over();
    if (written != n) throw CommandError("head swap failed");

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
