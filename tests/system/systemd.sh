#!/usr/bin/env bash
# Boots a whole Debian under its own systemd, with the kernel, modules and controllers of the machine that the
# other checks run in, and runs one check as root.
#
#   tests/system/systemd.sh [-t SECONDS] -o OUT_DIR STAGE SCRIPT
#
# STAGE     in the machine as /check/installed
# OUT_DIR   shared with the system as /out: test.log, exit-code, journal.log, console.log
# -t        bound on the whole run; default 600
# The exit status is the script's; 124 when the time ran out, 125 when the machine ended without a result.
#
# The system is made once, in $BLUEZ_VM_DIR, as root; the packages come from the Debian mirror.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
work=${BLUEZ_VM_DIR:-/tmp/bluez-vm}
limit=600 out=
while getopts t:o: option; do
  case $option in
    t) limit=$OPTARG ;;
    o) out=$(realpath "$OPTARG") ;;
    *) sed -n '2,13s/^# \{0,1\}//p' "$0" >&2; exit 125 ;;
  esac
done
shift $((OPTIND - 1))
[[ -n $out && $# -eq 2 ]] || { sed -n '2,13s/^# \{0,1\}//p' "$0" >&2; exit 125; }
stage=$1 script=$2

pack() { (cd "$1" && find . | LC_ALL=C sort | cpio -o -H newc --quiet "${@:2}"); }

# What an installed brenloft needs, a broker for it, and not more than a boot in emulation needs: no udev, no documentation.
make_system() {
  local system=$work/system needed
  needed=$(awk '$1 == "run" { $1 = ""; print }' "$here/../../packaging/debian-packages")
  rm -rf "$system"
  mmdebstrap --variant=minbase --include="systemd-sysv dbus bluez mosquitto mosquitto-clients $needed" bookworm "$system"
  rm -rf "$system"/usr/share/{doc,man,locale,perl,zoneinfo} "$system"/usr/lib/udev/hwdb* \
    "$system"/usr/lib/*/{perl,gconv} "$system"/var/{cache,lib}/apt "${system:?}"/dev/*
  cp -a "$work"/root/lib/modules "$system/usr/lib/"
  cp "$work/root/usr/bin/vbeacon" "$system/usr/bin/"
  cp "$work/pkg/bin/busybox" "$system/usr/bin/"
  ln -s busybox "$system/usr/bin/usleep"
  ln -s busybox "$system/usr/bin/wget"
  ln -sf lib/systemd/systemd "$system/init"
  install -D -m 644 "$work/root/rig/lib.sh" "$system/rig/lib.sh"
  pack "$system" > "$work/system.cpio.new"
  mv "$work/system.cpio.new" "$work/system.cpio"
  rm -rf "$system"
}

if [[ ! $work/system.cpio -nt $here/../../packaging/debian-packages || ! $work/system.cpio -nt ${BASH_SOURCE[0]} ]]; then
  echo "system tests: making a Debian with systemd in $work"
  make_system > "$work/system.log" 2>&1 || { tail -20 "$work/system.log" >&2; exit 125; }
fi

mkdir -p "$out"
rm -f "$out"/{exit-code,test.log,console.log,journal.log}
tmp=$(mktemp -d "$work/tmp.XXXXXX")
trap 'rm -rf "$tmp"' EXIT
mkdir -p "$tmp/root/check"
cp -a "$stage" "$tmp/root/check/installed"
install -D -m 755 "$script" "$tmp/root/check/script"
install -m 755 "$here/check.sh" "$here/systemd-guest.sh" "$tmp/root/check/"
install -D -m 644 "$here/check.service" "$tmp/root/etc/systemd/system/check.service"
{ cat "$work/system.cpio"; pack "$tmp/root" -R 0:0; } > "$tmp/initrd"
rm -rf "$tmp/root"

masked=
for unit in systemd-udevd systemd-udev-trigger systemd-logind systemd-networkd systemd-resolved \
  systemd-timesyncd systemd-hwdb-update systemd-update-done systemd-journal-catalog-update ldconfig; do
  masked+=" systemd.mask=$unit.service"
done
status=0
timeout -k 5 "$limit" qemu-system-x86_64 -accel "${RIG_ACCEL:-tcg}" -cpu max -smp 2 -m "${RIG_MEM:-1536}" \
  -nodefaults -no-reboot -display none -serial stdio -kernel "$work/kernel" -initrd "$tmp/initrd" \
  -append "console=ttyS0 quiet panic=-1 mitigations=off systemd.unit=check.service systemd.firstboot=no$masked" \
  -device virtio-rng-pci -virtfs "local,path=$out,mount_tag=out,security_model=none,id=out" \
  < /dev/null > "$out/console.log" 2>&1 || status=$?
if [[ -s $out/exit-code ]]; then exit "$(cat "$out/exit-code")"; fi
[[ $status -ne 124 && $status -ne 137 ]] || { echo "systemd.sh: the $limit s are over" >&2; exit 124; }
tail -20 "$out/console.log" >&2
echo "systemd.sh: the machine ended without a result" >&2
exit 125
