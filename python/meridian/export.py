"""A head written as a .glb asset by the `meridian` tool's `export` command."""
import os
import shutil
import subprocess
import sys
import tempfile

import numpy as np

from . import _library
from ._engine import TEMPLATE_VERTICES, MeridianError

SKIPPABLE = ("eyes", "blendshapes")
_TOOL = "meridian.exe" if sys.platform == "win32" else "meridian"


def find_tool():
    """The `meridian` tool: MERIDIAN_TOOL, else the one beside the loaded
    library's tree (bin/ next to its lib/, in a build or an installed
    prefix), else the first on PATH. None when there is none."""
    explicit = os.environ.get("MERIDIAN_TOOL")
    if explicit:
        return explicit
    beside = os.path.join(_library.library_directory(), os.pardir, "bin", _TOOL)
    if os.path.isfile(beside) and os.access(beside, os.X_OK):
        return os.path.normpath(beside)
    return shutil.which(_TOOL)


def _write_ply(path, vertices):
    with open(path, "w") as ply:
        ply.write("ply\nformat ascii 1.0\n"
                  f"element vertex {len(vertices)}\n"
                  "property float x\nproperty float y\nproperty float z\nend_header\n")
        # Nine significant digits give every float32 back exactly.
        np.savetxt(ply, vertices, fmt="%.9g")


def export_glb(model_dir, head, out_path, skip=()):
    """Writes a (20481, 3) head with the model's eyes and blendshapes as a
    binary glTF asset at `out_path`, leaving out what `skip` names ("eyes",
    "blendshapes"). Returns out_path. Raises MeridianError with the tool's
    message when it fails."""
    vertices = np.asarray(head, dtype=np.float32)
    if vertices.shape != (TEMPLATE_VERTICES, 3):
        raise ValueError(f"a head has shape ({TEMPLATE_VERTICES}, 3), got {vertices.shape}")
    skip = (skip,) if isinstance(skip, str) else tuple(skip)
    for part in skip:
        if part not in SKIPPABLE:
            raise ValueError(f"skip names {' or '.join(SKIPPABLE)}, got {part!r}")
    tool = find_tool()
    if tool is None:
        raise MeridianError(f"the {_TOOL} tool was found neither beside the library nor on PATH")
    with tempfile.TemporaryDirectory(prefix="meridian-export-") as scratch:
        head_path = os.path.join(scratch, "head.ply")
        _write_ply(head_path, vertices)
        command = [tool, "export", "--model", os.fspath(model_dir), "--in", head_path, "--out",
                   os.fspath(out_path)]
        for part in skip:
            command += ["--skip", part]
        run = subprocess.run(command, capture_output=True, text=True)
    if run.returncode != 0:
        said = [line[len("error: "):] for line in run.stderr.splitlines()
                if line.startswith("error: ")]
        raise MeridianError("; ".join(said) or run.stderr.strip() or run.stdout.strip()
                            or f"{tool} export ended with status {run.returncode}", "export")
    return out_path
