#!/bin/sh
# korvel --check finds no mistake in any script that runs without one, and those inside blocks.
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

# Mistakes of equations and systems, each told once at its line; what follows is looked over too.
folder=$(mktemp -d)
cat >"$folder/bad.kor" <<'LINES'
GENR Y=TIME(0)
NL 2 Z / NCOEF=2 ITRE=5
EQ Y=A+*B*X
EQ Y=A+B*X:2
DO #=1,3
GENR X#=(1
ENDO
COEF A
END
NL N / NCOEF=K START=S SAME
EQ Y=A+B*X
IF(Y.GT.(1)
END
NL 1 / NCOEF=2
EQ Y=A+LAG(X(1)
OLS Y X / NOSUCH
SYSTEM 2 X / DN
OLS Y X
PRINT Y / NOSUCH
SYSTEM 2 X / DN RESTRICT
OLSS Y X
OLS X (Y)
RESTRICT X:1=X:2
END
SYSTEM
OLS Y X
NL 1 / NCOEF=2
EQ Y=A+B*X
LINES
(cd "$folder" && "$program" --check bad.kor) 2>"$folder/told"
cat >"$folder/wanted" <<'LINES'
bad.kor:2: error: INVALID OPTION..ITRE
bad.kor:3: error: SYNTAX ERROR WHEN GENERATING VARIABLE
bad.kor:6: error: MISMATCHED PARENTHESES (in DO of line 5)
bad.kor:8: error: SYNTAX ERROR
bad.kor:12: error: MISMATCHED PARENTHESES
bad.kor:15: error: SYNTAX ERROR WHEN GENERATING VARIABLE
bad.kor:16: error: COMMAND IS NOT AN EQ, COEF, GENR, OR END COMMAND
bad.kor:16: error: INVALID OPTION..NOSUCH
bad.kor:19: error: ABOVE COMMAND IGNORED, IS NOT ALLOWED AT THIS TIME
bad.kor:19: error: INVALID OPTION..NOSUCH
bad.kor:21: error: UNKNOWN COMMAND...OLSS
bad.kor:22: error: PARENTHESES ARE NOT ALLOWED IN AN EQUATION OF A SYSTEM
bad.kor:25: error: NO. OF EQUATIONS NOT GIVEN ON SYSTEM COMMAND
bad.kor:27: error: END OF INPUT BEFORE THE END COMMAND OF THE BLOCK
korvel: bad.kor: 14 errors
LINES
diff "$folder/told" "$folder/wanted" || bad=1
rm -r "$folder"
exit $bad
