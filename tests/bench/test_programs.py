"""The programs with which the benchmarks measure."""

import json
import os
import pty
import re
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import threading
import time
import tty
import unittest

from programs import (ANSWER, DAEMON_PORT, LINE, PATIENCE, PLAIN_PORT, PROGRAMS, REQUEST,
                      WARM_UP_CALLS, answers, http, own_network, run, servers, is_asleep,
                      timestamps, wait_until, without_date)

Cell, ttys = servers.Cell, servers.ttys


class BenchCellTest(unittest.TestCase):
    def test_ends_with_the_status_of_its_command(self):
        for script, status in (("exit 7", 7), ("kill -TERM $$", 128 + signal.SIGTERM)):
            with Cell("sh", "-c", script) as cell:
                self.assertEqual(cell.process.wait(PATIENCE), status)

    def test_prints_the_pid_of_its_command(self):
        with Cell("sh", "-c", "echo $$; exec sleep 60") as cell:
            cell.wait_for("\n")
            self.assertEqual(cell.pid, int(cell.text()))

    def test_words_of_its_command_stay_as_they_are(self):
        with Cell("echo", "--help", "[[1, 2], [3]]", "--", "a b") as cell:
            cell.wait_for("\n")
            self.assertEqual(cell.text(), "--help [[1, 2], [3]] -- a b\n")

    def test_a_command_that_cannot_run(self):
        with Cell("/nonexistent") as cell:
            self.assertEqual(cell.process.wait(PATIENCE), 127)
            self.assertTrue(cell.errors.wait_for("^bench-cell: error: cannot run /nonexistent: No such file"))

    def test_passes_signals_on(self):
        for number in (signal.SIGINT, signal.SIGTERM):
            mask = f"import signal; signal.pthread_sigmask(signal.SIG_BLOCK, [{number.value}]); "
            script = "import signal; print('ready', flush=True); " \
                     f"signal.sigwait([{number.value}]); exit(5)"
            with Cell(sys.executable, "-c", mask + script) as cell:
                cell.wait_for("ready")
                cell.process.send_signal(number)
                self.assertEqual(cell.process.wait(PATIENCE), 5)

    def test_usage(self):
        for arguments in ([], ["--"], ["--masters", "65", "--", "true"], ["--rate", "--", "true"]):
            self.assertNotIn(run("bench-cell", *arguments).returncode, (0, 127), arguments)
        help_text = run("bench-cell", "--help")
        self.assertEqual(help_text.returncode, 0)
        self.assertIn("--masters", help_text.stdout)

    def test_invalid_commands_are_reported(self):
        with Cell("sleep", "60", masters=1) as cell:
            for line in ("jump", "rate", "rate fast", "rate 10001", "plug", "plug x", "plug 1",
                         "plug 0", "unplug 1"):
                with self.assertRaisesRegex(AssertionError, "bench-cell: error: " + line):
                    cell.ask(line)

    def test_outlives_its_standard_input(self):
        with Cell("sleep", "60", masters=1) as cell:
            cell.process.stdin.close()
            wait_until(lambda: is_asleep(cell.process.pid))
            self.assertFalse(cell.has_ended())


class MasterTest(unittest.TestCase):
    """The masters of bench-cell."""

    def cell(self, masters=1):
        cell = Cell("sleep", "60", masters=masters)
        self.addCleanup(cell.end)
        return cell

    def tty(self, cell, number=0):
        folder = cell.environment()["UMOCKDEV_DIR"]
        node = os.open(os.path.realpath(f"{folder}/dev/ttyACM{number}"), os.O_RDWR | os.O_NOCTTY)
        self.addCleanup(os.close, node)
        return node

    def read(self, node, size):
        text = b""
        while len(text) < size:
            text += os.read(node, size - len(text))
        return text

    def expect(self, node, request, answer):
        os.write(node, request)
        self.assertEqual(self.read(node, len(answer)), answer)

    def test_answers(self):
        node = self.tty(self.cell(masters=13), 12)
        for key, value in ((b"ID", b"PELLIX"), (b"MODE", b"4"), (b"PDOUT", b"[0,0]"),
                           (b"DEVINFO", b"[1,3,17,32,16,20,0,31249,20]"),
                           (b"PARAM[19][0]", b"[48,56,41]"), (b"PARAM[21][0]", b"[42,31,32]"),
                           (b"PARAM[40][2]", b"[1]")):
            self.expect(node, key + b"?\n",
                        b"ACK %s\n%s=%s\nFIN %s\n" % (key, key, value, key))
        for request in b"PDOUT=[3,1]", b"PARAM[21][0]=[1]", b"OPERATE()", b"DOUTINFO?":
            key = re.split(rb"[=(?]", request)[0]
            self.expect(node, request + b"\n", b"ACK %s\nFIN %s\n" % (key, key))

    def test_split_and_invalid_requests(self):
        node = self.tty(self.cell())
        self.expect(node, b"\nPDOUT\nOPERATE()\nPDOUT=[0", b"ACK OPERATE\nFIN OPERATE\n")
        self.expect(node, b",0]\n", b"ACK PDOUT\nFIN PDOUT\n")

    def test_every_master_streams(self):
        cell = self.cell(masters=2)
        nodes = self.tty(cell, 0), self.tty(cell, 1)
        cell.stream(1000)
        for node in nodes:
            self.assertEqual(self.read(node, 3 * len(LINE)), 3 * LINE)
        cell.stream(0)
        wait_until(lambda: is_asleep(cell.process.pid))
        self.assertEqual(cell.lines() % 2, 0)

    def test_missed_ticks_are_made_up_for(self):
        cell = self.cell()
        cell.stream(1000)
        cell.process.send_signal(signal.SIGSTOP)
        before = time.monotonic()
        time.sleep(0.1)
        missed = (time.monotonic() - before) * 1000
        cell.process.send_signal(signal.SIGCONT)
        self.assertGreaterEqual(wait_until(cell.lines), int(missed))

    def test_at_full_speed_it_fills_the_tty_and_then_waits(self):
        cell = self.cell()
        node = self.tty(cell)
        cell.stream("full")
        wait_until(lambda: is_asleep(cell.process.pid))
        lines = cell.lines()
        self.assertGreater(lines * len(LINE), 4096)
        self.assertEqual(self.read(node, 2 * lines * len(LINE)), 2 * lines * LINE)

    def test_answers_while_the_stream_fills_the_tty(self):
        cell = self.cell()
        node = self.tty(cell)
        cell.stream("full")
        wait_until(lambda: is_asleep(cell.process.pid))
        os.write(node, 100 * b"OPERATE()\n")
        text = b""
        while text.count(b"FIN OPERATE\n") < 100:
            text += os.read(node, 4096)
        lines = text[:text.rindex(b"\n") + 1].splitlines(keepends=True)
        self.assertEqual(set(lines), {LINE, b"ACK OPERATE\n", b"FIN OPERATE\n"})

    def test_unplugging_hangs_the_tty_up(self):
        cell = self.cell()
        node = self.tty(cell)
        before = time.monotonic_ns()
        self.assertGreater(cell.ask("unplug 0"), before)
        with self.assertRaises(OSError):
            os.write(node, b"x")
        with self.assertRaisesRegex(AssertionError, "the master is not plugged in"):
            cell.ask("unplug 0")
        self.assertGreater(cell.ask("plug 0"), before)
        self.expect(self.tty(cell), b"OPERATE()\n", b"ACK OPERATE\nFIN OPERATE\n")


class TtyProgramTest(unittest.TestCase):
    """plain-readers and pty-handover."""

    def interrupt(self, cell):
        cell.process.send_signal(signal.SIGINT)
        return cell.result()

    def readers(self, masters, *options):
        cell = servers.Readers(masters, *options)
        self.addCleanup(cell.end)
        return cell

    def test_readers_decode_all_lines_at_full_speed(self):
        cell = self.readers(2)
        cell.stream("full")
        wait_until(lambda: cell.lines() > 100000)
        result = self.interrupt(cell)
        self.assertGreater(result["lines"], 50000)
        self.assertEqual(result["wrong"], 0)

    def test_readers_get_every_line_of_a_rate(self):
        cell = self.readers(2)
        cell.stream(1000)
        wait_until(lambda: cell.lines() >= 200)
        cell.stream(0)
        wait_until(lambda: is_asleep(cell.pid))
        sent = cell.lines()
        self.assertEqual(self.interrupt(cell)["lines"], sent)

    def test_sleepers_are_two_more_threads_for_each_tty(self):
        for options, threads in ([], 1 + 2), (["--sleepers"], 1 + 2 * 3):
            cell = self.readers(2, *options)
            self.assertEqual(len(os.listdir(f"/proc/{cell.pid}/task")), threads)

    def test_a_master_that_is_unplugged_ends_only_its_reader(self):
        cell = self.readers(2)
        cell.stream(1000)
        cell.ask("unplug 0")
        enough = cell.lines() + 100
        wait_until(lambda: cell.lines() > enough)
        self.assertEqual(self.interrupt(cell)["wrong"], 0)

    def test_readers_count_other_lines_as_wrong(self):
        master, node = pty.openpty()
        self.addCleanup(os.close, master)
        self.addCleanup(os.close, node)
        tty.setraw(node)
        with subprocess.Popen([PROGRAMS / "plain-readers", os.ttyname(node)],
                              stdout=subprocess.PIPE) as readers:
            readers.stdout.readline()
            os.write(master, b"c4,0,3]\n" + LINE + b"@PDIN=[9,c4]\n@PDIN=[9,c4,0,3x\nFIN PDOUT\n"
                     + b"@PDIN=[9,c4,0,100]\n" + LINE + LINE[:9])
            wait_until(lambda: is_asleep(readers.pid))
            readers.send_signal(signal.SIGINT)
            self.assertEqual(json.loads(readers.stdout.read()), {"lines": 7, "wrong": 4})

    def test_handover_measures_its_rounds(self):
        for rate in 0, 1000:
            with Cell(PROGRAMS / "pty-handover", *ttys(1), "300", masters=1) as cell:
                cell.stream(rate)
                result = cell.result()
            self.assertGreater(result["p50Us"], 0)
            self.assertGreater(result["cpuUs"], 0)

    def test_handover_waits_for_the_right_line(self):
        master, node = pty.openpty()
        self.addCleanup(os.close, master)
        self.addCleanup(os.close, node)
        tty.setraw(node)
        answerer = threading.Thread(target=lambda: os.read(master, 100) and os.write(
            master, b"ACK PDOUT\nFIN PDIN\nFIN PDOU\n"))
        answerer.start()
        self.addCleanup(answerer.join)
        self.assertEqual(run("pty-handover", os.ttyname(node), 1).stderr,
                         "pty-handover: error: the master does not answer\n")

    def test_usage(self):
        for program, *arguments in (("plain-readers",), ("pty-handover",), ("pty-handover", "a"),
                                    ("pty-handover", "a", "0"), ("pty-handover", "a", "1", "b")):
            self.assertEqual(run(program, *arguments).returncode, 2)

    def test_a_missing_tty(self):
        for path in "/nonexistent", "/dev/null":
            for program, *arguments in ("plain-readers", path), ("pty-handover", path, "1"):
                result = run(program, *arguments)
                self.assertEqual(result.returncode, 1)
                self.assertIn(f"{program}: error: {path}", result.stderr)


class BenchLoadTest(unittest.TestCase):
    """bench-load with a server whose answers the test chooses."""

    def serve(self, pieces, listener):
        """Answers request N, counted from 0, with the pieces of `pieces(N)`; hangs up if there are
        none."""
        client, _ = listener.accept()
        with client:
            client.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
            number = 0
            while client.recv(4096) and pieces(number):
                for piece in pieces(number):
                    client.sendall(piece)
                number += 1

    def load(self, pieces, expected="25", seconds="0.01"):
        """The result of bench-load, and its message about the first wrong answer."""
        with socket.create_server(("127.0.0.1", 0)) as listener:
            server = threading.Thread(target=self.serve, args=(pieces, listener))
            server.start()
            done = run("bench-load", "--ports", listener.getsockname()[1], "--seconds", seconds,
                       "--method", "GetPos", "--device", "HVA SN:B00", "--expect", expected)
            server.join()
        self.assertEqual(done.returncode, 1 if done.stderr else 0)
        return json.loads(done.stdout), done.stderr

    def test_counts_and_times_its_calls(self):
        result, message = self.load(lambda _: [ANSWER], seconds="0.1")
        self.assertEqual((message, result["wrong"]), ("", 0))
        self.assertEqual(result["warmUpCalls"], WARM_UP_CALLS)
        self.assertGreaterEqual(result["seconds"], 0.1)
        self.assertAlmostEqual(result["callsPerSecond"], result["calls"] / result["seconds"],
                               delta=1)
        times = [result[f"{name}Us"] for name in ("p50", "p90", "p99", "p999", "max")]
        self.assertEqual(times, sorted(times))
        self.assertGreater(times[0], 0)

    def test_percentiles(self):
        def slow_first(number):
            time.sleep(0.2 if number == WARM_UP_CALLS else 0)
            return [ANSWER]
        result, _ = self.load(slow_first, seconds="0.1")
        self.assertEqual(result["calls"], 1)
        for name in "p50", "p99", "max":
            self.assertGreaterEqual(result[f"{name}Us"], 0.2e6)

    def test_accepts_right_answers(self):
        value = b"<value><double>25.0</double></value>"
        chunks = http(b"24\r\n" + value + b"\r\n0\r\n\r\n", b"Transfer-Encoding: chunked")
        for pieces in ([http(b"<value><double>25</double></value>")],
                       [http(b"<value><int>25</int></value>")],
                       [http(value, b"content-length: %d")],
                       [ANSWER[:7], ANSWER[7:30], ANSWER[30:-1], ANSWER[-1:]],
                       [chunks], [chunks[:-9], chunks[-9:-2], chunks[-2:]],
                       [http(b" " * 10000 + value)]):
            result, message = self.load(lambda _, pieces=pieces: pieces)
            self.assertEqual(message, "")
            self.assertGreater(result["calls"], 0)

    def test_rejects_wrong_answers(self):
        fault = b"<methodResponse><fault><value><struct><member><name>faultCode</name><value>" \
                b"<int>25</int></value></member></struct></value></fault></methodResponse>"
        for body in (b"", b"<value><int>25", b"<value><int>25</int>", b"<value><int></int></value>",
                     b"<value><double>25.01</double></value>", b"<value><int>-25</int></value>",
                     b"<value><double>25x</double></value>", b"<value>", fault,
                     2 * b"<value><int>25</int></value>"):
            result, message = self.load(lambda _, body=body: [http(body)])
            self.assertIn("bench-load: wrong answer: ", message)
            self.assertEqual(result["wrong"], result["warmUpCalls"] + result["calls"])

    def test_rejects_invalid_responses(self):
        for answer, reason in ((ANSWER.replace(b"200 OK", b"500 No"), "status: HTTP/1.1 500 No"),
                               (ANSWER + b"x", "more bytes than the answer's length"),
                               (http(b"x", b"Server: x"), "answer without a length"),
                               (b"", "Connection reset")):
            self.assertIn(reason, self.load(lambda _, answer=answer: answer and [answer])[1])

    def test_one_wrong_answer_is_enough(self):
        wrong = http(b"<value><int>12</int></value>")
        for place in 0, WARM_UP_CALLS - 1, WARM_UP_CALLS:
            result, message = self.load(
                lambda number, place=place: [wrong if number == place else ANSWER])
            self.assertEqual(result["wrong"], 1)
            self.assertIn("<int>12</int>", message)

    def test_stops_when_the_server_hangs_up(self):
        result, message = self.load(lambda number: number < WARM_UP_CALLS + 3 and [ANSWER],
                                    seconds="10")
        self.assertEqual((result["calls"], result["wrong"]), (3, 1))
        self.assertIn("Connection reset", message)

    def test_usage(self):
        needed = ["--ports", "1", "--method", "m", "--device", "d", "--expect", "0"]
        for arguments in ([], needed[2:], [*needed, "--seconds", "0"], [*needed, "--ports", "x"],
                          [*needed, "--connections", "0"], [*needed[:-1], "HVA"]):
            result = run("bench-load", *arguments)
            self.assertNotEqual(result.returncode, 0)
            self.assertNotIn("bench-load: error", result.stderr)

    def test_a_port_without_a_server(self):
        with socket.create_server(("127.0.0.1", 0)) as listener:
            port = listener.getsockname()[1]
        result = run("bench-load", "--ports", port, "--method", "m", "--device", "d",
                     "--expect", "0")
        self.assertEqual(result.returncode, 1)
        self.assertIn("bench-load: error: connect", result.stderr)


class ServersTest(unittest.TestCase):
    def start(self, *arguments, **options):
        process = subprocess.Popen(arguments, **options)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        return process

    def daemon(self, **options):
        cell = Cell(PROGRAMS / "nine-sends-daemon", masters=1, **options)
        self.addCleanup(cell.end)
        cell.wait_for("TavrikDaemon started")
        cell.settle()
        return cell

    def test_plain_server_answers_like_the_daemon_with_one_send(self):
        self.daemon()
        self.start(PROGRAMS / "plain-server", str(PLAIN_PORT))
        wait_until(lambda: answers(PLAIN_PORT, 1))
        wait_until(lambda: without_date(answers(DAEMON_PORT, 1)[0])
                   == without_date(answers(PLAIN_PORT, 1)[0]))
        self.assertEqual(answers(PLAIN_PORT, 3)[1], 3)

    def test_plain_server_waits_for_a_whole_request(self):
        self.start(PROGRAMS / "plain-server", str(PLAIN_PORT))
        wait_until(lambda: answers(PLAIN_PORT, 1))
        with socket.create_connection(("127.0.0.1", PLAIN_PORT)) as client:
            client.sendall(REQUEST[:-1])
            client.settimeout(0.2)
            self.assertRaises(TimeoutError, client.recv, 1)
            client.sendall(REQUEST[-1:])
            client.settimeout(PATIENCE)
            self.assertEqual(client.recv(4096), answers(PLAIN_PORT, 1)[0])

    def test_plain_server_needs_a_port(self):
        for ports in (), ("0x",), ("70000",):
            process = self.start(PROGRAMS / "plain-server", *ports, stderr=subprocess.PIPE)
            self.assertIn(b"PORT", process.communicate(timeout=PATIENCE)[1])
            self.assertNotEqual(process.returncode, 0)

    def test_nine_sends_daemon_sends_more_than_once(self):
        self.daemon()
        self.assertGreater(answers(DAEMON_PORT, 1)[1], 1)

    def load(self, method, *options):
        return [PROGRAMS / "bench-load", "--connections", "1", "--method", method,
                "--device", "HVA SN:B00", *options]

    def test_the_time_from_fin_needs_a_fin(self):
        with tempfile.NamedTemporaryFile() as fin:
            self.daemon(fin_file=fin.name)
            grip = self.load("Grip", "--ports", str(DAEMON_PORT), "--int", "1", "--expect", "0",
                             "--seconds", "0.1")
            wait_until(lambda: subprocess.run(grip, stdout=subprocess.DEVNULL).returncode == 0)

            report = subprocess.run([*grip, "--fin-file", fin.name], check=True,
                                    stdout=subprocess.PIPE).stdout
            no_fin = subprocess.run(
                [*self.load("GetPos", "--ports", str(DAEMON_PORT), "--expect", "25",
                            "--seconds", "0.1"), "--fin-file", fin.name],
                check=False, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
        self.assertIn(b"no FIN before the answer", no_fin.stderr)
        self.assertGreater(json.loads(report)["p50Us"], 0)

    def test_the_time_from_fin_ends_when_the_last_byte_is_sent(self):
        """It does not begin with the call, nor end when the first byte is sent or when the client
        runs again."""
        pieces, pause, sleep = (ANSWER[:30], ANSWER[30:]), 0.2, 1.0
        with tempfile.NamedTemporaryFile() as fin, \
                socket.create_server(("127.0.0.1", 0)) as listener, \
                timestamps():
            load = self.start(*self.load("GetPos", "--ports", str(listener.getsockname()[1]),
                                         "--expect", "25", "--seconds", "0.1", "--fin-file", fin.name),
                              stdout=subprocess.PIPE)
            client, _ = listener.accept()
            with client:
                for _ in range(WARM_UP_CALLS):
                    client.recv(4096)
                    client.sendall(ANSWER)
                client.recv(4096)
                load.send_signal(signal.SIGSTOP)
                time.sleep(sleep)
                os.pwrite(fin.fileno(), struct.pack("q", time.time_ns()), 0)
                client.sendall(pieces[0])
                time.sleep(pause)
                client.sendall(pieces[1])
                time.sleep(sleep)
                load.send_signal(signal.SIGCONT)
                result = json.loads(load.communicate(timeout=PATIENCE)[0])
        self.assertGreaterEqual(result["p50Us"], pause * 1e6)
        self.assertLess(result["p50Us"], (pause + sleep) * 1e6)


if __name__ == "__main__":
    own_network.enter()
    unittest.main()
