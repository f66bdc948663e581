"""Engine lifetime: closing, the one fixed engine, and the library's own
handle rules seen from the C side."""
import ctypes

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
