"""The Debian package of tavrikweb: its service shows the cell and keeps to its restrictions.

scripts/test-package runs this, as it does test_package.py.
"""

import re

from .harness.cell import wait_until
from .harness.cell_test_case import main
from .harness.machine_test_case import CELL, CODE, GRIPPER, INSTALL_ALL, INSTALL_WEB, MachineTestCase
from .harness.web import Viewer, get, post

UNIT = "tavrikweb.service"
OPTIONS = "/etc/systemd/system/tavrikweb.service.d/options.conf"


class WebServiceTest(MachineTestCase):
    install = f"{INSTALL_ALL} && {INSTALL_WEB}"
    settings = CELL

    @classmethod
    def prepare(cls):
        super().prepare()
        options = cls.machine.path(OPTIONS)
        options.write_text(re.sub(r"(?m)^#(\[|Env|Supp)", r"\1", options.read_text()))
        cls.machine.run(f"systemctl daemon-reload && systemctl restart {UNIT}")
        wait_until(cls.is_serving)

    @staticmethod
    def is_serving():
        try:
            return get("/").status == 200
        except OSError:
            return False

    def test_it_runs_now_and_after_a_boot(self):
        self.assertEqual(self.machine.run(f"systemctl is-enabled {UNIT}"), "enabled")
        self.assertEqual(self.machine.run("systemctl is-system-running"), "running")
        self.assertEqual(self.machine.run(f"systemd-analyze verify --man=no {UNIT}"), "")

    def test_it_runs_as_its_user_without_capabilities(self):
        pid = self.machine.run(f"systemctl show --value --property=MainPID {UNIT}")
        status = self.machine.path(f"/proc/{pid}/status").read_text()
        user = self.machine.run("id --user tavrikweb")
        self.assertRegex(status, rf"(?m)^Uid:(\s+{user}){{4}}$")
        self.assertRegex(status, r"(?m)^CapBnd:\s+0+$")

    def test_the_page_and_the_grippers_are_served(self):
        self.assertEqual(get("/dygraph.js").status, 200)
        with Viewer() as viewer:
            viewer.wait_for("cell", lambda cell: [gripper["device"] for gripper in
                                                  cell["grippers"]] == [GRIPPER])
            viewer.wait_for("values", lambda values: all(values["rows"]))

    def test_the_code_gives_control(self):
        code = self.machine.run(f"su nobody -s /bin/sh -c '{CODE}'")
        token = post("/api/control/take", {"code": code}).json()["token"]
        answer = post("/api/command", {"gripper": GRIPPER, "command": "disable"}, token).json()
        self.assertEqual(answer["text"], "disable: done")
        self.assertIn(f"Command from 127.0.0.1 to '{GRIPPER}': disable: done",
                      self.machine.run(f"journalctl -b -u {UNIT}"))

    def test_the_log_is_shown_if_the_options_allow_it(self):
        log = wait_until(lambda: (log := post("/api/log", {}).json())["rows"] and log, pause=0.1)
        self.assertIn(GRIPPER, {row["gripper"] for row in log["rows"]})

    def test_the_doctor_sees_the_daemon(self):
        findings = post("/api/findings", {}).json()["findings"]
        found = {finding["subject"]: finding for finding in findings}
        self.assertIn("TavrikDaemon (process", found["service"]["text"])
        self.assertEqual(found["port 44221"]["mark"], "ok", found)


if __name__ == "__main__":
    main()
