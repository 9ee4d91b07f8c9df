#!/bin/sh
# What must not compile: wrong fixed formats stop the build, each with its own words, and the right
# one does not.
#   format_refused.sh COMPILER SOURCE_DIR
set -eu
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0
compiles() {
  cat >"$work/case.cpp" <<END
#include "data/format.h"
int edit(char* line, int n, double x) { return korvel::compose<"$1">(line, 130, 0, $2); }
END
  "$compiler" -std=c++20 -fsyntax-only -I"$source/src" -Wno-unused-parameter "$work/case.cpp" \
    >"$work/said" 2>&1
}
refused() {
  if compiles "$1" "$2"; then
    echo "compiles, but must not: $1 with $2"
    failures=1
  elif ! grep -q "$3" "$work/said"; then
    echo "refused for another reason than '$3': $1 with $2"
    failures=1
  fi
}
compiler=$1
source=$2
if ! compiles "(121X, I3, F6.2)" "n, x"; then
  cat "$work/said"
  exit 1
fi
refused "(1X, Q8)" "n" "a descriptor or bracket is wrong"
refused "(1X, I8" "n" "a descriptor or bracket is wrong"
refused "(1X, I8)" "x" "an argument of the wrong kind"
refused "(1X, F8.2)" "n" "an argument of the wrong kind"
refused "(1X, 2I8)" "n" "one argument for each descriptor"
refused "(1X, I8)" "n, x" "one argument for each descriptor"
refused "(121X, I3, F7.2)" "n, x" "the record passes column 130"
refused "(1X, I3 / F7.2)" "n, x" "'/' in a format of one record"
exit $failures
