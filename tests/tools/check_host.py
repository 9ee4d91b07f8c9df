#!/usr/bin/env python3
"""A host in Python: check_host.py LIBRARY. Runs scripts through a copy of the library and looks at what comes back."""

import ctypes
import os
import shutil
import sys
import tempfile
import threading

SendMsg = ctypes.CFUNCTYPE(ctypes.c_int32, ctypes.c_void_p, ctypes.c_int32, ctypes.c_int32, ctypes.c_void_p)


class KORVELHOST(ctypes.Structure):
    _fields_ = [("version", ctypes.c_int32), ("size", ctypes.c_int32), ("window", ctypes.c_void_p),
                ("SendMsg", SendMsg), ("stop", ctypes.c_int32), ("reserved", ctypes.c_int32)]


class Engine:
    def __init__(self, path):
        self.library = ctypes.CDLL(path)
        self.library.KORVELX.argtypes = [ctypes.POINTER(ctypes.c_int32), ctypes.POINTER(ctypes.c_int32),
                                         ctypes.c_void_p]
        self.library.KORVELX.restype = None
        self.callback = SendMsg(self.send)
        self.record = KORVELHOST(1, ctypes.sizeof(KORVELHOST), None, self.callback, 0, 0)
        assert self.call(-2, ctypes.addressof(self.record)) == (-2, 9557)

    def call(self, code, text):
        code, result = ctypes.c_int32(code), ctypes.c_int32(-99)
        if isinstance(text, str):
            text = ctypes.cast(ctypes.c_char_p(text.encode()), ctypes.c_void_p)
        self.library.KORVELX(ctypes.byref(code), ctypes.byref(result), text)
        return code.value, result.value

    def send(self, window, number, length, text):
        if number == 1224:
            if not self.commands:
                return -1
            command = self.commands.pop(0)
            if callable(command):
                command = command()
            ctypes.memmove(text, command.encode(), len(command))
            return len(command)
        said = ctypes.string_at(text, length).decode()
        (self.lines if number == 1124 else self.messages).append(said)
        return 0

    def run(self, commands, text="-q"):
        self.commands, self.lines, self.messages = list(commands), [], []
        return self.call(337, text)[1]


def check_plain_run(engine):
    status = engine.run(["SAMPLE 1 3", "GENR X=TIME(0)**2", "PRINT X"])
    assert status == 0, (status, engine.lines)
    assert engine.lines[:2] == [" X", "    1.000000       4.000000       9.000000"], engine.lines
    assert engine.lines[2:] == [" ...NOTE..STOPPED", " ...COMPLETED"], engine.lines


def check_stop_from_thread(engine):
    def stop_soon():
        threading.Timer(0.2, lambda: setattr(engine.record, "stop", 1)).start()
        return "DO #=1,10000000"

    assert engine.run(["DIMENSION A 3", stop_soon, "GEN1 Y=#", "ENDO", "NAMES"]) == 0
    assert " ...NOTE..COMMAND STOPPED" in engine.lines, engine.lines
    assert any(line.startswith(" A ") for line in engine.lines), "the data are gone"
    assert engine.record.stop == 0


def check_start_files(engine, folder):
    """Settings of KORVELWX.INI and commands of CONFIG.KOR; files of others are not believed."""
    assert engine.call(-3, f"IPAR=2500\nVPREF={folder}\n") == (-3, 0)
    assert engine.call(-3, "IPAR=many")[1] != 0
    with open(os.path.join(folder, "KORVELWX.INI")) as settings:
        assert settings.read() == f"2500\n\n{folder}\n\n\n\n"
    start = os.path.join(folder, "CONFIG.KOR")
    with open(start, "w") as file:
        file.write("SET NOWARN\nDIMENSION FROMFILE 1\n")
    note = " ...NOTE..USING INITIAL COMMANDS FROM FILE: " + start
    assert engine.run(["DISPLAY WARN", "NAMES"]) == 0
    assert engine.lines[0] == note and " WARN      FALSE" in engine.lines, engine.lines
    assert any(line.startswith(" FROMFILE") for line in engine.lines)
    assert "SET_PAR=320000" in engine.messages, engine.messages
    engine.run([], "-q SAFE PAR=3000")
    assert note not in engine.lines and "SET_PAR=384000" in engine.messages
    os.chmod(start, 0o666)
    engine.run(["NAMES"])
    assert note not in engine.lines and "NOBODY ELSE MAY WRITE" in engine.lines[0], engine.lines
    if os.geteuid() == 0:
        os.chmod(start, 0o644)
        os.chown(start, 12345, 12345)
        engine.run(["NAMES"])
        assert note not in engine.lines, engine.lines
    os.remove(os.path.join(folder, "KORVELWX.INI"))
    engine.run([])
    assert "SET_PAR=2621440" in engine.messages


def check_forked_child(engine):
    """The child of a process whose engine has helper threads can run commands too."""
    work = ["SAMPLE 1 400000", "GENR X=NOR(1)", "SORT X"]
    assert engine.run(work) == 0
    child = os.fork()
    if child == 0:
        os._exit(engine.run(work))
    assert os.waitpid(child, 0)[1] == 0


def main():
    with tempfile.TemporaryDirectory() as folder:
        folder = os.path.realpath(folder) + "/"
        copy = shutil.copy(sys.argv[1], folder + "libkorvel.so")
        engine = Engine(copy)
        check_plain_run(engine)
        check_stop_from_thread(engine)
        check_start_files(engine, folder)
        check_forked_child(engine)
        assert engine.call(-2, None) == (-2, 9557)
        assert engine.call(337, "") == (-7, 2)
    print("good")


if __name__ == "__main__":
    main()
