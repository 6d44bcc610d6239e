"""Base of the tests of tavrikctl settings: a file, and what is written to the gripper."""

import collections
import json
import pathlib
import re
import tempfile

from . import ctl
from .ctl_test_case import CtlTestCase


class SettingsTestCase(CtlTestCase):
    def setUp(self):
        self.folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        self.file = self.folder / "gripper.json"

    def save(self, device):
        self.ctl("settings", "save", self.file, device)
        return json.loads(self.file.read_text())

    def parameters(self, number):
        """All parameters that can be written."""
        return {key: value for key, value in self.cell.show(number)["parameters"].items()
                if int(key.split("/")[0]) >= 64}

    def writes_during(self, *arguments):
        """Runs a command; returns also the parameters that it wrote in addition to reading all."""
        start = self.cell.log.mark()
        result = ctl.run(*arguments)
        lines = self.cell.log.since(start)[:self.cell.log.mark() - start]
        requests = collections.Counter(
            key for line in lines for key in re.findall(r"New command (PARAM\[\d+\]\[\d\])", line))
        readings = requests["PARAM[103][1]"]
        self.assertGreater(readings, 0)
        # The checksum, and a force that also tells the model, are read more often.
        return result, [key for key, count in requests.items() if count > readings and
                        key not in ("PARAM[3][4]", "PARAM[96][3]")]

    def edit(self, **values):
        """Changes the saved file; a value is that of the gripper or of set 1."""
        content = json.loads(self.file.read_text())
        for name, value in values.items():
            name = name.replace("_", "-")
            (content if name in content else content["sets"][1])[name] = value
        self.file.write_text(json.dumps(content))
