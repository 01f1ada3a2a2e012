# shellcheck shell=bash
# What ./package does. Sourced, with $root set and tools/build.sh read.

packages=$root/build/packages
clean_root=$root/build/package-root
build_packages="dpkg-buildpackage --no-sign --build=${build:-full}"
dependencies="apt-get -q -y --no-install-recommends build-dep"
foreign=()
version=$(sed -n '1s/.*(\(.*\)).*/\1/p' "$root/debian/changelog")
folder=brenloftsdk-${version%-*}
SOURCE_DATE_EPOCH=$(date -d "$(sed -n 's/^ -- .*>  //p' "$root/debian/changelog" | head -1)" +%s)
export SOURCE_DATE_EPOCH DEB_BUILD_OPTIONS="parallel=$(nproc) ${DEB_BUILD_OPTIONS:-}"

# for_arch ARCH: what follows is built for another kind of machine, by this one's compilers. What is the same on all, sources and
# documentation, is left to the packages of this one.
for_arch() {
  local here
  here=$(dpkg --print-architecture)
  [[ $1 == amd64 || $1 == arm64 ]] || { say "packages are made for amd64 and arm64, not for '$1'"; exit 2; }
  [[ $1 != "$here" ]] || return 0
  packages+=-$1 clean_root+=-$1
  foreign=(--architectures="$here,$1" --include="crossbuild-essential-$1")
  dependencies+=" --host-architecture $1 --build-profiles cross"
  DEB_BUILD_OPTIONS+=" crossbuildcanrunhostbinaries"
  build_packages="dpkg-buildpackage --no-sign --build=any --host-arch $1 --build-profiles=cross"
}

as_root() { if ((EUID)); then sudo --preserve-env=SOURCE_DATE_EPOCH,DEB_BUILD_OPTIONS "$@"; else "$@"; fi; }

# The project as it stands, without what git ignores, and beside it the archive that Debian calls the original.
unpack_source() {
  rm -rf "$packages" && mkdir -p "$packages/$folder"
  (cd "$root" && git ls-files -z -co --exclude-standard | while IFS= read -r -d '' file; do
    [[ ! -e $file && ! -L $file ]] || printf '%s\0' "$file"
  done | tar -c --null --verbatim-files-from -T -) | tar -x -C "$packages/$folder"
  tar -C "$packages" -cJf "$packages/brenloftsdk_${version%-*}.orig.tar.xz" --sort=name --owner=0 --group=0 \
    --mtime="@$SOURCE_DATE_EPOCH" --exclude "$folder/debian" "$folder"
}

# A Debian 12 with what debian/control asks for, made anew when that changes.
make_root() {
  [[ ! $clean_root/made -nt $root/debian/control ]] || return 0
  say "making a clean Debian 12 in ${clean_root#"$root/"}"
  as_root rm -rf "$clean_root"
  # shellcheck disable=SC2016
  quietly package-root as_root mmdebstrap --variant=buildd --skip=cleanup/apt/lists "${foreign[@]}" \
    --customize-hook='mkdir "$1/project"' --customize-hook="copy-in '$root/debian' /project" \
    --customize-hook="chroot \"\$1\" $dependencies /project" \
    bookworm "$clean_root"
  as_root touch "$clean_root/made"
}

# By nobody, who reaches no network
build_in_root() {
  say "building $version in it"
  as_root rm -rf "$clean_root/build"
  as_root cp -r "$packages" "$clean_root/build"
  as_root chown -R 65534:65534 "$clean_root/build"
  # shellcheck disable=SC2016
  quietly "${packages##*/}" as_root unshare --net --mount --pid --fork sh -c 'mount -t proc proc "$1/proc" &&
    HOME=/build exec chroot --userspec=65534:65534 "$1" sh -c "cd /build/$2 && $3"' \
    sh "$clean_root" "$folder" "$build_packages"
  as_root rm -rf "$clean_root/build/$folder"
  as_root cp "$clean_root"/build/*.* "$packages"
  as_root chown -R "$(id -u):$(id -g)" "$packages"
}

build_here() {
  say "building $version here"
  (cd "$packages/$folder" && quietly "${packages##*/}" $build_packages)
}

show_packages() {
  say "in ${packages#"$root/"}:"
  (cd "$packages" && ls -sh ./*.deb)
}
