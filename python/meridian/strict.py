"""Strict input: a head file read as the tool reads it, and the model check
every open runs, from Python."""
import os

import numpy as np

from . import _library, _modern
from ._engine import TEMPLATE_VERTICES, MeridianError, float_pointer, vertices_from_planar

# meridian_model_part flags, by the names check_model() takes.
MODEL_PARTS = {"head_swap": 1, "engine_head": 2, "tangent_frames": 4, "eyeball_fit": 8,
               "eye_aligners": 16, "eye_export": 32, "blendshapes": 64}


def read_head(path):
    """A head in the template topology from an OBJ or PLY file, read
    strictly: (20481, 3) float32. Raises MeridianError naming the file and
    the place for a wrong vertex count, a non-finite coordinate, a short
    body, a malformed record or an index out of range."""
    api = _modern.load()
    out = np.empty(3 * TEMPLATE_VERTICES, dtype=np.float32)
    with _library.lock:
        if api.meridian_read_head(os.fsencode(os.fspath(path)), float_pointer(out), out.size):
            raise MeridianError(_modern._decode(api.meridian_open_error()), "read_head")
    return vertices_from_planar(out, TEMPLATE_VERTICES)


def asset_parts(skip=()):
    """The model parts an asset reads, without those `skip` leaves out
    ("eyes", "blendshapes")."""
    parts = ["head_swap", "engine_head"]
    if "eyes" not in skip:
        parts += ["eyeball_fit", "eye_aligners", "eye_export"]
    if "blendshapes" not in skip:
        parts.append("blendshapes")
    return parts


def check_model(model_dir, parts):
    """Checks every file of `model_dir` that `parts` (names of MODEL_PARTS)
    need, strictly, before any engine loads. Raises MeridianError naming
    the first file at fault and the fault."""
    flags = 0
    for part in ([parts] if isinstance(parts, str) else parts):
        if part not in MODEL_PARTS:
            raise ValueError(f"unknown model part {part!r}; known: {', '.join(MODEL_PARTS)}")
        flags |= MODEL_PARTS[part]
    api = _modern.load()
    with _library.lock:
        if api.meridian_check_model(os.fsencode(os.fspath(model_dir)), flags):
            raise MeridianError(_modern._decode(api.meridian_open_error()), "check_model")
