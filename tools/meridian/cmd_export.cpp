// `meridian export`: a reconstructed head to one binary glTF 2.0 head asset
// (engine-order head with UVs and seamless normals, the regional
// blendshapes as morph targets, eyeballs and eyelashes), through the C
// interface.
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "asset/head_export.h"
#include "cli_common.h"
#include "commands.h"
#if MERIDIAN_CLI_WITH_OPENCV
#include "export_preview.h"
#endif
#include "io/atomic_file.h"
#include "io/input_error.h"
#include "io/model_check.h"

namespace meridian::cli {

namespace {

namespace fs = std::filesystem;
namespace ex = meridian::exporter;

struct ExportOptions {
    std::string model;
    std::string in;
    std::string out;
    std::vector<std::string> skip;
    double metresPerUnit = ex::kDefaultMetresPerUnit;
    std::string preview;
};

bool skips(const ExportOptions& options, const char* part) {
    for (const std::string& s : options.skip)
        if (s == part) return true;
    return false;
}

std::string skipHint(ex::AssetPart part) {
    switch (part) {
        case ex::AssetPart::kBlendshapes:
            return " (leave the blendshapes out with --skip blendshapes)";
        case ex::AssetPart::kEyes:
            return " (leave the eyes out with --skip eyes)";
        default:
            return "";
    }
}

void printStageTimes(const std::vector<ex::StageTime>& times) {
    double total = 0.0;
    std::printf("stage times:\n");
    for (const ex::StageTime& t : times) {
        std::printf("  %-26s %9.1f ms\n", t.name.c_str(), 1e3 * t.seconds);
        total += t.seconds;
    }
    std::printf("  %-26s %9.1f ms\n", "total", 1e3 * total);
}

/// Every model file the asked parts read, strictly, before any engine loads.
void checkExportModel(const ExportOptions& options) {
    namespace km = kestrel::meridian;
    km::checkModel(options.model, {km::ModelTask::headSwap, km::ModelTask::engineHeadMesh});
    try {
        if (!skips(options, "blendshapes"))
            km::checkModel(options.model, km::ModelTask::blendshapes);
    } catch (const km::InputError& e) {
        throw CommandError(e.what() + skipHint(ex::AssetPart::kBlendshapes));
    }
    try {
        if (!skips(options, "eyes"))
            km::checkModel(options.model,
                           {km::ModelTask::eyeballFit, km::ModelTask::eyeballAligner,
                            km::ModelTask::eyelashAligner, km::ModelTask::eyeballExportMesh,
                            km::ModelTask::eyelashExportMesh});
    } catch (const km::InputError& e) {
        throw CommandError(e.what() + skipHint(ex::AssetPart::kEyes));
    }
}

void runExport(const ExportOptions& options) {
    requireModelDirectory(options.model);
    requireFinitePositive("--metres-per-unit", options.metresPerUnit);
    requireWritable(options.out);
#if !MERIDIAN_CLI_WITH_OPENCV
    if (!options.preview.empty())
        throw CommandError(
            "--preview draws the asset with OpenCV, which this build was made without");
#endif
    if (!options.preview.empty()) requireWritable(options.preview);

    ex::StageLog log([](const std::string& stage) { std::cout << stage << " ..." << std::endl; });
    std::vector<float> head;
    log.run("read input", [&] { head = readHeadPlanar(options.in); });
    log.run("strict model check", [&] { checkExportModel(options); });

    ex::ExportSettings settings;
    settings.modelDir = options.model;
    settings.blendshapes = !skips(options, "blendshapes");
    settings.eyes = !skips(options, "eyes");
    settings.transform.metresPerUnit = options.metresPerUnit;
    try {
        const ex::HeadExporter exporter(settings, log);
        const ex::HeadAsset asset = exporter.run(head, log);
        // The asset and its preview appear together, or neither does: the
        // preview is drawn from the encoded bytes before anything is written.
        kestrel::meridian::AtomicFileSet outputs;
        std::string glb;
        log.run("write glTF", [&] {
            const tinygltf::Model model = ex::buildGltfModel(asset);
            std::ostringstream encoded(std::ios::binary);
            if (!ex::writeGlb(model, encoded)) throw CommandError("cannot encode " + options.out);
            glb = encoded.str();
            outputs.add(options.out, glb);
            if (options.preview.empty()) outputs.commit();
        });
#if MERIDIAN_CLI_WITH_OPENCV
        if (!options.preview.empty())
            log.run("preview", [&] {
                writeExportPreview(glb, options.out, options.preview, outputs);
                outputs.commit();
            });
#endif
        std::cout << "wrote " << options.out << ": " << exporter.engineVertexCount()
                  << " head vertices in engine order, " << asset.head.targets.size()
                  << " morph targets, " << asset.parts.size() << " eye meshes" << std::endl;
        if (!options.preview.empty()) std::cout << "wrote " << options.preview << std::endl;
    } catch (const ex::ExportError& e) {
        throw CommandError(e.what() + skipHint(e.part));
    }
    printStageTimes(log.times());
}

}  // namespace

void addExportCommand(CLI::App& app) {
    auto options = std::make_shared<ExportOptions>();
    CLI::App* command = app.add_subcommand(
        "export",
        "Export a head in the 20481-vertex template topology as one binary glTF 2.0 asset: the "
        "head in engine order with its blendshapes as morph targets, eyeballs and eyelashes");
    command->add_option("--model", options->model, "Model directory")->required();
    command->add_option("--in", options->in, "Head mesh (.obj or .ply, 20481 vertices)")
        ->required();
    command->add_option("--out", options->out, outputHelp("Output .glb"))->required();
    command
        ->add_option("--skip", options->skip,
                     "Leave a part out: eyes or blendshapes (may be given twice)")
        ->check(CLI::IsMember({"eyes", "blendshapes"}))
        ->delimiter(',');
    // Checked in runExport (finite, above 0), so a bad value is one "error:" line.
    command->add_option("--metres-per-unit", options->metresPerUnit,
                        "Metres per model unit, finite and above 0 (default " +
                            std::to_string(ex::kDefaultMetresPerUnit) + ")");
    command->add_option("--preview", options->preview,
                        outputHelp("Also draw the written asset, read back, to this PNG"));
    command->callback([options] { runExport(*options); });
}

}  // namespace meridian::cli
