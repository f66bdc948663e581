// A shared library opened at run time: dlopen/dlsym on POSIX systems,
// LoadLibraryA/GetProcAddress on Windows.
#pragma once

#include <memory>
#include <string>

namespace kestrel::meridian {

class DynamicLibrary {
  public:
    /// Opens `path` (a file path, or a bare file name that the system loader
    /// looks up on its search path). Returns null and says why in `error`.
    static std::unique_ptr<DynamicLibrary> open(const std::string& path, std::string& error);

    ~DynamicLibrary();
    DynamicLibrary(const DynamicLibrary&) = delete;
    DynamicLibrary& operator=(const DynamicLibrary&) = delete;

    /// Address of the exported function `name`, or null.
    void* symbol(const char* name) const;

    /// The platform's file name of library `base`: "libcv_face" gives
    /// "libcv_face.dll" on Windows and "libcv_face.so" elsewhere.
    static std::string fileName(const std::string& base);

    /// Directory (ending in a separator) of the executable or shared library
    /// whose code contains `address`; empty when it cannot be told.
    static std::string directoryOf(const void* address);

  private:
    explicit DynamicLibrary(void* handle) : handle_(handle) {}
    void* handle_;
};

}  // namespace kestrel::meridian
