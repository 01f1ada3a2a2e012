#!/bin/bash
# What a tab offers in bash, zsh and fish: completion_test.sh BRENLOFT SOURCE_DIR
set -eu
scripts=$2/packaging/completion
export COMMON=/usr/share/bash-completion/bash_completion
for need in zsh fish; do command -v $need >/dev/null || { echo "no $need here"; exit 77; }; done
[[ -e $COMMON ]] || { echo "no bash-completion here"; exit 77; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export HOME=$work XDG_CONFIG_HOME=$work TERM=dumb PATH=$(dirname "$1"):$PATH
cd "$work"
printf '[beacon."C0-C1-5C-00-00-01"]\nname = "fridge"\n' >shop.toml
touch air.btsnoop
mkdir folder

# What each makes of a line: bash and fish tell all words that may come, zsh puts the only one there.
in_bash() {
  # shellcheck disable=SC2016
  bash --norc -c '. "$COMMON"; . "$1/brenloft.bash"; compopt() { :; }
    COMP_LINE=$2 COMP_POINT=${#2}
    mapfile -t COMP_WORDS < <(sed "s/[=:]/ & /g" <<<"$2" | xargs -n 1)  # as readline splits it
    [[ $2 != *" " ]] || COMP_WORDS+=("")
    COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _brenloft brenloft; printf "%s\n" "${COMPREPLY[@]}"' - "$scripts" "$1"
}
in_fish() { fish --no-config -c 'source $argv[1]/brenloft.fish; complete -C $argv[2]' "$scripts" "$1" | cut -f1; }
cat >type.zsh <<'ZSH'
zmodload zsh/zpty
zpty shell "zsh -f -i"
zpty -w shell "PS1=; fpath=($1 \$fpath); autoload -U compinit; compinit -u -D; echo rea\dy"
zpty -r -m shell line "*ready*"
zpty -w -n shell "$2"$'\t\C-a'"print said:"$'\n'
zpty -w shell "echo en\\d"
zpty -r -m shell line "*end*"
print -r -- "$line"
ZSH
in_zsh() { timeout 30 zsh -f type.zsh "$scripts" "$1" | tr -d '\r' | sed -n 's/^said://p' | sed 's/ $//; s/.* //'; }
failed=0
expect() { # expect SHELL LINE WORD...: they come in that order, and nothing else
  local shell=$1 line=$2 got
  shift 2
  got=$("in_$shell" "$line" | sort | xargs)
  [[ $got == "$*" ]] || { echo "$shell: '$line': expected '$*', got '$got'"; failed=1; }
}

expect bash 'brenloft s' scan serve simulate sources
expect bash 'brenloft scan --min' --min-rssi
expect bash 'brenloft scan --format=j' jsonl
expect bash 'brenloft log show -F ' jsonl table
expect bash 'brenloft hear --source capture:a' air.btsnoop
expect bash 'brenloft scan --source de' demo 'demo?paced'
expect bash 'brenloft scan -C f' folder
expect bash 'brenloft history show --config shop.toml --beacon f' fridge
expect bash 'brenloft scan --config shop.toml --only ' C0-C1-5C-00-00-01 fridge known
expect bash 'brenloft scan --out r' readings:
expect bash 'brenloft help log b' backup
for shell in fish zsh; do
  expect $shell 'brenloft sca' scan
  expect $shell 'brenloft log show --fol' --follow
done
expect fish 'brenloft log show --format ' jsonl table
expect fish 'brenloft hear --source capture:a' capture:air.btsnoop
expect fish 'brenloft history show --config shop.toml --beacon f' fridge
expect zsh 'brenloft log show --format j' jsonl
expect zsh 'brenloft hear --source capture:a' capture:air.btsnoop
expect zsh 'brenloft history show --config shop.toml --beacon f' fridge
exit $failed
