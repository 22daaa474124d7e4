"""Zelmar Volumes for Python: sparse voxel volumes with numpy.

Arrays cross in the right-handed frame of .vdb files and of ``zvol``'s command
line: a volume read here shows the index coordinates and world positions that
OpenVDB's own Python module shows for the same file.
"""
import os as _os

from . import _native


def _module_folder():
    # An installed package carries the host library and the module's
    # resources in _lib; a build tree keeps them in build/bin.
    env = _os.environ.get("ZELMAR_MODULE_DIR")
    if env:
        return env
    lib = _os.path.join(_os.path.dirname(__file__), "_lib")
    if _os.path.isdir(_os.path.join(lib, "res")):
        return lib
    return None


_folder = _module_folder()
if _folder:
    _native._set_module_folder(_folder)

from ._native import (  # noqa: E402
    Capsule,
    Document,
    FieldList,
    FieldSampleData,
    FilterSettings,
    SceneObject,
    Spline,
    Volume,
    file_metadata,
    grid_names,
    load_volumes,
    save_volumes,
)
from . import commands, tools, volume  # noqa: E402,F401

__all__ = [
    "Capsule", "Document", "FieldList", "FieldSampleData", "FilterSettings", "SceneObject", "Spline", "Volume",
    "file_metadata", "grid_names", "load_volumes", "save_volumes", "volume", "tools", "commands",
]

# The dense constructor is reachable from the class too, as OpenVDB's
# copyFromArray is from its grids.
Volume.from_dense = staticmethod(_native.from_dense)
