#!/usr/bin/env python3
"""Puts the results of a whole run into docs/performance.md, and the plots beside it.

Usage: publish.py [FOLDER]: FOLDER (build/bench by default) has the run.json of the run.
"""

import json
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
PAGE = ROOT / "docs" / "performance.md"
sys.path.insert(0, str(ROOT))

import machine  # noqa: E402
import plots  # noqa: E402
import sizing  # noqa: E402
import table  # noqa: E402

MICRO_TITLES = ("what", "CPU, ns")


def page_with(page, name, text):
    """The page with `text` between its marks <!-- NAME --> and <!-- end of NAME -->."""
    start, end = f"<!-- {name} -->\n", f"\n<!-- end of {name} -->"
    pattern = re.compile(f"{re.escape(start)}.*?{re.escape(end)}", re.DOTALL)
    page, count = pattern.subn(lambda _: f"{start}{text}{end}", page)
    if count != 1:
        raise SystemExit(f"{count} places for {name!r} in the page")
    return page


def figures_of(run):
    load = run["machine"]["loadAverage"]
    return (f"{run['date']}, revision {run['machine']['revision']}: "
            f"{machine.sentence(run['machine'])}. Load average at the start: {load:.2f}.\n\n"
            f"{table.as_markdown(run['figures'], judged=True)}")


def micro_of(run):
    rows = [(benchmark["name"], f"{benchmark['cpu_time']:,.0f}") for benchmark in run["micro"]]
    return table.markdown([MICRO_TITLES, ("---", "---:"), *rows])


def main():
    folder = pathlib.Path(sys.argv[1]) if len(sys.argv) > 1 else ROOT / "build" / "bench"
    run = json.loads((folder / "run.json").read_text())
    if run["quick"]:
        sys.exit("A quick run's figures mean nothing: run scripts/bench")
    if run["problems"]:
        sys.exit("\n".join(["The run is not complete:", *run["problems"]]))
    page = page_with(PAGE.read_text(), "figures", figures_of(run))
    page = page_with(page, "sizing", sizing.sizing(run))
    PAGE.write_text(page_with(page, "micro-benchmarks", micro_of(run)))
    plots.draw(run["growth"], PAGE.with_suffix(""))


if __name__ == "__main__":
    main()
