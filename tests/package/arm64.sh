#!/bin/sh
# The packages for arm64, run by an emulator, beside those for amd64: what both make of the same is the same, octet by octet. In a
# root of its own, with captures in /captures.
set -eu
export DEBIAN_FRONTEND=noninteractive
get() { apt-get -q -y --no-install-recommends -o Dpkg::Use-Pty=0 "$@" >/log 2>&1 || { cat /log; fail "apt-get $*"; }; }
fail() { echo "FAIL: $*"; exit 1; }
amd64() { brenloft-amd64 "$@"; }
arm64() { qemu-aarch64-static /usr/bin/brenloft "$@"; }

# both ARGUMENT...: each in a folder of its own
compared=0
both() {
  for kind in amd64 arm64; do
    (cd "/$kind" && { $kind "$@" >out 2>err || echo "status $?" >>err; })
  done
  same out && same err || fail "they differ: brenloft $*"
}
same() { # same FILE
  cmp "/amd64/$1" "/arm64/$1" || return
  compared=$((compared + $(wc -c <"/arm64/$1")))
}

dpkg --add-architecture arm64
get update
get install qemu-user-static /amd64/brenloft_*.deb
cp /usr/bin/brenloft /usr/local/bin/brenloft-amd64
get install /arm64/brenloft_*.deb /arm64/libbrenloftsdk*.deb
[ "$(dpkg-query -W -f '${Architecture}' brenloft)" = arm64 ] || fail "it is not the one for arm64"
arm64 --version

start=2026-01-01T00:00Z # the demonstration's own time
for format in jsonl csv table readings influx; do both scan --source demo --format $format; done
both hear --source demo --format jsonl
both range --source demo --uuid 51C70E2A-9B44-4D1F-8A63-2FD075E81C36 --format jsonl
both scan --source demo --history --log --container kept --format none
[ "$(arm64 history count --container /arm64/kept)" -gt 0 ] || fail "nothing was kept"
for format in jsonl csv table; do both history show --container kept --since $start --format $format; done
[ "$(wc -l </arm64/out)" -gt 200 ] || fail "the history shows little"
both history show --container kept --since $start --every 10s
both log show --container kept
both beacons --container kept
arm64 history show --container /amd64/kept --since $start --format jsonl >/arm64/out
amd64 history show --container /amd64/kept --since $start --format jsonl >/amd64/out
same out || fail "arm64 does not read what amd64 has kept"
both simulate --beacons 20 --ibeacons 5 --seconds 600 --out simulated
same simulated || fail "they simulate differently"
both scan --source capture:simulated --format jsonl
for capture in /captures/*; do both hear --source "capture:$capture" --format jsonl; done
echo "ok: $compared octets compared, of $(find /captures -type f | wc -l) captures, too"
