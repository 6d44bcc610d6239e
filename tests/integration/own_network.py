"""Gives a program a network of its own, because the daemon's ports are fixed."""

import contextlib
import fcntl
import os
import pathlib
import socket
import struct
import subprocess
import sys

from cell import PORTS

ENTERED = "TAVRIK_OWN_NETWORK"

RESERVED_PORTS = pathlib.Path("/proc/sys/net/ipv4/ip_local_reserved_ports")

SIOCSIFFLAGS = 0x8914
IFF_UP = 0x1


def enter():
    """Starts this program again in a network namespace of its own, with its loopback up and the
    daemon's ports reserved.

    Where the system allows none, the program goes on with the host's loopback.
    """
    if ENTERED in os.environ:
        raise_loopback()
        reserve_ports()
        return
    for options in (["-n"], ["-rn"]):
        if can_unshare(options):
            os.environ[ENTERED] = "1"
            os.execvp("unshare", ["unshare", *options, sys.executable, *sys.orig_argv[1:]])


def can_unshare(options):
    """Whether there is such a namespace, and its loopback can be raised."""
    try:
        attempt = subprocess.run(["unshare", *options, sys.executable, __file__, "true"],
                                 env={**os.environ, ENTERED: "1"}, stderr=subprocess.DEVNULL)
    except FileNotFoundError:
        return False
    return attempt.returncode == 0


def raise_loopback():
    request = struct.pack("16sH22x", b"lo", IFF_UP)
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as control:
        fcntl.ioctl(control, SIOCSIFFLAGS, request)


def reserve_ports():
    """As the package does it, where the system allows it. A client that tries again and again while
    nobody serves would get the port itself for its own end some day, and be connected with itself.
    """
    with contextlib.suppress(OSError):
        RESERVED_PORTS.write_text(",".join(map(str, PORTS)) + "\n")


if __name__ == "__main__":  # own_network.py COMMAND...: runs the command there
    enter()
    os.execvp(sys.argv[1], sys.argv[1:])
