"""The programs define functions of the installed XML-RPC library themselves."""

import os
import pathlib
import re
import subprocess
import unittest

from .harness.cell_test_case import main


class FenceTest(unittest.TestCase):
    """The linker takes the library's function if it meets the library first."""

    FENCE = pathlib.Path(__file__).resolve().parents[2] / "daemon" / "fence" / "CMakeLists.txt"
    FAULT_TEXT = "xmlrpc_set_fault_formatted_v"

    def test_the_programs_have_their_own_versions_of_library_functions(self):
        calls = re.findall(r"^tavrik_add_fence\(.*?FUNCTIONS ([^)]*)\)", self.FENCE.read_text(),
                           re.MULTILINE | re.DOTALL)
        functions = " ".join(calls).split()
        self.assertEqual(len(calls), 2)
        for program, expected in (("TAVRIK_DAEMON", {*functions, self.FAULT_TEXT}),
                                  ("TAVRIK_CTL", {self.FAULT_TEXT})):
            symbols = subprocess.run(["nm", "--dynamic", "--defined-only", os.environ[program]],
                                     check=True, capture_output=True, text=True).stdout
            defined = {line.split()[-1] for line in symbols.splitlines()}
            with self.subTest(program=program):
                self.assertEqual(expected - defined, set())


if __name__ == "__main__":
    main()
