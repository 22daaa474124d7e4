"""The tools with numpy: meshes, points, booleans, mixing, filters, conversions, progress."""
import os

import numpy as np
import pytest

import zelmar
from zelmar import tools

from conftest import signed_volume


def test_sphere_mesh_round_trip_within_half_a_voxel(sphere):
    points, polygons = tools.volume_to_mesh(sphere)
    assert points.shape[1] == 3 and polygons.shape[1] in (3, 4)
    r = np.linalg.norm(points - [0, 0, 0.5], axis=1)
    assert np.abs(r - 1.0).max() < 0.05
    # Outward normals by the right-hand rule: the enclosed volume is positive.
    assert signed_volume(points, polygons) == pytest.approx(4 / 3 * np.pi, rel=0.03)

    back = tools.mesh_to_volume(points, polygons, voxel_size=0.1)
    assert back.grid_class == "level set"
    coords, values = sphere.active_voxels()
    near = np.abs(values) < 0.1
    diff = back.get_values(coords[near]) - values[near]
    assert np.abs(diff).max() < 0.05


def test_mesh_to_volume_of_a_cube(cube_mesh):
    points, quads = cube_mesh
    vol = tools.mesh_to_volume(points, quads, voxel_size=0.1, exterior_band=2, interior_band=2)
    inside = vol.sample(np.array([[0.5, 0.5, 0.5 - 0.05], [0.5, 0.5, 0.95]]))
    outside = vol.sample(np.array([[0.5, 0.5, 1.15]]))
    assert (inside < 0).all() and (outside > 0).all()
    # Triangles in a (M, 4) array are marked by -1.
    tris = np.array([[0, 3, 2, -1], [0, 2, 1, -1]] + [list(q) for q in quads[1:]])
    assert tools.mesh_to_volume(points, tris, voxel_size=0.1).active_voxel_count > 0
    filled = tools.mesh_to_volume(points, quads, voxel_size=0.1, fill_interior=True)
    assert filled.active_voxel_count > vol.active_voxel_count
    before = points.copy()
    tools.mesh_to_volume(points, quads, voxel_size=0.1)
    assert np.array_equal(points, before)


def test_mesh_to_volume_refuses_bad_meshes(cube_mesh):
    points, quads = cube_mesh
    cases = [
        (dict(points=points[:, :2]), ValueError, r"shape \(N, 3\)"),
        (dict(points=points.astype(np.int32)), TypeError, "floats"),
        (dict(points=np.asfortranarray(points)), ValueError, "C-contiguous"),
        (dict(polygons=quads + 5), ValueError, "outside the 8 points"),
        (dict(polygons=quads.astype(np.float64)), TypeError, "integers"),
        (dict(polygons=quads[:, :2]), ValueError, "shape"),
        (dict(voxel_size=0.0), ValueError, "positive"),
        (dict(voxel_size=float("nan")), ValueError, "positive"),
        (dict(exterior_band=0), ValueError, "at least 1"),
    ]
    bad_point = points.copy()
    bad_point[3, 1] = np.nan
    cases.append((dict(points=bad_point), ValueError, "not finite"))
    for change, exc, text in cases:
        args = dict(points=points, polygons=quads, voxel_size=0.1)
        args.update(change)
        with pytest.raises(exc, match=text):
            tools.mesh_to_volume(**args)


def test_booleans_and_wrong_classes(sphere):
    other = tools.sphere(1.0, center=(0.0, 0.0, -0.5), voxel_size=0.1)
    probe = np.array([[0.0, 0.0, 1.2], [0.0, 0.0, 0.0], [0.0, 0.0, -1.2]])
    u = tools.boolean(sphere, other, "union").sample(probe)
    i = tools.boolean(sphere, other, "intersection").sample(probe)
    d = tools.boolean(sphere, other, "difference").sample(probe)
    assert (u < 0).all()
    assert i[1] < 0 and i[0] > 0 and i[2] > 0
    assert d[0] < 0 and d[1] > 0 and d[2] > 0
    with pytest.raises(ValueError, match="op must be one of"):
        tools.boolean(sphere, other, "xor")
    fog = tools.sdf_to_fog(sphere)
    assert fog.grid_class == "fog volume"
    with pytest.raises(ValueError, match="needs a level set, got a fog volume"):
        tools.boolean(sphere, fog)
    with pytest.raises(ValueError, match="needs a level set"):
        tools.sdf_to_fog(fog)
    with pytest.raises(TypeError):
        tools.boolean(sphere, "sphere")


def test_fog_mixing_and_conversions(sphere):
    fog = tools.sdf_to_fog(sphere)
    inside = np.array([[0.0, 0.0, 0.5]])
    assert fog.sample(inside)[0] == pytest.approx(1.0)
    doubled = tools.mix(fog, fog, "add")
    assert doubled.sample(inside)[0] == pytest.approx(2.0)
    assert tools.blend(fog, doubled, 0.25).sample(inside)[0] == pytest.approx(1.75)
    back = tools.fog_to_sdf(fog, 0.5)
    assert back.grid_class == "level set" and back.sample(inside)[0] < 0

    grad = tools.gradient(sphere)
    assert grad.grid_type == "vec3s"
    # Outside frame: above the centre along +z the gradient points up.
    g = grad.sample(np.array([[0.0, 0.0, 1.5]]))[0]
    assert g[2] > 0.9 and abs(g[0]) < 0.1
    length = tools.vector_to_fog(grad)
    assert length.sample(np.array([[0.0, 0.0, 1.5]]))[0] == pytest.approx(1.0, abs=0.1)
    assert tools.normalize(grad).grid_type == "vec3s"
    turned = tools.rotate_vectors(grad, (1.0, 0.0, 0.0), np.pi / 2)
    assert abs(turned.sample(np.array([[0.0, 0.0, 1.5]]))[0][2]) < 0.1
    with pytest.raises(ValueError, match="needs a vec3s or vec3d grid"):
        tools.curl(sphere)
    with pytest.raises(ValueError, match="needs a float or double grid"):
        tools.volume_to_mesh(grad)


def test_filters(sphere):
    smooth = tools.sdf_filter(sphere, "gaussian", iterations=2)
    assert smooth.active_voxel_count > 0
    grown = tools.sdf_filter(sphere, "dilate", offset=0.05)
    assert grown.sample(np.array([[0.0, 0.0, 1.55]]))[0] < sphere.sample(np.array([[0.0, 0.0, 1.55]]))[0]
    with pytest.raises(ValueError, match="filter must be one of"):
        tools.sdf_filter(sphere, "blur")

    fog = tools.sdf_to_fog(sphere)
    settings = zelmar.FilterSettings()
    settings.filter_type = 7  # multiply
    settings.strength = 3.0
    tripled = tools.filter(fog, settings)
    assert tripled.sample(np.array([[0.0, 0.0, 0.5]]))[0] == pytest.approx(3.0)
    with pytest.raises(ValueError):
        settings.filter_type = 42


def test_points_to_volume():
    pts = np.array([[0.0, 0.0, 0.0], [2.0, 0.0, 0.0]])
    vol = tools.points_to_volume(pts, np.array([0.5, 0.5]), voxel_size=0.1)
    assert vol.grid_class == "level set"
    assert (vol.sample(pts) < 0).all() and vol.sample(np.array([[1.0, 0.0, 0.0]]))[0] > 0
    assert tools.points_to_volume(pts, 0.5, voxel_size=0.1).active_voxel_count == vol.active_voxel_count
    with pytest.raises(ValueError, match=r"radii must have shape"):
        tools.points_to_volume(pts, np.array([0.5]))
    with pytest.raises(ValueError, match="not negative"):
        tools.points_to_volume(pts, -1.0)
    with pytest.raises(ValueError, match=r"velocities must have shape"):
        tools.points_to_volume(pts, 0.5, velocities=np.zeros((3, 3)))


def test_resample_and_primitives(sphere):
    t = np.diag([0.2, 0.2, 0.2, 1.0])
    coarse = tools.resample(sphere, t)
    assert coarse.voxel_size == pytest.approx((0.2, 0.2, 0.2))
    assert coarse.sample(np.array([[0.0, 0.0, 0.5]]))[0] < 0
    with pytest.raises(ValueError, match="interpolation"):
        tools.resample(sphere, t, "cubic")
    cube = tools.platonic(6, 1.0, voxel_size=0.1)
    assert cube.grid_class == "level set" and cube.sample(np.zeros((1, 3)))[0] < 0
    with pytest.raises(ValueError, match="faces"):
        tools.platonic(5, 1.0)
    with pytest.raises(ValueError, match="center"):
        tools.sphere(1.0, center=(0, 0))


def test_close_holes(cube_mesh):
    points, quads = cube_mesh
    open_box = quads[1:]                      # the bottom face is missing
    closed_points, closed_polys, closed = tools.close_holes(points, open_box)
    assert closed
    assert len(closed_polys) > len(open_box)
    # Closed, the box encloses its unit volume again.
    assert abs(signed_volume(closed_points, closed_polys)) == pytest.approx(1.0, rel=1e-6)
    assert len(open_box) == 5 and points.shape == (8, 3)
    _, _, again = tools.close_holes(points, quads)
    assert not again


def test_no_tool_crashes_on_bad_volumes_or_arrays(sphere):
    released = sphere.copy()
    released.release()
    bad = [None, released, tools.empty(), 3, "x", np.zeros((0, 3)), np.full((2, 3), np.nan)]
    names = [n for n in tools.__all__ if n not in ("empty", "sphere", "platonic")]
    for name in names:
        fn = getattr(tools, name)
        for first in bad:
            for args in [(first,), (first, sphere), (sphere, first)]:
                try:
                    fn(*args)
                except (ValueError, TypeError):
                    pass
    # A None where a volume belongs is a TypeError that says so.
    with pytest.raises(TypeError, match="must be a Volume, got None"):
        tools.boolean(sphere, None)
    with pytest.raises(TypeError, match="must be a Volume, got None"):
        tools.volume_to_mesh(None)


def test_long_calls_report_progress_in_order_and_end_at_one(cube_mesh):
    def watched(call):
        seen = []
        result = call(seen.append)
        assert seen and seen[-1] == 1.0
        assert all(0.0 <= f <= 1.0 for f in seen)
        assert seen == sorted(seen)
        return result, seen

    # Under ThreadSanitizer every voxel the filter's threads share passes
    # through its race bookkeeping (oneTBB's joins are out of its sight): a
    # coarser sphere still takes many rounds there.
    big = tools.sphere(1.0, voxel_size=0.1 if os.environ.get("ZV_SANITIZED") == "thread" else 0.03, half_width=3)
    _, seen = watched(lambda p: tools.sdf_filter(big, "gaussian", iterations=8, progress=p))
    # Eight passes over a quarter of a million voxels take many of the
    # callback's 20 ms rounds: passes in between are heard, not only the ends.
    assert any(0.0 < f < 1.0 for f in seen)
    watched(lambda p: tools.mesh_to_volume(*cube_mesh, voxel_size=0.05, progress=p))
    watched(lambda p: tools.fields_to_volume([{"type": "spherical"}], [[-1, -1, -1], [1, 1, 1]], voxel_size=0.05,
                                             progress=p))
    watched(lambda p: tools.fog_to_sdf(tools.sdf_to_fog(tools.sphere(1.0, voxel_size=0.1)), progress=p))
    doc = zelmar.Document.load(os.path.join(os.path.dirname(__file__), "..", "..", "examples", "scenes", "builders.json"))
    shown, _ = watched(lambda p: doc.evaluate(0, progress=p))
    assert shown["volumes"] or shown["meshes"]

    # A callback that raises stops the work with its own error.
    def refuse(fraction):
        raise RuntimeError("enough")

    with pytest.raises(RuntimeError, match="enough"):
        tools.sdf_filter(big, "gaussian", iterations=8, progress=refuse)
