"""Tangent frames: per-vertex tangent, bitangent and normal of a head."""
import collections
import ctypes
import os
import re

import numpy as np

from . import _library
from ._engine import (TEMPLATE_VERTICES, Engine, MeridianError, SingletonEngine, call_init,
                      float_pointer, head_planar, refused_handle)

TangentFrames = collections.namedtuple("TangentFrames", "tangent bitangent normal")
TangentFrames.__doc__ = "Per-vertex frames, each field an (n, 3) float32 array."


def _frames(planar, count):
    """Planar 9 by n output -> TangentFrames of (n, 3) arrays."""
    rows = planar[:9 * count].reshape(9, count)
    return TangentFrames(*(np.ascontiguousarray(rows[k:k + 3].T) for k in (0, 3, 6)))


class FixedTangentFrames(SingletonEngine):
    """The fixed engine, from model_dir + "/TBN/std_20481_with_UV_F_TF.obj".
    The library holds one such engine: only one may be open at a time."""

    def __init__(self, model_dir):
        with _library.lock:
            self._require_none_open()
            call_init("AI_system_init_TBN", lambda status, _: status != 1,
                      os.fsencode(os.fspath(model_dir)))
            super().__init__()

    def frames(self, head):
        """Frames of the 20481 head vertices: (20481, 3) in."""
        planar = head_planar(head)
        out = np.empty(9 * TEMPLATE_VERTICES, dtype=np.float32)
        with _library.lock:
            self._require_open()
            status = _library.load().AI_get_TBN(float_pointer(planar), float_pointer(out))
        if status != 1:
            raise MeridianError(f"AI_get_TBN gave {status}", "AI_get_TBN")
        return _frames(out, TEMPLATE_VERTICES)


def _read_index_file(path):
    """The integers the library reads from an index file (up to the first
    token that is not one), and an upper bound on their number that holds
    however the file is written: each integer needs its own run of digits."""
    with open(path, "rb") as stream:
        data = stream.read()
    values, position = [], 0
    number = re.compile(rb"\s*([+-]?\d+)")
    while True:
        match = number.match(data, position)
        if not match or not -2**31 <= int(match.group(1)) < 2**31:
            break
        values.append(int(match.group(1)))
        position = match.end()
    return values, len(re.findall(rb"\d+", data))


class GeneralTangentFrames(Engine):
    """A general engine on a template with its own vertex numbering.

    tavi_to_head: for every template vertex, the head vertex it copies.
    head_to_tavi: for every output vertex, the template vertex whose frame
                  it takes; frames() gives len(head_to_tavi) frames.
    """

    def __init__(self, template_obj, tavi_to_head, head_to_tavi):
        to_head = np.ascontiguousarray(tavi_to_head, dtype=np.intc)
        to_tavi = np.ascontiguousarray(head_to_tavi, dtype=np.intc)
        if to_head.ndim != 1 or to_tavi.ndim != 1:
            raise ValueError("index lists are one-dimensional")
        ints = ctypes.POINTER(ctypes.c_int)
        with _library.lock:
            self._handle = call_init(
                "AI_system_init_TBN_g", refused_handle,
                os.fsencode(os.fspath(template_obj)), to_head.ctypes.data_as(ints), to_head.size,
                to_tavi.ctypes.data_as(ints), to_tavi.size)
            self._count = self._capacity = to_tavi.size
            super().__init__()

    @classmethod
    def from_files(cls, template_obj, tavi_to_head_file, head_to_tavi_file):
        """The same engine with both index lists read by the library from text
        files of whitespace-separated integers."""
        engine = cls.__new__(cls)
        with _library.lock:
            engine._handle = call_init(
                "AI_system_init_TBN_g2", refused_handle,
                *(os.fsencode(os.fspath(p))
                  for p in (template_obj, tavi_to_head_file, head_to_tavi_file)))
            values, bound = _read_index_file(head_to_tavi_file)
            engine._count, engine._capacity = min(len(values), bound), bound
            Engine.__init__(engine)
        return engine

    def frames(self, head):
        """Frames of the output vertices: (20481, 3) head in."""
        planar = head_planar(head)
        out = np.empty(9 * max(self._capacity, 1), dtype=np.float32)
        with _library.lock:
            self._require_open()
            _library.load().AI_get_TBN_g(self._handle, float_pointer(planar),
                                         float_pointer(out))
        return _frames(out, self._count)
