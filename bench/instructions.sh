#!/usr/bin/env bash
# The instructions of each benchmark's small run, counted by valgrind and held against the kept ones.
#
#   bench/instructions.sh check PROGRAMS   status 1, and a line for each that is more than 5 % apart
#   bench/instructions.sh keep PROGRAMS    writes them to bench/instructions
set -euo pipefail
programs=$2
kept=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)/instructions
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
export BENCH_SMALL=1 TMPDIR=$folder

# counted PROGRAM...: runs it; the instructions that callgrind wrote for FOLDER/count.N are what counts.
counted() {
  rm -f "$folder"/count*
  valgrind -q --tool=callgrind --callgrind-out-file="$folder/count" \
    --zero-before='benchmark::State::StartKeepRunning()' --dump-before='benchmark::State::FinishKeepRunning()' \
    "$@" >"$folder/out" 2>&1 || { cat "$folder/out" >&2; echo "failed: $*" >&2; return 1; }
}

# What runs on several threads has no count of its own and is left out by its name.
count_benchmarks() {
  local name names
  names=$("$1" --benchmark_list_tests --benchmark_filter=-OnRealTime) || return 1
  for name in $names; do
    counted "$1" --benchmark_filter="^$name\$" || return 1
    echo "${1##*/} ${name%/iterations*} $(awk '/^totals:/ { print $2 }' "$folder/count.1")"
  done
}

# Programs that measure by themselves name what they count.
count_named() {
  counted "$1" || return 1
  awk -v program="${1##*/}" '
    /Trigger: Client Request:/ { name = $NF; if (!(name in sum)) names[++n] = name }
    /^totals:/ { sum[name] += $2 }
    END { for (i = 1; i <= n; ++i) print program, names[i], sum[names[i]] }' "$folder"/count.*
}

count() {
  local program
  for program in "$programs"/bench_*; do
    [[ -f $program && -x $program ]] || continue
    if [[ $(ldd "$program") == *libbenchmark* ]]; then
      count_benchmarks "$program" || return 1
    else
      count_named "$program" || return 1
    fi
  done
}

compare() {
  awk -v limit=5 '
    /^#/ { next }
    NR == FNR { kept[$1 " " $2] = $3; next }
    {
      key = $1 " " $2
      if (!(key in kept)) { printf "%s: not kept, now %d\n", key, $3; apart = 1; next }
      percent = 100 * ($3 - kept[key]) / kept[key]
      if (percent > limit || percent < -limit) {
        printf "%s: kept %d, now %d, %+.1f %%\n", key, kept[key], $3, percent
        apart = 1
      }
      if (percent < 0) percent = -percent
      if (percent > most) most = percent
      delete kept[key]
      ++known
    }
    END {
      for (key in kept) { printf "%s: kept %d, now none\n", key, kept[key]; apart = 1 }
      printf "%d benchmarks compared, %.2f %% apart at the most\n", known, most
      exit apart
    }' "$kept" "$folder/now"
}

# Not in a pipe: a program that fails ends this, too.
count >"$folder/now"
case $1 in
  check) compare ;;
  keep)
    {
      echo '# Instructions of the small run of each benchmark; written by: ./test bench --keep'
      echo "# $(. /etc/os-release && echo "$PRETTY_NAME"), $(uname -m), $(g++-12 --version | head -1)"
      cat "$folder/now"
    } >"$kept"
    echo "$(wc -l <"$folder/now") counts kept in $kept"
    ;;
esac
