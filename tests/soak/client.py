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
LINES_BETWEEN_AUDITS = 40  # the simulator records the last 50
TIME_TO_STAND = 10.0 * SLOWNESS  # seconds until a motion must have ended
MOST_COMPLAINTS = 10  # the client then ends
LOOKUP_WAIT, REQUEST_WAIT = 0.1, 1.0  # the daemon's timeouts in seconds; no call fails earlier
NO_ANSWER = 5  # status of a request that timed out
MOST_TRIES = 5  # until a call is on time again
PAUSE = 0.003  # seconds between two calls, on average


class Tally:
    """Results of a client, which it sends to the soak's main process at the end."""

    def __init__(self):
        self.calls = Counter()  # by method, like all counters but `ends`
        self.wrong = Counter()
        self.late = Counter()  # calls so slow that the daemon may have timed out
        self.given_up = 0  # calls whose answer shows a timeout of the daemon
        self.slowest = dict.fromkeys(METHOD, 0.0)  # seconds
        self.ends = Counter()  # ended motions, by state code
        self.audits = 0
        self.commands = 0  # commands that returned 0
        self.lost = 0  # such commands that did not reach the master
        self.clients_at_end = 0  # clients that worked until the end
        self.complaints = []

    def add(self, other):
        for counter in ("calls", "wrong", "late", "ends"):
            getattr(self, counter).update(getattr(other, counter))
        for method, seconds in other.slowest.items():
            self.slowest[method] = max(self.slowest[method], seconds)
        for number in ("given_up", "audits", "commands", "lost", "clients_at_end", "complaints"):
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


class Post:
    """A gripper and its client's data about it."""

    def __init__(self, number, state):
        self.gripper = Gripper(number, state)
        self.request_count = state["requestCount"]
        self.lines = []  # request lines that the master must have received since then
        self.commands = []  # those of them for which the call returned 0
        self.last_key = None
        self.changed = time.monotonic()


class Client:
    def __init__(self, simulator, port, numbers, devices, seed):
        self.simulator = simulator
        self.devices = devices
        self.random = random.Random(seed)
        self.server = Cell.new_client(port)
        self.posts = [Post(number, simulator.show(number)) for number in numbers]
        self.tally = Tally()
        self.took = 0.0  # seconds, by the last call
        self.version = self.server.GetVersion()

    def run_until(self, deadline):
        while time.monotonic() < deadline and len(self.tally.complaints) < MOST_COMPLAINTS:
            self.step(self.random.choice(self.posts))
            time.sleep(self.random.expovariate(1 / PAUSE))
        for post in self.posts:
            self.audit(post)
        self.tally.clients_at_end = int(time.monotonic() >= deadline)

    def step(self, post):
        dice = self.random.random()
        if dice < 0.02 and post.gripper.stands():
            self.surprise(post)
        elif dice < 0.07:
            self.misfit(post)
        else:
            self.call_any(post)
        if len(post.lines) >= LINES_BETWEEN_AUDITS:
            self.audit(post)

    # Calls

    def call_any(self, post):
        method = self.random.choice(METHODS)
        if not method.takes_device():
            return self.call_service(method.name)
        arguments = self.arguments(post.gripper, method)
        expected = expectation(post.gripper, method.name, *arguments)
        if self.fits_now(post, method.name, arguments, expected):
            self.carry_out(post, method.name, arguments, expected)

    def fits_now(self, post, method, arguments, expected):
        """Whether the outcome of a call can be predicted now.

        A data line finishes its request. A FIN in a later read would then finish the next request
        with the same key, as documented, so a request with another key has to come in between.
        """
        if expected.lines and expected.first_key() == post.last_key:
            return False
        if method in PDOUT:
            return post.gripper.stands()
        return not post.gripper.moves_by(written_key(method, arguments))

    def carry_out(self, post, method, arguments, expected):
        answer = self.ask(method, post.gripper.device, *arguments)
        late = self.took >= LOOKUP_WAIT
        judge = self.is_excusable if late else self.is_right
        if not judge(post, method, answer, expected):
            phases = post.gripper.phases if expected.answer is None else expected.answer
            self.complain(method, (post.gripper.device, *arguments), answer, phases)
        if expected.lines:
            post.last_key = key_of(expected.lines[-1])
            if answer == 0 and "=" in expected.lines[-1]:
                post.commands.append(expected.lines[-1])
        if late:
            self.settle(post, expected)
        else:
            post.lines += expected.lines
            self.let_happen(post, expected.happens)

    def is_right(self, post, method, answer, expected):
        if type(answer) is not TYPES[METHOD[method].signature[0]]:
            return False
        if expected.answer is not None:
            return expected.is_met_by(answer)
        gripper = post.gripper
        stood = gripper.stands()
        if not gripper.tells(lambda phase: PROCESS_DATA[method](phase, answer)):
            return False
        if method == "GetPos":
            gripper.saw_position(round(answer * 100))
        if gripper.stands() and not stood:
            self.tally.ends[gripper.state] += 1
        return gripper.stands() or time.monotonic() < post.changed + TIME_TO_STAND

    def is_excusable(self, _post, method, answer, expected):
        """Whether a late call may return this: the lookup or the request may have timed out. A
        getter then returns the stored value."""
        if type(answer) is not TYPES[METHOD[method].signature[0]]:
            return False
        if expected.answer is None or expected.is_met_by(answer):
            return True
        self.tally.given_up += 1
        if answer == METHOD[method].fallback:
            return True
        return self.took >= REQUEST_WAIT and (method.startswith("Get") or answer == NO_ANSWER)

    def settle(self, post, expected):
        """Finds out the outcome of a late call.

        When a getter after it returns in time, the late call has no pending request.
        """
        doubtful = [expected]
        for _ in range(MOST_TRIES):
            checksum = "GetParameterChecksum", "PARAM[3][4]"
            method = checksum[0] if post.last_key != checksum[1] else "GetOverrideGrip"
            doubtful.append(expectation(post.gripper, method))
            post.last_key = doubtful[-1].first_key()
            self.ask(method, post.gripper.device)
            if self.took < LOOKUP_WAIT:
                break
        self.audit(post, doubtful)

    def let_happen(self, post, change):
        change()
        post.changed = time.monotonic()

    def call_service(self, method):
        answer = self.ask(method)
        expected = self.version if method == "GetVersion" else self.devices
        if answer != expected and not (answer == [] and self.took >= LOOKUP_WAIT):
            self.complain(method, (), answer, expected)

    def misfit(self, post):
        """Makes an invalid call: of an unknown gripper, or with one parameter too many."""
        method = self.random.choice(METHODS)
        if not method.takes_device():
            return
        device = self.random.choice(("---", "HVA SN:100009", post.gripper.device.lower()))
        arguments = self.arguments(post.gripper, method)
        expected = method.fallback
        if method.name == "GetGripperInterface" and device == "---":
            expected = -2
        if self.random.random() < 0.2:
            answer, expected = self.fault_of(method.name, device, *arguments, "one too many"), -501
        else:
            answer = self.ask(method.name, device, *arguments)
        if (type(answer), answer) != (type(expected), expected):
            self.complain(method.name, (device, *arguments), answer, expected)

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
            self.took = time.monotonic() - start
            self.tally.slowest[method] = max(self.tally.slowest[method], self.took)
            self.tally.late[method] += self.took >= LOOKUP_WAIT

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
        """Returns the number of a parameter set or an LED, usually one that exists."""
        return self.random.choice((*range(8), *range(8), 8, 33, 256, 258, -1))

    def limit(self, gripper, method):
        """Returns a limit, usually one that leaves room for a part."""
        low, high = (0.0, 0.3) if method == "SetNoPartLimit" else (0.6, 1.0)
        usual = self.random.uniform(low, high) * STROKES[gripper.model] / 100
        anything = self.random.choice((-2.0, 400.0, -400.0, float("nan"), 0.0,
                                       self.random.uniform(-330, 330)))
        return usual if self.random.random() < 0.9 else anything

    # The simulator

    def surprise(self, post):
        """Inserts or removes a part, or changes a flag of the gripper."""
        gripper = post.gripper
        raised = [name for name in FAULTS if gripper.flags[name]]
        if raised or self.random.random() < 0.3:
            name = raised[0] if raised else self.random.choice(FAULTS)
            self.simulator.command(f"fault {gripper.number} {name} {'off' if raised else 'on'}")
            self.let_happen(post, lambda: gripper.set_flag(name, not raised))
        else:
            width = self.random.randrange(gripper.stroke)
            part = self.random.choice((None, width, width, width))
            text = "none" if part is None else part / 100
            self.simulator.command(f"part {gripper.number} {text}")
            self.let_happen(post, lambda: gripper.set_part(part))

    def audit(self, post, doubtful=()):
        """Checks that the master received all confirmed requests, and else only `doubtful` ones.

        `doubtful` are the expectations of the last calls, whose outcome was unknown. The requests
        among them that the master received are applied to the model now.
        """
        state = self.simulator.show(post.gripper.number)
        new = state["requestCount"] - post.request_count
        came = state["requests"][-new:] if new else []
        self.tally.audits += 1
        self.tally.commands += len(post.commands)
        lost = (Counter(post.commands) - Counter(came)).total()
        self.tally.lost += lost
        certain, rest = came[:len(post.lines)], came[len(post.lines):]
        possible = [line for call in doubtful for line in call.lines]
        if lost or certain != post.lines or not is_part_of(rest, possible):
            self.complain("requests at", (post.gripper.device,), came, post.lines + possible)
        for call in doubtful:
            if call.lines and call.lines[-1] in rest:
                self.let_happen(post, call.happens)
        for name, seen, expected in post.gripper.differences(state):
            self.complain(f"{name} of", (post.gripper.device,), seen, expected)
        post.request_count, post.lines, post.commands = state["requestCount"], [], []

    def complain(self, method, arguments, answer, expected):
        """`method` may also name the data that were compared with the simulator's."""
        self.tally.wrong[method] += 1
        text = ", ".join(map(repr, arguments))
        self.tally.complaints.append(f"{method}({text}): {answer!r} instead of {expected!r}")


def is_part_of(lines, all_lines):
    """Whether `lines` is a subsequence of `all_lines`."""
    rest = iter(all_lines)
    return all(line in rest for line in lines)


def run(pipe, port, numbers, devices, seed, deadline):
    """Runs a client process, which sends requests to the simulator and its tally over `pipe`."""
    simulator = Simulator(pipe)
    client = Client(simulator, port, numbers, devices, seed)
    try:
        client.run_until(deadline)
    except Exception as error:
        client.tally.complaints.append(f"client of port {port} ended early: {error!r}")
    pipe.send(("done", client.tally))
    pipe.poll(None)  # keeps the connection until the main process has taken its last sample
