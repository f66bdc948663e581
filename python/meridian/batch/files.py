"""Files as the batch writes and checks them."""
import hashlib
import os
import tempfile


def sha256_of(path, block=1 << 20):
    """The SHA-256 of a file's bytes, in hex."""
    digest = hashlib.sha256()
    with open(path, "rb") as stream:
        for chunk in iter(lambda: stream.read(block), b""):
            digest.update(chunk)
    return digest.hexdigest()


def write_atomically(path, data):
    """Writes `data` (bytes) to `path` through a temporary file in the same
    folder, flushed to disk and then renamed into place: a reader sees the
    old file or the whole new one, never a part. An existing target that is
    not a regular file is refused (OSError)."""
    folder = os.path.dirname(os.path.abspath(path))
    os.makedirs(folder, exist_ok=True)
    if os.path.lexists(path) and not (os.path.isfile(path) and not os.path.islink(path)):
        raise OSError(f"{path} exists and is not a regular file")
    descriptor, temporary = tempfile.mkstemp(dir=folder, prefix="." + os.path.basename(path) + ".",
                                             suffix=".tmp")
    try:
        with os.fdopen(descriptor, "wb") as stream:
            stream.write(data)
            stream.flush()
            os.fsync(stream.fileno())
        os.replace(temporary, path)
    except BaseException:
        try:
            os.unlink(temporary)
        except OSError:
            pass
        raise


def remove_stale_temporaries(path):
    """Removes temporaries of `path` that a process ended mid-write left."""
    folder = os.path.dirname(os.path.abspath(path))
    prefix = "." + os.path.basename(path) + "."
    try:
        names = os.listdir(folder)
    except OSError:
        return
    for name in names:
        if name.startswith(prefix) and name.endswith(".tmp"):
            try:
                os.unlink(os.path.join(folder, name))
            except OSError:
                pass
