"""RGBD frame selection: from a capture of colour + depth frames, one
frontal frame, one turned each way and one looking up."""
import collections
import ctypes
import os
import sys

import numpy as np

from . import _library, _modern
from ._engine import MeridianError
from ._modern import Handle

_INCOMPLETE = 13  # MERIDIAN_INCOMPLETE

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


# The first empty bucket a choice meets, by the modern interface's message,
# as the legacy final code.
_BUCKET_CODES = {"front": -5, "yaw -25": -4, "yaw +25": -3, "up": -2}


class RgbdSelector(Handle):
    """The frame selection with its landmark model (`model_dir` is given to
    the provider; `provider` is its path, None for libcv_face found beside
    the library or on the loader's search path). Each selector keeps its own
    four buckets, empty at first.
    """

    _kind = "frame_selection"

    def __init__(self, model_dir, provider=None):
        super().__init__("meridian_frame_selection_open", os.fsencode(os.fspath(model_dir)),
                         None if provider is None else os.fsencode(os.fspath(provider)))

    def offer(self, frame_id, color, depth):
        """Offers one frame: `color` (rows, cols, 3) uint8 BGR, `depth` a 2-D
        array of depths (it takes no part in the choice). Returns an Intake."""
        color = np.asarray(color)
        if color.dtype != np.uint8 or color.ndim != 3 or color.shape[2] != 3:
            raise ValueError(f"color is (rows, cols, 3) uint8 BGR, got {color.shape} "
                             f"{color.dtype}")
        color = np.ascontiguousarray(color)
        if np.ndim(depth) != 2:
            raise ValueError(f"depth is (rows, cols), got {np.shape(depth)}")
        intake = _modern.FrameIntake()
        with _library.lock:
            self._require_open()
            self._check(self._api("add")(self._handle, int(frame_id), color.ctypes.data,
                                         color.shape[1], color.shape[0], color.size,
                                         ctypes.byref(intake)), "offer")
        if intake.result in (EYES_CLOSED, FACE_TOO_SMALL):  # no angles measured
            return Intake(intake.result, float("nan"), float("nan"))
        return Intake(intake.result, intake.yaw, intake.pitch)

    def _chosen(self, call, *arguments):
        ids = (ctypes.c_int32 * 4)()
        with _library.lock:
            self._require_open()
            status = self._api(call)(self._handle, *arguments, ids, 4)
            if status == _INCOMPLETE:
                said = _modern._decode(self._api("last_error")(self._handle))
                bucket = said.replace("no frame in the ", "").replace(" bucket", "")
                code = _BUCKET_CODES.get(bucket, 0)
                error = MeridianError(f"no {_EMPTY_BUCKET.get(code, bucket)} frame was stored, "
                                      f"so no four frames can be chosen (final code {code})", call)
                error.code = code
                raise error
            self._check(status, call)
        return FinalChoice(*ids)

    def choose(self):
        """The chosen frame of each bucket, as a FinalChoice of frame ids.
        Raises MeridianError (with `code`: -5 front, -4 yaw -25, -3 yaw +25,
        -2 up) when a bucket is empty."""
        return self._chosen("choose")

    def clear(self):
        """Forgets every frame offered so far."""
        with _library.lock:
            self._require_open()
            self._check(self._api("clear")(self._handle), "clear")

    def run_capture(self, capture_dir):
        """Runs the selection over a capture on disk (capture_dir/jpg/1.jpg,
        2.jpg, ... as frame ids 0, 1, ...; the buckets are emptied first) and
        returns choose()'s answer."""
        return self._chosen("run_capture", os.fsencode(os.fspath(capture_dir)))
