"""The volume tools with numpy arrays: primitives, meshes, points, fields,
booleans, mixing, filters, conversions and derived volumes. Every function leaves its
inputs unchanged and returns a new Volume (or arrays)."""
from ._native import (  # noqa: F401
    blend,
    boolean,
    close_holes,
    curl,
    empty,
    fields_to_volume,
    filter,
    fog_to_sdf,
    from_dense,
    gradient,
    mask_from_field,
    mean_curvature,
    mesh_to_volume,
    mix,
    normalize,
    platonic,
    points_to_volume,
    resample,
    rotate_vectors,
    sdf_filter,
    sdf_to_fog,
    sphere,
    vector_mix,
    vector_to_fog,
    volume_to_mesh,
)

__all__ = [
    "blend", "boolean", "close_holes", "curl", "empty", "fields_to_volume", "filter", "fog_to_sdf", "from_dense", "gradient", "mask_from_field", "mean_curvature",
    "mesh_to_volume", "mix", "normalize", "platonic", "points_to_volume", "resample", "rotate_vectors", "sdf_filter",
    "sdf_to_fog", "sphere", "vector_mix", "vector_to_fog", "volume_to_mesh",
]
