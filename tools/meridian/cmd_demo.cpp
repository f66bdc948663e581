// `meridian demo`: writes the demo model directory.
#include <chrono>
#include <iostream>
#include <memory>

#include "cli_common.h"
#include "commands.h"
#include "demo/demo_model.h"

namespace meridian::cli {

void addDemoCommand(CLI::App& app) {
    auto dir = std::make_shared<std::string>();
    auto withoutBlendshapes = std::make_shared<bool>(false);
    CLI::App* command = app.add_subcommand(
        "demo",
        "Write the complete demo model directory (synthetic head, correspondences, "
        "templates, blendshape data)");
    command->add_option("--out", *dir, "Directory to write (created if missing)")->required();
    command->add_flag("--no-blendshapes", *withoutBlendshapes,
                      "Leave out the blendshape data (BS/, about 250 MB)");
    command->callback([dir, withoutBlendshapes] {
        const auto start = std::chrono::steady_clock::now();
        std::string error;
        demo::DemoModelOptions options;
        options.blendshapes = !*withoutBlendshapes;
        if (!demo::writeDemoModel(*dir, error, options)) throw CommandError(error);
        const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
        std::cout << "demo model written to " << *dir << " in " << took.count() << " s\n";
    });
}

}  // namespace meridian::cli
