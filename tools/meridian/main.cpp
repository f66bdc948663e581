// The `meridian` command-line tool: the library's tasks on mesh files.
#include <iostream>

#include <CLI/CLI.hpp>

#include "cli_common.h"
#include "commands.h"

int main(int argc, char** argv) {
    CLI::App app{"meridian: post-processing of 3D head meshes"};
    app.require_subcommand(1);
    meridian::cli::addDemoCommand(app);
    meridian::cli::addSwapCommand(app);
    meridian::cli::addTbnCommand(app);
    meridian::cli::addBlendshapesCommand(app);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        return app.exit(e);
    } catch (const meridian::cli::CommandError& e) {
        std::cerr << "error: " << e.what() << '\n';
        return 1;
    }
    return 0;
}
