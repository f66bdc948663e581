"""Blendshapes and assets for several heads in one call: each head's result
is the bits of the legacy AI_get_BS export (the shapes) or of a single build
(the assets), at any batch size; malformed batches are refused."""
import ctypes

import numpy as np
import pytest

import meridian
from meridian import _library
from meridian._engine import float_pointer
from meridian.blendshapes import Blendshapes

SHAPE_FLOATS = 6 * 3 * 20481


def variants(head, count):
    """`count` distinct heads near `head`: scaled and moved a little each."""
    index = np.arange(head.size, dtype=np.float32).reshape(head.shape)
    return np.stack([head * np.float32(1 + 0.004 * k)
                     + np.float32(0.05 * k) * np.sin(np.float32(0.001 * (k + 1)) * index)
                     for k in range(count)]).astype(np.float32)


def legacy_shapes(model, heads):
    """AI_get_BS for each head: (K, 6, 20481, 3)."""
    lib = _library.load()
    out = []
    with _library.lock:
        assert lib.AI_system_initDynamic_BS(str(model).encode()) == 1
        try:
            for head in heads:
                planar = np.ascontiguousarray(head.T)
                shapes = np.empty(SHAPE_FLOATS, dtype=np.float32)
                assert lib.AI_get_BS(float_pointer(planar), float_pointer(shapes)) == 1
                out.append(shapes.reshape(6, 3, 20481).transpose(0, 2, 1))
        finally:
            lib.AI_system_over()
    return np.stack(out)


@pytest.mark.parametrize("chunk", [1, 16])
def test_every_head_of_a_batch_is_the_legacy_export_bit_for_bit(model, head, chunk):
    heads = variants(head, 16)
    expected = legacy_shapes(model, heads)
    with Blendshapes(model, threads=1) as engine:
        for first in range(0, len(heads), chunk):
            got = engine.shapes_batch(heads[first:first + chunk])
            assert got.dtype == np.float32 and got.shape == (chunk, 6, 20481, 3)
            assert got.tobytes() == expected[first:first + chunk].tobytes(), first


def test_malformed_batches_are_refused(model, head):
    bad = variants(head, 2)
    bad[1, 7, 2] = np.nan
    with Blendshapes(model) as engine:
        for heads, error, text in [
                (np.zeros((0, 20481, 3), np.float32), ValueError, "K >= 1"),
                (head, ValueError, "(K, 20481, 3)"),
                (np.zeros((2, 20480, 3), np.float32), ValueError, "(K, 20481, 3)"),
                (bad, meridian.MeridianError, "head 1:")]:
            with pytest.raises(error, match=None) as raised:
                engine.shapes_batch(heads)
            assert text in str(raised.value)
        api = engine._api("run_batch")
        floats = np.zeros(3 * 20481, np.float32)
        out = np.zeros(SHAPE_FLOATS, np.float32)
        null = ctypes.POINTER(ctypes.c_float)()
        for arguments in [(float_pointer(floats), floats.size, 0, float_pointer(out), out.size),
                          (null, floats.size, 1, float_pointer(out), out.size),
                          (float_pointer(floats), floats.size, 1, null, out.size),
                          (float_pointer(floats), floats.size, 2, float_pointer(out), out.size),
                          (float_pointer(floats), floats.size, 1, float_pointer(out), 5)]:
            assert api(engine._handle, *arguments) == 1  # MERIDIAN_INVALID_ARGUMENT


def test_a_batch_of_assets_is_the_single_builds_byte_for_byte(model, head):
    heads = variants(head, 3)
    with meridian.Exporter(model, skip=("eyes",), threads=1) as exporter:
        single = [exporter.build(one) for one in heads]
        assert exporter.build_batch(heads) == single
    with pytest.raises(ValueError):
        meridian.Exporter(model, threads=0)
