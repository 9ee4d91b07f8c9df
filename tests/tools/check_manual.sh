#!/bin/sh
# Runs the example of every manual page (the first block behind "## A tried example"): none may fail.
program=$1
root=$2
bad=0
count=0
for page in "$root"/docs/manual/*.md; do
  commands=$(awk '/^## A tried example/ {seen = 1; next}
    seen && /^```/ {if (inside) exit; fenced = inside = 1; next}
    seen && /^    / {inside = 1; sub(/^    /, ""); print; next}
    inside && fenced {print; next}
    inside {exit}' "$page")
  [ -n "$commands" ] || continue
  count=$((count + 1))
  out=$(cd "$root/examples" && printf '%s\n' "$commands" | "$program" -q - 2>&1)
  if [ $? != 0 ] || [ -n "$(printf '%s\n' "$out" | grep -E 'ERROR\.\.|NOT AVAILABLE')" ]; then
    printf '%s:\n%s\n' "$page" "$out"
    bad=1
  fi
done
echo "$count examples"
[ "$count" -gt 0 ] || bad=1
exit $bad
