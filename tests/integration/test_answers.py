"""The bytes of responses, and the TCP segments in which they reach a client."""

import contextlib
import email.utils
import random
import re
import socket
import statistics
import struct
import threading
import time
import xmlrpc.client

from .harness.cell import HVA, PORTS, SLOWNESS, wait_until
from .harness.cell_test_case import CellTestCase, main
from .harness.methods import METHODS
from .harness.storm import wait_until_idle

DATE = re.compile(rb"Date: ([^\r\n]*)\r\n")
FOOT = ('<p><HR><b><i><a href="http://xmlrpc-c.sourceforge.net">ABYSS Web Server for XML-RPC For '
        "C/C++</a></i></b> version 1.33.14<br></p></BODY></HTML>")
KEPT = "Connection: Keep-Alive\r\nKeep-Alive: timeout=15, max=4294967295\r\n"
CLOSED = "Connection: close\r\n"
DATA_SEGMENTS_IN = 152  # byte of the kernel's tcp_info


def http_request(body, version="1.1", field="", path="/RPC2"):
    return (f"POST {path} HTTP/{version}\r\nHost: 127.0.0.1\r\nContent-Type: text/xml\r\n{field}"
            f"Content-Length: {len(body)}\r\n\r\n").encode() + body.encode()


def call(method, *arguments):
    return http_request(xmlrpc.client.dumps(arguments, method))


def many_calls(count, method, *arguments):
    return call("system.multicall", [{"methodName": method, "params": arguments}] * count)


def array(*values):
    content = "".join(f"<value>{value}</value>\r\n" for value in values)
    return f"<array><data>\r\n{content}</data></array>"


def positions(count):
    return result(array(*[array("<double>10</double>")] * count))


def lists(count):
    """Returns the result of `count` calls of system.listMethods: the library's names come first."""
    own = ("listMethods", "methodExist", "methodHelp", "methodSignature", "multicall", "shutdown",
           "capabilities", "getCapabilities")
    names = array(*(f"<string>system.{name}</string>" for name in own),
                  *(f"<string>{method.name}</string>" for method in METHODS))
    return result(array(*[array(names)] * count))


def result(value):
    return response(f"<params>\r\n<param><value>{value}</value></param>\r\n</params>")


def response(content):
    return ('<?xml version="1.0" encoding="UTF-8"?>\r\n'
            f"<methodResponse>\r\n{content}\r\n</methodResponse>\r\n")


def fault(code, text):
    return response(
        "<fault>\r\n<value><struct>\r\n"
        f"<member><name>faultCode</name>\r\n<value><i4>{code}</i4></value></member>\r\n"
        f"<member><name>faultString</name>\r\n<value><string>{text}</string></value></member>\r\n"
        "</struct></value>\r\n</fault>")


def answer(body, connection=KEPT):
    """The response to an accepted request, without the date."""
    return ("HTTP/1.1 200 OK\r\nContent-type: text/xml; charset=utf-8\r\n"
            f"Content-length: {len(body)}\r\n{connection}Date: \r\n"
            f"Server: Xmlrpc-c_Abyss/1.33.14\r\n\r\n{body}").encode()


def refusal(status, reason):
    """The response to a rejected request, without the date."""
    number = status.split()[0]
    return (f"HTTP/1.1 {status}\r\nContent-type: text/html\r\n{CLOSED}Date: \r\n"
            "Server: Xmlrpc-c_Abyss/1.33.14\r\n\r\n"
            f"<HTML><HEAD><TITLE>Error {number}</TITLE></HEAD><BODY><H1>Error {number}</H1>"
            f"<P>{reason}</P>{FOOT}").encode()


GET_POS = xmlrpc.client.dumps((HVA,), "GetPos")
POSITION = result("<double>10</double>")

# Requests and their responses.
KINDS = {
    "a call": (http_request(GET_POS), answer(POSITION)),
    "a call whose client closes": (http_request(GET_POS, field="Connection: close\r\n"),
                                   answer(POSITION, CLOSED)),
    "a call by HTTP/1.0": (http_request(GET_POS, version="1.0"), answer(POSITION, CLOSED)),
    "a fault": (call("Nothing"), answer(fault(-506, "Method 'Nothing' not defined"))),
    "several calls": (many_calls(3, "GetPos", HVA), answer(positions(3))),
    "an answer of two pieces": (many_calls(60, "GetPos", HVA), answer(positions(60))),
    "an answer of megabytes": (many_calls(1000, "system.listMethods"), answer(lists(1000))),
    "another path": (
        b"GET /x HTTP/1.1\r\nHost: h\r\n\r\n",
        refusal("404 Not Found",
                "This XML-RPC For C/C++ Abyss XML-RPC server responds to only one URI path.  I don't "
                "know what URI path that is, but it's not the one you requested: '/x'.  (Typically, "
                "it's '/RPC2')")),
    "another HTTP method": (
        b"GET /RPC2 HTTP/1.1\r\nHost: h\r\n\r\n",
        refusal("405 Method Not Allowed", "POST is the only HTTP method this server understands")),
    "a header without a blank": (
        b"POST /RPC2 HTTP/1.1\r\nHost:h\r\n\r\n",
        refusal("400 Bad Request", "The field name token 'Host:h' does not end with a colon (:)")),
    "no length": (
        b"POST /RPC2 HTTP/1.1\r\nContent-Type: text/xml\r\n\r\n",
        refusal("411 Length Required",
                "You must send a content-length HTTP header in an XML-RPC call.")),
}


def connect(port=PORTS[0]):
    return socket.create_connection(("127.0.0.1", port), timeout=20 * SLOWNESS)


def receive(connection, length):
    """Receives `length` bytes; returns them in the pieces that recv() returned."""
    pieces = []
    while (missing := length - sum(map(len, pieces))) > 0:
        pieces.append(connection.recv(missing))
        if not pieces[-1]:
            raise AssertionError(f"the connection ended {missing} bytes too early")
    return pieces


def without_date(data):
    return DATE.sub(b"Date: \r\n", data, count=1)


def length_on_the_wire(expected):
    return len(expected) + len(email.utils.formatdate(usegmt=True))


def data_segments(connection):
    """The number of data segments received."""
    information = connection.getsockopt(socket.IPPROTO_TCP, socket.TCP_INFO, 256)
    return struct.unpack_from("I", information, DATA_SEGMENTS_IN)[0]


class AnswerTest(CellTestCase):
    options = ("--gripper", "HVA")

    @classmethod
    def prepare(cls):
        super().prepare()
        cls.cell.wait_until_operating(1)
        wait_until(lambda: cls.cell.call("GetPos", HVA) == 10.0)  # the first line of process data

    def test_the_bytes_of_every_response(self):
        for port in PORTS:
            for kind, (request, expected) in KINDS.items():
                with self.subTest(port=port, kind=kind), connect(port) as connection:
                    connection.sendall(request)
                    data = b"".join(receive(connection, length_on_the_wire(expected)))
                    self.assertEqual(without_date(data), expected)
                    if CLOSED.encode() in expected:
                        self.assertEqual(connection.recv(1), b"")

    def test_header_and_beginning_of_the_body_come_in_one_segment(self):
        for kind, (request, expected) in KINDS.items():
            with self.subTest(kind=kind), connect() as connection:
                connection.sendall(request)
                length = length_on_the_wire(expected)
                first, *others = receive(connection, length)
                self.assertEqual(without_date(first), expected[:len(first) - length + len(expected)])
                self.assertGreater(len(first), length - len(expected.partition(b"\r\n\r\n")[2]))
                if length <= 4096:
                    self.assertEqual((others, data_segments(connection)), ([], 1))

    def test_answers_on_one_connection_are_one_segment_each(self):
        request, expected = KINDS["a call"]
        with connect() as connection:
            for count in range(1, 101):
                connection.sendall(request)
                receive(connection, length_on_the_wire(expected))
                self.assertEqual(data_segments(connection), count)

    def test_no_answer_waits_for_an_acknowledgement(self):
        for kind in ("a call", "a fault", "an answer of two pieces"):
            request, expected = KINDS[kind]
            with self.subTest(kind=kind), connect() as connection:
                times = []
                for _ in range(100):
                    start = time.monotonic()
                    connection.sendall(request)
                    receive(connection, length_on_the_wire(expected))
                    times.append(time.monotonic() - start)
                # The kernel delays acknowledgements by 40 ms and corked data by 200 ms, except some
                # of the first. A slow call may have waited for a processor instead.
                self.assertLess(statistics.median(times), 0.03)

    def test_the_interim_answer_comes_before_the_body_is_sent(self):
        header, body = http_request(GET_POS, field="Expect: 100-continue\r\n").split(b"\r\n\r\n")
        with connect() as connection:
            connection.sendall(header + b"\r\n\r\n")
            interim = b"".join(receive(connection, len("HTTP/1.1 100 Continue\r\n\r\n")))
            self.assertEqual(interim.lower(), b"http/1.1 100 continue\r\n\r\n")
            connection.sendall(body)
            data = b"".join(receive(connection, length_on_the_wire(answer(POSITION))))
            self.assertEqual(without_date(data), answer(POSITION))

    def test_the_date_is_the_current_one(self):
        request, expected = KINDS["a call"]
        seen = set()
        with connect() as connection:
            deadline = time.monotonic() + 20 * SLOWNESS
            while len(seen) < 3 and time.monotonic() < deadline:
                before = int(time.time()) - 1  # the library's clock may be one tick late
                connection.sendall(request)
                data = b"".join(receive(connection, length_on_the_wire(expected)))
                date = DATE.search(data)[1].decode()
                told = email.utils.mktime_tz(email.utils.parsedate_tz(date))
                self.assertTrue(before <= told <= time.time(), date)
                seen.add(told)
        self.assertEqual(len(seen), 3)


class MixTest(CellTestCase):
    """Many clients at once, some of which disconnect in the middle of a response."""

    def test_every_client_gets_its_own_answer(self):
        outcomes = []
        clients = [threading.Thread(target=lambda number=number: outcomes.append(calls(number)))
                   for number in range(16)]
        hangups = [threading.Thread(target=hang_up, args=(number,)) for number in range(8)]
        for thread in (*clients, *hangups):
            thread.start()
        for thread in (*clients, *hangups):
            thread.join()
        self.assertEqual(outcomes, [0] * len(clients))
        # The library forgets the text of an error that it reads from a connection while it stops.
        wait_until_idle(self.cell.daemon_pid())


def calls(number):
    """Returns how many responses belong to another client. A fault repeats the method's name."""
    numbers = random.Random(number)
    wrong = 0
    with connect(PORTS[number % 2]) as connection:
        for count in range(200):
            name = f"Client{number}Call{count}" + "x" * numbers.randrange(6000)
            expected = answer(fault(-506, f"Method '{name}' not defined"))
            connection.sendall(call(name))
            data = b"".join(receive(connection, length_on_the_wire(expected)))
            wrong += without_date(data) != expected
    return wrong


def hang_up(number):
    numbers = random.Random(number)
    request, expected = KINDS["an answer of two pieces"]
    for _ in range(20):
        connection = connect(PORTS[number % 2])
        with contextlib.suppress(OSError):
            connection.sendall(request)
            connection.recv(numbers.randrange(1, len(expected)))
        # Closes the connection with a reset.
        connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        connection.close()


if __name__ == "__main__":
    main()
