"""Frames of a scene evaluated and written in parallel on a Dask cluster.

Each frame is one task: the worker reads the scene file, evaluates it at the
frame and writes the frame's volumes to its own .vdb file through a temporary
file that is renamed into place, so a file is either whole or absent. A task
that fails is retried; a worker that dies takes no frame with it, as Dask
runs its tasks again elsewhere. Files already written stay.
"""
from __future__ import annotations

import os
from dataclasses import dataclass, field
from typing import Callable, Dict, Iterable, List, Optional

__all__ = ["ExportReport", "export_frames", "export_frame", "frame_path"]


@dataclass
class ExportReport:
    """What an export did: the files written by frame, and the frames that failed with their errors."""

    written: Dict[int, str] = field(default_factory=dict)
    failed: Dict[int, str] = field(default_factory=dict)

    @property
    def ok(self) -> bool:
        return not self.failed


def frame_path(output: str, frame: int) -> str:
    """`output` with the frame number before its extension, as zvol writes sequences: out.0042.vdb."""
    stem, ext = os.path.splitext(output)
    return f"{stem}.{frame:04d}{ext or '.vdb'}"


def export_frame(scene: str, frame: int, output: str) -> str:
    """Evaluates `scene` at `frame` and writes its volumes to frame_path(output, frame). Runs on a worker."""
    from zelmar import Document

    path = frame_path(output, frame)
    Document.load(scene).export_frame(frame, path)
    return path


def _scene_path(scene) -> str:
    from zelmar import Document

    if isinstance(scene, Document):
        if not scene.path or not scene.name:
            raise ValueError("the document has not been saved; workers read scenes from files")
        return os.path.join(scene.path, scene.name)
    if not isinstance(scene, (str, os.PathLike)):
        raise TypeError("scene must be a path or a saved Document")
    path = os.path.abspath(os.fspath(scene))
    if not os.path.isfile(path):
        raise FileNotFoundError(f"File could not be found: {path}")
    return path


def _frames(frames: Iterable[int]) -> List[int]:
    out = []
    for f in frames:
        if isinstance(f, bool) or not isinstance(f, int):
            raise TypeError(f"frames must be integers, got {f!r}")
        out.append(int(f))
    if len(set(out)) != len(out):
        raise ValueError("frames must not repeat: each frame writes one file")
    return out


def export_frames(scene, frames: Iterable[int], client=None, output: Optional[str] = None,
                  retries: int = 2, n_workers: int = 2, task: Callable[[str, int, str], str] = export_frame) -> ExportReport:
    """Evaluates and writes `frames` of `scene` in parallel, one Dask task per frame.

    `scene` is a scene file (.zscene or .json) or a saved Document; `output`
    the .vdb path into which each frame's number goes (default: beside the
    scene, named after it). Without `client`, a LocalCluster of `n_workers`
    single-threaded worker processes runs the export and is closed after it.
    A frame that fails `retries` + 1 times is reported in the result, and the
    frames written stay. `task(scene, frame, output)` is what a worker runs
    for one frame and returns the path written; export_frame by default.
    """
    scene_path = _scene_path(scene)
    frame_list = _frames(frames)
    if retries < 0:
        raise ValueError("retries must not be negative")
    if output is None:
        output = os.path.splitext(scene_path)[0] + ".vdb"
    output = os.path.abspath(os.fspath(output))
    if not os.path.isdir(os.path.dirname(output)):
        raise ValueError(f"the folder of {output} does not exist")

    from distributed import Client, LocalCluster, as_completed

    own = None
    if client is None:
        # One thread per worker: the volume tools spread their own work over
        # the cores, and a process per frame keeps a crash to one frame.
        cluster = LocalCluster(n_workers=n_workers, threads_per_worker=1, processes=True,
                               dashboard_address=None)
        client = Client(cluster)
        own = (client, cluster)
    report = ExportReport()
    try:
        futures = {}
        for f in frame_list:
            fut = client.submit(task, scene_path, f, output, key=f"zelmar-frame-{f}-{os.getpid()}-{id(report)}",
                                retries=retries, pure=False)
            futures[fut] = f
        for fut in as_completed(list(futures)):
            f = futures[fut]
            if fut.status == "finished":
                report.written[f] = fut.result()
            else:
                try:
                    exc = fut.exception()
                    report.failed[f] = f"{type(exc).__name__}: {exc}"
                except Exception as e:  # the future itself was lost
                    report.failed[f] = f"{type(e).__name__}: {e}"
    finally:
        if own:
            own[0].close()
            own[1].close()
    report.written = dict(sorted(report.written.items()))
    report.failed = dict(sorted(report.failed.items()))
    return report


def export_frames_serial(scene, frames: Iterable[int], output: Optional[str] = None) -> ExportReport:
    """The same export in this process, one frame after another."""
    scene_path = _scene_path(scene)
    if output is None:
        output = os.path.splitext(scene_path)[0] + ".vdb"
    report = ExportReport()
    for f in _frames(frames):
        try:
            report.written[f] = export_frame(scene_path, f, output)
        except Exception as e:
            report.failed[f] = f"{type(e).__name__}: {e}"
    return report
