#!/usr/bin/env bash
# Runs the checks of this folder in a virtual machine that has the kernel's Bluetooth, bluetoothd and scripted
# controllers; `service` in one that systemd starts.
#
#   tests/system/run.sh [-p PROGRAM] [CHECK...]     CHECK: hci, bluez, faults, adapters, service; all without one
#
# PROGRAM       the brenloft to test; default: the release build's, which `service` installs in any case
# Without a machine (machine.sh) the checks are skipped, and said to be (status 0).
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
root=$(cd "$here/../.." && pwd)
. "$here/machine.sh"
program=$root/build/release/tools/brenloft/brenloft

while getopts p: option; do
  case $option in
    p) program=$OPTARG ;;
    *) sed -n '2,9s/^# \{0,1\}//p' "$0" >&2; exit 2 ;;
  esac
done
shift $((OPTIND - 1))
checks=("$@")
[[ ${#checks[@]} -gt 0 ]] || checks=(hci bluez faults adapters service)

have_machine || exit 0
[[ -x $program ]] || { echo "system tests: no program at $program; build it first" >&2; exit 1; }

make_machine

stage=$(mktemp -d)
trap 'rm -rf "$stage"' EXIT
programs=("$program")
for setcap in /usr/sbin/setcap /sbin/setcap; do
  if [[ -x $setcap ]]; then programs+=("$setcap"); break; fi
done
"$rig/stage.sh" "$stage" "${programs[@]}"
cp "$here/check.sh" "$stage/"

run_check() {  # run_check NAME: its results go into $results
  if [[ $1 == service ]]; then
    DESTDIR=$stage/installed cmake --install "$root/build/release" --strip > /dev/null
    "$here/systemd.sh" -t 900 -o "$results" "$stage/installed" "$here/service.sh"
  else
    "$rig/run.sh" -q -t 420 -o "$results" "$stage" "$here/$1.sh"
  fi
}

failed=0
for check in "${checks[@]}"; do
  in_machine "$check" run_check "$check" || failed=1
done
exit "$failed"
