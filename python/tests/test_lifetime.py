"""Engine lifetime: closing, the one fixed engine, and the library's own
handle rules seen from the C side."""
import ctypes
import os
import shutil
import subprocess
import sys

import numpy as np
import pytest

import meridian
from meridian import _library


def c_swap_accepts(handle, head):
    """Whether the library itself still accepts a head-swap handle."""
    planar = np.ascontiguousarray(head.T)
    out = np.zeros(3 * 20864, dtype=np.float32)
    floats = ctypes.POINTER(ctypes.c_float)
    return _library.load().AI_swap_head(handle, planar.ctypes.data_as(floats),
                                        out.ctypes.data_as(floats), 0) != 0


def test_closed_engines_refuse_and_the_last_close_releases(model, head):
    first, second = meridian.HeadSwap(model), meridian.HeadSwap(model)
    with first:
        first.swap(head)
    assert first.closed
    with pytest.raises(meridian.MeridianError, match="closed"):
        first.swap(head)
    # Another engine is open: the library keeps both until the last closes.
    assert c_swap_accepts(first._handle, head)
    second.close()
    assert not c_swap_accepts(first._handle, head)
    assert not c_swap_accepts(second._handle, head)


def test_one_fixed_engine_at_a_time_and_release_all(model, head):
    fixed = meridian.FixedTangentFrames(model)
    with pytest.raises(meridian.MeridianError, match="already open"):
        meridian.FixedTangentFrames(model)
    swap = meridian.HeadSwap(model)
    meridian.release_all()
    assert fixed.closed and swap.closed
    assert not c_swap_accepts(swap._handle, head)
    with meridian.FixedTangentFrames(model) as again:
        assert again.frames(head).normal.shape == (20481, 3)


SELECT = """
import sys, numpy as np, meridian
for model_dir in sys.argv[1:]:
    try:
        with meridian.RgbdSelector(model_dir) as selector:
            frame = np.zeros((4, 4, 3), np.uint8)
            print("intake", tuple(selector.offer(0, frame, np.zeros((4, 4)))))
    except meridian.MeridianError as error:
        print("refused:", error)
"""


def test_frame_selection_refuses_what_would_end_the_process(tmp_path):
    """The library's init ends the process when it cannot load the provider
    or its model; the package refuses first. Run in child processes, with a
    copy of the library alone in a folder and one beside the provider double
    (which fails a model named "fail" and finds no face)."""
    from conftest import BUILD, ROOT
    alone = tmp_path / "libmeridian.so.0"
    shutil.copy(BUILD / "lib" / "libmeridian.so.0", alone)
    runs = [(alone, ["model"], ["refused: landmark provider libcv_face.so not found next to "
                                "the library"]),
            (BUILD / "lib" / "provider-double" / "libmeridian.so", ["fail", "model"],
             ["refused: landmark provider", "could not load its model from fail",
              "intake (-1, -10000.0, -10000.0)"])]
    for library, arguments, expected in runs:
        env = dict(os.environ, MERIDIAN_LIBRARY=str(library), PYTHONPATH=str(ROOT / "python"))
        run = subprocess.run([sys.executable, "-c", SELECT, *arguments], env=env,
                             capture_output=True, text=True, stdin=subprocess.DEVNULL)
        assert run.returncode == 0, run.stderr
        printed = run.stdout
        for text in expected:
            assert text in printed
            printed = printed[printed.index(text):]
