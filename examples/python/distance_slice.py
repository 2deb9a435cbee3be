"""Reads a layout, asks its index for the nearest conductor from every point
of a horizontal slice, and saves the distance field as a picture.

    PYTHONPATH=build/python python3 examples/python/distance_slice.py [LAYOUT [Z [PNG]]]

LAYOUT defaults to examples/polygons.cap3d, Z to the middle height of its
blocks, PNG to distance_slice.png in the current folder.
"""

import pathlib
import sys

import matplotlib

matplotlib.use("Agg")  # a file, no window
import matplotlib.pyplot as plt
import numpy as np

import torva

here = pathlib.Path(__file__).resolve().parent
path = sys.argv[1] if len(sys.argv) > 1 else str(here.parent / "polygons.cap3d")
layout = torva.read_layout(path)
index = layout.index()
space = index.space
boxes = layout.boxes
z = float(sys.argv[2]) if len(sys.argv) > 2 else float((boxes[:, 0, 2].min() + boxes[:, 1, 2].max()) / 2)
png = sys.argv[3] if len(sys.argv) > 3 else "distance_slice.png"

# A 400 x 400 grid over the slice of the search space, as one batch.
n = 400
xs = np.linspace(space[0, 0], space[1, 0], n)
ys = np.linspace(space[0, 1], space[1, 1], n)
gx, gy = np.meshgrid(xs, ys)
points = np.column_stack([gx.ravel(), gy.ravel(), np.full(gx.size, z)])
answer = index.nearest(points)
field = answer.distance.reshape(n, n)
owner = np.where(answer.block >= 0, layout.block_nets[answer.block], -1).reshape(n, n)

fig, ax = plt.subplots(figsize=(7, 6))
image = ax.imshow(field, origin="lower", extent=(xs[0], xs[-1], ys[0], ys[-1]), cmap="viridis")
# The index answers the clearance, or less where its search reaches no farther.
fig.colorbar(image, ax=ax, label="clearance the index answers (um, max norm)")
ax.contour(gx, gy, owner, levels=np.arange(-0.5, len(layout.nets)), colors="white", linewidths=0.4)
# The outlines of the blocks the slice cuts.
for (lo, hi) in boxes[(boxes[:, 0, 2] <= z) & (boxes[:, 1, 2] >= z)]:
    ax.add_patch(plt.Rectangle(lo[:2], *(hi[:2] - lo[:2]), fill=False, edgecolor="red", linewidth=0.6))
ax.set_title(f"{pathlib.Path(path).name}: distance field at z = {z:g}")
ax.set_xlabel("x (um)")
ax.set_ylabel("y (um)")
fig.savefig(png, dpi=120)

print(f"{layout.block_count} blocks, index {index.pair}; {len(points)} points at z = {z:g}")
print(f"distance from {field.min():.4g} to {field.max():.4g} um; "
      f"{np.mean(answer.block >= 0):.0%} of the answers name a block")
print(f"wrote {png}")
