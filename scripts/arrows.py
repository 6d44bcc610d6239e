#!/usr/bin/env python3
"""Checks that dependencies between folders point one way, in includes and between CMake targets.

arrows.py GRAPH: GRAPH is the file that `cmake --graphviz=GRAPH` has written for the whole tree.
"""

import pathlib
import re
import subprocess
import sys

ALLOWED = {
    "common": (),
    "pellix": ("common",),
    "daemon": ("pellix", "common"),
    "client": ("common",),
    "doctor": ("client", "common"),
    "tavrikctl": ("client", "doctor", "common"),
    "web": ("client", "doctor", "common"),
    "simulator": ("common",),
    "bench": ("simulator", "pellix", "daemon", "common", "tests"),
}


def files(*patterns):
    listed = subprocess.run(["git", "ls-files", "--", *patterns], check=True, capture_output=True,
                            text=True).stdout
    return ((path, path.parts[0], path.read_text(encoding="utf-8"))
            for path in map(pathlib.Path, listed.split()))


def includes():
    """(file, its folder, the folder that it includes)"""
    for path, source, text in files("*.cpp", "*.h"):
        for target in re.findall(r'^#include "(\w+)/', text, re.MULTILINE):
            yield path, source, target


def links(graph):
    """(target, its folder, the folder of a target that it links)"""
    folders = {}
    for _, source, text in files("*CMakeLists.txt"):
        for name in re.findall(r"^(?:tavrik_)?add_(?:library|executable|fence)\(([\w-]+)", text,
                               re.MULTILINE):
            folders[name] = source
    edges = re.findall(r"// ([\w-]+) -> ([\w-]+)$", pathlib.Path(graph).read_text(encoding="utf-8"),
                       re.MULTILINE)
    return [(one, folders[one], folders[other]) for one, other in edges
            if one in folders and other in folders]


def main():
    arrows = [*includes(), *links(sys.argv[1])]
    unchecked = set(ALLOWED) - {"common"} - {source for _, source, _ in arrows}
    wrong = [f"{what}: {source} -> {target}" for what, source, target in arrows
             if source in ALLOWED and target != source and target not in ALLOWED[source]]
    wrong += [f"{source}: no dependency found" for source in sorted(unchecked)]
    if wrong:
        sys.exit("\n".join(wrong))


if __name__ == "__main__":
    main()
