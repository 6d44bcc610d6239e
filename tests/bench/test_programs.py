"""The programs that the benchmarks measure with, each in a cell of fast masters."""

import contextlib
import json
import os
import pathlib
import re
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import time
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
PROGRAMS = pathlib.Path(os.environ.get("TAVRIK_BENCH_PROGRAMS", ROOT / "build/dev/bench"))

sys.path.insert(0, str(ROOT))
from tests.integration.harness.cell import PATIENCE, PORTS, Output, wait_until  # noqa: E402
from tests.integration.harness.cell_test_case import main  # noqa: E402

USAGE = 2
DAEMON_PORT, PLAIN_PORT = PORTS[0], 44233
WARM_UP_CALLS = 50  # of bench-load
SO_TIMESTAMPNS = 35
DATA_SEGMENTS = 152  # where they are in the kernel's tcp_info
BODY = b"<methodCall><methodName>GetPos</methodName><params><param><value><string>HVA SN:B00" \
       b"</string></value></param></params></methodCall>"
REQUEST = b"POST /RPC2 HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Type: text/xml\r\n" \
          b"Content-Length: %d\r\n\r\n%s" % (len(BODY), BODY)
ANSWER = b"HTTP/1.1 200 OK\r\nContent-Length: 36\r\n\r\n<value><double>25.0</double></value>"


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


def answers(port, count):
    """The last of so many answers on a connection, and the segments with data that they took.

    Nothing while the server does not listen.
    """
    try:
        client = socket.create_connection(("127.0.0.1", port), PATIENCE)
    except ConnectionRefusedError:
        return None
    with client:
        for _ in range(count):
            client.sendall(REQUEST)
            answer = b""
            while not answer.endswith(b"</methodResponse>\r\n"):
                answer += client.recv(4096)
        info = client.getsockopt(socket.IPPROTO_TCP, socket.TCP_INFO, 256)
        return answer, struct.unpack_from("I", info, DATA_SEGMENTS)[0]


@contextlib.contextmanager
def timestamps():
    """The kernel notes when segments arrive, which it begins a moment after it was told to."""
    with socket.create_server(("127.0.0.1", 0)) as listener, \
            socket.create_connection(listener.getsockname()) as client:
        server, _ = listener.accept()
        with server:
            client.setsockopt(socket.SOL_SOCKET, SO_TIMESTAMPNS, 1)
            wait_until(lambda: server.send(b" ") and client.recvmsg(1, 100)[1])
            yield


def without_date(answer):
    return re.sub(rb"\r\nDate: [^\r]*", b"", answer)


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
            self.assertTrue(cell.errors.wait_for("^bench-cell: error: cannot run /nonexistent$"))

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


class ServersTest(unittest.TestCase):
    def start(self, *arguments, **options):
        process = subprocess.Popen(arguments, **options)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        return process

    def daemon(self, *options):
        cell = Cell(*options, "--", PROGRAMS / "nine-sends-daemon")
        self.addCleanup(cell.__exit__)
        cell.output.wait_for("TavrikDaemon started")
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
            self.assertIn(b"plain-server: error: ", process.communicate(timeout=PATIENCE)[1])
            self.assertEqual(process.returncode, 1)

    def test_nine_sends_daemon_sends_more_than_once(self):
        self.daemon()
        self.assertGreater(answers(DAEMON_PORT, 1)[1], 1)

    def load(self, method, *options):
        return [PROGRAMS / "bench-load", "--connections", "1", "--method", method,
                "--device", "HVA SN:B00", *options]

    def test_time_from_fin_is_part_of_a_call(self):
        with tempfile.NamedTemporaryFile() as fin:
            self.daemon("--fin-file", fin.name)
            grip = self.load("Grip", "--ports", str(DAEMON_PORT), "--int", "1", "--expect", "0",
                             "--calls", "200")
            wait_until(lambda: subprocess.run(grip, stdout=subprocess.DEVNULL).returncode == 0)
            call, from_fin = (json.loads(subprocess.run([*grip, *options], check=True,
                                                        stdout=subprocess.PIPE).stdout)
                              for options in ((), ("--fin-file", fin.name)))
        self.assertGreater(from_fin["p50Us"], 0)
        self.assertLess(from_fin["p50Us"], 2 * call["p50Us"])  # twice: the machine has other work

    def test_time_from_fin_ends_when_the_last_byte_is_sent(self):
        """Neither when the first byte is sent nor when the client runs again."""
        pieces, pause, sleep = (ANSWER[:30], ANSWER[30:]), 0.2, 1.0
        with tempfile.NamedTemporaryFile() as fin, \
                socket.create_server(("127.0.0.1", 0)) as listener, \
                timestamps():
            load = self.start(*self.load("GetPos", "--ports", str(listener.getsockname()[1]),
                                         "--expect", "25", "--calls", "1", "--fin-file", fin.name),
                              stdout=subprocess.PIPE)
            client, _ = listener.accept()
            with client:
                for _ in range(WARM_UP_CALLS):
                    client.recv(4096)
                    client.sendall(ANSWER)
                client.recv(4096)
                load.send_signal(signal.SIGSTOP)
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
    main()
