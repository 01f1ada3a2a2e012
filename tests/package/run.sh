#!/usr/bin/env bash
# What becomes of the packages on a machine: lintian, piuparts, a life with data in it, and the tests in debian/tests that need no
# machine of their own. As root; the system that they are tried in is a minimal Debian 12, made once.
#
#   tests/package/run.sh PACKAGES [STEP...]     PACKAGES: what ./package has built
#                                               STEP: lintian, piuparts, life, autopkgtest; all without one
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
packages=$(realpath "$1") && shift
steps=("$@")
((${#steps[@]})) || steps=(lintian piuparts life autopkgtest)
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

life() {
  local root=$work/root
  mkdir -p "$root"
  tar -xf "$minimal" -C "$root"
  mkdir "$root/first" "$root/later"
  cp "${debs[@]}" "$root/first"
  make_later "$root/later"
  cp "$here/life.sh" "$root/"
  cp /etc/resolv.conf "$root/etc/"
  unshare --mount --pid --fork sh -c 'mount -t proc proc "$1/proc"; mount -t tmpfs tmpfs "$1/run"; exec chroot "$1" sh /life.sh' \
    sh "$root"
}

autopkgtest() {
  local root=$work/tested
  mkdir -p "$root"
  tar -xf "$minimal" -C "$root"
  # What needs a machine is skipped, and said to be: status 2.
  # shellcheck disable=SC2016
  unshare --mount sh -c 'mount -t proc proc "$1/proc"; root=$1; shift; exec autopkgtest --apt-upgrade -B "$@" -- chroot "$root"' \
    sh "$root" "${debs[@]}" "$packages"/*.dsc || [[ $? == 2 ]]
}

[[ -f $minimal ]] || mmdebstrap --quiet --variant=minbase --skip=cleanup/apt/lists bookworm "$minimal"
for step in "${steps[@]}"; do
  echo "== package: $step"
  "$step"
done
