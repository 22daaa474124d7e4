"""Field lists built in Python or taken from scenes, sampled into volumes and masks."""
import json
import os
import subprocess

import numpy as np
import pytest

import zelmar
from zelmar import tools

ZVOL = os.path.join(os.path.dirname(zelmar.__file__), "..", "..", "bin", "zvol")

# A box under a sphere, top layer first as a scene lists them.
LAYERS = [
    {"type": "box", "size": [0.6, 0.5, 0.4], "falloff": 0.2, "blend": "max", "matrix": {"off": [0.0, 0.0, -0.3]}},
    {"type": "spherical", "radius": 1.0, "inner": 0.4, "strength": 0.8, "matrix": {"off": [0.3, -0.2, 0.5]}},
]


def scene_with_a_linked_field(tmp_path):
    scene = {
        "format": "zelmar-scene",
        "version": 1,
        "objects": [
            {"type": "Onull", "name": "anchor", "position": [1, 2, 3]},
            {"type": "Ofield", "name": "falloff", "parameters": {"FIELDOBJECT_FIELDS": [
                {"type": "spherical", "radius": 1.0, "inner": 0.5, "link": "anchor"}]}},
        ],
    }
    path = tmp_path / "fields.json"
    path.write_text(json.dumps(scene))
    return zelmar.Document.load(str(path))


def test_field_lists_from_their_readable_form():
    fields = zelmar.FieldList(LAYERS)
    assert len(fields) == 2
    out = fields.to_json()
    assert [l["type"] for l in out] == ["box", "spherical"]
    assert out[0]["blend"] == "max" and out[1]["strength"] == pytest.approx(0.8)
    assert out[1]["matrix"]["off"] == pytest.approx([0.3, -0.2, 0.5])
    # The readable form goes round, as a list or as its JSON text.
    assert zelmar.FieldList(out) == fields
    assert zelmar.FieldList(json.dumps(LAYERS)) == fields
    assert zelmar.FieldList(LAYERS[:1]) != fields


def test_bad_layers_are_refused_with_where_and_why():
    with pytest.raises(ValueError, match=r"layers\[0\].type: 'cone' is not a field layer"):
        zelmar.FieldList([{"type": "cone"}])
    with pytest.raises(ValueError, match=r"layers\[0\].*radius"):
        zelmar.FieldList([{"type": "spherical", "radius": "big"}])
    with pytest.raises(ValueError, match=r"layers\[1\].colour: unknown key"):
        zelmar.FieldList([{"type": "noise"}, {"type": "box", "colour": 1}])
    with pytest.raises(ValueError, match="not valid JSON"):
        zelmar.FieldList("[{")
    with pytest.raises(ValueError, match="not expressible as JSON"):
        zelmar.FieldList([{"type": "spherical", "radius": float("nan")}])
    with pytest.raises(ValueError, match="links by object path need the document"):
        zelmar.FieldList([{"type": "spherical", "link": "anchor"}])
    with pytest.raises(TypeError, match="list of layer dicts"):
        zelmar.FieldList(42)


def test_lists_from_a_scene_stand_where_their_linked_objects_stand(tmp_path):
    doc = scene_with_a_linked_field(tmp_path)
    anchor = doc.find("anchor")
    centre = anchor.global_matrix[3, :3]
    assert centre == pytest.approx([1, 2, 3])
    taken = doc.find("falloff").get("FIELDOBJECT_FIELDS")
    built = zelmar.FieldList([{"type": "spherical", "radius": 1.0, "inner": 0.5, "link": "anchor"}], document=doc)
    assert taken == built
    assert taken.to_json(document=doc)[0]["link"] == "anchor"
    with pytest.raises(ValueError, match="no object of the document"):
        zelmar.FieldList([{"type": "spherical", "link": "nowhere"}], document=doc)

    for fields in (taken, built):
        vol = tools.fields_to_volume(fields, [centre - 1.2, centre + 1.2], voxel_size=0.1)
        probes = np.array([centre, centre + [0, 0, 0.9], centre - [0, 0, 0.9], centre + [0.7, 0, 0]])
        assert vol.sample(probes, "nearest") == pytest.approx([1.0, 0.2, 0.2, 0.6], abs=1e-5)
    # The readable form of the scene's layers without a document names the node by id.
    assert zelmar.FieldList(taken.to_json()) == taken


def test_fields_to_volume_matches_zvol_fields2vol(tmp_path):
    if not os.path.exists(ZVOL):
        pytest.skip("zvol is not built")
    description = {
        "voxel_size": 0.1,
        "box": {"min": [-1.2, -1.0, -1.1], "max": [1.0, 1.3, 1.4]},
        "layers": [  # bottom first
            {"type": "spherical", "center": [0.3, -0.2, 0.5], "radius": 1.0, "inner": 0.4, "strength": 0.8},
            {"type": "box", "center": [0.0, 0.0, -0.3], "half_size": [0.6, 0.5, 0.4], "falloff": 0.2, "blend": "max"},
        ],
    }
    (tmp_path / "d.json").write_text(json.dumps(description))
    for vector in (False, True):
        out = tmp_path / f"z{int(vector)}.vdb"
        subprocess.run([ZVOL, "-q", "fields2vol", str(tmp_path / "d.json"), "-o", str(out)] + (["--vector"] if vector else []),
                       check=True)
        theirs = zelmar.Volume.load(str(out))
        ours = tools.fields_to_volume(LAYERS, [[-1.2, -1.0, -1.1], [1.0, 1.3, 1.4]], voxel_size=0.1, vector=vector)
        assert ours.grid_type == theirs.grid_type
        coords, values = ours.active_voxels()
        world = coords * 0.1
        both = theirs.get_active(np.rint(theirs.world_to_index(world)).astype(np.int64))
        # The two fill the same box up to a voxel at its edges.
        assert both.mean() > 0.9
        assert np.allclose(theirs.sample(world[both], "nearest"), values[both], atol=1e-5)
        assert np.ptp(values) > 0.5


def test_fields_to_volume_on_a_reference_or_a_transform():
    ref = tools.sphere(1.0, center=(0.05, 0, 0), voxel_size=0.1)
    fields = zelmar.FieldList(LAYERS)
    on_ref = tools.fields_to_volume(fields, reference=ref)
    # Without a box the reference's active region is covered, on its voxels.
    assert np.array_equal(on_ref.transform, ref.transform)
    lo, hi = ref.index_bbox
    olo, ohi = on_ref.index_bbox
    assert (olo <= lo).all() and (ohi >= hi).all()
    m = np.diag([0.2, 0.2, 0.2, 1.0])
    m[3, :3] = [0.1, 0.0, 0.0]
    on_m = tools.fields_to_volume(fields, [[-1, -1, -1], [1, 1, 1]], transform=m)
    assert np.allclose(on_m.transform, m)
    pts = np.random.default_rng(2).uniform(-0.8, 0.8, (200, 3))
    centres = on_m.get_values(np.rint(on_m.world_to_index(pts)).astype(np.int64))
    direct = tools.fields_to_volume(fields, [[-1, -1, -1], [1, 1, 1]], voxel_size=0.1).sample(
        np.rint(on_m.world_to_index(pts)) * 0.2 + [0.1, 0, 0], "nearest")
    assert np.allclose(centres, direct, atol=1e-5)


def test_masks_from_fields_follow_the_reference():
    ref = tools.sphere(1.0, center=(0.0, 0.0, 0.2), voxel_size=0.1)
    before = ref.active_voxels()
    mask = tools.mask_from_field(LAYERS, ref, background=0.25)
    after = ref.active_voxels()
    assert np.array_equal(before[0], after[0]) and np.array_equal(before[1], after[1])
    assert mask.grid_type == "float" and mask.grid_class == "unknown"
    coords, values = mask.active_voxels()
    ref_coords, _ = ref.active_voxels()
    assert np.array_equal(np.unique(coords, axis=0), np.unique(ref_coords, axis=0))
    # The values are the fields' at those voxels, and the background elsewhere.
    full = tools.fields_to_volume(LAYERS, [[-1.5, -1.5, -1.5], [1.5, 1.5, 1.7]], voxel_size=0.1)
    assert np.allclose(values, full.get_values(coords), atol=1e-6)
    assert mask.background == pytest.approx(0.25)
    assert mask.get_values(np.array([[0, 0, 2]]))[0] == pytest.approx(0.25)

    # Tiles of the reference become voxels; an empty reference gives an empty mask.
    fog = tools.sdf_to_fog(tools.sphere(3.0, voxel_size=0.1))
    assert (fog.values("active")[2] < 3).any()
    tiled = tools.mask_from_field(LAYERS, fog)
    assert (tiled.values("active")[2] == 3).all()
    assert tiled.active_voxel_count == fog.active_voxel_count
    assert tools.mask_from_field(LAYERS, tools.empty("float")).active_voxel_count == 0


def test_field_tools_refuse_bad_arguments():
    box = [[-1, -1, -1], [1, 1, 1]]
    ref = tools.sphere(1.0, voxel_size=0.1)
    with pytest.raises(ValueError, match="exactly one of voxel_size, transform and reference"):
        tools.fields_to_volume(LAYERS, box)
    with pytest.raises(ValueError, match="exactly one"):
        tools.fields_to_volume(LAYERS, box, voxel_size=0.1, reference=ref)
    with pytest.raises(ValueError, match="voxel_size must be a positive number"):
        tools.fields_to_volume(LAYERS, box, voxel_size=-0.1)
    with pytest.raises(ValueError, match="maximum must not be below"):
        tools.fields_to_volume(LAYERS, [[1, 1, 1], [-1, -1, -1]], voxel_size=0.1)
    with pytest.raises(ValueError, match="not finite"):
        tools.fields_to_volume(LAYERS, [[np.nan, 0, 0], [1, 1, 1]], voxel_size=0.1)
    with pytest.raises(ValueError, match="box must be"):
        tools.fields_to_volume(LAYERS, [[0, 0, 0]], voxel_size=0.1)
    with pytest.raises(ValueError, match="voxels; give a larger voxel size"):
        tools.fields_to_volume(LAYERS, [[-1e3, -1e3, -1e3], [1e3, 1e3, 1e3]], voxel_size=0.01)
    with pytest.raises(ValueError, match="singular"):
        tools.fields_to_volume(LAYERS, box, transform=np.diag([1.0, 0.0, 1.0, 1.0]))
    with pytest.raises(ValueError, match="give a box"):
        tools.fields_to_volume(LAYERS, voxel_size=0.1)
    with pytest.raises(TypeError, match="FieldList or a list of layer dicts"):
        tools.fields_to_volume(3, box, voxel_size=0.1)
    with pytest.raises(TypeError, match="reference must be a Volume"):
        tools.mask_from_field(LAYERS, None)
    gone = ref.copy()
    gone.release()
    with pytest.raises(ValueError, match="released"):
        tools.mask_from_field(LAYERS, gone)
    with pytest.raises(ValueError, match="background must be finite"):
        tools.mask_from_field(LAYERS, ref, background=np.inf)
