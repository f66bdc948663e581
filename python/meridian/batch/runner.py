"""The batch driver: plans the jobs, skips what an earlier run finished,
sends chunks of heads to a Dask cluster, collects one row per head, and
keeps the manifest."""
import os
import sys
import time
from dataclasses import dataclass, field

from . import manifest
from .outliers import find_outliers
from .worker import ExportOptions, export_chunk

CHECKPOINT_SECONDS = 5.0


@dataclass
class BatchResult:
    """What a run did: rows by input, and its counts."""
    rows: dict = field(default_factory=dict)
    skipped: int = 0
    done: int = 0
    failed: int = 0
    seconds: float = 0.0
    interrupted: bool = False

    @property
    def ok(self):
        return not self.interrupted and all(r["status"] == "ok" for r in self.rows.values())


def _chunks(items, size):
    return [items[k:k + size] for k in range(0, len(items), size)]


def _progress(total, initial):
    try:
        from tqdm import tqdm
    except ImportError:  # the bar is a nicety
        return None
    return tqdm(total=total, initial=initial, unit="head", dynamic_ncols=True,
                disable=not sys.stderr.isatty())


def run(client, model, jobs, out_dir, options=ExportOptions(), chunk=16, force=False,
        log=print):
    """Runs `jobs` on the cluster of `client` and writes the manifest under
    `out_dir`. Returns a BatchResult. A KeyboardInterrupt stops the run:
    heads in flight are dropped whole (their outputs are written atomically)
    and the manifest keeps what finished."""
    started = time.perf_counter()
    earlier = {} if force else manifest.load(out_dir)
    result = BatchResult()
    todo = []
    for job in jobs:
        row = earlier.get(job.source)
        if row is not None and manifest.still_valid(row, job):
            result.rows[job.source] = row
            result.skipped += 1
        else:
            todo.append(job)
    order = [job.source for job in jobs]

    def save():
        manifest.save(out_dir, [result.rows[s] for s in order if s in result.rows])

    from distributed import as_completed

    bar = _progress(len(jobs), result.skipped)
    futures = []
    last_checkpoint = time.monotonic()
    try:
        # Submitted inside the try: Ctrl-C while chunks are still being sent
        # ends the run as cleanly as later.
        for part in _chunks(todo, max(1, chunk)):
            futures.append(client.submit(export_chunk, model, options, part, pure=False))
        for future in as_completed(futures):
            for row in future.result():
                result.rows[row["input"]] = row
                result.done += 1
                result.failed += row["status"] != "ok"
                if bar is not None:
                    bar.update(1)
                    bar.set_postfix(failed=result.failed)
            if time.monotonic() - last_checkpoint >= CHECKPOINT_SECONDS:
                save()
                last_checkpoint = time.monotonic()
    except KeyboardInterrupt:
        result.interrupted = True
        client.cancel(futures)
    finally:
        if bar is not None:
            bar.close()
        save()
    result.seconds = time.perf_counter() - started
    _summarise(result, log)
    return result


def _summarise(result, log):
    rate = result.done / result.seconds if result.seconds > 0 else 0.0
    log(f"{result.done} exported ({result.failed} failed), {result.skipped} skipped as done "
        f"before, in {result.seconds:.1f} s: {rate:.1f} heads/s"
        + (" (interrupted)" if result.interrupted else ""))
    for row in result.rows.values():
        if row["status"] != "ok":
            log(f"error: {row['input']}: {row['error']}")
    good = [row for row in result.rows.values() if row["status"] == "ok" and row.get("qa")]
    for source, figure, value, score in find_outliers(good):
        log(f"outlier: {source}: {figure} = {value:.6g} (modified z-score {score:.1f})")
