"""Head swap: a face in the template topology carried onto the head and
into the engine's vertex order."""
import os

import numpy as np

from . import _library
from ._engine import (Engine, MeridianError, call_init, float_pointer, head_planar,
                      refused_handle, vertices_from_planar)

# The library refuses an element count above the file's size in bytes, and
# above 2^24: the output never has more vertices than that.
_MAX_ELEMENTS = 1 << 24


class HeadSwap(Engine):
    """A head converter loaded from a model directory holding
    "idx_tavi2head.corresp" and "idx_head2ue4.corresp".

    >>> with HeadSwap("demo-model") as converter:
    ...     head = converter.swap(face)      # face: (20481, 3) -> head: (N, 3)
    """

    def __init__(self, model_dir):
        model_dir = os.fspath(model_dir)
        engine_order = os.path.join(model_dir, "idx_head2ue4.corresp")
        with _library.lock:
            self._handle = call_init("AI_system_init_swaphead", refused_handle,
                                     os.fsencode(model_dir))
            self._capacity = min(os.path.getsize(engine_order), _MAX_ELEMENTS)
            super().__init__()

    def swap(self, face):
        """The face's vertices in engine order: (20481, 3) in, (N, 3) float32
        out, every output vertex a copy or a barycentric blend of input
        vertices."""
        planar = head_planar(face)
        out = np.empty(3 * self._capacity, dtype=np.float32)
        with _library.lock:
            self._require_open()
            count = _library.load().AI_swap_head(self._handle, float_pointer(planar),
                                                 float_pointer(out), 0)
        if count <= 0 or count > self._capacity:
            raise MeridianError(f"AI_swap_head gave {count} vertices", "AI_swap_head")
        return vertices_from_planar(out, count)
