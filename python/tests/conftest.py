"""What the tests share: where the examples and the torva program are, and a
brute-force nearest-box oracle written with numpy alone."""

import os
import pathlib
import subprocess

import numpy as np
import pytest

SOURCE = pathlib.Path(os.environ.get("TORVA_SOURCE_DIR", pathlib.Path(__file__).resolve().parents[2]))
EXAMPLES = SOURCE / "examples"


@pytest.fixture
def examples():
    return EXAMPLES


@pytest.fixture
def cli():
    """Runs the torva program; skips where the build has none."""
    program = os.environ.get("TORVA_CLI")
    if not program or not os.path.exists(program):
        pytest.skip("the torva program is not built")

    def run(*args):
        done = subprocess.run([program, *map(str, args)], capture_output=True, text=True, check=False)
        assert done.returncode == 0, done.stderr
        return done.stdout

    return run


def box_distances(points, boxes):
    """(N, M) maximum-norm distances from points (N, 3) to boxes (M, 2, 3); 0 inside."""
    lower = boxes[None, :, 0, :]
    upper = boxes[None, :, 1, :]
    p = points[:, None, :]
    gap = np.maximum(np.maximum(lower - p, p - upper), 0.0)
    return gap.max(axis=2)


def pair_distances(points, boxes):
    """(N,) maximum-norm distance from points[i] to boxes[i]."""
    gap = np.maximum(np.maximum(boxes[:, 0, :] - points, points - boxes[:, 1, :]), 0.0)
    return gap.max(axis=1)


def random_points(box, n, seed):
    rng = np.random.default_rng(seed)
    return box[0] + (box[1] - box[0]) * rng.random((n, 3))
