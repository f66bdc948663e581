"""The batch on real Dask clusters: a local one and an external scheduler
with two worker processes, over a dozen variants of the demo head, two of
them bad. Good outputs must be byte for byte what `meridian export` writes
for the same head; bad heads get error rows; a worker that dies mid-batch
loses nothing; a second run resumes. Nothing here sleeps: it waits on
processes and on the scheduler's own events."""
import hashlib
import json
import os
import shutil
import signal
import socket
import subprocess
import sys

import numpy as np
import pytest

from conftest import BUILD, ROOT, TOOL

pytest.importorskip("distributed")

OPTIONS = ["--skip", "blendshapes"]  # the tests' assets: head and eyes


def environment(**extra):
    env = dict(os.environ)
    env["PYTHONPATH"] = os.pathsep.join([str(ROOT / "python")] +
                                        [p for p in [env.get("PYTHONPATH")] if p])
    env.update(extra)
    return env


def run_batch(arguments, installed_script=False, **extra):
    """Runs the batch as `python3 -m meridian.batch`, or through the
    `meridian-batch` script that the install puts on the path (whose
    worker processes import it again as their main module)."""
    command = ([sys.executable, str(ROOT / "tools" / "meridian-batch")] if installed_script
               else [sys.executable, "-m", "meridian.batch"])
    return subprocess.run(command + arguments, env=environment(**extra), capture_output=True,
                          text=True, timeout=600)


def rows_of(out):
    with open(out / "manifest.jsonl") as lines:
        return {os.path.basename(row["input"]): row for row in map(json.loads, lines)}


@pytest.fixture(scope="module")
def heads(tmp_path_factory, model, head):
    """Ten good heads (OBJ and PLY, in two folders) and two bad ones."""
    root = tmp_path_factory.mktemp("heads")
    for k in range(10):
        folder = root / ("a" if k < 5 else "b/deeper")
        folder.mkdir(parents=True, exist_ok=True)
        variant = head * np.float32(1 + 0.01 * k) + np.float32(0.1 * k)
        if k % 3 == 2:
            lines = ["ply", "format ascii 1.0", f"element vertex {len(variant)}",
                     "property float x", "property float y", "property float z", "end_header"]
            lines += [f"{x:.9g} {y:.9g} {z:.9g}" for x, y, z in variant]
            (folder / f"head{k}.ply").write_text("\n".join(lines) + "\n")
        else:
            (folder / f"head{k}.obj").write_text(
                "".join(f"v {x:.9g} {y:.9g} {z:.9g}\n" for x, y, z in variant))
    good = sorted(p for p in root.rglob("head*"))
    (root / "a" / "short.obj").write_text(
        "".join(f"v {x:.9g} {y:.9g} {z:.9g}\n" for x, y, z in head[:-1]))
    lines = [f"v {x:.9g} {y:.9g} {z:.9g}\n" for x, y, z in head]
    lines[5] = "v nan 0 0\n"
    (root / "b" / "nan.obj").write_text("".join(lines))
    return root, good


@pytest.fixture(scope="module")
def single_exports(tmp_path_factory, model, heads):
    """Each good head exported alone by the tool: the bytes to match."""
    root, good = heads
    out = tmp_path_factory.mktemp("single")
    expected = {}
    for path in good:
        target = out / (path.stem + ".glb")
        subprocess.run([TOOL, "export", "--model", model, "--in", path, "--out", target] + OPTIONS,
                       check=True, capture_output=True)
        expected[path.name] = target.read_bytes()
    return expected


def check_outputs(out, root, good, expected):
    rows = rows_of(out)
    assert len(rows) == len(good) + 2
    for path in good:
        row = rows[path.name]
        assert row["status"] == "ok", row
        output = out / path.relative_to(root).with_suffix(".glb")
        assert row["output"] == str(output)
        assert output.read_bytes() == expected[path.name], path
        assert row["output_size"] == len(expected[path.name])
        assert 0.9 <= row["qa"]["eye_scale"] <= 1.1
    assert rows["short.obj"]["status"] == "error"
    assert "20480 vertices" in rows["short.obj"]["error"]
    assert rows["nan.obj"]["status"] == "error"
    assert "non-finite" in rows["nan.obj"]["error"]
    assert not (out / "a" / "short.glb").exists() and not (out / "b" / "nan.glb").exists()
    leftovers = [p for p in out.rglob("*.tmp")]
    assert leftovers == []
    return rows


def test_local_cluster_exports_good_heads_and_reports_bad_ones(tmp_path, model, heads,
                                                               single_exports):
    root, good = heads
    out = tmp_path / "out"
    listed = tmp_path / "list.txt"
    listed.write_text(f"# the whole archive\n{root}\n")
    run = run_batch(["--model", str(model), "--out", str(out), "--workers", "2", "--chunk", "3",
                     "--list", str(listed)] + OPTIONS)
    assert run.returncode == 1, run.stderr  # two heads failed
    assert "12 exported (2 failed)" in run.stderr, run.stderr
    rows = check_outputs(out, root, good, single_exports)

    # Resume: nothing to do. A changed input is done again; --force redoes all.
    again = run_batch(["--model", str(model), "--out", str(out), "--workers", "1", str(root)]
                      + OPTIONS, installed_script=True)
    assert "2 exported (2 failed), 10 skipped" in again.stderr, again.stderr
    changed = good[0]
    original = changed.read_text()
    changed.write_text(original.replace("v ", "v  ", 1))  # same head, other bytes
    try:
        third = run_batch(["--model", str(model), "--out", str(out), "--workers", "1",
                           str(root)] + OPTIONS)
        assert "3 exported (2 failed), 9 skipped" in third.stderr, third.stderr
        assert rows_of(out)[changed.name]["input_sha256"] != rows[changed.name]["input_sha256"]
        forced = run_batch(["--model", str(model), "--out", str(out), "--workers", "1", "--force",
                            str(root)] + OPTIONS)
        assert "12 exported (2 failed), 0 skipped" in forced.stderr, forced.stderr
    finally:
        changed.write_text(original)


def test_full_assets_with_batched_blendshapes_match_single_exports(tmp_path, model, heads):
    """Blendshapes on: a chunk's heads share one blendshape pass, and each
    asset is still what `meridian export` writes for its head alone."""
    root, good = heads
    chosen = good[:3]
    inputs = tmp_path / "in"
    inputs.mkdir()
    for path in chosen:
        shutil.copy(path, inputs / path.name)
    out = tmp_path / "out"
    run = run_batch(["--model", str(model), "--out", str(out), "--workers", "1", "--chunk", "3",
                     str(inputs)])
    assert run.returncode == 0, run.stderr
    rows = rows_of(out)
    for path in chosen:
        single = tmp_path / (path.stem + ".single.glb")
        subprocess.run([TOOL, "export", "--model", model, "--in", path, "--out", single],
                       check=True, capture_output=True)
        assert (out / path.with_suffix(".glb").name).read_bytes() == single.read_bytes(), path
        assert all(moved > 0 for moved in rows[path.name]["qa"]["region_max_displacement"])


def test_a_worker_that_dies_loses_no_head(tmp_path, model, heads, single_exports):
    root, good = heads
    out = tmp_path / "out"
    marker = tmp_path / "died"
    run = run_batch(["--model", str(model), "--out", str(out), "--workers", "2", "--chunk", "2",
                     str(root)] + OPTIONS, MERIDIAN_BATCH_FAULT_EXIT_AT=f"3:{marker}")
    assert marker.exists()  # one worker did die at its third head
    assert run.returncode == 1, run.stderr
    check_outputs(out, root, good, single_exports)


def test_a_model_that_fails_the_check_stops_the_batch_first(tmp_path, model, heads):
    root, _ = heads
    broken = tmp_path / "model"
    shutil.copytree(model, broken, ignore=shutil.ignore_patterns("BS"))
    text = (broken / "idx_head2ue4.corresp").read_text()
    (broken / "idx_head2ue4.corresp").write_text(text[:len(text) // 2])
    out = tmp_path / "out"
    run = run_batch(["--model", str(broken), "--out", str(out), str(root)] + OPTIONS)
    assert run.returncode == 1
    assert run.stderr.startswith("error: ") and "idx_head2ue4.corresp" in run.stderr
    assert not out.exists()
    # Two inputs with one output are refused before any work starts.
    for name in ("x", "y"):
        (tmp_path / name).mkdir()
        shutil.copy(root / "a" / "head0.obj", tmp_path / name / "same.obj")
    collide = run_batch(["--model", str(model), "--out", str(out), str(tmp_path / "x"),
                         str(tmp_path / "y")] + OPTIONS)
    assert collide.returncode == 1 and "would both be written" in collide.stderr
    assert not out.exists()


def release(fifo):
    """Lets a worker paused on `fifo` go on; nothing when none waits."""
    try:
        os.close(os.open(fifo, os.O_WRONLY | os.O_NONBLOCK))
    except OSError:  # no reader: the worker is gone
        pass


def test_ctrl_c_stops_cleanly_and_the_manifest_keeps_what_finished(tmp_path, model, heads):
    root, good = heads
    inputs = tmp_path / "in"
    inputs.mkdir()
    for path in good[:5]:
        shutil.copy(path, inputs / path.name)
    out = tmp_path / "out"
    ready, go = tmp_path / "ready", tmp_path / "go"
    os.mkfifo(ready)
    os.mkfifo(go)
    batch = subprocess.Popen(
        [sys.executable, "-m", "meridian.batch", "--model", str(model), "--out", str(out),
         "--workers", "1", "--chunk", "1", str(inputs)] + OPTIONS,
        env=environment(MERIDIAN_BATCH_PAUSE_AT=f"3:{ready}:{go}"), stdout=subprocess.DEVNULL,
        stderr=subprocess.PIPE, text=True)
    try:
        with open(ready) as stream:  # the worker is at its third head, and holds there
            paused = os.path.basename(stream.read())
        batch.send_signal(signal.SIGINT)
        # The driver says it stopped once the manifest is saved; only then
        # may the paused head go on (or its worker be ended by the cluster).
        seen = []
        for line in batch.stderr:
            seen.append(line)
            if "(interrupted)" in line:
                break
        release(go)
        seen.append(batch.stderr.read())
        assert batch.wait(timeout=300) == 130, "".join(seen)
    finally:
        release(go)
        if batch.poll() is None:
            batch.kill()
            batch.wait()
    rows = rows_of(out)
    assert paused not in rows and len(rows) < 5
    for name, row in rows.items():
        assert row["status"] == "ok", row
        data = open(row["output"], "rb").read()
        assert len(data) == row["output_size"]
        assert hashlib.sha256(data).hexdigest() == row["output_sha256"]
    assert list(out.rglob("*.tmp")) == []

    # The next run does the rest.
    again = run_batch(["--model", str(model), "--out", str(out), "--workers", "1",
                       str(inputs)] + OPTIONS)
    assert again.returncode == 0, again.stderr
    assert f"{5 - len(rows)} exported (0 failed), {len(rows)} skipped" in again.stderr
    assert len(rows_of(out)) == 5


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def test_external_scheduler_and_two_worker_processes(tmp_path, model, heads, single_exports):
    root, good = heads
    port = free_port()
    address = f"tcp://127.0.0.1:{port}"
    scheduler_file = tmp_path / "scheduler.json"
    env = environment()
    scheduler = subprocess.Popen(
        ["dask-scheduler", "--host", "127.0.0.1", "--port", str(port), "--dashboard-address",
         ":0", "--scheduler-file", str(scheduler_file)], env=env, stdout=subprocess.DEVNULL,
        stderr=subprocess.DEVNULL)
    workers = []
    try:
        from distributed import Client

        # The scheduler writes its file once it listens; a client waits for it.
        with Client(scheduler_file=str(scheduler_file), timeout="60s") as client:
            for _ in range(2):
                workers.append(subprocess.Popen(
                    ["dask-worker", address, "--nworkers", "1", "--nthreads", "1", "--host",
                     "127.0.0.1", "--no-dashboard"], env=env, stdout=subprocess.DEVNULL,
                    stderr=subprocess.DEVNULL))
            client.wait_for_workers(2, timeout=120)
        out = tmp_path / "out"
        run = run_batch(["--model", str(model), "--out", str(out), "--scheduler", address,
                         str(root)] + OPTIONS)
        assert run.returncode == 1, run.stderr
        check_outputs(out, root, good, single_exports)
    finally:
        for process in workers + [scheduler]:
            process.terminate()
        for process in workers + [scheduler]:
            process.wait(timeout=60)
