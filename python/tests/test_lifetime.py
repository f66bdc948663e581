"""Engine lifetime: closing, the one fixed engine, and the library's own
handle rules seen from the C side."""
import os
import shutil
import subprocess
import sys

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
