"""Gives a program a network of its own, because the daemon's ports are fixed."""

import contextlib
import ctypes
import fcntl
import os
import pathlib
import socket
import struct
import sys
import tempfile

from .cell import PORTS, WEB_PORT

NETWORK = "TAVRIK_NETWORK"  # which one the program has: OWN or SHARED
OWN, SHARED = "own", "shared"

RESERVED_PORTS = pathlib.Path("/proc/sys/net/ipv4/ip_local_reserved_ports")

CLONE_NEWUSER = 0x10000000
CLONE_NEWNET = 0x40000000
SIOCSIFFLAGS = 0x8914
IFF_UP = 0x1


def enter():
    """Moves this program, which may have one thread only, and all programs that it starts into a
    network namespace of their own, with its loopback up and the servers' ports reserved.

    Where the system allows none, the program stays on the host's loopback, and waits until no other
    program of this user that called this function is left there.
    """
    if NETWORK in os.environ:
        return
    os.environ[NETWORK] = OWN if find_namespace() else SHARED
    if is_own():
        reserve_ports()
    else:
        lock_shared_network()


def is_own():
    """Whether the network may be changed."""
    return os.environ.get(NETWORK) == OWN


def find_namespace():
    for namespaces in (CLONE_NEWNET, CLONE_NEWUSER | CLONE_NEWNET):
        if can_move_into(namespaces):
            move_into(namespaces)
            return True
    return False


def can_move_into(namespaces):
    """Whether there are such namespaces, and their loopback can be raised: tried by a child,
    because there is no way back."""
    child = os.fork()
    if child == 0:
        with contextlib.suppress(OSError):
            move_into(namespaces)
            os._exit(0)
        os._exit(1)
    return os.waitpid(child, 0)[1] == 0


def move_into(namespaces):
    user, group = os.geteuid(), os.getegid()
    libc = ctypes.CDLL(None, use_errno=True)
    if libc.unshare(namespaces) != 0:
        raise OSError(ctypes.get_errno(), "unshare")
    if namespaces & CLONE_NEWUSER:
        process = pathlib.Path("/proc/self")
        (process / "setgroups").write_text("deny")
        (process / "uid_map").write_text(f"0 {user} 1")
        (process / "gid_map").write_text(f"0 {group} 1")
    raise_loopback()


def raise_loopback():
    request = struct.pack("16sH22x", b"lo", IFF_UP)
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as control:
        fcntl.ioctl(control, SIOCSIFFLAGS, request)


def reserve_ports():
    """As the package does it, where the system allows it. Otherwise the connection of a client may
    get a server's port as its source port: then the server cannot start, or a client that retries
    without a server connects to itself.
    """
    with contextlib.suppress(OSError):
        RESERVED_PORTS.write_text(",".join(map(str, (*PORTS, WEB_PORT))) + "\n")


def lock_shared_network():
    """Locks a file until this process ends, also when another program replaces this one in it."""
    path = pathlib.Path(tempfile.gettempdir(), f"tavrik-network-{os.getuid()}")
    file = os.open(path, os.O_RDONLY | os.O_CREAT | os.O_NOFOLLOW, 0o600)
    os.set_inheritable(file, True)
    fcntl.flock(file, fcntl.LOCK_EX)


if __name__ == "__main__":  # python3 -m tests.integration.harness.own_network COMMAND...
    enter()
    os.execvp(sys.argv[1], sys.argv[1:])
