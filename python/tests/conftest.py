import numpy as np
import pytest

from zelmar import tools


@pytest.fixture
def sphere():
    """A level set sphere of radius 1 at (0, 0, 0.5), voxel size 0.1."""
    return tools.sphere(1.0, center=(0.0, 0.0, 0.5), voxel_size=0.1, half_width=3)


@pytest.fixture
def cube_mesh():
    """A closed unit cube from (0, 0, 0) to (1, 1, 1), quads wound outward by the right-hand rule."""
    points = np.array([[0, 0, 0], [1, 0, 0], [1, 1, 0], [0, 1, 0],
                       [0, 0, 1], [1, 0, 1], [1, 1, 1], [0, 1, 1]], dtype=np.float64)
    quads = np.array([[0, 3, 2, 1], [4, 5, 6, 7], [0, 1, 5, 4],
                      [2, 3, 7, 6], [1, 2, 6, 5], [0, 4, 7, 3]], dtype=np.int64)
    return points, quads


def signed_volume(points, polygons):
    """Volume enclosed by a mesh; positive when its normals point outward by the right-hand rule."""
    tris = []
    for p in polygons:
        idx = [int(i) for i in p if i >= 0]
        for k in range(1, len(idx) - 1):
            tris.append((idx[0], idx[k], idx[k + 1]))
    t = np.array(tris)
    a, b, c = points[t[:, 0]], points[t[:, 1]], points[t[:, 2]]
    return np.einsum("ij,ij->i", a, np.cross(b, c)).sum() / 6.0
