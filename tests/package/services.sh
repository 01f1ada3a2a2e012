#!/bin/sh
# The services of the packages under systemd, with a scripted controller: they start when somebody asks, hear, keep, show and
# publish, through an upgrade, until they are removed.
. /check/check.sh
packages=/check/installed data=/var/lib/brenloft services="brenloft brenloft-serve brenloft-publish"
export DEBIAN_FRONTEND=noninteractive

get() { apt-get -q -y -o Dpkg::Use-Pty=0 "$@" >> /out/apt.txt 2>&1; }
all_are() { for service in $services; do is ActiveState "$1" "$service" || return; done; }  # all_are STATE
processes() { for service in $services; do process "$service"; done; }
work() {  # work: what is heard from now on arrives everywhere
    seen=$(readings) sent=$(published '"event":"reading"')
    ok "readings arrive in the history" wait_for 60 has_read $((seen + 4))
    ok "on the page" wait_for 60 page_has /api/beacons '"beacon":"06-07-'
    ok "which says that something listens" page_has /healthz '"status":"ok"'
    ok "and at the broker" wait_for 60 has_published '"event":"reading"' "$sent"
}
data_stay() { [ -s $data/history.sqlite ] && [ "$(find $data -name '*.sqlite' | wc -l)" -gt 1 ]; }

rig_vbeacon 0 -s /tmp/beacons || exit 1
radio 0 dup none
systemctl start bluetooth mosquitto
mosquitto_sub -h 127.0.0.1 -t 'brenloft/#' -v > /out/mqtt.txt &

rig_log "--- installed"
ok "is installed" get install $packages/first/brenloft_*.deb
ok "and starts nothing" all_are inactive
printf '[publish]\nbroker = "mqtt://127.0.0.1"\ngateway = "vm"\n' >> /etc/brenloft/brenloft.toml
ok "enabled, they start" systemctl enable --now $services
ok "at the next boot, too" systemctl is-enabled $services
work

rig_log "--- upgraded"
before=$(processes) kept=$(readings)
ok "is upgraded" get install $packages/later/brenloft_*.deb
ok "to the later version" sh -c 'dpkg-query -W -f "\${Version}" brenloft | grep later'
ok "all run again" wait_for 60 all_are active
for process in $before; do ok "none as before" [ ! -e "$process" ]; done
ok "no reading is lost" [ "$(readings)" -ge "$kept" ]
work
for service in $services; do ok "nothing has ended $service meanwhile" is NRestarts 0 $service; done

rig_log "--- removed"
before=$(processes)
ok "is removed" get remove brenloft
ok "all have ended" wait_for 60 all_are inactive
for process in $before; do ok "gone" [ ! -e "$process" ]; done
ok "the units, too" [ -z "$(systemctl list-unit-files --no-legend 'brenloft*')" ]
ok "history and log stay" data_stay

rig_log "--- purged"
ok "is purged" get purge brenloft
ok "history and log stay, as nobody has asked" data_stay
ok "is installed again" get install $packages/later/brenloft_*.deb
echo 'brenloft brenloft/purge_data boolean true' | debconf-set-selections
ok "is purged with its data" get purge brenloft
ok "history, log and the publisher's cursor are gone" \
    [ ! -e $data -a ! -e /var/lib/private/brenloft-publish -a ! -e /var/lib/brenloft-publish ]
find / -xdev \( -path /proc -o -path /check -o -path /out -o -path /tmp \) -prune -o -iname '*brenloft*' -print > /out/left.txt
ok "and nothing else is left ($(tr '\n' ' ' < /out/left.txt))" [ ! -s /out/left.txt ]
finish
