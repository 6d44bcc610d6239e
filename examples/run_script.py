#!/usr/bin/env python3
"""run_script.py SCRIPT [GRIPPER [URL]]: runs a robot script such as grip.script, for a test.

Translates the script to Python by removing "end" and "local"; FUNCTIONS replaces the functions of
the controller. GRIPPER and URL replace those in the script.
"""

import http.client
import pathlib
import re
import sys
import time
import xmlrpc.client


class Transport(xmlrpc.client.Transport):
    def __init__(self, seconds):
        super().__init__()
        self.seconds = seconds

    def make_connection(self, host):
        connection = super().make_connection(host)
        connection.timeout = self.seconds
        return connection


FUNCTIONS = {
    "xmlrpc_factory": lambda url, seconds: xmlrpc.client.ServerProxy(url, Transport(seconds)),
    "sleep": time.sleep,
    "message": lambda line: print(line, flush=True),
    "text": lambda number: f"{number:g}",
    "stop_program": lambda: sys.exit(1),
}


def translate(script):
    """Returns the script in Python. Each block must have an "end" with the same indentation."""
    lines = []
    depths = []  # indentation of the open blocks, innermost last
    for number, line in enumerate(script.splitlines(), 1):
        code = line.strip()
        depth = len(line) - len(line.lstrip())
        if code == "end":
            if not depths or depths.pop() != depth:
                raise SyntaxError(f"line {number}: end without a beginning")
            line = ""
        elif re.match(r"(def|if|while)\b.*:$", code):
            depths.append(depth)
        lines.append(re.sub(r"^( *)local ", r"\1", line))
    if depths:
        raise SyntaxError("a block without its end")
    return "\n".join(lines)


def main(path, **replaced):
    script = pathlib.Path(path).read_text(encoding="utf-8")
    for name, value in replaced.items():
        script = re.sub(rf"(?m)^{name} = .*$", lambda _, line=f"{name} = {value!r}": line, script)
    try:
        exec(compile(translate(script), path, "exec"), dict(FUNCTIONS))
    except (OSError, http.client.HTTPException, xmlrpc.client.Error) as error:
        sys.exit(f"stopped by the controller: {error}")


if __name__ == "__main__":
    main(sys.argv[1], **dict(zip(("GRIPPER", "URL"), sys.argv[2:])))
