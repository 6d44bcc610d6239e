"""Calls without a pause, by bench-load, which checks every answer."""

import contextlib
import json
import subprocess

from processes import MORTAL
from world import POSITION, PROGRAMS, device

PATIENCE = 60.0  # seconds until a load that should have ended hangs

# Arguments for bench-load: what a method takes behind the device string, and what it answers.
CALLS = {"GetPos": ("--expect", POSITION), "Grip": ("--int", "1", "--expect", "0")}


def command(ports, method, gripper, connections, seconds, fin_file=None):
    return [*MORTAL, PROGRAMS / "bench-load", "--ports", ",".join(map(str, ports)),
            "--connections", str(connections), "--seconds", str(seconds),
            "--method", method, "--device", device(gripper), *CALLS[method],
            *(["--fin-file", fin_file] if fin_file else [])]


def results_of(*commands):
    """Runs the loads side by side; returns what each of them tells."""
    with contextlib.ExitStack() as stack:
        loads = []
        for words in commands:
            load = subprocess.Popen(words, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
            loads.append(stack.enter_context(load))
            stack.callback(load.kill)
        return [result_of(load) for load in loads]


def result_of(load):
    output, errors = load.communicate(timeout=PATIENCE)
    if load.returncode != 0:
        raise AssertionError(f"{load.args}: {errors.decode() or load.returncode}")
    return json.loads(output)
