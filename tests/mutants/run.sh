#!/usr/bin/env bash
# Tries the faults in the list beside this file; run by ./test mutants [FILTER], FILTER being part of a name or line.
# A copy of the sources gets all of them at once, and $BRENLOFT_MUTANT says which one is awake: one build serves all.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
. "$root/tools/build.sh"
filter="${1:-}"
copy="$root/build/mutants"
awake='#include <cstdlib>
#include <string_view>
inline bool isMutant(std::string_view name) {
  static const char* const chosen = std::getenv("BRENLOFT_MUTANT");
  return chosen != nullptr && name == chosen;
}
'
declare -a names=()          # those to be tried
declare -A line=() tests=()  # of each of them
declare -A wanted=()         # test programs
stale=0

# Puts the fault TEXT ==> REPLACEMENT into $content.
place() {
  local name="$1" text="${2%% ==>*}" replacement="${2#* ==>}" before after
  before="${content%%"$text"*}" after="${content#*"$text"}"
  [[ $content == *"$text"* && $after != *"$text"* ]] || return 1
  if [[ $text == *\; ]]; then
    content="$before{ if (isMutant(\"$name\")) {$replacement } else { $text } }$after"
  else
    content="$before(isMutant(\"$name\") ? ($replacement) : ($text))$after"
  fi
}

finish_file() {
  [[ -n ${content:-} && $awake$content != "$(cat "$copy/$file")" ]] || return 0
  printf '%s\n' "$awake$content" >"$copy/$file"
}

read_list() {
  local entry name number=0 programs=""
  while IFS= read -r entry; do
    case "$entry" in
      '' | '#'*) ;;
      *' ==>'*)
        name="${file##*/}:$((++number))"
        if ! place "$name" "$entry"; then
          say "stale     $name  $entry"
          stale=$((stale + 1))
        elif [[ $name$entry == *"$filter"* ]]; then
          names+=("$name") line[$name]="$entry" tests[$name]="$programs"
          for program in $programs; do wanted[$program]=1; done
        fi
        ;;
      *)
        finish_file
        file="${entry%%: *}" programs="${entry#*: }" number=0
        content=$(cat "$root/$file" 2>/dev/null) || true
        ;;
    esac
  done <"$root/tests/mutants/mutants"
  finish_file
}

# The tests of some programs up to the first that fails.
run_tests() {
  ctest --preset release -R "^(${1// /|})\\." --stop-on-failure >"$root/build/mutants.log" 2>&1
}

mkdir -p "$copy"
(cd "$root" && git ls-files -z --cached --others --exclude-standard | xargs -0 cp -pu --parents -t "$copy")
# One that never ends is noticed sooner here.
sed -i 's/TIMEOUT 300/TIMEOUT 60/' "$copy/cmake/Components.cmake"
read_list
((${#names[@]})) || { say "no mutant has '$filter' in its name or line"; exit 2; }
(root="$copy" configure=-DBRENLOFT_BUILD_TESTS=ON build release "${!wanted[@]}")
cd "$copy"
run_tests "${!wanted[*]}" || { cat "$root/build/mutants.log" >&2; say "the tests fail without a mutant"; exit 1; }
survived=0
for name in "${names[@]}"; do
  if BRENLOFT_MUTANT="$name" run_tests "${tests[$name]}"; then
    printf 'SURVIVED  %s  %s\n' "$name" "${line[$name]}"
    survived=$((survived + 1))
  else
    printf 'killed    %s  by %s\n' "$name" "$(sed -n '/FAILED:/{n;s/.*- \(.*\) (.*/\1/p;q}' "$root/build/mutants.log")"
  fi
done
printf '%s mutants: %s killed, %s survived, %s stale\n' \
  "${#names[@]}" $((${#names[@]} - survived)) "$survived" "$stale"
((survived + stale == 0))
