#!/usr/bin/env bash
# What becomes of the packages on a machine: lintian, piuparts, a life with data in it, the tests in debian/tests that need no
# machine of their own, and the services under systemd in a virtual machine (tests/system). As root; the system that they are
# tried in is a minimal Debian 12, made once.
#
#   tests/package/run.sh PACKAGES [STEP...]     PACKAGES: what ./package has built
#                                               STEP: lintian, piuparts, life, autopkgtest, services; these without one;
#                                               arm64: the packages for arm64 in an emulator, built where there are none
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
root=$(cd "$here/../.." && pwd)
. "$root/tests/system/machine.sh"
packages=$(realpath "$1") && shift
steps=("$@")
((${#steps[@]})) || steps=(lintian piuparts life autopkgtest services)
minimal=$packages/../package-minimal.tar.gz
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

mapfile -t debs < <(find "$packages" -maxdepth 1 -name "*.deb" ! -name "*-dbgsym_*")

# Debian's archive, its bugs and its translators have nothing to do with these packages.
lintian() {
  command lintian --fail-on error,warning --suppress-tags initial-upload-closes-no-bugs,bogus-mail-host "$packages"/*.changes
}

# The same packages as a later version, which is what an upgrade sees
make_later() {
  local deb
  for deb in "${debs[@]}"; do
    dpkg-deb -R "$deb" "$work/unpacked"
    sed -i -E 's/^(Version: .*)/\1+later/; s/\(= ([^)]*)\)/(= \1+later)/g' "$work/unpacked/DEBIAN/control"
    dpkg-deb -b "$work/unpacked" "$1" >/dev/null
    rm -rf "$work/unpacked"
  done
}

# Installed, upgraded, removed, purged: nothing is left that Debian forbids.
piuparts() {
  command piuparts -b "$minimal" -d bookworm --no-eatmydata --warn-on-leftovers-after-purge --no-upgrade-test "${debs[@]}"
}

# Both versions, for an upgrade: in FOLDER/first and FOLDER/later
both_versions() {
  mkdir "$1/first" "$1/later"
  cp "${debs[@]}" "$1/first"
  make_later "$1/later"
}

in_root() { # in_root ROOT SCRIPT
  cp /etc/resolv.conf "$1/etc/"
  # shellcheck disable=SC2016
  unshare --mount --pid --fork sh -c 'mount -t proc proc "$1/proc"; mount -t tmpfs tmpfs "$1/run"; exec chroot "$1" sh "$2"' \
    sh "$1" "$2"
}

life() {
  local system=$work/system
  mkdir -p "$system"
  tar -xf "$minimal" -C "$system"
  both_versions "$system"
  cp "$here/life.sh" "$system/"
  in_root "$system" /life.sh
}

autopkgtest() {
  local system=$work/tested
  mkdir -p "$system"
  tar -xf "$minimal" -C "$system"
  # What needs a machine is skipped, and said to be: status 2.
  # shellcheck disable=SC2016
  unshare --mount sh -c 'mount -t proc proc "$1/proc"; root=$1; shift; exec autopkgtest --apt-upgrade -B "$@" -- chroot "$root"' \
    sh "$system" "${debs[@]}" "$packages"/*.dsc || [[ $? == 2 ]]
}

# In a root that also has arm64's libraries. The captures are the fuzz seeds and, where there are some, those of tests/tool.
arm64() {
  local system=$work/both
  [[ -d $packages-arm64 ]] || "$root/package" --arch arm64
  mkdir -p "$system"
  tar -xf "$minimal" -C "$system"
  mkdir "$system"/{amd64,arm64,captures}
  cp "${debs[@]}" "$system/amd64"
  cp "$packages"-arm64/{brenloft,libbrenloftsdk{1,-dev}}_*.deb "$system/arm64"
  cp "$root"/fuzz/seeds/{Btsnoop,Pcap,Pcapng}Fuzz/* "$system/captures"
  find "${BRENLOFT_CAPTURES:-$root/../shared/captures}" -regex '.*\.\(btsnoop\|pcap\|pcapng\)' -exec cp {} "$system/captures" \; || true
  cp "$here/arm64.sh" "$system/"
  in_root "$system" /arm64.sh
}

services() {
  local stage=$work/stage
  have_machine || return 0
  make_machine
  mkdir "$stage"
  both_versions "$stage"
  # shellcheck disable=SC2154 # set by in_machine
  under_systemd() { "$root/tests/system/systemd.sh" -t 1800 -o "$results" "$stage" "$here/services.sh"; }
  in_machine services under_systemd
}

[[ -f $minimal ]] || mmdebstrap --quiet --variant=minbase --skip=cleanup/apt/lists bookworm "$minimal"
for step in "${steps[@]}"; do
  echo "== package: $step"
  "$step"
done
