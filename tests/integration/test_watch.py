"""tavrikctl watch, on a terminal that an emulator reads, and without one."""

import csv
import datetime
import json
import os
import pty
import re
import signal
import subprocess
import termios
import time

from .harness import ctl
from .harness.cell import SLOWNESS, wait_until
from .harness.cell_test_case import main
from .harness.ctl import FAILED, NO_DAEMON, NO_GRIPPER, USAGE
from .harness.ctl_test_case import CtlTestCase, http_server, xml_answer
from .harness.terminal import watch_session

DEVICE = "HVA SN:100001"
PERIOD = 0.05  # seconds between two observations


class ScreenTest(CtlTestCase):
    options = ("--gripper", "HVA")

    @classmethod
    def prepare(cls):
        super().prepare()
        assert ctl.run("home", "--wait").returncode == 0
        assert ctl.run("release", "--wait").returncode == 0

    def watch(self, *arguments, **options):
        watch = watch_session(*arguments, **options)
        self.addCleanup(watch.__exit__)
        return watch

    def test_the_whole_screen(self):
        watch = self.watch(rows=17, columns=60)
        watch.wait_for(r"28\.00 .* [12]\d calls/s")
        lines = watch.wait_for(r"\*")
        lines[2] = re.sub(r"[12]\d calls", "NN calls", lines[2])
        plot = [re.sub(r"[* ]+$", "", line) for line in lines[8:14]]
        self.assertEqual(lines[:8] + plot + lines[14:], [
            "HVA SN:100001                                127.0.0.1:44221",
            "",
            "position    28.00   state   4    NN calls/s",
            "flags     none",
            "values    fresh",
            "",
            "0.00 [###############################################] 28.00",
            "",
            "  28.00 |",
            "        |",
            "        |",
            "        |",
            "        |",
            "   0.00 |",
            "         -30 s                                           now",
            "",
            "q: quit"])
        self.assertTrue(lines[8].endswith("*"))

    def test_it_samples_twenty_times_a_second(self):
        watch = self.watch("--passive")
        rate = re.compile(r"(\d+) calls/s")
        watch.wait_for(rate)
        start = time.monotonic()

        def is_twenty():
            """The rate covers the last second, so it grows at first."""
            shown = rate.search(watch.lines()[2])
            if not shown or time.monotonic() - start < 1.1:
                return False
            self.assertLessEqual(int(shown[1]), 21)
            return int(shown[1]) >= 19 / SLOWNESS

        wait_until(is_twenty)

    def test_a_motion_moves_bar_and_plot(self):
        watch = self.watch()
        watch.wait_for(r"^0\.00 \[#+\] 28\.00$")
        with self.condition("part 0 14", "part 0 none"):
            self.ctl("grip")
            lines = watch.wait_for(r"position +14\.00   state +6")
            self.assertRegex(lines[6], r"^0\.00 \[#+ +\] 28\.00$")
            filled, empty = lines[6].count("#"), lines[6].count(" ", 6, -7)
            self.assertAlmostEqual(filled, empty, delta=1)
            plotted = watch.wait_for(r"^ {8}\|.*\*$")
            self.assertTrue(plotted[8].rstrip("* ").endswith("28.00 |"))
            self.assertIn("*", plotted[8])
        self.ctl("release")
        watch.wait_for(r"position +28\.00   state +4")

    def test_flags_are_red_unless_colours_are_disabled(self):
        with self.condition("fault 0 temp-warn on", "fault 0 temp-warn off"):
            for environment, colour in (({}, "red"), ({"NO_COLOR": "1"}, "default")):
                watch = self.watch(environment=environment)
                watch.wait_for("^flags     temperature warning$")
                self.assertEqual(watch.colour_of("temperature warning"), colour)

    def test_frozen_values_are_marked_while_frozen(self):
        watch = self.watch()
        watch.wait_for("^values    fresh$")
        with self.condition("silent 0 on", "silent 0 off"):
            lines = watch.wait_for(r"^values    frozen: the master has not answered for \d+ s$")
            self.assertIn("28.00", lines[2])
            self.assertEqual(watch.colour_of("frozen"), "red")
            watch.wait_for(r"for 2 s$")
        watch.wait_for("^values    fresh$")

    def test_a_master_that_still_streams_is_not_called_frozen(self):
        watch = self.watch()
        watch.wait_for("^values    fresh$")
        with self.condition("mute 0 on", "mute 0 off"):
            watch.wait_for("^values    frozen: ")
            self.cell.command("fault 0 maintenance on")
            watch.wait_for("^values    changing, but the master has not answered for ")
            self.cell.command("fault 0 maintenance off")
        watch.wait_for("^values    fresh$")

    def test_a_gripper_that_is_unplugged_may_come_back(self):
        watch = self.watch()
        watch.wait_for("^values    fresh$")
        with self.condition("unplug 0", "plug 0"):
            lines = watch.wait_for("^values    .*no longer known to the daemon$")
            self.assertRegex(lines[2], "position +-   state +-")
            self.assertEqual(lines[3], "flags     -")
        watch.wait_for("^values    fresh$")
        wait_until(lambda: ctl.run("home", "--wait").returncode == 0)
        self.ctl("release", "--wait")

    def test_without_process_data_the_log_is_not_flooded(self):
        watch = self.watch("--passive")
        watch.wait_for("^values    possibly old: the master was not polled$")
        mark = self.cell.log.mark()
        with self.condition("mode 0 2", "mode 0 4"):
            watch.wait_for("^values    all zero: possibly no process data$")
            start = time.monotonic()
            self.cell.log.wait_for("PDIN length mismatch: 0", since=mark, count=3)
            self.assertGreater(time.monotonic() - start, 0.9)
        watch.wait_for("^values    possibly old: the master was not polled$")

    def test_q_escape_and_control_c_restore_the_terminal(self):
        for key in ("q", "Q", "\x1b", "\x03"):
            with self.subTest(key=key):
                watch = self.watch()
                watch.wait_for("^q: quit$")
                self.assertNotEqual(termios.tcgetattr(watch.slave), watch.settings)
                watch.type("x")
                watch.type(key)
                self.assertEqual((watch.wait_for_end()[0], watch.errors()), (0, ""))
                self.assertEqual(termios.tcgetattr(watch.slave), watch.settings)
                self.assertIn(b"\x1b[?1049h", watch.output)  # the other screen, and back
                self.assertIn(b"\x1b[?1049l", watch.output)

    def test_it_can_be_suspended(self):
        """By a shell, which has job control."""
        watch = self.watch(command=["bash", "-c", "exec bash --norc -i 2>&1"])
        watch.wait_for(r"[$#]$")
        watch.type(" ".join(ctl.arguments_of("watch")) + "\n")
        watch.wait_for("^q: quit$")
        self.expect_output(watch, "\x1a", b"\x1b[?1049l", b"Stopped")
        self.expect_output(watch, "fg\n", b"\x1b[?1049h", b"q: quit")
        self.expect_output(watch, "q", b"\x1b[?1049l")

    def expect_output(self, watch, text, *parts):
        """Waits until the terminal has got all `parts` after `text` was typed."""
        mark = len(watch.output)
        watch.type(text)
        wait_until(lambda: watch.lines() and all(part in watch.output[mark:] for part in parts))

    def test_a_terminating_signal_restores_the_terminal(self):
        for number in (signal.SIGHUP, signal.SIGINT, signal.SIGQUIT, signal.SIGTERM):
            with self.subTest(number=number):
                watch = self.watch()
                watch.wait_for("^q: quit$")
                watch.process.send_signal(number)
                self.assertEqual((watch.wait_for_end()[0], watch.errors()), (-number, ""))
                self.assertEqual(termios.tcgetattr(watch.slave), watch.settings)

    def test_it_ends_when_the_terminal_has_gone(self):
        """Also where the signal for that is ignored."""
        watch = self.watch(before=lambda: signal.signal(signal.SIGHUP, signal.SIG_IGN))
        watch.wait_for("^q: quit$")
        watch.hang_up()
        self.assertEqual(watch.process.wait(60 * SLOWNESS), 0)

    def test_the_screen_follows_the_size_of_the_terminal(self):
        watch = self.watch()
        wait_until(lambda: watch.lines()[22] == "q: quit")
        watch.set_size(16, 50)
        wait_until(lambda: watch.lines()[15] == "q: quit")
        self.assertEqual(watch.lines()[0], "HVA SN:100001                      127.0.0.1:44221")
        watch.set_size(6, 20)
        wait_until(lambda: watch.lines() == ["HVA SN:100001", "28.00 in state 4", "values fresh",
                                             "flags none", "", "0.00 [#######] 28.00"])
        for number in range(200):
            watch.set_size(1 + number % 50, 1 + number % 150)
        watch.set_size(24, 80)
        wait_until(lambda: watch.lines()[22] == "q: quit")

    def test_passive_sends_nothing(self):
        watch = self.watch("--passive")
        before = self.cell.show(0)["requestCount"]
        watch.wait_for(r"2\d calls/s")
        self.assertEqual(self.cell.show(0)["requestCount"], before)

    def test_an_unknown_terminal_is_reported_in_one_line(self):
        watch = self.watch(environment={"TERM": "no-such-terminal"})
        self.assertEqual(watch.wait_for_end()[0], FAILED)
        self.assertEqual(watch.errors(), "tavrikctl: unknown terminal type 'no-such-terminal': "
                         "set TERM to a known one\n")

    def test_it_ends_when_the_terminal_of_its_output_has_gone(self):
        master, slave = pty.openpty()
        watch = self.watch(before=lambda: os.dup2(slave, 1))
        self.assertTrue(os.read(master, 1))
        os.close(slave)
        os.close(master)
        self.assertEqual(watch.process.wait(60 * SLOWNESS), 0)

    def test_a_gripper_must_exist_at_the_start(self):
        self.expect_failure(NO_GRIPPER, "no gripper matches 'nobody'", "watch", "nobody")


class OtherServerTest(CtlTestCase):
    """Servers that are not a daemon; the daemon of the cell keeps running."""

    options = ()
    GRIPPER = xml_answer("<array><data><value>HVA</value></data></array>")

    def test_an_unexpected_answer_does_not_end_it(self):
        with http_server(200, self.GRIPPER) as port:
            with watch_session("--port", port) as watch:
                watch.wait_for("^values    GetPDINExcerpt: the reply has an unexpected type$")

    def test_q_quits_while_the_daemon_does_not_answer(self):
        with http_server(200, self.GRIPPER, answers=1) as port:
            with watch_session("--port", port, "--timeout", 600) as watch:
                watch.wait_for("^waiting for the daemon$")
                watch.type("q")
                start = time.monotonic()
                self.assertEqual((watch.wait_for_end()[0], watch.errors()), (0, ""))
                self.assertLess(time.monotonic() - start, 3 * SLOWNESS)

    def test_a_daemon_must_answer_at_the_start(self):
        self.expect_failure(NO_DAEMON, "cannot be reached", "watch", "--port", 1)


class RowsTest(CtlTestCase):
    options = ("--gripper", "HVA")
    ROW = r"^\d\d:\d\d:\d\d\.\d{3}  HVA SN:100001      1     10\.00  fresh    none$"

    def rows(self, *arguments):
        """The output of a watch without a terminal, which keeps running."""
        process = ctl.Running("watch", *arguments)
        self.addCleanup(process.__exit__)
        return process.output

    def test_rows_are_aligned(self):
        rows = self.rows()
        rows.wait_for(self.ROW, count=3)
        self.assertEqual(rows.lines[0],
                         "TIME          GRIPPER        STATE  POSITION  VALUES   FLAGS")

    def test_csv_comes_twenty_times_a_second(self):
        with self.condition("fault 0 maintenance on", "fault 0 maintenance off"):
            self.wait_for_process_data(0, DEVICE)
            start = time.monotonic()
            rows = self.rows("--csv")
            rows.wait_for("fresh$", count=21)
            took = time.monotonic() - start
            lines = rows.lines[:22]
        self.wait_for_process_data(0, DEVICE)  # what is there when it falls silent stays
        self.assertGreater(took, 19 * PERIOD)
        self.assertLess(took, (21 * PERIOD + 2) * SLOWNESS)
        for row in csv.DictReader(lines):
            self.expect_now(row.pop("time"))
            self.assertEqual(row, {"gripper": DEVICE, "state": "1", "position": "10.00",
                                   "fault": "0", "temperatureFault": "0",
                                   "temperatureWarning": "0", "maintenance": "1", "certain": "1",
                                   "values": "fresh"})

    def test_json_has_one_object_per_line(self):
        rows = self.rows("--json")
        rows.wait_for('"fresh"', count=2)
        row = json.loads(rows.lines[0])
        self.expect_now(row.pop("time"))
        self.assertEqual(row, {"gripper": DEVICE, "state": 1, "position": 10.0, "fault": False,
                               "temperatureFault": False, "temperatureWarning": False,
                               "maintenance": False, "certain": True, "values": "fresh"})
        self.expect_failure(USAGE, "excludes", "watch", "--json", "--csv")

    def expect_now(self, text):
        """Checks a time with its offset from UTC."""
        self.assertRegex(text, r"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}[+-]\d\d:\d\d$")
        age = datetime.datetime.now(datetime.timezone.utc) - datetime.datetime.fromisoformat(text)
        self.assertLess(abs(age.total_seconds()), 60 * SLOWNESS)

    def test_times_have_the_offset_from_utc(self):
        for zone, offset in (("UTC", "+00:00"), ("XXX-5:30", "+05:30"), ("XXX+3:30", "-03:30")):
            with self.subTest(zone=zone):
                process = ctl.Running("watch", "--csv", environment={"TZ": zone})
                self.addCleanup(process.__exit__)
                row = process.output.wait_for(",fresh$")
                self.assertTrue(row.partition(",")[0].endswith(offset), row)
                self.expect_now(row.partition(",")[0])

    def test_csv_and_json_have_the_same_names(self):
        header = self.rows("--csv").wait_for("^time,")
        rows = self.rows("--json")
        self.assertEqual(header.split(","), list(json.loads(rows.wait_for("fresh"))))

    def test_a_terminal_that_can_only_print_gets_rows(self):
        for kind in ("dumb", ""):
            with self.subTest(kind=kind), watch_session(environment={"TERM": kind}) as watch:
                watch.wait_for(self.ROW)
                self.assertNotIn(b"\x1b", watch.output)

    def test_csv_works_on_a_terminal_too(self):
        with watch_session("--csv") as watch:
            watch.wait_for("^time,gripper,state,position,")
            watch.wait_for(r",1,10\.00,0,0,0,0,1,fresh$")

    def test_frozen_values_are_marked(self):
        rows = self.rows("--csv")
        with self.condition("silent 0 on", "silent 0 off"):
            rows.wait_for(r",1,10\.00,0,0,0,0,1,frozen$")
            mark = rows.mark()
        rows.wait_for(r",1,10\.00,0,0,0,0,1,fresh$", since=mark)

    def test_the_first_row_of_a_silent_master_is_not_fresh(self):
        with self.condition("silent 0 on", "silent 0 off"):
            for options in ((), ("--timeout", "0.5")):
                with self.subTest(options=options):
                    rows = self.rows("--csv", *options)
                    rows.wait_for(r",1,10\.00,0,0,0,0,", count=3)
                    self.assertTrue(rows.lines[1].endswith(",frozen"), rows.lines)
        wait_until(lambda: self.json("list")[0]["answers"])

    def test_without_asking_values_are_not_called_fresh(self):
        self.rows("--csv", "--passive").wait_for(r",1,10\.00,0,0,0,0,1,unasked$")

    def test_delayed_rows_have_the_time_of_their_observation(self):
        reader, writer = os.pipe()
        with open(reader, "rb", buffering=0) as rows, open(writer, "wb", buffering=0) as full:
            os.set_blocking(writer, False)
            while full.write(bytes(4096)):
                pass
            os.set_blocking(writer, True)
            with subprocess.Popen(ctl.arguments_of("watch", "--json"), stdout=full,
                                  env=ctl.ENVIRONMENT) as watch:
                start = time.monotonic()
                wait_until(lambda: time.monotonic() - start > 1)
                now = datetime.datetime.now().astimezone().isoformat()
                text = b""
                while text.count(b"\n") < 3:
                    text += rows.read(65536).replace(b"\0", b"")
                watch.kill()
        for row in text.splitlines()[:2]:
            self.assertLess(json.loads(row)["time"], now)

    def test_a_closed_reader_ends_it(self):
        watch = " ".join(ctl.arguments_of("watch"))
        result = subprocess.run(["bash", "-c", f"{watch} | head -n 2; exit ${{PIPESTATUS[0]}}"],
                                env=ctl.ENVIRONMENT, capture_output=True, text=True,
                                timeout=60 * SLOWNESS)
        self.assertEqual((result.returncode, result.stderr), (128 + signal.SIGPIPE, ""))
        self.assertEqual(len(result.stdout.splitlines()), 2)


if __name__ == "__main__":
    main()
