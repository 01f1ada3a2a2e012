#!/bin/sh
# Unplugging, a restart of bluetoothd, failing commands and malformed events, on both kinds of controllers.
. /stage/check.sh

rig_log "--- HCI, a controller of Bluetooth 4"
rig_vbeacon 0 -s /tmp/beacons || exit 1
radio 0 fail 200c 0c 1
hear hci "" --source hci:0
ok "hears although a command failed" rig_wait 30 more_than hci $SENSOR 3
radio 0 event 3e 0201030016000000c01f0201
radio 0 event 3e 02ff
radio 0 event 3e ''
radio 0 raw 0a00
ok "hears on after malformed events" hears_on hci $SENSOR 10
radio 0 detach; sleep 2; radio 0 attach
ok "hears on after it was unplugged" hears_on hci $SENSOR 40
ok "and has said so" says hci 'poweredOff (waiting for adapter hci0'
radio 0 fail 200b 0c 2
radio 0 detach; sleep 1; radio 0 attach
ok "hears on although it comes back failing" hears_on hci $SENSOR 60
ok "ends well" stop_hearing

rig_log "--- HCI, a controller of Bluetooth 5"
rig_vbeacon 1 -e -a 00:AA:01:00:00:43 || exit 1
radio 1 adv long addr=C0:00:00:00:00:21 ext=1 sid=3 flags=06 uuid128=12345678-1234-5678-9abc-def012345678 mfg=1234:000102030405060708090a0b0c0d0e0f10111213
radio 1 adv short addr=C0:00:00:00:00:22 type=ind flags=06 mfg=1234:22 rsp.name=Legacy
hear extended "" --source hci:00:AA:01:00:00:43 --record /tmp/extended.btsnoop
ok "over 31 octets" rig_wait 15 has extended 'C0:00:00:00:00:21.*3412000102030405060708090a0b0c0d0e0f10111213'
ok "legacy advertisements, too" rig_wait 15 has extended 'C0:00:00:00:00:22.*341222'
ok "by extended scanning" grep -q 'scan on.*ext=1' /out/vb1.log
radio 1 detach; sleep 2; radio 1 attach
ok "hears on after it was unplugged" hears_on extended 00:00:21 40
stop_hearing
brenloft hear --format jsonl --source capture:/tmp/extended.btsnoop > /out/replay-extended.jsonl 2> /out/replay-extended.err
ok "the recording replays the same" cmp /out/extended.jsonl /out/replay-extended.jsonl

rig_log "--- bluetoothd"
radio 0 dup none
rig_bluetoothd 0 || exit 1
hear bluez "$TESTER" --source bluez:00:AA:01:00:00:42
rig_wait 15 more_than bluez $SENSOR 3
kill $RIG_BLUETOOTHD_PID; wait $RIG_BLUETOOTHD_PID
ok "says that bluetoothd went away" rig_wait 5 says bluez 'bluetoothd went away'
rig_bluetoothd 0 || exit 1
ok "hears on after a restart of bluetoothd" hears_on bluez $SENSOR 30
radio 0 detach; sleep 2
ok "says that the adapter is gone" says bluez 'has no adapter 00:AA:01:00:00:42'
radio 0 attach
ok "hears on after it was unplugged" hears_on bluez $SENSOR 40
busctl --system set-property org.bluez /org/bluez/hci0 org.bluez.Adapter1 Powered b false
ok "says that it is switched off" rig_wait 10 says bluez 'switched off'
busctl --system set-property org.bluez /org/bluez/hci0 org.bluez.Adapter1 Powered b true
ok "hears on when it is on again" hears_on bluez $SENSOR 40
radio 0 event 3e 02ff; radio 0 raw 0a00
ok "hears on after malformed events" hears_on bluez $SENSOR 20
ok "ends well" stop_hearing
finish
