"""Reads and writes the data files of KORVEL: KORVBIN, KORVDATA, NAME.DB and DIF.

The forms are described in docs/file-formats.md. Only the standard library is used (Python 3.11).

    from korvel_files import Variable, read, write_korvbin
    x = Variable("X", [1.5, 2.5, 3.5], calendar=(1980, 1, 4))
    write_korvbin("x.kb", [x])
    print(read("x.kb"))
"""

import math
import struct
import sys
from dataclasses import dataclass

SERIES, MATRIX, SYMMETRIC, TRIANGLE, TEXT, CHARACTERS = range(1, 7)
NO_CALENDAR = (1, 0, 1)
MISSING = -99999.0
NINE = (1, 15, 16, 19, 0, 6, 7, 0, 16)


@dataclass
class Variable:
    """Elements in storage order; words of 8 bytes for types 5 and 6."""

    name: str
    data: list
    type: int = SERIES
    columns: int = 1
    calendar: tuple = NO_CALENDAR

    def bits(self):
        """The elements as whole numbers, to compare bit for bit (NaN is not equal to itself)."""
        if self.type >= TEXT:
            return [bytes(word) for word in self.data]
        return [struct.unpack("<Q", struct.pack("<d", x))[0] for x in self.data]


class BadFile(Exception):
    """The file is not what it says."""


# ---- Numbers in text


def put_number(x, digits=17):
    if math.isnan(x):
        bits = struct.unpack("<Q", struct.pack("<d", x))[0]
        return "NaN" if bits == 0x7FF8000000000000 else f"NaN({bits:016x})"
    if math.isinf(x):
        return "Inf" if x > 0 else "-Inf"
    return f"{x:.{digits}g}"


def get_number(text):
    if text.startswith("NaN("):
        return struct.unpack("<d", struct.pack("<Q", int(text[4:-1], 16)))[0]
    if text == "NaN":
        return struct.unpack("<d", struct.pack("<Q", 0x7FF8000000000000))[0]
    return float(text.replace("D", "E").replace("d", "e"))


# ---- What both containers share


def check_shape(kind, length, columns):
    if kind in (SYMMETRIC, TRIANGLE):
        good = length == columns * (columns + 1) // 2
    elif kind == MATRIX:
        good = columns >= 1 and length % columns == 0
    else:
        good = 1 <= kind <= CHARACTERS and columns == 1
    if length < 1 or columns < 1 or not good:
        raise BadFile("type, length and columns do not agree")


def seven(v):
    return (v.type, len(v.data), v.columns, *v.calendar, 0)


# ---- KORVBIN


def write_korvbin(path, variables, single=False):
    with open(path, "wb") as file:
        for v in variables:
            narrow = single and v.type < TEXT
            flags = (-1, 0 if single else -1, -1 if single else 0, 0, 0, -1)
            head = struct.pack("<9i6i7i", *NINE, *flags, *seven(v))
            head += v.name.encode("latin-1")[:8].ljust(8) + b" " * 120
            n = len(v.data)
            if v.type >= TEXT:
                elements = b"".join(v.data)
            else:
                elements = struct.pack(f"<{n}{'f' if narrow else 'd'}", *v.data)
            for record in (b"KORVBIN ", head, struct.pack("<d", n) + elements):
                frame = struct.pack("<i", len(record))
                file.write(frame + record + frame)


def read_korvbin(path):
    with open(path, "rb") as file:
        content = file.read()
    at = 0

    def record():
        nonlocal at
        (n,) = struct.unpack_from("<i", content, at)
        if n < 1 or at + n + 8 > len(content):
            raise BadFile("the file ends in a record")
        if struct.unpack_from("<i", content, at + 4 + n) != (n,):
            raise BadFile("frames do not match")
        body = content[at + 4 : at + 4 + n]
        at += n + 8
        return body

    variables = []
    while at < len(content):
        if record() != b"KORVBIN ":
            raise BadFile("no KORVBIN file")
        head = record()
        numbers = struct.unpack_from("<22i", head)
        if len(head) != 216 or numbers[0] != 1 or numbers[5:9] != (6, 7, 0, 16):
            raise BadFile("bad header")
        single = bool(numbers[9 + 2] & 1)
        kind, length, columns, *calendar = numbers[15:21]
        check_shape(kind, length, columns)
        name = head[88:96].decode("latin-1").rstrip()
        body = record()
        width = 4 if single and kind < TEXT else 8
        if len(body) != 8 + width * length or struct.unpack_from("<d", body) != (length,):
            raise BadFile("length of header and data differ")
        if kind >= TEXT:
            data = [body[8 + 8 * k : 16 + 8 * k] for k in range(length)]
        else:
            data = list(struct.unpack_from(f"<{length}{'f' if width == 4 else 'd'}", body, 8))
        variables.append(Variable(name, data, kind, columns, tuple(calendar)))
    return variables


# ---- KORVDATA


def write_korvdata(path, variables):
    with open(path, "wb") as file:
        for v in variables:
            lines = ["KORVDATA", "".join(f"{n:4d}" for n in NINE), "TFFFFT"]
            lines += ["".join(f"{n:8d}" for n in seven(v)), v.name[:8]]
            file.write(("\n".join(lines) + "\n").encode("latin-1"))
            if v.type >= TEXT:
                for k in range(0, len(v.data), 30):
                    file.write(b"".join(v.data[k : k + 30]).rstrip(b" ") + b"\n")
            else:
                file.write("".join(put_number(x) + "\n" for x in v.data).encode("ascii"))


def read_korvdata(path):
    """Files without a stored format (flag 1 is T)."""
    with open(path, "rb") as file:
        lines = file.read().decode("latin-1").replace("\r\n", "\n").split("\n")
    variables = []
    at = 0
    while at < len(lines):
        if not lines[at].strip():
            at += 1
            continue
        if lines[at].rstrip() != "KORVDATA":
            raise BadFile("no KORVDATA file")
        nine = [int(lines[at + 1][k : k + 4] or 0) for k in range(0, 36, 4)]
        numbers = [int(lines[at + 3][k : k + 8] or 0) for k in range(0, 56, 8)]
        if nine[0] != 1 or nine[5:] != [6, 7, 0, 16]:
            raise BadFile("bad header")
        kind, length, columns, *calendar = numbers[:6]
        check_shape(kind, length, columns)
        name = lines[at + 4][:8].rstrip()
        free = lines[at + 2].startswith("T")
        at += 5
        data = []
        if kind >= TEXT:
            while len(data) < length:
                words = min(30, length - len(data))
                line = lines[at].encode("latin-1").ljust(8 * words)
                data += [line[8 * k : 8 * k + 8] for k in range(words)]
                at += 1
        elif not free:
            raise BadFile(f"{name}: records of a format are not read here")
        else:
            while len(data) < length:
                values = lines[at].replace(",", " ").split()
                data += [get_number(word) for word in values[: length - len(data)]]
                at += 1
        variables.append(Variable(name, data, kind, columns, tuple(calendar)))
    return variables


# ---- NAME.DB


def date_text(year, period, periods):
    return f"{year + period / 1000:9.3f}" if periods >= 100 else f"{year + period / 100:8.2f}"


def write_db(path, v):
    with open(path, "w", encoding="latin-1", newline="\n") as file:
        file.write(f'"cCREATED BY KORVEL FOR  VARIABLE: {v.name:<8.8}"\n')
        year, period, periods = v.calendar
        if v.type == MATRIX:
            file.write(f"{len(v.data) // v.columns:4d}\n{v.columns:4d}\n")
        elif v.type != SERIES:
            raise ValueError("a databank file holds a series or a matrix")
        elif period > 0:
            last = period - 1 + len(v.data) - 1
            file.write(f"{periods:4d}\n{date_text(year, period, periods)}\n")
            file.write(date_text(year + last // periods, last % periods + 1, periods) + "\n")
        else:
            file.write(f"{0:4d}\n{1:8.2f}\n{len(v.data):8.2f}\n")
        file.write("".join(put_number(x) + "\n" for x in v.data))


def split_date(text, periods):
    year, _, digits = text.strip().partition(".")
    if periods == 0:
        return int(year), 1
    width = 3 if periods >= 100 else 2
    digits = digits.ljust(width, "0")
    if periods < 10 and digits[1] == "0":
        digits = digits[0]
    return int(year), max(int(digits), 1)


def read_db(path):
    with open(path, encoding="latin-1") as file:
        lines = file.read().split("\n")
    name = ""
    while lines[0].startswith('"'):
        if "VARIABLE: " in lines[0]:
            name = lines[0].split("VARIABLE: ")[1].split('"')[0].strip()
        lines.pop(0)
    series = "." in lines[1]
    frequency = int(lines[0])
    words = " ".join(lines[3 if series else 2 :]).replace(",", " ").split()
    data = [MISSING if word == "NA" else get_number(word) for word in words]
    if not series:
        columns = int(lines[1])
        return Variable(name, data[: frequency * columns], MATRIX, columns)
    year, period = split_date(lines[1], frequency)
    last_year, last_period = split_date(lines[2], frequency)
    if frequency == 0:
        return Variable(name, data[: last_year - year + 1])
    count = (last_year - year) * frequency + last_period - period + 1
    return Variable(name, data[:count], calendar=(year, period, frequency))


# ---- DIF


def write_dif(path, variables):
    rows = len(variables[0].data)
    out = ["TABLE", "0,1", '"KORVEL"', "VECTORS", f"0,{len(variables)}", '""']
    out += ["TUPLES", f"0,{rows}", '""', "DATA", "0,0", '""', "-1,0", "BOT"]
    for v in variables:
        out += ["1,0", f'"{v.name}"']
    for i in range(rows):
        out += ["-1,0", "BOT"]
        for v in variables:
            missing = v.data[i] == MISSING
            out += ["0,0", "NA"] if missing else [f"0,{put_number(v.data[i])}", "V"]
    out += ["-1,0", "EOD", ""]
    with open(path, "w", encoding="latin-1", newline="\n") as file:
        file.write("\n".join(out))


def read_dif(path):
    """A file whose first row holds the names."""
    with open(path, encoding="latin-1") as file:
        lines = [line.strip() for line in file]
    at = 0
    while lines[at] != "DATA":
        at += 3
    at += 3
    rows = []
    while True:
        kind, _, value = lines[at].partition(",")
        word = lines[at + 1]
        at += 2
        if kind == "-1" and word == "EOD":
            break
        if kind == "-1":
            rows.append([])
        elif kind == "1":
            rows[-1].append(word.strip('"'))
        else:
            rows[-1].append(get_number(value) if word == "V" else MISSING)
    names = rows.pop(0)
    return [Variable(name, [row[k] for row in rows]) for k, name in enumerate(names)]


def read(path):
    """The variables of a file of any of the forms, told by its first bytes."""
    with open(path, "rb") as file:
        first = file.read(12)
    if first == b"\x08\0\0\0KORVBIN ":
        return read_korvbin(path)
    if first.startswith(b"KORVDATA"):
        return read_korvdata(path)
    return read_dif(path) if first.startswith(b"TABLE") else [read_db(path)]


if __name__ == "__main__":
    for argument in sys.argv[1:]:
        for variable in read(argument):
            print(f"{variable.name:8} TYPE {variable.type} {len(variable.data):8} elements,", end=" ")
            print(f"{variable.columns} columns, calendar {variable.calendar}")
