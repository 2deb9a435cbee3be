#!/usr/bin/env bash
# The MPI build of torva under mpirun, against its own threaded run:
# - every bundled example, its processes sharing blocks and sharing masters,
#   gives the matrix (and errors, walks, hops, netlist) of one process with
#   two threads bit for bit, and only the first process prints or writes;
# - enough masters share out whole by themselves;
# - a layout that one process cannot read ends the run with one message
#   naming that process and status 1; every process failing says it once;
# - a process killed while the others walk ends the run, non-zero, at once.
#   usage: mpi_extract.sh TORVA MPIEXEC EXAMPLES_DIR WORK_DIR
set -uo pipefail
torva=$1 mpiexec=$2 examples=$3 work=$4
rm -rf "$work" && mkdir -p "$work" && cd "$work" || exit 1
cp "$examples"/*.cap3d "$examples"/*.bin .
failures=0
fail() {
  echo "FAIL: $*"
  failures=$((failures + 1))
}
# No run may hang: each gets a minute at most.
mpi() { timeout 60 "$mpiexec" --oversubscribe --bind-to none "$@"; }

# The run's figures without the walking time, which is the one thing allowed to differ.
figures() { grep -v '"seconds"' "$1"; }

for run in "bus.cap3d -spice" "polygons.cap3d -p 0.05 -c 0.5" "stack.cap3d -p 0.05 -c 0.5" "shapes.cap3d --max-walks 20000" "crossing.bin -p 0.05 -c 0.3 --max-walks 20000"; do
  read -r layout extra <<<"$run"
  # shellcheck disable=SC2086
  "$torva" extract "$layout" $extra -n 2 --json t.json --out-file t.out --log-file t.log >t.stdout 2>t.stderr ||
    { fail "$layout: the threaded run failed: $(cat t.stderr)"; continue; }
  for split in blocks masters; do
    # shellcheck disable=SC2086
    if ! mpi -n 2 "$torva" extract "$layout" $extra -n 1 --split "$split" --json m.json --out-file m.out \
      --log-file m.log >m.stdout 2>m.stderr; then
      fail "$layout, $split shared: mpirun failed: $(cat m.stderr)"
      continue
    fi
    diff <(figures t.json) <(figures m.json) >/dev/null || fail "$layout, $split shared: not the threaded run's figures"
    if [[ -f t.sp ]]; then cmp -s t.sp m.sp || fail "$layout, $split shared: not the threaded run's netlist"; fi
    [[ $(grep -c '^layout ' m.stdout) == 1 ]] || fail "$layout, $split shared: the summary is not printed once"
    grep -q "on 2 processes x 1 thread ($split shared)" m.stdout || fail "$layout, $split shared: $(grep '^run' m.stdout)"
    grep -q '^processes: 2; ' m.log || fail "$layout, $split shared: the log has no line on the exchanges"
    rm -f m.json m.out m.log m.sp
  done
  rm -f t.json t.out t.log t.sp
done

# Three masters on two processes share blocks; eight share out whole.
mpi -n 2 "$torva" extract bus.cap3d -n 1 --out-file a.out --log-file a.log >a.stdout 2>&1
grep -q "(blocks shared)" a.stdout || fail "three masters on two processes: $(grep '^run' a.stdout)"
mpi -n 2 "$torva" extract crossing.bin -p 0.2 -c 1 -n 1 --masters net0,net1,net2,net3,net4,net5,net6,net7 \
  --out-file a.out --log-file a.log >a.stdout 2>&1
grep -q "(masters shared)" a.stdout || fail "eight masters on two processes: $(grep '^run' a.stdout)"

# One process cannot read its layout (mpirun gives each its own command line).
mpi -n 1 "$torva" extract bus.cap3d --out-file b.out --log-file b.log : \
  -n 1 "$torva" extract missing.cap3d --out-file b.out --log-file b.log >b.stdout 2>b.stderr
status=$?
[[ $status == 1 ]] || fail "a layout one process cannot read: status $status"
[[ $(grep -c 'torva: error' b.stderr) == 1 ]] && grep -q 'torva: error: process 1 of 2: cannot open "missing.cap3d"' b.stderr ||
  fail "a layout one process cannot read: $(grep 'torva' b.stderr)"
[[ ! -e b.out ]] || fail "a layout one process cannot read: the out-file was written"
# None can: the message of the plain run, once.
mpi -n 2 "$torva" extract missing.cap3d >b.stdout 2>b.stderr
status=$?
[[ $status == 1 && $(grep -c 'torva: error' b.stderr) == 1 ]] &&
  grep -q '^torva: error: cannot open "missing.cap3d"' b.stderr || fail "no process can read: status $status, $(cat b.stderr)"

# A process killed while the walks go: mpirun ends the others, with a failure status.
timeout 60 "$mpiexec" --oversubscribe --bind-to none -n 2 "$torva" extract crossing.bin -p 1e-4 --split blocks -n 1 \
  --out-file k.out --log-file k.log >k.stdout 2>k.stderr &
guard=$!
launcher= ranks=
for _ in $(seq 100); do
  sleep 0.1
  launcher=$(pgrep -P "$guard")
  [[ -n $launcher ]] && ranks=$(pgrep -P "$launcher" | tr '\n' ' ')
  [[ $(wc -w <<<"$ranks") == 2 ]] && break
done
sleep 1
if [[ $(wc -w <<<"$ranks") == 2 ]]; then
  SECONDS=0
  kill -9 "${ranks%% *}"
  wait "$guard"
  status=$?
  ((status != 0 && status != 124 && SECONDS < 30)) || fail "a killed process: status $status after $SECONDS s"
  [[ ! -e k.out ]] || fail "a killed process: the out-file was written"
else
  fail "a killed process: the two processes were not found (launcher '$launcher', ranks '$ranks')"
  wait "$guard"
fi

((failures == 0)) && echo "all MPI checks passed"
exit $((failures != 0))
