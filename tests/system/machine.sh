# shellcheck shell=bash
# The virtual machine of the checks. Sourced, with $root set.
#
# BRENLOFT_VM_RIG   the folder with the machine's build.sh, stage.sh and run.sh; default: ../shared/bluez-vm beside the project
# BLUEZ_VM_DIR      where the machine is built, and the results of each check are kept

rig=${BRENLOFT_VM_RIG:-$root/../shared/bluez-vm}
export BLUEZ_VM_DIR=${BLUEZ_VM_DIR:-${TMPDIR:-/tmp}/bluez-vm}

have_machine() {
  [[ -x $rig/run.sh ]] || {
    echo "system tests: SKIPPED, there is no machine at $rig (BRENLOFT_VM_RIG names another folder)"
    return 1
  }
}

make_machine() {
  [[ ! -f $BLUEZ_VM_DIR/base.cpio ]] || return 0
  echo "system tests: building the machine in $BLUEZ_VM_DIR"
  mkdir -p "$BLUEZ_VM_DIR"
  "$rig/build.sh" > "$BLUEZ_VM_DIR/build.log" 2>&1 || { tail -20 "$BLUEZ_VM_DIR/build.log" >&2; return 1; }
}

# in_machine NAME COMMAND...: tells what a check has found, which COMMAND runs with its results going into $results.
in_machine() {
  local name=$1 status=0
  shift
  results=$BLUEZ_VM_DIR/results/$name
  mkdir -p "$results"
  echo "== system tests: $name (results in $results)"
  "$@" || status=$?
  grep -E '^(ok|FAIL|\[)' "$results/test.log" || true
  [[ $status -eq 0 ]] || { echo "== $name failed, status $status"; return 1; }
}
