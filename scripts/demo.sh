#!/usr/bin/env bash
# Builds the library and its tool, then reads and indexes a bundled example.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup-deps.sh
build=${BUILD_DIR:-build}
cmake -S . -B "$build" -G Ninja >/dev/null
cmake --build "$build" -j"$(nproc)"
if [[ -x "$build/tools/torva" ]]; then
  "$build/tools/torva" info examples/bus.cap3d
  "$build/tools/torva" index examples/bus.cap3d
else
  # Until the tool lands: install, and build and run the example client against the install.
  cmake --install "$build" --prefix "$build/prefix" >/dev/null
  cmake -S examples/consumer -B "$build/consumer" -G Ninja -DCMAKE_PREFIX_PATH="$PWD/$build/prefix" >/dev/null
  cmake --build "$build/consumer" >/dev/null
  "$build/consumer/consumer"
fi
