// Reading a whole file into memory in one go, for the strict readers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace kestrel::meridian {

/// Largest file the strict readers take, the lenient OBJ reader's limit (a
/// head is a few MB).
inline constexpr int64_t kMaxStrictFileBytes = int64_t{1} << 28;

/// A file's bytes, in storage the read fills without clearing it first
/// (clearing a mesh of a few MB would write every page once more for
/// nothing).
struct WholeFile {
    std::unique_ptr<char[]> data;
    size_t size = 0;

    std::string_view view() const { return {data.get(), size}; }
};

/// The bytes of a regular file. Throws InputError: missingFile when `path`
/// is absent or not a regular file, unreadable when it cannot be read or is
/// larger than `maxBytes`.
std::string readWholeFile(const std::string& path, int64_t maxBytes = kMaxStrictFileBytes);

/// readWholeFile into uninitialised storage, with the same refusals.
WholeFile readFileBytes(const std::string& path, int64_t maxBytes = kMaxStrictFileBytes);

}  // namespace kestrel::meridian
