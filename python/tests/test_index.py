"""Index.nearest against a brute-force scan and the torva program, its
argument checks, its threads, and the ownership of the layout it searches."""

import gc
import threading

import numpy as np
import pytest

import torva
from conftest import box_distances, pair_distances, random_points

# Points within this of a block count as on it (the library's own tolerance).
ON_BLOCK = 1e-4


def check_against_scan(layout, points, answer, limit=1e9):
    """Every answer is safe (never beyond the true clearance or the limit), a
    named block is at the distance claimed, and most answers are exact."""
    boxes = layout.boxes
    truth = box_distances(points, boxes).min(axis=1)
    distance, reach, block = answer
    assert distance.shape == reach.shape == block.shape == (len(points),)
    assert np.all(distance >= -1e-12)
    assert np.all(distance <= np.minimum(truth, limit) + 1e-9)
    named = block >= 0
    assert np.all(block < layout.block_count)
    claimed = pair_distances(points[named], boxes[block[named]])
    off_block = distance[named] > 0
    assert np.allclose(claimed[off_block], distance[named][off_block], atol=1e-9)
    assert np.all(claimed[~off_block] < ON_BLOCK)
    exact = np.isclose(distance, np.minimum(truth, limit), atol=1e-9) | (truth < ON_BLOCK)
    return exact.mean()


@pytest.fixture(scope="module")
def crossing(tmp_path_factory):
    path = tmp_path_factory.mktemp("layouts") / "crossing.cap3d"
    torva.generate("crossing", path, size=3000, layers=3, seed=5)
    return torva.read_layout(str(path))


@pytest.mark.parametrize("strategy", [0, 1, 3, 5, 9, 10])
def test_batch_agrees_with_the_scan_on_every_pair(crossing, strategy):
    index = crossing.index(strategy=strategy, threads=2)
    assert index.strategy != 10 and index.pair
    # The plain grid covers the blocks' box, less than the window.
    inside = np.stack([np.maximum(crossing.window[0], index.space[0]), np.minimum(crossing.window[1], index.space[1])])
    points = random_points(inside, 2000, seed=strategy)
    share = check_against_scan(crossing, points, index.nearest(points))
    assert share > 0.5, f"{index.pair} answered only {share:.0%} of the points exactly"
    # A limit caps every answer.
    check_against_scan(crossing, points[:500], index.nearest(points[:500], limit=0.05), limit=0.05)


@pytest.mark.parametrize("name", ["bus.cap3d", "polygons.cap3d", "shapes.cap3d", "crossing.bin"])
def test_examples_read_as_boxes_agree_with_the_scan(examples, name):
    layout = torva.read_layout(str(examples / name), cuboids_only=True)
    assert np.all(layout.kinds == 0)
    index = layout.index()
    points = random_points(index.space, 3000, seed=1)
    check_against_scan(layout, points, index.nearest(points))


def test_single_points_agree_with_the_torva_program(examples, cli):
    path = examples / "polygons.cap3d"
    layout = torva.read_layout(str(path))
    index = layout.index(strategy=3)
    for p in random_points(layout.window, 5, seed=9):
        answer = index.nearest(p[None, :])
        text = cli("query", path, *p, "--strategy", 3)
        fields = dict(line.split(None, 1) for line in text.splitlines() if line.strip())
        assert float(fields["distance"]) == pytest.approx(answer.distance[0], abs=1e-11)
        assert float(fields["reach"]) == pytest.approx(answer.reach[0], abs=1e-11)
        if answer.block[0] < 0:
            assert fields["nearest"].startswith("no block")
        else:
            b = answer.block[0]
            net = layout.nets[layout.block_nets[b]]
            assert fields["nearest"].startswith(f"net {net}, block {layout.block_names[b] or '(unnamed)'}")


def test_inputs_are_converted_or_refused(crossing):
    index = crossing.index()
    points = random_points(crossing.window, 100, seed=3)
    plain = index.nearest(points)
    for other in (points.astype(np.float32).astype(np.float64), np.asfortranarray(points), points.tolist()):
        again = index.nearest(other)
        assert np.array_equal(again.block, plain.block)
    empty = index.nearest(np.empty((0, 3)))
    assert empty.distance.shape == (0,) and empty.block.dtype == np.int64

    outside = points.copy()
    outside[37] = index.space[1] + 1.0
    outside[60] = index.space[0] - 1.0
    with pytest.raises(ValueError, match=r"point 37 .* outside the search space"):
        index.nearest(outside)
    outside[37] = [np.nan, 0, 0]
    with pytest.raises(ValueError, match="point 37"):
        index.nearest(outside)
    with pytest.raises(ValueError, match=r"\(N, 3\)"):
        index.nearest(points[:, :2])
    with pytest.raises(ValueError, match="limit"):
        index.nearest(points, limit=0)
    with pytest.raises(ValueError, match="strategy"):
        crossing.index(strategy=11)


def test_threads_query_one_index_at_once(crossing):
    index = crossing.index(threads=2)
    batches = [random_points(crossing.window, 3000, seed=s) for s in range(4)]
    answers = [None] * 4

    def work(k):
        answers[k] = index.nearest(batches[k], threads=2)

    workers = [threading.Thread(target=work, args=(k,)) for k in range(4)]
    for w in workers:
        w.start()
    for w in workers:
        w.join()
    for points, answer in zip(batches, answers):
        check_against_scan(crossing, points, answer)


def test_an_index_keeps_its_layout_alive(examples):
    index = torva.read_layout(str(examples / "polygons.cap3d")).index()
    gc.collect()
    points = random_points(index.space, 2000, seed=4)
    first = index.nearest(points)
    # Garbage that could land where the layout was.
    junk = [torva.generate("mixed", size=300, seed=s) for s in range(5)]
    gc.collect()
    again = index.nearest(points)
    assert np.array_equal(first.distance, again.distance) or np.all(again.distance <= first.distance + 1e-9)
    assert index.layout.block_count > 0 and junk
    layout = index.layout
    del index
    gc.collect()
    assert layout.nets  # the layout outlives its index too
