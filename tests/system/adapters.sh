#!/bin/sh
# Whose adapter it is: two programs on one, a stranger under its number, rfkill, a daemon that was killed.
. /stage/check.sh
block() { printf '\0\0\0\0\002\003\001\0' > /dev/rfkill; }    # every Bluetooth switch, as rfkill does
unblock() { printf '\0\0\0\0\002\003\000\0' > /dev/rfkill; }
STRANGER=C0:00:00:00:00:99
echo "adv x addr=$STRANGER interval=100 flags=06 mfg=0988:01" > /tmp/stranger
rig_vbeacon 0 -s /tmp/beacons || exit 1

rig_log "--- two programs"
hear first "" --source 'hci:0?user'; first=$hearing
ok "the first hears" rig_wait 15 more_than first $SENSOR 3
hear second "" --source hci:0
ok "the second says that the adapter is taken" rig_wait 10 says second 'another program has hci0 (00:AA:01:00:00:42) to itself'
brenloft sources > /out/sources-taken.txt 2>&1
ok "sources says so, too" grep -q '^hci:0 *in use' /out/sources-taken.txt
kill -TERM "$first"; wait "$first"
ok "takes it over when the first has ended" rig_wait 8 more_than second $SENSOR 0
ok "and blamed no controller" sh -c '! grep -q "no answer" /out/second.err'
radio 0 detach
ok "says that it was unplugged" rig_wait 5 says second 'hci0 (00:AA:01:00:00:42) was unplugged'
radio 0 attach
ok "hears on after it was unplugged" hears_on second $SENSOR 20
stop_hearing

rig_log "--- a stranger takes the number"
hear auto "" --source auto
ok "auto hears" rig_wait 15 more_than auto $SENSOR 3
radio 0 detach; sleep 1
mkfifo /run/vb9
vbeacon -f /run/vb9 -a 00:AA:01:00:00:99 -s /tmp/stranger > /out/vb9.log 2>&1 &
ok "another adapter is hci0" rig_wait 10 rig_have_hci 0
ok "auto says which one it waits for" rig_wait 10 says auto 'waiting for adapter 00:AA:01:00:00:42; there is hci0 (00:AA:01:00:00:99)'
radio 0 attach
ok "hears its own again, under another number" hears_on auto $SENSOR 20
ok "and nothing of the stranger's" sh -c "! grep -q $STRANGER /out/auto.jsonl"
stop_hearing
radio 9 quit; sleep 1; radio 0 detach; sleep 1; radio 0 attach; sleep 1

rig_log "--- rfkill"
block
hear blocked "" --source hci:0
ok "HCI: says what frees it" rig_wait 10 says blocked "blocked by software; 'rfkill unblock bluetooth'"
unblock
ok "HCI: hears when it is free" rig_wait 15 more_than blocked $SENSOR 0
stop_hearing
radio 0 dup none
rig_bluetoothd 0 || exit 1
hear bluez "$TESTER" --source bluez
ok "bluetoothd: hears" rig_wait 20 more_than bluez $SENSOR 3
block
ok "bluetoothd: says what frees it" rig_wait 10 says bluez "blocked by software; 'rfkill unblock bluetooth'"
unblock
ok "bluetoothd: hears on" hears_on bluez $SENSOR 20

rig_log "--- bluetoothd is killed"
for round in 1 2 3; do
    kill -9 $RIG_BLUETOOTHD_PID; wait $RIG_BLUETOOTHD_PID
    rig_bluetoothd 0 || exit 1
    ok "hears on when the controller's scan has run out" hears_on bluez $SENSOR 13
done
stop_hearing
finish
