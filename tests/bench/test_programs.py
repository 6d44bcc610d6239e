"""The programs that the benchmarks measure with, each in a cell of fast masters."""

import json
import os
import pathlib
import re
import signal
import subprocess
import sys
import tempfile
import time
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
PROGRAMS = pathlib.Path(os.environ.get("TAVRIK_BENCH_PROGRAMS", ROOT / "build/dev/bench"))

sys.path.append(str(ROOT / "tests" / "integration"))
from cell import PATIENCE, Output, wait_until  # noqa: E402

USAGE = 2


class Cell:
    """bench-cell with a command in it."""

    def __init__(self, *arguments, stdin=subprocess.PIPE):
        self.process = subprocess.Popen([PROGRAMS / "bench-cell", *arguments], stdin=stdin,
                                        stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.output = Output("output", self.process.stdout)
        self.errors = Output("errors", self.process.stderr)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.kill()
        self.process.wait()
        if self.process.stdin:
            self.process.stdin.close()

    def ask(self, line):
        mark = self.errors.mark()
        self.process.stdin.write(line.encode() + b"\n")
        self.process.stdin.flush()
        return self.errors.wait_for("^bench-cell: (ok|error)", since=mark).split(": ", 1)[1]

    def number(self, line):
        return int(self.ask(line).split()[1])

    def command(self):
        """The process id of the command."""
        return int(self.errors.wait_for(r"^bench-cell: pid \d+$").split()[-1])

    def status(self):
        return self.process.wait(PATIENCE)

    def result(self):
        """The JSON of the last line, when the command has ended well."""
        status = self.status()
        if status != 0:
            raise AssertionError(f"exit status {status}: {self.errors.since(0)}")
        wait_until(lambda: self.output.ended)
        return json.loads(self.output.since(0)[-1])

    def interrupt(self):
        self.process.send_signal(signal.SIGINT)
        return self.result()


def sleeps_on(pid):
    """Whether no thread of the process runs or waits for a processor for a moment."""
    cpu_clock = (~pid << 3) | 2
    before = time.clock_gettime_ns(cpu_clock)
    for _ in range(10):
        for thread in pathlib.Path(f"/proc/{pid}/task").iterdir():
            if ") S " not in (thread / "stat").read_text():
                return False
        time.sleep(0.01)
    return time.clock_gettime_ns(cpu_clock) == before


def ttys(count):
    return [f"/dev/ttyACM{number}" for number in range(count)]


class BenchCellTest(unittest.TestCase):
    def test_ends_with_the_status_of_its_command(self):
        for script, status in (("exit 7", 7), ("kill -TERM $$", 128 + signal.SIGTERM)):
            with Cell("--", "sh", "-c", script) as cell:
                self.assertEqual(cell.status(), status)

    def test_tells_the_pid_of_its_command(self):
        with Cell("--", "sh", "-c", "echo $$; exec sleep 60") as cell:
            self.assertEqual(cell.command(), int(cell.output.wait_for(".")))

    def test_a_command_that_cannot_run(self):
        with Cell("--", "/nonexistent") as cell:
            self.assertEqual(cell.status(), 127)
            self.assertTrue(cell.errors.wait_for("^bench-cell: error: cannot run COMMAND$"))

    def test_passes_signals_on(self):
        for number in (signal.SIGINT, signal.SIGTERM):
            script = "import signal; print('ready', flush=True); " \
                     f"signal.sigwait([{number.value}]); exit(5)"
            mask = f"import signal; signal.pthread_sigmask(signal.SIG_BLOCK, [{number.value}]); "
            with Cell("--", sys.executable, "-c", mask + script) as cell:
                cell.output.wait_for("ready")
                cell.process.send_signal(number)
                self.assertEqual(cell.status(), 5)

    def test_usage(self):
        for arguments in ([], ["--"], ["--masters", "65", "--", "true"], ["--rate", "x"]):
            with Cell(*arguments) as cell:
                self.assertEqual(cell.status(), USAGE)
                self.assertTrue(cell.errors.wait_for("^bench-cell: usage: "))

    def test_help(self):
        with Cell("--help") as cell:
            self.assertEqual(cell.status(), 0)
            self.assertTrue(cell.output.wait_for("--masters N"))

    def test_takes_commands_from_a_file_too(self):
        with tempfile.TemporaryFile() as script:
            script.write(b"lines\nunplug 9\n")
            script.seek(0)
            with Cell("--", "sleep", "60", stdin=script) as cell:
                cell.errors.wait_for("^bench-cell: ok 0$")
                cell.errors.wait_for("^bench-cell: error: there is no such master$")

    def test_outlives_its_standard_input(self):
        with Cell("--rate", "0", "--", "sleep", "60") as cell:
            cell.command()
            cell.process.stdin.close()
            cell.process.stdin = None
            wait_until(lambda: sleeps_on(cell.process.pid))
            self.assertIsNone(cell.process.poll())

    def test_sleeps_while_nobody_reads(self):
        with Cell("--masters", "2", "--rate", "full", "--", "sleep", "60") as cell:
            cell.command()
            wait_until(lambda: sleeps_on(cell.process.pid))
            self.assertGreater(cell.number("lines"), 0)


class PlainReadersTest(unittest.TestCase):
    def cell(self, *options, masters=2, readers=()):
        return Cell("--masters", str(masters), *options, "--",
                    PROGRAMS / "plain-readers", *readers, *ttys(masters))

    def test_decode_all_lines_at_full_speed(self):
        with self.cell("--rate", "full") as cell:
            cell.output.wait_for("^started$")
            enough = cell.number("lines") + 100000
            wait_until(lambda: cell.number("lines") > enough)
            result = cell.interrupt()
        self.assertGreater(result["lines"], 50000)
        self.assertEqual(result["wrong"], 0)
        self.assertGreater(result["cpuNs"], 0)

    def test_get_every_line_of_a_rate(self):
        with self.cell("--rate", "0") as cell:
            cell.output.wait_for("^started$")
            cell.ask("rate 1000")
            wait_until(lambda: cell.number("lines") >= 200)
            cell.ask("rate 0")
            wait_until(lambda: sleeps_on(cell.command()))
            sent = cell.number("lines")
            self.assertEqual(cell.interrupt()["lines"], sent)

    def test_sleepers_are_two_more_threads_a_tty(self):
        for readers, threads in ([], 1 + 2), (["--sleepers"], 1 + 2 * 3):
            with self.cell("--rate", "1000", readers=readers) as cell:
                cell.output.wait_for("^started$")
                self.assertEqual(len(os.listdir(f"/proc/{cell.command()}/task")), threads)

    def test_a_master_that_is_pulled_ends_its_reader_alone(self):
        with self.cell("--rate", "1000") as cell:
            cell.output.wait_for("^started$")
            before = time.monotonic_ns()
            self.assertGreater(cell.number("unplug 0"), before)
            self.assertEqual(cell.ask("unplug 0"), "error: the master is not plugged in")
            self.assertGreater(cell.number("plug 0"), before)
            enough = cell.number("lines") + 100
            wait_until(lambda: cell.number("lines") > enough)
            self.assertEqual(cell.interrupt()["wrong"], 0)

    def test_a_tty_that_is_not_there(self):
        with self.cell("--unplugged") as cell:
            self.assertEqual(cell.status(), 1)
            cell.errors.wait_for("^plain-readers: error: /dev/ttyACM0")
        self.assertEqual(subprocess.run([PROGRAMS / "plain-readers"], check=False,
                                        stderr=subprocess.DEVNULL).returncode, USAGE)


class PtyHandoverTest(unittest.TestCase):
    def test_measures_its_rounds(self):
        for rate in ("0", "1000"):
            with Cell("--rate", rate, "--", PROGRAMS / "pty-handover", "--rounds", "100") as cell:
                result = cell.result()
            self.assertEqual(result["rounds"], 100)
            self.assertGreater(result["p50Us"], 0)
            self.assertGreaterEqual(result["p90Us"], result["p50Us"])
            self.assertGreaterEqual(result["p99Us"], result["p90Us"])
            self.assertGreater(result["cpuNsPerRound"], 0)

    def test_takes_any_tty(self):
        with Cell("--masters", "2", "--",
                  PROGRAMS / "pty-handover", "--rounds", "1", "/dev/ttyACM1") as cell:
            self.assertEqual(cell.result()["rounds"], 1)
        with Cell("--", PROGRAMS / "pty-handover", "--rounds", "1", "/dev/ttyACM1") as cell:
            self.assertEqual(cell.status(), 1)
            cell.errors.wait_for("^pty-handover: error: /dev/ttyACM1")

    def test_usage(self):
        for arguments in ([], ["--rounds"], ["--rounds", "0"], ["--rounds", "1", "a", "b"]):
            done = subprocess.run([PROGRAMS / "pty-handover", *arguments], check=False,
                                  stderr=subprocess.PIPE)
            self.assertEqual(done.returncode, USAGE)
            self.assertRegex(done.stderr, b"usage: ")


if __name__ == "__main__":
    unittest.main()
