"""The volume commands by id, with their settings as dicts.

    >>> from zelmar import commands
    >>> commands.list()[:2]
    ['net.zelmar.command.volumes.boole', ...]
    >>> [ball] = commands.run("createspherevolume", settings={"radius": 2.0})

Settings are named as ``commands.info(id)["settings"]`` (and ``zvol command
list ID``) lists them; vectors and matrices are in the outside (right-handed)
frame. Inputs are Volumes and (points, polygons) meshes. The results come back
as Volumes, or as (points, polygons) for volumetomesh.
"""
from typing import Any, Dict, List, Optional, Sequence

from ._native import command_info, command_list, command_run

__all__ = ["list", "info", "run"]


def list() -> List[str]:  # noqa: A001 - the module's own verb
    """The ids of the commands of this build, in table order."""
    return command_list()


def info(command: str) -> Dict[str, Any]:
    """The command's id, short name, inputs and settings (type, help, key) by name."""
    return command_info(command)


def run(command: str, inputs: Optional[Sequence[Any]] = None, settings: Optional[Dict[str, Any]] = None) -> List[Any]:
    """Runs a command by its id or short name; unknown settings and wrong types raise before it runs."""
    return command_run(command, inputs, settings)
