#!/usr/bin/python3
"""End-to-end batch throughput: OBJ heads in, .glb assets out, full exports
(head, blendshapes, eyes) on the demo model.

Measured side by side in one run:
  - the tool run once per head (`meridian export`: process start, model
    load, one head), as heads/s;
  - the in-process Exporter loop in one process (read, build, write);
  - the Dask batch on a local cluster with 1 and with 2 single-threaded
    worker processes (cluster start-up excluded: the clock runs from the
    first chunk sent to the last row back), as heads/s, with the peak
    resident memory of each worker process (its ru_maxrss) and the mean
    .glb size.

    MERIDIAN_BUILD_DIR=build /usr/bin/python3 bench/batch_throughput.py [--heads N]
"""
import argparse
import os
import pathlib
import resource
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parents[1]
BUILD = pathlib.Path(os.environ.get("MERIDIAN_BUILD_DIR", ROOT / "build"))
os.environ.setdefault("MERIDIAN_LIBRARY", str(BUILD / "lib" / "libmeridian.so.0"))
os.environ["PYTHONPATH"] = os.pathsep.join(
    [str(ROOT / "python")] + [p for p in [os.environ.get("PYTHONPATH")] if p])
sys.path.insert(0, str(ROOT / "python"))
TOOL = BUILD / "bin" / "meridian"


def write_heads(model, folder, count):
    import numpy as np

    with open(model / "sample_head.obj") as obj:
        head = np.array([line.split()[1:4] for line in obj if line.startswith("v ")],
                        dtype=np.float32)
    folder.mkdir(parents=True, exist_ok=True)
    for k in range(count):
        variant = head * np.float32(1 + 0.002 * k)
        (folder / f"head{k:04d}.obj").write_text(
            "".join(f"v {x:.9g} {y:.9g} {z:.9g}\n" for x, y, z in variant))
    return sorted(folder.glob("*.obj"))


def tool_per_head(model, heads, out):
    out.mkdir(parents=True, exist_ok=True)
    started = time.perf_counter()
    for path in heads:
        subprocess.run([TOOL, "export", "--model", model, "--in", path, "--out",
                        out / (path.stem + ".glb")], check=True, capture_output=True)
    return len(heads) / (time.perf_counter() - started)


def exporter_loop(model, heads, out):
    from meridian import Exporter, read_head

    out.mkdir(parents=True, exist_ok=True)
    with Exporter(model, threads=1) as exporter:
        started = time.perf_counter()
        for path in heads:
            exporter.export(read_head(path), out / (path.stem + ".glb"))
        return len(heads) / (time.perf_counter() - started)


def _peak_megabytes():
    return resource.getrusage(resource.RUSAGE_SELF).ru_maxrss / 1024


def batch(model, folder, out, workers, chunk):
    from distributed import Client, LocalCluster

    from meridian.batch.inputs import plan_jobs
    from meridian.batch.runner import run
    from meridian.batch.worker import ExportOptions, _exporter

    jobs = plan_jobs([str(folder)], str(out))
    with LocalCluster(n_workers=workers, threads_per_worker=1, processes=True,
                      dashboard_address=None) as cluster, Client(cluster) as client:
        # Each worker loads the model before the clock starts, as it would
        # once in a long batch.
        client.run(lambda: _exporter(str(model), ExportOptions()) and None)
        result = run(client, str(model), jobs, str(out), chunk=chunk, force=True,
                     log=lambda line: None)
        peaks = client.run(_peak_megabytes)
    sizes = [os.path.getsize(job.output) for job in jobs]
    return result.done / result.seconds, sorted(peaks.values()), sum(sizes) / len(sizes)


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--heads", type=int, default=256, help="heads per batch run")
    parser.add_argument("--tool-heads", type=int, default=8, help="heads for the tool loop")
    parser.add_argument("--chunk", type=int, default=16)
    parser.add_argument("--rounds", type=int, default=3, help="counted rounds of 1 and 2 workers")
    arguments = parser.parse_args()
    with tempfile.TemporaryDirectory(prefix="batch-bench-") as scratch:
        scratch = pathlib.Path(scratch)
        model = scratch / "model"
        subprocess.run([TOOL, "demo", "--out", model], check=True, capture_output=True)
        heads = write_heads(model, scratch / "in", arguments.heads)
        tool = tool_per_head(model, heads[:arguments.tool_heads], scratch / "tool")
        print(f"tool once per head:        {tool:7.1f} heads/s", flush=True)
        loop = exporter_loop(model, heads, scratch / "loop")
        shutil.rmtree(scratch / "loop")
        print(f"Exporter loop, 1 process:  {loop:7.1f} heads/s", flush=True)
        rates = {1: [], 2: []}
        for round_number in range(arguments.rounds + 1):
            for workers in (1, 2):
                out = scratch / "batch"
                rate, peaks, size = batch(model, scratch / "in", out, workers, arguments.chunk)
                shutil.rmtree(out)
                counted = round_number > 0
                if counted:
                    rates[workers].append(rate)
                print(f"{'round ' + str(round_number) if counted else 'warm-up'}: batch, "
                      f"{workers} worker(s), chunk {arguments.chunk}: {rate:7.1f} heads/s; "
                      f"peak per worker {', '.join(f'{p:.0f}' for p in peaks)} MB; "
                      f".glb {size / 1e6:.2f} MB", flush=True)
        one, two = statistics.median(rates[1]), statistics.median(rates[2])
        print(f"median of {arguments.rounds}: 1 worker {one:.1f} heads/s, 2 workers {two:.1f} "
              f"heads/s; 2 workers against 1: {two / one:.2f}x; "
              f"2 workers against the tool: {two / tool:.1f}x")


if __name__ == "__main__":
    main()
