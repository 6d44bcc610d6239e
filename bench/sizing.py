"""What a host must give, in the terms of those who choose one."""

import table

TITLES = ("what", "of a processor", "memory")


def sizing(run):
    """Markdown. Of a run's figures and its growth with masters; everything above the first master
    counts as that of the others."""
    first, last = run["growth"]["masters"][0], run["growth"]["masters"][-1]
    masters = last["masters"] - first["masters"]

    def each(key):
        return (last[key] - first[key]) / masters

    values = {figure["figure"]: figure["value"] for figure in run["figures"]}
    lines = each("cpuPercent") - each("quietCpuPercent")
    return table.markdown([
        TITLES, ("---", "---:", "---:"),
        ("The daemon without masters", "0", f"{values['RSS without masters']:,.0f} KiB"),
        ("A quiet master", percent(each("quietCpuPercent")), f"{each('rssKib'):.0f} KiB"),
        ("Its process data, 1000 lines a second", percent(lines), ""),
        ("100 GetPos a second", percent(values["CPU of a GetPos, 8 connections"] / 100), ""),
        ("100 Grip a second", percent(values["CPU of a Grip"] / 100), ""),
    ])


def percent(number):
    return f"{number:.2f} %"
