# The life of the packages on one machine, from which people expect that their data and settings outlive it. In a root of its own.
set -eu
export DEBIAN_FRONTEND=noninteractive
data=/var/lib/brenloft
get() { apt-get -q -y -o Dpkg::Use-Pty=0 "$@" >/log 2>&1 || { cat /log; fail "apt-get $*"; }; }
fail() { echo "FAIL: $*"; exit 1; }
readings() { brenloft history count --container $data; }

get update
get install --no-install-recommends /first/*.deb
brenloft --version
getent passwd brenloft >/dev/null || fail "no user"
brenloft config check >/dev/null || fail "the settings that are shipped are wrong"
brenloft scan --source demo --history --log --container $data --format none
kept=$(readings)
[ "$kept" -gt 0 ] || fail "nothing was kept"

echo '# mine' >>/etc/brenloft/brenloft.toml
get install --no-install-recommends -o Dpkg::Options::=--force-confold /later/*.deb
dpkg-query -W -f '${Version}\n' brenloft | grep -q later || fail "no upgrade"
grep -q mine /etc/brenloft/brenloft.toml || fail "an upgrade has replaced somebody's settings"
[ "$(readings)" = "$kept" ] || fail "an upgrade has lost readings"

get remove brenloft
grep -q mine /etc/brenloft/brenloft.toml || fail "removed, the settings are gone"
[ -s $data/history.sqlite ] || fail "removed, the history is gone"
get purge brenloft
[ ! -e /etc/brenloft ] || fail "purged, /etc/brenloft stays"
[ -s $data/history.sqlite ] || fail "purged without being asked, the history is gone"

get install --no-install-recommends /later/brenloft_*.deb
[ "$(readings)" = "$kept" ] || fail "installed again, it does not find its history"
echo 'brenloft brenloft/purge_data boolean true' | debconf-set-selections
get purge brenloft
[ ! -e $data ] || fail "purged with the answer yes, the data stay"
get purge 'libbrenloftsdk*' brenloft-doc python3-brenloft
rest=$(find / -xdev \( -path /proc -o -path /first -o -path /later -o -path /tmp \) -prune -o -iname '*brenloft*' -print)
[ -z "$rest" ] || fail "left behind: $rest"
echo "ok: installed, upgraded, removed, purged"
