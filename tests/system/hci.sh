#!/bin/sh
# Over the kernel's HCI sockets: the user channel and the raw channel, as root and as an unprivileged user.
. /stage/check.sh
rig_vbeacon 0 -s /tmp/beacons || exit 1

rig_log "--- what is offered"
brenloft sources > /out/sources-root.txt 2>&1
$TESTER brenloft sources > /out/sources-tester.txt 2>&1
ok "root is offered HCI"             grep -q '^hci:0 *usable' /out/sources-root.txt
ok "auto takes it"                   grep -q 'auto: hci:00:AA:01:00:00:42: ' /out/sources-root.txt
ok "others are told what permits it" grep -q "^hci:0 *not permitted.*setcap 'cap_net_raw,cap_net_admin+eip' /stage/bin/brenloft" /out/sources-tester.txt
ok "not permitted: status 4"         status_is 4 $TESTER brenloft hear --source hci:0
ok "and one line that helps"         grep -q 'AmbientCapabilities=CAP_NET_RAW CAP_NET_ADMIN' /run/status.out
ok "no such adapter: status 3"       status_is 3 brenloft hear --source hci:7
ok "nothing permitted for auto: 4"   status_is 4 $TESTER brenloft hear --source auto

rig_log "--- user channel"
for who in root tester; do
    wrapper=; [ $who = root ] || wrapper=$MAY_TAKE
    hear "user-$who" "$wrapper" --source hci:0?user --record "/tmp/$who.btsnoop"
    rig_wait 10 rig_scanning 0 active; sleep 3
    ok "$who: stopped by a signal with status 0" stop_hearing
    ok_heard "user-$who"
    ok "$who: every advertisement ($(lines "user-$who" $SENSOR))" more_than "user-$who" $SENSOR 15
    ok "$who: the scan has ended" rig_wait 5 sh -c '! grep -o "scan o[nf]*" /out/vb0.log | tail -1 | grep -q on'
    brenloft hear --format jsonl --source "capture:/tmp/$who.btsnoop" > "/out/replay-$who.jsonl" 2> "/out/replay-$who.err"
    ok "$who: the recording replays the same" cmp "/out/user-$who.jsonl" "/out/replay-$who.jsonl"
done

rig_log "--- raw channel"
hciconfig hci0 up
for who in root tester; do
    wrapper=; [ $who = root ] || wrapper=$MAY_SHARE
    hear "raw-$who" "$wrapper" --source hci:00:AA:01:00:00:42?raw
    rig_wait 10 rig_scanning 0 active; sleep 3
    stop_hearing
    ok_heard "raw-$who"
done
if [ -x /stage/bin/setcap ]; then
    cp /stage/bin/brenloft /tmp/brenloft; setcap 'cap_net_raw,cap_net_admin+eip' /tmp/brenloft
    $TESTER /tmp/brenloft hear --format jsonl --source hci:0 -n 20 > /out/setcap.jsonl 2> /out/setcap.err
    ok "with setcap, too" more_than setcap '"address"' 19
fi

rig_log "--- raw channel beside bluetoothd"
radio 0 dup none
rig_bluetoothd 0 || exit 1
hear beside "" --source hci:0
rig_wait 10 rig_scanning 0
rig_discover 4 > /out/discover.txt  # starts and ends a scan of its own
ok "hears on after somebody else ended the scan" hears_on beside $SENSOR 20
power() { busctl --system set-property org.bluez /org/bluez/hci0 org.bluez.Adapter1 Powered b $1; }
power false
ok "says that it is switched off, and what brings it up" rig_wait 10 says beside "hci0 is down; 'bluetoothctl power on'"
sleep 6  # longer than the longest pause between two looks
ok "leaves it switched off" sh -c '! hciconfig hci0 | grep -q UP'
ok "leaves it to bluetoothd, which switches it on again" power true
ok "and hears on" hears_on beside $SENSOR 30
stop_hearing
ok "the reason was said once" [ "$(grep -c 'is down' /out/beside.err)" -eq 1 ]

rig_log "--- scan and range"
brenloft scan -q --source hci:0 --uuid FFF0 -t 4 --format jsonl > /out/scan.jsonl 2> /out/scan.err
ok "scan tells the sensor's readings" grep -q '"event":"beacon"' /out/scan.jsonl
brenloft range -q --source hci:0 --uuid 00010203-0405-0607-0809-0a0b0c0d0e0f --group 2 -t 6 --format jsonl \
    > /out/range.jsonl 2> /out/range.err
ok "range tells the iBeacon" grep -q '"event":"ranged".*513' /out/range.jsonl

rig_log "--- a controller of bluez-test-tools behind a socket"
btvirt -l1 -s > /out/btvirt.log 2>&1 &
rig_wait 10 rig_have_hci 1; hciconfig hci1 up
send() { hcitool -i hci1 cmd 0x08 "$@" > /dev/null; }
send 0x0006 a0 00 a0 00 03 00 00 00 00 00 00 00 00 07 00  # 100 ms, cannot be connected to
send 0x0008 1b 02 01 06 17 ff 88 09 01 02 03 04 05 06 07 08 09 10 11 12 13 14 15 16 17 18 19 ff 00 00 00 00
hear emulated "" --source h4:unix:/tmp/bt-server-le
# It sends one report for each beginning.
advertise() { send 0x000a 00; send 0x000a 01; more_than emulated "8809$FRAME" 9; }
ok "the frame, again and again" rig_wait 20 advertise
ok "without a strength, which it does not tell" has emulated '"rssi":127'
ok "stopped by a signal with status 0" stop_hearing
finish
