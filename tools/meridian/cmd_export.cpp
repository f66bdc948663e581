// `meridian export`: a reconstructed head to one binary glTF 2.0 head asset
// (engine-order head with UVs and seamless normals, the regional
// blendshapes as morph targets, eyeballs and eyelashes), through the C
// interface.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include <unistd.h>

#include "asset/head_export.h"
#include "cli_common.h"
#include "commands.h"
#include "export_preview.h"

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

/// The asset goes to a temporary file beside the output, renamed over it once
/// complete, so a failure never leaves a partial file at the output path.
class TemporaryOutput {
  public:
    explicit TemporaryOutput(const std::string& out)
        : path_(out + ".part-" + std::to_string(::getpid())) {}
    ~TemporaryOutput() {
        std::error_code ignored;
        if (!committed_) fs::remove(path_, ignored);
    }
    const std::string& path() const { return path_; }
    void commit(const std::string& out) {
        std::error_code ec;
        fs::rename(path_, out, ec);
        if (ec) throw CommandError("cannot write " + out + ": " + ec.message());
        committed_ = true;
    }

  private:
    std::string path_;
    bool committed_ = false;
};

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

void runExport(const ExportOptions& options) {
    requireModelDirectory(options.model);
    const fs::path outDir = fs::absolute(options.out).parent_path();
    if (!fs::is_directory(outDir))
        throw CommandError("cannot write " + options.out + ": no directory " + outDir.string());
    if (fs::is_directory(options.out))
        throw CommandError("cannot write " + options.out + ": it is a directory");

    ex::StageLog log([](const std::string& stage) { std::cout << stage << " ..." << std::endl; });
    std::vector<float> head;
    log.run("read input", [&] { head = readHeadPlanar(options.in); });

    ex::ExportSettings settings;
    settings.modelDir = options.model;
    settings.blendshapes = !skips(options, "blendshapes");
    settings.eyes = !skips(options, "eyes");
    settings.transform.metresPerUnit = options.metresPerUnit;
    try {
        const ex::HeadExporter exporter(settings, log);
        const ex::HeadAsset asset = exporter.run(head, log);
        TemporaryOutput temporary(options.out);
        log.run("write glTF", [&] {
            const tinygltf::Model model = ex::buildGltfModel(asset);
            std::ofstream file(temporary.path(), std::ios::binary);
            if (!file || !ex::writeGlb(model, file) || !file.flush())
                throw CommandError("cannot write " + options.out);
            file.close();
            temporary.commit(options.out);
        });
        std::cout << "wrote " << options.out << ": " << exporter.engineVertexCount()
                  << " head vertices in engine order, " << asset.head.targets.size()
                  << " morph targets, " << asset.parts.size() << " eye meshes" << std::endl;
    } catch (const ex::ExportError& e) {
        throw CommandError(e.what() + skipHint(e.part));
    }
    if (!options.preview.empty()) {
        log.run("preview", [&] { writeExportPreview(options.out, options.preview); });
        std::cout << "wrote " << options.preview << std::endl;
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
    command->add_option("--out", options->out, "Output .glb")->required();
    command
        ->add_option("--skip", options->skip,
                     "Leave a part out: eyes or blendshapes (may be given twice)")
        ->check(CLI::IsMember({"eyes", "blendshapes"}))
        ->delimiter(',');
    command
        ->add_option(
            "--metres-per-unit", options->metresPerUnit,
            "Metres per model unit (default " + std::to_string(ex::kDefaultMetresPerUnit) + ")")
        ->check(CLI::PositiveNumber);
    command->add_option("--preview", options->preview,
                        "Also draw the written asset, read back, to this PNG");
    command->callback([options] { runExport(*options); });
}

}  // namespace meridian::cli
