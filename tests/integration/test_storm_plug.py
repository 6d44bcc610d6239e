"""Masters are plugged and unplugged all the time while clients call all of them at random."""

import collections
import enum
import sys
import threading
import time

from .harness import storm
from .harness.cell import PORTS, wait_until
from .harness.cell_test_case import main
from .harness.methods import METHODS

CYCLES = 14  # about a second each: a call to an unplugged master ends by its timeout
CLIENTS = 8
LONGEST_PAUSE = 0.1  # seconds that a master stays unplugged

FALLBACKS = {method.name: method.fallback for method in METHODS}


class Outcome(enum.Enum):
    """Outcome of a call to a plugged gripper, as far as the answer shows it."""

    SERVED = "served"
    NOT_FOUND = "not found"
    NO_VALUE = "without value"
    TIMED_OUT = "timed out"


class Gripper:
    """A gripper whose values differ from those of all others.

    Its flags are its own. Every byte that is written to it or read from it leaves the remainder
    `number` when divided by 4, and so does every limit, in hundredths. All but the TLM stand at
    their first position, because nobody asks for a reference run; the TLM moves.
    """

    MODELS = ("HVA", "MZD-S", "MZD-L", "TLM")
    FIRST_POSITION = 10.0

    def __init__(self, number):
        self.number = number
        self.model = self.MODELS[number]
        self.name = f"{self.model} SN:{100001 + number}"
        self.temperature_warning = bool(number & 1)
        self.maintenance = bool(number & 2)
        self.status_methods = {
            "Disable", "StoreRemanent", "Grip", "Release", "SetNoPartLimit", "SetReleaseLimit"}
        if self.model != "TLM":
            self.status_methods |= {"SetForce", "SetOverrideGrip", "SetReferenceDirection"}
        if self.model.startswith("MZD"):
            self.status_methods |= {"Holdfast", "SetLEDColor"}
        # Their fallback never equals this gripper's own value.
        self.telling_getters = {
            "GetGripperInterface", "GetPDINExcerpt", "GetPos", "GetState", "GetNoPartLimit",
            "GetReleaseLimit", "GetOverrideGrip"}
        if self.temperature_warning:
            self.telling_getters.add("GetTempWarn")
        if self.maintenance:
            self.telling_getters.add("GetMaintenance")
        if self.model != "TLM":
            self.telling_getters.add("GetForce")
        if self.model.startswith("MZD"):
            self.telling_getters.add("GetLEDColor")

    def settings(self):
        """Returns the simulator's commands that give the gripper its permanent values."""
        yield f"fault {self.number} temp-warn {'on' if self.temperature_warning else 'off'}"
        yield f"fault {self.number} maintenance {'on' if self.maintenance else 'off'}"
        for subindex in (1, 2):
            yield f"param {self.number} 64 {subindex} {40 + self.number:x}"
        for parameter_set in range(8):
            for subindex in (1, 2):
                yield f"param {self.number} {96 + parameter_set} {subindex} 5,{self.number:x}"
            if self.model != "TLM":
                yield f"param {self.number} {96 + parameter_set} 3 {40 + self.number:x}"
        if self.model.startswith("MZD"):
            for led in range(8):
                yield f"param {self.number} {128 + led} 2 {40 + self.number:x}"

    def own_byte(self, numbers):
        return 4 * numbers.randint(1, 24) + self.number

    def own_limit(self, numbers):
        return (4 * numbers.randint(1, 400) + self.number) / 100

    def random_call(self, numbers):
        """Returns a method and its arguments after the device string."""
        byte, limit, index = self.own_byte(numbers), self.own_limit(numbers), numbers.randrange(8)
        return numbers.choice((
            ("GetGripperInterface",), ("GetPDINExcerpt",), ("GetPDINExcerpt",), ("GetPos",),
            ("GetState",), ("GetTempWarn",), ("GetMaintenance",), ("GetFault",), ("GetTempFault",),
            ("Grip", index), ("Release", index), ("Disable",), ("Holdfast", False),
            ("StoreRemanent",), ("GetForce", index), ("SetForce", index, byte),
            ("GetNoPartLimit", index), ("SetNoPartLimit", index, limit),
            ("GetReleaseLimit", index), ("SetReleaseLimit", index, limit),
            ("GetOverrideGrip",), ("SetOverrideGrip", byte), ("GetReferenceDirection",),
            ("SetReferenceDirection", False), ("GetLEDColor", index), ("SetLEDColor", index, byte)))

    def may_answer(self, method, answer, steady):
        """Whether the answer is possible for this gripper; a `steady` one was never unplugged."""
        if method == "GetGripperInterface":
            return answer in (0, -1)
        if method in ("GetFault", "GetTempFault", "GetReferenceDirection"):
            return answer is False
        if method == "GetTempWarn":
            return answer in (False, self.temperature_warning)
        if method == "GetMaintenance":
            return answer in (False, self.maintenance)
        if method == "GetPDINExcerpt":
            return answer == 0 or answer >> 20 == self.flags()
        if method == "GetPos":
            return answer in (0.0, self.FIRST_POSITION) or self.model == "TLM" and 0 < answer <= 20
        if method == "GetState":
            return answer in (-1, 0, 1) or self.model == "TLM" and 3 <= answer <= 8
        if method in ("GetNoPartLimit", "GetReleaseLimit"):
            return answer == 0.0 or round(answer * 100) % 4 == self.number
        if method in ("GetForce", "GetOverrideGrip", "GetLEDColor"):
            return answer == 0 or answer % 4 == self.number
        if method not in self.status_methods:
            return answer == storm.NO_LINK  # as for every model that does not have the method
        if answer in (storm.NO_COMMAND, storm.NO_PROCESS_DATA, storm.WRONG_MODE):
            return not steady
        return answer in (0, storm.NO_LINK, storm.TIMEOUT)

    def outcome(self, method, answer):
        """Returns the outcome, or None if the answer does not show it."""
        if method not in self.status_methods | self.telling_getters:
            return None
        if answer == FALLBACKS[method]:
            return Outcome.NOT_FOUND if method in self.status_methods else Outcome.NO_VALUE
        if method in self.status_methods and answer == storm.TIMEOUT:
            return Outcome.TIMED_OUT
        return Outcome.SERVED

    def flags(self):
        return self.temperature_warning << 2 | self.maintenance << 3


class PlugStormTest(storm.MastersTestCase):
    GRIPPERS = tuple(Gripper(number) for number in range(4))

    @classmethod
    def prepare(cls):
        super().prepare()
        for gripper in cls.GRIPPERS:
            for command in gripper.settings():
                cls.cell.command(command)

    def setUp(self):
        super().setUp()
        self.working_since = {}  # by number; no entry while a master may be unplugged
        self.over = threading.Event()
        self.plugs = 0
        self.outcomes = []  # of all calls; None if unknown
        self.wrong = []

    def test_all_answers_are_correct_and_no_resources_leak(self):
        self.rage(2)  # makes the daemon allocate permanent memory before the baseline
        self.take_baseline()
        self.rage(storm.rounds(CYCLES))
        self.assert_every_gripper_works()

    def rage(self, cycles):
        """Unplugs and plugs masters `cycles` times while the clients call."""
        self.over.clear()
        self.outcomes.clear()
        self.plugs = 0
        mark = self.cell.log.mark()
        for gripper in self.GRIPPERS:
            self.wait_until_steady(gripper)
        start = time.monotonic()
        clients = [threading.Thread(target=self.call_on, args=(number,))
                   for number in range(CLIENTS)]
        for client in clients:
            client.start()
        try:
            self.plug_and_unplug(cycles)
        finally:
            self.over.set()
            for client in clients:
                client.join()
        seconds = time.monotonic() - start
        self.cell.log.mark()  # reads the whole log so far
        given_up = len(self.cell.log.matching("Timeout while trying to acquire lock", mark))
        counts = collections.Counter(filter(None, self.outcomes))
        self.report(cycles, seconds, counts, given_up)
        self.assertEqual(len(self.wrong), 0, self.wrong[:20])
        # A lookup of a plugged gripper fails only if the list of links is locked.
        self.assertLessEqual(counts[Outcome.NOT_FOUND], given_up)
        # A getter reports neither that nor a timeout; only the timeouts are counted here.
        timed_out = (counts[Outcome.NOT_FOUND] + counts[Outcome.NO_VALUE] +
                     counts[Outcome.TIMED_OUT] - given_up)
        self.assertLess(timed_out, 2 + counts.total() / 200)

    def report(self, cycles, seconds, counts, given_up):
        print(f"\n{cycles} cycles with {self.plugs} plugs and {len(self.outcomes)} calls in "
              f"{seconds:.1f} s; lock not had in time: {given_up}; calls to grippers that were "
              "there: " + ", ".join(f"{counts[outcome]} {outcome.value}" for outcome in Outcome),
              file=sys.stderr)

    # Plugging

    def plug_and_unplug(self, cycles):
        numbers = storm.random_numbers("plug")
        for _ in range(cycles):
            away = numbers.sample(self.GRIPPERS, numbers.choice((1, 1, 2, 3)))
            for gripper in away:
                self.working_since.pop(gripper.number, None)
                self.cell.command(f"unplug {gripper.number}")
            for gripper in away:
                time.sleep(numbers.uniform(0, LONGEST_PAUSE))
                self.cell.command(f"plug {gripper.number}")
            if numbers.random() < 0.25:
                # Plugged in for too short a time to be noticed.
                time.sleep(numbers.uniform(0, LONGEST_PAUSE))
                self.cell.command(f"unplug {away[0].number}")
                self.cell.command(f"plug {away[0].number}")
                self.plugs += 1
            self.plugs += len(away)
            for gripper in away:
                self.wait_until_steady(gripper)

    def wait_until_steady(self, gripper):
        self.settle()
        wait_until(lambda: self.call("Disable", gripper.name) == 0)
        wait_until(lambda: self.call("GetPDINExcerpt", gripper.name) != 0)
        self.working_since[gripper.number] = time.monotonic()

    # Clients

    def call_on(self, number):
        numbers = storm.random_numbers(f"client {number}")
        with self.cell.new_client(PORTS[number % len(PORTS)]) as client:
            while not self.over.is_set():
                try:
                    self.call_once(client, numbers)
                except Exception as error:  # pylint: disable=broad-except
                    self.wrong.append(repr(error))
                    return

    def steady(self, start):
        """Returns the masters that were plugged in all the time since `start`."""
        return [number for number, since in list(self.working_since.items()) if since < start]

    def call_once(self, client, numbers):
        start = time.monotonic()
        if numbers.random() < 0.1:
            self.judge_list(client.GetGrippers(), start)
            return
        gripper = numbers.choice(self.GRIPPERS)
        method, *arguments = gripper.random_call(numbers)
        answer = getattr(client, method)(gripper.name, *arguments)
        steady = gripper.number in self.steady(start)
        self.outcomes.append(gripper.outcome(method, answer) if steady else None)
        if not gripper.may_answer(method, answer, steady):
            self.wrong.append(f"{method}{(gripper.name, *arguments)}: {answer}, steady: {steady}")

    def judge_list(self, listed, start):
        there = {self.GRIPPERS[number].name for number in self.steady(start)}
        names = {gripper.name for gripper in self.GRIPPERS}
        self.outcomes.append(None)
        if len(set(listed)) != len(listed) or not there <= set(listed) <= names:
            self.wrong.append(f"GetGrippers: {listed}, there: {there}")

    # Checks at the end

    def assert_every_gripper_works(self):
        self.assertEqual(sorted(self.call("GetGrippers")),
                         sorted(gripper.name for gripper in self.GRIPPERS))
        for gripper in self.GRIPPERS:
            with self.subTest(gripper=gripper.name):
                if gripper.model != "TLM":
                    self.assertEqual(self.call("Reference", gripper.name), 0)
                    wait_until(lambda: self.call("GetState", gripper.name) == 8)
                self.assertEqual(self.call("SetReleaseLimit", gripper.name, 1, 15.0), 0)
                self.assertEqual(self.call("SetOverrideRelease", gripper.name, 100),
                                 0 if gripper.model != "TLM" else storm.NO_LINK)
                self.assertEqual(self.call("Release", gripper.name, 1), 0)
                wait_until(lambda: self.call("GetPos", gripper.name) == 15.0)


if __name__ == "__main__":
    main()
