"""The machine under test: its service, its simulated masters, and what was measured."""

import contextlib
import json
import os
import pathlib
import re
import select
import subprocess
import time
import unittest
import xmlrpc.client

UNIT = "tavrikdaemon.service"
MASTERS_OF_BOOT = ("masters-at-boot.service", "pellix-sim-cell.service")
GRIPPERS_OF_BOOT = {"HVA SN:100001", "MZD-S SN:100002"}
PATIENCE = 60.0  # seconds until an awaited condition counts as missing
ACM_MAJOR = 166
LATE_UDEVD = pathlib.Path("/etc/late-udevd")  # see late-udevd.rules

figures = []  # lines about what was measured


def boot_option(name):
    """The value of an option of the kernel's command line."""
    words = pathlib.Path("/proc/cmdline").read_text().split()
    [value] = [word.partition("=")[2] for word in words if word.startswith(f"{name}=")]
    return value


def processor_time():
    """The seconds that all programs and the kernel have used since the boot."""
    times = pathlib.Path("/proc/stat").read_text().split()[1:9]
    idle, waiting = 3, 4
    used = sum(int(time) for place, time in enumerate(times) if place not in (idle, waiting))
    return used / os.sysconf("SC_CLK_TCK")


def figure(text):
    figures.append(text)


def run(*command, check=True):
    """Returns the output of a command, including standard error."""
    result = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                            stderr=subprocess.STDOUT, text=True, timeout=4 * PATIENCE)
    if check and result.returncode != 0:
        raise AssertionError(f"{' '.join(command)}: status {result.returncode}\n{result.stdout}")
    return result.stdout


def wait_until(condition, what, timeout=PATIENCE, pause=0.05):
    """Returns the first true value of `condition`."""
    end = time.monotonic() + timeout
    while not (value := condition()):
        if time.monotonic() > end:
            raise AssertionError(f"not within {timeout:g} s: {what}")
        time.sleep(pause)
    return value


def kernel_says(text):
    """Returns a function that tells whether the kernel has logged `text` since this call."""
    run("dmesg", "--clear")
    return lambda: text in run("dmesg")


class Transport(xmlrpc.client.Transport):
    def make_connection(self, host):
        connection = super().make_connection(host)
        connection.timeout = PATIENCE
        return connection


def call(method, *arguments, port=44221):
    with xmlrpc.client.ServerProxy(f"http://127.0.0.1:{port}/RPC2", Transport()) as client:
        return getattr(client, method)(*arguments)


def grippers():
    """The device strings of all grippers; an empty set while the service does not answer."""
    with contextlib.suppress(OSError):
        return set(call("GetGrippers"))
    return set()


def hva(number):
    """The device string of the gripper of master `number`, an HVA."""
    return f"HVA SN:{100001 + number}"


def wait_until_listed(*numbers, timeout=PATIENCE):
    """Waits until exactly these grippers are listed. Returns the seconds that it took."""
    begin = time.monotonic()
    wanted = {hva(number) for number in numbers}
    wait_until(lambda: grippers() == wanted, f"grippers {sorted(wanted)}", timeout)
    return time.monotonic() - begin


class Service:
    @staticmethod
    def property(name):
        return run("systemctl", "show", "--value", f"--property={name}", UNIT).strip()

    @classmethod
    def pid(cls):
        return int(cls.property("MainPID"))

    @classmethod
    def threads(cls):
        return len(os.listdir(f"/proc/{cls.pid()}/task"))

    @classmethod
    def descriptors(cls):
        """What its descriptors lead to, without numbers that differ from one to the next."""
        folder = pathlib.Path(f"/proc/{cls.pid()}/fd")
        targets = []
        for entry in folder.iterdir():
            with contextlib.suppress(OSError):
                targets.append(re.sub(r"\[\d+\]", "", os.readlink(entry)))
        return sorted(targets)

    @classmethod
    def ttys(cls):
        return [target for target in cls.descriptors() if target.startswith("/dev/ttyACM")]

    @staticmethod
    def log():
        return run("journalctl", "--output=cat", f"--unit={UNIT}", "--boot")

    @staticmethod
    def is_serving():
        with contextlib.suppress(OSError):
            return bool(call("GetVersion")) and bool(call("GetVersion", port=44222))
        return False

    @classmethod
    def control(cls, verb):
        """Starts, restarts or stops it."""
        run("systemctl", verb, UNIT)
        if verb != "stop":
            wait_until(cls.is_serving, "the service answers")


class Simulator:
    """pellix-sim with masters on USB. Process data come less often, as they cost processor time."""

    def __init__(self, *options):
        self.process = subprocess.Popen(["pellix-sim", "--usb", "--pdin-hz", "10", *options],
                                        stdin=subprocess.PIPE, stderr=subprocess.PIPE)
        self.text = b""
        self._line_with("serving")

    def _line_with(self, *words):
        """The next line of its output that contains one of the words."""
        end = time.monotonic() + PATIENCE
        while True:
            line, found, rest = self.text.partition(b"\n")
            if found:
                self.text = rest
                line = line.decode("utf-8", "backslashreplace")
                if any(word in line for word in words):
                    return line
                continue
            if not select.select([self.process.stderr], [], [], end - time.monotonic())[0]:
                raise AssertionError(f"pellix-sim is silent; expected one of {words}")
            data = os.read(self.process.stderr.fileno(), 65536)
            if not data:
                raise AssertionError(f"pellix-sim has ended: {self.process.wait()}")
            self.text += data

    def command(self, text):
        """Executes a command, which must succeed."""
        reply = self.try_command(text)
        if reply != f"pellix-sim: ok {text}":
            raise AssertionError(reply)

    def try_command(self, text):
        self.process.stdin.write(f"{text}\n".encode())
        self.process.stdin.flush()
        return self._line_with("pellix-sim: ok", "pellix-sim: error", "pellix-sim: usage")

    def state(self, number):
        """The reply of "show N --json"."""
        self.process.stdin.write(f"show {number} --json\n".encode())
        self.process.stdin.flush()
        return json.loads(self._line_with("pellix-sim: state").partition(" state ")[2])

    def end(self):
        """Returns what it has said since the last reply."""
        if self.process.stdin.closed:
            return ""
        if self.process.poll() is None:
            self.process.terminate()
        rest = self.text + self.process.communicate(timeout=PATIENCE)[1]
        return rest.decode("utf-8", "backslashreplace")


def devices():
    """The files with the vendor of all masters on the bus, also of those without a tty."""
    found = []
    for file in pathlib.Path("/sys/bus/usb/devices").glob("*/idVendor"):
        with contextlib.suppress(OSError):  # it is just leaving
            if file.read_text() == "0483\n":
                found.append(file)
    return found


def masters():
    """The nodes of the ttys that udev knows as those of masters, with their USB device's folder."""
    found = {}
    for tty in pathlib.Path("/sys/class/tty").glob("ttyACM*"):
        usb = (tty / "device").resolve().parent
        with contextlib.suppress(OSError):
            if (usb / "product").read_text() == "PELLIX\n":
                found[f"/dev/{tty.name}"] = usb
    return found


def serial_numbers():
    """Those of all masters; None for a missing one."""
    files = [usb / "serial" for usb in masters().values()]
    return {file.read_text().strip() if file.exists() else None for file in files}


def print_journal():
    """The last lines, without those of ordinary requests and of other ttys."""
    ordinary = (r"Parsing line|Active commands|Pending command|New command|ACK:|FIN:|HVA detected|"
                r"Not a valid device|/dev/tty[^A]|Subsystem: tty|No parent dev|PDIN active|"
                r"DEVICE_INFO|ing parameter|Reopening|Open call failed|not open$|Opening device")
    lines = run("journalctl", "--boot", "--output=short-monotonic", "--no-hostname").splitlines()
    print(*[line for line in lines if not re.search(ordinary, line)][-30:], sep="\n", flush=True)


class MachineTestCase(unittest.TestCase):
    """Prints how long each test takes, and the journal of a test that fails. Also prints the
    processor time, which determines how long the emulation takes; pauses cost nothing."""

    def run(self, result=None):
        begin, used = time.monotonic(), processor_time()
        problems = [*result.failures, *result.errors]
        super().run(result)
        print(f"    {time.monotonic() - begin:.1f} s, {processor_time() - used:.1f} s of processor "
              "time", flush=True)
        for problem in [*result.failures, *result.errors]:
            if problem not in problems:
                print(problem[1])
                print_journal()
        return result


class UsbTestCase(MachineTestCase):
    """Starts with a running service and no master. `options` are those of the simulator."""

    options = ()

    @classmethod
    def setUpClass(cls):
        run("systemctl", "stop", *MASTERS_OF_BOOT, check=False)
        wait_until(lambda: not masters(), "no master")
        wait_until(Service.is_serving, "the service answers")
        if cls.options:
            cls.start_simulator(*cls.options)

    @classmethod
    def start_simulator(cls, *options):
        """Starts it for the rest of the class."""
        cls.simulator = Simulator(*options)
        cls.addClassCleanup(wait_until, lambda: not grippers(), "no gripper")
        cls.addClassCleanup(cls.simulator.end)

    def restore(self, *numbers):
        """Ends the faults of an earlier test, and waits until exactly these masters are listed."""
        for number in numbers:
            for command in ("usb-control", "usb-cut", "usb-error"):
                self.simulator.command(f"{command} {number} 0")
            if self.simulator.state(number)["plugged"]:
                self.simulator.command(f"stall {number} off")
            else:
                self.simulator.command(f"plug {number}")
        wait_until_listed(*numbers)

    def new_simulator(self, *options):
        """Starts another one for the rest of the test."""
        simulator = Simulator(*options)
        self.addCleanup(wait_until, lambda: not grippers(), "no gripper")
        self.addCleanup(simulator.end)
        return simulator
