#!/usr/bin/env python3
"""Draws how the cost grows with masters, clients and lines: SVG files, made by gnuplot.

Usage: plots.py RUN.json FOLDER.
"""

import json
import pathlib
import subprocess
import sys
from typing import NamedTuple

COLOURS = ("#1f6fb2", "#d1642a", "#3d8f57")
PANEL_WIDTH, HEIGHT = 320, 260  # pixels


class Panel(NamedTuple):
    """One diagram: lines over a common x axis. `lines`: (key of a point, title) each."""
    title: str
    lines: tuple


LATENCY = Panel("GetPos, 8 connections, µs", (("p99Us", "p99"), ("p50Us", "p50")))
# File name: series, key of x, title of x, panels.
PLOTS = {
    "masters": ("masters", "masters", (
        Panel("CPU, % of a processor", (("cpuPercent", "1000 lines/s each"),
                                        ("quietCpuPercent", "quiet"))),
        Panel("RSS, KiB", (("rssKib", ""),)),
        LATENCY)),
    "clients": ("connectionsPerPort", "connections on each of two ports", (
        Panel("GetPos calls per second", (("callsPerSecond", ""),)),
        Panel("GetPos, µs", (("p99Us", "p99"), ("p50Us", "p50"))),
        Panel("CPU of a call, µs", (("cpuUs", ""),)))),
    "lines": ("rate", "lines/s of one master", (
        Panel("CPU, % of a processor", (("cpuPercent", ""),)),
        LATENCY)),
}


def draw(growth, folder):
    folder.mkdir(parents=True, exist_ok=True)
    for name, (x_key, x_title, panels) in PLOTS.items():
        script = "\n".join(script_of(folder / f"{name}.svg", growth[name], x_key, x_title, panels))
        subprocess.run(["gnuplot"], input=script.encode(), check=True)


def script_of(path, points, x_key, x_title, panels):
    yield f"set terminal svg size {PANEL_WIDTH * len(panels)},{HEIGHT} font 'sans-serif,11' " \
          "background '#ffffff'"
    yield f"set output '{path}'"
    yield "set encoding utf8"
    yield "set border 3 lc rgb '#555555'; set tics nomirror; set grid lc rgb '#dddddd'"
    yield "set key top left reverse Left samplen 1.5"
    yield "set xrange [0:*]; set yrange [0:*]; set style data linespoints"
    yield f"set xlabel '{x_title}'"
    yield f"set multiplot layout 1,{len(panels)}"
    for panel in panels:
        yield from commands_of(panel, points, x_key)
    yield "unset multiplot"


def commands_of(panel, points, x_key):
    has_words = any(isinstance(point[x_key], str) for point in points)  # then evenly spaced
    yield f"set title '{panel.title}'"
    yield "$points << END"
    for number, point in enumerate(points):
        yield " ".join([str(number if has_words else point[x_key]), f'"{point[x_key]}"',
                        *(str(point[key]) for key, _ in panel.lines)])
    yield "END"
    yield "plot " + ", ".join(
        f"$points using 1:{column + 3}:xtic(2) title '{title}' lw 2 pt 7 ps 0.5 "
        f"lc rgb '{COLOURS[column]}'" for column, (_, title) in enumerate(panel.lines))


def main():
    draw(json.loads(pathlib.Path(sys.argv[1]).read_text())["growth"], pathlib.Path(sys.argv[2]))


if __name__ == "__main__":
    main()
