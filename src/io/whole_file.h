// Reading a whole file into memory in one go, for the strict readers.
#pragma once

#include <cstdint>
#include <string>

namespace kestrel::meridian {

/// Largest file the strict readers take, the lenient OBJ reader's limit (a
/// head is a few MB).
inline constexpr int64_t kMaxStrictFileBytes = int64_t{1} << 28;

/// The bytes of a regular file. Throws InputError: missingFile when `path`
/// is absent or not a regular file, unreadable when it cannot be read or is
/// larger than `maxBytes`.
std::string readWholeFile(const std::string& path, int64_t maxBytes = kMaxStrictFileBytes);

}  // namespace kestrel::meridian
