// The typed failure of the strict readers, the model check and the atomic
// writer: what kind of fault, which file, and one line saying where.
#pragma once

#include <stdexcept>
#include <string>

namespace kestrel::meridian {

/// Why a file was refused or could not be written.
enum class InputFault {
    missingFile,      ///< absent, or not a regular file
    unreadable,       ///< exists but cannot be read
    unknownFormat,    ///< neither OBJ nor PLY, or a PLY header this reader does not take
    wrongCount,       ///< a count other than the one the other files need
    nonFinite,        ///< nan, inf, an unparsable or overflowing number where a value belongs
    truncated,        ///< the body is shorter than its header or its shape says
    malformed,        ///< a record that does not follow the grammar
    indexOutOfRange,  ///< an index that names no existing element
    writeFailed,      ///< the output could not be written (disk full, file too large, ...)
    notRegularTarget  ///< the output path names a directory, a device, a link or a pipe
};

/// Short name of a fault, e.g. "non-finite value".
const char* inputFaultName(InputFault fault);

/// A refused input or a failed output. what() is one line that names the
/// file and the place, e.g. "head.obj: line 12: vertex 7 has a non-finite
/// coordinate 'nan'".
class InputError : public std::runtime_error {
  public:
    InputError(InputFault fault, std::string path, const std::string& detail)
        : std::runtime_error(path + ": " + detail), fault_(fault), path_(std::move(path)) {}

    InputFault fault() const { return fault_; }
    /// The file concerned.
    const std::string& path() const { return path_; }

  private:
    InputFault fault_;
    std::string path_;
};

}  // namespace kestrel::meridian
