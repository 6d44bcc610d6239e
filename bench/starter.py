"""Starts servers in turn, as the command of a cell, and measures how long each of them takes.

Usage: starter.py ROUNDS SERVERS: SERVERS is a JSON list of [COMMAND, TEXT]; a server has started
when TEXT is in its output, a file. Prints a JSON list: the milliseconds of all rounds, by server.
"""

import json
import signal
import subprocess
import sys
import tempfile
import time

PAUSE = 50e-6  # seconds between two looks, which then take little from what is measured
PATIENCE = 60.0  # seconds


def milliseconds_of_start(command, text):
    with tempfile.NamedTemporaryFile(prefix="bench-") as log, open(log.name, "rb") as output:
        start = time.monotonic()
        server = subprocess.Popen(command, stdout=log)
        try:
            seen = b""
            while text.encode() not in seen:
                if server.poll() is not None or time.monotonic() > start + PATIENCE:
                    raise SystemExit(f"{command[0]} does not start")
                time.sleep(PAUSE)
                seen += output.read()
            return (time.monotonic() - start) * 1000
        finally:
            server.kill()
            server.wait()


def main():
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))  # no server may outlive this program
    servers = json.loads(sys.argv[2])
    rounds = [[milliseconds_of_start(*server) for server in servers]
              for _ in range(int(sys.argv[1]))]
    print(json.dumps(list(zip(*rounds))))


if __name__ == "__main__":
    main()
