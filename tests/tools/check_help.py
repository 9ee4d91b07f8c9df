#!/usr/bin/env python3
"""Every option of every table, every SET and FILE word, function and $ERR code is explained in the manual.

check_help.py FOLDER: reads the tables in src/ and the pages in docs/manual/.
"""
import pathlib
import re
import sys

root = pathlib.Path(sys.argv[1])
# Pages on which the options of a table may stand.
PAGES = {
    "READOPT": ["READ", "PRINT", "WRITE"], "SETOPT": ["SET", "DISPLAY"], "OLSOPT": ["OLS", "IMLS"],
    "DELETEOPT": ["DELETE"], "NAMESOPT": ["NAMES"], "SORTOPT": ["SORT"], "CONVOPT": ["CONVERT"],
    "COPYOPT": ["COPY"], "SAVEOPT": ["SAVE", "RESTORE"], "DISTOPT": ["DISTRIB"],
    "CONFOPT": ["CONFIDEN"], "BJOPT": ["ARIMA", "COINTEGR"], "STATOPT": ["STATS"],
    "PCOPT": ["PCOMPONE"], "INDEXOPT": ["INDEX", "SMOOTH"], "PROBOPT": ["PROBIT", "LOGIT", "TOBIT"],
    "SYSOPT": ["SYSTEM", "2SLS", "INSTRUME"],
    "NLOPT": ["NLINEAR", "MLE", "HETERO", "GME"],
    "PLOTOPT": ["PLOTS", "GRAPH", "CONFIDEN"],
    "FCASTOPT": ["FCAST", "DIAGNOSE"],
    "AUTOOPT": ["AUTO"],
}
problems = []


def explained(word, pages):
    """Whether a word stands as code on one of the pages, whole or behind NO."""
    for page in pages:
        path = root / "docs/manual" / f"{page}.md"
        if not path.exists():
            continue
        for code in re.findall(r"`([^`]*)`|^    (.*)$", path.read_text(), re.M):
            words = re.findall(r"[A-Z0-9_$*]+", (code[0] or code[1]).upper())
            for w in words:
                whole = w[:8] in (word, ("NO" + word)[:8])
                if whole or len(w) > 2 and word.startswith(w[:8]):  # COEF= stands for COEFFICE=
                    return True
    return False


tables = 0
for source in sorted(root.glob("src/**/*")):
    if source.suffix not in (".cpp", ".h"):
        continue
    text = source.read_text()
    for match in re.finditer(r"auto (\w+) =\s*option_table\((.*?)\);", text, re.S):
        tables += 1
        name = match.group(1)
        if name not in PAGES:
            problems.append(f"{source}: the table {name} is not known to this check")
            continue
        if not any((root / "docs/manual" / f"{p}.md").exists() for p in PAGES[name]):
            continue
        for word in re.findall(r'(?:logical|integer|real|variable|integer_pair)\("(\w+)', match.group(2)):
            if word in ("XOPT4", "FMT"):  # a place without a use; FMT* can't be typed
                continue
            if not explained(word[:8], PAGES[name]):
                problems.append(f"{name}: {word} is explained on none of {', '.join(PAGES[name])}")

operators = (root / "src/expr/operators.h").read_text()
matrix = (root / "docs/manual/MATRIX.md").exists()
for word in re.findall(r'^    \{"([A-Z]{2,})", "[^"]*", 10,', operators, re.M):
    if word == "INV" and not matrix:  # the functions of matrices begin here
        break
    if not explained(word, ["GENR", "MATRIX"]):
        problems.append(f"function {word} is explained neither on GENR nor on MATRIX")

file_words = (root / "src/engine/file_command.cpp").read_text()
for word in re.findall(r'^    \{"([A-Z]+)", \w+\},', file_words, re.M):
    if not explained(word, ["FILE"]):
        problems.append(f"FILE {word} is not explained")

codes = set()
for source in root.glob("src/**/*"):
    if source.suffix in (".cpp", ".h"):
        text = source.read_text()
        codes |= set(re.findall(r'place\("ERR"\)\) = (\d+)', text))
        codes |= set(re.findall(r"\bERR_\w+ = (\d+)", text))
        codes |= set(re.findall(r"\b(?:GENR|BJ)_\w+ = (\d{4,})", text))
        codes |= set(re.findall(r"\bset_error_code\((\d+)\)", text))
for code in sorted(codes):
    if not explained(code, ["ERRORS"]):
        problems.append(f"$ERR {code} is not explained")

print("\n".join(problems))
print(f"{tables} tables, {len(codes)} codes, {len(problems)} not explained")
sys.exit(1 if problems or tables < 10 or len(codes) < 10 else 0)
