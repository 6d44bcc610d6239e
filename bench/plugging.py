"""How long a plugged master takes to be listed, and an unplugged one to be gone."""

import random
import socket
import time

from figures import Figure, at_most
from servers import DAEMON, OPERATES, Server
from tests.integration.harness.cell import PATIENCE, PORTS
from world import device

POLL = 0.01  # seconds; the daemon's own polls: events shall meet them in any phase
BODY = b"<?xml version='1.0'?><methodCall><methodName>GetGrippers</methodName></methodCall>"
REQUEST = (b"POST /RPC2 HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Type: text/xml\r\n"
           b"Content-Length: %d\r\n\r\n%s" % (len(BODY), BODY))


class ListClient:
    """Asks for the list of grippers on one connection, as fast as Python can."""

    def __init__(self):
        self.connection = socket.create_connection(("127.0.0.1", PORTS[0]), PATIENCE)
        self.connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.connection.close()

    def lists(self, name):
        self.connection.sendall(REQUEST)
        answer = b""
        while not answer.endswith(b"</methodResponse>\r\n"):
            data = self.connection.recv(65536)
            if not data:
                raise AssertionError("the daemon has closed the connection")
            answer += data
        return name in answer


def plugging(plan):
    name = device(0).encode()
    added, removed = [], []
    with Server(DAEMON, masters=1, unplugged=True) as daemon, ListClient() as client:
        def seconds_of(event, is_listed):
            time.sleep(random.uniform(POLL, 2 * POLL))
            mark = daemon.send(f"{event} 0")
            deadline = time.monotonic() + PATIENCE
            while client.lists(name) != is_listed:
                if time.monotonic() > deadline:
                    raise AssertionError(f"not seen: {event}")
            return (time.monotonic_ns() - daemon.answer(mark)) / 1e6
        for number in range(plan.plugs):
            added.append(seconds_of("plug", True))
            daemon.wait_for(OPERATES, count=number + 1)
            removed.append(seconds_of("unplug", False))
    yield Figure("\"add\" event to listed by GetGrippers", "ms", added, goal=at_most(2))
    yield Figure("\"remove\" event to gone", "ms", removed, goal=at_most(15))
