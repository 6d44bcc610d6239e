"""scripts/demo: each line that it prints is typed as it stands, and works."""

import doctest
import fcntl
import os
import pathlib
import pty
import re
import subprocess
import termios
import textwrap
import unittest

from .harness import cell_test_case
from .harness.cell import PATIENCE, SLOWNESS, Output, answers, wait_until
from .harness.pages import ROOT
from .harness.web import PORT, Viewer, connect, get, post

PROMPT = "pellix-sim> "


class DemoTestCase(unittest.TestCase):
    """The demo on a terminal of its own, with the programs of this build."""

    arguments = ()

    def setUp(self):
        master, slave = pty.openpty()
        self.terminal = master
        self.process = subprocess.Popen(
            [ROOT / "scripts" / "demo", *self.arguments], stdin=slave, stdout=slave, stderr=slave,
            start_new_session=True, preexec_fn=lambda: fcntl.ioctl(0, termios.TIOCSCTTY, 0))
        os.close(slave)
        # Its own copy of the descriptor, which it closes.
        self.screen = Output("terminal", open(os.dup(master), "rb", buffering=0))
        self.addCleanup(self.screen.reader.join)
        self.addCleanup(os.close, master)
        self.addCleanup(self.process.wait)
        self.addCleanup(self.process.kill)
        wait_until(lambda: self.screen.partial_line.endswith(PROMPT.encode()))

    def lines(self, since=0):
        return [line.rstrip("\r") for line in self.screen.since(since)]

    def log(self):
        """The file that the screen names."""
        return pathlib.Path(re.fullmatch(
            "The log is in (.+)", next(filter(re.compile("The log").match, self.lines())))[1])

    def interrupt(self):
        os.write(self.terminal, b"\x03")
        self.assertEqual(self.process.wait(PATIENCE), 0)


class DemoTest(DemoTestCase):
    def blocks(self):
        """The blocks of indented lines."""
        text = "\n".join(self.lines()) + "\n"
        return [textwrap.dedent(block) for block in
                re.findall(r"^\n((?:    .*\n)+)(?=\n)", text, re.MULTILINE)]

    def test_every_line_works(self):
        shell, python, simulator = self.blocks()
        self.assertIn("help", simulator.splitlines())
        wait_until(lambda: answers(44221))
        self.type_into_a_shell(shell.splitlines())
        self.type_into_python(python)
        for line in simulator.splitlines():
            with self.subTest(line=line):
                self.type_into_the_demo(line)
        self.assertIn("TavrikDaemon started\n", self.log().read_text())
        self.interrupt()
        self.assertIn("TavrikDaemon stopped\n", self.log().read_text())

    def type_into_a_shell(self, lines):
        self.assertEqual([line.split()[1] for line in lines], ["list", "home", "grip"])
        outputs = [subprocess.run(["sh", "-c", line], cwd="/", check=True, capture_output=True,
                                  text=True, timeout=60 * SLOWNESS).stdout for line in lines]
        self.assertRegex(outputs[0], r"(?m)^HVA SN:100001 ")
        self.assertEqual(outputs[1:], [
            "HVA SN:100001: referenced at 30.00 (state 8)\n",
            "HVA SN:100001: reached the limit without a part at 2.00 (state 7)\n"])

    def type_into_python(self, text):
        program, text = text.split("\n", 1)
        self.assertEqual(program, "python3")
        names, report = {}, []
        examples = doctest.DocTestParser().get_doctest(text, names, "the demo", None, 0)
        runner = doctest.DocTestRunner()
        runner.run(examples, out=report.append, clear_globs=False)
        examples.globs["cell"]("close")()
        self.assertEqual("".join(report), "")
        self.assertGreater(runner.tries, 5)

    def type_into_the_demo(self, line):
        mark = self.screen.mark()
        os.write(self.terminal, line.encode() + b"\n")
        self.screen.wait_for(f"pellix-sim: ok {line}\r$", since=mark)
        wait_until(lambda: self.screen.partial_line.endswith(PROMPT.encode()))
        self.assertEqual(self.screen.matching("pellix-sim: error", since=mark), [])


class WebDemoTest(DemoTestCase):
    arguments = ("--web",)

    def test_it_serves_the_page_with_control_and_log(self):
        text = "\n".join(self.lines())
        self.assertIn(f"Open http://127.0.0.1:{PORT} in a browser.\n", text)
        code = re.search(r"enter the code (\d{8})\.", text)[1]
        self.assertIn("<title>Grippers</title>", get("/").text)
        with Viewer() as viewer:
            cell = viewer.wait_for("cell", lambda cell: len(cell["grippers"]) == 2)
        device = cell["grippers"][0]["device"]
        # Until then, masters refuse commands to their grippers.
        wait_until(lambda: self.log().read_text().count("Pending command PDOUT deleted") == 2)
        token = post("/api/control/take", {"code": code}).json()["token"]
        answer = post("/api/command", {"gripper": device, "command": "reference"}, token)
        self.assertEqual(answer.json()["text"], "reference: started")
        wait_until(lambda: [row for row in post("/api/log", {}).json()["rows"]
                            if row["text"].startswith("Reference")], pause=0.1)
        self.interrupt()
        self.assertIn("TavrikDaemon stopped\n", self.log().read_text())
        wait_until(self.is_port_free)

    @staticmethod
    def is_port_free():
        try:
            connect().close()
        except ConnectionRefusedError:
            return True
        return False


if __name__ == "__main__":
    cell_test_case.main()
