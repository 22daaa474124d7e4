"""The command layer by id, with settings as dicts."""
import numpy as np
import pytest

import zelmar
from zelmar import commands, tools


def test_commands_are_listed_with_their_settings():
    ids = commands.list()
    assert "net.zelmar.command.volumes.createspherevolume" in ids
    info = commands.info("createspherevolume")
    assert info["id"] == "net.zelmar.command.volumes.createspherevolume"
    assert {"type", "help", "key"} <= set(next(iter(info["settings"].values())))
    with pytest.raises(ValueError, match="no command 'teapot'"):
        commands.info("teapot")


def test_sphere_command_in_the_outside_frame():
    [ball] = commands.run("createspherevolume", settings={"radius": 1.0, "position": (0.0, 0.0, 2.0)})
    assert isinstance(ball, zelmar.Volume) and ball.grid_class == "level set"
    # The sphere stands at z = 2 as given, as zvol sphere --center 0,0,2 puts it.
    assert ball.sample(np.array([[0.0, 0.0, 2.0]]))[0] < 0
    assert ball.sample(np.array([[0.0, 0.0, -2.0]]))[0] > 0
    with pytest.raises(ValueError, match="no setting 'size'"):
        commands.run("createspherevolume", settings={"size": 1.0})
    with pytest.raises(TypeError, match="takes a number"):
        commands.run("createspherevolume", settings={"radius": "big"})


def test_commands_take_volumes_and_meshes(cube_mesh, sphere):
    [fog] = commands.run("sdftofog", inputs=[sphere])
    assert fog.grid_class == "fog volume"
    assert fog.sample(np.array([[0.0, 0.0, 0.5]]))[0] == pytest.approx(1.0)
    [cube] = commands.run("meshtovolume", inputs=[cube_mesh])
    assert cube.sample(np.array([[0.5, 0.5, 0.5]]))[0] < 0
    assert cube.sample(np.array([[0.5, 0.5, 1.5]]))[0] > 0
    [(points, polygons)] = commands.run("volumetomesh", inputs=[sphere])
    assert np.linalg.norm(points - [0, 0, 0.5], axis=1).max() == pytest.approx(1.0, abs=0.05)
    with pytest.raises(TypeError, match="inputs are Volumes"):
        commands.run("sdftofog", inputs=["sphere.vdb"])
