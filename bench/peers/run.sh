#!/usr/bin/env bash
# The tool beside what Debian and npm have for the same work, in one table. What is missing is installed; what cannot
# be had is left out, and said to be.
#
#   bench/peers/run.sh BUILD FOLDER     BUILD: the bench preset's folder; FOLDER keeps captures and what npm installs
#
# Processor time (user and system) is the least of three runs, of the whole process but where said otherwise.
# Instructions are valgrind's, without the start: those for a longer capture less those for a shorter one.
set -uo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
build=$(realpath "$1")
programs=$build/bench tool=$build/tools/brenloft/brenloft
mkdir -p "$2"
cd "$2" || exit 1
rm -f apt-update.log  # once for all that is missing
tell() { echo "$*" >&2; }

# have PROGRAM PACKAGE
have() {
  command -v "$1" >/dev/null && return
  local as_root=()
  if ((EUID)); then as_root=(sudo -n); fi
  [[ -f apt-update.log ]] || "${as_root[@]}" apt-get -q update >apt-update.log 2>&1
  "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -q -y --no-install-recommends install "$2" >"$2.log" 2>&1 && return
  tell "$1 cannot be had here (Debian's $2): left out"
  return 1
}
have_npm() {
  [[ -d node/node_modules/$1 ]] && return
  have npm npm && npm install --ignore-scripts --no-audit --no-fund --prefix node "$1" >npm.log 2>&1 && return
  tell "$1 cannot be had here (npm): left out"
  return 1
}

# processor COMMAND...: seconds of user and system time, the least of three runs.
processor() {
  local TIMEFORMAT='%U %S'
  for _ in 1 2 3; do { time "$@" >/dev/null 2>&1; } 2>&1; done | awk '{ print $1 + $2 }' | sort -g | head -1
}
counted() {
  valgrind -q --tool=callgrind --callgrind-out-file=callgrind.out "$@" >/dev/null 2>&1
  awk '/^totals:/ { print $2 }' callgrind.out
}

# row WORK PROGRAM MICROSECONDS INSTRUCTIONS: the first of a work is what the others are beside.
row() {
  if [[ $1 != "${work:-}" ]]; then work=$1 ours=$3; fi
  awk -v work="$1" -v program="$2" -v time="$3" -v count="$4" -v ours="$ours" 'BEGIN {
    printf "| %s | %s | %.2f | %s | %.1f |\n", work, program, time, count, time / ours }'
}
# on_capture WORK NAME COMMAND...: with FILE for the capture.
on_capture() {
  local work_of=$1 name=$2 seconds instructions
  shift 2
  seconds=$(processor "${@/FILE/long.btsnoop}")
  instructions=$(($(counted "${@/FILE/middle.btsnoop}") - $(counted "${@/FILE/short.btsnoop}")))
  row "$work_of" "$name" "$(awk "BEGIN { print $seconds * 1e6 / $long }")" $((instructions / (middle - short)))
}
# in_process WORK NAME COMMAND...: prints the reports and the microseconds of each.
in_process() {
  local result
  result=$("${@:3}") && row "$1" "$2" "${result#* }" "" || tell "$2 fails: left out"
}

capture() {
  "$tool" simulate --beacons 100 --seconds "$2" --out "$1.btsnoop" && "$tool" hear -s "capture:$1.btsnoop" -F jsonl | wc -l
}
long=$(capture long 900) middle=$(capture middle 20) short=$(capture short 5)
echo "| work | program | µs of processor | instructions | times ours |"
echo "| --- | --- | --- | --- | --- |"

work_text="a report of a capture to text"
on_capture "$work_text" "brenloft hear -F csv" "$tool" hear -F csv -s capture:FILE
on_capture "$work_text" "brenloft hear -F jsonl" "$tool" hear -F jsonl -s capture:FILE
have hcidump bluez-hcidump && on_capture "$work_text" "hcidump -r" hcidump -r FILE
have btmon bluez && on_capture "$work_text" "btmon -r" btmon -r FILE
have tshark tshark && on_capture "$work_text" "tshark -T fields, of six" tshark -r FILE -T fields -e frame.time_epoch \
  -e bthci_evt.bd_addr -e bthci_evt.rssi -e btcommon.eir_ad.entry.uuid_16 -e btcommon.eir_ad.entry.company_id \
  -e btcommon.eir_ad.entry.data

work_merge="a report of a capture to its advertisement"
merged() { BENCH_CAPTURE=$PWD/$1.btsnoop "${@:2}" "$programs/bench_capture" --benchmark_filter=fileTo "${options[@]}" 2>/dev/null; }
options=(--benchmark_format=csv) seconds=$(merged long | awk -F, '/^"file/ { print 1 / $7 }')
options=(--benchmark_min_time=0)
merged middle valgrind -q --tool=callgrind --callgrind-out-file=callgrind.out --zero-before='benchmark::State::StartKeepRunning()' \
  --dump-before='benchmark::State::FinishKeepRunning()' >/dev/null
row "$work_merge" "the platform's reader and merger" "$(awk "BEGIN { print $seconds * 1e6 }")" \
  $(($(awk '/^totals:/ { print $2 }' callgrind.out.1) / middle))
have node nodejs && {
  have_npm @stoprocent/noble && in_process "$work_merge" "noble, events in memory" node "$here/peer.js" noble "$PWD/node" long.btsnoop
  have_npm advlib-ble && in_process "$work_merge" "advlib-ble, structures in memory" node "$here/peer.js" advlib "$PWD/node" long.btsnoop
}
/usr/bin/python3 -c 'import scapy' 2>/dev/null || have scapy python3-scapy
/usr/bin/python3 -c 'import scapy' 2>/dev/null &&
  in_process "$work_merge" "scapy, events in memory" /usr/bin/python3 "$here/peer.py" middle.btsnoop

work_save="a row saved in the log"
saved=$("$programs/bench_store" 1000 | sed -n 's/.*time [0-9.]*: \([0-9.]*\) and \([0-9.]*\) us.*/\1 \2/p')
row "$work_save" "the library" "${saved% *}" ""
row "$work_save" "SQLite alone, a prepared INSERT" "${saved#* }" ""

work_log="a row of the log to a JSON document"
rm -rf log
"$programs/attacker" capture spoofed 8000 5 | "$tool" scan --log -C log -q -F none -s capture:-
rows=$("$tool" log count -C log)
on_log() {
  local seconds
  seconds=$(processor "${@:2}")
  row "$work_log" "$1" "$(awk "BEGIN { print $seconds * 1e6 / $rows }")" $(($(counted "${@:2}") / rows))
}
on_log "brenloft log export" "$tool" log export -C log
have sqlite3 sqlite3 && on_log "sqlite3 -json" sqlite3 -json log/ServiceModel.sqlite 'SELECT * FROM SensorLog'
