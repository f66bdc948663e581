"""The modern C interface (libmeridian_api): finding it, its signatures, and
its errors as MeridianError.

It is looked for through MERIDIAN_API_LIBRARY (a file path), then beside the
legacy library the package already found, then on the system's library
path. Handles of this interface own their engines: closing one frees it and
touches nothing else.
"""
import ctypes
import os
import sys
import weakref

from . import _engine, _library
from ._engine import MeridianError

_NAMES = (("meridian_api.dll",) if sys.platform == "win32"
          else ("libmeridian_api.so.0", "libmeridian_api.so"))

_api = None


class AssetReport(ctypes.Structure):
    """meridian_asset_report: the QA figures of a built asset."""
    _fields_ = [("eye_scale", ctypes.c_double), ("eye_scale_clamped", ctypes.c_int32),
                ("region_max_displacement", ctypes.c_double * 5),
                ("bounds_min", ctypes.c_double * 3), ("bounds_max", ctypes.c_double * 3),
                ("non_finite_positions", ctypes.c_uint64),
                ("non_finite_normals", ctypes.c_uint64)]


class EyePosesStruct(ctypes.Structure):
    """meridian_eye_poses."""
    _fields_ = [("angles_deg", (ctypes.c_double * 3) * 2),
                ("positions", (ctypes.c_double * 3) * 2), ("scale", ctypes.c_double)]


class FrameIntake(ctypes.Structure):
    """meridian_frame_intake."""
    _fields_ = [("result", ctypes.c_int32), ("yaw", ctypes.c_float), ("pitch", ctypes.c_float)]


def _candidates():
    explicit = os.environ.get("MERIDIAN_API_LIBRARY")
    if explicit:
        yield explicit
        return
    try:
        directory = _library.library_directory()
        for name in _NAMES:
            yield os.path.join(directory, name)
    except OSError:
        pass
    yield from _NAMES


def load():
    """The loaded modern library with its signatures."""
    global _api
    with _library.lock:
        if _api is not None:
            return _api
        api, _ = _library.open_first(_candidates(), "the meridian_api library",
                                     "MERIDIAN_API_LIBRARY")
        _declare(api)
        _api = api
        return api


def _declare(api):
    handle, text = ctypes.c_void_p, ctypes.c_char_p
    status, size = ctypes.c_int, ctypes.c_size_t
    floats = ctypes.POINTER(ctypes.c_float)
    int32s = ctypes.POINTER(ctypes.c_int32)
    doubles = ctypes.POINTER(ctypes.c_double)
    run = (status, [handle, floats, size, floats, size])
    signatures = {
        "meridian_debug_read_head": (status, [text, ctypes.c_int, floats, size,
                                             ctypes.POINTER(ctypes.c_size_t)]),
        "meridian_read_head": (status, [text, floats, size]),
        "meridian_check_model": (status, [text, ctypes.c_uint32]),
        "meridian_head_swap_open": (handle, [text]),
        "meridian_head_swap_close": (None, [handle]),
        "meridian_head_swap_output_vertex_count": (size, [handle]),
        "meridian_head_swap_run": run,
        "meridian_head_swap_last_error": (text, [handle]),
        "meridian_tangent_frames_open": (handle, [text]),
        "meridian_tangent_frames_open_general": (handle, [text, int32s, size, int32s, size]),
        "meridian_tangent_frames_open_general_files": (handle, [text, text, text]),
        "meridian_tangent_frames_close": (None, [handle]),
        "meridian_tangent_frames_output_vertex_count": (size, [handle]),
        "meridian_tangent_frames_set_thread_count": (status, [handle, ctypes.c_uint]),
        "meridian_tangent_frames_run": run,
        "meridian_tangent_frames_last_error": (text, [handle]),
        "meridian_eye_aligner_open_eyeball": (handle, [text]),
        "meridian_eye_aligner_open_eyelash": (handle, [text]),
        "meridian_eye_aligner_close": (None, [handle]),
        "meridian_eye_aligner_output_vertex_count": (size, [handle]),
        "meridian_eye_aligner_run": run,
        "meridian_eye_aligner_last_error": (text, [handle]),
        "meridian_eyeball_fit_open": (handle, [text]),
        "meridian_eyeball_fit_close": (None, [handle]),
        "meridian_eyeball_fit_run": (status, [handle, floats, size, ctypes.c_uint,
                                              ctypes.POINTER(EyePosesStruct)]),
        "meridian_eyeball_fit_write_posed_eye": (status, [handle, doubles, doubles,
                                                          ctypes.c_double, text]),
        "meridian_eyeball_fit_last_error": (text, [handle]),
        "meridian_blendshapes_open": (handle, [text]),
        "meridian_frame_selection_open": (handle, [text, text]),
        "meridian_frame_selection_close": (None, [handle]),
        "meridian_frame_selection_add": (status, [handle, ctypes.c_int32, ctypes.c_void_p, size,
                                                  size, size, ctypes.POINTER(FrameIntake)]),
        "meridian_frame_selection_choose": (status, [handle, int32s, size]),
        "meridian_frame_selection_run_capture": (status, [handle, text, int32s, size]),
        "meridian_frame_selection_clear": (status, [handle]),
        "meridian_frame_selection_last_error": (text, [handle]),
        "meridian_blendshapes_close": (None, [handle]),
        "meridian_blendshapes_set_thread_count": (status, [handle, ctypes.c_uint]),
        "meridian_blendshapes_shape_count": (size, []),
        "meridian_blendshapes_run": run,
        "meridian_blendshapes_run_batch": (status, [handle, floats, size, size, floats, size]),
        "meridian_blendshapes_last_error": (text, [handle]),
        "meridian_open_status": (status, []),
        "meridian_open_error": (text, []),
        "meridian_asset_builder_open": (handle, [text, ctypes.c_int, ctypes.c_int,
                                                 ctypes.c_double]),
        "meridian_asset_builder_close": (None, [handle]),
        "meridian_asset_builder_build": (status, [handle, floats, size,
                                                  ctypes.POINTER(AssetReport)]),
        "meridian_asset_builder_set_thread_count": (status, [handle, ctypes.c_uint]),
        "meridian_asset_builder_build_batch": (status, [handle, floats, size, size,
                                                        ctypes.POINTER(AssetReport), size]),
        "meridian_asset_builder_asset_count": (size, [handle]),
        "meridian_asset_builder_glb_size_at": (size, [handle, size]),
        "meridian_asset_builder_copy_glb_at": (status, [handle, size, ctypes.c_char_p, size]),
        "meridian_asset_builder_glb_size": (size, [handle]),
        "meridian_asset_builder_copy_glb": (status, [handle, ctypes.c_char_p, size]),
        "meridian_asset_builder_write_glb": (status, [handle, text]),
        "meridian_asset_builder_last_error": (text, [handle]),
    }
    for name, (result, arguments) in signatures.items():
        function = getattr(api, name)
        function.restype = result
        function.argtypes = arguments


def _decode(message):
    return (message or b"").decode("utf-8", errors="replace")


def open_handle(function, *arguments):
    """Calls an open function; raises MeridianError with the library's reason
    when it gives no handle."""
    api = load()
    handle = getattr(api, function)(*arguments)
    if not handle:
        raise MeridianError(_decode(api.meridian_open_error()), function)
    return handle


def check(status, handle, last_error, call):
    """Raises MeridianError with the handle's message unless `status` is 0."""
    if status != 0:
        raise MeridianError(_decode(getattr(load(), last_error)(handle)), call)


class Handle:
    """A handle of the modern interface, owning its engine: usable until
    close() (or the end of its `with` block, or garbage collection, or
    release_all()). Subclasses name their kind's functions by `_kind`."""

    _kind = None  # e.g. "head_swap": meridian_head_swap_close, _last_error

    def __init__(self, open_function, *arguments):
        with _library.lock:
            handle = open_handle(open_function, *arguments)
        self._handle = handle
        self._finalizer = weakref.finalize(
            self, getattr(load(), f"meridian_{self._kind}_close"), handle)
        _engine.modern_handles.add(self)

    def _api(self, name):
        return getattr(load(), f"meridian_{self._kind}_{name}")

    def _check(self, status, call):
        check(status, self._handle, f"meridian_{self._kind}_last_error", call)

    def close(self):
        """Frees the engine; no other handle is affected."""
        with _library.lock:
            self._finalizer()

    @property
    def closed(self):
        return not self._finalizer.alive

    def _require_open(self):
        if self.closed:
            raise MeridianError(f"{type(self).__name__} is closed", None)

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()
