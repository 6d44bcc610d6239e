"""Commands on a terminal that an emulator reads."""

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


class TerminalSession:
    """A command, tavrikctl by default, that runs on a terminal of its own.

    A `controlling` terminal is what job control and SIGWINCH need, but output just before the end
    may get lost on it: the kernel hangs it up. Standard error is then a pipe.
    """

    def __init__(self, *arguments, command=None, rows=500, columns=80, environment=None,
                 controlling=False, before=lambda: None):
        self.screen = pyte.Screen(columns, rows)
        self.stream = pyte.ByteStream(self.screen)
        self.output = b""
        self.master, self.slave = pty.openpty()
        self.set_size(rows, columns)
        self.settings = termios.tcgetattr(self.slave)

        def prepare():
            if controlling:
                fcntl.ioctl(self.slave, termios.TIOCSCTTY, 0)
            before()
        self.process = subprocess.Popen(
            command or ctl.arguments_of(*arguments), stdin=self.slave, stdout=self.slave,
            stderr=subprocess.PIPE if controlling else self.slave, text=True,
            start_new_session=True, preexec_fn=prepare,
            env={**ctl.ENVIRONMENT, "TERM": "xterm-256color", **(environment or {})})

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.kill()
        self.process.wait()
        if self.process.stderr:
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

    def type(self, text):
        os.write(self.master, text.encode())

    def read(self):
        """Shows the output so far on the screen."""
        while select.select([self.master], [], [], 0)[0]:
            data = os.read(self.master, 65536)
            self.output += data
            self.stream.feed(data)

    def lines(self):
        """The lines of the screen, without trailing blanks."""
        self.read()
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

    def wait_for_end(self):
        """Waits until it has ended; returns its exit status and the lines above the cursor."""
        def has_ended():
            self.read()  # a full terminal would block it
            return self.process.poll() is not None
        wait_until(has_ended)
        return self.process.returncode, self.lines()[:self.screen.cursor.y]

    def errors(self):
        """Standard error of a command on a controlling terminal, once it has ended."""
        return self.process.stderr.read()

    def columns_from(self, text):
        """Each line of the screen from the column on in which `text` begins somewhere."""
        lines = self.cells()
        column = next(line.index(text) for line in lines if text in line)
        return [line[column:].rstrip() for line in lines]

    def cells(self):
        """The lines of the screen with as many characters as columns: a zero byte follows a
        character of two columns."""
        return ["".join(self.screen.buffer[row][column].data or "\0"
                        for column in range(self.screen.columns))
                for row in range(self.screen.lines)]

    def colour_of(self, text):
        """The colour in which `text` is shown."""
        for number, line in enumerate(self.lines()):
            if text in line:
                return self.screen.buffer[number][line.index(text)].fg
        raise AssertionError(f"{text!r} is not shown")


def watch_session(*arguments, rows=24, **options):
    """tavrikctl watch on a controlling terminal."""
    return TerminalSession("watch", *arguments, rows=rows, controlling=True, **options)


def output_on_terminal(*arguments, environment=None):
    """The bytes that a tavrikctl command writes to a terminal."""
    with TerminalSession(*arguments, environment=environment) as session:
        session.wait_for_end()
        return session.output


def screen_of(columns, *arguments):
    """The lines that a tavrikctl command leaves on a terminal of this width."""
    with TerminalSession(*arguments, columns=columns) as session:
        return session.wait_for_end()[1]
