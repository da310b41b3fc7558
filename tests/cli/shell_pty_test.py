#!/usr/bin/python3
"""The ryn shell under a pseudo-terminal: completion of a register alias, history kept across two
sessions, and an answer printed while the user is typing the next line. Beside it, what the other
online commands do on a terminal only: the table of ryn watch drawn in place, the progress bar of
ryn backup.

    shell_pty_test.py <ryn executable>
"""
import os
import pty
import re
import select
import sys
import tempfile
import time

RYN = sys.argv[1]
PROMPT = b"ryn> "


class Session:
    """One `ryn shell` on a pseudo-terminal; everything it wrote is kept in `seen`."""

    def __init__(self, data_home, bus="sim:"):
        env = dict(os.environ, XDG_DATA_HOME=data_home, TERM="xterm")
        self.pid, self.fd = pty.fork()
        if self.pid == 0:
            os.execve(RYN, [RYN, "shell", "--bus", bus], env)
        self.seen = b""
        self.pos = 0
        self.expect(PROMPT)

    def expect(self, pattern, timeout=10.0):
        """Reads until `pattern` (bytes, or a compiled regex) shows up after the last match."""
        deadline = time.monotonic() + timeout
        while True:
            text = self.seen[self.pos:]
            if isinstance(pattern, re.Pattern):
                found = pattern.search(text)
                end = found.end() if found else -1
            else:
                at = text.find(pattern)
                end = at + len(pattern) if at >= 0 else -1
            if end >= 0:
                self.pos += end
                return
            left = deadline - time.monotonic()
            if left <= 0:
                raise AssertionError(f"{pattern!r} not seen; the shell wrote {text!r}")
            ready, _, _ = select.select([self.fd], [], [], left)
            if ready:
                try:
                    chunk = os.read(self.fd, 4096)
                except OSError:
                    chunk = b""
                if not chunk:
                    raise AssertionError(f"the shell ended before {pattern!r}; it wrote {text!r}")
                self.seen += chunk

    def send(self, keys):
        os.write(self.fd, keys)

    def close(self):
        self.send(b".quit\r")
        _, status = os.waitpid(self.pid, 0)
        os.close(self.fd)
        assert os.WIFEXITED(status) and os.WEXITSTATUS(status) == 0, status


def run_on_terminal(*args, timeout=20.0):
    """Runs ryn with a pseudo-terminal as its standard streams; returns all it wrote and its status."""
    pid, fd = pty.fork()
    if pid == 0:
        os.execv(RYN, [RYN, *args])
    seen = b""
    deadline = time.monotonic() + timeout
    while time.monotonic() < deadline:
        ready, _, _ = select.select([fd], [], [], 0.1)
        if ready:
            try:
                chunk = os.read(fd, 4096)
            except OSError:
                chunk = b""
            if not chunk:
                break
            seen += chunk
    _, status = os.waitpid(pid, 0)
    os.close(fd)
    return seen, os.WEXITSTATUS(status)


def main():
    with tempfile.TemporaryDirectory() as home:
        # Completion: "POS_A" completes to the alias POS_ACT, whose read is answered.
        s = Session(home)
        s.send(b"POS_A\t")
        s.expect(b"CT")
        s.send(b".0\r")
        s.expect(re.compile(rb"M7\.0=-?\d+"))
        s.send(b"K1.0=4321\r")
        s.expect(b"K1.0=4321: acknowledged")
        s.close()
        history = os.path.join(home, "ryn", "history")
        with open(history, "rb") as f:
            kept = f.read()
        assert b"POS_ACT.0" in kept and b"K1.0=4321" in kept, kept

        # History across sessions: the line of the first session is one Up arrow away.
        s = Session(home)
        s.send(b"\x1b[A")
        s.expect(b"K1.0=4321")
        s.send(b"\r")
        s.expect(b"K1.0=4321: acknowledged")
        s.close()

        # An answer printed while typing: the bus answers after 0.5 s, the user types meanwhile;
        # the answer appears and the half-typed line is drawn again after it.
        s = Session(home, "sim:latency_us=500000")
        s.send(b"K1.0\r")
        s.send(b"K2")
        s.expect(b"K1.0=1000")
        s.expect(b"K2")
        s.send(b".0\r")
        s.expect(re.compile(rb"K2\.0=-?\d+"))
        s.close()
    # ryn watch on a terminal: a table of one row per axis, drawn again in place (cursor up).
    seen, status = run_on_terminal("watch", "M7", "K12", "--axes", "0,1", "--interval", "20",
                                   "--count", "3")
    assert status == 0, seen
    assert re.search(rb"AXIS +M7 +K12", seen) and b"\x1b[4A" in seen, seen
    assert b"time_s" not in seen, "CSV on a terminal"

    # ryn backup with standard error on a terminal: a progress bar, cleared before the summary.
    with tempfile.TemporaryDirectory() as work:
        seen, status = run_on_terminal("backup", "-o", os.path.join(work, "b.par"))
        assert status == 0, seen
        assert re.search(rb"backup \[#+ *\] +\d+%", seen) and b"100%" in seen, seen
        assert b"\r\x1b[Kryn backup: 5 axes" in seen, seen
    print("shell, watch and backup under a pseudo-terminal: ok")


if __name__ == "__main__":
    main()
