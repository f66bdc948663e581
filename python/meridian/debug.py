"""Head meshes read by the library's debug readers into (N, 3) float32
arrays: the vertex count is asked of the library first, then the vertices."""
import ctypes
import os

import numpy as np

from . import _library, _modern
from ._engine import MeridianError, float_pointer, vertices_from_planar

_PLY, _OBJ = 0, 1  # meridian_head_file


def _read(kind, path):
    api = _modern.load()
    encoded = os.fsencode(os.fspath(path))
    count = ctypes.c_size_t(0)
    with _library.lock:
        if api.meridian_debug_read_head(encoded, kind, None, 0, ctypes.byref(count)) != 0:
            raise MeridianError(_modern._decode(api.meridian_open_error()), "read_head")
        out = np.empty(3 * count.value, dtype=np.float32)
        if api.meridian_debug_read_head(encoded, kind, float_pointer(out), out.size, None) != 0:
            raise MeridianError(_modern._decode(api.meridian_open_error()), "read_head")
    return vertices_from_planar(out, count.value)


def read_head_ply(path):
    """The vertices of an ASCII PLY with exactly 7 header lines, as the
    library reads them: (N, 3) float32."""
    return _read(_PLY, path)


def read_head_obj(path):
    """The vertices of an OBJ, as the library reads them: (N, 3) float32."""
    return _read(_OBJ, path)
