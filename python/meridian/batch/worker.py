"""What a worker process does: export chunks of heads with the model it
loaded once.

The exporter (the model's engines) is cached per process, keyed by the
model folder and the export options, so a worker loads the model once
however many chunks it runs; every head then costs only its own work.
"""
import ctypes
import hashlib
import os
import sys
import time
from dataclasses import dataclass

from .files import remove_stale_temporaries, write_all_atomically

# Fault hook for tests: "N:MARKER" makes the worker process that reaches its
# N-th head end at once (as a crash would), provided the file MARKER can be
# created then; so exactly one worker dies, wherever the heads land.
FAULT_VARIABLE = "MERIDIAN_BATCH_FAULT_EXIT_AT"


@dataclass(frozen=True)
class ExportOptions:
    """The options of `meridian export` the batch passes on."""
    skip: tuple = ()
    metres_per_unit: float = 0.0026


# Test hook for interrupting a run at a known point: "N:READY:GO" makes the
# worker process that reaches its N-th head write that head's path into the
# FIFO READY (blocking until someone reads it), then wait until someone
# writes to the FIFO GO, and only then go on with the head.
PAUSE_VARIABLE = "MERIDIAN_BATCH_PAUSE_AT"

_exporters = {}
_heads_started = 0


def _keep_freed_memory():
    """A worker allocates and frees the same few large arrays (shapes,
    assets of about 4 MB) for every chunk. glibc hands such blocks back to
    the system and maps them afresh, zero-filled, the next time: a third
    of a worker's time went to the kernel clearing pages. Kept in the
    process instead, they are reused. Only glibc has these settings."""
    if not sys.platform.startswith("linux"):
        return
    try:
        libc = ctypes.CDLL("libc.so.6")
    except OSError:
        return
    m_trim_threshold, m_mmap_threshold = -1, -3
    libc.mallopt(m_mmap_threshold, 32 << 20)  # glibc's largest
    libc.mallopt(m_trim_threshold, 1 << 30)


def _exporter(model, options):
    from .. import Exporter  # imported in the worker process

    key = (os.path.abspath(model), options)
    if key not in _exporters:
        if not _exporters:
            _keep_freed_memory()
        # One worker process per core: the blendshape engine stays on the
        # worker's one thread.
        _exporters[key] = Exporter(model, skip=options.skip,
                                   metres_per_unit=options.metres_per_unit, threads=1)
    return _exporters[key]


def _start_head(source):
    """Counts the head and runs the test hooks for it."""
    global _heads_started
    _heads_started += 1
    _maybe_fail()
    _maybe_pause(source)


def _maybe_fail():
    hook = os.environ.get(FAULT_VARIABLE, "")
    if not hook:
        return
    count, _, marker = hook.partition(":")
    if int(count) != _heads_started:
        return
    try:
        os.close(os.open(marker, os.O_CREAT | os.O_EXCL | os.O_WRONLY))
    except FileExistsError:
        return
    os._exit(70)


def _maybe_pause(source):
    hook = os.environ.get(PAUSE_VARIABLE, "")
    if not hook:
        return
    count, ready, go = hook.split(":", 2)
    if int(count) != _heads_started:
        return
    with open(ready, "w") as stream:
        stream.write(source)
    with open(go) as stream:
        stream.read()


def _new_row(job):
    return {"input": job.source, "input_sha256": None, "status": "error", "error": "",
            "output": job.output, "output_size": None, "output_sha256": None, "times": {},
            "qa": None}


def _fail(row, error, started):
    row["error"] = str(error) or type(error).__name__
    row["times"] = {"total": time.perf_counter() - started}
    return row


def _read(job, row):
    """Hashes and reads the head of `job`; returns its (20481, 3) vertices."""
    from .. import read_head

    with open(job.source, "rb") as stream:
        row["input_sha256"] = hashlib.sha256(stream.read()).hexdigest()
    return read_head(job.source)


def export_chunk(model, options, jobs):
    """Exports a chunk of heads; returns their rows in order.

    The heads that read well are built in one call, so the blendshape engine
    streams its basis once for the whole chunk; each head's "export" time is
    its share of that call. Should the call fail, each head is built alone,
    so that only the heads at fault get error rows."""
    rows, heads, good, starts, reads = [], [], [], [], []
    for job in jobs:
        row = _new_row(job)
        rows.append(row)
        started = time.perf_counter()
        _start_head(job.source)
        try:
            heads.append(_read(job, row))
            good.append(len(rows) - 1)
            starts.append(started)
            reads.append(time.perf_counter() - started)
        except Exception as error:
            _fail(row, error, started)
    if not heads:
        return rows
    exporter = _exporter(model, options)
    built_at = time.perf_counter()
    try:
        built = exporter.build_batch(heads)
        share = (time.perf_counter() - built_at) / len(heads)
        shares = [share] * len(heads)
    except Exception:  # find the heads at fault one by one
        built, shares = [], []
        for head in heads:
            one_started = time.perf_counter()
            try:
                built.append(exporter.build(head))
            except Exception as error:
                built.append(error)
            shares.append(time.perf_counter() - one_started)
    _write_chunk(jobs, rows, zip(good, starts, reads, shares, built))
    return rows


def _write_chunk(jobs, rows, outcomes):
    """Writes the assets of a chunk's built heads and fills in their rows.
    `outcomes` holds, per built head, (index in the chunk, start time, read
    time, build time, (glb, report) or the exception that stopped the
    build). The assets are written in one call, so their flushes to disk
    overlap each other and the hashing of the assets."""
    written = []
    for index, started, read, share, outcome in outcomes:
        if isinstance(outcome, Exception):
            _fail(rows[index], outcome, started)
            continue
        remove_stale_temporaries(jobs[index].output)
        written.append((index, started, read, share, *outcome))
    if not written:
        return
    glbs = [glb for *_, glb, _ in written]
    digests = [None] * len(written)

    def digest(k):  # while the disk flushes
        digests[k] = hashlib.sha256(glbs[k]).hexdigest()

    write_started = time.perf_counter()
    errors = write_all_atomically([(jobs[index].output, glb) for index, *_, glb, _ in written],
                                  while_flushing=digest)
    write_share = (time.perf_counter() - write_started) / len(written)
    for (index, started, read, share, glb, report), error, sha256 in zip(written, errors, digests):
        if error is not None:
            _fail(rows[index], error, started)
            continue
        rows[index].update(status="ok", output_size=len(glb), output_sha256=sha256, qa=report,
                           times={"read": read, "export": share, "write": write_share,
                                  "total": read + share + write_share})
