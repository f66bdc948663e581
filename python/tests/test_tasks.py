"""Each task through Python gives the C interface's result bit for bit, and
bad input raises with the library's message."""
import numpy as np
import pytest

import meridian


def planar(*arrays):
    """(n, 3) arrays back to the library's planar layout."""
    return np.concatenate([a.T.ravel() for a in arrays])


def same_bits(a, b):
    return a.dtype == b.dtype and a.tobytes() == b.tobytes()


def test_head_swap_matches_the_c_interface(model, head, reference):
    with meridian.HeadSwap(model) as converter:
        swapped = converter.swap(head)
        again = converter.swap(head.astype(np.float64))
    assert swapped.shape == (20864, 3) and swapped.dtype == np.float32
    assert same_bits(planar(swapped), reference["swap"])
    assert same_bits(again, swapped)


def general_from_arrays(model):
    read = lambda name: np.loadtxt(model / "TBN" / name, dtype=np.int64)
    return meridian.GeneralTangentFrames(model / "TBN" / "head_split_uv.obj",
                                         read("idx_tavi2head.txt"), read("idx_head2tavi.txt"))


def general_from_files(model):
    tbn = model / "TBN"
    return meridian.GeneralTangentFrames.from_files(
        tbn / "head_split_uv.obj", tbn / "idx_tavi2head.txt", tbn / "idx_head2tavi.txt")


@pytest.mark.parametrize("open_engine, output", [
    (lambda model: meridian.FixedTangentFrames(model), "tbn"),
    (general_from_arrays, "tbn_g"),
    (general_from_files, "tbn_g"),
])
def test_tangent_frames_match_the_c_interface(model, head, reference, open_engine, output):
    with open_engine(model) as engine:
        frames = engine.frames(head)
    assert same_bits(planar(*frames), reference[output])
    # Known parts of the convention: the tangent is (1, 0, 0), normals are unit.
    assert np.all(frames.tangent == np.array([1, 0, 0], dtype=np.float32))
    lengths = np.linalg.norm(frames.normal.astype(np.float64), axis=1)
    assert np.all(np.abs(lengths - 1) < 0.02)


def test_bad_input_raises(model, head, tmp_path):
    missing = tmp_path / "absent"
    hostile = tmp_path / "hostile"
    hostile.mkdir()
    (hostile / "idx_tavi2head.corresp").write_text("# base 0\n# element count 16777216\n")
    split = model / "TBN" / "head_split_uv.obj"
    cases = [
        (lambda: meridian.HeadSwap(missing), meridian.MeridianError,
         f"Invalid correspondence file: {missing / 'idx_tavi2head.corresp'}"),
        (lambda: meridian.HeadSwap(hostile), meridian.MeridianError,
         "element count 16777216 cannot be honest in a file of 34 bytes"),
        (lambda: meridian.FixedTangentFrames(missing), meridian.MeridianError,
         "not exist! initialize TBN failed!"),
        (lambda: meridian.GeneralTangentFrames(split, [0, 1, 2], [0]), meridian.MeridianError,
         "Failed to init TBN calculation for invalid idx_tavi2head!"),
        (lambda: meridian.GeneralTangentFrames.from_files(split, missing, missing),
         meridian.MeridianError, f"Invalid index file: {missing}"),
        (lambda: meridian.HeadSwap(model).swap(head[:-1]), ValueError, "(20481, 3)"),
        (lambda: meridian.FixedTangentFrames(model).frames(head.T), ValueError, "(20481, 3)"),
    ]
    for attempt, error, message in cases:
        with pytest.raises(error) as raised:
            attempt()
        assert message in str(raised.value)
    meridian.release_all()
