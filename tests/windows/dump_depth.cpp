// Writes the depth images of a capture's exr/ folder, as the platform's
// reader decodes them, to one file: for each image its name, rows and cols
// (int32) and its floats. check_wine.sh compares the Linux dump (OpenEXR)
// with the Windows one (tinyexr) byte for byte.
//   meridian_dump_depth <capture> <out>
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "rgbd/capture_files.h"

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: meridian_dump_depth <capture> <out>\n");
        return 2;
    }
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(std::string(argv[1]) + "/exr"))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    std::FILE* out = std::fopen(argv[2], "wb");
    if (out == nullptr) return 1;
    int status = names.empty() ? 1 : 0;
    for (const std::string& name : names) {
        const kestrel::meridian::DepthImage image =
            kestrel::meridian::readDepthExr(std::string(argv[1]) + "/exr/" + name);
        if (image.empty()) {
            std::fprintf(stderr, "cannot read %s\n", name.c_str());
            status = 1;
        }
        const std::int32_t size[2] = {image.rows, image.cols};
        std::fwrite(name.c_str(), 1, name.size() + 1, out);
        std::fwrite(size, sizeof size, 1, out);
        std::fwrite(image.depth.data(), sizeof(float), image.depth.size(), out);
    }
    return std::fclose(out) == 0 ? status : 1;
}
