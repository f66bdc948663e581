"""Files as the batch writes and checks them."""
import hashlib
import os
import tempfile
from concurrent.futures import ThreadPoolExecutor


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
    error, = write_all_atomically([(path, data)], flush_threads=1)
    if error is not None:
        raise error


def write_all_atomically(files, flush_threads=4):
    """Writes each (path, bytes) of `files` as write_atomically does, and
    returns, per file, None or the exception that stopped it (that file is
    then left as it was, and no temporary stays behind).

    The bytes are written here, one file after another, so the caller's
    process still does its work on one thread; only the flushes to disk,
    which wait on the disk rather than on this process, run side by side on
    up to `flush_threads` threads. The disk then gets every file of the call
    at once instead of one at a time; each file is renamed into place only
    once its own flush is done."""
    errors = [None] * len(files)
    staged = []  # (index, descriptor, temporary), each until renamed or removed
    try:
        for index, (path, data) in enumerate(files):
            try:
                staged.append((index, *_write_temporary(path, data)))
            except Exception as error:
                errors[index] = error

        def flush(item):
            index, descriptor, _ = item
            try:
                os.fsync(descriptor)
            except Exception as error:
                errors[index] = error

        if flush_threads > 1 and len(staged) > 1:
            with ThreadPoolExecutor(max_workers=min(flush_threads, len(staged))) as flushers:
                list(flushers.map(flush, staged))
        else:
            for item in staged:
                flush(item)
        while staged:
            index, descriptor, temporary = staged[0]
            os.close(descriptor)
            staged.pop(0)
            try:
                if errors[index] is None:
                    os.replace(temporary, files[index][0])
                    continue
            except Exception as error:
                errors[index] = error
            _remove(temporary)
    finally:  # interrupted: what was not renamed goes
        for _, descriptor, temporary in staged:
            os.close(descriptor)
            _remove(temporary)
    return errors


def _write_temporary(path, data):
    """Creates a temporary beside `path` and writes `data` into it; returns
    its open descriptor and name. Refuses a target that exists and is not a
    regular file."""
    folder = os.path.dirname(os.path.abspath(path))
    os.makedirs(folder, exist_ok=True)
    if os.path.lexists(path) and not (os.path.isfile(path) and not os.path.islink(path)):
        raise OSError(f"{path} exists and is not a regular file")
    descriptor, temporary = tempfile.mkstemp(dir=folder, prefix="." + os.path.basename(path) + ".",
                                             suffix=".tmp")
    try:
        view = memoryview(data)
        while view:
            view = view[os.write(descriptor, view):]
    except BaseException:
        os.close(descriptor)
        _remove(temporary)
        raise
    return descriptor, temporary


def _remove(path):
    try:
        os.unlink(path)
    except OSError:
        pass


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
