"""Volumes and the native module ``zelmar.volume._zelmar_volume``."""
import sys as _sys

from .._native import Volume, _zelmar_volume

# The native module lives inside the one extension of the package; it is
# importable under its own name as well.
_sys.modules[__name__ + "._zelmar_volume"] = _zelmar_volume

__all__ = ["Volume", "_zelmar_volume"]
