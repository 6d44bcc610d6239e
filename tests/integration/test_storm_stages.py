"""A master is unplugged at each stage of its link."""

import collections
import re
import sys
import threading
import time

from .harness import storm
from .harness.cell import PORTS, SLOWNESS, wait_until
from .harness.cell_test_case import main

NO_ANSWER = (storm.TIMEOUT, storm.NO_COMMAND)

# An unanswered request ends after a second; everything that waits for it must end soon after.
LONGEST_CALL = 2.9 * SLOWNESS


def key_of(request):
    return re.match(r"[^?=(]*", request)[0]


class StagesTestCase(storm.MastersTestCase):
    """Masters 0 to 2 are unplugged; master 3 stays plugged in and must work all the time.

    A stage is reached when its request has come to the master, which leaves it unanswered.
    """

    STAYING = 3

    def leave_unanswered(self, number, request):
        self.cell.command(f"mute {number} on {key_of(request)}")

    def wait_until_asked(self, number, request, count=1, among=1):
        """Waits until the last `among` requests that a master has received are the right ones.

        Older ones do not count: a gripper that works has been asked for PDOUT=[0,0] last.
        """
        wait_until(lambda: self.cell.show(number)["requests"][-among:].count(request) >= count,
                   pause=0.002)

    def assert_staying_one_works(self):
        self.assertEqual(self.timed_call_to_staying_one(), 0)

    def timed_call_to_staying_one(self):
        start = time.monotonic()
        answer = self.call("Disable", self.NAMES[self.STAYING])
        self.assertLess(time.monotonic() - start, 0.9 * SLOWNESS)
        return answer


class OpenStageTest(StagesTestCase):
    @storm.repeated
    def test_a_node_that_vanishes_before_it_is_opened(self):
        mark = self.cell.log.mark()
        self.cell.command("hangup 0")
        self.cell.command("event 0 remove")
        self.cell.command("event 0 add")
        self.cell.log.wait_for("Failed to add device$", since=mark)
        self.wait_until_gone(0)

    def test_a_master_that_is_unplugged_within_the_first_milliseconds(self):
        """Unplugs during the udev event, the opening, the tty settings and the first requests."""
        numbers = storm.random_numbers("opening")
        mark = self.cell.log.mark()
        for _ in range(storm.rounds(6)):
            self.unplug(0)
            self.settle()
            self.plug_and_hang_up(0, numbers.randrange(40))
            self.assertIn(self.timed_call_to_staying_one(), (0, storm.NO_LINK))
        self.unplug(0)
        self.wait_until_gone(0)
        met = collections.Counter(re.sub(r"^\S+ \d+ ", "", line) for line in self.cell.log.matching(
            r"Failed to initialize|Device added|Failed to update \w+: ", since=mark))
        print(dict(met), file=sys.stderr)

    def plug_and_hang_up(self, number, commands_between):
        """Does not wait for replies; each command in between takes some microseconds."""
        between = ["show 1"] * commands_between
        with self.cell.commands:
            mark = self.cell.errors.mark()
            lines = [f"plug {number}", *between, f"hangup {number}"]
            self.cell.process.stdin.write("".join(line + "\n" for line in lines).encode())
            self.cell.process.stdin.flush()
            self.cell.errors.wait_for("^pellix-sim: ", since=mark, count=len(lines))


class InitStageTest(StagesTestCase):
    REQUESTS = ("ID?", "MODE?", "DEVINFO?", "PARAM[19][0]?", "PARAM[21][0]?")

    @storm.repeated
    def test_each_request_that_sets_up_a_link(self):
        for request in self.REQUESTS:
            with self.subTest(request=request):
                mark = self.unplug_during_set_up(request)
                self.assert_staying_one_works()
                self.cell.log.wait_for("Failed to initialize new device: (5|12)$", since=mark)
                self.wait_until_gone(0)
                self.plug_again(0)

    def unplug_during_set_up(self, request):
        self.unplug(0)
        self.leave_unanswered(0, request)
        self.settle()
        mark = self.cell.log.mark()
        self.cell.command("plug 0")
        self.wait_until_asked(0, request)
        self.unplug(0)
        return mark

    @storm.repeated
    def test_a_master_that_is_plugged_and_unplugged_while_another_one_is_set_up(self):
        self.unplug(1)
        self.unplug_during_set_up("MODE?")
        self.cell.command("plug 1")
        self.unplug(1)
        self.assert_staying_one_works()
        self.wait_until_gone(0, 1)
        self.plug_again(0, 1)


class StateStageTest(StagesTestCase):
    """The state thread's actions. The list of links stays locked until its last request has ended,
    so calls to other masters may fail until then, but must return at once."""

    # Modes that the master reports, and the request that it then does not answer.
    ACTIONS = (((3,), "DEVINFO?"), ((3,), "PARAM[19][0]?"), ((3,), "PARAM[21][0]?"),
               ((3,), "OPERATE()"), ((2, 4), "PDOUT?"), ((5,), "RESTART()"))

    @storm.repeated
    def test_each_action_of_three_masters_at_a_time(self):
        for first in (0, 3):
            actions = self.ACTIONS[first:first + 3]
            with self.subTest(actions=actions):
                for number, (modes, request) in enumerate(actions):
                    self.reach(number, modes, request)
                self.assert_calls_to_others_come_back(0, 1, 2)

    def reach(self, number, modes, request):
        self.leave_unanswered(number, request)
        for mode in modes:
            mark = self.cell.log.mark()
            self.cell.command(f"mode {number} {mode}")
            self.cell.log.wait_for(r"\d (STARTUP|PREOPERATE|OPERATE|FALLBACK.*)$", since=mark)
        self.wait_until_asked(number, request)

    @storm.repeated
    def test_the_pause_of_a_fallback(self):
        self.reach_fallback(0)
        self.assert_calls_to_others_come_back(0)

    def reach_fallback(self, number):
        mark = self.cell.log.mark()
        self.cell.command(f"mode {number} 5")
        self.cell.log.wait_for("FALLBACK: Waiting", since=mark)

    def assert_calls_to_others_come_back(self, *numbers):
        start = time.monotonic()
        self.unplug(*numbers)
        wait_until(lambda: self.timed_call_to_staying_one() == 0)
        self.wait_until_gone(*numbers)
        self.assertLess(time.monotonic() - start, LONGEST_CALL)
        self.plug_again(*numbers)


class CallStageTest(StagesTestCase):
    """Calls in progress: each kind of request, alone and two at once."""

    # Method and arguments, the request that the master does not answer, the possible results.
    GRIP = ("Grip", (1,), "PDOUT=[3,1]", NO_ANSWER)
    CALLS = (
        GRIP,
        ("SetForce", (1, 30), "PARAM[97][3]=[1e]", NO_ANSWER),
        ("SetForce", (1, 30), "DEVINFO?", NO_ANSWER),
        ("StoreRemanent", (), "PARAM[2][0]=[e0]", NO_ANSWER),
        ("GetForce", (2,), "PARAM[98][3]?", (0,)),
        ("GetForce", (2,), "DEVINFO?", (0,)),
        ("GetParameterChecksum", (), "PARAM[3][4]?", (0,)),
        ("SetReleaseLimit", (1, 9.5), "PARAM[97][2]=[3,b6]", NO_ANSWER),
        ("SetLEDColor", (1, 5), "PARAM[129][2]=[5]", NO_ANSWER),
    )

    @storm.repeated
    def test_each_kind_of_call(self):
        """Three masters at a time, each with a call of another kind in progress."""
        calls = list(self.CALLS)
        while calls:
            group, calls = calls[:3], calls[3:]
            self.unplug_during(list(enumerate(group)))

    @storm.repeated
    def test_two_calls_to_one_gripper(self):
        for second in self.CALLS[:2]:
            with self.subTest(second=second):
                self.unplug_during([(0, self.GRIP), (0, second)])

    def unplug_during(self, calls):
        answers = {}
        callers = [threading.Thread(target=self.time_call, args=(answers, place, number, call))
                   for place, (number, call) in enumerate(calls)]
        requests = collections.Counter((number, call[2]) for number, call in calls)
        for number, request in requests:
            self.leave_unanswered(number, request)
        mark = self.cell.log.mark()
        for caller in callers:
            caller.start()
        for (number, request), count in requests.items():
            self.wait_until_asked(number, request, count, among=3)
        numbers = sorted({number for number, _ in requests})
        self.unplug(*numbers)
        self.assert_staying_one_works()
        for caller in callers:
            caller.join()
        for place, (_, (method, _, _, expected)) in enumerate(calls):
            answer, elapsed = answers[place]
            self.assertIn(answer, expected, method)
            self.assertLess(elapsed, LONGEST_CALL, method)
        self.wait_until_gone(*numbers)
        self.assertEqual(len(self.cell.log.matching("PELLIX removed", since=mark)), len(numbers))
        self.plug_again(*numbers)

    def time_call(self, answers, place, number, call):
        method, arguments, _, _ = call
        start = time.monotonic()
        answer = self.cell.call_apart(method, self.NAMES[number], *arguments,
                                      port=PORTS[place % len(PORTS)])
        answers[place] = (answer, time.monotonic() - start)


class IdStageTest(StagesTestCase):
    """GetGrippers queries a master without a valid ID again, while the list of links is locked."""

    @storm.repeated
    def test_the_query_of_the_id(self):
        self.cell.command("unplug 0")
        self.cell.command("id 0 OTHER")
        self.settle()
        self.cell.command("plug 0")
        self.settle()
        self.wait_until_asked(0, "PDOUT?")  # the last request of its state thread
        self.leave_unanswered(0, "ID?")
        listed = []
        lister = threading.Thread(target=lambda: listed.append(self.cell.call_apart("GetGrippers")))
        start = time.monotonic()
        lister.start()
        self.wait_until_asked(0, "ID?")
        self.unplug(0)
        self.assertIn(self.call("Disable", self.NAMES[self.STAYING], port=PORTS[1]),
                      (0, storm.NO_LINK))
        lister.join()
        self.assertLess(time.monotonic() - start, LONGEST_CALL)
        self.assertEqual(listed, [list(self.NAMES[1:])])
        self.wait_until_gone(0)
        self.assert_staying_one_works()
        self.cell.command("id 0 PELLIX")
        self.plug_again(0)


if __name__ == "__main__":
    main()
