"""The batch's own logic, without a cluster: which inputs map to which
outputs, which earlier rows let a head be skipped, and which heads the QA
figures flag."""
import json
import os

import pytest

from meridian.batch import manifest
from meridian.batch.files import sha256_of, write_all_atomically, write_atomically
from meridian.batch.inputs import InputError, Job, plan_jobs, read_list
from meridian.batch.outliers import find_outliers, modified_z_scores


def touch(path, text="v 0 0 0\n"):
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(text)
    return path


def test_outputs_mirror_each_input_root(tmp_path):
    a = touch(tmp_path / "in/a.obj")
    b = touch(tmp_path / "in/sub/b.PLY")
    touch(tmp_path / "in/sub/notes.txt")
    single = touch(tmp_path / "other/c.ply")
    listed = touch(tmp_path / "listed/d.obj")
    (tmp_path / "heads.txt").write_text("# one per line\n\nlisted/d.obj\n")
    jobs = plan_jobs([tmp_path / "in", single] + read_list(tmp_path / "heads.txt"),
                     tmp_path / "out")
    out = str(tmp_path / "out")
    assert jobs == [Job(str(a), os.path.join(out, "a.glb")),
                    Job(str(b), os.path.join(out, "sub", "b.glb")),
                    Job(str(single), os.path.join(out, "c.glb")),
                    Job(str(listed), os.path.join(out, "d.glb"))]
    # The same file named twice is one job.
    assert len(plan_jobs([a, a], tmp_path / "out")) == 1


@pytest.mark.parametrize("inputs, message", [
    (["x/a.obj", "y/a.ply"], "would both be written to"),
    (["missing.obj"], "no such file or folder"),
    (["x/notes.txt"], "not a head file"),
])
def test_refused_before_any_work(tmp_path, inputs, message):
    for name in ("x/a.obj", "y/a.ply", "x/notes.txt"):
        touch(tmp_path / name)
    with pytest.raises(InputError, match=message):
        plan_jobs([tmp_path / i for i in inputs], tmp_path / "out")


def test_an_earlier_row_is_kept_only_while_input_and_output_are_unchanged(tmp_path):
    source = touch(tmp_path / "a.obj")
    output = tmp_path / "out/a.glb"
    write_atomically(str(output), b"glTF asset")
    job = Job(str(source), str(output))
    row = {"input": str(source), "status": "ok", "output": str(output),
           "input_sha256": sha256_of(source), "output_size": 10,
           "output_sha256": sha256_of(output)}
    manifest.save(tmp_path / "out", [row])
    assert manifest.load(tmp_path / "out") == {str(source): row}
    assert manifest.still_valid(row, job)
    for changed in ({"status": "error"}, {"output_size": 11}, {"input_sha256": "0" * 64},
                    {"output": str(tmp_path / "elsewhere.glb")}):
        assert not manifest.still_valid({**row, **changed}, job), changed
    output.write_bytes(b"glTF assat")  # same size, other bytes
    assert not manifest.still_valid(row, job)
    output.unlink()
    assert not manifest.still_valid(row, job)
    # A torn line is ignored, the rest kept.
    with open(tmp_path / "out/manifest.jsonl", "a") as lines:
        lines.write('{"input": "b.obj", "sta')
    assert list(manifest.load(tmp_path / "out")) == [str(source)]


def test_atomic_write_refuses_what_is_not_a_regular_file(tmp_path):
    (tmp_path / "folder.glb").mkdir()
    os.symlink(tmp_path / "target", tmp_path / "link.glb")
    for name in ("folder.glb", "link.glb"):
        with pytest.raises(OSError, match="not a regular file"):
            write_atomically(str(tmp_path / name), b"x")
    write_atomically(str(tmp_path / "a.glb"), b"first")
    write_atomically(str(tmp_path / "a.glb"), b"second")
    assert (tmp_path / "a.glb").read_bytes() == b"second"
    assert sorted(os.listdir(tmp_path)) == ["a.glb", "folder.glb", "link.glb"]


def test_a_chunk_of_files_fails_file_by_file(tmp_path, monkeypatch):
    """Files written together: a target that is refused, or whose flush to
    disk fails, keeps its old content and leaves no temporary; the others
    are written whole."""
    (tmp_path / "folder.glb").mkdir()
    (tmp_path / "kept.glb").write_bytes(b"old")
    real_fsync = os.fsync
    failing = []

    def fsync(descriptor):
        if os.readlink(f"/proc/self/fd/{descriptor}").startswith(str(tmp_path / ".kept.glb.")):
            failing.append(descriptor)
            raise OSError("disk full")
        real_fsync(descriptor)

    monkeypatch.setattr(os, "fsync", fsync)
    names = ["a.glb", "folder.glb", "kept.glb", "sub/b.glb", "c.glb"]
    errors = write_all_atomically([(str(tmp_path / name), name.encode() * 1000)
                                   for name in names], flush_threads=3)
    assert [type(error).__name__ if error else None for error in errors] == [
        None, "OSError", "OSError", None, None]
    assert "not a regular file" in str(errors[1]) and "disk full" in str(errors[2])
    assert len(failing) == 1
    for name in ("a.glb", "sub/b.glb", "c.glb"):
        assert (tmp_path / name).read_bytes() == name.encode() * 1000
    assert (tmp_path / "kept.glb").read_bytes() == b"old"
    assert sorted(os.listdir(tmp_path)) == ["a.glb", "c.glb", "folder.glb", "kept.glb", "sub"]


def test_modified_z_scores_flag_the_head_that_stands_out():
    # Median 10, MAD 1: 0.6745 (x - 10).
    assert modified_z_scores([8, 10, 10, 11, 12]) == pytest.approx(
        [-1.349, 0, 0, 0.6745, 1.349])
    assert modified_z_scores([3, 3, 3]) == [0, 0, 0]
    # Most heads equal (MAD 0): the mean absolute deviation, 4 / 5, instead.
    assert modified_z_scores([1, 1, 1, 1, 5]) == pytest.approx(
        [0, 0, 0, 0, 4 / (1.253314 * 0.8)])
    rows = [{"input": f"h{k}", "qa": {"eye_scale": 1.0 + 0.01 * (k % 3),
                                      "bounding_box": {"max": [1.0, 2.0 + 0.01 * k, 3.0]}}}
            for k in range(10)]
    rows[7]["qa"]["eye_scale"] = 1.5
    flagged = find_outliers(rows)
    assert [(source, figure) for source, figure, _, _ in flagged] == [("h7", "eye_scale")]
    assert flagged[0][2] == 1.5 and flagged[0][3] > 3.5
    assert json.dumps(rows)  # rows stay plain JSON
