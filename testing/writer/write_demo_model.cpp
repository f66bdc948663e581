// Writes the complete demo model directory (blendshape data included) for
// the test fixture of builds without the `meridian` tool.
//   meridian_write_demo_model DIR
#include <iostream>
#include <string>

#include "demo/demo_model.h"

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: " << argv[0] << " DIR\n";
        return 2;
    }
    std::string error;
    meridian::demo::DemoModelOptions options;
    options.blendshapes = true;
    if (!meridian::demo::writeDemoModel(argv[1], error, options)) {
        std::cerr << "error: " << error << '\n';
        return 1;
    }
    return 0;
}
