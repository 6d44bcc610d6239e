#!/usr/bin/env python3
"""Runs tavrikweb while viewers come, go and stall, and checks its use of resources.

Usage: web_soak.py [MINUTES [SEED]]. scripts/soak --web builds the programs and runs it.

A viewer stays for about a second, so that ten minutes have as many viewers as a week with one every
two minutes. Meanwhile, grippers are unplugged and plugged, masters fall silent, commands are sent,
settings are restored, and the log is read.
The exit status is 0 if memory, descriptors and threads are steady and every viewer was served.
"""

import contextlib
import os
import pathlib
import random
import signal
import sys
import tempfile
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2]))

from resources import Resources  # noqa: E402
from tests.integration.harness.cell_test_case import Cell  # noqa: E402
from tests.integration.harness.web import Viewer, Web, connect, get, post  # noqa: E402

GRIPPERS = 8
VIEWERS = 12  # at the same time, below the limit
MOST_GROWTH = 1024  # KiB of memory from the first half to the second
MOST_MEMORY = 30 * 1024  # KiB
DEVICE = "HVA SN:100001"
SETTINGS_EVERY = 15  # seconds; one transfer takes two or more


class Soak:
    def __init__(self, web, cell, log, seed):
        self.web = web
        self.cell = cell
        self.random = random.Random(seed)
        self.viewers = []
        self.idle = []
        self.log = log
        self.known = {}  # how far the log has been read
        self.silent = None  # number of a master
        self.counts = dict.fromkeys(("viewers", "idle", "scrapes", "commands", "plugs", "silences",
                                     "rows", "restores"), 0)
        self.token = post("/api/control/take", {"code": web.code()}).json()["token"]
        self.saved = post("/api/settings", {"gripper": DEVICE}).json()["file"]
        self.next_restore = time.monotonic()

    def add_viewer(self):
        while len(self.viewers) >= VIEWERS:
            self.drop_viewer()
        viewer = Viewer()
        self.viewers.append(viewer)
        if viewer.status() != 200:
            raise AssertionError(f"viewer {self.counts['viewers']}: status {viewer.status()}")
        if self.random.random() < 0.8:  # the others read nothing: they stall
            viewer.wait_for("cell")
        self.counts["viewers"] += 1

    def drop_viewer(self):
        if self.viewers:
            self.viewers.pop(self.random.randrange(len(self.viewers))).connection.close()

    def open_idle_connection(self):
        connection = connect()
        connection.sendall(b"GET / HT"[:self.random.randrange(8)])
        self.idle.append(connection)
        self.counts["idle"] += 1
        if len(self.idle) > 100:
            self.idle.pop(0).close()

    def scrape(self):
        status = get("/metrics").status
        if status != 200:
            raise AssertionError(f"/metrics: status {status}")
        self.counts["scrapes"] += 1

    def command(self):
        post("/api/command", {"gripper": DEVICE, "command": "disable"}, self.token)
        self.counts["commands"] += 1

    def replug(self):
        self.end_silence()
        number = self.random.randrange(1, GRIPPERS)
        self.cell.command(f"unplug {number}")
        time.sleep(0.05)
        self.cell.command(f"plug {number}")
        self.counts["plugs"] += 1

    def fall_silent(self):
        self.end_silence()
        self.silent = self.random.randrange(1, GRIPPERS)
        self.cell.command(f"mute {self.silent} on")
        self.counts["silences"] += 1

    def end_silence(self):
        if self.silent is not None:
            self.cell.command(f"mute {self.silent} off")
            self.silent = None

    def read_log(self):
        """Gives the daemon's new lines to tavrikweb, and asks for the rows."""
        with self.log.open("a", encoding="utf-8") as file:
            file.writelines(f"{line}\n" for line in self.cell.log.since(0)[-20:])
        answer = post("/api/log", self.known).json()
        self.known = {name: answer[name] for name in ("reading", "last")}
        self.counts["rows"] += len(answer["rows"])

    def restore(self):
        if time.monotonic() < self.next_restore:
            return
        self.next_restore = time.monotonic() + SETTINGS_EVERY
        answer = post("/api/settings/restore", {"gripper": DEVICE, "file": self.saved, "name": "x"},
                      self.token).json()
        if answer.get("differences") != []:
            raise AssertionError(f"restore: {answer}")
        self.counts["restores"] += 1

    def run(self, seconds):
        resources = Resources(self.web.process.pid)
        steps = (*3 * (self.add_viewer,), *2 * (self.drop_viewer,),
                 *2 * (self.open_idle_connection,), self.scrape, self.command, self.replug,
                 self.fall_silent, self.read_log, self.restore)
        end = time.monotonic() + seconds
        while time.monotonic() < end:
            self.random.choice(steps)()
            time.sleep(0.1)
            while time.monotonic() >= resources.due():
                resources.take()
                for output in (*self.cell.outputs(), self.web.log):
                    output.keep_last(1000)
                os.truncate(self.log, 0)
        return resources

    def close(self):
        for connection in (*self.idle, *(viewer.connection for viewer in self.viewers)):
            with contextlib.suppress(OSError):
                connection.close()


def verdict(resources):
    samples = resources.after_warm_up()
    middle = len(samples) // 2
    growth = max(each.rss for each in samples[middle:]) - max(each.rss for each in samples[:middle])
    print(f"memory: {samples[0].rss} to {samples[-1].rss} KiB, growth of the second half "
          f"{growth} KiB; descriptors: {min(each.descriptors for each in samples)} to "
          f"{max(each.descriptors for each in samples)}; threads: "
          f"{min(each.threads for each in samples)} to {max(each.threads for each in samples)}")
    return (growth <= MOST_GROWTH and max(each.rss for each in samples) <= MOST_MEMORY and
            len({each.threads for each in samples}) == 1 and
            max(each.descriptors for each in samples) <= 100 + 4 * VIEWERS)


def main():
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))  # the cell must not outlive this program
    minutes = float(sys.argv[1]) if len(sys.argv) > 1 else 2.0
    seed = sys.argv[2] if len(sys.argv) > 2 else str(random.randrange(10**6))
    print(f"{GRIPPERS} grippers, up to {VIEWERS} viewers, {minutes:g} min, seed {seed}", flush=True)
    cell = Cell(*(GRIPPERS * ("--gripper", "HVA")))
    with tempfile.TemporaryDirectory() as folder:
        log = pathlib.Path(folder, "daemon.log")
        log.touch()
        soak, resources = run(cell, log, minutes, seed)
    print(", ".join(f"{count} {name}" for name, count in soak.counts.items()))
    is_flat = verdict(resources)
    print("passed" if is_flat else "FAILED")
    return 0 if is_flat else 1


def run(cell, log, minutes, seed):
    try:
        cell.wait_until_serving()
        cell.wait_until_operating(GRIPPERS)
        web = Web("--allow-control", "--log", str(log))
        soak = Soak(web, cell, log, seed)
        try:
            resources = soak.run(60 * minutes)
        finally:
            soak.close()
            web.stop()
        cell.stop()
        return soak, resources
    finally:
        cell.end_by_force()


if __name__ == "__main__":
    sys.exit(main())
