"""Data files between KORVEL and examples/korvel_files.py, both ways, bit for bit."""

import math
import struct
import subprocess
import sys

program, folder = sys.argv[1], sys.argv[2]
sys.path.insert(0, folder)
import korvel_files as kf  # noqa: E402


def korvel(commands):
    run = subprocess.run([program, "-q", "-c", commands], capture_output=True, text=True)
    assert run.returncode == 0, run.stdout + run.stderr


def same(a, b, what):
    a, b = {v.name: v for v in a}, {v.name: v for v in b}
    assert a.keys() == b.keys(), (what, a.keys(), b.keys())
    for name in a:
        assert a[name].bits() == b[name].bits(), (what, name, a[name], b[name])
        for field in ("type", "columns", "calendar"):
            assert getattr(a[name], field) == getattr(b[name], field), (what, name, field)


odd_nan = struct.unpack("<d", struct.pack("<Q", 0xFFF8000000000123))[0]
dated = (1980, 3, 4)
series = [1.5, -0.0, 0.1, kf.MISSING, 5e-324, 1.7976931348623157e308, 1 / 3, -2.5e-310]
everything = [
    kf.Variable("X", series + [math.inf, -math.inf, math.nan, odd_nan], calendar=dated),
    kf.Variable("M", [1.0, 4.0, kf.MISSING, 5.0, 3.0, 1e-300], kf.MATRIX, 3),
    kf.Variable("S", [1.0, 2.0, 3.0, 4.0, 5.0, -0.0], kf.SYMMETRIC, 3),
    kf.Variable("T", [1.0, 0.1, 3.0], kf.TRIANGLE, 2),
    kf.Variable("LONGNAME", [float(k) / 7 for k in range(1000)], calendar=dated),
    kf.Variable("TEXT", [b"It is wo", b"rds of  ", b"     8. "], kf.TEXT),
    kf.Variable("PLAIN", [b"X Y     "] * 45, kf.CHARACTERS, calendar=dated),
]
# Python to KORVEL and back, through each container in turn.
kf.write_korvbin("p.kb", everything)
kf.write_korvdata("p.kd", everything)
for source in ("p.kb", "p.kd"):
    korvel(f"RESTORE({source})\nSAVE(k.kb)\nSAVE(k.kd) / KORVEL\n")
    same(everything, kf.read("k.kb"), source)
    same(everything, kf.read("k.kd"), source)
# The bytes are the same as well, whoever wrote them.
for mine, theirs in (("p.kb", "k.kb"), ("p.kd", "k.kd")):
    with open(mine, "rb") as a, open(theirs, "rb") as b:
        assert a.read() == b.read(), (mine, theirs)
# Single precision.
floats = [kf.Variable("X", [0.5, -99999.0, 1e30, 0.1])]
kf.write_korvbin("p.ks", floats, single=True)
korvel("READ(p.ks) X / BINARY\nWRITE(k.ks) X / SBINARY\nSAVE(k.kb)\n")
same(kf.read("p.ks"), kf.read("k.ks"), "SBINARY")
same(kf.read("p.ks"), kf.read("k.kb"), "SBINARY to doubles")
# Databanks.
bank = [kf.Variable("X", series, calendar=dated), kf.Variable("U", series), everything[1],
        kf.Variable("D", [1.0, 2.0, 3.0], calendar=(1999, 366, 366))]
for v in bank:
    kf.write_db("p.db", v)
    korvel(f"READ(p.db) {v.name} / DB\nWRITE(k.db) {v.name} / DB ALL\n")
    same([v], kf.read("k.db"), "DB")
# DIF.
table = [kf.Variable("A", series), kf.Variable("B", list(reversed(series)))]
kf.write_dif("p.dif", table)
korvel("READ(p.dif) / NAMES\nWRITE(k.dif) A B / NAMES\n")
same(table, kf.read("k.dif"), "DIF")
print("file formats agree")
