"""Runs the example clients with the commands of their page, in simulated cells."""

import pathlib
import subprocess
import tempfile
import unittest

from .harness import ctl
from .harness.cell import HOLDING, NEEDS_REFERENCE, PORTS, RELEASED, SLOWNESS, wait_until
from .harness.cell_test_case import CellTestCase, main
from .harness.ctl_test_case import http_server

ROOT = pathlib.Path(__file__).resolve().parents[2]

# Every command of docs/examples.md.
PYTHON = "python3 examples/grip.py"
JAVASCRIPT = "node examples/grip.js"
BUILD = "g++ -std=c++20 examples/grip.cpp $(xmlrpc-c-config c++2 client --libs) -o /tmp/grip"
CPP = "/tmp/grip"
SCRIPT = "python3 examples/run_script.py examples/grip.script"
PAGE = (PYTHON, JAVASCRIPT, BUILD, CPP, SCRIPT)

EXAMPLES = (PYTHON, JAVASCRIPT, CPP, SCRIPT)
COUNT = len(EXAMPLES)

URL = f"http://127.0.0.1:{PORTS[0]}/RPC2"
CLOSED_PORT = "http://127.0.0.1:44223/RPC2"


def setUpModule():
    global folder
    folder = unittest.enterModuleContext(tempfile.TemporaryDirectory())
    subprocess.run(**shell(BUILD), check=True, timeout=60 * SLOWNESS)


def shell(command, *arguments):
    """Returns how to run a command of the page with the program in the tests' folder."""
    return {"args": ["sh", "-c", f'{command.replace("/tmp", folder)} "$@"', "sh", *arguments],
            "cwd": ROOT, "env": {**ctl.ENVIRONMENT, "http_proxy": CLOSED_PORT},  # must not be used
            "stdin": subprocess.DEVNULL}


class ExamplesTestCase(CellTestCase):
    @staticmethod
    def start(devices, url=URL):
        """Starts all examples, each with its own gripper."""
        return [subprocess.Popen(**shell(command, device, url), stdout=subprocess.PIPE,
                                 stderr=subprocess.STDOUT, text=True)
                for command, device in zip(EXAMPLES, devices, strict=True)]

    def expect(self, status, text, runs):
        """Waits for the end of the examples, whose whole output must match `text`."""
        outputs = [run.communicate(timeout=60 * SLOWNESS)[0] for run in runs]
        for run, output in zip(runs, outputs):
            with self.subTest(command=run.args[2]):
                self.assertRegex(output, rf"\A{text}\Z")
                self.assertEqual(run.returncode, status)


class GripTest(ExamplesTestCase):
    # Names with characters that XML must escape.
    options = ("--gripper", r'HVA,product=H&A <">') * 3 * COUNT + ("--speed", "200")
    devices, slow, silent = ([f'H&A <"> SN:{number}' for number in range(first, first + COUNT)]
                             for first in (100001, 100001 + COUNT, 100001 + 2 * COUNT))
    DEVICE = r'H&A <"> SN:1000\d\d'

    @classmethod
    def prepare(cls):
        """Starts the examples that run into a timeout; the other tests run at the same time."""
        super().prepare()
        cls.cell.wait_until_operating(3 * COUNT)
        for device in cls.silent:
            wait_until(lambda device=device:
                       cls.cell.call_apart("GetState", device) == NEEDS_REFERENCE)
        for number in range(COUNT):
            cls.cell.command(f"param {COUNT + number} 64 2 0")  # an override of 0: it never opens
            cls.cell.command(f"silent {2 * COUNT + number} on")
        port = cls.enterClassContext(http_server(200, b"", answers=0))
        cls.without_answer = cls.start(cls.devices, f"http://127.0.0.1:{port}/RPC2")
        cls.without_end = cls.start(cls.slow)
        cls.without_master = cls.start(cls.silent)

    def setUp(self):
        """Restarts all grippers."""
        mark = self.cell.log.mark()
        self.tell_all("unplug")
        self.cell.log.wait_for("PELLIX removed", since=mark, count=COUNT)
        self.tell_all("plug")
        for device in self.devices:
            wait_until(lambda device=device: self.call("GetState", device) == NEEDS_REFERENCE)

    def tell_all(self, command, arguments=""):
        for number in range(COUNT):
            self.cell.command(f"{command} {number} {arguments}".rstrip())

    def change_all(self, command, on, off):
        self.addCleanup(self.tell_all, command, off)
        self.tell_all(command, on)

    def run_all(self, status, text):
        self.expect(status, text, self.start(self.devices))

    def test_a_part_is_gripped_and_released(self):
        self.change_all("part", "12.5", "none")
        self.run_all(0, rf"{self.DEVICE}: part held at 12.50?\n{self.DEVICE}: released\n")
        for number in range(COUNT):
            shown = self.cell.show(number)
            self.assertEqual((shown["state"], shown["position"]), (RELEASED, 28.0))

    def test_without_a_part_a_position_of_zero_is_valid(self):
        self.tell_all("param", "96 1 0,0")
        self.run_all(0, rf"{self.DEVICE}: no part, closed to 0(.00)?\n{self.DEVICE}: released\n")

    def test_a_gripper_that_holds_a_part_keeps_it(self):
        self.change_all("part", "12.5", "none")
        for device in self.devices:
            self.assertEqual(self.call("Home", device), 0)
            wait_until(lambda device=device: self.call("GetState", device) == 8)
            self.assertEqual(self.call("Grip", device, 0), 0)
            wait_until(lambda device=device: self.call("GetState", device) == HOLDING)
        self.run_all(1, f"{self.DEVICE}: already holds a part: remove it first\n")
        for number in range(COUNT):
            self.assertEqual(self.cell.show(number)["state"], HOLDING)

    def test_every_status_is_explained(self):
        for status, text in ((3, "no such gripper, or not supported by its model"),
                             (12, "nothing could be sent: check the plug and power .*"),
                             (21, "no process data: .*"),
                             (44, "error code of its master"),
                             (-7, "error code of its master")):
            with self.subTest(status=status):
                self.change_all("error", f"{status} PDOUT", "off")
                self.run_all(1, f"{self.DEVICE}: (Home: )?status {status}: {text}\n")

    def test_a_temporary_failure(self):
        self.change_all("error", "3 PDOUT", "off")
        runs = self.start(self.devices)
        refused = set()

        def cured():
            """Removes each master's error after its first refusal, before the next request."""
            for number in set(range(COUNT)) - refused:
                if self.cell.show(number)["requests"][-1] == "PDOUT=[6,0]":
                    self.cell.command(f"error {number} off")
                    refused.add(number)
            return len(refused) == COUNT

        wait_until(cured)
        self.expect(0, rf"{self.DEVICE}: no part, .*\n{self.DEVICE}: released\n", runs)

    def test_without_a_data_link(self):
        self.tell_all("mode", "2")
        for device in self.devices:
            wait_until(lambda device=device: not self.call("GetPDINExcerpt", device))
        self.run_all(1, f"{self.DEVICE}: (Release: )?status 21: no process data: .*\n")

    def test_a_fault(self):
        for flag in ("fault", "temp-fault"):
            with self.subTest(flag=flag):
                self.change_all("fault", f"{flag} on", f"{flag} off")
                self.run_all(1, f"{self.DEVICE}: reports a fault, in state 15\n")
                self.tell_all("fault", f"{flag} off")

    def test_an_unknown_gripper(self):
        self.expect(1, "nobody: (Release: )?status 3: no such gripper, .*\n", self.start(["nobody"] * COUNT))

    def test_more_than_one_gripper(self):
        *runs, script = self.start([""] * COUNT)
        self.expect(1, rf'{URL}: name one of these grippers:.*H&A <\\?"> SN:100001.*\n', runs)
        self.expect(1, ": the name of the gripper is empty\n", [script])

    def test_an_empty_name_does_not_reach_the_daemon(self):
        """Not even if a server lists an empty name as its only gripper."""
        grippers = "<array><data><value><string></string></value></data></array>"
        with http_server(200, {"GetGrippers": grippers}) as port:
            self.expect(1, ".*: the name of the gripper is empty\n",
                        self.start([""] * COUNT, f"http://127.0.0.1:{port}/RPC2"))

    # These run last, in alphabetical order, when the examples started by prepare() have ended.

    def test_without_an_answer_of_the_daemon(self):
        self.expect(1, r".*(timed out|timeout).*\n", self.without_answer)

    def test_without_an_answer_of_the_master(self):
        self.expect(1, f"{self.DEVICE}: (Home: )?status 5: its master does not answer; .*\n",
                    self.without_master)

    def test_without_an_end_of_the_motion(self):
        self.expect(1, rf"{self.DEVICE}: still in state \d after 10 s\n", self.without_end)


class OnlyGripperTest(ExamplesTestCase):
    options = ("--gripper", "HVA", "--speed", "200")

    def test_the_commands_of_the_page_need_no_more(self):
        self.cell.wait_until_operating(1)
        self.cell.command("part 0 20")
        for command in EXAMPLES:
            with self.subTest(command=command):
                result = subprocess.run(**shell(command), stdout=subprocess.PIPE, text=True,
                                        timeout=60 * SLOWNESS)
                self.assertRegex(result.stdout, r"\AHVA SN:100001: part held at 20(.00)?\n"
                                 r"HVA SN:100001: released\n\Z")
                self.assertEqual(result.returncode, 0)

    def test_no_daemon(self):
        self.expect(1, ".*(refused|REFUSED|connect).*\n", self.start(["HVA"] * COUNT, CLOSED_PORT))

    def test_a_server_that_is_not_a_daemon(self):
        self.expect(1, ".*404.*\n", self.start(["HVA"] * COUNT, f"{URL}/other"))


if __name__ == "__main__":
    main()
