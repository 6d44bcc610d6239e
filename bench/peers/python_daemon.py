#!/usr/bin/python3
"""python_daemon.py PORT[,PORT] TTY...: GetPos and Grip for the grippers on PELLIX masters.

A simple daemon with Python's own library, as one could write in an afternoon, for comparison.
"""

import os
import signal
import struct
import sys
import threading
import tty
from socketserver import ThreadingMixIn
from xmlrpc.server import SimpleXMLRPCRequestHandler, SimpleXMLRPCServer

PRODUCT = "PARAM[19][0]"
SERIAL = "PARAM[21][0]"
TIMEOUT = 1.0  # seconds
STATUS_TIMEOUT = 5
GRIP = 0x01
ENABLE = 0x02
REFERENCE = 0x04


def parse_bytes(text):
    """The bytes of "[9,c4]"."""
    return bytes(int(byte, 16) for byte in text.strip("[]").split(",") if byte)


class Gripper:
    """A gripper and its master. Any thread may call; commands go out one after the other."""

    def __init__(self, path):
        self.pdin = b""
        self.values = {}  # of other data lines, by key
        self.command_lock = threading.Lock()
        self.ended = threading.Condition()  # guards the two below
        self.key = None  # of the command under way
        self.status = None  # how it ended
        self.tty = os.open(path, os.O_RDWR | os.O_NOCTTY)
        tty.setraw(self.tty)
        threading.Thread(target=self.read_lines, daemon=True).start()
        self.name = f"{self.query(PRODUCT).decode()} SN:{self.query(SERIAL).decode()}"
        self.pdout = self.query("PDOUT")

    def get_pos(self):
        """Position in mm."""
        return struct.unpack(">h", self.pdin[:2])[0] / 100

    def grip(self, parameter_set):
        """0, or the number of the master's error."""
        with self.command_lock:
            first = (self.pdout[0] | GRIP | ENABLE) & ~REFERENCE
            status = self.command("PDOUT", f"=[{first:x},{parameter_set & 0xFF:x}]")
            if status == 0:
                self.pdout = bytes((first, parameter_set & 0xFF))
            return status

    def query(self, key):
        with self.command_lock:
            status = self.command(key, "?")
            if status != 0:
                raise OSError(f"{key}? failed: {status}")
            return parse_bytes(self.values[key])

    def command(self, key, rest):
        """Sends a line and waits for its end. The caller holds the command lock."""
        with self.ended:
            self.key = key
            self.status = None
        os.write(self.tty, f"{key}{rest}\n".encode())
        with self.ended:
            if not self.ended.wait_for(lambda: self.status is not None, TIMEOUT):
                self.key = None
                return STATUS_TIMEOUT
            return self.status

    def read_lines(self):
        with open(self.tty, "rb", closefd=False) as lines:
            for line in lines:
                self.handle(line.decode("latin-1").rstrip("\n"))

    def handle(self, line):
        if line.startswith("@PDIN="):
            self.pdin = parse_bytes(line[6:])
        elif line.startswith("FIN "):
            self.end(line[4:], 0)
        elif line.startswith("ERR "):
            key, _, code = line[4:].rpartition(" ")
            self.end(key, int(code))
        else:
            key, _, value = line.partition("=")
            self.values[key] = value

    def end(self, key, status):
        with self.ended:
            if key == self.key:
                self.status = status
                self.ended.notify()


class RequestHandler(SimpleXMLRPCRequestHandler):
    protocol_version = "HTTP/1.1"  # connections are kept


class Server(ThreadingMixIn, SimpleXMLRPCServer):
    daemon_threads = True


def serve(port, grippers):
    server = Server(("127.0.0.1", port), RequestHandler, logRequests=False)
    server.register_function(lambda device: grippers[device].get_pos(), "GetPos")
    server.register_function(lambda device, number: grippers[device].grip(number), "Grip")
    threading.Thread(target=server.serve_forever, daemon=True).start()


def main():
    signal.signal(signal.SIGINT, lambda number, frame: sys.exit())
    ports, *paths = sys.argv[1:]
    grippers = {gripper.name: gripper for gripper in map(Gripper, paths)}
    for port in ports.split(","):
        serve(int(port), grippers)
    print("started", flush=True)
    while True:
        signal.pause()


if __name__ == "__main__":
    main()
