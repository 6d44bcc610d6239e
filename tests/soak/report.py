"""The report of a soak: a table of the methods, the resources, and a verdict for every limit."""

from gripper import STATE_NAMES
from tests.integration.harness.methods import METHODS

CALLS_PER_GIVEN_UP_ONE = 1000  # a busy machine may suspend its programs for a second
MOST_GROWTH = 1024  # KiB of RSS after the warm-up


class Report:
    def __init__(self, tally, clients, resources):
        """`tally` is that of all clients; `clients` is their number."""
        self.tally = tally
        self.clients = clients
        self.seconds = resources.samples[-1].time
        self.samples = resources.after_warm_up()
        self.rss = [sample.rss for sample in self.samples]
        self.descriptors = {sample.descriptors for sample in self.samples}
        self.threads = {sample.threads for sample in self.samples}

    def show(self):
        """Prints the report; returns whether every limit was kept."""
        self.show_methods()
        self.show_work()
        self.show_resources()
        return self.show_verdicts()

    def show_methods(self):
        print(f"\n{'method':<24}{'calls':>8}{'right':>8}{'wrong':>7}{'late':>6}{'slowest ms':>12}")
        for name in [method.name for method in METHODS]:
            calls, wrong = self.tally.calls[name], self.tally.wrong[name]
            slowest = self.tally.slowest[name] * 1000
            late = self.tally.late[name]
            print(f"{name:<24}{calls:>8}{calls - wrong:>8}{wrong:>7}{late:>6}{slowest:>12.1f}")

    def show_work(self):
        calls = self.tally.calls.total()
        ends = ", ".join(f"{count} {STATE_NAMES[state]}"
                         for state, count in sorted(self.tally.motion_ends.items()))
        print(f"\n{calls} calls in {self.seconds:.0f} s, {calls / self.seconds:.0f} a second"
              f"\n{self.tally.late.total()} late calls, which took 0.1 s or longer; in "
              f"{self.tally.given_up} of them the daemon gave up"
              f"\ncompleted changes of state: {ends}"
              f"\n{self.tally.comparisons} comparisons with the simulator's own state and requests"
              f"\n{self.tally.commands} commands answered 0, {self.tally.lost} of them lost")

    def show_resources(self):
        first, last = self.samples[0], self.samples[-1]
        print(f"\nRSS {first.rss} KiB at {first.time:.0f} s, {last.rss} KiB at {last.time:.0f} s, "
              f"most {max(self.rss)} KiB: growth {self.growth()} KiB"
              f"\ndescriptors {min(self.descriptors)} to {max(self.descriptors)}"
              f"\nthreads {min(self.threads)} to {max(self.threads)}; each client keeps "
              f"its connection and the thread that serves it")

    def growth(self):
        return max(self.rss) - self.rss[0]

    def show_verdicts(self):
        names = {method.name for method in METHODS}
        kept = {
            "every method was called": names == set(self.tally.calls),
            "every client ran to the end": self.tally.clients_at_end == self.clients,
            "no wrong answer": not names & set(self.tally.wrong),
            "no lost command or other unexpected request at the master":
                not self.tally.lost and not set(self.tally.wrong) - names,
            f"no more than 1 call in {CALLS_PER_GIVEN_UP_ONE} given up":
                self.tally.given_up * CALLS_PER_GIVEN_UP_ONE <= self.tally.calls.total(),
            f"RSS grows by less than {MOST_GROWTH} KiB": self.growth() < MOST_GROWTH,
            "descriptors constant": len(self.descriptors) == 1,
            "threads constant": len(self.threads) == 1,
            "SIGINT ends the daemon with 0": True,  # else there is no report
        }
        print(*self.tally.problems, "", sep="\n")
        for bound, is_kept in kept.items():
            print(f"{'kept  ' if is_kept else 'BROKEN'}  {bound}")
        return all(kept.values())
