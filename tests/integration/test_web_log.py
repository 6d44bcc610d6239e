"""tavrikweb: the daemon's log, from a file and from the journal."""

import pathlib
import tempfile

from .harness import cell
from .harness.cell import HVA, MZD
from .harness.cell_test_case import main
from .harness.web import LogFile, WebTestCase, post

OTHER_THREAD = 4242


def read_log(gripper="", **known):
    answer = post("/api/log", {"gripper": gripper, **known})
    if answer.status != 200:
        raise AssertionError(answer.status, answer.body)
    return answer.json()


def wait_until(condition):
    """Polls as often as some pages do."""
    return cell.wait_until(condition, pause=0.1)


def texts(log):
    return [row["text"] for row in log["rows"]]


def rows_with(text, count=1, **question):
    log = read_log(**question)
    return log if len([each for each in texts(log) if text in each]) >= count else None


class FileTest(LogFile, WebTestCase):
    def test_rows_are_those_of_the_command_line(self):
        log = wait_until(lambda: rows_with("Grip", 2))
        call = next(row for row in log["rows"] if row["text"].startswith("Grip"))
        self.assertEqual((call["gripper"], call["master"]), (HVA, "ttyACM0"))
        self.assertRegex(call["text"], r"^Grip  PDOUT=\[3,1\]  0  [<~]1 s$")
        self.assertRegex(call["clock"], r"^\d\d:\d\d:\d\d$")
        self.assertEqual((call["mark"], call["isAlarming"]), (" ", False))
        self.assertEqual(log["trouble"], "")

    def test_rows_of_one_gripper_come_with_those_of_the_daemon(self):
        log = wait_until(lambda: rows_with("Grip", gripper=HVA))
        owners = {row["gripper"] for row in log["rows"]}
        self.assertIn(HVA, owners)
        self.assertIn("daemon", owners)
        self.assertNotIn(MZD, owners)
        owners = {row["gripper"] for row in read_log(gripper="HVA SN:10000")["rows"]}
        self.assertNotIn(HVA, owners)

    def test_only_new_rows_are_returned(self):
        self.append(f"12:00:00 {OTHER_THREAD} Starting TavrikDaemon (old)")
        wait_until(lambda: rows_with("(old)"))
        known = {name: read_log()[name] for name in ("reading", "last")}
        self.assertEqual(read_log(**known)["rows"], [])
        self.append(f"12:00:00 {OTHER_THREAD} Starting TavrikDaemon (new)")
        log = wait_until(lambda: rows_with("(new)", **known))
        self.assertEqual(len(log["rows"]), 1)
        self.assertEqual(log["rows"][0]["mark"], "*")
        self.assertEqual(log["last"], known["last"] + 1)
        other = read_log(reading=known["reading"] + 1, last=known["last"])
        self.assertGreater(len(other["rows"]), 1)

    def test_unexpected_requests_get_an_answer(self):
        for question in ({"reading": -1}, {"last": 1 << 63}, {"last": "1"}, {"gripper": 1}):
            self.assertEqual(post("/api/log", question).status, 200, question)


class LongFileTest(LogFile, WebTestCase):
    def test_a_long_log_keeps_its_end(self):
        self.append(*(f"12:00:00 {OTHER_THREAD} Starting TavrikDaemon ({i})" for i in range(2000)),
                    f"12:00:01 {OTHER_THREAD} Starting TavrikDaemon (last)")
        log = wait_until(lambda: rows_with("(last)"))
        self.assertEqual(len(log["rows"]), 500)


class MissingFileTest(WebTestCase):
    web_options = ("--log", "/nowhere/daemon.log")

    def test_the_reason_is_reported(self):
        log = wait_until(lambda: (log := read_log())["trouble"] and log)
        self.assertEqual(log["rows"], [])
        self.assertIn("/nowhere/daemon.log: No such file", log["trouble"])


class JournalTest(WebTestCase):
    """A journalctl that prints what the test wants."""

    @classmethod
    def prepare(cls):
        cls.folder = cls.enterClassContext(tempfile.TemporaryDirectory())
        cls.set_journal("")
        super().prepare()

    @classmethod
    def start_web(cls, *options):
        super().start_web(*options, PATH=f"{cls.folder}:/usr/bin:/bin")

    @classmethod
    def set_journal(cls, script):
        tool = pathlib.Path(cls.folder, "journalctl")
        new = tool.with_suffix(".new")
        new.write_text(f'#!/bin/sh\necho "$@" >>{cls.folder}/asked\n{script}\n')
        new.chmod(0o755)
        new.rename(tool)

    def test_errors_of_journalctl_are_not_shown_as_log_lines(self):
        self.set_journal("echo No journal files were opened due to insufficient permissions. >&2\n"
                         "exit 1")
        asked = pathlib.Path(self.folder, "asked")
        before = len(asked.read_text()) if asked.exists() else 0
        # Begun twice, so that what the reading before has found is gone.
        wait_until(lambda: read_log() and asked.exists() and
                   asked.read_text()[before:].count("--follow") > 1)
        log = wait_until(lambda: (log := read_log())["trouble"] and log)
        self.assertIn("no lines of TavrikDaemon in the journal", log["trouble"])

    def test_missing_permission_is_reported_until_it_is_granted(self):
        log = wait_until(lambda: (log := read_log())["trouble"] and log)
        self.assertIn("TavrikDaemon in the journal: add its user to the group systemd-journal",
                      log["trouble"])
        path = pathlib.Path(self.folder, "lines")
        path.write_text("".join(f"{line}\n" for line in self.cell.log.since(0)))
        self.set_journal(f"case $* in *--reverse*) exit;; esac\n"
                         f"sed 's/^/2026-11-22T12:00:00.123456+0000 TavrikDaemon[42]: /' {path}\n"
                         "exec sleep 1000")  # it is ended with tavrikweb
        log = wait_until(lambda: (log := read_log())["rows"] and log)
        self.assertEqual(log["trouble"], "")
        self.assertEqual(log["rows"][0]["date"], "2026-11-22")
        self.assertEqual(log["rows"][0]["clock"], "12:00:00.123")
        asked = pathlib.Path(self.folder, "asked").read_text()
        self.assertIn("--unit tavrikdaemon.service", asked)
        self.assertIn("--follow", asked)


if __name__ == "__main__":
    main()
