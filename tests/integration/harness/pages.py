"""The documents, their fenced blocks and sections, and tests that type their sessions."""

import doctest
import pathlib
import re
import textwrap

from .cell import wait_until
from .cell_test_case import CellTestCase

ROOT = pathlib.Path(__file__).resolve().parents[3]
README = ROOT / "README.md"
METHODS_PAGE = ROOT / "docs" / "methods.md"
OPERATION = ROOT / "docs" / "operation.md"
PAGES = (README, ROOT / "CHANGELOG.md", ROOT / "CONTRIBUTING.md",
         *sorted((ROOT / "docs").glob("*.md")))

FENCE = re.compile(r"^( *)```([\w-]*)\n(.*?)^\1```$", re.MULTILINE | re.DOTALL)
CODE_SPAN = re.compile(r"`([^`]+)`")


def blocks(page, *languages):
    """The fenced blocks of a page in these languages: language, text, number of the first line."""
    text = page.read_text()
    for match in FENCE.finditer(text):
        if match[2] in languages:
            yield match[2], textwrap.dedent(match[3]), text.count("\n", 0, match.start(3))


def section(page, heading):
    """The text between a heading and the next one of the same or a higher level."""
    level = heading.index(" ")
    text = page.read_text()
    start = text.index(f"\n{heading}\n") + 1
    end = re.compile(rf"^#{{1,{level}}} ", re.MULTILINE).search(text, start + len(heading))
    return text[start:end.start() if end else len(text)]


class PageTestCase(CellTestCase):
    """Plays a page against the cell of the demo: Python examples and commands of the simulator."""

    options = ("--gripper", "HVA", "--gripper", "MZD-S")

    # What is logged when the daemon has followed a change of mode.
    LOGGED_AFTER = {"mode 0 2": "STARTUP$", "mode 0 4": "Pending command PDOUT deleted"}

    @classmethod
    def prepare(cls):
        super().prepare()
        cls.cell.wait_until_operating(2)
        wait_until(cls.daemon_sees_the_cell)

    @classmethod
    def daemon_sees_the_cell(cls):
        """Whether the daemon's process data are those of the grippers."""
        for number, device in enumerate(("HVA SN:100001", "MZD-S SN:100002")):
            pdin = cls.cell.show(number)["pdin"]
            excerpt = pdin[0] + 256 * pdin[1] + 65536 * pdin[3] if pdin else 0
            if cls.cell.call("GetPDINExcerpt", device) != excerpt:
                return False
        return True

    def simulate(self, command):
        """Types a command; returns when the daemon has done its part."""
        mark = self.cell.log.mark()
        self.cell.command(command)
        if command in self.LOGGED_AFTER:
            self.cell.log.wait_for(self.LOGGED_AFTER[command], since=mark)
        wait_until(self.daemon_sees_the_cell)

    def play(self, page):
        parser = doctest.DocTestParser()
        runner = doctest.DocTestRunner(optionflags=doctest.ELLIPSIS)
        names = {}
        report = []
        for language, text, line in blocks(page, "python", "pellix-sim"):
            if language == "pellix-sim":
                for command in text.splitlines():
                    self.simulate(command)
                continue
            examples = parser.get_doctest(text, names, page.name, str(page), line)
            self.assertTrue(examples.examples, f"{page.name}:{line}: no example")
            runner.run(examples, out=report.append, clear_globs=False)
            names = examples.globs
        if "gripper" in names:
            names["gripper"]("close")()
        self.assertEqual("".join(report), "")
        self.assertGreater(runner.tries, 5)
