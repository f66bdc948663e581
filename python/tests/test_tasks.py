"""Each task through Python gives the C interface's result bit for bit, and
bad input raises with the library's message."""
import pathlib
import re
import struct
import subprocess

import numpy as np
import pytest
from PIL import Image

import meridian
from meridian import blendshapes as bs_module

ROOT = pathlib.Path(__file__).resolve().parents[2]


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
        # The same bits on the caller's thread alone and on two.
        for threads in (1, 2):
            engine.set_threads(threads)
            assert same_bits(planar(*engine.frames(head)), reference[output])
        with pytest.raises(ValueError):
            engine.set_threads(3)
    assert same_bits(planar(*frames), reference[output])
    # Known parts of the convention: the tangent is (1, 0, 0), normals are unit.
    assert np.all(frames.tangent == np.array([1, 0, 0], dtype=np.float32))
    lengths = np.linalg.norm(frames.normal.astype(np.float64), axis=1)
    assert np.all(np.abs(lengths - 1) < 0.02)


def test_eyes_match_the_c_interface(model, head, reference, tmp_path):
    expected = reference["eyes"].reshape(3, 13)
    with meridian.EyeballFit(model) as fit:
        poses = [fit.fit(head, template) for template in range(3)]
        fit.write_posed_eye(tmp_path / "eye.obj", poses[0].angles[0], poses[0].positions[0],
                            poses[0].scale)
    for pose, c in zip(poses, expected):
        assert same_bits(np.concatenate([pose.angles.ravel(), pose.positions.ravel()]), c[:12])
        assert pose.scale == c[12]
    # The sample head is the demo head grown by 4 %: so are its eye sockets.
    assert abs(poses[0].scale - 1.04) < 1e-3
    assert (tmp_path / "eye.obj").read_bytes() == reference["posed_eye"].read_bytes()

    for kind, output, count in [(meridian.EyeballAligner, "eyeball_kova", 1540),
                                (meridian.EyelashAligner, "eyelash_kova", 188)]:
        with kind(model) as aligner:
            aligned = aligner.align(head)
        assert aligned.shape == (count, 3)
        assert same_bits(planar(aligned), reference[output])


def test_blendshapes_match_the_c_interface(model, head, reference):
    with meridian.Blendshapes(model) as engine:
        shapes = engine.shapes(head)
    assert shapes.shape == (6, 20481, 3) and shapes.dtype == np.float32
    assert same_bits(planar(*shapes), reference["bs"])
    assert same_bits(shapes[0], head)
    # Each region moves its own part of the face, the nose (3) most at its tip.
    moved = np.linalg.norm(shapes[1:] - head, axis=2)
    assert np.all(moved.max(axis=1) > 0.1)


def test_debug_readers_match_the_c_interface(model, head, reference):
    from_obj = meridian.read_head_obj(model / "sample_head.obj")
    from_ply = meridian.read_head_ply(model / "sample_head.ply")
    assert same_bits(from_obj, head) and same_bits(from_ply, head)
    assert same_bits(planar(from_obj), reference["head_obj"])
    assert same_bits(planar(from_ply), reference["head_ply"])


def test_frame_selection_matches_the_c_interface(model, capture, reference):
    # The demo capture's right four: the blurred frame of each bucket.
    known = meridian.FinalChoice(1, 5, 10, 14)
    assert tuple(reference["rgbd"]) == (1, *known)
    frames = sorted((capture / "jpg").iterdir(), key=lambda p: int(p.stem))
    with meridian.RgbdSelector(model) as selector:
        assert selector.run_capture(capture) == known
        selector.clear()
        codes = []
        for frame_id, path in enumerate(frames):
            bgr = np.asarray(Image.open(path).convert("RGB"))[:, :, ::-1]
            codes.append(selector.offer(frame_id, bgr, np.zeros(bgr.shape[:2])).code)
        assert selector.choose() == known
    assert codes.count(5) == 3 and codes.count(-2) == 3


def test_export_writes_a_binary_gltf_asset(model, head, tmp_path):
    full, bare = tmp_path / "full.glb", tmp_path / "bare.glb"
    assert meridian.export_glb(model, head, full) == full
    meridian.export_glb(model, head, bare, skip=("eyes", "blendshapes"))
    for path in (full, bare):
        # magic, version, declared length
        assert struct.unpack("<4sII", path.read_bytes()[:12]) == (b"glTF", 2, path.stat().st_size)
    assert full.stat().st_size > bare.stat().st_size  # eyes and shapes take room


def test_exporter_keeps_its_engines_and_gives_the_tools_bytes(model, head, tmp_path):
    from conftest import TOOL
    tool_glb = tmp_path / "tool.glb"
    subprocess.run([TOOL, "export", "--model", model, "--in", model / "sample_head.obj",
                    "--out", tool_glb], check=True, capture_output=True)
    with meridian.Exporter(model) as exporter:
        glb, report = exporter.build(head)
        again, _ = exporter.build(head)
        exporter.export(head, tmp_path / "written.glb")
    assert exporter.closed
    assert glb == again == tool_glb.read_bytes() == (tmp_path / "written.glb").read_bytes()
    assert 0.9 <= report["eye_scale"] <= 1.1
    assert all(moved > 0 for moved in report["region_max_displacement"])
    assert report["non_finite_positions"] == report["non_finite_normals"] == 0
    low, high = report["bounds"]
    assert all(a < b for a, b in zip(low, high))


def test_bad_input_raises(model, head, tmp_path):
    missing = tmp_path / "absent"
    hostile = tmp_path / "hostile"
    hostile.mkdir()
    (hostile / "idx_tavi2head.corresp").write_text("# base 0\n# element count 16777216\n")
    split = model / "TBN" / "head_split_uv.obj"
    short = tmp_path / "short"
    zeros = tmp_path / "zeros"
    for directory in (short, zeros):
        for name, rows, cols in bs_module.DATA_FILES:
            path = directory / "BS" / name
            path.parent.mkdir(parents=True, exist_ok=True)
            with open(path, "wb") as f:  # sparse: nothing is written
                f.truncate(8 * rows * cols - (directory == short and "sigma" in name))
    cases = [
        # Every open checks its model files strictly first.
        (lambda: meridian.HeadSwap(missing), meridian.MeridianError,
         f"{missing / 'idx_tavi2head.corresp'}: no such file"),
        (lambda: meridian.HeadSwap(hostile), meridian.MeridianError,
         'idx_tavi2head.corresp: the header has no "# end_header" line'),
        (lambda: meridian.FixedTangentFrames(missing), meridian.MeridianError,
         f"{missing}/TBN/std_20481_with_UV_F_TF.obj: no such file"),
        (lambda: meridian.GeneralTangentFrames(split, [0, 1, 2], [0]), meridian.MeridianError,
         "idx_tavi2head has 3 entries"),
        (lambda: meridian.GeneralTangentFrames.from_files(split, missing, missing),
         meridian.MeridianError, f"cannot open {missing}"),
        (lambda: meridian.HeadSwap(model).swap(head[:-1]), ValueError, "(20481, 3)"),
        (lambda: meridian.FixedTangentFrames(model).frames(head.T), ValueError, "(20481, 3)"),
        (lambda: meridian.EyeballFit(missing), meridian.MeridianError,
         f"{missing}/eyeball/new_eye.ply: no such file"),
        (lambda: meridian.EyeballFit(model).fit(head, template=3), ValueError, "0, 1 or 2"),
        (lambda: meridian.EyeballFit(model).write_posed_eye(missing / "eye.obj", [0, 0, 0],
                                                            [0, 0, 0], 1),
         meridian.MeridianError, f"cannot write {missing / 'eye.obj'}"),
        (lambda: meridian.EyelashAligner(missing), meridian.MeridianError,
         f"{missing / 'idx_tavi2head.corresp'}: no such file"),
        (lambda: meridian.EyeballAligner(model).align(head[:100]), ValueError, "(20481, 3)"),
        # The legacy library would end the process on these two.
        (lambda: meridian.Blendshapes(missing), meridian.MeridianError,
         f"{missing}/BS/kp_86_h_r_1_c_86.bin: no such file"),
        (lambda: meridian.Blendshapes(short), meridian.MeridianError,
         f"{short}/BS/zf_all_face_V9_500_sigma_r_500_c_1.bin: 3999 bytes, but 500 x 1 doubles "
         "take exactly 4000"),
        (lambda: meridian.Blendshapes(zeros), meridian.MeridianError,
         "sigma_r_500_c_1.bin: entry 0 is 0, not a positive standard deviation"),
        (lambda: meridian.read_head_obj(missing), meridian.MeridianError,
         f"{missing}: 0 rows; a head has 3 or 20481"),
        (lambda: meridian.read_head_ply(missing), meridian.MeridianError,
         f"cannot open {missing}"),
        (lambda: meridian.export_glb(model, head[:5], tmp_path / "x.glb"), ValueError,
         "(20481, 3)"),
        (lambda: meridian.export_glb(model, head, tmp_path / "x.glb", skip="hair"), ValueError,
         "'hair'"),
        (lambda: meridian.export_glb(missing, head, tmp_path / "x.glb"), meridian.MeridianError,
         "absent"),
    ]
    for attempt, error, message in cases:
        with pytest.raises(error) as raised:
            attempt()
        assert message in str(raised.value)
        meridian.release_all()


def test_blendshape_files_checked_are_the_ones_the_library_reads():
    header = (ROOT / "src" / "blendshape" / "backend_files.h").read_text()
    sizes = {"kHeadVertexCount": 20481, "kFaceVertexCount": 18518, "kComponentCount": 500}
    listed = [(name, eval(rows, {}, sizes), eval(cols, {}, sizes))
              for name, rows, cols in re.findall(r'\{"(\w+\.bin)", ([^,]+), ([^}]+)\}', header)]
    directories = re.findall(r'"(mask/\w+/)"', header)
    files = listed[:27] + [(directories[k // 3] + n, r, c) for k, (n, r, c) in
                           enumerate(listed[27:])]
    assert tuple(files) == bs_module.DATA_FILES
