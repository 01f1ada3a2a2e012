#!/bin/sh
# Through bluetoothd, as an unprivileged user, with each kind of duplicate filter.
. /stage/check.sh
ok "no radio at all: status 3" status_is 3 $TESTER brenloft hear --source auto
ok "and what to do without"    grep -q -e '--source demo' /run/status.out
rig_vbeacon 0 -s /tmp/beacons || exit 1
ok "no bluetoothd: status 3"   status_is 3 $TESTER brenloft hear --source bluez
rig_bluetoothd 0 || exit 1

rig_log "--- root and tester"
radio 0 dup none
for who in root tester; do
    wrapper=; [ $who = root ] || wrapper=$TESTER
    hear "bluez-$who" "$wrapper" --source bluez --record "/tmp/$who.btsnoop"
    rig_wait 10 rig_scanning 0 active; sleep 4
    ok "$who: stopped by a signal with status 0" stop_hearing
    ok_heard "bluez-$who"
    ok "$who: refreshes ($(lines "bluez-$who" $SENSOR))" more_than "bluez-$who" $SENSOR 15
    brenloft hear --format jsonl --source "capture:/tmp/$who.btsnoop" > "/out/replay-$who.jsonl" 2> "/out/replay-$who.err"
    ok "$who: the recording replays the same" cmp "/out/bluez-$who.jsonl" "/out/replay-$who.jsonl"
done
hear auto "$TESTER" --source auto
rig_wait 10 more_than auto $SENSOR 0
stop_hearing
ok "auto says that it chose bluetoothd and why" says auto 'through bluetoothd: HCI is not permitted'

rig_log "--- what was known before"
radio 0 'stop *'
hear silent "$TESTER" --source bluez:00:AA:01:00:00:42
rig_wait 10 rig_scanning 0; sleep 2
ok "is not told as if heard now" sh -c '! grep -q address /out/silent.jsonl'
radio 0 'start *'
ok "what is heard now is" rig_wait 15 more_than silent $SENSOR 0
stop_hearing

rig_log "--- duplicate filters"
for filter in data addr; do
    radio 0 dup $filter; radio 0 adv sensor flags=06 uuid16=FFF0 mfg=0988:$FRAME
    hear "dup-$filter" "$TESTER" --source bluez:hci0
    rig_wait 15 more_than "dup-$filter" $SENSOR 0
    radio 0 adv sensor flags=06 uuid16=FFF0 mfg=0988:02${FRAME#01}
    ok "$filter: a change of the data is heard" rig_wait 30 has "dup-$filter" "$SENSOR.*880902${FRAME#01}"
    stop_hearing
done
brenloft scan -q --source bluez --exit-time 5 -t 60 --format jsonl > /out/warned.jsonl 2> /out/warned.err
ok "warned that the exit time is too short" grep -q 'usually heard every' /out/warned.err
finish
