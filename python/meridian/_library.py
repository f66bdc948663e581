"""Finding and loading the shared library, and the C signatures of its exports."""
import ctypes
import ctypes.util
import os
import sys
import threading

_NAMES = ("meridian.dll",) if sys.platform == "win32" else ("libmeridian.so.0", "libmeridian.so")

# Every call into the library holds this lock: calls of one kind must not
# overlap, and the engines' lifetime bookkeeping goes with them.
lock = threading.RLock()

_library = None
_library_path = None


def _candidates():
    """Where the library is looked for, in order."""
    explicit = os.environ.get("MERIDIAN_LIBRARY")
    if explicit:
        yield explicit
        return
    here = os.path.dirname(os.path.abspath(__file__))
    for name in _NAMES:
        yield os.path.join(here, name)
    try:
        from . import _installed  # written by cmake --install
        for name in _NAMES:
            yield os.path.normpath(os.path.join(here, _installed.LIBRARY_DIR, name))
    except ImportError:
        pass
    found = ctypes.util.find_library("meridian")
    if found:
        yield found
    yield from _NAMES  # the system loader's own search path


def library_path():
    """The file the package loaded the library from (loading it if needed)."""
    load()
    return _library_path


class _DlInfo(ctypes.Structure):
    _fields_ = [("dli_fname", ctypes.c_char_p), ("dli_fbase", ctypes.c_void_p),
                ("dli_sname", ctypes.c_char_p), ("dli_saddr", ctypes.c_void_p)]


def library_directory():
    """The directory of the loaded library file, found as the library finds
    it itself (the name it was loaded by may have been a bare file name)."""
    library = load()
    if sys.platform != "win32":
        info = _DlInfo()
        address = ctypes.cast(library.AI_system_over, ctypes.c_void_p)
        if ctypes.CDLL(None).dladdr(address, ctypes.byref(info)) and info.dli_fname:
            return os.path.dirname(os.path.realpath(os.fsdecode(info.dli_fname)))
    return os.path.dirname(os.path.abspath(_library_path))


def load():
    """The loaded library with its export signatures."""
    global _library, _library_path
    with lock:
        if _library is not None:
            return _library
        library, candidate = open_first(_candidates(), "the meridian library",
                                        "MERIDIAN_LIBRARY")
        _declare(library)
        _library, _library_path = library, getattr(library, "_name", candidate)
        return library


def open_first(candidates, what, variable):
    """The first of `candidates` (paths or bare names) that loads, with the
    name it loaded by; OSError naming every one tried, and the environment
    variable that names the file, when none does."""
    tried = []
    for candidate in candidates:
        if os.path.isabs(candidate) and not os.path.exists(candidate):
            tried.append(candidate)
            continue
        try:
            return ctypes.CDLL(candidate), candidate
        except OSError as error:
            tried.append(f"{candidate} ({error})")
    raise OSError(f"cannot find {what}; set {variable} to its path. Tried: " + "; ".join(tried))


def _declare(lib):
    handle = ctypes.c_uint64
    floats = ctypes.POINTER(ctypes.c_float)
    doubles = ctypes.POINTER(ctypes.c_double)
    ints = ctypes.POINTER(ctypes.c_int)
    text = ctypes.c_char_p
    signatures = {
        "AI_system_over": (ctypes.c_int, []),
        "AI_system_init_swaphead": (handle, [text]),
        "AI_swap_head": (ctypes.c_int32, [handle, floats, floats, ctypes.c_int64]),
        "AI_system_init_TBN": (ctypes.c_int32, [text]),
        "AI_system_init_TBN_g": (handle, [text, ints, ctypes.c_uint, ints, ctypes.c_uint]),
        "AI_system_init_TBN_g2": (handle, [text, text, text]),
        "AI_get_TBN": (ctypes.c_int32, [floats, floats]),
        "AI_get_TBN_g": (ctypes.c_int32, [handle, floats, floats]),
        "AI_system_init_eyeball": (ctypes.c_int, [text]),
        "AI_add_eyeball": (ctypes.c_int, [floats, ctypes.c_uint] + [doubles] * 5),
        "AI_system_init_eyeball_kova": (handle, [text]),
        "AI_system_init_eyelash_kova": (handle, [text]),
        "AI_add_eyeball_kova": (ctypes.c_int32, [handle, floats, floats, ctypes.c_int64]),
        "AI_system_initDynamic_BS": (ctypes.c_int64, [text]),
        "AI_get_BS": (ctypes.c_int64, [floats, floats]),
        "debug_get_head_data_from_ply": (ctypes.c_int, [text, floats]),
        "debug_get_head_data_from_obj": (ctypes.c_int, [text, floats]),
        "debug_apply_one_pose_save_obj": (None, [doubles, doubles, ctypes.c_double, text]),
    }
    # Builds without OpenCV (the Windows DLL) leave the frame selection out.
    optional = {
        "AI_system_init_Choose4RGBD": (ctypes.c_int32, [text]),
        "AI_Choose4RGBD_input_1_rgbd": (ctypes.c_int32, [
            ctypes.c_int, ctypes.c_void_p, ctypes.c_int, ctypes.c_int, ctypes.c_void_p,
            ctypes.c_int, ctypes.c_int, floats, floats]),
        "AI_Choose4RGBD_get_final_4_rgbd": (ctypes.c_int32, [ints] * 4),
        "AI_Choose4RGBD_clear": (ctypes.c_int32, []),
        "debug_test_RGBD_choose4": (ctypes.c_int32, [text]),
    }
    for name, (result, arguments) in {**signatures, **optional}.items():
        function = getattr(lib, name, None)
        if function is None and name in optional:
            continue
        if function is None:
            raise OSError(f"{getattr(lib, '_name', 'the library')} has no export {name}")
        function.restype = result
        function.argtypes = arguments
