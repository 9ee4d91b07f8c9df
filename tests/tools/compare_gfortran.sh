#!/bin/sh
# Compares the editing of F, E, D, G, I and A with that of gfortran, byte for byte.
#   compare_gfortran.sh FORMAT_CASES SOURCE_DIR [COUNT]
# Exit status 77 (skipped) where there is no gfortran.
#
# Deliberate differences, which the cases below leave out or put right:
#   - a value that edits to zeros has no minus sign here; gfortran writes one unless it is told
#     otherwise by -fno-sign-zero, which is used;
#   - under G the value is rounded to d digits first and then finds its range. gfortran decides the
#     range in floating point, so that G25.10 of -0.99999999995 (which lies below the tie, and its
#     own E25.10 says -0.9999999999E+00) comes out as -1.000000000; values that round to nines
#     alone are left out under G;
#   - infinities are Inf and -Inf here whatever the width; they are not among the cases.
set -eu
command -v gfortran >/dev/null 2>&1 || exit 77
cases=$1
source=$2
count=${3:-300000}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
gfortran -O1 -fno-sign-zero -J "$work" -o "$work/oracle" "$source/tests/tools/format_cases.f90"
"$cases" cases "$count" "$work/cases"
"$cases" edit "$work/cases" >"$work/ours"
"$work/oracle" "$work/cases" >"$work/theirs"
test "$(wc -l <"$work/ours")" -eq "$count"
if ! cmp -s "$work/ours" "$work/theirs"; then
  echo "editing differs (ours <, gfortran >):"
  diff "$work/ours" "$work/theirs" | head -${KORVEL_SHOW:-40}
  exit 1
fi
echo "$count fields are the same"
