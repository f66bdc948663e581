// Scratch files for the reader tests: a private directory per fixture,
// removed with it, and files written byte for byte (no newline translation).
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <string_view>

namespace meridian_test {

/// A fresh directory under the system temp directory, deleted on destruction.
class ScratchDir {
  public:
    ScratchDir() {
        std::random_device seed;
        const auto base = std::filesystem::temp_directory_path();
        // create_directory is false when the name is taken; retry with another.
        for (int attempt = 0; attempt < 100; ++attempt) {
            auto candidate = base / ("meridian-io-" + std::to_string(seed()));
            if (std::filesystem::create_directory(candidate)) {
                root_ = candidate;
                return;
            }
        }
        ADD_FAILURE() << "could not create a scratch directory under " << base;
    }
    ~ScratchDir() {
        std::error_code ignored;
        if (!root_.empty()) std::filesystem::remove_all(root_, ignored);
    }
    ScratchDir(const ScratchDir&) = delete;
    ScratchDir& operator=(const ScratchDir&) = delete;

    /// Path of `name` inside the directory (the file need not exist).
    std::string path(const std::string& name) const { return (root_ / name).string(); }

    /// Writes `contents` exactly as given and returns the file's path.
    std::string write(const std::string& name, std::string_view contents) const {
        const std::string target = path(name);
        std::ofstream out(target, std::ios::binary);
        out.write(contents.data(), static_cast<std::streamsize>(contents.size()));
        EXPECT_TRUE(out.good()) << "could not write " << target;
        return target;
    }

  private:
    std::filesystem::path root_;
};

/// The whole file as bytes; empty when it cannot be opened.
inline std::string readBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

}  // namespace meridian_test
