"""torva.import_gds on the bundled sky130 cell: the nets its labels name, the
report against the layout and the torva program's import, and an extraction
of the imported layout."""

import re

import numpy as np

import torva


def test_import_gds_names_nets_by_labels_and_extracts(examples, cli, tmp_path):
    cell = examples / "sky130_inv_wires.gds"
    layout, report = torva.import_gds(cell, "sky130A")

    assert report["cell"] == "inv_wires" and report["stack"] == "sky130A"
    names = [n["name"] for n in report["nets"]]
    assert names == layout.nets
    assert {"vss", "vdd", "in", "out"} <= set(names)
    assert report["nets"][-1]["substrate"] and names[-1] == "VSUBS"
    unnamed = [n for n in report["nets"] if not n["labelled"] and not n["substrate"]]
    assert [n["name"] for n in unnamed] == ["met2_11_0"]  # the wire across the rails
    assert sum(n["blocks"] for n in report["nets"]) == layout.block_count
    assert set(layout.tasks) == set(names) - {"VSUBS"}

    # Block volumes by layer, from the layout's boxes (all blocks here are boxes).
    volume = np.prod(layout.boxes[:, 1] - layout.boxes[:, 0], axis=1)
    by_id = {name: i for i, name in layout.layers.items()}
    for entry in report["layers"]:
        if entry["kind"] in ("conductor", "via", "substrate") and entry["blocks"]:
            mine = volume[layout.block_layers == by_id[entry["name"]]].sum()
            assert np.isclose(mine, entry["volume"], rtol=1e-12), entry["name"]

    # The program says the same of the cell.
    out = cli("import", cell, "--stack", "sky130A", tmp_path / "inv.cap3d")
    nets = re.search(r"nets\s+(\d+) \((\d+) named by labels", out)
    assert (int(nets.group(1)), int(nets.group(2))) == (len(names) - 1, len(names) - 2)
    assert torva.read_layout(str(tmp_path / "inv.cap3d")).nets == names

    r = torva.extract(layout, masters=["in"], max_walks=3000, threads=1, seed=5)
    assert r.masters == ["in"] and r.nets[:-1] == names and r.nets[-1] == "GROUND"
    row = r.matrix[0]
    assert row[names.index("in")] > 0 and np.isclose(row.sum(), 0.0, atol=1e-9 * row[names.index("in")])
