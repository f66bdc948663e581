"""Shared fixtures: the build to test (MERIDIAN_BUILD_DIR, default build/),
a demo model set written by its tool, the demo's sample head, and the
outputs of the C reference program for that head."""
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


@pytest.fixture(scope="session")
def model(tmp_path_factory):
    directory = tmp_path_factory.mktemp("model")
    subprocess.run([BUILD / "bin" / "meridian", "demo", "--out", directory], check=True,
                   capture_output=True)
    return directory


@pytest.fixture(scope="session")
def head(model):
    """The sample head as (20481, 3) float32."""
    with open(model / "sample_head.obj") as obj:
        rows = [line.split()[1:4] for line in obj if line.startswith("v ")]
    return np.array(rows, dtype=np.float32)


@pytest.fixture(scope="session")
def reference(model, head, tmp_path_factory):
    """Raw outputs of the C program for the sample head, as flat float32."""
    out = tmp_path_factory.mktemp("reference")
    np.ascontiguousarray(head.T).tofile(out / "head.f32")
    subprocess.run([BUILD / "bin" / "meridian_reference", model, out / "head.f32", out],
                   check=True, capture_output=True)
    return {name: np.fromfile(out / f"{name}.f32", dtype=np.float32)
            for name in ("swap", "tbn", "tbn_g")}
