"""Tangent frames: per-vertex tangent, bitangent and normal of a head."""
import collections
import ctypes
import os

import numpy as np

from . import _library
from ._engine import float_pointer, head_planar
from ._modern import Handle

TangentFrames = collections.namedtuple("TangentFrames", "tangent bitangent normal")
TangentFrames.__doc__ = "Per-vertex frames, each field an (n, 3) float32 array."


def _frames(planar, count):
    """Planar 9 by n output -> TangentFrames of (n, 3) arrays."""
    rows = planar[:9 * count].reshape(9, count)
    return TangentFrames(*(np.ascontiguousarray(rows[k:k + 3].T) for k in (0, 3, 6)))


class _FrameEngine(Handle):
    _kind = "tangent_frames"

    def set_threads(self, threads):
        """Threads a call uses: 1 (the caller's alone, as a batch worker
        wants), 2, or 0 for the default (two on a machine with two cores or
        more, for templates of 4096 faces or more). The frames are the same
        bits for any number."""
        if threads not in (0, 1, 2):
            raise ValueError(f"threads is 0, 1 or 2, got {threads}")
        with _library.lock:
            self._require_open()
            self._check(self._api("set_thread_count")(self._handle, threads), "threads")

    def frames(self, head):
        """Frames of the output vertices of a (20481, 3) head."""
        planar = head_planar(head)
        with _library.lock:
            self._require_open()
            count = self._api("output_vertex_count")(self._handle)
            out = np.empty(9 * count, dtype=np.float32)
            self._check(self._api("run")(self._handle, float_pointer(planar), planar.size,
                                         float_pointer(out), out.size), "frames")
        return _frames(out, count)


class FixedTangentFrames(_FrameEngine):
    """The fixed engine, from model_dir + "/TBN/std_20481_with_UV_F_TF.obj":
    frames of the 20481 head vertices."""

    def __init__(self, model_dir):
        super().__init__("meridian_tangent_frames_open", os.fsencode(os.fspath(model_dir)))


class GeneralTangentFrames(_FrameEngine):
    """A general engine on a template with its own vertex numbering.

    tavi_to_head: for every template vertex, the head vertex it copies.
    head_to_tavi: for every output vertex, the template vertex whose frame
                  it takes; frames() gives len(head_to_tavi) frames.
    """

    def __init__(self, template_obj, tavi_to_head, head_to_tavi):
        to_head = np.ascontiguousarray(tavi_to_head, dtype=np.int32)
        to_tavi = np.ascontiguousarray(head_to_tavi, dtype=np.int32)
        if to_head.ndim != 1 or to_tavi.ndim != 1:
            raise ValueError("index lists are one-dimensional")
        ints = ctypes.POINTER(ctypes.c_int32)
        super().__init__("meridian_tangent_frames_open_general",
                         os.fsencode(os.fspath(template_obj)), to_head.ctypes.data_as(ints),
                         to_head.size, to_tavi.ctypes.data_as(ints), to_tavi.size)

    @classmethod
    def from_files(cls, template_obj, tavi_to_head_file, head_to_tavi_file):
        """The same engine with both index lists read by the library from text
        files of whitespace-separated integers."""
        engine = cls.__new__(cls)
        Handle.__init__(engine, "meridian_tangent_frames_open_general_files",
                        *(os.fsencode(os.fspath(p))
                          for p in (template_obj, tavi_to_head_file, head_to_tavi_file)))
        return engine
