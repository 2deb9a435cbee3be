#!/usr/bin/env python3
"""Fails when a file includes a header from a folder above its own in the floor plan.

The plan, lowest floor first; a folder may include its own headers and those of
the floors below it, never a floor above nor a neighbour on its own floor:

  0 foundation   1 solids   2 geometry   3 layout   4 space, tables
  5 check   6 extract, import   7 the clients: tools, python, bench, examples

Tests and fuzzers beside the code, and their fixtures, keep their folder's
floor but may also use testing/ (shared test helpers), which itself sits just
below the clients. Benchmarks beside the code are programs of their own, built
into bench/: clients, like the tools. Run from anywhere: python3 scripts/check_includes.py [ROOT]
"""
import pathlib
import re
import sys

FLOORS = {
    "foundation": 0, "solids": 1, "geometry": 2, "layout": 3,
    "space": 4, "tables": 4, "check": 5, "extract": 6, "import": 6,
}
TESTING_FLOOR = 6.5          # helpers for tests: may use the whole library
CLIENT_FLOOR = 7             # tools, python, bench, examples, tests/
INCLUDE = re.compile(r'^\s*#\s*include\s*"([^"]+)"')


def floor_of_header(path: str):
    parts = path.split("/")
    if parts[0] == "torva":
        if len(parts) == 2:  # torva/torva.h, the umbrella
            return "umbrella", CLIENT_FLOOR
        return parts[1], FLOORS.get(parts[1])
    if parts[0] == "torva_testing":
        return "testing", TESTING_FLOOR
    return None, None


def floor_of_file(rel: pathlib.Path):
    parts = rel.parts
    if parts[0] == "torva" and len(parts) > 2:
        return parts[1], FLOORS.get(parts[1])
    if parts[0] == "testing":
        return "testing", TESTING_FLOOR
    return parts[0], CLIENT_FLOOR


def main() -> int:
    root = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else pathlib.Path(__file__).resolve().parent.parent)
    faults = []
    for f in sorted(root.rglob("*")):
        if f.suffix not in (".h", ".cpp") or not f.is_file():
            continue
        rel = f.relative_to(root)
        if rel.parts[0].startswith("build") or rel.parts[0] in (".git",):
            continue
        folder, floor = floor_of_file(rel)
        if floor is None:
            faults.append(f"{rel}: folder torva/{folder} has no floor in the plan")
            continue
        if f.stem.endswith("_benchmark"):
            folder, floor = "bench", CLIENT_FLOOR
        beside = f.stem.endswith(("_test", "_fuzz")) or "fixture" in f.stem or "test_support" in f.stem
        for n, line in enumerate(f.read_text(errors="replace").splitlines(), 1):
            m = INCLUDE.match(line)
            if not m:
                continue
            target, tfloor = floor_of_header(m.group(1))
            if target is None or target == folder:
                continue
            if tfloor is None:
                faults.append(f"{rel}:{n}: includes {m.group(1)}, a folder with no floor in the plan")
            elif target == "testing" and beside:
                continue
            elif tfloor > floor or (tfloor == floor and floor < CLIENT_FLOOR):
                faults.append(f"{rel}:{n}: {folder} (floor {floor}) includes {m.group(1)} (floor {tfloor})")
    for fault in faults:
        print(fault)
    if faults:
        print(f"{len(faults)} include(s) against the floor plan", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
