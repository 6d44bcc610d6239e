"""Base of the tests of tavrikctl, and fake servers."""

import contextlib
import http.server
import json
import re
import socket
import threading

from . import ctl
from .cell import wait_until
from .cell_test_case import CellTestCase

HVA = "HVA SN:100001"
MZD = "MZD-S SN:100002"
TLM = "TLM SN:100003"
NO_GRIPPERS = "<array><data></data></array>"
GRIPPER = "<array><data><value>X</value></data></array>"  # the only one of a fake server


class CtlTestCase(CellTestCase):
    options = ("--gripper", "HVA", "--gripper", "MZD-S", "--gripper", "TLM")

    @classmethod
    def prepare(cls):
        super().prepare()
        count = cls.options.count("--gripper") - cls.options.count("--unplugged")
        if count:
            cls.cell.wait_until_operating(count)
        for device in cls.call_apart("GetGrippers"):
            wait_until(lambda device=device: cls.call_apart("GetPDINExcerpt", device))

    @classmethod
    def call_apart(cls, method, *arguments):
        return cls.cell.call_apart(method, *arguments)

    def ctl(self, *arguments, **options):
        """Runs a command that succeeds; returns its output."""
        result = ctl.run(*arguments, **options)
        self.assertEqual((result.returncode, result.stderr), (0, ""), arguments)
        return result.stdout

    def json(self, *arguments):
        return json.loads(self.ctl(*arguments, "--json"))

    def expect_failure(self, status, text, *arguments, **options):
        """Runs a command that fails with one line on standard error, in which `text` is."""
        result = ctl.run(*arguments, **options)
        self.assertEqual(result.returncode, status, result)
        self.assertRegex(result.stderr, r"\Atavrikctl: [^\n]+\n\Z")
        self.assertIn(text, result.stderr)
        self.assertEqual(result.stdout, "")

    def requests_during(self, number, *arguments):
        """The lines that master `number` gets while a command runs."""
        before = self.cell.show(number)["requestCount"]
        self.ctl(*arguments)
        shown = self.cell.show(number)
        count = shown["requestCount"] - before
        return shown["requests"][-count:] if count else []

    def wait_for_process_data(self, number, device):
        """Waits until the daemon has the latest process data of `device`."""
        def is_there():
            pdin = self.cell.show(number)["pdin"]
            return (self.call("GetPDINExcerpt", device) ==
                    pdin[0] + 256 * pdin[1] + 65536 * pdin[3])
        wait_until(is_there)


class HttpServer(http.server.BaseHTTPRequestHandler):
    """Answers calls as the server object says, up to its limit."""

    def do_POST(self):
        call = self.rfile.read(int(self.headers["Content-Length"]))
        if self.server.answers == 0:
            self.server.stopping.wait()
            return
        self.server.answers -= 1
        body = self.server.body
        if isinstance(body, dict):
            value = body[re.search(rb"<methodName>(.*?)<", call)[1].decode()]
            body = xml_answer(value if isinstance(value, str) else next(value))
        self.send_response(self.server.status)
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)

    def log_message(self, *_):
        pass


@contextlib.contextmanager
def http_server(status, body, answers=-1):
    """A server that gives this answer, always or a limited number of times.

    `body` may also be a dictionary: the value that each method answers, or an iterator over its
    answers.
    """
    with http.server.ThreadingHTTPServer(("127.0.0.1", 0), HttpServer) as server:
        server.status, server.body, server.answers = status, body, answers
        server.stopping = threading.Event()
        thread = threading.Thread(target=server.serve_forever, args=(0.01,))
        thread.start()
        try:
            yield server.server_address[1]
        finally:
            server.stopping.set()
            server.shutdown()
            thread.join()


@contextlib.contextmanager
def raw_server(answer):
    """A server that sends these bytes to its only client and closes the connection."""
    def serve():
        connection, _ = server.accept()
        with connection:
            connection.recv(65536)
            connection.sendall(answer)
            connection.shutdown(socket.SHUT_WR)
            connection.recv(1)  # until the client has gone: closed earlier, bytes may get lost
    with socket.create_server(("127.0.0.1", 0)) as server:
        thread = threading.Thread(target=serve)
        thread.start()
        yield server.getsockname()[1]
        thread.join()


def xml_answer(value):
    return (f"<methodResponse><params><param><value>{value}</value></param></params>"
            "</methodResponse>").encode()
