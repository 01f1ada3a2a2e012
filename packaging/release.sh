# shellcheck shell=bash
# ./package --release X.Y.Z: whether what is here can be called that. Sourced, with $root and $packages set.

wrong=0
check() { # check WHAT COMMAND...
  local what=$1
  shift
  if "$@"; then say "ok     $what"; else say "WRONG  $what"; wrong=1; fi
}

is_committed() { [[ -z $(git -C "$root" status --porcelain) ]]; }

changelog_has() { grep -qx "## ${1//./\\.}" "$root/CHANGELOG.md"; }

# What is under the next one's heading would go without a number.
nothing_is_unreleased() { [[ -z $(sed -n '/^## Unreleased/,/^## [0-9]/{/^- /p}' "$root/CHANGELOG.md") ]]; }

says() { # says FILE ACTUAL EXPECTED
  if [[ $2 == "$3" ]]; then say "ok     $1 says $3"; else say "WRONG  $1 says ${2:-no version}, not $3"; wrong=1; fi
}

version_in_cmake() { sed -n 's/^project(BrenloftSDK VERSION \([^ ]*\) .*/\1/p' "$root/CMakeLists.txt"; }
version_in_python() { sed -n 's/^version = "\(.*\)"$/\1/p' "$root/application/python/pyproject.toml"; }

packages_are() { compgen -G "$packages/brenloft_$1-*.deb" >/dev/null; }

# Not from what the sources were before the last commits
built_from_this() {
  git --git-dir="$(git -C "$root" rev-parse --absolute-git-dir)" --work-tree="$packages/$folder" diff --quiet HEAD
}

# unpack_library FOLDER: the library as it is shipped, what debuggers know of it, and its headers
unpack_library() {
  local deb
  rm -rf "$1"
  for deb in "$packages"/libbrenloftsdk{1,1-dbgsym,-dev}_*.deb; do dpkg-deb -x "$deb" "$1"; done
}

library_in() { find "$1" -name 'libBrenloftSDK.so.*.*.*' -type f | head -1; }

# The name that programs are linked with, in the file and in the name of its package
soname_is() {
  [[ $(objdump -p "$(library_in "$1")" | awk '/SONAME/ { print $2 }') == "libBrenloftSDK.so.${2%%.*}" ]] &&
    grep -qx "Package: libbrenloftsdk${2%%.*}" "$root/debian/control"
}

# Programs that were linked with the release before run with this one. What it was is built from its tag, with all that debuggers
# know of its types.
abi_holds() { # abi_holds TAG NEW
  local old=$root/build/release-before
  if [[ ! -d $old/$1 ]]; then
    git -C "$root" worktree prune
    git -C "$root" worktree add -qf "$old/$1" "$1" || return
    (cd "$old/$1" && quietly release-before cmake --preset whole -DBRENLOFT_BUILD_TESTS=OFF \
      -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O2 -g -Wno-subobject-linkage" &&
      quietly release-before cmake --build --preset whole --target BrenloftSDK) || return
  fi
  abidiff --no-added-syms --drop-private-types --debug-info-dir2 "$2/usr/lib/debug" \
    --headers-dir1 "$old/$1" --headers-dir2 "$2/usr/include" \
    "$(library_in "$old/$1/build/whole")" "$(library_in "$2")" >"$root/build/abidiff.log"
}

# Every link within the documentation leads somewhere, and docs/README.md to every page.
links_hold() {
  local page link bad=0
  cd "$root" || return
  while IFS= read -r page; do
    while IFS= read -r link; do
      [[ -e $(dirname "$page")/$link ]] || { say "       $page: no $link"; bad=1; }
    done < <(grep -oE '\]\([^)#: ]+[)#]' "$page" | sed 's/^](//; s/.$//')
  done < <(git ls-files '*.md')
  for page in docs/*.md; do
    grep -q "(${page#docs/}[)#]" docs/README.md || [[ $page == docs/README.md ]] || { say "       docs/README.md leaves out $page"; bad=1; }
  done
  ((!bad))
}

release() {
  local tag new=$root/build/release-new
  [[ $1 =~ ^[0-9]+\.[0-9]+\.[0-9]+$ ]] || { say "a version is X.Y.Z, three numbers, not '$1'"; exit 2; }
  check "all is committed" is_committed
  check "CHANGELOG.md has a part for $1" changelog_has "$1"
  check "CHANGELOG.md has nothing unreleased" nothing_is_unreleased
  says CMakeLists.txt "$(version_in_cmake)" "$1"
  says application/python/pyproject.toml "$(version_in_python)" "$1"
  says debian/changelog "${version%-*}" "$1"
  check "the links of the documentation lead somewhere" links_hold
  check "build/packages has $1" packages_are "$1"
  if packages_are "$1"; then
    check "they were built from what is committed" built_from_this
    unpack_library "$new"
    check "the soname is that of $1" soname_is "$new" "$1"
    tag=$(git -C "$root" tag --list "v${1%%.*}.*" --sort=-version:refname | grep -vx "v$1" | head -1) || true
    if [[ -n $tag ]]; then
      check "programs linked with $tag run with it (build/abidiff.log)" abi_holds "$tag" "$new"
    else
      say "ok     there is no earlier release with this soname to compare with"
    fi
  fi
  return "$wrong"
}
