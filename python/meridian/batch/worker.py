"""What a worker process does: export chunks of heads with the model it
loaded once.

The exporter (the model's engines) is cached per process, keyed by the
model folder and the export options, so a worker loads the model once
however many chunks it runs; every head then costs only its own work.
"""
import hashlib
import os
import time
from dataclasses import dataclass

from .files import remove_stale_temporaries, write_atomically

# Fault hook for tests: "N:MARKER" makes the worker process that reaches its
# N-th head end at once (as a crash would), provided the file MARKER can be
# created then; so exactly one worker dies, wherever the heads land.
FAULT_VARIABLE = "MERIDIAN_BATCH_FAULT_EXIT_AT"


@dataclass(frozen=True)
class ExportOptions:
    """The options of `meridian export` the batch passes on."""
    skip: tuple = ()
    metres_per_unit: float = 0.0026


_exporters = {}
_heads_started = 0


def _exporter(model, options):
    from .. import Exporter  # imported in the worker process

    key = (os.path.abspath(model), options)
    if key not in _exporters:
        _exporters[key] = Exporter(model, skip=options.skip,
                                   metres_per_unit=options.metres_per_unit)
    return _exporters[key]


def _maybe_fail():
    global _heads_started
    _heads_started += 1
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


def export_job(model, options, job):
    """Exports one head; returns its manifest row (status "error" with the
    message when the head or the writing fails)."""
    from .. import read_head

    row = {"input": job.source, "input_sha256": None, "status": "error", "error": "",
           "output": job.output, "output_size": None, "output_sha256": None, "times": {},
           "qa": None}
    started = time.perf_counter()
    _maybe_fail()
    try:
        with open(job.source, "rb") as stream:
            row["input_sha256"] = hashlib.sha256(stream.read()).hexdigest()
        head = read_head(job.source)
        read = time.perf_counter()
        glb, report = _exporter(model, options).build(head)
        exported = time.perf_counter()
        remove_stale_temporaries(job.output)
        write_atomically(job.output, glb)
        written = time.perf_counter()
        row.update(status="ok", output_size=len(glb), output_sha256=hashlib.sha256(glb).hexdigest(),
                   qa=report)
        row["times"] = {"read": read - started, "export": exported - read,
                        "write": written - exported, "total": written - started}
    except Exception as error:  # a bad head is a row, not the end of the batch
        row["error"] = str(error) or type(error).__name__
        row["times"] = {"total": time.perf_counter() - started}
    return row


def export_chunk(model, options, jobs):
    """Exports a chunk of heads in order; returns their rows."""
    return [export_job(model, options, job) for job in jobs]
