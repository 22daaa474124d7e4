"""Volume: properties, copies, files, bytes, voxels and dense arrays."""
import os

import numpy as np
import pytest

import zelmar
from zelmar import tools


def test_properties_of_a_sphere(sphere):
    assert sphere.grid_type == "float"
    assert sphere.grid_class == "level set"
    assert sphere.voxel_size == pytest.approx((0.1, 0.1, 0.1))
    assert sphere.active_voxel_count > 1000
    assert sphere.background == pytest.approx(0.3)
    assert sphere.memory_bytes > 0
    lo, hi = sphere.value_range()
    assert -0.3 - 1e-6 <= lo < -0.25 and 0.25 < hi <= 0.3 + 1e-6
    # The box lies around the sphere at z = 0.5 in the outside frame.
    box = sphere.world_bbox
    assert box[0] == pytest.approx([-1.35, -1.35, -0.85], abs=0.11)
    assert box[1] == pytest.approx([1.35, 1.35, 1.85], abs=0.11)
    assert sphere.index_bbox.shape == (2, 3)
    t = sphere.transform
    assert t.shape == (4, 4) and t[0, 0] == pytest.approx(0.1) and t[3, 3] == 1.0


def test_setters_and_copies(sphere):
    c = sphere.copy()
    c.name = "shell"
    c.grid_class = "fog volume"
    t = c.transform
    t[3, :3] = [1.0, 2.0, 3.0]
    c.transform = t
    assert (c.name, c.grid_class) == ("shell", "fog volume")
    assert c.transform[3, :3] == pytest.approx([1, 2, 3])
    # The original is unchanged.
    assert sphere.grid_class == "level set" and sphere.name != "shell"
    assert sphere.transform[3, :3] == pytest.approx([0, 0, 0])
    with pytest.raises(ValueError, match="grid class"):
        c.grid_class = "cloud"
    with pytest.raises(ValueError, match="4x4"):
        c.transform = np.eye(3)
    with pytest.raises(ValueError, match="singular"):
        c.transform = np.diag([0.0, 1.0, 1.0, 1.0])
    c.release()
    for use in (lambda: c.grid_type, lambda: c.copy(), lambda: c.sample(np.zeros((1, 3)))):
        with pytest.raises(ValueError, match="released"):
            use()


def test_files_round_trip_and_failures_leave_files_alone(sphere, tmp_path):
    path = str(tmp_path / "s.vdb")
    sphere.name = "ball"
    sphere.save(path, metadata={"author": "test", "n": 3})
    back = zelmar.Volume.load(path)
    assert back.name == "ball" and back.active_voxel_count == sphere.active_voxel_count
    assert back.transform == pytest.approx(sphere.transform)
    assert zelmar.grid_names(path) == ["ball"]
    assert zelmar.Volume.load(path, grid="ball").active_voxel_count == sphere.active_voxel_count
    assert zelmar.Volume.load(path, grid=0).name == "ball"
    with pytest.raises(ValueError, match="no grid 'x'"):
        zelmar.Volume.load(path, grid="x")
    with pytest.raises(ValueError, match="out of range"):
        zelmar.Volume.load(path, grid=4)
    with pytest.raises(FileNotFoundError):
        zelmar.Volume.load(str(tmp_path / "missing.vdb"))
    (tmp_path / "junk.vdb").write_bytes(b"\x00" * 64)
    with pytest.raises((OSError, ValueError)):
        zelmar.Volume.load(str(tmp_path / "junk.vdb"))
    os.remove(tmp_path / "junk.vdb")
    before = open(path, "rb").read()
    with pytest.raises(ValueError, match="is a folder"):
        sphere.save(str(tmp_path))
    with pytest.raises(ValueError, match="does not exist"):
        sphere.save(str(tmp_path / "nofolder" / "x.vdb"))
    with pytest.raises(TypeError):
        sphere.save(path, metadata={"bad": object()})
    assert open(path, "rb").read() == before
    assert sorted(os.listdir(tmp_path)) == ["s.vdb"]

    two = str(tmp_path / "two.vdb")
    fog = tools.sdf_to_fog(sphere)
    fog.name = "density"
    zelmar.save_volumes(two, [sphere, fog])
    assert [v.name for v in zelmar.load_volumes(two)] == ["ball", "density"]


def test_bytes_round_trip(sphere):
    data = sphere.to_bytes()
    assert isinstance(data, bytes) and len(data) > 100
    back = zelmar.Volume.from_bytes(data)
    coords, values = sphere.active_voxels()
    assert np.array_equal(back.get_values(coords), values)
    with pytest.raises((ValueError, OSError)):
        zelmar.Volume.from_bytes(b"not a vdb stream")


def test_to_bytes_reads_the_same_in_pyopenvdb(sphere, tmp_path):
    vdb = pytest.importorskip("pyopenvdb")
    # pyopenvdb reads files only; the stream of to_bytes is one it reads.
    path = tmp_path / "s.vdb"
    sphere.name = "s"
    path.write_bytes(sphere.to_bytes())
    grid = vdb.read(str(path), "s")
    coords, values = sphere.active_voxels()
    acc = grid.getConstAccessor()
    for (i, j, k), v in zip(coords[::97], values[::97]):
        assert acc.getValue((int(i), int(j), int(k))) == pytest.approx(float(v))
    assert grid.activeVoxelCount() == sphere.active_voxel_count
    assert grid.transform.indexToWorld((0, 0, 5)) == pytest.approx((0.0, 0.0, 0.5))


def test_active_voxels_and_batched_access(sphere):
    coords, values = sphere.active_voxels()
    assert coords.shape == (sphere.active_voxel_count, 3) and coords.dtype == np.int32
    assert values.shape == (sphere.active_voxel_count,) and values.dtype == np.float32
    assert np.array_equal(sphere.get_values(coords), values)
    assert sphere.get_active(coords).all()
    assert not sphere.get_active(np.array([[1000, 0, 0]])).any()

    # World positions on the voxel centres give the voxel values.
    world = coords.astype(np.float64) * 0.1
    assert np.allclose(sphere.sample(world, "nearest"), values)
    far = np.array([[1e30, 0.0, 0.0], [0.0, -1e300, 0.0]])
    for sampler in ("nearest", "linear"):
        assert np.allclose(sphere.sample(far, sampler), sphere.background)
    assert np.allclose(sphere.sample(world, "linear"), values, atol=1e-6)
    assert np.allclose(sphere.world_to_index(world), coords)

    w = sphere.copy()
    w.set_values(np.array([[0, 0, 15], [0, 0, 16]]), np.array([7.0, 8.0]))
    assert list(w.get_values(np.array([[0, 0, 15], [0, 0, 16]]))) == [7.0, 8.0]
    assert sphere.get_values(np.array([[0, 0, 15]]))[0] != 7.0
    w.set_active(np.array([[0, 0, 15]]), np.array([False]))
    assert not w.get_active(np.array([[0, 0, 15]]))[0]


def test_batched_access_refuses_bad_arrays(sphere):
    cases = [
        (np.zeros((4, 2)), ValueError, r"shape \(N, 3\)"),
        (np.zeros((4, 3), dtype=np.int64), TypeError, "floats"),
        (np.zeros((3, 6))[:, ::2], ValueError, "C-contiguous"),
        (np.array([[0.0, np.nan, 0.0]]), ValueError, "not finite"),
        ([[0.0, 0.0, 0.0]], TypeError, "numpy array"),
    ]
    for arr, exc, text in cases:
        with pytest.raises(exc, match=text):
            sphere.sample(arr)
    with pytest.raises(ValueError, match="sampler"):
        sphere.sample(np.zeros((1, 3)), "cubic")
    with pytest.raises(TypeError, match="integers"):
        sphere.get_values(np.zeros((1, 3)))
    w = sphere.copy()
    before = w.get_values(np.array([[0, 0, 15]]))
    with pytest.raises(ValueError, match="shape"):
        w.set_values(np.array([[0, 0, 15]]), np.array([1.0, 2.0]))
    with pytest.raises(ValueError, match="not finite"):
        w.set_values(np.array([[0, 0, 15]]), np.array([np.inf]))
    assert np.array_equal(w.get_values(np.array([[0, 0, 15]])), before)


def test_a_million_samples_in_one_call(sphere):
    rng = np.random.default_rng(1)
    pts = rng.uniform(-1.5, 1.5, size=(1_000_000, 3))
    values = sphere.sample(pts)
    assert values.shape == (1_000_000,)
    inside = np.linalg.norm(pts - [0, 0, 0.5], axis=1) < 0.7
    assert (values[inside] < 0).all()


def test_large_batches_give_the_values_of_small_ones(sphere):
    # Large batches are visited in another order than they come; every value
    # must still land in its own row, for positions inside, far outside and
    # on the half-voxel boundaries where nearest rounding decides.
    rng = np.random.default_rng(3)
    pts = rng.uniform(-1.5, 1.5, size=(100_000, 3))
    pts[::97] = rng.uniform(-1e6, 1e6, size=pts[::97].shape)
    pts[1::89] = (np.round(pts[1::89] / 0.1) + 0.5) * 0.1
    pts[2::101] = [1e300, -1e300, 0.0]
    for sampler in ("nearest", "linear", "quadratic"):
        whole = sphere.sample(pts, sampler)
        parts = np.concatenate([sphere.sample(pts[i:i + 10_000], sampler) for i in range(0, len(pts), 10_000)])
        assert np.array_equal(whole, parts), sampler
    vec = tools.gradient(sphere)
    whole = vec.sample(pts, "linear")
    assert whole.shape == (len(pts), 3)
    assert np.array_equal(whole, np.concatenate([vec.sample(pts[i:i + 10_000], "linear")
                                                 for i in range(0, len(pts), 10_000)]))


def test_threads_sample_one_volume_at_once(sphere):
    from concurrent.futures import ThreadPoolExecutor

    pts = np.random.default_rng(5).uniform(-1.5, 1.5, size=(200_000, 3))
    expected = sphere.sample(pts)
    with ThreadPoolExecutor(4) as pool:
        results = list(pool.map(lambda _: sphere.sample(pts), range(8)))
    assert all(np.array_equal(r, expected) for r in results)


def test_dense_round_trip(sphere):
    box = sphere.index_bbox
    dense = sphere.to_dense()
    assert dense.shape == tuple(box[1] - box[0] + 1)
    origin = tuple(box[0] * 0.1)
    back = tools.from_dense(dense, voxel_size=0.1, origin=origin, grid_class="level set",
                            background=sphere.background)
    assert back.grid_class == "level set"
    coords, values = sphere.active_voxels()
    assert np.array_equal(back.get_values(coords - box[0]), values)
    # The same voxels stand at the same world positions.
    assert np.allclose(back.sample(coords * 0.1, "nearest"), values)
    assert zelmar.Volume.from_dense is not None

    part = sphere.to_dense(np.array([[0, 0, 14], [1, 1, 16]]))
    assert part.shape == (2, 2, 3)
    with pytest.raises(ValueError, match="below"):
        sphere.to_dense(np.array([[0, 0, 5], [0, 0, 4]]))
    with pytest.raises(TypeError, match="floats"):
        tools.from_dense(np.zeros((2, 2, 2), dtype=np.int32))
    with pytest.raises(ValueError, match="shape"):
        tools.from_dense(np.zeros((2, 2)))
    with pytest.raises(ValueError, match="not finite"):
        tools.from_dense(np.full((2, 2, 2), np.nan))

    field = np.zeros((3, 3, 3, 3), dtype=np.float32)
    field[1, 1, 1] = [1, 2, 3]
    vec = tools.from_dense(field)
    assert vec.grid_type == "vec3s" and vec.active_voxel_count == 1
    assert np.array_equal(vec.to_dense(), field[1:2, 1:2, 1:2])


def test_long_calls_stop_on_ctrl_c_and_on_a_raising_progress_callback(sphere):
    import signal
    import threading

    pts = np.random.default_rng(3).uniform(-1.5, 1.5, size=(4_000_000, 3))

    def stop(fraction):
        raise ValueError(f"stopped at {fraction}")

    seen = []
    sphere.sample(pts[:200_000], progress=seen.append)
    assert seen and seen[-1] == 1.0
    assert all(0.0 <= f <= 1.0 for f in seen) and seen == sorted(seen)

    # The callback is asked as soon as the work runs; its error ends the call.
    with pytest.raises(ValueError, match="stopped at"):
        sphere.sample(pts, progress=stop)

    timer = threading.Timer(0.05, signal.raise_signal, (signal.SIGINT,))
    timer.start()
    with pytest.raises(KeyboardInterrupt):
        for _ in range(200):
            sphere.sample(pts)
    timer.join()
    # Nothing is left half done: the volume answers as before.
    assert sphere.sample(np.array([[0.0, 0.0, 0.5]]))[0] < 0


def test_walks_over_active_inactive_and_all_values(sphere):
    fog = tools.sdf_to_fog(sphere)
    coords, values, depths = fog.values("active")
    assert coords.shape == (len(values), 3) and depths.dtype == np.int8
    # Tiles come once each; spread out they cover exactly the active voxels.
    span = np.array([4096, 128, 8, 1])[depths]
    assert int((span.astype(np.int64) ** 3).sum()) == fog.active_voxel_count
    voxels, _ = fog.active_voxels()
    assert len(voxels) == fog.active_voxel_count
    c_in, v_in, d_in = sphere.values("inactive")
    c_all, v_all, d_all = sphere.values("all")
    assert len(c_all) == len(c_in) + sphere.active_voxel_count
    assert not sphere.get_active(c_in[d_in == 3]).any()
    with pytest.raises(ValueError, match="which must be"):
        sphere.values("on")
