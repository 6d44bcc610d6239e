"""Helpers of the end-to-end tests; scripts/tour.py, bench/ and tests/soak/ use them too.

The environment names the programs that run in the cell; those of the preset dev are the default.
"""

import os
import pathlib

PROGRAMS = {"TAVRIK_DAEMON": "daemon/TavrikDaemon", "TAVRIK_SIMULATOR": "simulator/pellix-sim",
            "TAVRIK_CTL": "tavrikctl/tavrikctl", "TAVRIK_WEB": "web/tavrikweb",
            "TAVRIK_CPP_CLIENT": "tests/integration/xml-rpc-client-test"}

for name, program in PROGRAMS.items():
    path = pathlib.Path(__file__).resolve().parents[3] / "build" / "dev" / program
    os.environ.setdefault(name, str(path))
