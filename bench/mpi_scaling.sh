#!/usr/bin/env bash
# Walks per second of the MPI build under mpirun with 1, 2 and 4 processes of
# one walking thread each, and what an exchange costs, on a generated layout
# of crossing wires (four layers, SIZE segments):
# - blocks: two masters, the blocks of each round shared by the processes,
#   WALKS walks per master (the precision too tight to stop them first);
# - masters: sixteen masters shared out whole, WALKS/8 walks each.
# Every exchange starts with a barrier (--mpi-timing), so the log tells the
# exchange's own cost from the wait for the slowest process. More processes
# than cores share the cores (mpirun --oversubscribe): the table says so.
#
#   bench/mpi_scaling.sh [BUILD_DIR]      (default build-mpi, configured with -DTORVA_MPI=ON)
#   environment: SIZE (10000), WALKS (400000), RANKS ("1 2 4"), MPIEXEC (mpirun)
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build-mpi}
torva=$PWD/$build/tools/torva
size=${SIZE:-10000} walks=${WALKS:-400000} ranks_list=${RANKS:-1 2 4} mpiexec=${MPIEXEC:-mpirun}
[[ -x $torva ]] || { echo "no $torva: configure $build with -DTORVA_MPI=ON and build it" >&2; exit 1; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
"$torva" gen crossing --size "$size" --layers 4 layout.cap3d >/dev/null
cores=$(nproc)
echo "layout: crossing wires, $size segments, 4 layers; $cores cores; one walking thread per process"
printf "%-8s %6s %10s %9s %10s %8s %14s %12s\n" split ranks walks seconds walks/s rounds "ms/exchange" "waiting s"
for split in blocks masters; do
  if [[ $split == blocks ]]; then
    masters=net10,net20 per_master=$walks
  else
    masters=$(seq -s, -f 'net%g' 0 10 150) per_master=$((walks / 8))
  fi
  for n in $ranks_list; do
    OMPI_ALLOW_RUN_AS_ROOT=1 OMPI_ALLOW_RUN_AS_ROOT_CONFIRM=1 \
      "$mpiexec" --oversubscribe --bind-to none -n "$n" "$torva" extract layout.cap3d -n 1 -p 1e-6 -c 1e-6 \
      --masters "$masters" --max-walks "$per_master" --split "$split" --mpi-timing \
      --json run.json --out-file run.out --log-file run.log >/dev/null
    total=$(sed -n 's/^ "walks": \[\(.*\)\],$/\1/p' run.json | tr -d ' ' | tr ',' '\n' | awk '{s += $1} END {print s}')
    seconds=$(sed -n 's/^ "seconds": \(.*\),$/\1/p' run.json)
    # One process has no exchanges; with several, the log's line on them.
    rounds=0 per_exchange=- waiting=-
    if line=$(grep '^processes: ' run.log); then
      rounds=$(sed -n 's/.*; \([0-9]*\) gathers.*/\1/p' <<<"$line")
      per_exchange=$(sed -n 's/.*; \([0-9.e+-]*\) ms per round.*/\1/p' <<<"$line")
      waiting=$(sed -n 's/.*after \([0-9.e+-]*\) s waiting.*/\1/p' <<<"$line")
    fi
    note=""
    ((n > cores)) && note="  (oversubscribed: $n processes on $cores cores)"
    printf "%-8s %6d %10d %9.3f %10.0f %8s %14s %12s%s\n" "$split" "$n" "$total" "$seconds" \
      "$(awk -v w="$total" -v s="$seconds" 'BEGIN {print w / s}')" "$rounds" "$per_exchange" "$waiting" "$note"
  done
done
