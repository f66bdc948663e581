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


def write_all_atomically(files, flush_threads=4, while_flushing=None):
    """Writes each (path, bytes) of `files` as write_atomically does, and
    returns, per file, None or the exception that stopped it (that file is
    then left as it was, and no temporary stays behind).

    The bytes are written here, one file after another, so the caller's
    process still does its work on one thread; only the flushes to disk,
    which wait on the disk rather than on this process, run on up to
    `flush_threads` threads, each started as soon as its file is written.
    The disk then has the files of the call side by side instead of one at
    a time, while the next file is written. `while_flushing(index)`, when
    given, is called once file `index` is written and its flush started:
    work of the caller's that the flushes overlap. Each file is renamed into
    place only once its own flush is done."""
    errors = [None] * len(files)
    staged = []  # (index, descriptor, temporary), each until renamed or removed
    flushers = (ThreadPoolExecutor(max_workers=min(flush_threads, len(files)))
                if flush_threads > 1 and len(files) > 1 else None)

    def flush(index, descriptor):
        try:
            os.fsync(descriptor)
        except Exception as error:
            errors[index] = error

    try:
        flushes = []
        for index, (path, data) in enumerate(files):
            try:
                staged.append((index, *_write_temporary(path, data)))
            except Exception as error:
                errors[index] = error
                continue
            descriptor = staged[-1][1]
            if flushers is None:
                flush(index, descriptor)
            else:
                flushes.append(flushers.submit(flush, index, descriptor))
            if while_flushing is not None:
                while_flushing(index)
        for done in flushes:
            done.result()
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
        if flushers is not None:
            flushers.shutdown(wait=True)
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
