#!/usr/bin/env bash
# What floods over an H4 socket cost the tool, and how soon it ends on Ctrl-C while they go on.
#
#   bench/flood.sh ATTACKER TOOL [SECONDS]   default: 60 for each; ten minutes are 600
set -euo pipefail
attacker=$1 tool=$2 seconds=${3:-60}

# flood TEXT SECONDS [--stalled] KIND RATE ARGUMENT…
flood() {
  local text=$1 seconds=$2 stalled=()
  shift 2
  if [[ $1 == --stalled ]]; then stalled=(--stalled); shift; fi
  echo "== $text, $seconds s: brenloft ${*:3}"
  timeout -k 5 $((seconds + 120)) "$attacker" live "${stalled[@]}" "$1" "$2" "$seconds" "$tool" "${@:3}"
}

flood "8,000 new UUIDs a second, Ctrl-C in the middle" $((seconds / 2)) new 8000 scan -q -F jsonl
flood "8,000 new UUIDs a second, Ctrl-C at the end" "$seconds" new 8000 scan -q -F jsonl
flood "the same with a limit" "$seconds" new 8000 scan -q -F jsonl --max-beacons 500
flood "10,000 new senders a second, nobody reads" "$seconds" --stalled new 10000 scan -q -F jsonl
flood "10,000 a second of 200 beacons, nobody reads" "$seconds" --stalled 200 10000 scan -q -F jsonl
flood "1,000 a second of 50 beacons" "$seconds" 50 1000 scan -q -F jsonl
