"""A head written as .glb by the tool's export command. Skipped while the
tool has no such command."""
import struct
import subprocess

import pytest

import meridian
from meridian.export import find_tool


def has_export_command():
    tool = find_tool()
    if tool is None:
        return False
    listed = subprocess.run([tool, "--help"], capture_output=True, text=True).stdout
    return any(line.split()[:1] == ["export"] for line in listed.splitlines())


needs_export = pytest.mark.skipif(not has_export_command(),
                                  reason="the meridian tool here has no `export` command")


def glb_header(path):
    """(magic, version, declared length) of a binary glTF file."""
    with open(path, "rb") as glb:
        return struct.unpack("<4sII", glb.read(12))


@needs_export
def test_export_writes_a_binary_gltf_asset(model, head, tmp_path):
    full, bare = tmp_path / "full.glb", tmp_path / "bare.glb"
    assert meridian.export_glb(model, head, full) == full
    meridian.export_glb(model, head, bare, skip=("eyes", "blendshapes"))
    for path in (full, bare):
        assert glb_header(path) == (b"glTF", 2, path.stat().st_size)
    assert full.stat().st_size > bare.stat().st_size  # eyes and shapes take room

    with pytest.raises(meridian.MeridianError) as raised:
        meridian.export_glb(tmp_path / "absent", head, tmp_path / "x.glb")
    assert "absent" in str(raised.value)
