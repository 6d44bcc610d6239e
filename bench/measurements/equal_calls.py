"""Measures how often an executed Grip returns "not answered" (5) when two clients send the same
Grip to one gripper at the same instant, one on each port, without a pause. For comparison, they
also send it in turn.

Usage: scripts/storm --equal-calls [PAIRS [SECONDS]]: makes PAIRS pairs of calls for each way of
answering (default 10000), but stops after SECONDS (default 120).

The simulated master executes every request. "Cut" counts the reads that ended within a line of its
replies: such a line is lost.
"""

import collections
import re
import socket
import sys
import tempfile
import time
import xmlrpc.client

from tests.integration.harness import own_network
from tests.integration.harness.cell import PORTS, Cell, answers, wait_until

GRIPPER = "HVA SN:100001"
WAYS = tuple((at_once, query_end, report) for at_once in (True, False)
             for query_end in ("fin", "data") for report in ("on", "off"))
TIMEOUT = 5


class RawClient:
    """A connection that sends a prepared call, to save time between two calls."""

    def __init__(self, port, method, *arguments):
        body = xmlrpc.client.dumps(arguments, method).encode()
        self.request = (b"POST /RPC2 HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Type: text/xml\r\n"
                        b"Content-Length: %d\r\n\r\n%s" % (len(body), body))
        self.socket = socket.create_connection(("127.0.0.1", port), timeout=30)
        self.socket.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        self.answers = self.socket.makefile("rb")

    def send(self):
        self.socket.sendall(self.request)

    def body(self):
        """The reply to the last call, as XML."""
        length = 0
        while line := self.answers.readline().strip():
            if line.lower().startswith(b"content-length:"):
                length = int(line.split(b":")[1])
        if length == 0:
            raise AssertionError("the daemon has closed the connection")
        return self.answers.read(length)

    def answer(self):
        """The result of the last call, a number, as text."""
        return re.search(rb"<(?:i4|int|double)>([^<]+)<", self.body())[1].decode()

    def status(self):
        return int(self.answer())

    def close(self):
        self.answers.close()
        self.socket.close()


def measure(at_once, query_end, report, pairs, seconds):
    options = ("--gripper", "HVA", "--query-end", query_end, "--report-pdout", report)
    with tempfile.TemporaryFile() as log:
        cell = Cell(*options, stdout=log)
        try:
            for port in PORTS:
                wait_until(lambda port=port: answers(port))
            wait_until(lambda: cell.call("Grip", GRIPPER, 1) == 0)
            start = wait_until(lambda: quiet_size(log), pause=0)
            statuses, elapsed = call_in_pairs(at_once, pairs, seconds)
            cell.close_clients()
        finally:
            cell.end_by_force()
        log.seek(start)
        lines = collections.Counter(
            found[0] for found in re.finditer(rb"New command PDOUT|Clearing previous", log.read()))
    return statuses, lines[b"New command PDOUT"], lines[b"Clearing previous"], elapsed


def quiet_size(log):
    """The size of the log; None while the daemon still writes to it."""
    size = log.seek(0, 2)
    time.sleep(0.1)
    return size if log.seek(0, 2) == size else None


def call_in_pairs(at_once, pairs, seconds):
    clients = [RawClient(port, "Grip", GRIPPER, 1) for port in PORTS]
    statuses = collections.Counter()
    start = time.monotonic()
    while pairs > 0 and time.monotonic() - start < seconds:
        pairs -= 1
        for group in [clients] if at_once else [[client] for client in clients]:
            for client in group:
                client.send()
            statuses.update(client.status() for client in group)
    for client in clients:
        client.close()
    return statuses, time.monotonic() - start


def main(pairs=10000, seconds=120):
    own_network.enter()
    print("clients  query-end  report-pdout  calls   sent    cut  answer 0  answer 5  others   in s")
    for way in WAYS:
        statuses, sent, cut, elapsed = measure(*way, pairs, seconds)
        at_once, query_end, report = way
        calls = statuses.total()
        others = calls - statuses[0] - statuses[TIMEOUT]
        print(f"{'at once' if at_once else 'in turn'}  {query_end:9}  {report:12} {calls:6} {sent:6} "
              f"{cut:6} {statuses[0]:9} {statuses[TIMEOUT]:9} {others:7} {elapsed:6.0f}", flush=True)


if __name__ == "__main__":
    main(*map(int, sys.argv[1:]))
