#!/usr/bin/env bash
# The long fuzzing run, not part of CI: builds the harnesses
# (scripts/fuzz-build.sh) and runs each, one at a time, for FUZZ_RUNS
# executions (default 10 million), then reports per harness the executions,
# seconds, executions per second, peak resident memory and coverage.
#
# A harness runs as a series of processes of FUZZ_SESSION_RUNS executions
# each (default one million), every one starting from the corpus the earlier
# ones grew: the layout readers keep each solid they make for the life of the
# process, so a single process of ten million inputs would hold gigabytes.
#
#   FUZZ_HARNESSES   names to run (default: every harness built)
#   FUZZ_NICE        niceness of the fuzzing processes (default 10)
#   FUZZ_BUILD_DIR   build directory (default build-fuzz)
#   FUZZ_RESUME      1: carry on from what earlier runs of this script did
#                    (default 0: start every harness afresh)
#   FUZZ_SANITIZE    the build's checks (default address,undefined; see
#                    scripts/fuzz-build.sh)
#
# After every finished process the harness's totals so far are written to
# <build>/long-logs/<harness>.state, so that a run cut short (a machine
# stopped, a session ended) resumes with FUZZ_RESUME=1 where its last
# finished process left off: the corpus is kept anyway, and the executions,
# seconds and peak memory add up across the runs. A process cut short counts
# nothing, so a heavy harness wants a smaller FUZZ_SESSION_RUNS.
#
# The flags in fuzz/options/<harness> apply as in scripts/fuzz.sh. A fault
# stops that harness, leaves its input in <build>/artifacts/ and makes the
# script fail; the report goes to <build>/fuzz-long-report.txt too.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/fuzz-build.sh
build=${FUZZ_BUILD_DIR:-build-fuzz}
total_runs=${FUZZ_RUNS:-10000000}
session_runs=${FUZZ_SESSION_RUNS:-1000000}
niceness=${FUZZ_NICE:-10}
harnesses=${FUZZ_HARNESSES:-$(for f in "$build"/*_fuzz; do basename "$f" _fuzz; done)}
report="$build/fuzz-long-report.txt"
mkdir -p "$build/artifacts" "$build/long-logs"

# One statistic of libFuzzer's closing lines, 0 if absent.
final_stat() { { grep -hoE "stat::$2: *[0-9]+" "$1" || echo 0; } | grep -oE '[0-9]+$' | tail -1; }

status=0
lines=()
for name in $harnesses; do
  fuzzer="$build/${name}_fuzz"
  corpus="$build/corpus/$name"
  mkdir -p "$corpus"
  read -r -a options <<<"$(grep -hv '^#' "fuzz/options/$name" 2>/dev/null | tr '\n' ' ')"
  done_runs=0 seconds=0 peak=0 session=0 finding=none last=""
  state="$build/long-logs/$name.state"
  if [[ ${FUZZ_RESUME:-0} == 1 && -f $state ]]; then
    read -r done_runs seconds peak session <"$state"
    echo "== $name: resuming after session $session, $done_runs executions in $seconds s"
    last=$(grep -E "#[0-9]+[[:space:]]+(DONE|INITED)" "$build/long-logs/$name.$session.log" 2>/dev/null | tail -1 || true)
  else
    rm -f "$build/long-logs/$name".*.log "$state"
  fi
  while ((done_runs < total_runs)); do
    runs=$((total_runs - done_runs < session_runs ? total_runs - done_runs : session_runs))
    session=$((session + 1))
    log="$build/long-logs/$name.$session.log"
    echo "== $name: session $session, $runs executions ($done_runs done)"
    start=$(date +%s.%N)
    if ! nice -n "$niceness" "$fuzzer" "$corpus" "fuzz/corpus/$name" -runs="$runs" -max_len=4096 \
        -rss_limit_mb=3072 -timeout=10 -print_final_stats=1 -artifact_prefix="$build/artifacts/$name-" \
        "${options[@]}" >"$log" 2>&1; then
      kind=$(grep -m1 -oE "ERROR: [A-Za-z]+: [a-z-]+( [a-z-]+)*" "$log" || echo "exit status")
      unit=$(grep -m1 -oE "Test unit written to [^ ]+" "$log" | awk '{print $NF}' || true)
      finding="$kind $unit"
      status=1
    fi
    seconds=$(echo "$seconds + $(date +%s.%N) - $start" | bc)
    executed=$(final_stat "$log" number_of_executed_units)
    done_runs=$((done_runs + executed))
    rss=$(final_stat "$log" peak_rss_mb)
    if ((rss > peak)); then peak=$rss; fi
    last=$(grep -E "#[0-9]+[[:space:]]+(DONE|INITED)" "$log" | tail -1 || true)
    if [[ $finding == none && $executed == 0 ]]; then finding="no executions (see $log)" status=1; fi
    echo "$done_runs $seconds $peak $session" >"$state"
    if [[ $finding != none ]]; then break; fi
  done
  cov=$(grep -oE "cov: [0-9]+" <<<"$last" | grep -oE '[0-9]+' || echo "?")
  ft=$(grep -oE "ft: [0-9]+" <<<"$last" | grep -oE '[0-9]+' || echo "?")
  units=$(find "$corpus" -type f | wc -l)
  rate=$(echo "$done_runs / $seconds" | bc)
  lines+=("$(printf "%-22s %12d %9.0f %8d %9d %7s %7s %7d  %s" "$name" "$done_runs" "$seconds" "$rate" "$peak" \
    "$cov" "$ft" "$units" "$finding")")
done

{
  checks=$(sed -n 's/^TORVA_FUZZ_SANITIZE:STRING=//p' "$build/CMakeCache.txt")
  echo "fuzz-long: $(date -u +%Y-%m-%dT%H:%MZ), $(git rev-parse --short HEAD), $(nproc) cores, load $(cut -d' ' -f1-3 /proc/loadavg), checks: ${checks:-coverage only}"
  printf "%-22s %12s %9s %8s %9s %7s %7s %7s  %s\n" harness executions seconds exec/s peak_MB cov ft corpus finding
  printf "%s\n" "${lines[@]}"
} | tee "$report"
exit $status
