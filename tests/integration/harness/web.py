"""tavrikweb, run beside the daemon of a cell, and requests made by hand."""

import contextlib
import json
import os
import pathlib
import re
import socket
import subprocess
import tempfile

from .cell import DIES_WITH_PARENT, PATIENCE, WEB_PORT as PORT, Output, wait_until
from .cell_test_case import CellTestCase

ROOT = pathlib.Path(__file__).resolve().parents[3]
ORIGIN = f"http://127.0.0.1:{PORT}"
ASSETS = ("--assets", str(ROOT / "web" / "page"))


class Answer:
    """What the server has answered to one request."""

    def __init__(self, data):
        head, _, self.body = data.partition(b"\r\n\r\n")
        lines = head.decode("latin-1").split("\r\n")
        self.status = int(lines[0].split()[1]) if lines[0] else 0
        self.headers = {name.lower(): value.strip() for name, _, value in
                        (line.partition(":") for line in lines[1:])}

    @property
    def text(self):
        return self.body.decode()

    def json(self):
        return json.loads(self.body)


class Web:
    """A running tavrikweb."""

    def __init__(self, *options, **environment):
        self.folder = tempfile.TemporaryDirectory()
        self.environment = {**os.environ, "RUNTIME_DIRECTORY": self.folder.name, **environment}
        self.process = subprocess.Popen(
            [*DIES_WITH_PARENT, os.environ["TAVRIK_WEB"], *ASSETS, *options], env=self.environment,
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.log = Output("tavrikweb", self.process.stdout)
        self.errors = Output("errors of tavrikweb", self.process.stderr)
        try:
            self.log.wait_for("Serving ")
        except AssertionError as failure:
            self.process.kill()
            self.errors.reader.join()
            raise AssertionError(f"{failure}; its errors: {self.errors.lines}") from None

    def code(self):
        """What a user on this machine is shown."""
        return subprocess.run([os.environ["TAVRIK_WEB"], "--code"], env=self.environment,
                              check=True, capture_output=True, text=True,
                              timeout=PATIENCE).stdout.strip()

    def stop(self):
        """Ends it and checks that it ends well."""
        if self.process.poll() is None:
            self.process.terminate()
        try:
            status = self.process.wait(PATIENCE)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
            raise AssertionError("tavrikweb does not stop") from None
        finally:
            for output in (self.log, self.errors):
                output.reader.join()
            self.folder.cleanup()
        if status != 0 or self.errors.lines:
            raise AssertionError(f"tavrikweb: exit status {status}", self.errors.lines)


def connect():
    return socket.create_connection(("127.0.0.1", PORT), PATIENCE)


def receive_all(connection):
    """What comes until the server hangs up."""
    data = b""
    with contextlib.suppress(ConnectionError):
        while part := connection.recv(65536):
            data += part
    return data


def send(data):
    """Sends bytes on a connection of their own, and returns the answer."""
    with connect() as connection:
        connection.sendall(data)
        return Answer(receive_all(connection))


def compose(method, path, headers=None, body=b"", drop=()):
    """A request as the page makes it, with `headers` changed and those in `drop` left out."""
    own = {"Host": f"127.0.0.1:{PORT}", "Connection": "close"}
    if method == "POST":
        own |= {"Origin": ORIGIN, "Content-Type": "application/json", "X-Tavrik-Page": "1",
                "Content-Length": str(len(body))}
    lines = [f"{name}: {value}" for name, value in (own | (headers or {})).items()
             if name not in drop]
    return "\r\n".join([f"{method} {path} HTTP/1.1", *lines, "", ""]).encode() + body


def request(method, path, **changes):
    return send(compose(method, path, **changes))


def get(path, **changes):
    return request("GET", path, **changes)


def post(path, content, token="", **changes):
    headers = {**changes.pop("headers", {}), **({"X-Tavrik-Control": token} if token else {})}
    return request("POST", path, headers=headers, body=json.dumps(content).encode(), **changes)


class Viewer:
    """A viewer's stream of events, read on demand."""

    def __init__(self):
        self.connection = connect()
        self.connection.sendall(f"GET /events HTTP/1.1\r\nHost: 127.0.0.1:{PORT}\r\n\r\n".encode())
        self.data = b""

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.connection.close()

    def status(self):
        while b"\r\n\r\n" not in self.data:
            part = self.connection.recv(65536)
            if not part:
                break
            self.data += part
        return Answer(self.data).status

    def events(self):
        """(name, content) of each event as it comes."""
        while True:
            while event := re.search(rb"event: (\w+)\ndata: ([^\n]*)\n\n", self.data):
                self.data = self.data[event.end():]
                yield event[1].decode(), json.loads(event[2])
            part = self.connection.recv(65536)
            if not part:
                return
            self.data += re.sub(rb"\r\n[0-9a-f]+\r\n", b"", part)

    def wait_for(self, name, condition=lambda content: True):
        """The content of the first event `name` for which `condition` holds."""
        self.connection.settimeout(PATIENCE)
        for kind, content in self.events():
            if kind == name and condition(content):
                return content
        raise AssertionError(f"the stream has ended without {name}")


def new_viewer(stack):
    """A viewer that is served. One that has gone may still have its place for a moment."""
    def served():
        viewer = Viewer()
        if viewer.status() == 200:
            return stack.enter_context(viewer)
        viewer.connection.close()
        return None
    return wait_until(served)


class WebTestCase(CellTestCase):
    """Tests against tavrikweb beside the daemon of a cell."""

    options = ("--gripper", "HVA", "--gripper", "MZD-S")
    web_options = ("--allow-control",)

    @classmethod
    def prepare(cls):
        super().prepare()
        cls.cell.wait_until_operating(cls.options.count("--gripper"))
        cls.start_web(*cls.web_options)

    @classmethod
    def start_web(cls, *options, **environment):
        cls.web = Web(*options, **environment)
        cls.addClassCleanup(cls.web.stop)

    def requests(self):
        """To the first master, but for what tavrikweb itself asks it now and then."""
        return [request for request in self.cell.show(0)["requests"] if request != "PARAM[64][1]?"]

    def take_control(self):
        answer = post("/api/control/take", {"code": self.web.code()})
        self.assertEqual(answer.status, 200, answer.body)
        return answer.json()["token"]


class LogFile:
    """For a test case: tavrikweb reads the daemon's log from a file, to which the test appends."""

    @classmethod
    def prepare(cls):
        folder = cls.enterClassContext(tempfile.TemporaryDirectory())
        cls.file = pathlib.Path(folder, "daemon.log")
        cls.file.touch()
        cls.web_options = (*cls.web_options, "--log", str(cls.file))
        super().prepare()
        for device in cls.cell.call("GetGrippers"):
            cls.cell.call("Grip", device, 1)
        cls.cell.log.mark()
        cls.append(*cls.cell.log.since(0))

    @classmethod
    def append(cls, *lines):
        with cls.file.open("a", encoding="utf-8") as file:
            file.writelines(f"{line}\n" for line in lines)
