#!/usr/bin/env python3
"""Puts the results of a whole run into its pages, and the plots beside docs/performance.md.

Usage: publish.py [FOLDER]: FOLDER (build/bench by default) has the run.json of the run.
"""

import json
import pathlib
import re
import subprocess
import sys
from typing import NamedTuple

import figures

ROOT = pathlib.Path(__file__).resolve().parent.parent
PAGE = ROOT / "docs" / "performance.md"
MICRO_PAGE = ROOT / "bench" / "micro-benchmarks.md"  # for developers, so not among the user pages

COLOURS = ("#1f6fb2", "#d1642a", "#3d8f57")
PANEL_WIDTH, HEIGHT = 320, 260  # pixels


class Panel(NamedTuple):
    """One diagram: lines over a common x axis. `lines`: (key of a point, title) each."""
    title: str
    lines: tuple


LATENCY = Panel("GetPos, 8 connections, µs", (("p99Us", "p99"), ("p50Us", "p50")))
# Name of the series and of the file: key of x, title of x, panels.
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
    """How the cost grows with masters, clients and lines: SVG files, made by gnuplot."""
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
    has_words = any(isinstance(point[x_key], str) for point in points)  # then evenly spaced
    for panel in panels:
        yield f"set title '{panel.title}'"
        yield "$points << END"
        for number, point in enumerate(points):
            yield " ".join([str(number if has_words else point[x_key]), f'"{point[x_key]}"',
                            *(str(point[key]) for key, _ in panel.lines)])
        yield "END"
        yield "plot " + ", ".join(
            f"$points using 1:{column + 3}:xtic(2) title '{title}' lw 2 pt 7 ps 0.5 "
            f"lc rgb '{COLOURS[column]}'" for column, (_, title) in enumerate(panel.lines))
    yield "unset multiplot"


def sentence(machine):
    return (f"{machine['processor']}, {machine['processors']} processors "
            f"({machine['virtualization']}), {machine['memoryGib']} GiB; {machine['system']}")


def figures_of(run):
    load = run["machine"]["loadAverage"]
    return (f"{run['date']}, revision {run['machine']['revision']}: "
            f"{sentence(run['machine'])}. Load average at the start: {load:.2f}.\n\n"
            f"{figures.as_markdown(run['figures'], judged=True)}")


def sizing_of(run):
    """What a host must give, in the terms of those who choose one: of a run's figures and its
    growth with masters. Everything above the first master counts as that of the others."""
    first, last = run["growth"]["masters"][0], run["growth"]["masters"][-1]
    masters = last["masters"] - first["masters"]

    def each(key):
        return (last[key] - first[key]) / masters

    def percent(number):
        return f"{number:.2f} %"

    values = {figure["figure"]: figure["value"] for figure in run["figures"]}
    lines = each("cpuPercent") - each("quietCpuPercent")
    return figures.markdown([
        ("what", "of a processor", "memory"), ("---", "---:", "---:"),
        ("The daemon without masters", "0", f"{values['RSS without masters']:,.0f} KiB"),
        ("A quiet master", percent(each("quietCpuPercent")), f"{each('rssKib'):.0f} KiB"),
        ("Its process data, 1000 lines a second", percent(lines), ""),
        ("100 GetPos a second", percent(values["CPU of a GetPos, 8 connections"] / 100), ""),
        ("100 Grip a second", percent(values["CPU of a Grip"] / 100), ""),
    ])


def micro_of(run):
    rows = [(benchmark["name"], f"{benchmark['cpu_time']:,.0f}") for benchmark in run["micro"]]
    return figures.markdown([("what", "CPU, ns"), ("---", "---:"), *rows])


def page_with(page, name, text):
    """The page with `text` between its marks <!-- NAME --> and <!-- end of NAME -->."""
    start, end = f"<!-- {name} -->\n", f"\n<!-- end of {name} -->"
    pattern = re.compile(f"{re.escape(start)}.*?{re.escape(end)}", re.DOTALL)
    page, count = pattern.subn(lambda _: f"{start}{text}{end}", page)
    if count != 1:
        raise SystemExit(f"{count} places for {name!r} in the page")
    return page


def main():
    folder = pathlib.Path(sys.argv[1]) if len(sys.argv) > 1 else ROOT / "build" / "bench"
    run = json.loads((folder / "run.json").read_text())
    if run["quick"]:
        sys.exit("The figures of a quick run are meaningless: run scripts/bench")
    if run["problems"]:
        sys.exit("\n".join(["The run is not complete:", *run["problems"]]))
    for page, name, text in ((PAGE, "figures", figures_of(run)), (PAGE, "sizing", sizing_of(run)),
                             (MICRO_PAGE, "micro-benchmarks", micro_of(run))):
        page.write_text(page_with(page.read_text(), name, text))
    draw(run["growth"], PAGE.with_suffix(""))


if __name__ == "__main__":
    main()
