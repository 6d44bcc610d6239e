"""The micro-benchmarks of the daemon's own classes."""

import json
import subprocess

from world import PROGRAMS

QUICK = ("--benchmark_min_time=0.01",)  # seconds of each


def run(folder, quick):
    """Prints their table as they go; returns their records."""
    results = folder / "micro.json"
    subprocess.run([PROGRAMS / "bench-micro", f"--benchmark_out={results}",
                    "--benchmark_out_format=json", *QUICK * quick], check=True, timeout=600)
    return json.loads(results.read_text())["benchmarks"]
