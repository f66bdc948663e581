"""RGBD frame selection: from a capture of colour + depth frames, one
frontal frame, one turned each way and one looking up."""
import collections
import ctypes
import os
import sys

import numpy as np

from . import _library
from ._engine import MeridianError, SingletonEngine, call_init, call_printing

# Intake codes: stored in a bucket, or why not.
FRONT, YAW_NEGATIVE, YAW_POSITIVE, UP = 5, 4, 3, 2
NO_FACE, EYES_CLOSED, NO_BUCKET, FACE_TOO_SMALL = -1, -2, -3, -4

Intake = collections.namedtuple("Intake", "code yaw pitch")
Intake.__doc__ = """What the selection made of one frame: its code (FRONT, YAW_NEGATIVE,
YAW_POSITIVE, UP when stored; NO_FACE, EYES_CLOSED, NO_BUCKET,
FACE_TOO_SMALL otherwise) and the head angles in degrees (-10000 without a
face, NaN for EYES_CLOSED and FACE_TOO_SMALL, which report none)."""

FinalChoice = collections.namedtuple("FinalChoice", "front yaw_negative yaw_positive up")
FinalChoice.__doc__ = "The frame ids chosen for each bucket."

_EMPTY_BUCKET = {-5: "frontal", -4: "yaw -25", -3: "yaw +25", -2: "up"}
_PROVIDER = "libcv_face.dll" if sys.platform == "win32" else "libcv_face.so"


def provider_problem(model_dir):
    """Why the library could not load its landmark provider and model from
    `model_dir`, found the way the library finds them (libcv_face beside the
    library, else on the loader's search path), or None. The library's init
    ends the process in that case."""
    beside = os.path.join(_library.library_directory(), _PROVIDER)
    try:
        provider, location = ctypes.CDLL(beside), beside
    except OSError as beside_error:
        try:
            provider, location = ctypes.CDLL(_PROVIDER), _PROVIDER
        except OSError as search_error:
            return (f"landmark provider {_PROVIDER} not found next to the library "
                    f"({beside_error}) nor on the loader's search path ({search_error})")
    for function in ("InitModel", "GetFaceLandmark"):
        if not hasattr(provider, function):
            return f"landmark provider {location} has no function {function}"
    init = provider.InitModel
    init.restype, init.argtypes = ctypes.c_int, [ctypes.c_char_p, ctypes.c_int, ctypes.c_int]
    if init(os.fsencode(model_dir), -1, 0) == -1:
        return f"landmark provider {location} could not load its model from {model_dir}"
    return None


def _clear_buckets():
    _library.load().AI_Choose4RGBD_clear()


class RgbdSelector(SingletonEngine):
    """The frame selection with its landmark model (`model_dir` is given to
    the provider). The library keeps one selection: only one may be open at
    a time. It starts with empty buckets and empties them when it closes.

    The provider and its model are loaded once here first, because the
    library's init ends the process when it cannot load them.
    """

    def __init__(self, model_dir):
        model_dir = os.fspath(model_dir)
        library = _library.load()
        if not hasattr(library, "AI_system_init_Choose4RGBD"):
            raise MeridianError("this build of the library has no frame selection")
        with _library.lock:
            self._require_none_open()
            problem = provider_problem(model_dir)
            if problem is not None:
                raise MeridianError(problem, "AI_system_init_Choose4RGBD")
            call_init("AI_system_init_Choose4RGBD", lambda status, _: status != 1,
                      os.fsencode(model_dir))
            _clear_buckets()
            super().__init__(on_close=_clear_buckets)

    def offer(self, frame_id, color, depth):
        """Offers one frame: `color` (rows, cols, 3) uint8 BGR, `depth` a 2-D
        array of depths (converted to float32; it takes no part in the
        choice). Returns an Intake."""
        color = np.asarray(color)
        if color.dtype != np.uint8 or color.ndim != 3 or color.shape[2] != 3:
            raise ValueError(f"color is (rows, cols, 3) uint8 BGR, got {color.shape} "
                             f"{color.dtype}")
        color = np.ascontiguousarray(color)
        depth = np.ascontiguousarray(depth, dtype=np.float32)
        if depth.ndim != 2:
            raise ValueError(f"depth is (rows, cols), got {depth.shape}")
        yaw, pitch = ctypes.c_float(float("nan")), ctypes.c_float(float("nan"))
        with _library.lock:
            self._require_open()
            code = _library.load().AI_Choose4RGBD_input_1_rgbd(
                int(frame_id), color.ctypes.data, color.shape[1], color.shape[0],
                depth.ctypes.data, depth.shape[1], depth.shape[0], ctypes.byref(yaw),
                ctypes.byref(pitch))
        return Intake(code, yaw.value, pitch.value)

    def choose(self):
        """The chosen frame of each bucket, as a FinalChoice of frame ids.
        Raises MeridianError (with `code`, the library's) when a bucket is
        empty."""
        ids = [ctypes.c_int(-1) for _ in range(4)]
        with _library.lock:
            self._require_open()
            code = _library.load().AI_Choose4RGBD_get_final_4_rgbd(
                *(ctypes.byref(i) for i in ids))
        if code != 1:
            error = MeridianError(f"no {_EMPTY_BUCKET.get(code, '?')} frame was stored, so no "
                                  f"four frames can be chosen (final code {code})",
                                  "AI_Choose4RGBD_get_final_4_rgbd")
            error.code = code
            raise error
        return FinalChoice(*(i.value for i in ids))

    def clear(self):
        """Forgets every frame offered so far."""
        with _library.lock:
            self._require_open()
            _clear_buckets()

    def run_capture(self, capture_dir):
        """Runs the selection over a capture on disk (capture_dir/jpg/1.jpg,
        2.jpg, ... as frame ids 0, 1, ...; the buckets are emptied first) and
        returns choose()'s answer."""
        with _library.lock:
            self._require_open()
            status, _ = call_printing("debug_test_RGBD_choose4",
                                      os.fsencode(os.fspath(capture_dir)))
            if status != 1:
                raise MeridianError(f"debug_test_RGBD_choose4 gave {status}",
                                    "debug_test_RGBD_choose4")
            return self.choose()
