#!/bin/sh
# The console program as users call it: arguments, pipes, exit status, standard error.
program=$1
dir=$(mktemp -d) || exit 2
trap 'rm -rf "$dir"' EXIT
cd "$dir" || exit 2
bad=0
expect() { # expect NAME WANTED GOT
  if [ "$2" != "$3" ]; then
    printf '%s\n wanted: %s\n got:    %s\n' "$1" "$2" "$3"
    bad=1
  fi
}

printf 'DIMENSION A 2\nFOO\nDIMENSION A 2\nNAMES\n' > 'in put.kor'
"$program" -q 'in put.kor' 'out put.lst' 2> err
expect 'status of a failed command' 1 $?
expect 'standard error' 'in put.kor:2: error: UNKNOWN COMMAND...FOO
in put.kor:3: error: VARIABLE ALREADY EXISTS A
korvel: in put.kor: 2 errors' "$(cat err)"
expect 'nothing of it in the listing' 0 "$(grep -c 'error:' 'out put.lst')"
"$program" -q -W 'in put.kor' 'out put.lst' 2> err
expect 'warnings are mirrored on demand' 1 "$(grep -c 'in put.kor:2: warning: CHECK OUTPUT CAREFULLY' err)"

expect 'a pipe is a batch run' '|_DISPLAY WARN
 WARN      TRUE
 ...NOTE..STOPPED
 ...COMPLETED' "$(printf 'display warn' | "$program" -q 2>&1)"
expect 'a pipe named -' 5 "$(printf 'display warn\nstop\n' | "$program" -q - - 2>&1 | wc -l)"
expect '-c' 1 "$("$program" -q -c 'SET NOWARN;;DISPLAY WARN' | grep -c 'WARN      FALSE')"
"$program" -c 'X1' > /dev/null 2>&1; expect 'status of -c' 1 $?
"$program" --bad > /dev/null 2>&1; expect 'status of a wrong call' 2 $?
"$program" a b c > /dev/null 2>&1; expect 'too many names' 2 $?
"$program" missing.kor < /dev/null > out 2> err; expect 'status of a missing input' 2 $?
expect 'prompt for a missing input' 'missing.kor IS NOT FOUND, ENTER NEW INPUTFILE..' "$(cat out)"
echo 'in put.kor' | "$program" -q missing.kor > out 2> /dev/null
expect 'a name from the keyboard' 1 "$(grep -c ALREADY out)"
"$program" -q 'in put.kor' 'in put.kor' 2> /dev/null; expect 'output over input is refused' 2 $?
expect 'the input is whole' 4 "$(wc -l < 'in put.kor')"
"$program" -q 'in put.kor' /no/such/folder/x 2> /dev/null; expect 'output not writable' 2 $?
"$program" PAR=16777216 -c '' > /dev/null 2>&1; expect 'PAR beyond the limit' 4 $?
"$program" par=100 'in put.kor' > /dev/null 2>&1; expect 'keys in lower case' 1 $?
mkdir below && printf '1\n2\n' > below/x.dat && printf '7\n' > "$dir.dat" && ln -s "$dir.dat" below/link.dat
expect 'a SAFE run reads below its folder' 1 "$("$program" -q SAFE -c 'READ(below/x.dat) X / EOF' | grep -c '2 OBSERVATIONS')"
for name in /etc/passwd below/link.dat ../x "$dir.dat"; do
  "$program" -q SAFE -c "READ($name) X / EOF" 2> /dev/null | grep -qE 'NOT ALLOWED IN A SAFE RUN|DOES NOT EXIST:../x' ||
    { echo "SAFE let $name through"; bad=1; }
done
expect 'a SAFE run keeps its size' 1 "$("$program" -q SAFE -c 'PAR 1000' 2> /dev/null | grep -c 'NOT ALLOWED')"
rm -f "$dir.dat"
"$program" --version | grep -q '^KORVEL 11.0$' || { echo 'version'; bad=1; }
"$program" '?' | grep -q 'Usage: KORVELD \[? | {<in filename> \[<out filename>\]}\]' || { echo 'usage'; bad=1; }
if [ -w /dev/full ]; then
  "$program" 'in put.kor' /dev/full 2> err; expect 'full disk' 4 $?
  expect 'full disk is told once' 1 "$(grep -c 'No space left' err)"
fi
yes 'DISPLAY WARN' | head -n 20000 > long.kor
{ "$program" long.kor; echo $? > closed; } 2> /dev/null | head -n 1 > /dev/null
expect 'a closed pipe ends the run quietly' 141 "$(cat closed)"
(sleep 5; echo STOP) | "$program" -q > /dev/null 2>&1 &
pid=$!
sleep 0.3
kill -TERM "$pid" 2> /dev/null
wait "$pid"
expect 'ended by a signal' 143 $?
exit $bad
