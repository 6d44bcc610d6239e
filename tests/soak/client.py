"""One client of the soak: calls all methods at random on its own grippers and checks every answer.

No other client calls these grippers, so their behaviour and answers are known in advance.
"""

import random
import time
import xmlrpc.client
from collections import Counter

from expectation import PDOUT, PROCESS_DATA, expectation, key_of, written_key
from gripper import FAULTS, STROKES, Gripper
from tests.integration.harness.cell import SLOWNESS, Cell
from tests.integration.harness.methods import METHOD, METHODS

TYPES = {"i": int, "b": bool, "d": float, "A": list}
LINES_BETWEEN_COMPARISONS = 40  # the simulator records the last 50
MOTION_TIMEOUT = 10.0 * SLOWNESS  # seconds until a motion must have ended
MOST_PROBLEMS = 10  # the client then stops
LOOKUP_WAIT, REQUEST_WAIT = 0.1, 1.0  # the daemon's timeouts in seconds; no call fails earlier
NO_ANSWER = 5  # status of a request that timed out
MOST_TRIES = 5  # calls until one is on time again
PAUSE = 0.003  # mean time between two calls, in seconds


class Tally:
    """Results of a client, which it sends to the soak's main process at the end."""

    def __init__(self):
        self.calls = Counter()  # by method, as all counters except `motion_ends`
        self.wrong = Counter()
        self.late = Counter()  # calls so slow that the daemon may have timed out in them
        self.given_up = 0  # calls in which the daemon did time out, by their answer
        self.slowest = dict.fromkeys(METHOD, 0.0)  # seconds
        self.motion_ends = Counter()  # ended motions, by state code
        self.comparisons = 0
        self.commands = 0  # commands that returned 0
        self.lost = 0  # such commands that did not reach the master
        self.clients_at_end = 0  # clients that worked until the end
        self.problems = []

    def add(self, other):
        for counter in ("calls", "wrong", "late", "motion_ends"):
            getattr(self, counter).update(getattr(other, counter))
        for method, seconds in other.slowest.items():
            self.slowest[method] = max(self.slowest[method], seconds)
        for number in ("given_up", "comparisons", "commands", "lost", "clients_at_end", "problems"):
            setattr(self, number, getattr(self, number) + getattr(other, number))


class Simulator:
    """The simulator, to which only the main process is connected."""

    def __init__(self, pipe):
        self.pipe = pipe

    def show(self, number):
        return self._ask("show", number)

    def command(self, text):
        return self._ask("command", text)

    def _ask(self, *request):
        self.pipe.send(request)
        return self.pipe.recv()


class Subject:
    """A gripper with what its client knows about it."""

    def __init__(self, number, state):
        self.gripper = Gripper(number, state)
        self.request_count = state["requestCount"]
        self.lines = []  # request lines that the master must have received since then
        self.commands = []  # those whose call returned 0
        self.last_key = None
        self.changed = time.monotonic()  # when a motion may last have begun


class Client:
    def __init__(self, simulator, port, numbers, devices, seed):
        self.simulator = simulator
        self.devices = devices
        self.random = random.Random(seed)
        self.server = Cell.new_client(port)
        self.subjects = [Subject(number, simulator.show(number)) for number in numbers]
        self.tally = Tally()
        self.last_duration = 0.0  # seconds, by the last call
        self.version = self.server.GetVersion()

    def run_until(self, deadline):
        while time.monotonic() < deadline and len(self.tally.problems) < MOST_PROBLEMS:
            self.step(self.random.choice(self.subjects))
            time.sleep(self.random.expovariate(1 / PAUSE))
        for subject in self.subjects:
            self.compare(subject)
        self.tally.clients_at_end = int(time.monotonic() >= deadline)

    def step(self, subject):
        dice = self.random.random()
        if dice < 0.02 and subject.gripper.is_at_rest():
            self.disturb(subject)
        elif dice < 0.07:
            self.call_wrongly(subject)
        else:
            self.call_randomly(subject)
        if len(subject.lines) >= LINES_BETWEEN_COMPARISONS:
            self.compare(subject)

    # Calls

    def call_randomly(self, subject):
        method = self.random.choice(METHODS)
        if not method.takes_device():
            return self.call_service(method.name)
        arguments = self.arguments(subject.gripper, method)
        expected = expectation(subject.gripper, method.name, *arguments)
        if self.is_predictable(subject, method.name, arguments, expected):
            self.make_call(subject, method.name, arguments, expected)

    def is_predictable(self, subject, method, arguments, expected):
        """Whether the result of this call can be predicted now.

        A data line ends its request. A FIN that the daemon reads later would then end the next
        request with the same key, as documented. So a request with another key must come between.
        """
        if expected.lines and expected.first_key() == subject.last_key:
            return False
        if method in PDOUT:
            return subject.gripper.is_at_rest()
        return not subject.gripper.motion_depends_on(written_key(method, arguments))

    def make_call(self, subject, method, arguments, expected):
        answer = self.ask(method, subject.gripper.device, *arguments)
        late = self.last_duration >= LOOKUP_WAIT
        judge = self.is_allowed_when_late if late else self.is_right
        if not judge(subject, method, answer, expected):
            phases = subject.gripper.phases if expected.answer is None else expected.answer
            self.report_mismatch(method, (subject.gripper.device, *arguments), answer, phases)
        if expected.lines:
            subject.last_key = key_of(expected.lines[-1])
            if answer == 0 and "=" in expected.lines[-1]:
                subject.commands.append(expected.lines[-1])
        if late:
            self.find_outcome(subject, expected)
        else:
            subject.lines += expected.lines
            self.apply(subject, expected.effect)

    def is_right(self, subject, method, answer, expected):
        if type(answer) is not TYPES[METHOD[method].signature[0]]:
            return False
        if expected.answer is not None:
            return expected.is_met_by(answer)
        gripper = subject.gripper
        was_at_rest = gripper.is_at_rest()
        if not gripper.allows(lambda phase: PROCESS_DATA[method](phase, answer)):
            return False
        if method == "GetPos":
            gripper.record_position(round(answer * 100))
        if gripper.is_at_rest() and not was_at_rest:
            self.tally.motion_ends[gripper.state] += 1
        return gripper.is_at_rest() or time.monotonic() < subject.changed + MOTION_TIMEOUT

    def is_allowed_when_late(self, _subject, method, answer, expected):
        """Whether a late call may return this: the lookup of the gripper or the request may have
        timed out. A getter then returns the stored value."""
        if type(answer) is not TYPES[METHOD[method].signature[0]]:
            return False
        if expected.answer is None or expected.is_met_by(answer):
            return True
        self.tally.given_up += 1
        if answer == METHOD[method].fallback:
            return True
        return (self.last_duration >= REQUEST_WAIT and
                (method.startswith("Get") or answer == NO_ANSWER))

    def find_outcome(self, subject, expected):
        """Finds out what a late call has done. Once a later getter returns in time, the late call
        has no pending request."""
        uncertain = [expected]
        for _ in range(MOST_TRIES):
            checksum = "GetParameterChecksum", "PARAM[3][4]"
            method = checksum[0] if subject.last_key != checksum[1] else "GetOverrideGrip"
            uncertain.append(expectation(subject.gripper, method))
            subject.last_key = uncertain[-1].first_key()
            self.ask(method, subject.gripper.device)
            if self.last_duration < LOOKUP_WAIT:
                break
        self.compare(subject, uncertain)

    def apply(self, subject, effect):
        """Changes the model."""
        effect()
        subject.changed = time.monotonic()

    def call_service(self, method):
        answer = self.ask(method)
        expected = self.version if method == "GetVersion" else self.devices
        if answer != expected and not (answer == [] and self.last_duration >= LOOKUP_WAIT):
            self.report_mismatch(method, (), answer, expected)

    def call_wrongly(self, subject):
        """Makes an invalid call: for an unknown gripper, or with one parameter too many."""
        method = self.random.choice(METHODS)
        if not method.takes_device():
            return
        device = self.random.choice(("---", "HVA SN:100009", subject.gripper.device.lower()))
        arguments = self.arguments(subject.gripper, method)
        expected = method.fallback
        if method.name == "GetGripperInterface" and device == "---":
            expected = -2
        if self.random.random() < 0.2:
            answer, expected = self.fault_of(method.name, device, *arguments, "one too many"), -501
        else:
            answer = self.ask(method.name, device, *arguments)
        if (type(answer), answer) != (type(expected), expected):
            self.report_mismatch(method.name, (device, *arguments), answer, expected)

    def fault_of(self, method, *arguments):
        try:
            return self.ask(method, *arguments)
        except xmlrpc.client.Fault as fault:
            return fault.faultCode

    def ask(self, method, *arguments):
        self.tally.calls[method] += 1
        start = time.monotonic()
        try:
            return getattr(self.server, method)(*arguments)
        finally:
            self.last_duration = time.monotonic() - start
            self.tally.slowest[method] = max(self.tally.slowest[method], self.last_duration)
            self.tally.late[method] += self.last_duration >= LOOKUP_WAIT

    def arguments(self, gripper, method):
        """Arguments after the device string."""
        kinds = method.parameters[1:]
        if kinds == (bool,):
            return [self.random.random() < 0.5]
        if kinds == (int,) and "Override" in method.name:
            # With 0, the fingers would not move.
            return [self.random.randrange(25, 256) + self.random.choice((0, 256))]
        numbers = [self.number(gripper)] if kinds else []
        values = {int: lambda: self.random.randrange(-10, 300),
                  float: lambda: self.limit(gripper, method.name)}
        return numbers + [values[kind]() for kind in kinds[1:]]

    def number(self, gripper):
        """The number of a parameter set or an LED, usually one that exists."""
        return self.random.choice((*range(8), *range(8), 8, 33, 256, 258, -1))

    def limit(self, gripper, method):
        """A limit, usually one that leaves room for a part."""
        low, high = (0.0, 0.3) if method == "SetNoPartLimit" else (0.6, 1.0)
        usual = self.random.uniform(low, high) * STROKES[gripper.model] / 100
        anything = self.random.choice((-2.0, 400.0, -400.0, float("nan"), 0.0,
                                       self.random.uniform(-330, 330)))
        return usual if self.random.random() < 0.9 else anything

    # The simulator

    def disturb(self, subject):
        """Inserts or removes a part, or changes a flag of the gripper."""
        gripper = subject.gripper
        raised = [name for name in FAULTS if gripper.flags[name]]
        if raised or self.random.random() < 0.3:
            name = raised[0] if raised else self.random.choice(FAULTS)
            self.simulator.command(f"fault {gripper.number} {name} {'off' if raised else 'on'}")
            self.apply(subject, lambda: gripper.set_flag(name, not raised))
        else:
            width = self.random.randrange(gripper.stroke)
            part = self.random.choice((None, width, width, width))
            text = "none" if part is None else part / 100
            self.simulator.command(f"part {gripper.number} {text}")
            self.apply(subject, lambda: gripper.set_part(part))

    def compare(self, subject, uncertain=()):
        """Compares the simulator with the model: its state, and the requests that it received.

        `uncertain` are the expectations of the last calls, whose result is unknown: the master may
        have received their requests. The model takes the effects of those that it did receive.
        """
        state = self.simulator.show(subject.gripper.number)
        new = state["requestCount"] - subject.request_count
        received = state["requests"][-new:] if new else []
        self.tally.comparisons += 1
        self.tally.commands += len(subject.commands)
        lost = (Counter(subject.commands) - Counter(received)).total()
        self.tally.lost += lost
        certain, rest = received[:len(subject.lines)], received[len(subject.lines):]
        possible = [line for call in uncertain for line in call.lines]
        if lost or certain != subject.lines or not is_subsequence(rest, possible):
            self.report_mismatch("requests at", (subject.gripper.device,), received,
                                 subject.lines + possible)
        for call in uncertain:
            if call.lines and call.lines[-1] in rest:
                self.apply(subject, call.effect)
        for name, seen, expected in subject.gripper.differences(state):
            self.report_mismatch(f"{name} of", (subject.gripper.device,), seen, expected)
        subject.request_count, subject.lines, subject.commands = state["requestCount"], [], []

    def report_mismatch(self, method, arguments, answer, expected):
        """`method` may also name data of the simulator."""
        self.tally.wrong[method] += 1
        text = ", ".join(map(repr, arguments))
        self.tally.problems.append(f"{method}({text}): {answer!r} instead of {expected!r}")


def is_subsequence(lines, all_lines):
    """Whether `lines` is a subsequence of `all_lines`."""
    rest = iter(all_lines)
    return all(line in rest for line in lines)


def run(pipe, port, numbers, devices, seed, deadline):
    """Runs a client in a process of its own, which reaches the simulator through `pipe` and sends
    its tally there at the end."""
    simulator = Simulator(pipe)
    client = Client(simulator, port, numbers, devices, seed)
    try:
        client.run_until(deadline)
    except Exception as error:
        client.tally.problems.append(f"client of port {port} ended early: {error!r}")
    pipe.send(("done", client.tally))
    pipe.poll(None)  # keeps the connection to the daemon until the last sample was taken
