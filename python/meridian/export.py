"""Head assets (.glb) through the modern interface's asset builder: an
Exporter keeps its engines loaded across heads; export_glb is a one-off."""
import ctypes
import os
import weakref

import numpy as np

from . import _library, _modern
from ._engine import MeridianError, float_pointer, head_planar
from .blendshapes import heads_planar

SKIPPABLE = ("eyes", "blendshapes")


def _skipped(skip):
    skip = (skip,) if isinstance(skip, str) else tuple(skip)
    for part in skip:
        if part not in SKIPPABLE:
            raise ValueError(f"skip names {' or '.join(SKIPPABLE)}, got {part!r}")
    return skip


class Exporter:
    """The engines a head asset needs, loaded once from `model_dir`, leaving
    out what `skip` names ("eyes", "blendshapes").

    >>> with Exporter("demo-model") as exporter:
    ...     for name, head in heads:
    ...         report = exporter.export(head, f"{name}.glb")

    threads: how many threads the blendshape engine spreads one head over;
    1 in a batch worker (one process per core), None for the processor
    count (at most 5). The assets are the same bytes for any number.
    """

    def __init__(self, model_dir, skip=(), metres_per_unit=0.0, threads=None):
        skip = _skipped(skip)
        if threads is not None and (not isinstance(threads, int) or threads < 1):
            raise ValueError(f"threads is a whole number of at least 1, got {threads!r}")
        api = _modern.load()
        with _library.lock:
            self._handle = _modern.open_handle(
                "meridian_asset_builder_open", os.fsencode(os.fspath(model_dir)),
                "blendshapes" not in skip, "eyes" not in skip, float(metres_per_unit))
        self._finalizer = weakref.finalize(self, api.meridian_asset_builder_close, self._handle)
        if threads is not None:
            with _library.lock:
                self._check(api.meridian_asset_builder_set_thread_count(self._handle, threads),
                            "threads")

    def build_batch(self, heads):
        """Builds the assets of K heads, (K, 20481, 3), in one call whose
        blendshapes read the model once for all of them: a list of K (glb
        bytes, report dict), each the bytes build() gives for its head."""
        planar = heads_planar(heads)
        count = planar.shape[0]
        api = _modern.load()
        reports = (_modern.AssetReport * count)()
        results = []
        with _library.lock:
            self._require_open()
            self._check(api.meridian_asset_builder_build_batch(
                self._handle, float_pointer(planar), planar.size, count, reports, count),
                "build_batch")
            for k in range(count):
                glb = ctypes.create_string_buffer(
                    api.meridian_asset_builder_glb_size_at(self._handle, k))
                self._check(api.meridian_asset_builder_copy_glb_at(self._handle, k, glb,
                                                                   len(glb)), "build_batch")
                results.append((glb.raw, _report(reports[k])))
        return results

    def build(self, head):
        """Builds the asset of a (20481, 3) head: (glb bytes, report dict)."""
        api = _modern.load()
        with _library.lock:
            report = self._build_locked(head, "build")
            glb = ctypes.create_string_buffer(api.meridian_asset_builder_glb_size(self._handle))
            self._check(api.meridian_asset_builder_copy_glb(self._handle, glb, len(glb)), "build")
        return glb.raw, report

    def export(self, head, out_path):
        """Builds the asset of a (20481, 3) head and writes it to `out_path`
        atomically. Returns the report dict."""
        api = _modern.load()
        with _library.lock:
            report = self._build_locked(head, "export")
            self._check(api.meridian_asset_builder_write_glb(
                self._handle, os.fsencode(os.fspath(out_path))), "export")
        return report

    def _build_locked(self, head, call):
        """Builds the asset of `head` in the handle (the caller holds the
        library lock); returns the report dict."""
        planar = head_planar(head)
        report = _modern.AssetReport()
        self._require_open()
        self._check(_modern.load().meridian_asset_builder_build(
            self._handle, float_pointer(planar), planar.size, ctypes.byref(report)), call)
        return _report(report)

    def _check(self, status, call):
        _modern.check(status, self._handle, "meridian_asset_builder_last_error", call)

    def close(self):
        self._finalizer()

    @property
    def closed(self):
        return not self._finalizer.alive

    def _require_open(self):
        if self.closed:
            raise MeridianError("Exporter is closed", None)

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()


def _report(report):
    return {
        "eye_scale": report.eye_scale,
        "eye_scale_clamped": bool(report.eye_scale_clamped),
        "region_max_displacement": list(report.region_max_displacement),
        "bounds": (list(report.bounds_min), list(report.bounds_max)),
        "non_finite_positions": report.non_finite_positions,
        "non_finite_normals": report.non_finite_normals,
    }


def export_glb(model_dir, head, out_path, skip=()):
    """Writes a (20481, 3) head with the model's eyes and blendshapes as a
    binary glTF asset at `out_path` (atomically), leaving out what `skip`
    names ("eyes", "blendshapes"). Returns out_path."""
    vertices = np.asarray(head, dtype=np.float32)
    head_planar(vertices)  # the shape check, before anything is loaded
    with Exporter(model_dir, skip) as exporter:
        exporter.export(vertices, out_path)
    return out_path
