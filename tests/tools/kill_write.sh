#!/bin/sh
# WRITE over an old file is killed at 70 moments: the old file or the new one must stand there each
# time, whole.
program=$1
folder=$(mktemp -d) || exit 2
trap 'rm -rf "$folder"' EXIT
cd "$folder" || exit 2
data='SET RANFIX;;SAMPLE 1 60000;;?GENR X=NOR(1);;?GENR Y=X*X'
new="$data;;WRITE(file.dat) X Y X Y X Y"
run() { "$program" -q PAR=20480 -c "$new" > listing 2>&1; }

# The new file, and how long it takes.
echo old > old.dat
cp old.dat file.dat
start=$(date +%s%N)
run || { cat listing; exit 1; }
length=$((($(date +%s%N) - start) / 1000000))
[ "$length" -gt 0 ] || length=1
mv file.dat new.dat
[ "$(wc -l < new.dat)" -eq 120000 ] || { echo 'the file is not what was asked for'; exit 1; }

killed=0 olds=0 news=0 k=0
while [ $k -lt 70 ]; do
  k=$((k + 1))
  cp old.dat file.dat
  # From 0.4 to 1.3 of a run; a machine that has become faster, or slower, is followed.
  delay=$((length * (4 + k % 10) / 10 + 1))
  timeout -s KILL "$(printf '%d.%03d' $((delay / 1000)) $((delay % 1000)))" \
    "$program" -q PAR=20480 -c "$new" > listing 2>&1
  if [ $? -eq 0 ]; then length=$((length * 19 / 20 + 1)); else
    killed=$((killed + 1))
    [ $((k % 10)) -lt 7 ] || length=$((length * 21 / 20 + 1))
  fi
  if cmp -s file.dat old.dat; then olds=$((olds + 1))
  elif cmp -s file.dat new.dat; then news=$((news + 1))
  else
    echo "killed after $delay ms: file.dat is neither the old nor the new file"
    exit 1
  fi
done
echo "$killed killed: $olds times the old file, $news times the new one"
[ "$killed" -gt 10 ] && [ "$news" -gt 0 ]
