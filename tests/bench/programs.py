"""Helpers of the tests of the benchmarks' programs."""

import contextlib
import os
import pathlib
import re
import socket
import struct
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parents[2]
PROGRAMS = pathlib.Path(os.environ.get("TAVRIK_BENCH_PROGRAMS", ROOT / "build/dev/bench"))

sys.path[:0] = [str(ROOT), str(ROOT / "bench")]
import servers  # noqa: E402
from servers import cpu_seconds  # noqa: E402
from tests.integration.harness import own_network  # noqa: E402, F401
from tests.integration.harness.cell import PATIENCE, PORTS, wait_until  # noqa: E402

servers.PROGRAMS = PROGRAMS

DAEMON_PORT, PLAIN_PORT = PORTS[0], 44233
WARM_UP_CALLS = 50  # of bench-load
SO_TIMESTAMPNS = 35
DATA_SEGMENTS = 152  # offset of their number in the kernel's tcp_info
BODY = b"<methodCall><methodName>GetPos</methodName><params><param><value><string>HVA SN:B00" \
       b"</string></value></param></params></methodCall>"
REQUEST = b"POST /RPC2 HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Type: text/xml\r\n" \
          b"Content-Length: %d\r\n\r\n%s" % (len(BODY), BODY)
LINE = b"@PDIN=[9,c4,0,3]\n"


def http(body, header=b"Content-Length: %d"):
    return b"HTTP/1.1 200 OK\r\n" + (header % len(body) if b"%" in header else header) + \
        b"\r\n\r\n" + body


ANSWER = http(b"<value><double>25.0</double></value>")


def run(program, *arguments):
    return subprocess.run([PROGRAMS / program, *map(str, arguments)], check=False, text=True,
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=PATIENCE)


def is_asleep(pid):
    """Whether no thread of the process runs, or waits for a processor, for 0.1 s."""
    before = cpu_seconds(pid)
    for _ in range(10):
        for thread in pathlib.Path(f"/proc/{pid}/task").iterdir():
            if ") S " not in (thread / "stat").read_text():
                return False
        time.sleep(0.01)
    return cpu_seconds(pid) == before


def answers(port, count):
    """The last of `count` answers on a connection, and the number of data segments of all.

    None if no server listens.
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
    """Has the kernel record when segments arrive, which begins a moment after the request."""
    with socket.create_server(("127.0.0.1", 0)) as listener, \
            socket.create_connection(listener.getsockname()) as client:
        server, _ = listener.accept()
        with server:
            client.setsockopt(socket.SOL_SOCKET, SO_TIMESTAMPNS, 1)
            wait_until(lambda: server.send(b" ") and client.recvmsg(1, 100)[1])
            yield


def without_date(answer):
    return re.sub(rb"\r\nDate: [^\r]*", b"", answer)
