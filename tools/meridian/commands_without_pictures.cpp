// The commands that draw pictures, in a build without OpenCV (the Windows
// cross-build): each is still listed, and says why it is not there instead
// of failing as an unknown subcommand. Their pictures label panels with
// drawn text, which needs OpenCV.
#include "commands_without_pictures.h"

#include "cli_common.h"

namespace meridian::cli {

void addCommandsThatNeedOpenCv(CLI::App& app) {
    for (const char* name : {"tbn", "eyes", "blendshapes", "rgbd-select", "rgbd-demo"}) {
        CLI::App* command = app.add_subcommand(name, "(not in this build: it needs OpenCV)");
        command->allow_extras();
        command->callback([name] {
            throw CommandError(std::string("`meridian ") + name +
                               "` draws pictures with OpenCV, which this build was made without "
                               "(the Windows build has demo, swap and export)");
        });
    }
}

}  // namespace meridian::cli
