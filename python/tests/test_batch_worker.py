"""A worker's chunk without a cluster: heads that read well are built in one
batched call; a head that fails to read gets its row without stopping the
others; and when the batched call fails, each head is built alone so only
the head at fault gets an error row."""
import hashlib

import pytest

from meridian import MeridianError
from meridian.batch import worker
from meridian.batch.inputs import Job


class FakeExporter:
    """Builds "glb" bytes from a head's first coordinate; the batched call
    fails when `fail_batch`, a single build when the head is `bad`."""

    def __init__(self, fail_batch=False, bad=None):
        self.fail_batch, self.bad, self.batches = fail_batch, bad, []

    def build(self, head):
        if self.bad is not None and float(head[0, 0]) == self.bad:
            raise MeridianError("cannot build this head", "build")
        return b"glb %r" % float(head[0, 0]), {"eye_scale": 1.0}

    def build_batch(self, heads):
        self.batches.append(len(heads))
        if self.fail_batch:
            raise MeridianError("head 1: cannot build this head", "build_batch")
        return [self.build(head) for head in heads]


@pytest.fixture
def chunk(tmp_path, head):
    jobs = []
    for k in range(3):
        path = tmp_path / f"head{k}.obj"
        variant = head.copy()
        variant[0, 0] = k
        path.write_text("".join(f"v {x:.9g} {y:.9g} {z:.9g}\n" for x, y, z in variant))
        jobs.append(Job(str(path), str(tmp_path / "out" / f"head{k}.glb")))
    short = tmp_path / "short.obj"
    short.write_text("v 0 0 0\n")
    jobs.insert(1, Job(str(short), str(tmp_path / "out" / "short.glb")))
    return jobs


@pytest.mark.parametrize("fake, failed", [
    (FakeExporter(), {"short.obj"}),
    (FakeExporter(fail_batch=True, bad=1.0), {"short.obj", "head1.obj"}),
])
def test_a_chunk_gives_one_row_per_head_in_order(monkeypatch, chunk, fake, failed):
    monkeypatch.setattr(worker, "_exporter", lambda model, options: fake)
    rows = worker.export_chunk("model", worker.ExportOptions(), chunk)
    assert [row["input"] for row in rows] == [job.source for job in chunk]
    assert fake.batches == [3]  # the three heads that read well, in one call
    for job, row in zip(chunk, rows):
        name = job.source.rsplit("/", 1)[-1]
        if name in failed:
            assert row["status"] == "error" and row["error"], row
            assert row["output_size"] is None
            continue
        data = open(job.output, "rb").read()
        assert row["status"] == "ok" and row["qa"] == {"eye_scale": 1.0}
        assert row["output_size"] == len(data)
        assert row["output_sha256"] == hashlib.sha256(data).hexdigest()
        assert set(row["times"]) == {"read", "export", "write", "total"}
