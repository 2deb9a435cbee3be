#!/usr/bin/env bash
# Builds everything and runs the whole test suite.
#   BUILD_DIR   build folder (default: build)
#   SANITIZE    sanitizers, e.g. address,undefined (default: none)
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup-deps.sh
build=${BUILD_DIR:-build}
cmake -S . -B "$build" -G Ninja -DTORVA_SANITIZE="${SANITIZE:-}" >/dev/null
cmake --build "$build" -j"$(nproc)"
ctest --test-dir "$build" --output-on-failure -j"$(nproc)" ${CTEST_ARGS:-}
