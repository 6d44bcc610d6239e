"""tavrikctl on a terminal that an emulator reads."""

import fcntl
import os
import pty
import re
import select
import struct
import subprocess
import termios

import pyte

from . import ctl
from .cell import wait_until


class OnTerminal:
    """A running tavrikctl, all of its input and output on a terminal of its own."""

    def __init__(self, *arguments, columns=80, rows=200):
        self.screen = pyte.Screen(columns, rows)
        self.stream = pyte.ByteStream(self.screen)
        self.output = b""
        self.master, slave = pty.openpty()
        fcntl.ioctl(slave, termios.TIOCSWINSZ, struct.pack("HHHH", rows, columns, 0, 0))
        self.process = subprocess.Popen(
            ctl.arguments_of(*arguments), stdin=slave, stdout=slave, stderr=slave,
            start_new_session=True, env={**ctl.CLEAN, "TERM": "xterm", "NO_COLOR": "1"})
        os.close(slave)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.kill()
        self.process.wait()
        os.close(self.master)

    def lines(self):
        """The lines of the screen so far, without trailing blanks and empty lines at the end."""
        while select.select([self.master], [], [], 0)[0]:
            try:
                data = os.read(self.master, 65536)
            except OSError:  # tavrikctl has ended
                break
            self.output += data
            self.stream.feed(data)
        return "\n".join(line.rstrip() for line in self.screen.display).rstrip().split("\n")

    def wait_for(self, pattern):
        """Waits until a line of the screen matches."""
        wait_until(lambda: any(re.search(pattern, line) for line in self.lines()))

    def type(self, text):
        os.write(self.master, text.encode())

    def wait_for_end(self):
        """Waits until it has ended; returns its exit status and the lines of the screen."""
        wait_until(lambda: self.lines() and self.process.poll() is not None)
        return self.process.returncode, self.lines()
