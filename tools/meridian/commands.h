// Subcommands of the `meridian` tool. Each adds itself to the application.
#pragma once

#include <CLI/CLI.hpp>

namespace meridian::cli {

void addDemoCommand(CLI::App& app);
void addSwapCommand(CLI::App& app);
void addTbnCommand(CLI::App& app);
void addEyesCommand(CLI::App& app);
void addRgbdCommands(CLI::App& app);
void addBlendshapesCommand(CLI::App& app);
void addExportCommand(CLI::App& app);

}  // namespace meridian::cli
