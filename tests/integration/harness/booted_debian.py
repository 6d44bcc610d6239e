"""A bare Debian that systemd boots in a container; changes in it are discarded at its end."""

import os
import pathlib
import re
import signal
import subprocess

from .cell import PATIENCE, wait_until

# Options that a container needs so that the restrictions of a service work as on a host.
CONTAINER_OPTIONS = ("--capability=CAP_BPF,CAP_NET_ADMIN", "--system-call-filter=bpf")
SETTINGS = {"SYSTEMD_NSPAWN_UNIFIED_HIERARCHY": "1", "SYSTEMD_NSPAWN_API_VFS_WRITABLE": "network"}

PATH = "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"


def container(tree, packages, *arguments):
    """Returns the command line that starts a container; `arguments` are more options or a command.

    The container discards its changes to the Debian in the folder `tree` and has the folder
    `packages` at /packages. It shares the caller's network, which must be a private one.
    """
    return ["systemd-nspawn", "--quiet", f"--directory={tree}", "--volatile=overlay",
            "--register=no", "--keep-unit", "--console=pipe", f"--bind-ro={packages}:/packages",
            *arguments]


class Machine:
    """A container in which systemd runs."""

    def __init__(self, tree, packages):
        self.init = None
        self.process = subprocess.Popen(
            container(tree, packages, "--boot", "--kill-signal=SIGRTMIN+3", *CONTAINER_OPTIONS),
            env={**os.environ, **SETTINGS}, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT, text=True)

    def wait_until_booted(self):
        self.init = wait_until(self._find_init)
        wait_until(lambda: self.output("systemctl is-system-running") == "running", pause=0.1)

    def _find_init(self):
        """Returns the process id of its systemd: the child with id 1 in its own namespace."""
        if self.process.poll() is not None:
            raise AssertionError(f"the machine has ended: {self.process.stdout.read()}")
        own = self.process.pid
        for pid in pathlib.Path(f"/proc/{own}/task/{own}/children").read_text().split():
            if re.search(r"^NSpid:.*\s1$", pathlib.Path(f"/proc/{pid}/status").read_text(), re.M):
                return int(pid)
        return None

    def command(self, text):
        """Returns the command line that runs a shell command in it, as root in /packages."""
        return ["nsenter", f"--target={self.init}", "--all", "env", "-i", f"PATH={PATH}",
                "sh", "-c", f"cd /packages && {text}"]

    def attempt(self, text):
        """Runs a shell command in it; its output includes standard error."""
        return subprocess.run(self.command(text), stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, text=True, timeout=4 * PATIENCE)

    def output(self, text):
        """Returns the output of a shell command, whatever its exit status."""
        return self.attempt(text).stdout.strip()

    def run(self, text):
        """Returns the output of a shell command, which must succeed."""
        result = self.attempt(text)
        if result.returncode != 0:
            raise AssertionError(f"{text}: status {result.returncode}\n{result.stdout}")
        return result.stdout.strip()

    def path(self, path):
        """Returns the caller's path of a file in the machine."""
        return pathlib.Path(f"/proc/{self.init}/root{path}")

    def write(self, path, text):
        self.path(path).parent.mkdir(parents=True, exist_ok=True)
        self.path(path).write_text(text)

    def end(self):
        """Kills the machine, like a power failure."""
        if self.init:
            os.kill(self.init, signal.SIGKILL)
        else:
            self.process.terminate()
        self.process.wait(PATIENCE)
        self.process.stdout.close()
