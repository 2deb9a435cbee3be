"""torva.extract against the torva program's report, on a path and on a
Layout, with its progress callback, its warnings and its refusals."""

import json
import logging
import threading

import numpy as np
import pytest

import torva
from conftest import random_points

RUN = dict(max_walks=3000, seed=3)


def test_matrix_is_the_programs_bit_for_bit(examples, cli, tmp_path):
    path = examples / "bus.cap3d"
    report = tmp_path / "bus.json"
    cli("extract", path, "--max-walks", 3000, "--seed", 3, "-n", 2, "--json", report,
        "--out-file", tmp_path / "bus.out", "--log-file", tmp_path / "bus.log")
    expected = json.loads(report.read_text())

    # On one thread, from the path and from a Layout: the same matrix as the
    # program's two threads, since the seed alone fixes it.
    from_path = torva.extract(str(path), threads=1, **RUN)
    layout = torva.read_layout(str(path))
    from_layout = torva.extract(layout, threads=2, **RUN)
    for r in (from_path, from_layout):
        assert r.nets == expected["nets"] and r.masters == expected["masters"]
        assert np.array_equal(r.matrix, np.array(expected["matrix"]))
        assert np.array_equal(r.stderr, np.array(expected["stderr"]))
        assert r.matrix.shape == (len(r.masters), len(r.nets))
        assert list(r.walks) == expected["walks"]
    # The result writes the program's report.
    from_layout.write_json(str(tmp_path / "again.json"))
    assert json.loads((tmp_path / "again.json").read_text())["matrix"] == expected["matrix"]
    # The run worked on a copy: the layout reads as before and still indexes.
    assert layout.nets == ["ground", "bus0", "bus1", "bus2"] and layout.block_count == 5


def test_indexing_goes_on_while_the_same_layout_is_extracted(examples):
    layout = torva.read_layout(str(examples / "polygons.cap3d"))
    index = layout.index(threads=1)
    points = random_points(index.space, 20000, seed=2)
    expected = index.nearest(points, threads=1)
    stop = threading.Event()
    mismatches = []

    def query():
        while not stop.is_set():
            again = index.nearest(points, threads=1)
            if not np.array_equal(again.distance, expected.distance):
                mismatches.append(1)

    worker = threading.Thread(target=query)
    worker.start()
    try:
        result = torva.extract(layout, max_walks=2000, threads=1)
    finally:
        stop.set()
        worker.join()
    assert not mismatches
    assert result.matrix.shape[0] == len(result.masters) > 0


def test_progress_names_the_masters_and_its_exception_comes_back(examples):
    path = str(examples / "bus.cap3d")
    seen = []
    torva.extract(path, self_precision=0.004, threads=1, seed=1, progress=seen.append)
    assert seen, "a run of seconds reported no progress"
    assert all(isinstance(p, tuple) and p.net in ("bus0", "bus1", "bus2") for p in seen)
    assert all(p.master_count == 3 and p.goal == 0.004 for p in seen)
    walks = [(p.master, p.walks) for p in seen]
    assert walks == sorted(walks)

    calls = []

    def fails(p):
        calls.append(p)
        raise ZeroDivisionError("stop")

    with pytest.raises(ZeroDivisionError, match="stop"):
        torva.extract(path, self_precision=0.004, threads=1, seed=1, progress=fails)
    assert len(calls) == 1  # no call after the first exception


def test_warnings_go_to_logging_and_nothing_is_printed(examples, caplog, capfd):
    with caplog.at_level(logging.DEBUG, logger="torva"):
        r = torva.extract(str(examples / "polygons.cap3d"), max_walks=500, masters=["tee"])
    assert any("bounding boxes" in w for w in r.warnings)
    warned = [rec.getMessage() for rec in caplog.records if rec.levelno == logging.WARNING]
    assert any("bounding boxes" in m for m in warned)
    assert any(rec.levelno == logging.INFO and "master" in rec.getMessage() for rec in caplog.records)
    out, err = capfd.readouterr()
    assert out == "" and err == ""


def test_refusals_carry_the_library_message(examples, tmp_path):
    with pytest.raises(torva.TorvaError, match="no net named nosuch"):
        torva.extract(str(examples / "bus.cap3d"), masters=["nosuch"])
    floating = tmp_path / "floating.cap3d"
    floating.write_text(
        "<cap3d>\n<window> v1(0,0,0) v2(10,10,10) dirichlet </window>\n"
        "<conductor> name a <block> basepoint(1,1,1) v1(1,0,0) v2(0,1,0) hvector(0,0,1) </block> </conductor>\n"
        "<conductor> name drifter floating <block> basepoint(5,5,5) v1(1,0,0) v2(0,1,0) hvector(0,0,1) </block>"
        " </conductor>\n</cap3d>\n")
    assert torva.read_layout(str(floating)).floating == ["drifter"]
    with pytest.raises(torva.TorvaError, match="drifter"):
        torva.extract(str(floating), max_walks=100)
    with pytest.raises(ValueError, match="precision"):
        torva.extract(str(examples / "bus.cap3d"), self_precision=0)
