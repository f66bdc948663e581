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
    CLI::App* command = app.add_subcommand(
        "demo",
        "Write the complete demo model directory (synthetic head, correspondences, "
        "templates)");
    command->add_option("--out", *dir, "Directory to write (created if missing)")->required();
    command->callback([dir] {
        const auto start = std::chrono::steady_clock::now();
        std::string error;
        if (!demo::writeDemoModel(*dir, error)) throw CommandError(error);
        const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
        std::cout << "demo model written to " << *dir << " in " << took.count() << " s\n";
    });
}

}  // namespace meridian::cli
