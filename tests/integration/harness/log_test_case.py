"""Logs of a cell in files, and tavrikctl log that reads them."""

import json
import pathlib
import re
import tempfile

from .cell import wait_until
from .ctl_test_case import CtlTestCase


class LogTestCase(CtlTestCase):
    """Tests with a folder for logs, and the log of the cell so far."""

    @classmethod
    def prepare(cls):
        """Has the threads of each master start alone: those of masters that start together may be
        logged in an order that does not tell which thread is whose."""
        super().prepare()
        masters = range(cls.options.count("--gripper"))
        if len(masters) > 1:
            mark = cls.cell.log.mark()
            for number in masters:
                cls.cell.command(f"unplug {number}")
            cls.cell.log.wait_for("PELLIX removed", since=mark, count=len(masters))
            for number in masters:
                cls.plug(number)
        # Logged by readings before the first process data, on a thread without a known gripper.
        cls.cell.log.forget("PDIN length mismatch: ")

    @classmethod
    def plug(cls, number):
        mark = cls.cell.log.mark()
        cls.cell.command(f"plug {number}")
        cls.cell.log.wait_for("Device added", since=mark)
        cls.cell.wait_until_operating(1, since=mark)
        device = cls.call_apart("GetGrippers")[-1]
        wait_until(lambda: cls.call_apart("GetPDINExcerpt", device))

    def setUp(self):
        self.folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        self.addCleanup(self.cell.close_clients)

    def file(self, lines, name="daemon.log"):
        """A log file of these lines."""
        path = self.folder / name
        path.write_bytes(b"".join(line if isinstance(line, bytes) else line.encode() + b"\n"
                                  for line in lines))
        return path

    def lines_so_far(self):
        """The log of the cell, with all lines of the calls that have been answered."""
        return self.cell.log.since(0)

    def cell_log(self):
        return self.file(self.lines_so_far())

    def rows(self, *arguments):
        return self.ctl("log", *arguments).splitlines()

    def objects(self, *arguments):
        return [json.loads(line) for line in self.rows("--json", *arguments)]

    def calls_since(self, mark):
        """The calls since a mark in the log of the cell."""
        lines = self.lines_so_far()
        before = len(self.calls(lines[:mark]))
        return self.calls(lines)[before:]

    def calls(self, lines):
        return [row for row in self.objects(self.file(lines)) if row["kind"] == "call"]

    def expect_row(self, rows, mark, master, gripper, text):
        pattern = rf"^{re.escape(mark)} [\d:.]+  {master} +{re.escape(gripper)}  +{text}$"
        self.assertTrue(any(re.search(pattern, row) for row in rows),
                        pattern + "\n" + "\n".join(rows[-40:]))
