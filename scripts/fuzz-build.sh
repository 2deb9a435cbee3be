#!/usr/bin/env bash
# Builds the fuzzing harnesses with clang's libFuzzer and the address and
# undefined-behaviour sanitizers into FUZZ_BUILD_DIR (default build-fuzz).
# FUZZ_SANITIZE names other checks (e.g. "undefined", or empty for coverage
# alone), for a long run that wants more inputs an hour; give each its own
# build directory. Used by fuzz.sh and fuzz-long.sh.
set -euo pipefail
cd "$(dirname "$0")/.."
TORVA_EXTRA_PACKAGES="clang libclang-rt-14-dev" scripts/setup-deps.sh
build=${FUZZ_BUILD_DIR:-build-fuzz}
launcher=()
command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
CXX=clang++ cmake -S . -B "$build" -G Ninja -DTORVA_BUILD_FUZZERS=ON -DTORVA_BUILD_TESTS=OFF \
  -DTORVA_BUILD_BENCH=OFF -DTORVA_BUILD_TOOLS=OFF -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DTORVA_FUZZ_SANITIZE="${FUZZ_SANITIZE-address,undefined}" "${launcher[@]}" >/dev/null
cmake --build "$build" -j"${FUZZ_BUILD_JOBS:-$(nproc)}"
