"""Eyes: the template eyeball placed in both sockets of a head, and the
eyeball and eyelash meshes aligned to a head in their export order."""
import collections
import ctypes
import os

import numpy as np

from . import _library
from . import _modern
from ._engine import double_pointer, float_pointer, head_planar, vertices_from_planar
from ._modern import Handle

_TEMPLATE_COUNT = 3

EyePoses = collections.namedtuple("EyePoses", "angles positions scale")
EyePoses.__doc__ = """Both eyes' poses: a template-eyeball vertex v of eye k goes to
scale * R_k * v + positions[k].

angles:    (2, 3) float64, R_k's Euler angles in degrees (3.14 for pi):
           R = Rz(a[0]) * Ry(-a[1]) * Rx(a[2]).
positions: (2, 3) float64.
scale:     float, the same for both eyes.
Eye 0 is the socket around head vertex 12322, eye 1 the one around 7166."""


class EyeballFit(Handle):
    """The plain eyeball fit, from model_dir + "/eyeball/new_eye.ply"."""

    _kind = "eyeball_fit"

    def __init__(self, model_dir):
        super().__init__("meridian_eyeball_fit_open", os.fsencode(os.fspath(model_dir)))

    def fit(self, head, template=0):
        """The eye poses of a (20481, 3) head, first aligned to landmark
        template 0, 1 or 2."""
        if template not in range(_TEMPLATE_COUNT):
            raise ValueError(f"template is 0, 1 or 2, got {template}")
        planar = head_planar(head)
        poses = _modern.EyePosesStruct()
        with _library.lock:
            self._require_open()
            self._check(self._api("run")(self._handle, float_pointer(planar), planar.size,
                                         template, ctypes.byref(poses)), "fit")
        return EyePoses(np.array(poses.angles_deg), np.array(poses.positions), poses.scale)

    def write_posed_eye(self, out_path, angles, position, scale):
        """Writes the template eye mesh of this model ("eyeball/color_eye/
        EyeNew.obj") moved by one pose (as fit() reports it: angles (3,) in
        degrees, position (3,), scale) to `out_path`, vertex lines as "%f"."""
        angles = np.ascontiguousarray(angles, dtype=np.float64)
        position = np.ascontiguousarray(position, dtype=np.float64)
        if angles.shape != (3,) or position.shape != (3,):
            raise ValueError("angles and position are 3 numbers each")
        with _library.lock:
            self._require_open()
            self._check(self._api("write_posed_eye")(
                self._handle, double_pointer(angles), double_pointer(position), float(scale),
                os.fsencode(os.fspath(out_path))), "write_posed_eye")


class _Aligner(Handle):
    """An aligner: loaded from a model directory, it fits its mesh to a head
    and writes it in export order."""

    _kind = "eye_aligner"
    _open = None  # the kind's open function

    def __init__(self, model_dir):
        super().__init__(self._open, os.fsencode(os.fspath(model_dir)))

    def align(self, head):
        """The mesh fitted to a (20481, 3) head: (N, 3) float32 in export
        order."""
        planar = head_planar(head)
        with _library.lock:
            self._require_open()
            count = self._api("output_vertex_count")(self._handle)
            out = np.empty(3 * count, dtype=np.float32)
            self._check(self._api("run")(self._handle, float_pointer(planar), planar.size,
                                         float_pointer(out), out.size), "align")
        return vertices_from_planar(out, count)


class EyeballAligner(_Aligner):
    """Both eyeballs scaled and moved onto the head as a whole (scale clamped
    to 0.9..1.1), then each turned and moved onto its socket; from the
    model's "idx_tavi2head.corresp" and "eyeball/" files."""

    _open = "meridian_eye_aligner_open_eyeball"


class EyelashAligner(_Aligner):
    """Both eyelashes placed like the eyeballs, then moved by their
    blendshape with weights solved from the remaining offset (five passes);
    from the model's "idx_tavi2head.corresp" and "eyelash/" files."""

    _open = "meridian_eye_aligner_open_eyelash"
