"""OUT/manifest.jsonl: one JSON row per input.

A row holds the input path and its SHA-256, the status ("ok" or "error")
and the error message, the output path with its size and SHA-256, the time
of each stage in seconds, and the QA figures of the asset builder. The file
is rewritten whole and atomically (checkpoints while the batch runs, once
more at its end).
"""
import json
import os

from .files import sha256_of, write_atomically

NAME = "manifest.jsonl"


def manifest_path(out_dir):
    return os.path.join(out_dir, NAME)


def load(out_dir):
    """The rows of an earlier run, by input path ({} when there is none).
    Lines that do not parse are ignored: their heads are done again."""
    rows = {}
    try:
        with open(manifest_path(out_dir), encoding="utf-8") as lines:
            for line in lines:
                try:
                    row = json.loads(line)
                except ValueError:
                    continue
                if isinstance(row, dict) and isinstance(row.get("input"), str):
                    rows[row["input"]] = row
    except OSError:
        pass
    return rows


def save(out_dir, rows):
    """Writes `rows` (in the order given) atomically."""
    text = "".join(json.dumps(row, sort_keys=True) + "\n" for row in rows)
    write_atomically(manifest_path(out_dir), text.encode("utf-8"))


def still_valid(row, job):
    """Whether an earlier row lets the batch skip `job`: it was ok, for the
    same output, the input still has its recorded hash, and the output
    still has its recorded size and hash."""
    if row.get("status") != "ok" or row.get("output") != job.output:
        return False
    try:
        if os.path.getsize(job.output) != row.get("output_size"):
            return False
        return (sha256_of(job.source) == row.get("input_sha256") and
                sha256_of(job.output) == row.get("output_sha256"))
    except OSError:
        return False
