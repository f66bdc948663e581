// The one error type of the engines: what went wrong (a code) and a line
// saying so. Engines return it; they never print and never end the process.
// The interfaces above them decide what, if anything, a caller sees.
#pragma once

#include <string>
#include <utility>

namespace kestrel::meridian {

/// What went wrong. The numbers are part of the modern C interface
/// (meridian_status), so they never change.
enum class ErrorCode : int {
    ok = 0,
    invalidArgument = 1,           ///< the caller's input is unusable (null, size, count)
    cannotOpen = 2,                ///< a data file could not be opened
    cannotOpenCorrespondence = 3,  ///< a correspondence (".corresp") file could not be opened
    cannotOpenIndexList = 4,       ///< an index list could not be opened
    cannotOpenMesh = 5,            ///< a mesh (OBJ or PLY) could not be opened
    tooShort = 6,                  ///< a data file holds less than its shape needs
    tooLarge = 7,                  ///< a data file, or a count in it, is larger than allowed
    badContent = 8,                ///< a data file's content is wrong
    indexOutOfRange = 9,           ///< an index names a vertex or entry that does not exist
    notLoaded = 10,                ///< the engine has no model loaded
    writeFailed = 11,              ///< an output file could not be written
    internal = 12,                 ///< an unexpected failure (out of memory and the like)
    incomplete = 13,               ///< a result needs data the engine has not been given yet
    unavailable = 14,              ///< this build has no such engine
};

/// A failure: its code, the file concerned (when one is) and one line of
/// text. `message` never ends with a line break.
struct Error {
    ErrorCode code = ErrorCode::ok;
    std::string path;
    std::string message;

    Error() = default;
    Error(ErrorCode c, std::string p, std::string m)
        : code(c), path(std::move(p)), message(std::move(m)) {}

    /// True when something went wrong.
    explicit operator bool() const { return code != ErrorCode::ok; }
};

}  // namespace kestrel::meridian
