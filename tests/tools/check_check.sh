#!/bin/sh
# korvel --check finds no mistake in any script that runs without one.
program=$1
root=$2
bad=0
count=0
for script in "$root"/examples/*.kor "$root"/tests/scripts/*/*.kor; do
  [ -e "${script%.kor}.status" ] && continue
  count=$((count + 1))
  (cd "$(dirname "$script")" && "$program" --check "$script") >/dev/null 2>/tmp/korvel_check.$$ || {
    cat /tmp/korvel_check.$$
    bad=1
  }
done
rm -f /tmp/korvel_check.$$
echo "$count scripts"
[ "$count" -gt 0 ] || bad=1
exit $bad
