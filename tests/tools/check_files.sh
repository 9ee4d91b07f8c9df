#!/bin/sh
# Files, system lines and addresses as users meet them: signals, full disks, hostile names.
program=$1
dir=$(mktemp -d) || exit 2
server=
trap 'rm -rf "$dir"; [ -z "$server" ] || kill "$server"' EXIT
cd "$dir" || exit 2
mkdir temp && TEMP=$dir/temp && export TEMP
bad=0
expect() { # expect NAME WANTED GOT
  if [ "$2" != "$3" ]; then
    printf '%s\n wanted: %s\n got:    %s\n' "$1" "$2" "$3"
    bad=1
  fi
}
run() { "$program" -q -c "$1" 2> err; }

# System lines: their output stands in its place in the listing; nothing waits for the keyboard.
expect 'order of the lines' '|_DISPLAY WARN
 WARN      TRUE
one
two
|_DISPLAY WARN
 WARN      TRUE' "$(run 'DISPLAY WARN;;$echo one; echo two >&2;;DISPLAY WARN' | head -n 6)"
expect 'a child reads nothing' 0 "$(echo x | run '$cat' | grep -c x)"
expect 'a million lines' 1000000 "$(run '$seq 1000000' | grep -c '^[0-9]')"
expect 'long lines are folded' '130 130 40' "$(run '$printf %300s x | tr " " -' | head -n 3 | awk '{printf "%s%d", s, length; s = " "}')"
expect 'the status of a line counts for nothing' 0 "$(run '$exit 3' > out; echo $?)"
long=$(head -c 3000 /dev/zero | tr '\0' a)
expect 'a long system line' 3001 "$(run "\$printf %s $long | wc -c; echo $long | wc -c" | sed -n 2p)"
expect 'not run in scan mode' 0 "$(run 'FOO(;;DIMENSION A 1 A 1;;$touch made' > out; [ -e made ] && echo made | wc -l || echo 0)"
expect 'a false IF drops it' 1 "$(run 'SAMPLE 1 2;;GENR A=1;;IF(A.GT.2);;$echo here;;$echo there' | grep -c here$)"

# DEL and RENAME take names as they stand and never lose a file.
touch 'a b' '-f' 'x;rm y' y new
mkdir folder
run '$DEL "a b";;$DEL -f;;$DEL x;rm y' > out; expect 'unquoted blanks are refused' 1 $?
run '$DEL "x;rm y";;$RENAME y new' > out; expect 'RENAME keeps what is there' 1 $?
run '$DEL folder' > out; expect 'DEL takes no folder' 1 $?
expect 'what is left' 'err folder new out temp y' "$(ls | tr '\n' ' ' | sed 's/ $//')"
printf 'touch hit\n' > "a'b\$(touch hit) ;touch hit"
run "FILE LIST a'b\$(touch hit) ;touch hit;;FILE DELETE a'b\$(touch hit) " > out
expect 'a hostile name is only a name' 'touch hit' "$(grep '^touch' out)"
[ -e hit ] && { echo 'a name was run'; bad=1; }

# Signals: the output so far is kept, children and private files go.
for number in 2 15 1; do
  "$program" -q -c 'DISPLAY WARN;;$sleep 20 & sleep 20; touch late;;DISPLAY WARN' out.lst 2> /dev/null &
  pid=$!
  sleep 0.4
  kill -$number $pid
  wait $pid
  status=$?
  expect "status after signal $number" $((128 + number)) $status
  expect "listing after signal $number" 1 "$(grep -c 'WARN      TRUE' out.lst)"
done
[ -e late ] && { echo 'a child went on'; bad=1; }

# Files that can't be written are told, each once, and the run goes on.
if [ -w /dev/full ]; then
  run 'FILE OUTPUT /dev/full;;DISPLAY WARN' > out; expect 'full disk under FILE OUTPUT' 4 $?
  expect 'told once' 1 "$(grep -c 'No space left' err)"
  run 'FILE SCREEN /dev/full;;$seq 100000;;DISPLAY WARN' > out; expect 'full disk under FILE SCREEN' 1 $?
  expect 'told once, in the listing' 1 "$(grep -c 'WRITE ERROR ON FILE /dev/full' out)"
  expect 'the listing is whole' 1 "$(grep -c 'WARN      TRUE' out)"
fi
run 'FILE OUTPUT /proc/none/x;;SET NOSCAN;;DISPLAY WARN' > out; expect 'no such folder' 1 $?
expect 'the output stays where it was' 1 "$(grep -c 'WARN      TRUE' out)"

# A SAFE run does none of it.
for line in '$touch hit' 'FILE DELETE out' 'FILE INPUT out' 'FILE OUTPUT x' 'FILE 11 x' 'SET OUTUNIT=11' \
            'SET INUNIT=11' 'FI PWD' 'LAB: $touch hit'; do
  "$program" -q SAFE -c "$line" 2> /dev/null | grep -q 'NOT ALLOWED IN A SAFE RUN' || { echo "SAFE let $line through"; bad=1; }
done
[ -e hit ] && { echo 'SAFE ran a line'; bad=1; }

# Addresses, from a server of our own.
if command -v python3 > /dev/null; then
  mkdir pages && printf '1,2\n3,4\n' > pages/d.csv
  python3 -u -m http.server 0 --bind 127.0.0.1 --directory pages > port 2> /dev/null &
  server=$!
  for i in 1 2 3 4 5 6 7 8 9 10; do grep -q port port && break; sleep 0.2; done
  site=http://127.0.0.1:$(sed 's/.*port \([0-9]*\).*/\1/' port)
  run "FILE FTP $site/d.csv" > out
  if grep -q 'BUILT WITHOUT' out; then
    echo 'built without libcurl: addresses are not tested'
  else
    expect 'a fetched file' '1,2 3,4 ' "$(tr '\n' ' ' < d.csv)"
    run "FILE FTPB $site/none.csv" > out; expect 'a missing page' 1 $?
    expect 'its message' 1 "$(grep -c "OPEN ERROR ON UNIT4444 ERROR=22 FILE=$site/none.csv" out)"
    run 'FILE FTP ftp://{me secret host/x' > out
    expect 'a brace left open' 1 "$(grep -c 'MISSING } FOR USER AND PASSWORD IN FTP' out)"
    run 'FILE FTP ftp://{me secret}127.0.0.1:1/x' > out
    expect 'no login in messages' 0 "$(grep -v '|_' out | grep -c secret)"
  fi
fi
expect 'no private files are left' '' "$(ls temp)"
exit $bad
