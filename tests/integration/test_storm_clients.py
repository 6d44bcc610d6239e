"""Many clients that stall, disconnect and send invalid requests, more than in test_clients.py."""

import concurrent.futures
import contextlib
import http.client
import itertools
import socket
import struct
import sys
import time
import unittest
import xmlrpc.client

from .harness.cell import HVA, MZD, PATIENCE, PORTS, SLOWNESS, answers, wait_until
from .harness.cell_test_case import main
from .harness.methods import METHODS
from .harness.storm import (FACTOR, StormTestCase, random_numbers, resources_of, rounds,
                            wait_until_back)

CROWDED, OTHER = PORTS

CROWD = 200
PLACES = 15  # connections that a port serves at once
IDLE_LIMIT = 15.0  # seconds until the daemon closes an idle connection
LARGEST_REQUEST = 512 * 1024  # bytes
DEEPEST = 64  # levels of nested values
WRONG_TYPE = -501  # fault code, also of a wrong number of parameters
ARENA_SLACK = 16384  # KiB that the allocator keeps of delayed answers, in all threads
CALL_LIMIT = 0.5 * SLOWNESS  # seconds that a call may take while other clients misbehave


def http_request(body, field="Connection: keep-alive"):
    return (f"POST /RPC2 HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Type: text/xml\r\n{field}\r\n"
            f"Content-Length: {len(body)}\r\n\r\n").encode() + body


def request(method, *values):
    """Returns an XML-RPC request with these parameters in XML."""
    parameters = "".join(f"<param><value>{value}</value></param>" for value in values)
    return (f"<?xml version='1.0'?><methodCall><methodName>{method}</methodName>"
            f"<params>{parameters}</params></methodCall>").encode()


def large_answer():
    """Returns a request of some kilobytes with a much larger answer."""
    calls = [{"methodName": "system.listMethods", "params": []}] * 100
    return http_request(xmlrpc.client.dumps((calls,), "system.multicall").encode())


def connect(port):
    return socket.create_connection(("127.0.0.1", port), timeout=20 * SLOWNESS)


def connect_at_last(port):
    """Connects to a crowded port. By itself, the kernel would only retry after 1, 2, 4... s."""
    deadline = time.monotonic() + 4 * PATIENCE  # the server accepts 15 of them every 2 s
    while True:
        try:
            connection = socket.create_connection(("127.0.0.1", port), timeout=0.3)
        except TimeoutError:
            if time.monotonic() > deadline:
                raise
        else:
            connection.settimeout(PATIENCE)
            return connection


def reset(connection):
    """Closes a connection with a reset."""
    connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
    connection.close()


@contextlib.contextmanager
def crowd(port):
    """Opens many idle connections at once."""
    with contextlib.ExitStack() as connections:
        for _ in range(CROWD):
            connection = connections.enter_context(socket.socket())
            connection.setblocking(False)
            with contextlib.suppress(BlockingIOError):
                connection.connect(("127.0.0.1", port))
        yield


class ClientStormTestCase(StormTestCase):
    options = ("--gripper", "HVA", "--gripper", "MZD-S")

    @classmethod
    def prepare(cls):
        super().prepare()
        cls.cell.wait_until_operating(2)

    def setUp(self):
        self.random = random_numbers(self.id())
        self.daemon = self.cell.daemon_pid()
        self.cell.close_clients()
        self.baseline = resources_of(self.daemon)

    def tearDown(self):
        # Whatever the clients did, both ports still serve and no resources have leaked.
        for port in PORTS:
            wait_until(lambda port=port: answers(port))
            self.assertEqual(self.call("Grip", HVA, 1, port=port), 0)
        self.cell.close_clients()
        print(wait_until_back(self.daemon, self.baseline, memory_slack=ARENA_SLACK),
              file=sys.stderr)

    def assert_served(self, port):
        start = time.monotonic()
        self.assertEqual(self.call("Grip", MZD, 1, port=port), 0)
        self.assertLess(time.monotonic() - start, CALL_LIMIT)


class CrowdTest(ClientStormTestCase):
    def test_two_hundred_idle_connections(self):
        for _ in range(rounds(1)):
            with crowd(CROWDED):
                for _ in range(20):
                    self.assert_served(OTHER)
            wait_until(lambda: answers(CROWDED))

    def test_more_clients_than_places_are_all_served(self):
        data = http_request(request("GetGripperInterface", HVA), "Connection: close")

        def call():
            with connect_at_last(CROWDED) as connection:
                connection.sendall(data)
                return b"".join(iter(lambda: connection.recv(65536), b""))

        with concurrent.futures.ThreadPoolExecutor(CROWD) as callers:
            calls = [callers.submit(call) for _ in range(min(CROWD, rounds(3 * PLACES)))]
            while not all(call.done() for call in calls):
                self.assert_served(OTHER)
            for call in calls:
                self.assertIn(b"<i4>0</i4>", call.result())

    def test_unfinished_requests_do_not_block_the_other_places(self):
        with self.unfinished_requests(PLACES - 2):
            for _ in range(20):
                for port in PORTS:
                    self.assert_served(port)

    @unittest.skipUnless(FACTOR > 1, "takes 15 s: only in long storms")
    def test_unfinished_requests_time_out(self):
        with self.unfinished_requests(PLACES):
            start = time.monotonic()
            self.assert_served(OTHER)
            # Clients that send no more occupy all places.
            self.assertTrue(answers(CROWDED))
            elapsed = time.monotonic() - start
            self.assertGreater(elapsed, IDLE_LIMIT / 2)
            self.assertLess(elapsed, IDLE_LIMIT + 5 * SLOWNESS)

    @contextlib.contextmanager
    def unfinished_requests(self, count):
        data = http_request(request("GetPos", HVA))
        with contextlib.ExitStack() as connections:
            for _ in range(count):
                connection = connections.enter_context(connect(CROWDED))
                connection.sendall(data[:self.random.randrange(1, len(data))])
            yield


class HangUpTest(ClientStormTestCase):
    def test_resets_within_the_answer(self):
        data = large_answer()
        for number in range(rounds(30)):
            connection = connect(PORTS[number % 2])
            connection.sendall(data)
            connection.recv(self.random.randrange(1, 50_000))
            reset(connection)

    def test_answers_that_clients_do_not_read(self):
        with contextlib.ExitStack() as connections:
            idle = [connections.enter_context(connect(CROWDED)) for _ in range(PLACES - 2)]
            for connection in idle:
                connection.sendall(large_answer() * 3)
            for connection in idle:  # until its answer is held up, the daemon is at work on it
                connection.recv(1, socket.MSG_PEEK)
            for port in PORTS:
                self.assert_served(port)

    def test_resets_within_a_storm_of_requests(self):
        data = http_request(request("Grip", MZD, "<int>1</int>"))
        for number in range(rounds(30)):
            connection = connect(PORTS[number % 2])
            with contextlib.suppress(OSError):
                for _ in range(self.random.randrange(1, 5)):
                    connection.sendall(data)
                connection.sendall(data[:self.random.randrange(len(data))])
            reset(connection)


class SizeTest(ClientStormTestCase):
    def ask(self, body):
        """Returns status and body of the response; (None, None) if the daemon closes instead."""
        connection = http.client.HTTPConnection("127.0.0.1", CROWDED, timeout=20 * SLOWNESS)
        with contextlib.closing(connection):
            try:
                connection.request("POST", "/RPC2", body, {"Content-Type": "text/xml"})
                response = connection.getresponse()
                return response.status, response.read()
            except OSError:
                return None, None

    def test_requests_of_all_sizes_up_to_the_limit(self):
        frame = len(request("GetGripperInterface", ""))
        for size in (1000, 4096, 65536, LARGEST_REQUEST - 1, LARGEST_REQUEST):
            for _ in range(rounds(1)):
                with self.subTest(size=size):
                    name = "x" * (size - frame)
                    mark = self.cell.log.mark()
                    status, answer = self.ask(request("GetGripperInterface", name))
                    self.assertEqual(status, 200)
                    self.assertIn(b"<i4>-1</i4>", answer)
                    line = self.cell.log.wait_for("not found$", since=mark)
                    self.assertEqual(line.split(" ", 2)[2], f"Device '{name}' not found")

    def test_larger_requests_are_refused(self):
        for size in (1, 2, 4096, 1_000_000, 30_000_000):
            for _ in range(rounds(1)):
                with self.subTest(beyond=size):
                    status, _ = self.ask(request("Grip", "x" * (LARGEST_REQUEST + size)))
                    self.assertNotEqual(status, 200)
                    self.assert_served(CROWDED)

    def test_nested_values(self):
        nests = (("<array><data><value>", "</value></data></array>"),
                 ("<struct><member><name>a</name><value>", "</value></member></struct>"))
        for depth in (1, DEEPEST - 1, DEEPEST, DEEPEST + 1, 1000, 6000):
            for opening, closing in nests:
                for method in ("GetPos", "GetGrippers", "system.multicall"):
                    with self.subTest(depth=depth, method=method):
                        status, answer = self.ask(request(method, opening * depth + "1" +
                                                          closing * depth))
                        self.assertEqual(status, 200)
                        self.assertIn(b"<fault>", answer)


class ArgumentTest(ClientStormTestCase):
    """Wrong arguments of a method are a fault, and nothing is sent to the gripper."""

    MALFORMED = ("<int>2147483648</int>", "<int></int>", "<int>one</int>", "<double>one</double>",
                 "<boolean>2</boolean>", "<unknown/>", "<int>1</int><int>2</int>")
    VALUES = {
        str: (f"<string>{MZD}</string>",), int: ("<int>1</int>", "<i4>-1</i4>"),
        float: ("<double>1.5</double>",), bool: ("<boolean>1</boolean>", "<boolean>0</boolean>"),
        None: ("<i8>1</i8>", "<base64>AAAA</base64>", "<nil/>", "<array><data/></array>",
               "<dateTime.iso8601>20260101T00:00:00</dateTime.iso8601>", "<struct/>",
               "<struct><member><name>a</name><value>b</value></member></struct>", *MALFORMED),
    }

    def setUp(self):
        super().setUp()
        self.connection = http.client.HTTPConnection("127.0.0.1", CROWDED, timeout=20 * SLOWNESS)

    def tearDown(self):
        self.connection.close()
        super().tearDown()

    def fault_code(self, method, values):
        """Returns the fault code, or None if the answer is not a fault."""
        self.connection.request("POST", "/RPC2", request(method, *values),
                                {"Content-Type": "text/xml"})
        response = self.connection.getresponse()
        self.assertEqual(response.status, 200)
        try:
            xmlrpc.client.loads(response.read())
        except xmlrpc.client.Fault as fault:
            return fault.faultCode
        return None

    def wrong_calls(self, kinds):
        right = [self.VALUES[kind][0] for kind in kinds]
        for place, kind in enumerate(kinds):
            for other, values in self.VALUES.items():
                for value in values if other is not kind else ():
                    yield right[:place] + [value] + right[place + 1:]
        for count in range(len(right)):
            yield right[:count]
        for values in self.VALUES.values():
            for value in values:
                yield right + [value]
        yield right + ["<int>1</int>"] * 1000
        for order in itertools.permutations(right):
            if order != tuple(right) and len(set(kinds)) == len(kinds):
                yield list(order)

    def test_every_method_and_every_place(self):
        heard = self.cell.show(1)["requests"]
        log = self.cell.log
        wait_until(lambda: len(log.matching(r"\d Active commands: ")) ==
                   len(log.matching(r"Pending command \S+ deleted")))  # the line before it
        mark = log.mark()
        for method in METHODS:
            for values in self.wrong_calls(method.parameters):
                with self.subTest(method=method.name, values=values[:5]):
                    code = self.fault_code(method.name, values)
                    if set(values).isdisjoint(self.MALFORMED):
                        self.assertEqual(code, WRONG_TYPE)
                    else:
                        self.assertIsNotNone(code)
        self.assertEqual(self.cell.show(1)["requests"], heard)
        self.assertEqual(log.since(mark), [])
        # Correct arguments, sent in the same way, are accepted.
        for method in METHODS:
            values = [self.VALUES[kind][0] for kind in method.parameters]
            self.assertIsNone(self.fault_code(method.name, values), method.name)
        self.assertNotEqual(self.cell.show(1)["requests"], heard)


if __name__ == "__main__":
    main()
