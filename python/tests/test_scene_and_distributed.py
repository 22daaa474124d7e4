"""Scenes from Python, and frames exported on a Dask cluster."""
import json
import os
import signal
import time

import numpy as np
import pytest

import zelmar
from zelmar import tools

from conftest import signed_volume

EXAMPLES = os.path.join(os.path.dirname(__file__), "..", "..", "examples", "scenes")


def test_document_objects_parameters_and_evaluation(tmp_path):
    doc = zelmar.Document.load(os.path.join(EXAMPLES, "cube-and-sphere.json"))
    assert [o.path for o in doc.objects()] == ["shapes", "shapes/box", "shapes/ball", "floor"]
    ball = doc.find("shapes/ball")
    assert "PRIM_SPHERE_RAD" in ball.parameters
    assert ball.get("PRIM_SPHERE_RAD") == pytest.approx(80.0)
    ball.set("PRIM_SPHERE_RAD", 40.0)
    assert ball.get("PRIM_SPHERE_RAD") == pytest.approx(40.0)
    with pytest.raises(TypeError, match="PRIM_SPHERE_RAD"):
        ball.set("PRIM_SPHERE_RAD", "big")
    with pytest.raises(KeyError, match="NO_SUCH"):
        ball.get("NO_SUCH")
    with pytest.raises(KeyError):
        doc.find("shapes/nothing")
    assert ball.volume is None

    shown = doc.evaluate(0)
    points, polygons = shown["meshes"]["shapes/ball"]
    # In the outside frame the ball sits at x = 150 with radius 40.
    r = np.linalg.norm(points - [150, 0, 0], axis=1)
    assert r.max() == pytest.approx(40.0, rel=0.02)
    assert polygons.shape[1] in (3, 4)
    # Mirrored out of the scene, the box still winds outward by the right-hand rule.
    box_points, box_polygons = shown["meshes"]["shapes/box"]
    assert signed_volume(box_points, box_polygons) == pytest.approx(200 * 100 * 100)

    saved = str(tmp_path / "s.zscene")
    doc.save(saved)
    again = zelmar.Document.load(saved)
    assert again.find("shapes/ball").get("PRIM_SPHERE_RAD") == pytest.approx(40.0)
    with pytest.raises((OSError, ValueError)):
        zelmar.Document.load(str(tmp_path / "missing.zscene"))


def test_threads_evaluate_scenes_at_once():
    from concurrent.futures import ThreadPoolExecutor

    path = os.path.join(EXAMPLES, "cube-and-sphere.json")
    docs = [zelmar.Document.load(path) for _ in range(2)]

    def work(i):
        doc = docs[i % 2]
        shown = doc.evaluate(i % 3)
        return doc.find("shapes/ball").get("PRIM_SPHERE_RAD"), len(shown["meshes"]["shapes/ball"][0])

    with ThreadPoolExecutor(4) as pool:
        results = list(pool.map(work, range(12)))
    assert len(set(results)) == 1


def make_sequence_scene(folder, frames=4):
    """Spheres growing frame by frame as .vdb files, played by a Volume Sequence."""
    for f in range(frames):
        tools.sphere(0.5 + 0.1 * f, voxel_size=0.1).save(str(folder / f"ball.{f:04d}.vdb"))
    scene = {
        "format": "zelmar-scene", "version": 1, "document": {"fps": 25},
        "objects": [{"type": 1039866, "name": "seq",
                     "parameters": {"SEQUENCE_FILE": str(folder / "ball.0000.vdb"),
                                    "SEQUENCE_FIRST": 0, "SEQUENCE_LAST": frames - 1}}],
    }
    path = folder / "seq.json"
    path.write_text(json.dumps(scene))
    return str(path)


def test_export_frames_on_a_local_cluster_equals_a_serial_export(tmp_path):
    pytest.importorskip("distributed")
    from zelmar import distributed as zd

    scene = make_sequence_scene(tmp_path)
    os.makedirs(tmp_path / "serial")
    serial = zd.export_frames_serial(scene, range(4), output=str(tmp_path / "serial" / "out.vdb"))
    assert serial.ok, serial.failed
    os.makedirs(tmp_path / "dask")
    report = zd.export_frames(scene, range(4), output=str(tmp_path / "dask" / "out.vdb"), n_workers=2)
    assert report.ok, report.failed
    assert sorted(report.written) == [0, 1, 2, 3]
    for f in range(4):
        a = zelmar.Volume.load(serial.written[f])
        b = zelmar.Volume.load(report.written[f])
        assert a.active_voxel_count == b.active_voxel_count
        coords, values = a.active_voxels()
        assert np.array_equal(b.get_values(coords), values)
    # zvol's own serial export writes the same grids.
    zvol = os.path.join(os.path.dirname(zelmar.__file__), "..", "..", "bin", "zvol")
    if os.path.exists(zvol):
        import subprocess
        os.makedirs(tmp_path / "zvol")
        subprocess.run([zvol, "-q", "scene", "eval", scene, "--frames", "0:3", "-o", str(tmp_path / "zvol" / "out.vdb")],
                       check=True)
        for f in range(4):
            a = zelmar.Volume.load(str(tmp_path / "zvol" / f"out.{f:04d}.vdb"))
            b = zelmar.Volume.load(report.written[f])
            coords, values = a.active_voxels()
            assert np.array_equal(b.get_values(coords), values)
            assert np.allclose(a.transform, b.transform)
    # The frames differ: the sequence played by frame.
    counts = [zelmar.Volume.load(report.written[f]).active_voxel_count for f in range(4)]
    assert counts == sorted(counts) and counts[0] < counts[-1]
    assert sorted(os.listdir(tmp_path / "dask")) == [f"out.{f:04d}.vdb" for f in range(4)]

    with pytest.raises(ValueError, match="repeat"):
        zd.export_frames(scene, [1, 1])
    with pytest.raises(FileNotFoundError):
        zd.export_frames(str(tmp_path / "none.json"), [0])


def _slow_export(scene, frame, output):
    # Frames take long enough that a worker dies in the middle of the run.
    import time as _t
    from zelmar import distributed as _zd
    _t.sleep(0.5)
    return _zd.export_frame(scene, frame, output)


def test_a_worker_killed_mid_way_loses_no_frame(tmp_path):
    distributed = pytest.importorskip("distributed")
    from zelmar import distributed as zd

    # The workers cannot import this test file; its functions travel by value.
    import sys
    import cloudpickle
    cloudpickle.register_pickle_by_value(sys.modules[__name__])
    scene = make_sequence_scene(tmp_path, frames=4)
    out = str(tmp_path / "out.vdb")
    import threading
    with distributed.LocalCluster(n_workers=2, threads_per_worker=1, processes=True,
                                  dashboard_address=None) as cluster, distributed.Client(cluster) as client:
        result = {}
        run = threading.Thread(target=lambda: result.update(report=zd.export_frames(
            scene, range(4), client=client, output=out, task=_slow_export)))
        run.start()
        # Kill one worker while the frames run; the nanny starts a new one and
        # the scheduler runs the lost tasks again.
        time.sleep(0.3)
        pids = client.run(os.getpid)
        victim = sorted(pids.values())[0]
        assert run.is_alive(), "the export ended before a worker could be killed"
        os.kill(victim, signal.SIGKILL)
        run.join()
        assert victim not in client.run(os.getpid).values()
    report = result["report"]
    assert report.ok, report.failed
    paths = list(report.written.values())
    assert sorted(os.path.basename(p) for p in paths) == [f"out.{f:04d}.vdb" for f in range(4)]
    for p in paths:
        assert zelmar.Volume.load(p).active_voxel_count > 0


def test_failed_frames_are_reported_and_written_ones_stay(tmp_path):
    pytest.importorskip("distributed")
    from zelmar import distributed as zd

    scene = make_sequence_scene(tmp_path, frames=2)
    # Frame 1's file disappears: that frame fails, frame 0 is written.
    os.remove(tmp_path / "ball.0001.vdb")
    report = zd.export_frames(scene, [0, 1], output=str(tmp_path / "out.vdb"), retries=1, n_workers=1)
    assert sorted(report.written) == [0] and sorted(report.failed) == [1]
    assert os.path.exists(report.written[0])
    assert not os.path.exists(zd.frame_path(str(tmp_path / "out.vdb"), 1))


def test_field_lists_cross_from_scenes_into_the_records():
    from zelmar.volume import _zelmar_volume as zv

    doc = zelmar.Document.load(os.path.join(EXAMPLES, "spline-and-fields.json"))
    falloff = doc.find("falloff")
    fields = falloff.get("FIELDOBJECT_FIELDS")
    assert isinstance(fields, zelmar.FieldList) and fields.layer_count == 2
    data = zelmar.FieldSampleData()
    zv.FieldSampleData_SetFieldList(data, fields)
    zv.FieldSampleData_SetFieldOwner(data, falloff)
    zv.FieldSampleData_SetDoc(data, doc)
    assert zv.FieldSampleData_GetFieldList(data).layer_count == 2
    assert zv.FieldSampleData_GetFieldOwner(data) is falloff
    # A list set back into the scene replaces the one there.
    falloff.set("FIELDOBJECT_FIELDS", zelmar.FieldList())
    assert falloff.get("FIELDOBJECT_FIELDS").layer_count == 0
    with pytest.raises(TypeError, match="FIELDOBJECT_FIELDS"):
        falloff.set("FIELDOBJECT_FIELDS", zelmar.Spline())
