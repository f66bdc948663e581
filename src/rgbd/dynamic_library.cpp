#include "rgbd/dynamic_library.h"

#if defined(_WIN32)
#include <windows.h>
#else
#include <dlfcn.h>
#endif

namespace kestrel::meridian {

namespace {

std::string parentWithSeparator(const std::string& path) {
    const size_t slash = path.find_last_of("/\\");
    return slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
}

}  // namespace

#if defined(_WIN32)

std::unique_ptr<DynamicLibrary> DynamicLibrary::open(const std::string& path, std::string& error) {
    HMODULE module = LoadLibraryA(path.c_str());
    if (module == nullptr) {
        error = "cannot load " + path + " (Windows error " + std::to_string(GetLastError()) + ")";
        return nullptr;
    }
    return std::unique_ptr<DynamicLibrary>(new DynamicLibrary(reinterpret_cast<void*>(module)));
}

DynamicLibrary::~DynamicLibrary() {
    FreeLibrary(reinterpret_cast<HMODULE>(handle_));
}

void* DynamicLibrary::symbol(const char* name) const {
    return reinterpret_cast<void*>(GetProcAddress(reinterpret_cast<HMODULE>(handle_), name));
}

std::string DynamicLibrary::fileName(const std::string& base) {
    return base + ".dll";
}

std::string DynamicLibrary::directoryOf(const void* address) {
    HMODULE module = nullptr;
    if (!GetModuleHandleExA(
            GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
            static_cast<LPCSTR>(address), &module))
        return std::string();
    char path[MAX_PATH];
    const DWORD length = GetModuleFileNameA(module, path, MAX_PATH);
    if (length == 0 || length >= MAX_PATH) return std::string();
    return parentWithSeparator(std::string(path, length));
}

#else

std::unique_ptr<DynamicLibrary> DynamicLibrary::open(const std::string& path, std::string& error) {
    void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        const char* why = dlerror();
        error = "cannot load " + path + (why ? std::string(": ") + why : std::string());
        return nullptr;
    }
    return std::unique_ptr<DynamicLibrary>(new DynamicLibrary(handle));
}

DynamicLibrary::~DynamicLibrary() {
    dlclose(handle_);
}

void* DynamicLibrary::symbol(const char* name) const {
    return dlsym(handle_, name);
}

std::string DynamicLibrary::fileName(const std::string& base) {
    return base + ".so";
}

std::string DynamicLibrary::directoryOf(const void* address) {
    Dl_info info{};
    if (dladdr(address, &info) == 0 || info.dli_fname == nullptr) return std::string();
    return parentWithSeparator(info.dli_fname);
}

#endif

}  // namespace kestrel::meridian
