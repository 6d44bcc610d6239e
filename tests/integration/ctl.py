"""tavrikctl, run as a user does."""

import os
import subprocess

from cell import SLOWNESS

# A user's settings must not decide tests.
CLEAN = {name: value for name, value in os.environ.items()
         if name not in ("NO_COLOR", "http_proxy", "HTTP_PROXY", "all_proxy", "ALL_PROXY")}


def arguments_of(*arguments):
    return [os.environ["TAVRIK_CTL"], *map(str, arguments)]


def run(*arguments, environment=None, **options):
    """Runs tavrikctl to its end; its output is text."""
    return subprocess.run(arguments_of(*arguments), env={**CLEAN, **(environment or {})},
                          stdin=subprocess.DEVNULL, capture_output=True, text=True,
                          timeout=60 * SLOWNESS, **options)


def start(*arguments):
    return subprocess.Popen(arguments_of(*arguments), env=CLEAN, stdin=subprocess.DEVNULL,
                            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
