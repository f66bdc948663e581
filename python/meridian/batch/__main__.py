"""meridian-batch: export many heads as .glb assets on a Dask cluster.

    python3 -m meridian.batch --model DIR --out DIR [--scheduler ADDRESS]
        [--workers N] [--chunk K] [--list FILE] [--force]
        [--skip eyes|blendshapes] [--metres-per-unit M] INPUT...

Without --scheduler a local cluster runs one single-threaded worker process
per core (or --workers N). With it, the batch connects to a running
scheduler; inputs and outputs must then live on storage every worker sees.
Exit code 0 only when every head is exported.
"""
import argparse
import math
import os
import sys

from .inputs import InputError, plan_jobs, read_list
from .runner import run
from .worker import ExportOptions

SKIPPABLE = ("eyes", "blendshapes")


def _positive_finite(text):
    try:
        value = float(text)
    except ValueError:
        raise argparse.ArgumentTypeError(f"not a number: {text}") from None
    if not math.isfinite(value) or value <= 0:
        raise argparse.ArgumentTypeError(f"must be finite and positive: {text}")
    return value


def _positive_int(text):
    try:
        value = int(text)
    except ValueError:
        raise argparse.ArgumentTypeError(f"not a whole number: {text}") from None
    if value < 1:
        raise argparse.ArgumentTypeError(f"must be at least 1: {text}")
    return value


def parse_arguments(argv):
    parser = argparse.ArgumentParser(
        prog="meridian-batch",
        description="Export many heads (OBJ or PLY, 20481 vertices) as binary glTF assets, "
                    "each beside the others under --out, on a Dask cluster.")
    parser.add_argument("inputs", nargs="*", metavar="INPUT",
                        help="head files, or folders searched recursively for .obj and .ply")
    parser.add_argument("--model", required=True, help="model directory")
    parser.add_argument("--out", required=True, help="output folder (mirrors the inputs)")
    parser.add_argument("--scheduler", help="address of a running Dask scheduler")
    parser.add_argument("--workers", type=_positive_int, default=os.cpu_count() or 1,
                        help="worker processes of the local cluster (default: one per core)")
    parser.add_argument("--chunk", type=_positive_int, default=16,
                        help="heads sent to a worker at a time (default 16)")
    parser.add_argument("--list", dest="list_file", help="a file of input paths, one per line")
    parser.add_argument("--force", action="store_true",
                        help="export every head again, even those an earlier run finished")
    parser.add_argument("--skip", action="append", choices=SKIPPABLE, default=[],
                        help="leave a part out of every asset (may be given twice)")
    parser.add_argument("--metres-per-unit", type=_positive_finite, default=0.0026,
                        help="metres per model unit (default 0.0026)")
    return parser.parse_args(argv)


def _client(arguments):
    from distributed import Client, LocalCluster

    if arguments.scheduler:
        return Client(arguments.scheduler), None
    # Worker processes import this package from where the driver did.
    package_root = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
    paths = [package_root] + [p for p in os.environ.get("PYTHONPATH", "").split(os.pathsep) if p]
    os.environ["PYTHONPATH"] = os.pathsep.join(dict.fromkeys(paths))
    cluster = LocalCluster(n_workers=arguments.workers, threads_per_worker=1, processes=True,
                           dashboard_address=None)
    return Client(cluster), cluster


def main(argv=None):
    arguments = parse_arguments(sys.argv[1:] if argv is None else argv)
    inputs = list(arguments.inputs)
    try:
        if arguments.list_file:
            inputs += read_list(arguments.list_file)
        if not inputs:
            raise InputError("no inputs: name head files, folders, or --list FILE")
        jobs = plan_jobs(inputs, arguments.out)
    except (InputError, OSError) as error:
        print(f"error: {error}", file=sys.stderr)
        return 1
    from .. import MeridianError, asset_parts, check_model

    try:
        check_model(arguments.model, asset_parts(arguments.skip))
    except (MeridianError, OSError) as error:
        print(f"error: {error}", file=sys.stderr)
        return 1
    options = ExportOptions(skip=tuple(sorted(set(arguments.skip))),
                            metres_per_unit=arguments.metres_per_unit)
    os.makedirs(arguments.out, exist_ok=True)
    client, cluster = _client(arguments)
    try:
        result = run(client, os.path.abspath(arguments.model), jobs, arguments.out, options,
                     chunk=arguments.chunk, force=arguments.force,
                     log=lambda line: print(line, file=sys.stderr))
    finally:
        client.close()
        if cluster is not None:
            cluster.close()
    if result.interrupted:
        return 130
    return 0 if result.ok else 1


if __name__ == "__main__":
    sys.exit(main())
