// The `meridian` command-line tool: the library's tasks on mesh files.
#include <csignal>
#include <iostream>

#include <CLI/CLI.hpp>

#include "cli_common.h"
#include "commands.h"
#include "commands_without_pictures.h"
#include "meridian/meridian_api.h"

int main(int argc, char** argv) {
    // A write past the file-size limit then fails with EFBIG, which the
    // atomic writer reports and cleans up after, instead of ending the
    // process with a temporary left behind.
#ifdef SIGXFSZ
    std::signal(SIGXFSZ, SIG_IGN);
#endif
    CLI::App app{"meridian: post-processing of 3D head meshes"};
    app.set_version_flag("--version", std::string("meridian ") + meridian_version());
    app.require_subcommand(1);
    meridian::cli::addDemoCommand(app);
    meridian::cli::addSwapCommand(app);
#if MERIDIAN_CLI_WITH_OPENCV
    meridian::cli::addTbnCommand(app);
    meridian::cli::addEyesCommand(app);
    meridian::cli::addRgbdCommands(app);
    meridian::cli::addBlendshapesCommand(app);
#else
    meridian::cli::addCommandsThatNeedOpenCv(app);
#endif
#if MERIDIAN_CLI_WITH_OPENCV || MERIDIAN_CLI_WITH_EXPORT
    meridian::cli::addExportCommand(app);
#endif
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        return app.exit(e);
    } catch (const std::exception& e) {
        // CommandError, and a data file refused by the readers' limits.
        std::cerr << "error: " << e.what() << '\n';
        return 1;
    }
    return 0;
}
