"""What every engine class shares: the error type, the head layout, the
pointers handed to the library, and release_all().

Every engine object is a handle of the modern interface (_modern.Handle)
that owns its engine; closing one frees it and nothing else.
"""
import ctypes
import weakref

import numpy as np

from . import _library

TEMPLATE_VERTICES = 20481


class MeridianError(RuntimeError):
    """A failure reported by the library; `message` is its text."""

    def __init__(self, message, call=None):
        self.message = message
        self.call = call
        super().__init__(message or f"{call} failed")


# Open handles of the modern interface (each owns its engine).
modern_handles = weakref.WeakSet()


def release_all():
    """Closes every open engine of the package."""
    with _library.lock:
        for handle in list(modern_handles):
            handle.close()


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
