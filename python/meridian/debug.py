"""Head meshes read by the library's own readers into (N, 3) float32 arrays.

The library writes into a caller's array without saying how many vertices
it holds, so the count is worked out first exactly as its readers find it.
"""
import ctypes
import os

import numpy as np

from . import _library
from ._engine import MeridianError, call_printing, float_pointer, vertices_from_planar

_PLY_HEADER_LINES = 7
_MAX_PLY_ELEMENTS = 1 << 24  # the reader refuses larger counts
_MAX_OBJ_BYTES = 1 << 28  # and larger OBJ files


def _strtod(token):
    """The C library's strtod of a token, as the PLY reader converts it."""
    strtod = ctypes.CDLL(None).strtod
    strtod.restype, strtod.argtypes = ctypes.c_double, [ctypes.c_char_p, ctypes.c_void_p]
    return strtod(token, None)


def _ply_vertex_count(stream):
    """The vertex count the reader takes from the first seven lines: the last
    line of exactly three blank-separated tokens whose second is "vertex"."""
    count = 0
    for _ in range(_PLY_HEADER_LINES):
        line = stream.readline()
        if line.endswith(b"\n"):
            line = line[:-1]
            if line.endswith(b"\r"):
                line = line[:-1]  # a line end of CR LF reads as LF
        tokens = line.split(b" ")
        if len(tokens) == 3 and tokens[1] == b"vertex":
            value = _strtod(tokens[2])
            count = int(value) if 0 <= value <= _MAX_PLY_ELEMENTS else 0
    return count


def _obj_vertex_count(stream):
    """Vertices of an OBJ text as the reader counts them: every token after a
    "v" keyword until the next keyword is a coordinate. A file the reader
    refuses for its size counts none."""
    if os.fstat(stream.fileno()).st_size > _MAX_OBJ_BYTES:
        return 0
    mode, numbers = None, 0
    for token in stream.read().split():
        if token in (b"v", b"vt", b"f"):
            mode = token
        elif mode == b"v":
            numbers += 1
    return numbers // 3


def _read(export, path, count_vertices):
    path = os.fspath(path)
    try:
        with open(path, "rb") as stream:
            count = count_vertices(stream)
    except OSError:
        count = 0  # the library says so itself
    out = np.empty(3 * max(count, 1), dtype=np.float32)
    with _library.lock:
        status, printed = call_printing(export, os.fsencode(path), float_pointer(out))
    if status != 1:
        raise MeridianError(printed, export)
    return vertices_from_planar(out, count)


def read_head_ply(path):
    """The vertices of an ASCII PLY with exactly 7 header lines, as the
    library reads them: (N, 3) float32."""
    return _read("debug_get_head_data_from_ply", path, _ply_vertex_count)


def read_head_obj(path):
    """The vertices of an OBJ, as the library reads them: (N, 3) float32."""
    return _read("debug_get_head_data_from_obj", path, _obj_vertex_count)
