"""Engine lifetime over a C interface that releases engines only all at once.

An engine object is open from its creation until close() (or the end of its
`with` block, or its garbage collection). A closed engine refuses every call
at once, but the library frees engines only in AI_system_over, which frees
all of them. So the package calls AI_system_over when the last open engine
of the process closes, and release_all() closes every open engine and calls
it. A handle is never used after its engine was closed, so no handle from
before an AI_system_over ever reaches the library.
"""
import ctypes
import weakref

import numpy as np

from . import _library

TEMPLATE_VERTICES = 20481


class MeridianError(RuntimeError):
    """A failure reported by the library; `message` is what it printed."""

    def __init__(self, message, call=None):
        self.message = message
        self.call = call
        super().__init__(message or f"{call} failed")


# Close callbacks of the open engines, keyed by id (a finalizer each).
_open = {}

# Open handles of the modern interface (each owns its engine).
modern_handles = weakref.WeakSet()


def _release_if_idle():
    if not _open:
        _library.load().AI_system_over()


def release_all():
    """Closes every open engine and releases all of the library's memory."""
    with _library.lock:
        for handle in list(modern_handles):
            handle.close()
        for finalizer in list(_open.values()):
            finalizer()
        _library.load().AI_system_over()


def call_printing(name, *arguments):
    """Runs an export with its standard output captured: (result, text).
    The caller holds the lock."""
    function = getattr(_library.load(), name)
    with _library.captured_stdout() as printed:
        result = function(*arguments)
    return result, printed[0].strip() if printed else ""


def call_init(name, failed, *arguments):
    """Runs an init export with its messages captured; raises MeridianError
    with the printed message when `failed(result, message)`, else returns the
    result. The caller holds the lock."""
    result, message = call_printing(name, *arguments)
    if failed(result, message):
        # A failed engine stays allocated until AI_system_over.
        _release_if_idle()
        raise MeridianError(message, name)
    if message:
        print(message)
    return result


def refused_handle(handle, _message=""):
    return handle == 0


def head_planar(head):
    """A head as (20481, 3) vertices -> contiguous planar float32 (3, 20481)."""
    vertices = np.asarray(head, dtype=np.float32)
    if vertices.shape != (TEMPLATE_VERTICES, 3):
        raise ValueError(f"a head has shape ({TEMPLATE_VERTICES}, 3), got {vertices.shape}")
    return np.ascontiguousarray(vertices.T)


def vertices_from_planar(planar, count):
    """The first 3 * count values of a planar output as (count, 3)."""
    return planar[:3 * count].reshape(3, count).T.copy()


def float_pointer(array):
    return array.ctypes.data_as(ctypes.POINTER(ctypes.c_float))


def double_pointer(array):
    return array.ctypes.data_as(ctypes.POINTER(ctypes.c_double))


class Engine:
    """Base of the engine classes: open until closed, usable as a context
    manager. `on_close`, when given, runs (under the lock) as the engine
    closes; it must not refer to the engine."""

    def __init__(self, on_close=None):
        self._closed = False
        _open[id(self)] = weakref.finalize(self, Engine._forget, id(self), on_close)

    @staticmethod
    def _forget(key, on_close):
        with _library.lock:
            if _open.pop(key, None) is not None:
                if on_close is not None:
                    on_close()
                _release_if_idle()

    def close(self):
        """Makes the engine unusable; the library's memory is released when no
        engine is open any more."""
        with _library.lock:
            self._closed = True
            finalizer = _open.get(id(self))
            if finalizer is not None:
                finalizer()

    @property
    def closed(self):
        return self._closed or id(self) not in _open

    def _require_open(self):
        if self.closed:
            raise MeridianError(f"{type(self).__name__} is closed", None)

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()


class SingletonEngine(Engine):
    """An engine the library keeps once per process: a second init would
    replace the first (which stays allocated until AI_system_over), so only
    one object of each such class may be open at a time."""

    _open_instance = None  # set per subclass

    @classmethod
    def _require_none_open(cls):
        """Raises when an object of this class is open. The caller holds the
        lock."""
        current = cls._open_instance() if cls._open_instance is not None else None
        if current is not None and not current.closed:
            raise MeridianError(f"a {cls.__name__} engine is already open; close it first")

    def __init__(self, on_close=None):
        super().__init__(on_close)
        type(self)._open_instance = weakref.ref(self)
