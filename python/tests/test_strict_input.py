"""Damaged input through Python: the strict head reader and the opens of
the modern interface refuse it with a message naming the file and the
fault, and nothing is written; ordinary variants of a head read the same as
the plain head."""
import os
import shutil
import struct

import numpy as np
import pytest

import meridian


def cut_half(text):
    return text[:text.index("\n", len(text) // 2) + 1]


def cut_fifth(text):
    return text[:text.index("\n", len(text) // 5) + 1]


def bare_face_midway(text):
    """Cut before a face line halfway through, ending in a bare "f"."""
    return text[:text.index("\nf ", len(text) // 2) + 1] + "f\n"


def replace_vertex_line(text, number, line):
    lines = text.split("\n")
    index = [k for k, l in enumerate(lines) if l.startswith("v ")][number]
    lines[index] = line
    return "\n".join(lines)


def ply_text(head, comments=False, colours=False):
    header = ["ply", "format ascii 1.0"] + (["comment from a scanner"] if comments else [])
    header += [f"element vertex {len(head)}", "property float x", "property float y",
               "property float z"]
    header += ["property uchar red", "property uchar green", "property uchar blue"] * colours
    rows = [" ".join(f"{v:.9g}" for v in p) + (" 200 180 160" if colours else "") for p in head]
    return "\n".join(header + ["end_header"] + rows) + "\n"


def binary_ply(head, big_endian):
    order = ">" if big_endian else "<"
    header = (f"ply\nformat binary_{'big' if big_endian else 'little'}_endian 1.0\n"
              "comment written by a test\n"
              f"element vertex {len(head)}\nproperty double x\nproperty double y\n"
              "property double z\nproperty float confidence\nend_header\n").encode()
    body = b"".join(struct.pack(order + "dddf", *map(float, p), 0.5) for p in head)
    return header + body


# (what, file in the model or "head", how the text changes, what the message says)
DAMAGE = [
    ("truncated OBJ head", "head", cut_fifth, "vertices; a head in the template topology"),
    ("nan in an OBJ head", "head", lambda t: replace_vertex_line(t, 7, "v nan 0 0"),
     "vertex 7 has a non-finite coordinate"),
    ("inf in an OBJ head", "head", lambda t: replace_vertex_line(t, 8, "v 0 inf 0"),
     "non-finite"),
    ("abc in an OBJ head", "head", lambda t: replace_vertex_line(t, 9, "v 0 0 abc"),
     "non-finite"),
    ("overflow in an OBJ head", "head", lambda t: replace_vertex_line(t, 3, "v 1e999 0 0"),
     "non-finite"),
    ("quad in a head", "head", lambda t: t + "f 1 2 3 4\n", "corners"),
    ("truncated idx_head2ue4.corresp", "idx_head2ue4.corresp", cut_half, "idx_head2ue4.corresp"),
    ("truncated ue4_head.obj ending in a bare f", "ue4_head.obj", bare_face_midway,
     "ue4_head.obj"),
    ("truncated eyeball/new_eye.ply", "eyeball/new_eye.ply", cut_half, "new_eye.ply"),
]


@pytest.mark.parametrize("what, target, damage, says", DAMAGE, ids=[d[0] for d in DAMAGE])
def test_damaged_input_is_refused_and_nothing_is_written(model, tmp_path, what, target, damage,
                                                         says):
    copy = tmp_path / "model"
    shutil.copytree(model, copy, ignore=shutil.ignore_patterns("BS"))
    head_path = copy / "sample_head.obj"
    path = head_path if target == "head" else copy / target
    path.write_text(damage(path.read_text()))
    out = tmp_path / "out"
    out.mkdir()
    earlier = out / "head.glb"
    earlier.write_bytes(b"an earlier asset")
    with pytest.raises(meridian.MeridianError) as raised:
        if target == "head":
            meridian.read_head(head_path)
        else:
            meridian.check_model(copy, meridian.asset_parts(skip=("blendshapes",)))
    assert says in str(raised.value) and os.fspath(path) in str(raised.value)
    if target != "head":
        # The opens run the same check: nothing loads, nothing is written.
        with pytest.raises(meridian.MeridianError, match=os.path.basename(target)):
            exporter = meridian.Exporter(copy, skip="blendshapes")
            exporter.export(meridian.read_head(model / "sample_head.obj"), earlier)
    assert sorted(os.listdir(out)) == ["head.glb"]
    assert earlier.read_bytes() == b"an earlier asset"


def test_ordinary_variants_read_as_the_plain_head(model, head, tmp_path):
    text = (model / "sample_head.obj").read_text()
    variants = {
        "normals.obj": "".join(line + ("vn 0 0 1\n" if line.startswith("v ") else "")
                               for line in text.splitlines(True)),
        "colours.obj": "".join(line.rstrip("\n") + " 0.5 0.25 1\n" if line.startswith("v ")
                               else line for line in text.splitlines(True)),
        "comments.ply": ply_text(head, comments=True),
        "colours.ply": ply_text(head, colours=True),
    }
    for name, content in variants.items():
        (tmp_path / name).write_text(content)
    (tmp_path / "little.ply").write_bytes(binary_ply(head, big_endian=False))
    (tmp_path / "big.ply").write_bytes(binary_ply(head, big_endian=True))
    plain = meridian.read_head(model / "sample_head.obj")
    np.testing.assert_array_equal(plain, head)
    for name in list(variants) + ["little.ply", "big.ply"]:
        np.testing.assert_array_equal(meridian.read_head(tmp_path / name), plain, err_msg=name)
