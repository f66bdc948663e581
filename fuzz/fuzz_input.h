// What the fuzz targets share: the readers take paths, so each input is
// written to one scratch file per process (in memory-backed /dev/shm where
// there is one) and read back through the real file path.
#pragma once

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <string>

namespace meridian::fuzz {

/// The path of this process's scratch file, removed when the process ends
/// normally, so runs do not leave one file per process behind.
struct ScratchFile {
    std::string path;
    ScratchFile() {
        const char* dir = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
        path = std::string(dir) + "/meridian-fuzz-" + std::to_string(getpid());
    }
    ~ScratchFile() { std::remove(path.c_str()); }
    ScratchFile(const ScratchFile&) = delete;
    ScratchFile& operator=(const ScratchFile&) = delete;
};

/// The scratch file of this process, holding `size` bytes of `data`.
inline const std::string& writeInput(const uint8_t* data, size_t size) {
    static const ScratchFile scratch;
    const std::string& path = scratch.path;
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (file == nullptr) __builtin_trap();
    if (size > 0 && std::fwrite(data, 1, size, file) != size) __builtin_trap();
    std::fclose(file);
    return path;
}

/// Stops the run with a finding when an invariant does not hold.
inline void require(bool holds) {
    if (!holds) __builtin_trap();
}

}  // namespace meridian::fuzz
