// `meridian export`: a reconstructed head to one binary glTF 2.0 head asset
// (engine-order head with UVs and seamless normals, the regional
// blendshapes as morph targets, eyeballs and eyelashes), through the modern
// C interface's asset builder.
#include <chrono>
#include <cstdio>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "asset/model_to_gltf.h"
#include "cli_common.h"
#include "commands.h"
#if MERIDIAN_CLI_WITH_OPENCV
#include "export_preview.h"
#endif
#include "io/atomic_file.h"
#include "io/input_error.h"
#include "io/model_check.h"
#include "modern_handles.h"

namespace meridian::cli {

namespace {

using AssetBuilderHandle = OwnedHandle<meridian_asset_builder, meridian_asset_builder_close>;

struct ExportOptions {
    std::string model;
    std::string in;
    std::string out;
    std::vector<std::string> skip;
    double metresPerUnit = meridian::exporter::kDefaultMetresPerUnit;
    std::string preview;
};

bool skips(const ExportOptions& options, const char* part) {
    for (const std::string& s : options.skip)
        if (s == part) return true;
    return false;
}

const char* const kBlendshapesHint = " (leave the blendshapes out with --skip blendshapes)";
const char* const kEyesHint = " (leave the eyes out with --skip eyes)";

/// The stages of an export as they start (printed as "name ...") and the
/// time of each: a stage ends where the next starts, or at finish().
class StageClock {
  public:
    using Clock = std::chrono::steady_clock;

    void start(const std::string& name) {
        finish();
        std::cout << name << " ..." << std::endl;
        current_ = name;
        started_ = Clock::now();
        running_ = true;
    }
    void finish() {
        if (!running_) return;
        const std::chrono::duration<double> took = Clock::now() - started_;
        times_.push_back({current_, took.count()});
        running_ = false;
    }
    /// For the builder's stage callback; `user` is the clock.
    static void onStage(const char* stage, void* user) {
        static_cast<StageClock*>(user)->start(stage);
    }
    template <typename Work>
    void run(const std::string& name, Work&& work) {
        start(name);
        work();
        finish();
    }
    void print() const {
        double total = 0.0;
        std::printf("stage times:\n");
        for (const auto& [name, seconds] : times_) {
            std::printf("  %-26s %9.1f ms\n", name.c_str(), 1e3 * seconds);
            total += seconds;
        }
        std::printf("  %-26s %9.1f ms\n", "total", 1e3 * total);
    }

  private:
    std::vector<std::pair<std::string, double>> times_;
    std::string current_;
    Clock::time_point started_;
    bool running_ = false;
};

/// Every model file the asked parts read, strictly, before any engine loads.
void checkExportModel(const ExportOptions& options) {
    namespace km = kestrel::meridian;
    km::checkModel(options.model, {km::ModelTask::headSwap, km::ModelTask::engineHeadMesh});
    try {
        if (!skips(options, "blendshapes"))
            km::checkModel(options.model, km::ModelTask::blendshapes);
    } catch (const km::InputError& e) {
        throw CommandError(e.what() + std::string(kBlendshapesHint));
    }
    try {
        if (!skips(options, "eyes"))
            km::checkModel(options.model,
                           {km::ModelTask::eyeballFit, km::ModelTask::eyeballAligner,
                            km::ModelTask::eyelashAligner, km::ModelTask::eyeballExportMesh,
                            km::ModelTask::eyelashExportMesh});
    } catch (const km::InputError& e) {
        throw CommandError(e.what() + std::string(kEyesHint));
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

    StageClock clock;
    std::vector<float> head;
    clock.run("read input", [&] { head = readHeadPlanar(options.in); });
    clock.run("strict model check", [&] { checkExportModel(options); });

    const AssetBuilderHandle builder(requireOpened(
        meridian_asset_builder_open_staged(options.model.c_str(), !skips(options, "blendshapes"),
                                           !skips(options, "eyes"), options.metresPerUnit,
                                           &StageClock::onStage, &clock),
        "the asset builder"));
    meridian_asset_summary summary{};
    const meridian_status built = meridian_asset_builder_build_staged(
        builder.get(), head.data(), head.size(), nullptr, &StageClock::onStage, &clock, &summary);
    clock.finish();
    if (built != MERIDIAN_OK) throw CommandError(meridian_asset_builder_last_error(builder.get()));

    // The asset and its preview appear together, or neither does: the
    // preview is drawn from the encoded bytes before anything is written.
    kestrel::meridian::AtomicFileSet outputs;
    std::string glb;
    clock.run("write glTF", [&] {
        glb.resize(meridian_asset_builder_glb_size(builder.get()));
        requireOk(meridian_asset_builder_copy_glb(
                      builder.get(), reinterpret_cast<uint8_t*>(glb.data()), glb.size()),
                  "encoding " + options.out, meridian_asset_builder_last_error(builder.get()));
        outputs.add(options.out, glb);
        if (options.preview.empty()) outputs.commit();
    });
#if MERIDIAN_CLI_WITH_OPENCV
    if (!options.preview.empty())
        clock.run("preview", [&] {
            writeExportPreview(glb, options.out, options.preview, outputs);
            outputs.commit();
        });
#endif
    std::cout << "wrote " << options.out << ": " << summary.head_vertices
              << " head vertices in engine order, " << summary.morph_targets << " morph targets, "
              << summary.eye_meshes << " eye meshes" << std::endl;
    if (!options.preview.empty()) std::cout << "wrote " << options.preview << std::endl;
    clock.print();
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
                            std::to_string(meridian::exporter::kDefaultMetresPerUnit) + ")");
    command->add_option("--preview", options->preview,
                        outputHelp("Also draw the written asset, read back, to this PNG"));
    command->callback([options] { runExport(*options); });
}

}  // namespace meridian::cli
