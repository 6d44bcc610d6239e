"""The cost of tavrikweb, for a robot that calls meanwhile and for the host."""

import contextlib
import subprocess
import threading
import time

from costs import RATE
from figures import Figure, alternate, at_most, column
from servers import BUILD, DAEMON, DIES_WITH_PARENT, Server, cpu_seconds, rss_kib
from tests.integration.harness.web import ROOT, Viewer

GRIPPERS = 32
VIEWERS = 16
TAVRIKWEB = BUILD / "web" / "tavrikweb"


@contextlib.contextmanager
def viewers():
    """tavrikweb with all the viewers that it serves; each reads everything."""
    process = subprocess.Popen([*DIES_WITH_PARENT, TAVRIKWEB, "--assets", ROOT / "web" / "page"],
                               stdout=subprocess.PIPE)
    with process, contextlib.ExitStack() as stack:
        stack.callback(process.terminate)
        while b"Serving " not in process.stdout.readline():
            pass
        for _ in range(VIEWERS):
            viewer = stack.enter_context(Viewer())
            viewer.wait_for("values")
            threading.Thread(target=drain, args=(viewer.connection,), daemon=True).start()
        yield process.pid


def drain(connection):
    with contextlib.suppress(OSError):
        while connection.recv(65536):
            pass


def beside_viewers(plan):
    """A robot that calls continuously on one connection, with and without viewers."""
    with Server(DAEMON, masters=GRIPPERS) as daemon:
        daemon.stream(RATE)

        def robot():
            return daemon.load("GetPos", 1, plan.seconds)

        def watched():
            with viewers() as pid:
                start, cpu = time.monotonic(), cpu_seconds(pid)
                result = robot()
                share = 100 * (cpu_seconds(pid) - cpu) / (time.monotonic() - start)
                return result | {"webCpu": share, "webRss": rss_kib(pid) / 1024}
        ours, quiet = alternate(plan.rounds, watched, robot)
    name = f"{GRIPPERS} grippers, {VIEWERS} browsers: "
    yield Figure(f"{name}GetPos p99", "µs", column(ours, "p99Us"), column(quiet, "p99Us"),
                 "the same without `tavrikweb`", at_most(1.1))
    yield Figure(f"{name}tavrikweb", "% of a processor", column(ours, "webCpu"), goal=at_most(5),
                 goal_for_value=True)
    yield Figure(f"{name}tavrikweb", "MiB", column(ours, "webRss"), goal=at_most(30),
                 goal_for_value=True)
