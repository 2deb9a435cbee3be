#!/usr/bin/env bash
# Builds the library and its command-line tool, then reads and indexes a
# bundled example layout.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup-deps.sh
build=${BUILD_DIR:-build}
cmake -S . -B "$build" -G Ninja >/dev/null
# Only what the demo runs; scripts/test.sh builds everything.
cmake --build "$build" -j"$(nproc)" --target torva_cli
"$build/tools/torva" info examples/bus.cap3d
echo
"$build/tools/torva" index examples/bus.cap3d
