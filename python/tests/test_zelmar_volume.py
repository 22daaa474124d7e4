"""The native module zelmar.volume._zelmar_volume: names, checks and texts."""
import numpy as np
import pytest

import zelmar
from zelmar import tools
from zelmar.volume import _zelmar_volume as zv

NAMES = [
    "VolumeToolsInterface_CheckPolyIndexValidityAndReturn",
    "FilterSettings_SetSplineData", "FilterSettings_GetSplineData",
    "FieldSampleData_SetFieldList", "FieldSampleData_GetFieldList",
    "FieldSampleData_SetFieldOwner", "FieldSampleData_GetFieldOwner",
    "FieldSampleData_SetDoc", "FieldSampleData_GetDoc",
    "GridAccessorInterface_Create", "GridAccessorInterface_Free", "GridAccessorInterface_Init",
    "GridAccessorInterface_InitWithWriteAccess", "GridAccessorInterface_SetSampler",
    "GridAccessorInterface_GetCoords", "GridAccessorInterface_SetActiveState",
    "GridAccessorInterface_SetValueOnly", "GridAccessorInterface_SetValue",
    "GridAccessorInterface_GetActiveState", "GridAccessorInterface_GetValueIntVector32",
    "GridAccessorInterface_GetValueVector",
]
TRI = 0xFFFFFFFF


def test_module_has_exactly_the_21_functions():
    import importlib
    mod = importlib.import_module("zelmar.volume._zelmar_volume")
    assert mod is zv
    public = sorted(n for n in dir(zv) if not n.startswith("_"))
    assert public == sorted(NAMES)
    assert len(NAMES) == 21


def test_poly_index_check():
    ok = np.array([[0, 1, 2, TRI], [0, 1, 2, 3]], dtype=np.uint32)
    assert zv.VolumeToolsInterface_CheckPolyIndexValidityAndReturn(ok, 4) is ok

    empty = np.zeros((0, 4), dtype=np.uint32)
    assert zv.VolumeToolsInterface_CheckPolyIndexValidityAndReturn(empty, 0) is empty

    with pytest.raises(ValueError, match="^VolumeConversionPolygon is uninitialized$"):
        zv.VolumeToolsInterface_CheckPolyIndexValidityAndReturn(np.full((1, 4), TRI, dtype=np.uint32), 3)
    with pytest.raises(ValueError, match="^Index 3 of polygon 0 is out of bounds$"):
        zv.VolumeToolsInterface_CheckPolyIndexValidityAndReturn(np.array([[0, 1, 3, TRI]], dtype=np.uint32), 3)
    # The first bad polygon is named, by its largest index.
    with pytest.raises(ValueError, match="^Index 9 of polygon 1 is out of bounds$"):
        zv.VolumeToolsInterface_CheckPolyIndexValidityAndReturn(
            np.array([[0, 1, 2, TRI], [9, 1, 4, 2], [7, 7, 7, 7]], dtype=np.uint32), 5)

    for wrong in ([[0, 1, 2, 3]], np.zeros((1, 4), dtype=np.int64), np.zeros((1, 3), dtype=np.uint32)):
        with pytest.raises(TypeError, match="^got array of different type$"):
            zv.VolumeToolsInterface_CheckPolyIndexValidityAndReturn(wrong, 4)


def test_too_few_arguments_name_the_counts():
    with pytest.raises(TypeError, match=r"^expected at least 2 argument\(s\), got 1$"):
        zv.VolumeToolsInterface_CheckPolyIndexValidityAndReturn(np.zeros((0, 4), np.uint32))
    with pytest.raises(TypeError, match=r"^expected at least 3 argument\(s\), got 2$"):
        zv.GridAccessorInterface_SetValue(zv.GridAccessorInterface_Create("float"), (0, 0, 0))
    with pytest.raises(TypeError, match=r"^expected at least 1 argument\(s\), got 0$"):
        zv.GridAccessorInterface_Create()


def test_capsules_are_checked():
    for not_capsule in (None, 3, object(), zelmar.FilterSettings()):
        with pytest.raises(TypeError, match="^expected generic capsule$"):
            zv.GridAccessorInterface_SetSampler(not_capsule, 1)
    # A capsule of another data type is not an accessor either.
    with pytest.raises(TypeError, match="^expected generic capsule$"):
        zv.FilterSettings_GetSplineData(zelmar.FieldSampleData())


def test_accessor_reads_writes_and_frees(sphere):
    acc = zv.GridAccessorInterface_Create("float")
    assert isinstance(acc, zelmar.Capsule)
    assert acc.datatype == "net.zelmar.volume.datatype.gridaccessorbaseref"
    zv.GridAccessorInterface_Init(acc, sphere, 2)
    centre = zv.GridAccessorInterface_GetCoords(acc, (0.0, 0.0, 0.5))
    assert centre == (0, 0, 5)
    assert zv.GridAccessorInterface_GetValueIntVector32(acc, centre) < 0
    assert zv.GridAccessorInterface_GetValueVector(acc, (0.0, 0.0, 1.5)) == pytest.approx(0.0, abs=0.02)
    assert zv.GridAccessorInterface_GetActiveState(acc, (0, 0, 15)) is True
    zv.GridAccessorInterface_SetSampler(acc, 1)
    with pytest.raises(ValueError):
        zv.GridAccessorInterface_SetSampler(acc, 7)

    copy = sphere.copy()
    w = zv.GridAccessorInterface_Create("float")
    zv.GridAccessorInterface_InitWithWriteAccess(w, copy)
    zv.GridAccessorInterface_SetValue(w, (0, 0, 15), 2.5)
    zv.GridAccessorInterface_SetValueOnly(w, (0, 0, 16), 1.5)
    zv.GridAccessorInterface_SetActiveState(w, (0, 0, 15), False)
    assert zv.GridAccessorInterface_GetValueIntVector32(w, (0, 0, 15)) == 2.5
    assert zv.GridAccessorInterface_GetActiveState(w, (0, 0, 15)) is False
    # The write reached the copy alone.
    assert zv.GridAccessorInterface_GetValueIntVector32(acc, (0, 0, 15)) != 2.5
    with pytest.raises(TypeError, match="float"):
        zv.GridAccessorInterface_SetValue(w, (0, 0, 15), "x")

    zv.GridAccessorInterface_Free(w)
    with pytest.raises(ValueError, match="freed"):
        zv.GridAccessorInterface_GetValueIntVector32(w, (0, 0, 0))


def test_accessor_value_types():
    vec = tools.empty("vec3s", (0.0, 0.0, 0.0))
    acc = zv.GridAccessorInterface_Create("vec3s")
    zv.GridAccessorInterface_InitWithWriteAccess(acc, vec)
    zv.GridAccessorInterface_SetValue(acc, (1, 2, 3), (1.0, 2.0, 3.0))
    assert zv.GridAccessorInterface_GetValueIntVector32(acc, (1, 2, 3)) == (1.0, 2.0, 3.0)
    with pytest.raises(TypeError):
        zv.GridAccessorInterface_SetValue(acc, (1, 2, 3), 4.0)

    s = zv.GridAccessorInterface_Create("string")
    with pytest.raises(TypeError, match="^datatype string is not supported$"):
        zv.GridAccessorInterface_GetValueIntVector32(s, (0, 0, 0))
    with pytest.raises(ValueError, match="accessor creation failed"):
        zv.GridAccessorInterface_Create("quaternion")
    # A float accessor on a vector grid gives the accessor's own failure.
    f = zv.GridAccessorInterface_Create("float")
    with pytest.raises(ValueError):
        zv.GridAccessorInterface_Init(f, vec, 1)


def test_accessor_refuses_a_released_volume(sphere):
    acc = zv.GridAccessorInterface_Create("float")
    v = sphere.copy()
    v.release()
    with pytest.raises(ValueError, match="released"):
        zv.GridAccessorInterface_Init(acc, v, 1)
    with pytest.raises(TypeError):
        zv.GridAccessorInterface_Init(acc, "not a volume", 1)


def test_filter_settings_spline_and_field_sample_records():
    settings = zelmar.FilterSettings()
    assert zv.FilterSettings_GetSplineData(settings) is None
    curve = zelmar.Spline()
    curve.insert_knot(0.0, 1.0, "linear")
    curve.insert_knot(1.0, 0.0, "linear")
    zv.FilterSettings_SetSplineData(settings, curve)
    stored = zv.FilterSettings_GetSplineData(settings)
    assert stored == curve and stored(0.25) == pytest.approx(0.75)
    curve.insert_knot(0.5, 0.5)
    assert zv.FilterSettings_GetSplineData(settings).knots == [(0.0, 1.0), (1.0, 0.0)]
    with pytest.raises(TypeError):
        zv.FilterSettings_SetSplineData(settings, 5)

    data = zelmar.FieldSampleData()
    assert zv.FieldSampleData_GetFieldList(data) is None
    zv.FieldSampleData_SetFieldList(data, zelmar.FieldList())
    assert zv.FieldSampleData_GetFieldList(data).layer_count == 0
    doc = zelmar.Document()
    zv.FieldSampleData_SetDoc(data, doc)
    assert zv.FieldSampleData_GetDoc(data) is doc
    assert zv.FieldSampleData_GetFieldOwner(data) is None
    with pytest.raises(TypeError):
        zv.FieldSampleData_SetDoc(data, "doc")
    with pytest.raises(TypeError):
        zv.FieldSampleData_SetFieldOwner(data, 1)
