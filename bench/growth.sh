#!/usr/bin/env bash
# How the cost of an advertisement and of a ranging report grows with the beacons: bench/growth.tsv, and pictures of it
# in docs.
#
#   bench/growth.sh PROGRAMS
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
manager=$1/bench_manager
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
export TMPDIR=$folder

# cost WHAT BEACONS: nanoseconds of the processor, the least of three runs, and instructions of each.
cost() {
  local count nanoseconds
  for _ in 1 2 3; do "$manager" "$@"; done | sort -g -k2 | head -1 >"$folder/time"
  read -r count nanoseconds <"$folder/time"
  rm -f "$folder"/count*
  valgrind -q --tool=callgrind --callgrind-out-file="$folder/count" "$manager" "$@" >/dev/null
  printf '%s\t%d\t%s\t%d\n' "$1" "$2" "$nanoseconds" \
    $(($(awk '/^totals:/ { print $2 }' "$folder/count.1") / count))
}

{
  printf '# What\tbeacons\tns of the processor\tinstructions; written by: ./test bench --growth\n'
  for beacons in 1 10 100 1000 10000 100000; do
    cost known "$beacons"
    ((beacons < 100)) || cost new "$beacons"
    cost ranged "$beacons"
  done
} >"$folder/growth.tsv"
cp "$folder/growth.tsv" "$root/bench/growth.tsv"
"$root/bench/growth.py" "$root/bench/growth.tsv" "$root/docs"
