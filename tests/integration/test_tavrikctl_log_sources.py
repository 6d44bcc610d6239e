"""tavrikctl log: where the log comes from, how it looks, and how much of it there may be."""

import contextlib
import datetime
import json
import os
import pathlib
import re
import resource
import signal
import subprocess
import unittest

from .harness import ctl
from .harness.cell import PATIENCE, SLOWNESS, wait_until
from .harness.cell_test_case import main
from .harness.ctl import FAILED, NO_GRIPPER, USAGE
from .harness.ctl_test_case import HVA, MZD
from .harness.log_test_case import LogTestCase
from .harness.terminal import screen_of
from .harness.pages import ROOT, section


class SourcesTest(LogTestCase):
    """Where the log comes from: a file, standard input, the journal; all at once or followed."""

    options = ("--gripper", "HVA")

    @classmethod
    def prepare(cls):
        super().prepare()
        cls.call_apart("Grip", HVA, 1)
        cls.cell.log.mark()
        cls.lines = cls.cell.log.since(0)
        cls.end = next(i for i, line in enumerate(cls.lines) if "New command PDOUT" in line
                       and "OPERATE" not in line)

    def journal(self, lines, seconds=0):
        """The lines as journalctl prints them, a millisecond apart, ending `seconds` ago."""
        end = datetime.datetime.now(datetime.timezone.utc) - datetime.timedelta(seconds=seconds)
        stamps = [end - datetime.timedelta(milliseconds=len(lines) - i) for i in range(len(lines))]
        return [f"{stamp:%Y-%m-%dT%H:%M:%S.%f%z} TavrikDaemon[42]: {line}"
                for stamp, line in zip(stamps, lines)]

    def fake_journal(self, before, lines, follow=""):
        """An environment with this journal: lines for the search, and those that are shown."""
        old, new = self.file(reversed(before), "old"), self.file(lines, "new")
        tool = self.folder / "journalctl"
        tool.write_text("#!/bin/sh\n"
                        f'echo "$@" >>{self.folder}/asked\n'
                        'for word; do case $word in --reverse) exec cat '
                        f"{old};; esac; done\ncat {new}\n{follow}\n")
        tool.chmod(0o755)
        return {"PATH": f"{self.folder}:{os.environ['PATH']}"}

    def test_the_journal_has_dates_and_milliseconds(self):
        world = self.fake_journal([], self.journal(self.lines))
        rows = self.ctl("log", environment=world).splitlines()
        self.assertRegex(rows[0], r"^\d{4}-\d\d-\d\d$")
        self.assertRegex("\n".join(rows), r"(?m)^  \d\d:\d\d:\d\d\.\d{3}  ttyACM0  "
                         rf"{HVA}  +Grip  PDOUT=\[3,1\]  0  \d+(\.\d)? ms$")
        asked = (self.folder / "asked").read_text()
        self.assertIn("--unit tavrikdaemon.service", asked)
        self.assertIn("--boot", asked)

    def test_times_of_the_journal_are_exact(self):
        world = self.fake_journal([], self.journal(self.lines))
        rows = [json.loads(line) for line in
                self.ctl("log", "--json", environment=world).splitlines()]
        call = next(row for row in rows if row["kind"] == "call")
        self.assertTrue(call["exact"])
        self.assertTrue(0 < call["milliseconds"] < 100)
        datetime.datetime.fromisoformat(call["time"].replace("+0000", "+00:00"))

    def test_since_reads_the_names_from_the_journal_before(self):
        lines = self.journal(self.lines)
        world = self.fake_journal(lines[:self.end], lines[self.end:])
        rows = [json.loads(line) for line in
                self.ctl("log", "--json", "--since", "2min", environment=world).splitlines()]
        self.assertEqual([row["gripper"] for row in rows if row["kind"] == "call"], [HVA])
        self.assertIn("--since=@", (self.folder / "asked").read_text())

    def test_without_a_journal_the_remedy_is_printed(self):
        self.expect_failure(FAILED, "cannot run journalctl", "log",
                            environment={"PATH": str(self.folder)})
        world = self.fake_journal([], [])
        result = ctl.run("log", environment=world)
        self.assertEqual(result.returncode, FAILED)
        self.assertIn("the journal has no lines of TavrikDaemon", result.stderr)

    def test_a_mistyped_file_name_is_not_taken_for_a_gripper_silently(self):
        unknown = "'none.log' is neither a file nor a gripper in the journal"
        world = self.fake_journal([], self.journal(self.lines), follow="exec sleep 1000")
        with ctl.Running("log", "-f", "none.log", environment=world) as follower:
            follower.errors.wait_for(f"^tavrikctl: warning: {unknown} so far$")
            follower.process.send_signal(signal.SIGINT)  # which also ends the journal
            self.assertEqual(follower.wait_for_end(), NO_GRIPPER)
        result = ctl.run("log", "none.log",
                         environment=self.fake_journal([], self.journal(self.lines)))
        self.assertEqual((result.returncode, result.stderr),
                         (NO_GRIPPER, f"tavrikctl: {unknown}\n"))
        result = ctl.run("log", "none.log", environment=self.fake_journal([], []))
        self.assertEqual(result.returncode, FAILED)
        self.assertIn("file 'none.log' does not exist, and the journal has no line", result.stderr)

    def test_a_gripper_without_a_row_is_known(self):
        path = self.file("23:00:00" + line[8:] for line in self.lines)
        self.assertEqual(len(self.objects("--since", "23:30", HVA, path)), 1)

    def test_standard_input(self):
        result = subprocess.run(ctl.arguments_of("log", "--json", "-"), env=ctl.ENVIRONMENT,
                                input="\n".join(self.lines), capture_output=True, text=True,
                                timeout=PATIENCE, check=True)
        self.assertEqual(result.stdout, self.ctl("log", "--json", self.file(self.lines)))

    def test_other_files_are_refused(self):
        self.expect_failure(FAILED, "No such file", "log", self.folder / "none")
        self.expect_failure(FAILED, "Is a directory", "log", self.folder)
        self.expect_failure(USAGE, "invalid time 'soon'", "log", "--since", "soon",
                            self.file(self.lines))

    def test_since_shows_the_end_of_a_file_and_knows_its_names(self):
        def at(clock, lines):
            return [clock + line[8:] for line in lines]
        lines = at("23:00:00", self.lines[:self.end]) + at("23:30:00", self.lines[self.end:])
        lines += at("08:00:00", self.lines[self.end:]) + at("09:00:00", self.lines[self.end:])
        for since, clocks in (("09:00", ["09:00:00"]), ("08:00:00", ["08:00:00", "09:00:00"]),
                              ("23:10", ["23:30:00", "08:00:00", "09:00:00"]),
                              ("07:00", ["08:00:00", "09:00:00"])):
            rows = self.objects("--since", since, self.file(lines))
            calls = [row for row in rows if row["kind"] == "call"]
            self.assertEqual([call["time"] for call in calls], clocks, since)
            self.assertEqual({call["gripper"] for call in calls}, {HVA})
        self.expect_failure(USAGE, "the log has no dates", "log", "--since", "2026-01-01",
                            self.file(lines))

    def test_a_file_is_followed_through_both_kinds_of_rotation(self):
        path = self.file(self.lines)
        with ctl.Running("log", "-f", "--json", path) as follower:
            follower.output.wait_for('"Grip"')
            for clock, rotate in (("01:00:00", lambda path: path), ("02:00:00", self.replace),
                                  ("03:00:00", lambda path: os.truncate(path, 0))):
                rotate(path)
                wait_until(lambda: self.is_at_end(follower, path))
                with open(path, "a", encoding="utf-8") as file:
                    file.writelines(clock + line[8:] + "\n" for line in self.lines[self.end:])
                follower.output.wait_for(rf'"{clock}".*"{HVA}".*"Grip"')
            follower.process.send_signal(signal.SIGINT)
            self.assertEqual(follower.wait_for_end(), 0)
            self.assertIn('"summary"', follower.output.lines[-1])

    @staticmethod
    def replace(path):
        path.rename(path.with_suffix(".1"))
        path.touch()

    @staticmethod
    def is_at_end(follower, path):
        """Whether a file has been read to its end."""
        process = pathlib.Path(f"/proc/{follower.process.pid}")
        for number in os.listdir(process / "fd"):
            with contextlib.suppress(FileNotFoundError):
                if os.path.samefile(process / "fd" / number, path):
                    place = re.search(r"pos:\t(\d+)", (process / "fdinfo" / number).read_text())
                    return int(place[1]) == path.stat().st_size
        return False

    def test_the_journal_is_followed(self):
        """Ctrl-C is its ordinary end."""
        world = self.fake_journal([], self.journal(self.lines), follow="exec sleep 1000")
        environment = {**ctl.ENVIRONMENT, **world}
        for number, status in ((signal.SIGINT, 0), (signal.SIGTERM, -signal.SIGTERM)):
            process = subprocess.Popen(ctl.arguments_of("log", "-f"), env=environment, text=True,
                                       stdin=subprocess.DEVNULL, stdout=subprocess.PIPE)
            with self.subTest(signal=number), process:
                for line in process.stdout:
                    if "Grip  PDOUT=[3,1]" in line:
                        break
                process.send_signal(number)
                self.assertIn(f"{HVA}: 1 call", process.stdout.read())
            self.assertEqual(process.returncode, status)
        self.assertIn("--follow", (self.folder / "asked").read_text())

    def test_the_doctor_reads_a_file(self):
        lines = self.lines + [line.replace("(Status: 0)", "(Status: 6)").replace(
            "FIN PDOUT", "ERR PDOUT 6").replace("FIN:PDOUT", "ERR:PDOUT")
            for line in self.lines[self.end:]]
        path = self.file(lines)
        report = json.loads(ctl.run("doctor", "--json", "--log", path).stdout)
        found = {finding["what"]: finding for finding in report["findings"]
                 if finding["finding"].startswith("log: ")}
        self.assertIn("2 calls, 1 refused, 0 timed out", found[HVA]["finding"])
        self.assertEqual((found[HVA]["mark"], found[HVA]["remedy"]),
                         ("warn", f"to see them: tavrikctl log {path}"))


class ScreenTest(LogTestCase):
    """How it looks on a terminal."""

    def test_nothing_is_cut_at_any_width(self):
        self.call("Grip", HVA, 1)
        self.call("Holdfast", HVA, True)
        path = self.cell_log()
        words = {word for row in self.rows(path) for word in row.split() if len(word) <= 16}
        for columns in (20, 40, 80, 200):
            with self.subTest(columns=columns):
                lines = screen_of(columns, "log", path)
                shown = {word for line in lines for word in line.split()}
                self.assertLessEqual(max(map(len, lines)), columns)
                self.assertEqual({word for word in words - shown
                                  if not word.startswith("ttyACM")}, set())

    SCREENS = {
        20: ["  12:00:00 HVA", "  SN:100001", "  Grip PDOUT=[3,1] 0", "  <1 s"],
        40: ["  12:00:00 HVA SN:100001", "  Grip PDOUT=[3,1] 0 <1 s"],
        80: ["  12:00:00  HVA SN:100001  Grip  PDOUT=[3,1]  0  <1 s"],
        200: ["  12:00:00  ttyACM0  HVA SN:100001  Grip  PDOUT=[3,1]  0  <1 s"],
    }

    def test_the_same_call_at_each_width(self):
        mark = self.cell.log.mark()
        self.call("Grip", HVA, 1)
        lines = self.lines_so_far()
        path = self.file(["11:00:00" + line[8:] for line in lines[:mark]] +
                         ["12:00:00" + line[8:] for line in lines[mark:]])
        for columns, expected in self.SCREENS.items():
            with self.subTest(columns=columns):
                shown = screen_of(columns, "log", "hva", "--since", "12:00", path)
                self.assertEqual(shown[:len(expected)], expected)

    def test_hostile_bytes_do_not_reach_the_terminal(self):
        evil = b"\x1b]0;owned\x07\x1b[2J\xff\xfe\r\x00\x9b31m"
        lines = [line.encode() for line in self.lines_so_far()]
        thread = lines[-1].split()[1]
        attack = [b"12:00:00 " + thread + b" Device '" + evil + b"' not found\n",
                  b"12:00:00 " + thread + b" Grip: Failed to get PELLIX handle\n",
                  b"12:00:00 " + thread + b" " + evil + b"\n", evil + b"\n",
                  b"12:00:00 " + b"9" * 100 + b" x\n", b"x" * 200000 + b"\n",
                  b"99:99:99 1 Parsing line: PARAM[19][0]=[1b,5b,32,4a]\n", b"12:00:00 1\n"]
        path = self.file([line + b"\n" for line in lines] + attack)
        for arguments in ((), ("-v",), ("--json",)):
            output = subprocess.run(ctl.arguments_of("log", *arguments, path), env=ctl.ENVIRONMENT,
                                    stdout=subprocess.PIPE, check=True).stdout
            self.assertEqual(re.findall(rb"[\x00-\x09\x0b-\x1f\x7f]", output), [], arguments)
            output.decode()


class PageTest(LogTestCase):
    """The rows in docs/tavrikctl.md."""

    options = ("--gripper", "HVA", "--gripper", "MZD-S")
    TEXT = section(ROOT / "docs" / "tavrikctl.md", "## The log")

    @staticmethod
    def comparable(row):
        """A row without its times and with single blanks: the width of a column depends on the
        whole log, which has the number of a thread where the gripper is unknown."""
        row = re.sub(r"\d[\d.]* ms$", "N ms", re.sub(r"[\d:]{8}\.\d{3}", "TIME", row))
        return re.sub(" +", " ", row)

    def test_the_documented_rows_match_the_output(self):
        self.call("Grip", HVA, 1)
        self.call("Holdfast", HVA, True)
        with self.condition("mute 1 on", "mute 1 off"):
            self.call("Grip", MZD, 0)
        self.call("Grip", "HVA SN:100009", 1)
        now = datetime.datetime.now(datetime.timezone.utc)
        path = self.file(f"{now:%Y-%m-%dT%H:%M:%S.%f%z} TavrikDaemon[42]: {line}"
                         for line in self.lines_so_far())
        rows = {self.comparable(row) for row in self.rows(path)}
        block, = re.findall(r"^```text\n(.*?)^```$", self.TEXT, re.MULTILINE | re.DOTALL)
        for row in block.splitlines():
            self.assertIn(self.comparable(row), rows)


class LongLogTest(LogTestCase):
    """A long log takes seconds and no more memory than a short one."""

    LINES = 300_000

    def run_log(self, path):
        """Seconds of processor time and the largest memory in KiB."""
        process = subprocess.Popen(ctl.arguments_of("log", path), env=ctl.ENVIRONMENT,
                                   stdout=subprocess.DEVNULL)
        _, status, usage = os.wait4(process.pid, 0)
        process.returncode = status
        self.assertEqual(status, 0)
        self.assertIsInstance(usage, resource.struct_rusage)
        return usage.ru_utime + usage.ru_stime, usage.ru_maxrss

    @unittest.skipIf(SLOWNESS > 1, "sanitizers keep freed memory")
    def test_memory_does_not_grow(self):
        mark = self.cell.log.mark()
        for number in range(20):
            self.call("Grip", HVA, number)
            self.call("GetForce", MZD, 0)
            self.call("Grip", f"unknown {number}", 0)
        lines = self.lines_so_far()
        calls = lines[mark:]
        short = self.file(lines, "short")
        many = self.LINES // len(calls)
        long = self.file(lines + [line.replace("unknown ", f"unknown {i}-").replace(
            " 1", f" {i}1", 1) if i % 2 else line for i in range(many) for line in calls], "long")
        _, small = self.run_log(short)
        seconds, large = self.run_log(long)
        self.assertLess(large - small, 8 * 1024)
        self.assertLess(seconds, 30)


if __name__ == "__main__":
    main()
