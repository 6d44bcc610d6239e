"""tavrikctl, run as a user does."""

import os
import subprocess

from .cell import SLOWNESS, Output

# Exit statuses
DONE, REFUSED, USAGE, NOT_POSSIBLE, NO_DAEMON, NO_ANSWER, BAD_ANSWER = 0, 1, 2, 3, 4, 5, 6
NO_GRIPPER, NOT_AT_REST, FAILED, FAULTY, DID_NOT_MOVE, NOT_SENT = 7, 8, 9, 10, 11, 12
NOT_HELD, NOT_AS_EXPECTED, NO_PROCESS_DATA = 13, 14, 21

# Without a user's settings that would affect tests.
ENVIRONMENT = {name: value for name, value in os.environ.items()
               if name not in ("NO_COLOR", "http_proxy", "HTTP_PROXY", "all_proxy", "ALL_PROXY")}


def arguments_of(*arguments):
    return [os.environ["TAVRIK_CTL"], *map(str, arguments)]


def run(*arguments, environment=None, **options):
    """Runs tavrikctl to its end; its output is text."""
    return subprocess.run(arguments_of(*arguments), env={**ENVIRONMENT, **(environment or {})},
                          stdin=subprocess.DEVNULL, capture_output=True, text=True,
                          timeout=60 * SLOWNESS, **options)


def shell(command, environment=None, **options):
    """The output and errors of a shell command that uses tavrikctl."""
    return subprocess.run(["bash", "-c", f'tavrikctl() {{ "$TAVRIK_CTL" "$@"; }}; {command}'],
                          env={**ENVIRONMENT, **(environment or {})}, stdin=subprocess.DEVNULL,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          timeout=60 * SLOWNESS, **options).stdout


class Running:
    """A running tavrikctl whose output is read continuously."""

    def __init__(self, *arguments, environment=None):
        self.process = subprocess.Popen(arguments_of(*arguments),
                                        env={**ENVIRONMENT, **(environment or {})},
                                        stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                        stderr=subprocess.PIPE)
        self.output = Output("output", self.process.stdout)
        self.errors = Output("errors", self.process.stderr)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.kill()
        self.wait_for_end()

    def wait_for_end(self):
        """Waits until it ends by itself; returns its exit status."""
        status = self.process.wait(60 * SLOWNESS)
        for output in (self.output, self.errors):
            output.reader.join()
        return status
