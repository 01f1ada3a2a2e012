# shellcheck shell=bash
# What ./run and ./test share: installing packages and building quietly. Sourced, with $root set.

say() { printf '%s\n' "$*" >&2; }

# need GROUP...: installs what is missing of the groups in packaging/debian-packages; silent when nothing is.
need() {
  local group package missing=() as_root=()
  for group in "$@"; do
    for package in $(awk -v group="$group" '$1 == group { $1 = ""; print }' "$root/packaging/debian-packages"); do
      [[ $(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null) == installed ]] || missing+=("$package")
    done
  done
  ((${#missing[@]})) || return 0
  if ((EUID)); then
    command -v sudo >/dev/null || { say "missing packages, and neither root nor sudo: ${missing[*]}"; return 1; }
    as_root=(sudo)
  fi
  say "installing Debian packages: ${missing[*]}"
  quietly install "${as_root[@]}" apt-get -q update
  quietly install "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
    apt-get -q -y --no-install-recommends install "${missing[@]}"
}

# quietly NAME COMMAND...: keeps the output in build/NAME.log and shows it when the command fails.
quietly() {
  local log="$root/build/$1.log"
  shift
  mkdir -p "$root/build"
  "$@" >"$log" 2>&1 </dev/null || { cat "$log" >&2; say "failed: $*"; return 1; }
}

configure_preset() {
  quietly "$1-configure" cmake --preset "$1" ${configure:+"$configure"}
  # In a folder of another compiler CMake empties its cache, and goes on without what the preset says.
  if grep -q 'require your cache to be deleted' "build/$1-configure.log"; then
    quietly "$1-configure" cmake --preset "$1" ${configure:+"$configure"}
  fi
}

# build PRESET [TARGET...]: configures when needed, then builds what changed. Extra configure options: $configure.
build() {
  local preset="$1" target=() name
  shift
  for name in "$@"; do target+=(--target "$name"); done
  if command -v ccache >/dev/null; then export CMAKE_CXX_COMPILER_LAUNCHER=ccache; fi
  (
    mkdir -p "$root/build" && cd "$root" && exec 9>"build/$preset.lock" && flock 9
    [[ -f build/$preset/build.ninja && -z ${configure:-} ]] || configure_preset "$preset" 9>&-
    quietly "$preset-build" cmake --build --preset "$preset" "${target[@]}" 9>&-
  )
}
