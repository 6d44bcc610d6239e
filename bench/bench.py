#!/usr/bin/env python3
"""Measures the daemon against what bounds it, side by side in one run.

Usage: bench.py [--quick] [--out FOLDER]. scripts/bench builds what it needs and runs it.

Prints a table, and writes all that was measured to run.json in FOLDER (build/bench by default,
build/bench-quick of a quick run) and plots of it beside. The exit status tells whether everything worked and every answer was right; it
does not judge the figures.
"""

import argparse
import json
import pathlib
import signal
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
sys.path.insert(0, str(ROOT))

import calls  # noqa: E402
import growth  # noqa: E402
import idling  # noqa: E402
import machine  # noqa: E402
import micro  # noqa: E402
import peers  # noqa: E402
import plots  # noqa: E402
import plugging  # noqa: E402
import servers  # noqa: E402
import starting  # noqa: E402
import streams  # noqa: E402
import table  # noqa: E402
from rounds import FULL, QUICK  # noqa: E402
from tests.integration.harness import own_network  # noqa: E402

# In the order of the table.
SUBJECTS = (calls.two_processors, calls.one_processor, calls.latency_under_stream, calls.grips,
            calls.grips_against_nine_sends, streams.full_speed, streams.busy_cell, idling.polls,
            idling.memory, streams.memory_growth, starting.starting, plugging.plugging, peers.peers)


def main():
    options = parse_options()
    own_network.enter()
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, lambda *_: sys.exit(1))  # no process may outlive this program
    require_free_ports()
    folder = options.out or ROOT / "build" / ("bench-quick" if options.quick else "bench")
    folder.mkdir(parents=True, exist_ok=True)
    plan = QUICK if options.quick else FULL
    run = {"quick": options.quick, "date": time.strftime("%Y-%m-%d"),
           "machine": machine.description(), "plan": plan._asdict()}
    print(machine.sentence(run["machine"]), flush=True)
    problems = run["problems"] = []
    run["figures"] = [figure.record() for subject in SUBJECTS
                      for figure in attempt(subject, plan, problems)]
    run["growth"] = dict(attempt(growth.growth, plan, problems))
    run["loads"] = servers.journal
    print("\n" + table.as_text(run["figures"], judged=not options.quick), "", sep="\n", flush=True)
    try:
        run["micro"] = micro.run(folder, options.quick)
    finally:
        (folder / "run.json").write_text(json.dumps(run, indent=1) + "\n")
    if run["growth"]:
        plots.draw(run["growth"], folder)
    print(f"\nEverything measured is in {folder}/run.json", *problems, sep="\n")
    return 1 if problems else 0


def parse_options():
    parser = argparse.ArgumentParser(prog="scripts/bench")
    parser.add_argument("--quick", action="store_true", help="less than two minutes, no verdicts")
    parser.add_argument("--out", type=pathlib.Path, metavar="FOLDER")
    return parser.parse_args()


def require_free_ports():
    programs = (servers.DAEMON, servers.BARE, servers.PLAIN, servers.python_peer(0),
                servers.NODE_PEER)
    taken = [port for program in programs for port in program.ports if servers.listens(port)]
    if taken:
        sys.exit(f"Ports {taken} are taken: does a daemon run in this network?")


def attempt(subject, plan, problems):
    """What the subject yields; nothing if it fails, and the next ones are measured all the same."""
    start = time.monotonic()
    print(f"{subject.__module__}.{subject.__name__} ...", end=" ", flush=True)
    try:
        results = list(subject(plan))
    except (AssertionError, OSError, subprocess.SubprocessError) as problem:
        problems.append(f"{subject.__name__} failed: {problem}")
        print("FAILED", flush=True)
        return []
    print(f"{time.monotonic() - start:.0f} s", flush=True)
    return results


if __name__ == "__main__":
    sys.exit(main())
