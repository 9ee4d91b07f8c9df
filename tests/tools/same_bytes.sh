#!/bin/sh
# One script must give the same bytes for any vector width and any number of threads; the seconds
# that searches tell are left out.
program=$1
script=$2
first=""
for lanes in baseline avx2 avx512; do
  for threads in 1 2 5; do
    sum=$(KORVEL_LANES=$lanes KORVEL_THREADS=$threads "$program" -q "$script" 2>&1 |
      sed 's/^ TIME = *[0-9.]* SEC/ TIME/' | cksum)
    [ -n "$first" ] || first=$sum
    if [ "$sum" != "$first" ]; then
      echo "$lanes on $threads threads differs"
      exit 1
    fi
  done
done
"$program" -q "$script" > /dev/null # without an error
