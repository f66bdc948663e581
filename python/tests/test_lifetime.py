"""Engine lifetime: closing, the one fixed engine, and the library's own
handle rules seen from the C side."""

import numpy as np
import pytest

import meridian


def test_handles_are_independent_and_closed_ones_refuse(model, head):
    first, second = meridian.HeadSwap(model), meridian.HeadSwap(model)
    with first:
        expected = first.swap(head)
    assert first.closed
    with pytest.raises(meridian.MeridianError, match="closed"):
        first.swap(head)
    # Closing one handle leaves the other working, to the bit.
    assert np.array_equal(second.swap(head), expected)
    second.close()


def test_release_all_closes_every_engine(model, head):
    fixed, again = meridian.FixedTangentFrames(model), meridian.FixedTangentFrames(model)
    swap = meridian.HeadSwap(model)
    meridian.release_all()
    assert fixed.closed and again.closed and swap.closed
    with meridian.FixedTangentFrames(model) as fresh:
        assert fresh.frames(head).normal.shape == (20481, 3)


def test_frame_selection_failures_are_errors_not_exits(tmp_path):
    """The legacy init ends the process when it cannot load the provider or
    its model; here each is an error, in this process. The provider double
    fails a model named "fail" and finds no face."""
    from conftest import BUILD
    double = BUILD / "lib" / "provider-double" / "libcv_face.so"
    with pytest.raises(meridian.MeridianError, match="libcv_face"):
        meridian.RgbdSelector("model", provider=tmp_path / "libcv_face.so")
    with pytest.raises(meridian.MeridianError, match="could not load its model from fail"):
        meridian.RgbdSelector("fail", provider=double)
    with meridian.RgbdSelector("model", provider=double) as selector:
        frame = np.zeros((4, 4, 3), np.uint8)
        assert tuple(selector.offer(0, frame, np.zeros((4, 4)))) == (-1, -10000.0, -10000.0)
        with pytest.raises(meridian.MeridianError) as empty:
            selector.choose()
        assert empty.value.code == -5
