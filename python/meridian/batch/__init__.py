"""Many heads at once: `meridian.batch` exports heads as .glb assets on a
Dask cluster (a local one by default), loading the model once per worker
process, and keeps a manifest of what it did (see __main__ for the
command)."""
from .inputs import InputError, Job, plan_jobs
from .runner import BatchResult, run
from .worker import ExportOptions

__all__ = ["InputError", "Job", "plan_jobs", "BatchResult", "run", "ExportOptions"]
