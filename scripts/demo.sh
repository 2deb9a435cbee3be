#!/usr/bin/env bash
# Builds the library and its command-line tool, then extracts the capacitance
# matrices of two bundled example layouts: three wires over a ground plane, and
# two crossing metal layers in a stack of dielectric layers.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup-deps.sh
build=${BUILD_DIR:-build}
cmake -S . -B "$build" -G Ninja >/dev/null
# Only what the demo runs; scripts/test.sh builds everything.
cmake --build "$build" -j"$(nproc)" --target torva_cli
mkdir -p "$build/demo"
"$build/tools/torva" extract examples/bus.cap3d --out-file "$build/demo/bus.out" --log-file "$build/demo/bus.log" \
  --json "$build/demo/bus.json" -spice
# A process-like stack of dielectric layers, at a looser precision to stay quick.
"$build/tools/torva" extract examples/stack.cap3d -p 0.03 -c 0.15 --out-file "$build/demo/stack.out" \
  --log-file "$build/demo/stack.log"
