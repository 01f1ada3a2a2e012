# Helpers of the checks that run in the virtual machine. Sourced; POSIX sh.
. /rig/lib.sh
failures=0

ok() {  # ok DESCRIPTION COMMAND...
    what=$1; shift
    if "$@" > /dev/null 2>&1; then echo "ok    $what"; else echo "FAIL  $what"; failures=$((failures + 1)); fi
}
finish() { rig_log "$failures failed"; [ "$failures" -eq 0 ]; exit; }

# A program with capabilities of its own is not given LD_LIBRARY_PATH.
[ ! -d /stage/lib ] || cp /stage/lib/* /usr/lib/x86_64-linux-gnu/

radio() { i=$1; shift; echo "$*" > "/run/vb$i"; }  # radio INDEX COMMAND...: to the scripted controller

# The unprivileged user, without and with one of the capabilities that a unit's AmbientCapabilities gives.
TESTER="setpriv --reuid tester --regid tester --clear-groups"
MAY_TAKE="$TESTER --inh-caps +net_admin --ambient-caps +net_admin"
MAY_SHARE="$TESTER --inh-caps +net_raw --ambient-caps +net_raw"

# hear NAME WRAPPER OPTION...: starts `brenloft hear`; its output in /out/NAME.jsonl and /out/NAME.err
hear() {
    name=$1 wrapper=$2; shift 2
    : > "/out/$name.jsonl"
    $wrapper brenloft hear --format jsonl "$@" > "/out/$name.jsonl" 2> "/out/$name.err" & hearing=$!
}
stop_hearing() { kill -TERM "$hearing"; wait "$hearing"; }

lines() { grep -c "$2" "/out/$1.jsonl"; }                      # lines NAME PATTERN
has() { grep -q "$2" "/out/$1.jsonl"; }
says() { grep -q "$2" "/out/$1.err"; }
more_than() { [ "$(lines "$1" "$2")" -gt "$3" ]; }             # more_than NAME PATTERN COUNT
hears_on() { before=$(lines "$1" "$2"); rig_wait "$3" more_than "$1" "$2" "$before"; }  # NAME PATTERN SECONDS
status_is() { wanted=$1; shift; "$@" > /run/status.out 2>&1; [ $? -eq "$wanted" ]; }

SENSOR=C0:00:00:00:00:01 IBEACON=C0:00:00:00:00:02 NAMED=00:11:22:33:44:55
FRAME=01020304050607080910111213141516171819ff
cat > /tmp/beacons <<'B'
adv sensor addr=C0:00:00:00:00:01 rssi=-55 interval=100 flags=06 uuid16=FFF0 mfg=0988:01020304050607080910111213141516171819ff
adv region addr=C0:00:00:00:00:02 rssi=-70 interval=150 flags=06 ibeacon=00010203-0405-0607-0809-0a0b0c0d0e0f,1,513,-59
adv named addr=00:11:22:33:44:55 atype=public type=scan rssi=-80 interval=300 flags=06 mfg=1234:aabb rsp.uuid128=12345678-1234-5678-9abc-def012345678 rsp.name=Third
B

# What every transport must have heard of them.
ok_heard() {
    ok "$1: the sensor frame, its service and strength" \
        sh -c "grep '$SENSOR' /out/$1.jsonl | grep -F '\"rssi\":-55' | grep -F FFF0 | grep -F 8809$FRAME"
    ok "$1: its readings" sh -c "grep '$SENSOR' /out/$1.jsonl | grep -q '\"readings\":{'"
    ok "$1: the iBeacon" has "$1" "$IBEACON.*4c000215000102030405060708090a0b0c0d0e0f00010201c5"
    ok "$1: the service in the scan response" has "$1" "$NAMED.*12345678-1234-5678-9ABC-DEF012345678"
}

# Of the services under systemd
wait_for() {  # wait_for SECONDS COMMAND...: looking is slow here, so it is time that counts
    end=$(($(date +%s) + $1)); shift
    until "$@"; do [ "$(date +%s)" -lt $end ] || return 1; sleep 1; done
}
is() { [ "$(systemctl show "${3:-brenloft}" -P "$1")" = "$2" ]; }  # is PROPERTY VALUE [UNIT]
process() { echo "/proc/$(systemctl show "$1" -P MainPID)"; }  # process UNIT
readings() { brenloft history count --container /var/lib/brenloft; }
has_read() { [ "$(readings)" -ge "$1" ]; }  # has_read COUNT
page_has() { wget -q -O - "http://127.0.0.1:8880$1" > /out/page.txt && grep -q "$2" /out/page.txt; }  # page_has PATH PATTERN
published() { grep -c "$1" /out/mqtt.txt; }  # published PATTERN
has_published() { [ "$(published "$1")" -gt "$2" ]; }  # has_published PATTERN COUNT
little_exposed() {  # little_exposed UNIT
    systemd-analyze security --no-pager "$1" > "/out/security-$1.txt"
    ok "little is exposed ($(tail -n 1 "/out/security-$1.txt"))" grep -q 'exposure.*: [01]\.' "/out/security-$1.txt"
}
