#!/usr/bin/env python3
"""Drives the program at a pseudo-terminal: completion, history, notes on typing errors, Ctrl-C.

check_terminal.py PROGRAM. The session is kept beside what was expected when something is missing.
"""
import fcntl
import os
import pty
import select
import signal
import struct
import sys
import tempfile
import termios
import time

PROGRAM = sys.argv[1]
WAIT = 20  # seconds until an answer counts as missing


class Session:
    def __init__(self, home):
        self.seen = ""
        self.screen = ""
        self.pid, self.fd = pty.fork()
        if self.pid == 0:
            os.chdir(home)
            os.environ.update(HOME=home, TERM="vt100", COLUMNS="100", LINES="24")
            fcntl.ioctl(1, termios.TIOCSWINSZ, struct.pack("HHHH", 24, 100, 0, 0))
            os.execv(PROGRAM, [PROGRAM, "-q"])

    def read(self, seconds):
        ready, _, _ = select.select([self.fd], [], [], seconds)
        if not ready:
            return False
        try:
            text = os.read(self.fd, 65536).decode("latin1")
        except OSError:
            return False
        self.seen += text
        self.screen += text
        return bool(text)

    def expect(self, text):
        """Waits for a text behind the one that was found last."""
        end = time.monotonic() + WAIT
        while text not in self.screen:
            if time.monotonic() > end or not self.read(1.0) and time.monotonic() > end:
                print(f"missing: {text!r}\nsession:\n{self.seen}")
                os.kill(self.pid, signal.SIGKILL)
                sys.exit(1)
        self.screen = self.screen.split(text, 1)[1]

    def type(self, keys, answer="|_"):
        os.write(self.fd, keys.encode("latin1"))
        self.expect(answer)


with tempfile.TemporaryDirectory() as home:
    open(os.path.join(home, "prices.csv"), "w").write("PRICE\n1\n2\n")
    s = Session(home)
    s.expect("|_")
    s.type("SAM\t", "PLE ")  # a command
    s.type("1 10\r")
    s.type("GENR INCOME=TIME(0)\r")
    s.type("PRINT INC\t", "OME ")  # a variable
    s.type("\r", "10.00000")
    s.expect("|_")
    s.type("OLS INCOME / HETC\t", "OV")  # an option
    s.type("\r", "HETEROSKEDASTICITY")
    s.expect("|_")
    s.type("READ(pri\t", "ces.csv")  # a file
    s.type("\x15\r")  # the line is given up
    s.type("GNER X=1\r", "\x1b[31m ...ERROR")  # in red
    s.expect("DID YOU MEAN GENR?")
    s.type("PRINT INCMOE\r", "DID YOU MEAN INCOME?")
    s.type("HELP SET CRYPT\r", "pass phrase")
    s.expect("|_")
    s.type("HELP OLS\r", "MORE:")  # a page longer than the screen
    s.type("\r", "MORE:")
    s.type("q\r")
    # Ctrl-C leaves a long loop; the data are there.
    s.type("DO #=1,900000000\r", "| ")
    s.type("?GEN1 A=#\r", "| ")
    s.type("ENDO\r", "EXECUTION BEGINNING")
    time.sleep(0.3)
    s.type("\x03")
    s.type("PRINT INCOME\r", "10.00000")
    s.expect("|_")
    # Who has mistyped a DO is not inside it, and bad EXECUTEs end no session.
    s.type("DO # 1,3\r", "MISSING = SIGN")
    s.expect("|_")
    for _ in range(7):
        s.type("EXECUTE NOPE\r", "IS INVALID VARIABLE FOR EXEC")
        s.expect("|_")
    # It ends a long estimation too: the best point is kept, the line of its progress goes.
    s.type("SAMPLE 1 100000\r")
    s.type("GENR X=TIME(0)/100000\r")
    s.type("GENR Y=X+NOR(1)\r")
    s.type("NL 1 / NCOEF=2 METHOD=SA SANS=100 SANT=1000 COEF=BEST\r")
    s.type("EQ Y=LEVEL+SLOPE*X\r")
    s.type("END\r", "ESTIMATING ... ")
    s.type("\x03", "\r                     \r")
    s.expect("STOPPED BY THE USER. THE BEST COEFFICIENTS SO FAR ARE KEPT")
    s.expect("SLOPE")
    s.expect("|_")
    s.type("PRINT BEST\r", "BEST\r\n")
    s.expect("|_")
    s.type("SAMPLE 1 10\r")
    s.type("PRINT INCOME\r", "10.00000")
    s.expect("|_")
    # The pass phrase stays out of the history.
    s.type("SET CRYPT=secretword\r")
    s.type("DISPLAY CRYPT\r", "********")
    s.expect("|_")
    s.type("\x1b[A\x1b[A\r", "10.00000")  # the last line but one: PRINT INCOME
    s.expect("|_")
    # The prompt is shown a moment before the keys are the editor's: an early Ctrl-D is the terminal's.
    time.sleep(0.2)
    for _ in range(20):
        os.write(s.fd, b"\x04")
        while s.read(0.5) and "COMPLETED" not in s.screen:
            pass
        if "COMPLETED" in s.screen:
            break
        time.sleep(0.2)
        os.write(s.fd, b"\r")
        s.read(0.2)
    s.expect("COMPLETED")
    _, status = os.waitpid(s.pid, 0)
    history = open(os.path.join(home, ".korvel_history")).read()
    mode = os.stat(os.path.join(home, ".korvel_history")).st_mode & 0o777
    for bad, what in [
        (os.waitstatus_to_exitcode(status) != 1, f"status {status}"),
        ("secretword" in history, "the pass phrase is in the history"),
        ("GENR" not in history, "the history is empty"),
        (mode != 0o600, f"mode {mode:o} of the history"),
    ]:
        if bad:
            print(what)
            sys.exit(1)
print("terminal session as expected")
