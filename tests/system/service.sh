#!/bin/sh
# The service as it is installed, under systemd: an upgrade, through bluetoothd, and over HCI with its drop-in.
. /check/check.sh
PRESENT='"event":"found","id":"06-07-' LOST='"event":"lost","id":"06-07-'

wait_for() {  # wait_for SECONDS COMMAND...: looking is slow here, so it is time that counts
    end=$(($(date +%s) + $1)); shift
    until "$@"; do [ "$(date +%s)" -lt $end ] || return 1; sleep 1; done
}
restart() { systemctl daemon-reload; begun=$(date '+%F %T'); systemctl restart "$@"; }
told() { journalctl -u brenloft --since "$begun" -o cat --no-pager > /out/told.txt; grep -c "$1" /out/told.txt; }
has_told() { [ "$(told "$1")" -ge "$2" ]; }  # has_told PATTERN COUNT
rows() { brenloft log count --container /var/lib/brenloft; }
readings() { brenloft history count --container /var/lib/brenloft; }
has_read() { [ "$(readings)" -ge "$1" ]; }  # has_read COUNT
hear_from() { sed -i "s/^source = .*/source = \"$1\"/" /etc/brenloft/brenloft.toml; }
is() { [ "$(systemctl show brenloft -P "$1")" = "$2" ]; }
runs_as() { [ "$(stat -c %U "/proc/$(systemctl show brenloft -P MainPID)")" = "$1" ]; }
drop_ins=/etc/systemd/system/brenloft.service.d

cp -a /check/installed/. / && systemd-sysusers || exit 1
mkdir -p $drop_ins

rig_log "--- what an installation under a user that systemd made up has left"
printf '[Service]\nDynamicUser=yes\nUser=gateway\nGroup=gateway\n' > $drop_ins/old.conf
hear_from demo
restart brenloft
ok "it has ended" wait_for 60 is ActiveState inactive
ok "and kept rows" [ "$(brenloft log count --container /var/lib/private/brenloft)" -gt 0 ]
earlier=$(rows); rm $drop_ins/old.conf
rm /var/lib/private/brenloft/history.sqlite*  # its beacons would be lost below
hear_from auto

rig_log "--- through bluetoothd, by a controller that reports a beacon once in each scan"
rig_vbeacon 0 -s /tmp/beacons || exit 1
radio 0 dup addr
ok "starts" restart bluetooth brenloft
ok "under its own user" runs_as brenloft
ok "the sensor is there" wait_for 60 has_told "$PRESENT" 1
ok "beside the rows of the earlier one" [ "$(rows)" -gt "$earlier" ]
sleep 70
ok "and stays: no loss that never was" [ "$(told "$LOST")" -eq 0 ]
ok "every reading is kept" [ "$(readings)" -gt 3 ]
ok "with few words ($(told .) lines)" [ "$(told .)" -lt 10 ]
radio 0 'stop *'
ok "silent, it is lost" wait_for 60 has_told "$LOST" 1
radio 0 'start *'
ok "heard, it returns" wait_for 60 has_told "$PRESENT" 2
ok "nothing has ended it meanwhile" is NRestarts 0
systemctl stop brenloft
ok "stops in order" is Result success

rig_log "--- over HCI"
systemctl disable --now bluetooth
cp /usr/local/share/brenloft/hci.conf $drop_ins/
hear_from 'hci:0?user'
kept=$(rows) read=$(readings)
ok "starts" restart brenloft
ok "under its own user" runs_as brenloft
# It was there when the service was stopped, so nothing tells of it anew.
ok "the sensor is there" wait_for 60 has_read $((read + 10))
ok "without bluetoothd" [ "$(systemctl is-active bluetooth)" = inactive ]
ok "and is kept" [ "$(rows)" -gt "$kept" ]
systemctl stop brenloft
ok "stops in order" is Result success
finish
