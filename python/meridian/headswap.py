"""Head swap: a face in the template topology carried onto the head and
into the engine's vertex order."""
import os

import numpy as np

from . import _library
from ._engine import float_pointer, head_planar, vertices_from_planar
from ._modern import Handle


class HeadSwap(Handle):
    """A head converter loaded from a model directory holding
    "idx_tavi2head.corresp" and "idx_head2ue4.corresp".

    >>> with HeadSwap("demo-model") as converter:
    ...     head = converter.swap(face)      # face: (20481, 3) -> head: (N, 3)
    """

    _kind = "head_swap"

    def __init__(self, model_dir):
        super().__init__("meridian_head_swap_open", os.fsencode(os.fspath(model_dir)))

    def swap(self, face):
        """The face's vertices in engine order: (20481, 3) in, (N, 3) float32
        out, every output vertex a copy or a barycentric blend of input
        vertices."""
        planar = head_planar(face)
        with _library.lock:
            self._require_open()
            count = self._api("output_vertex_count")(self._handle)
            out = np.empty(3 * count, dtype=np.float32)
            self._check(self._api("run")(self._handle, float_pointer(planar), planar.size,
                                         float_pointer(out), out.size), "swap")
        return vertices_from_planar(out, count)
