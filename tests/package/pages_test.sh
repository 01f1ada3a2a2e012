#!/bin/sh
# Every command has a man page, with the options that --help has and no others; brenloft.toml(5) has the keys of the settings file:
# pages_test.sh BRENLOFT FOLDER_OF_PAGES
set -eu
brenloft=$1 pages=$2
commands() { "$brenloft" help "$@" | awk '/^Subcommands:/ { inside = 1; next } inside && /^  [a-z]/ { print $1 }'; }
options() { "$brenloft" "$@" --help | grep -oE '^  (-[A-Za-z],)?--[a-z-]+' | tr -d ' ' | tr ',' '\n'; }
in_page() { sed -n 's/\\f[BR]//g; s/\\//g; /^-/p' "$1" | grep -oE '^(-[A-Za-z], )?--[a-z-]+' | tr -d ' ' | tr ',' '\n'; }
same() { # same WHAT EXPECTED ACTUAL
  [ "$2" = "$3" ] || { printf '%s\nexpected:\n%s\nthe page has:\n%s\n' "$1" "$2" "$3"; exit 1; }
}

for command in $(commands); do
  [ "$command" != help ] || continue
  page=$pages/brenloft-$command.1
  [ -e "$page" ] || { echo "no page for $command"; exit 1; }
  expected=$(options "$command")
  for below in $(commands "$command"); do
    [ "$below" != "$(commands "$command" | head -1)" ] || expected=
    expected="$expected
$(options "$command" "$below")"
  done
  same "$command" "$(echo "$expected" | sed '/^$/d')" "$(in_page "$page")"
done
same brenloft "$(options)" "$(in_page "$pages/brenloft.1")"
same keys "$("$brenloft" config keys | sed -n 's/^  \([a-z-]*\) .*/\1/p')" \
  "$(sed -n 's/\\-/-/g; s/^\\fB\([a-z-]*\)\\fR$/\1/p' "$pages/brenloft.toml.5")"
