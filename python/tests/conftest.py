"""Shared fixtures: the build to test (MERIDIAN_BUILD_DIR, default build/),
a demo model set and the demo capture written by its tool, the demo's sample
head, and the outputs of the C reference program for that head."""
import os
import pathlib
import subprocess
import sys

import numpy as np
import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ.get("MERIDIAN_BUILD_DIR", ROOT / "build"))
os.environ.setdefault("MERIDIAN_LIBRARY", str(BUILD / "lib" / "libmeridian.so.0"))
sys.path.insert(0, str(ROOT / "python"))
TOOL = BUILD / "bin" / "meridian"


@pytest.fixture(scope="session")
def model(tmp_path_factory):
    """The demo model set with its blendshape data."""
    directory = tmp_path_factory.mktemp("model")
    subprocess.run([TOOL, "demo", "--out", directory], check=True, capture_output=True)
    return directory


@pytest.fixture(scope="session")
def capture(tmp_path_factory):
    directory = tmp_path_factory.mktemp("capture")
    subprocess.run([TOOL, "rgbd-demo", "--out", directory], check=True, capture_output=True)
    return directory


@pytest.fixture(scope="session")
def head(model):
    """The sample head as (20481, 3) float32."""
    with open(model / "sample_head.obj") as obj:
        rows = [line.split()[1:4] for line in obj if line.startswith("v ")]
    return np.array(rows, dtype=np.float32)


@pytest.fixture(scope="session")
def reference(model, capture, tmp_path_factory):
    """Raw outputs of the C program for the sample head (which it reads with
    the debug OBJ reader, bit for bit the `head` above as the debug reader
    test shows): flat arrays, and the path of the posed eye mesh it wrote."""
    out = tmp_path_factory.mktemp("reference")
    subprocess.run([BUILD / "bin" / "meridian_reference", model, "--out", out, "--capture",
                    capture], check=True, capture_output=True)
    kinds = {"f32": np.float32, "f64": np.float64, "i32": np.int32}
    found = {path.stem: np.fromfile(path, dtype=kinds[path.suffix[1:]])
             for path in out.iterdir() if path.suffix[1:] in kinds}
    found["posed_eye"] = out / "posed_eye.obj"
    return found
