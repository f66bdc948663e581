// Atomic output: a file is written to a temporary in its own folder,
// flushed to the disk, then renamed into place. A failure leaves no partial
// or empty file and keeps any earlier file at the path as it was.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kestrel::meridian {

/// Writes `bytes` to `path` atomically. Throws InputError: notRegularTarget
/// when `path` names an existing directory, device, pipe or symbolic link
/// (never replaced); writeFailed when the folder is missing or the write,
/// flush or rename fails (e.g. a full disk or a file-size limit), with the
/// system's reason.
void writeFileAtomically(const std::string& path, std::string_view bytes);

/// Writes `path` atomically through a writer that can only write to a path
/// of its own (an image or EXR encoder, a streaming matrix writer):
/// `writer` is given the temporary's path and returns false when it fails.
/// The temporary is then flushed and renamed into place. Throws InputError
/// like writeFileAtomically; a failed writer is writeFailed.
void writeFileAtomicallyVia(const std::string& path,
                            const std::function<bool(const std::string& temporary)>& writer);

/// Throws the InputError writeFileAtomically would throw for the target
/// itself (not a regular file, no such folder), without writing anything,
/// so a command can refuse its outputs before doing any work.
void checkAtomicTarget(const std::string& path);

/// Several outputs that appear together or not at all, as far as the file
/// system allows: every temporary is written and flushed first, and only
/// when all of them are complete are they renamed into place, in the order
/// added.
class AtomicFileSet {
  public:
    /// Keeps `bytes` to be written to `path` by commit().
    void add(std::string path, std::string bytes);

    /// Writes every file. Throws InputError as writeFileAtomically; when a
    /// temporary fails, none of the outputs is touched.
    void commit();

  private:
    std::vector<std::pair<std::string, std::string>> files_;
};

}  // namespace kestrel::meridian
