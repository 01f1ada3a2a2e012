#!/usr/bin/env bash
# What an attacker costs who sends 8,000 advertisements a second: each with an address, a service UUID and 22 octets of
# its own (new), or as an emergency of one known beacon (spoofed). Each search hears a part of a day as fast as it can,
# first a tenth of that part, then the whole, so that growth shows. On the left is what was measured, on the right the
# day that follows from it.
#
#   bench/day.sh BUILD [MINUTES]   BUILD: the bench preset's folder; MINUTES: the longest part, of 1440 (default 60)
set -euo pipefail
attacker=$(realpath "$1")/bench/attacker tool=$(realpath "$1")/tools/brenloft/brenloft
most=${2:-60}
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

# heard KIND SECONDS OPTION…: processor seconds, memory in MB, rows and MB of the log.
heard() {
  local kind=$1 seconds=$2
  shift 2
  rm -rf "$folder/log"
  "$attacker" capture "$kind" 8000 "$seconds" |
    /usr/bin/time -o "$folder/time" -f '%U %S %M' "$tool" scan -q -F jsonl -C "$folder/log" -s capture:- "$@" >/dev/null 2>"$folder/err" ||
    { cat "$folder/err" >&2; return 1; }
  local rows=0 size=0
  if [[ " $* " == *" --log "* ]]; then
    rows=$("$tool" log count -C "$folder/log" 2>/dev/null) || rows=0  # nothing was logged
    size=$(du -sm "$folder/log" | cut -f1)
  fi
  echo "$(awk 'END { print $1 + $2, $3 / 1024 }' "$folder/time") $rows $size"
}

# leg KIND MINUTES OPTION…
leg() {
  local kind=$1 minutes=$(($2 < most ? $2 : most))
  shift 2
  echo "$(heard "$kind" $((minutes * 6)) "$@") $(heard "$kind" $((minutes * 60)) "$@")" | awk -v kind="$kind" \
    -v options="$*" -v minutes="$minutes" '{
      all = minutes * 480000
      # What grew in the last nine tenths goes on; less than a MB is none.
      memory = $6 - $2 < 1 ? 0 : ($6 - $2) / 0.9 / minutes
      disk = ($8 - $4) / 0.9 / minutes
      printf "| %s | %s | %d min | %.2f µs | %.0f, %.0f MB | %d | %d MB | %.0f s | %.1f GB | %.1f GB |\n",
        kind, options == "" ? "none" : "`" options "`", minutes, $5 * 1e6 / all, $2, $6, $7, $8,
        $5 / minutes * 1440, ($2 + memory * 1440) / 1024, ($4 + disk * 1440) / 1024 }'
}

echo "| sent | options | heard | processor for each | memory after a tenth, and all | rows | log | a day: processor | memory | log |"
echo "| --- | --- | --- | --- | --- | --- | --- | --- | --- | --- |"
leg new 10
leg new 2 --log
leg new 1440 --uuid FFF0 --max-beacons 500 --log
leg new 1440 --max-beacons 500 --log
leg new 1440 --new-per-minute 10 --log
leg new 1440 --min-rssi -50 --log
leg spoofed 2 --log
leg spoofed 1440 --min-rssi -50 --log

# A limit of the log is kept on real time.
echo "spoofed, live for a minute: --log --log-max 20M"
rm -rf "$folder/log"
"$attacker" live spoofed 8000 60 "$tool" scan -q -F none -C "$folder/log" --log --log-max 20M | tail -1
echo "the log's folder then: $(du -sm "$folder/log" | cut -f1) MB, $("$tool" log count -C "$folder/log") rows"
