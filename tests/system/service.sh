#!/bin/sh
# The service as it is installed, under systemd: an upgrade, through bluetoothd, and over HCI with its drop-in.
. /check/check.sh
PRESENT='"event":"found","id":"06-07-' LOST='"event":"lost","id":"06-07-'

restart() { systemctl daemon-reload; begun=$(date '+%F %T'); systemctl restart "$@"; }
told() { journalctl -u brenloft --since "$begun" -o cat --no-pager > /out/told.txt; grep -c "$1" /out/told.txt; }
has_told() { [ "$(told "$1")" -ge "$2" ]; }  # has_told PATTERN COUNT
rows() { brenloft log count --container /var/lib/brenloft; }
hear_from() { sed -i "s/^source = .*/source = \"$1\"/" /etc/brenloft/brenloft.toml; }
runs_as() { [ "$(stat -c %U "$(process brenloft)")" = "$1" ]; }
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

rig_log "--- shown, by a process that may read the history and no more"
ok "starts" restart brenloft-serve
ok "/healthz says that something listens" wait_for 60 page_has /healthz '"ok"'
ok "the sensor is on the page" page_has /api/beacons '06-07-'
ok "under a user that systemd made up" [ "$(stat -c %u "$(process brenloft-serve)")" -ge 61184 ]
little_exposed brenloft-serve
systemctl stop brenloft-serve
ok "stops in order" is Result success brenloft-serve

rig_log "--- published, by a process that may read the history and no more"
printf '[publish]\nbroker = "mqtt://127.0.0.1"\ngateway = "vm"\n' >> /etc/brenloft/brenloft.toml
printf 'vm\nhush\n' | install -m 600 /dev/stdin /etc/brenloft/mqtt-login
mkdir -p /etc/systemd/system/brenloft-publish.service.d
printf '[Service]\nLoadCredential=mqtt-login:/etc/brenloft/mqtt-login\n' > /etc/systemd/system/brenloft-publish.service.d/login.conf
mosquitto_passwd -b -c /etc/mosquitto/users vm hush
chown mosquitto /etc/mosquitto/users
printf 'listener 1883 127.0.0.1\nallow_anonymous false\npassword_file /etc/mosquitto/users\n' > /etc/mosquitto/conf.d/vm.conf
ok "the broker starts" systemctl start mosquitto
mosquitto_sub -h 127.0.0.1 -u vm -P hush -t 'brenloft/#' -v > /out/mqtt.txt &
subscriber=$!
ok "starts" restart brenloft-publish
ok "it is online" wait_for 60 has_published '^brenloft/vm/status online' 0
ok "what is heard from now on arrives" wait_for 60 has_published '^brenloft/vm/batch .*"event":"reading"' 3
ok "under a user that systemd made up" [ "$(stat -c %u "$(process brenloft-publish)")" -ge 61184 ]
ok "its cursor is its own" [ "$(stat -L -c %a /var/lib/private/brenloft-publish/cursor.json)" = 600 ]
ok "nothing in the history's folder is" [ -z "$(find /var/lib/brenloft ! -user brenloft)" ]
kill $subscriber  # the password is in its arguments
wait $subscriber
ok "the password is in nobody's arguments" sh -c '! grep -l hus[h] /proc/[0-9]*/cmdline'
ok "nor in its environment" sh -c "! grep -q hush $(process brenloft-publish)/environ"
ok "nor in the journal" sh -c '! journalctl --no-pager | grep hus[h]'
ok "and a crash leaves no core" grep -q '^Max core file size  *0  *0 ' "$(process brenloft-publish)/limits"
little_exposed brenloft-publish
mosquitto_sub -h 127.0.0.1 -u vm -P hush -t 'brenloft/#' -v > /out/mqtt.txt &
systemctl stop brenloft
ok "the gateway stops in order" is Result success
systemctl restart brenloft-publish
ok "without the gateway it is online" wait_for 60 has_published '^brenloft/vm/info' 0
systemctl start brenloft
ok "and goes on with it" wait_for 60 has_published '^brenloft/vm/batch .*"event":"reading"' 3
systemctl stop brenloft-publish
ok "stops in order" is Result success brenloft-publish
ok "and is offline" wait_for 10 has_published '^brenloft/vm/status offline' 0
ok "nothing has ended it meanwhile" is NRestarts 0 brenloft-publish
systemctl stop brenloft
ok "the gateway stops in order" is Result success
finish
