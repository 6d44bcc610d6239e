"""What the figures were measured on."""

import os
import pathlib
import platform
import re
import subprocess

from world import ROOT

PACKAGES = ("g++", "libxmlrpc-core-c3", "python3", "nodejs")  # whose versions tell on the figures


def description():
    memory = pathlib.Path("/proc/meminfo").read_text()
    system = platform.freedesktop_os_release()["PRETTY_NAME"]
    return {"processor": processor(), "processors": os.cpu_count(),
            "memoryGib": round(int(re.search(r"MemTotal:\s+(\d+)", memory)[1]) / 2**20, 1),
            "virtualization": output("systemd-detect-virt", "--vm") or "no virtual machine",
            "system": f"{system}, Linux {platform.release()}",
            "packages": {name: version(name) for name in PACKAGES},
            "revision": output("git", "-C", ROOT, "describe", "--always", "--dirty"),
            "loadAverage": os.getloadavg()[0]}


def processor():
    found = re.search(r"^model name\s*: (.*)$", pathlib.Path("/proc/cpuinfo").read_text(),
                      re.MULTILINE)
    return found[1] if found else platform.machine()


def version(package):
    return output("dpkg-query", "-W", "-f", "${Version}", package)


def output(*command):
    """What a command prints, nothing if it cannot."""
    try:
        run = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
    except FileNotFoundError:
        return ""
    return run.stdout.strip()


def sentence(machine):
    return (f"{machine['processor']}, {machine['processors']} processors "
            f"({machine['virtualization']}), {machine['memoryGib']} GiB; {machine['system']}")
