"""The sessions that the pages show."""

import doctest
import re

BLOCK = re.compile(r"^```(console|pellix-sim)\n(.*?)^```$", re.MULTILINE | re.DOTALL)
STEP = re.compile(r"^\$ (.*)\n((?:(?!\$ ).*\n)*)", re.MULTILINE)


def session(text):
    """The steps of a page: commands with their output, or with None for the simulator's."""
    for language, block in BLOCK.findall(text):
        if language == "pellix-sim":
            yield from ((command, None) for command in block.splitlines())
        else:
            yield from STEP.findall(block)


def is_shown(output, expected):
    """Whether a page shows this output; its "..." stands for what is different each time."""
    return doctest.OutputChecker().check_output(expected, output, doctest.ELLIPSIS)
