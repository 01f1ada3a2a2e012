#!/bin/sh
# Compiles what applications write and what must be refused: interface_test.sh COMPILER SOURCE_DIR
set -eu
compile() {
  "$1" -std=c++20 -fsyntax-only -Wall -Wextra -Werror -Wno-overloaded-virtual -Wno-unused-variable \
    -I"$2" "$2/tests/sdk/interface/$3.cpp"
}
compile "$1" "$2" Accepted
refusals=$(compile "$1" "$2" Refused 2>&1 | grep -c 'error: .*this operation would never be called') || true
[ "$refusals" = 4 ] || { echo "refused $refusals of 4"; exit 1; }
