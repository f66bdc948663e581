#include "io/whole_file.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include <sys/stat.h>

#include "io/input_error.h"

namespace kestrel::meridian {

namespace {

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

}  // namespace

WholeFile readFileBytes(const std::string& path, int64_t maxBytes) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0)
        throw InputError(InputFault::missingFile, path, "no such file");
    if (!S_ISREG(status.st_mode))
        throw InputError(InputFault::missingFile, path, "not a regular file");
    if (status.st_size > maxBytes)
        throw InputError(InputFault::unreadable, path,
                         std::to_string(status.st_size) + " bytes, above the limit of " +
                             std::to_string(maxBytes));
    std::unique_ptr<std::FILE, FileCloser> file(std::fopen(path.c_str(), "rb"));
    if (!file) throw InputError(InputFault::unreadable, path, std::strerror(errno));
    WholeFile bytes;
    bytes.size = static_cast<size_t>(status.st_size);
    // Uninitialised: the read overwrites every byte.
    bytes.data.reset(new char[bytes.size]);
    const size_t read = std::fread(bytes.data.get(), 1, bytes.size, file.get());
    // A file that shrank while it was read is refused rather than half read.
    if (read != bytes.size || std::ferror(file.get()))
        throw InputError(InputFault::unreadable, path, "read failed");
    return bytes;
}

std::string readWholeFile(const std::string& path, int64_t maxBytes) {
    const WholeFile bytes = readFileBytes(path, maxBytes);
    return std::string(bytes.view());
}

}  // namespace kestrel::meridian
