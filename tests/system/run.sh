#!/usr/bin/env bash
# Runs the checks of this folder in a virtual machine that has the kernel's Bluetooth, bluetoothd and scripted
# controllers; `service` in one that systemd starts.
#
#   tests/system/run.sh [-p PROGRAM] [CHECK...]     CHECK: hci, bluez, faults, adapters, service; all without one
#
# PROGRAM       the brenloft to test; default: the release build's, which `service` installs in any case
# BRENLOFT_VM_RIG   the folder with the machine's build.sh, stage.sh and run.sh; default: ../shared/bluez-vm beside
#               the project. Without it the checks are skipped, and said to be (status 0).
# BLUEZ_VM_DIR  where the machine is built, and the results of each check are kept
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
root=$(cd "$here/../.." && pwd)
rig=${BRENLOFT_VM_RIG:-$root/../shared/bluez-vm}
export BLUEZ_VM_DIR=${BLUEZ_VM_DIR:-${TMPDIR:-/tmp}/bluez-vm}
program=$root/build/release/tools/brenloft/brenloft

while getopts p: option; do
  case $option in
    p) program=$OPTARG ;;
    *) sed -n '2,12s/^# \{0,1\}//p' "$0" >&2; exit 2 ;;
  esac
done
shift $((OPTIND - 1))
checks=("$@")
[[ ${#checks[@]} -gt 0 ]] || checks=(hci bluez faults adapters service)

if [[ ! -x $rig/run.sh ]]; then
  echo "system tests: SKIPPED, there is no machine at $rig (BRENLOFT_VM_RIG names another folder)"
  exit 0
fi
[[ -x $program ]] || { echo "system tests: no program at $program; build it first" >&2; exit 1; }

if [[ ! -f $BLUEZ_VM_DIR/base.cpio ]]; then
  echo "system tests: building the machine in $BLUEZ_VM_DIR"
  mkdir -p "$BLUEZ_VM_DIR"
  "$rig/build.sh" > "$BLUEZ_VM_DIR/build.log" 2>&1 || { tail -20 "$BLUEZ_VM_DIR/build.log" >&2; exit 1; }
fi

stage=$(mktemp -d)
trap 'rm -rf "$stage"' EXIT
programs=("$program")
for setcap in /usr/sbin/setcap /sbin/setcap; do
  if [[ -x $setcap ]]; then programs+=("$setcap"); break; fi
done
"$rig/stage.sh" "$stage" "${programs[@]}"
cp "$here/check.sh" "$stage/"

run_check() {  # run_check NAME OUT_DIR
  if [[ $1 == service ]]; then
    DESTDIR=$stage/installed cmake --install "$root/build/release" --strip > /dev/null
    "$here/systemd.sh" -t 900 -o "$2" "$stage/installed" "$here/service.sh"
  else
    "$rig/run.sh" -q -t 420 -o "$2" "$stage" "$here/$1.sh"
  fi
}

failed=0
for check in "${checks[@]}"; do
  out=$BLUEZ_VM_DIR/results/$check
  mkdir -p "$out"
  echo "== system tests: $check (results in $out)"
  if run_check "$check" "$out"; then status=0; else status=$?; fi
  grep -E '^(ok|FAIL|\[)' "$out/test.log" || true
  [[ $status -eq 0 ]] || { echo "== $check failed, status $status"; failed=1; }
done
exit "$failed"
