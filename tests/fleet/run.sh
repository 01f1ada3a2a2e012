#!/usr/bin/env bash
# run.sh FLEET [GATEWAYS [SECONDS [OPTION...]]]: a fleet, a broker, two collectors and a database. In the middle one collector is
# killed, and the broker is stopped and started. Every record must be in the database once.
# PostgreSQL does not run as root: root gives it to the user postgres, anybody else runs it as himself.
set -euo pipefail
fleet=$(realpath "$1") gateways=${2:-1000} seconds=${3:-60}
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
collector=$here/../../examples/collector
work=$(mktemp -d) port=${FLEET_PORT:-18839}
export PGHOST=$work/database PGUSER=postgres PGDATABASE=fleet
binaries=$(dirname "$(find /usr/lib/postgresql -name pg_ctl | sort -V | tail -1)")
declare -A pids=()

as_owner() { if ((EUID == 0)); then runuser -u postgres -- "$@"; else "$@"; fi; }
database() { as_owner "$binaries/pg_ctl" -s -D "$work/database" "$@"; }
end() {
  for pid in "${pids[@]}"; do kill -9 "$pid" 2>/dev/null || true; done
  database -m immediate stop 2>/dev/null || true
  rm -rf "$work"
}
trap end EXIT
start() {  # NAME COMMAND...
  "${@:2}" >>"$work/$1.log" 2>&1 &
  pids[$1]=$!
}
stop() {  # NAME SIGNAL
  kill "-$2" "${pids[$1]}"
  wait "${pids[$1]}" 2>/dev/null || true
}
broker() { start broker mosquitto -c "$work/broker.conf"; }
collect() { start "$1" /usr/bin/python3 "$collector/collector.py" --port "$port" --database "dbname=fleet" --id "$1"; }
# Seconds of processor and the most memory in MB.
used() {
  awk -v name="$1" 'FNR == NR { seconds = ($14 + $15) / 100; next }
    /VmHWM/ { printf "%s: %.1f s of processor, %.0f MB\n", name, seconds, $2 / 1024 }' \
    "/proc/${pids[$1]}/stat" "/proc/${pids[$1]}/status"
}
# Its processes that have ended, too.
used_by_database() {
  local server
  server=$(head -n 1 "$work/database/postmaster.pid")
  { awk '{ print ($14 + $15 + $16 + $17) / 100 }' "/proc/$server/stat"; ps -o cputimes= --ppid "$server"; } |
    awk '{ seconds += $1 } END { printf "database: %.1f s of processor\n", seconds }'
}
query() { psql -qAt -c "$1"; }

mkdir "$work/database" "$work/broker"
chmod 755 "$work"
if ((EUID == 0)); then
  chown postgres "$work/database"
  chown mosquitto "$work/broker"
fi
as_owner "$binaries/initdb" -A trust -U postgres -D "$work/database" >/dev/null
database -w -l "$work/database/log" -o "-k $work/database -h ''" start
createdb fleet
psql -q -f "$collector/schema.sql"
cat >"$work/broker.conf" <<TEXT
listener $port 127.0.0.1
allow_anonymous true
persistence true
persistence_location $work/broker/
# A collector that is away finds what it missed.
max_queued_messages 0
TEXT
ulimit -n "$(ulimit -Hn)"
broker
sleep 1
collect collector-1
collect collector-2
sleep 1
start fleet "$fleet" --port "$port" --gateways "$gateways" --seconds "$seconds" "${@:4}"
sleep $((seconds / 3))
echo "a collector is killed; rows by now: $(query 'SELECT count(*) FROM brenloft.record')"
stop collector-2 KILL
sleep $((seconds / 3))
echo "the broker is stopped, and is back after five seconds"
used broker
stop broker TERM
sleep 5
broker
echo "the collector is back"
collect collector-2
wait "${pids[fleet]}" || echo "something was never taken"
ended=$(date +%s)
tail -n 1 "$work/fleet.log"
expected=$(tail -n 1 "$work/fleet.log" | sed 's/.*connected, \([0-9]*\) readings.*/\1/')
# As long as there are more.
rows=-1
until [[ $rows == "${before:-}" ]] || ((rows >= expected)); do
  before=$rows
  sleep 20
  rows=$(query 'SELECT count(*) FROM brenloft.record')
done
echo "the collectors were done $(($(date +%s) - ended)) s after the fleet"
for name in broker collector-1 collector-2; do used "$name"; done
used_by_database
online=$(query 'SELECT count(*) FROM brenloft.gateway')
holes=$(query 'SELECT count(*) FROM (SELECT 1 FROM brenloft.record GROUP BY store HAVING max(seq) <> count(*)) AS s')
refused=$(query 'SELECT count(*) FROM brenloft.refused')
echo "$rows of $expected readings in the database, $holes histories with holes, $refused refused, $online gateways known"
((rows == expected && holes == 0 && refused == 0 && online == gateways))
