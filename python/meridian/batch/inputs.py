"""Which heads a batch exports, and where each one's asset goes.

Every input is a head file (.obj or .ply) or a folder searched recursively
for them; a --list file adds one path per line. An input's output mirrors
its path relative to its input root: a file given directly has its own
folder as root, a file found in a folder has that folder. Two inputs that
would map to one output are refused before any work starts.
"""
import os
from dataclasses import dataclass

HEAD_SUFFIXES = (".obj", ".ply")


class InputError(ValueError):
    """The batch's inputs cannot be run as given."""


@dataclass(frozen=True)
class Job:
    """One head: its input path (absolute) and the output path of its .glb."""
    source: str
    output: str


def _heads_under(folder):
    found = []
    for directory, subdirectories, files in os.walk(folder):
        subdirectories.sort()
        for name in sorted(files):
            if name.lower().endswith(HEAD_SUFFIXES):
                found.append(os.path.join(directory, name))
    return found


def read_list(path):
    """The paths of a --list file: one per line, blank lines and lines that
    start with '#' skipped, relative paths taken from the file's folder."""
    base = os.path.dirname(os.path.abspath(path))
    paths = []
    with open(path, encoding="utf-8") as lines:
        for line in lines:
            line = line.strip()
            if line and not line.startswith("#"):
                paths.append(line if os.path.isabs(line) else os.path.join(base, line))
    return paths


def plan_jobs(inputs, out_dir):
    """The jobs for `inputs` (files and folders), in a stable order, each
    with its output under `out_dir`. Raises InputError for an input that
    does not exist, a file that is not a head, or two inputs with one
    output."""
    out_dir = os.path.abspath(out_dir)
    jobs, claimed = [], {}
    for given in inputs:
        path = os.path.abspath(given)
        if os.path.isdir(path):
            root, heads = path, _heads_under(path)
        elif os.path.isfile(path):
            if not path.lower().endswith(HEAD_SUFFIXES):
                raise InputError(f"{given}: not a head file (.obj or .ply)")
            root, heads = os.path.dirname(path), [path]
        else:
            raise InputError(f"{given}: no such file or folder")
        for head in heads:
            relative = os.path.relpath(head, root)
            output = os.path.join(out_dir, os.path.splitext(relative)[0] + ".glb")
            key = os.path.normcase(output)
            if key in claimed:
                if claimed[key] == head:
                    continue  # the same file named twice
                raise InputError(f"{claimed[key]} and {head} would both be written to {output}")
            claimed[key] = head
            jobs.append(Job(head, output))
    return jobs
