#!/usr/bin/env bash
# Tries the faults in the list beside this file; run by ./test mutants [FILTER], FILTER being part of a name or line.
# A copy of the sources gets all of them at once, and $BRENLOFT_MUTANT says which one is awake: one build serves all.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
. "$root/tools/build.sh"
filter="${1:-}"
copy="$root/build/mutants"
awake='#ifndef BRENLOFT_MUTANT
#define BRENLOFT_MUTANT
#include <cstdlib>
#include <string_view>
inline bool isMutant(std::string_view name) {
  static const char* const chosen = std::getenv("BRENLOFT_MUTANT");
  return chosen != nullptr && name == chosen;
}
#endif'
declare -a names=()          # those to be tried
declare -A line=() tests=()  # of each of them
declare -A wanted=()         # test programs
declare -A contents=()       # of the files with a fault
stale=0

# Puts the fault TEXT ==> REPLACEMENT, whose text stands once below $folder, there. Sets $name.
place() {
  local text="${1%% ==>*}" replacement="${1#* ==>}" found file content before after
  name=$folder
  found=$(cd "$root" && grep -HrnF --include='*.h' --include='*.cpp' -e "$text" "$folder") || return 1
  file="${found%%:*}" found="${found#*:}"
  [[ $found != *$'\n'* ]] || return 1
  name="${file##*/}:${found%%:*}"
  content="${contents[$file]:-$(<"$root/$file")}"
  before="${content%%"$text"*}" after="${content#*"$text"}"
  [[ $content == *"$text"* && $after != *"$text"* ]] || return 1
  if [[ $text == *\; ]]; then
    contents[$file]="$before{ if (isMutant(\"$name\")) {$replacement } else { $text } }$after"
  else
    contents[$file]="$before(isMutant(\"$name\") ? ($replacement) : ($text))$after"
  fi
}

read_list() {
  local entry name folder="" programs="" file
  while IFS= read -r entry; do
    case "$entry" in
      '' | '#'*) ;;
      *' ==>'*)
        if ! place "$entry"; then
          say "stale     $name  $entry"
          stale=$((stale + 1))
        elif [[ $name$entry == *"$filter"* ]]; then
          names+=("$name") line[$name]="$entry" tests[$name]="$programs"
          for program in $programs; do wanted[$program]=1; done
        fi
        ;;
      *) folder="${entry%%: *}" programs="${entry#*: }" ;;
    esac
  done <"$root/tests/mutants/mutants"
  for file in "${!contents[@]}"; do
    content="$awake"$'\n'"${contents[$file]}"
    [[ $content == "$(<"$copy/$file")" ]] || printf '%s\n' "$content" >"$copy/$file"
  done
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
