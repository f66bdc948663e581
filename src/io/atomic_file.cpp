#include "io/atomic_file.h"

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "io/input_error.h"

#ifdef _WIN32
#include <io.h>
#include <windows.h>
#include <cstdio>
#else
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace kestrel::meridian {

namespace {

namespace fs = std::filesystem;

[[noreturn]] void writeFailure(const std::string& path, const std::string& what, int error) {
    throw InputError(InputFault::writeFailed, path,
                     "cannot write (" + what + ": " + std::strerror(error) + ")");
}

std::string folderOf(const std::string& path) {
    const fs::path parent = fs::path(path).parent_path();
    return parent.empty() ? std::string(".") : parent.string();
}

/// A temporary written and flushed next to its target; removed unless it
/// was renamed into place.
class Temporary {
  public:
    Temporary(const std::string& target, std::string_view bytes);
    ~Temporary() {
        if (!path_.empty()) {
            std::error_code ignored;
            fs::remove(path_, ignored);
        }
    }
    Temporary(const Temporary&) = delete;
    Temporary& operator=(const Temporary&) = delete;
    Temporary(Temporary&& other) noexcept
        : target_(std::move(other.target_)), path_(std::exchange(other.path_, {})) {}

    /// An empty temporary for `writer` to fill, flushed once it has.
    Temporary(const std::string& target,
              const std::function<bool(const std::string& temporary)>& writer);

    /// Renames the temporary over its target.
    void commit();

  private:
    std::string target_;
    std::string path_;
};

#ifdef _WIN32

Temporary::Temporary(const std::string& target, std::string_view bytes) : target_(target) {
    for (int attempt = 0; path_.empty(); ++attempt) {
        const std::string candidate = target + ".part-" + std::to_string(GetCurrentProcessId()) +
                                      "-" + std::to_string(attempt);
        std::FILE* file = std::fopen(candidate.c_str(), "wbx");
        if (!file) {
            if (errno == EEXIST && attempt < 100) continue;
            writeFailure(target, "create a temporary", errno);
        }
        const bool ok = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size() &&
                        std::fflush(file) == 0 && _commit(_fileno(file)) == 0;
        const int error = errno;
        const bool closed = std::fclose(file) == 0;
        if (!ok || !closed) {
            // A constructor that throws runs no destructor: remove it here.
            std::remove(candidate.c_str());
            writeFailure(target, "write", ok ? errno : error);
        }
        path_ = candidate;
    }
}

Temporary::Temporary(const std::string& target,
                     const std::function<bool(const std::string& temporary)>& writer)
    : Temporary(target, std::string_view()) {
    if (!writer(path_)) writeFailure(target, "write", EIO);
    // The writer closed its file; flush it through a handle of our own.
    std::FILE* file = std::fopen(path_.c_str(), "rb+");
    const bool flushed = file && _commit(_fileno(file)) == 0;
    if (file) std::fclose(file);
    if (!flushed) writeFailure(target, "flush", errno);
}

void Temporary::commit() {
    if (!MoveFileExA(path_.c_str(), target_.c_str(),
                     MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH))
        writeFailure(target_, "rename", EIO);
    path_.clear();
}

#else

mode_t newFileMode(const std::string& target) {
    struct stat status {};
    if (::stat(target.c_str(), &status) == 0) return status.st_mode & 07777;
    const mode_t mask = ::umask(0);
    ::umask(mask);
    return 0666 & ~mask;
}

Temporary::Temporary(const std::string& target, std::string_view bytes) : target_(target) {
    // ".<name>.part-XXXXXX<extension>": hidden, beside its target, and with
    // the target's extension for writers that choose a format by it.
    const fs::path name = fs::path(target).filename();
    const std::string extension = name.extension().string();
    std::string pattern =
        (fs::path(folderOf(target)) / ("." + name.string() + ".part-XXXXXX" + extension)).string();
    const int fd = ::mkstemps(pattern.data(), static_cast<int>(extension.size()));
    if (fd < 0) writeFailure(target, "create a temporary", errno);
    // A constructor that throws runs no destructor: remove the temporary here.
    const auto fail = [&](const char* what) {
        const int error = errno;
        ::close(fd);
        ::unlink(pattern.c_str());
        writeFailure(target, what, error);
    };
    if (::fchmod(fd, newFileMode(target)) != 0) fail("set permissions");
    const char* data = bytes.data();
    size_t left = bytes.size();
    while (left > 0) {
        const ssize_t written = ::write(fd, data, left);
        if (written < 0) {
            if (errno == EINTR) continue;
            fail("write");
        }
        data += written;
        left -= static_cast<size_t>(written);
    }
    if (::fsync(fd) != 0) fail("flush");
    if (::close(fd) != 0) {
        const int error = errno;
        ::unlink(pattern.c_str());
        writeFailure(target, "close", error);
    }
    path_ = pattern;
}

Temporary::Temporary(const std::string& target,
                     const std::function<bool(const std::string& temporary)>& writer)
    : Temporary(target, std::string_view()) {
    // Once the delegated constructor is done this object is complete, so a
    // throw below runs the destructor and removes the temporary.
    if (!writer(path_)) writeFailure(target, "write", errno ? errno : EIO);
    const int fd = ::open(path_.c_str(), O_RDONLY);
    if (fd < 0) writeFailure(target, "reopen", errno);
    const bool flushed = ::fsync(fd) == 0;
    const int error = errno;
    ::close(fd);
    if (!flushed) writeFailure(target, "flush", error);
}

void Temporary::commit() {
    if (::rename(path_.c_str(), target_.c_str()) != 0) writeFailure(target_, "rename", errno);
    path_.clear();
    // The rename itself reaches the disk with the folder.
    const int folder = ::open(folderOf(target_).c_str(), O_RDONLY);
    if (folder >= 0) {
        ::fsync(folder);
        ::close(folder);
    }
}

#endif

}  // namespace

void checkAtomicTarget(const std::string& path) {
    std::error_code ec;
    const fs::file_status status = fs::symlink_status(path, ec);
    if (fs::exists(status) && !fs::is_regular_file(status))
        throw InputError(InputFault::notRegularTarget, path,
                         "exists and is not a regular file; it is not replaced");
    if (!fs::is_directory(folderOf(path), ec))
        throw InputError(InputFault::writeFailed, path,
                         "cannot write: no folder " + folderOf(path));
}

void writeFileAtomically(const std::string& path, std::string_view bytes) {
    checkAtomicTarget(path);
    Temporary(path, bytes).commit();
}

void writeFileAtomicallyVia(const std::string& path,
                            const std::function<bool(const std::string& temporary)>& writer) {
    checkAtomicTarget(path);
    errno = 0;
    Temporary(path, writer).commit();
}

void AtomicFileSet::add(std::string path, std::string bytes) {
    files_.emplace_back(std::move(path), std::move(bytes));
}

void AtomicFileSet::commit() {
    for (const auto& file : files_) checkAtomicTarget(file.first);
    std::vector<Temporary> temporaries;
    temporaries.reserve(files_.size());
    for (const auto& file : files_) temporaries.emplace_back(file.first, file.second);
    for (Temporary& temporary : temporaries) temporary.commit();
    files_.clear();
}

}  // namespace kestrel::meridian
