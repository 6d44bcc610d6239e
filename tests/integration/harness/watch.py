"""tavrikctl watch on a terminal that an emulator reads."""

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


class Watch:
    """tavrikctl watch with a terminal of its own."""

    def __init__(self, *arguments, rows=24, columns=80, environment=None, command=None,
                 before=lambda: None):
        self.screen = pyte.Screen(columns, rows)
        self.stream = pyte.ByteStream(self.screen)
        self.output = b""
        self.master, self.slave = pty.openpty()
        self.set_size(rows, columns)
        self.settings = termios.tcgetattr(self.slave)
        self.before = before
        self.process = subprocess.Popen(
            command or ctl.arguments_of("watch", *arguments), stdin=self.slave, stdout=self.slave,
            stderr=subprocess.PIPE, text=True, start_new_session=True,
            preexec_fn=self.prepare,
            env={**ctl.CLEAN, "TERM": "xterm-256color", **(environment or {})})

    def prepare(self):
        """Makes it the controlling terminal of this process: only then it gets SIGWINCH."""
        fcntl.ioctl(self.slave, termios.TIOCSCTTY, 0)
        self.before()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.kill()
        self.process.wait()
        self.process.stderr.close()
        self.hang_up()

    def hang_up(self):
        """Takes the terminal away."""
        for end in filter(None, (self.master, self.slave)):
            os.close(end)
        self.master = self.slave = None

    def set_size(self, rows, columns):
        fcntl.ioctl(self.master, termios.TIOCSWINSZ, struct.pack("HHHH", rows, columns, 0, 0))
        self.screen.resize(rows, columns)

    def lines(self):
        """The lines of the screen, without trailing blanks."""
        while select.select([self.master], [], [], 0)[0]:
            data = os.read(self.master, 65536)
            self.output += data
            self.stream.feed(data)
        return [line.rstrip() for line in self.screen.display]

    def wait_for(self, pattern):
        """Waits until a line of the screen matches; returns the screen."""
        shown = []

        def is_shown():
            shown[:] = self.lines()
            return any(re.search(pattern, line) for line in shown)
        try:
            wait_until(is_shown)
        except AssertionError:
            raise AssertionError(f"no line with {pattern!r}", *shown) from None
        return shown

    def columns_from(self, text):
        """Each line of the screen from the column on in which `text` begins somewhere."""
        lines = self.cells()
        column = next(line.index(text) for line in lines if text in line)
        return [line[column:].rstrip() for line in lines]

    def cells(self):
        """The lines of the screen with as many characters as columns: one of two is followed by
        a zero byte."""
        return ["".join(self.screen.buffer[row][column].data or "\0"
                        for column in range(self.screen.columns))
                for row in range(self.screen.lines)]

    def colour_of(self, text):
        """The colour in which `text` is shown."""
        for number, line in enumerate(self.lines()):
            if text in line:
                return self.screen.buffer[number][line.index(text)].fg
        raise AssertionError(f"{text!r} is not shown")

    def press(self, keys):
        os.write(self.master, keys)

    def wait_for_end(self):
        """Waits until it has ended; returns its exit status and standard error."""
        wait_until(lambda: self.lines() and self.process.poll() is not None)
        self.lines()
        return self.process.returncode, self.process.stderr.read()
