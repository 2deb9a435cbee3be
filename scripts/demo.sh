#!/usr/bin/env bash
# Builds the library and its command-line tool, then extracts the capacitance
# matrices of three bundled examples: three wires over a ground plane; two
# crossing metal layers in a stack of dielectric layers; and a GDS cell, the
# wiring of a small inverter, on the shipped sky130A process stack. The reports,
# and the dielectric tables the walks read, go into build/demo/.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup-deps.sh
build=${BUILD_DIR:-build}
cmake -S . -B "$build" -G Ninja >/dev/null
# Only what the demo runs; scripts/test.sh builds everything.
cmake --build "$build" -j"$(nproc)" --target torva_cli
mkdir -p "$build/demo"
# Walks cross the planes between dielectric layers by cubes drawn from the
# two-layer tables of each pair of permittivities they meet there: each
# layout's pairs are written here first rather than made in memory by the run.
tables="$build/demo/tables"
# Three wires in oxide (3.9) under a passivation layer (7).
"$build/tools/torva" tables --generate --diels 3.9,7 --dir "$tables"
"$build/tools/torva" extract examples/bus.cap3d --table-dir "$tables" --out-file "$build/demo/bus.out" \
  --log-file "$build/demo/bus.log" --json "$build/demo/bus.json" -spice
# A process-like stack of dielectric layers (its plate media, then vacuum
# above), at a looser precision to stay quick.
"$build/tools/torva" tables --generate --diels 3.9,2.9,7,2.9,7,4.1,1 --dir "$tables"
"$build/tools/torva" extract examples/stack.cap3d -p 0.03 -c 0.15 --table-dir "$tables" \
  --out-file "$build/demo/stack.out" --log-file "$build/demo/stack.log"
# A GDS cell on a process stack: the import makes its nets, blocks and
# dielectrics. Its walks meet the stack's planar layers and the coats around
# the metal: the pairs of permittivities of both get tables as well.
"$build/tools/torva" tables --generate --diels 3.9,4.632,3.9,7.3,4.05,4.5,4.2,4.1,4,7.5,1 \
  --pairs 4.5/3.5,3.5/4.2,4.05/3.5,3.5/4.5 --dir "$tables"
"$build/tools/torva" extract examples/sky130_inv_wires.gds --stack sky130A -p 0.05 -c 0.3 -n 0 --table-dir "$tables" \
  --out-file "$build/demo/inv.out" --log-file "$build/demo/inv.log" --json "$build/demo/inv.json" -spice
