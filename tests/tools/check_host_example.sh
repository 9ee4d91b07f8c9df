#!/bin/sh
# Compiles the C host of docs/host-protocol.md, runs it and compares with what the page says it prints.
compiler=$1
root=$2
library=$3
work=$(mktemp -d) || exit 1
trap 'rm -rf "$work"' EXIT
block() { awk -v mark="\`\`\`$1" '$0 == mark {inside = 1; next} inside && /^```/ {exit} inside' "$root/docs/host-protocol.md"; }
block c > "$work/host.c"
block text > "$work/expected"
[ -s "$work/host.c" ] && [ -s "$work/expected" ] || exit 1
"$compiler" -std=c11 -Wall -Wextra -Werror -I"$root/include" "$work/host.c" "$library" \
  -Wl,-rpath,"$(dirname "$library")" -o "$work/host" || exit 1
"$work/host" > "$work/printed" 2>&1 || exit 1
diff "$work/expected" "$work/printed"
