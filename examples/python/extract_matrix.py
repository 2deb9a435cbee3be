"""Extracts the capacitance matrix of a layout and prints it with the
standard error of every entry.

    PYTHONPATH=build/python python3 examples/python/extract_matrix.py [LAYOUT]

LAYOUT defaults to examples/bus.cap3d; its <parameter> section gives the
precision, threads and seed.
"""

import logging
import pathlib
import sys

import torva

logging.basicConfig(level=logging.WARNING, format="%(name)s: %(message)s")
here = pathlib.Path(__file__).resolve().parent
path = sys.argv[1] if len(sys.argv) > 1 else str(here.parent / "bus.cap3d")


def show(p):
    print(f"\r  {p.net}: {p.walks} walks, error {p.self_error:.2%} (goal {p.goal:.2%})", end="", file=sys.stderr)


r = torva.extract(path, progress=show if sys.stderr.isatty() else None)
print(f"{path}: {len(r.masters)} masters, {r.seconds:.2f} s of walks, stopped by {r.stopped_by}")
print("Maxwell matrix in fF (standard error beside each entry)")
width = max(map(len, r.nets + r.masters))
print(" " * width + "".join(f"{n:>22}" for n in r.nets))
for name, row, err in zip(r.masters, r.matrix, r.stderr):
    print(f"{name:<{width}}" + "".join(f"{v:>12.5f} +- {e:<6.4f}" for v, e in zip(row, err)))
print("rows sum to", ", ".join(f"{s:.2e}" for s in r.matrix.sum(axis=1)))
