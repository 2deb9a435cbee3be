"""Reading layouts against the torva program's summary, the text and binary
forms through convert and generate, loading tables, and the exceptions for
files that are not layouts."""

import logging
import re

import numpy as np
import pytest

import torva


@pytest.mark.parametrize("name", ["bus.cap3d", "polygons.cap3d", "shapes.cap3d", "crossing.bin"])
def test_layout_agrees_with_the_programs_summary(examples, cli, name):
    path = examples / name
    layout = torva.read_layout(str(path))
    info = cli("info", path)
    conductors = re.search(r"conductors\s+(\d+) \((\d+) floating\), (\d+) blocks", info)
    assert (len(layout.nets), len(layout.floating), layout.block_count) == tuple(map(int, conductors.groups()))
    assert layout.binary == (name.endswith(".bin"))
    tasks = re.search(r"tasks\s+(\d+):?(.*)", info)
    assert layout.tasks == tasks.group(2).split() and len(layout.tasks) == int(tasks.group(1))
    assert f"{len(layout.media)}," in info.split("media", 1)[1].split("\n", 1)[0]

    boxes = layout.boxes
    assert boxes.shape == (layout.block_count, 2, 3) and np.all(boxes[:, 0] <= boxes[:, 1])
    assert layout.kinds.shape == layout.block_nets.shape == layout.block_layers.shape == (layout.block_count,)
    assert set(layout.block_nets) == set(range(len(layout.nets)))  # every net has a block, each block a net
    span = re.search(r"blocks span \(([^)]*)\) to \(([^)]*)\)", info)
    for corner, text in ((boxes[:, 0].min(axis=0), span.group(1)), (boxes[:, 1].max(axis=0), span.group(2))):
        assert np.allclose(corner, [float(v) for v in text.split(",")], rtol=1e-5)
    if layout.window is not None:
        assert np.all(layout.window[0] <= layout.window[1])


def test_text_and_binary_forms_carry_the_same_layout(examples, tmp_path):
    text = examples / "polygons.cap3d"
    binary, back = tmp_path / "p.bin", tmp_path / "p.cap3d"
    s = torva.convert(str(text), str(binary))
    assert s["direction"] == "text to binary" and s["bytes"] == binary.stat().st_size
    assert torva.convert(binary, back)["direction"] == "binary to text"
    layouts = [torva.read_layout(str(p)) for p in (text, binary, back)]
    # The binary form has no cylinder: each becomes a block of equal area.
    round_ones = layouts[0].kinds == 1
    assert s["cylinders_as_cuboids"] == round_ones.sum() > 0
    for other in layouts[1:]:
        assert other.nets == layouts[0].nets and other.tasks == layouts[0].tasks
        assert np.allclose(other.boxes[~round_ones], layouts[0].boxes[~round_ones], rtol=1e-12, atol=1e-12)
        assert np.all(other.kinds[round_ones] == 0)
        assert np.array_equal(other.block_nets, layouts[0].block_nets)


def test_outputs_are_replaced_only_when_asked_and_never_by_a_failure(examples, tmp_path):
    target = tmp_path / "out.bin"
    target.write_text("keep me")
    with pytest.raises(FileExistsError):
        torva.convert(examples / "bus.cap3d", target)
    with pytest.raises(FileExistsError):
        torva.generate("bus", target, size=10)
    broken = tmp_path / "broken.cap3d"
    broken.write_text("<cap3d>\n<window> v1(0,0,0) v2(1,1,1) dirichlet </window>\n<bogus> 1 2 </bogus>\n</cap3d>\n")
    with pytest.raises(torva.TorvaError):
        torva.convert(broken, target, force=True)
    assert target.read_text() == "keep me"
    with pytest.raises(ValueError, match="the input"):
        torva.convert(examples / "bus.cap3d", examples / "bus.cap3d", force=True)
    assert sorted(p.name for p in tmp_path.iterdir()) == ["broken.cap3d", "out.bin"]  # no temporaries left


def test_generate_writes_what_it_returns(tmp_path):
    options = dict(size=400, layers=3, polygons=0.1, cylinders=0.1, seed=4, tasks=2)
    text = torva.generate("mixed", **options)
    path = torva.generate("mixed", tmp_path / "m.cap3d", **options)
    assert path == str(tmp_path / "m.cap3d") and (tmp_path / "m.cap3d").read_text() == text
    data = torva.generate("mixed", binary=True, **options)
    torva.generate("mixed", tmp_path / "m.bin", binary=True, **options)
    assert isinstance(data, bytes) and (tmp_path / "m.bin").read_bytes() == data
    from_text = torva.read_layout(path)
    from_binary = torva.read_layout(str(tmp_path / "m.bin"))
    assert from_text.nets == from_binary.nets and len(from_text.tasks) == 2
    assert from_text.block_count >= 400 and len(set(from_text.block_layers)) == 3
    with pytest.raises(ValueError, match="kind"):
        torva.generate("spiral")
    with pytest.raises(ValueError, match="shares"):
        torva.generate("bus", polygons=1.5)


def test_files_that_are_not_layouts(tmp_path, caplog, capfd):
    with pytest.raises(FileNotFoundError):
        torva.read_layout(str(tmp_path / "none.cap3d"))
    with pytest.raises(IsADirectoryError):
        torva.read_layout(str(tmp_path))
    bad = tmp_path / "bad.cap3d"
    bad.write_text("<cap3d>\n<window> v1(0,0,0) v2(1,1,1) dirichlet </window>\n<conductor> name a <block> "
                   "basepoint(0,0,0) 100%weird v1(1,0,0) </block> </conductor>\n</cap3d>\n")
    with caplog.at_level(logging.DEBUG, logger="torva"):
        with pytest.raises(torva.TorvaError) as failure:
            torva.read_layout(str(bad))
    assert str(bad) in str(failure.value) and "Syntax" in str(failure.value) and "100%weird" in str(failure.value)
    assert not [r for r in caplog.records if r.levelno >= logging.ERROR]  # the message went into the exception
    empty = tmp_path / "empty.cap3d"
    empty.write_text("just words\n")
    with pytest.raises(torva.TorvaError, match="cap3d layout"):
        torva.read_layout(str(empty))
    truncated = tmp_path / "cut.bin"
    truncated.write_bytes(torva.generate("bus", size=50, binary=True)[:-7])
    with pytest.raises(torva.TorvaError, match="Syntax error"):
        torva.read_layout(str(truncated))
    assert capfd.readouterr() == ("", "")


def test_tables(tmp_path):
    first = torva.load_tables(0, tmp_path).first_table
    assert first.shape == (1024,) and np.all(np.diff(first) >= 0) and first[-1] == 1.0
    with pytest.raises(torva.TorvaError, match=str(tmp_path)):
        torva.load_tables(2, tmp_path, [3.9, 2.5])
    with pytest.raises(ValueError, match="mode"):
        torva.load_tables(6, tmp_path)
