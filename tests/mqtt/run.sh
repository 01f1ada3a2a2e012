#!/usr/bin/env bash
# A simulated day through the real broker, which is stopped and killed, by a publisher that is killed a hundred times. At
# the subscriber every row must be there, and none that never was.
#   tests/mqtt/run.sh TOOL [HOURS]
set -euo pipefail
tool=$1 hours=${2:-24}
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
work=$(mktemp -d)
pids=()
finish() { exec 2>/dev/null; ((${#pids[@]})) && kill -9 "${pids[@]}" 2>/dev/null; rm -rf "$work"; }
trap finish EXIT

port=$(python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
printf 'listener %s 127.0.0.1\nallow_anonymous true\nuser root\npersistence true\npersistence_location %s/\nmax_queued_messages 0\n' \
  "$port" "$work" >"$work/conf"
start_broker() {
  mosquitto -c "$work/conf" >>"$work/broker.log" 2>&1 & broker=$!; pids+=($!)
  until mosquitto_pub -p "$port" -t up -n 2>/dev/null; do sleep 0.1; done
}
start_publisher() {
  "$tool" publish --config /dev/null --container "$work" --broker "mqtt://127.0.0.1:$port" --gateway day \
    --max-rate "$rate" "$@" 2>>"$work/publisher.log" & publisher=$!; pids+=($!)
}
end() { kill -"$1" "$2"; wait "$2" 2>/dev/null || true; } 2>/dev/null
# The subscriber's session outlives its connection, and the broker's end in order.
subscribe() { mosquitto_sub -p "$port" -c -i census -q 1 -t 'brenloft/day/batch' >>"$work/batches" 2>/dev/null & subscriber=$!; pids+=($!); }

census() { python3 "$here/census.py" "$rows" <"$work/batches"; }
wait_for_all() { for _ in $(seq 90); do ! census | grep -q complete || break; sleep 2; done; }

echo "# a day of $hours hours"
"$tool" simulate --out "$work/capture" --seconds "${hours}h" --beacons 5
"$tool" scan --config /dev/null --container "$work" --source "capture:$work/capture" --history --format none
rows=$("$tool" history count --container "$work")
echo "rows $rows"
rate=$((rows / 400 + 1)) # so that the day lasts as long as the kills: each start has a second of it at once
start_publisher --from all # absent at the start
sleep 2
start_broker; subscribe
for i in $(seq 100); do
  sleep "$((RANDOM % 5)).$((RANDOM % 10))"
  end KILL $publisher
  ((i % 20)) || { end TERM $broker; start_broker; }
  start_publisher
done
echo "at the 100th kill -9 of the publisher, after 5 restarts of the broker:"
census
wait_for_all
echo "at the end:"
census
ps -o cputime=,etimes=,rss= -p $publisher | awk '{print "publisher, not killed: processor " $1 " in " $2 " s, memory " $3 " kB"}'

# What a broker that is killed had acknowledged and not kept is gone, until the cursor is set back.
end TERM $publisher; end KILL $subscriber; : >"$work/batches"
rate=$((rows / 10))
start_publisher --from all; sleep 3; end KILL $broker; start_broker; subscribe; sleep 20
echo "after kill -9 of the broker in the middle, with rows that the subscriber had not read:"
census
end TERM $publisher; start_publisher --from all
wait_for_all
echo "after --from all:"
census | tee "$work/result"
echo "a row in a batch: $(($(wc -c <"$work/batches") / $(sed -n 's/received \([0-9]*\).*/\1/p' "$work/result"))) octets"
grep -q complete "$work/result"
