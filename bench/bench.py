#!/usr/bin/env python3
"""Measures the daemon and its limits side by side in one run.

Usage: bench.py [--quick] [--out FOLDER]. scripts/bench builds what it needs and runs it.

Prints a table, and writes all results to run.json in FOLDER (default: build/bench, or
build/bench-quick for a quick run), with plots of the growth beside it. The exit status is 0 if all
measurements worked and all answers were right; the figures do not affect it.
"""

import argparse
import json
import os
import pathlib
import platform
import re
import signal
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
sys.path.insert(0, str(ROOT))

import calls  # noqa: E402
import costs  # noqa: E402
import figures  # noqa: E402
import publish  # noqa: E402
import servers  # noqa: E402
import web  # noqa: E402
from tests.integration.harness import own_network  # noqa: E402

# In the order of the table.
SUBJECTS = (calls.two_processors, calls.one_processor, calls.latency_under_stream, calls.grips,
            calls.grips_against_nine_sends, costs.full_speed, costs.busy_cell, costs.polls,
            costs.memory, costs.memory_growth, costs.starting, costs.plugging, web.beside_viewers,
            calls.peers)
PACKAGES = ("g++", "libxmlrpc-core-c3", "python3", "nodejs")  # versions that influence the figures


def main():
    options = parse_options()
    own_network.enter()
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, lambda *_: sys.exit(1))  # no process may outlive this program
    require_free_ports()
    folder = options.out or ROOT / "build" / ("bench-quick" if options.quick else "bench")
    folder.mkdir(parents=True, exist_ok=True)
    plan = figures.QUICK if options.quick else figures.FULL
    run = {"quick": options.quick, "date": time.strftime("%Y-%m-%d"),
           "machine": machine(), "plan": plan._asdict()}
    print(publish.sentence(run["machine"]), flush=True)
    problems = run["problems"] = []
    run["figures"] = [figure.record() for subject in SUBJECTS
                      for figure in attempt(subject, plan, problems)]
    run["growth"] = dict(attempt(costs.growth, plan, problems))
    run["loads"] = servers.journal
    print("\n" + figures.as_text(run["figures"], judged=not options.quick), "", sep="\n",
          flush=True)
    try:
        run["micro"] = micro(folder, options.quick)
    finally:
        (folder / "run.json").write_text(json.dumps(run, indent=1) + "\n")
    if run["growth"]:
        publish.draw(run["growth"], folder)
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
        sys.exit(f"Ports {taken} are in use: is a daemon running in this network namespace?")


def attempt(subject, plan, problems):
    """The results of the subject; none if it fails, and the run continues with the next one."""
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


def micro(folder, quick):
    """Runs the micro-benchmarks of the daemon's own classes; returns their records."""
    results = folder / "micro.json"
    subprocess.run([servers.PROGRAMS / "bench-micro", f"--benchmark_out={results}",
                    "--benchmark_out_format=json",
                    *["--benchmark_min_time=0.01"] * quick], check=True, timeout=600)
    return json.loads(results.read_text())["benchmarks"]


def machine():
    """The machine on which the figures were measured."""
    memory = pathlib.Path("/proc/meminfo").read_text()
    processor = re.search(r"^model name\s*: (.*)$", pathlib.Path("/proc/cpuinfo").read_text(),
                          re.MULTILINE)
    system = platform.freedesktop_os_release()["PRETTY_NAME"]
    return {"processor": processor[1] if processor else platform.machine(),
            "processors": os.cpu_count(),
            "memoryGib": round(int(re.search(r"MemTotal:\s+(\d+)", memory)[1]) / 2**20, 1),
            "virtualization": output("systemd-detect-virt", "--vm") or "no virtual machine",
            "system": f"{system}, Linux {platform.release()}",
            "packages": {name: output("dpkg-query", "-W", "-f", "${Version}", name)
                         for name in PACKAGES},
            "revision": output("git", "-C", ROOT, "describe", "--always", "--dirty"),
            "loadAverage": os.getloadavg()[0]}


def output(*command):
    """The output of a command; empty if it cannot run."""
    try:
        run = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
    except FileNotFoundError:
        return ""
    return run.stdout.strip()


if __name__ == "__main__":
    sys.exit(main())
