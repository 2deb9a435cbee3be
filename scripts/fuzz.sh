#!/usr/bin/env bash
# Builds the fuzzing harnesses (scripts/fuzz-build.sh) and runs each for
# FUZZ_SECONDS (default 60), starting from the seeds in fuzz/corpus/<harness>
# and with the flags in fuzz/options/<harness>, if any. An input that finds a
# fault is left in build-fuzz/artifacts/ and the script fails: add it to
# fuzz/regressions/<harness>/ with the fix. scripts/fuzz-long.sh runs them
# for millions of executions instead.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/fuzz-build.sh
build=${FUZZ_BUILD_DIR:-build-fuzz}
seconds=${FUZZ_SECONDS:-60}
mkdir -p "$build/artifacts"
status=0
for fuzzer in "$build"/*_fuzz; do
  name=$(basename "$fuzzer" _fuzz)
  corpus="$build/corpus/$name"
  mkdir -p "$corpus"
  read -r -a options <<<"$(grep -hv '^#' "fuzz/options/$name" 2>/dev/null | tr '\n' ' ')"
  echo "== fuzzing $name for ${seconds}s"
  if ! "$fuzzer" "$corpus" "fuzz/corpus/$name" -max_total_time="$seconds" -max_len=4096 \
      -rss_limit_mb=3072 -timeout=10 -print_final_stats=1 -artifact_prefix="$build/artifacts/$name-" \
      "${options[@]}" >"$build/$name.log" 2>&1; then
    status=1
    echo "FAULT in $name:"
    grep -E "ERROR|SUMMARY|Test unit written" "$build/$name.log" | head -20
  fi
  grep -E "DONE|stat::number_of_executed_units|stat::peak_rss_mb" "$build/$name.log" | tail -3
done
exit $status
