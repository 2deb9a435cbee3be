"""Index.nearest on a batch of points through Python beside the same batch in
plain C++ (nearest_batch_benchmark), on one layout and one set of points, in
one run; prints the median seconds of each and their ratio.

    PYTHONPATH=build/python /usr/bin/python3 bench/python_nearest_batch.py \
        [--build build] [--size 100000] [--points 1000000] [--threads 2] [--repetitions 7]
"""

import argparse
import json
import os
import pathlib
import statistics
import subprocess
import tempfile
import time

import numpy as np

import torva

parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
parser.add_argument("--build", default="build", help="the build folder (for bench/nearest_batch_benchmark)")
parser.add_argument("--size", type=int, default=100000, help="segments of the generated crossing")
parser.add_argument("--points", type=int, default=1000000)
parser.add_argument("--threads", type=int, default=2)
parser.add_argument("--repetitions", type=int, default=7)
args = parser.parse_args()

with tempfile.TemporaryDirectory() as work:
    layout_path = os.path.join(work, "crossing.cap3d")
    torva.generate("crossing", layout_path, size=args.size, layers=4)
    layout = torva.read_layout(layout_path)
    index = layout.index(threads=args.threads)
    rng = np.random.default_rng(1)
    space = index.space
    points = space[0] + (space[1] - space[0]) * rng.random((args.points, 3))
    points_path = os.path.join(work, "points.f64")
    points.tofile(points_path)

    program = pathlib.Path(args.build) / "bench" / "nearest_batch_benchmark"
    done = subprocess.run(
        [str(program), f"--batch_layout={layout_path}", f"--batch_points={points_path}",
         f"--batch_threads={args.threads}", f"--benchmark_repetitions={args.repetitions}",
         "--benchmark_format=json"],
        capture_output=True, text=True, check=True)
    runs = [b for b in json.loads(done.stdout)["benchmarks"] if b.get("run_type") == "iteration"]
    native = statistics.median(b["real_time"] / 1e3 for b in runs)  # ms to s

    index.nearest(points, threads=args.threads)  # the first call imports numpy's machinery
    times = []
    for _ in range(args.repetitions):
        start = time.perf_counter()
        index.nearest(points, threads=args.threads)
        times.append(time.perf_counter() - start)
    python = statistics.median(times)

print(f"layout: generated crossing, {layout.block_count} blocks, index {index.pair}; "
      f"{args.points} points uniform in its search space; {args.threads} threads; "
      f"median of {args.repetitions}")
print(f"C++     {native:.4f} s  ({native / args.points * 1e9:.0f} ns per point)")
print(f"Python  {python:.4f} s  ({python / args.points * 1e9:.0f} ns per point)")
print(f"ratio   {python / native:.3f}")
