"""The alert rules and the dashboard, and the engine that collects and alerts, end to end."""

import json
import pathlib
import re
import subprocess
import tempfile
import unittest
import urllib.request

from .harness.cell import DIES_WITH_PARENT, HVA, PATIENCE, wait_until
from .harness.cell_test_case import main
from .harness.pages import ROOT
from .harness.web import WebTestCase, get, post

MONITORING = ROOT / "monitoring"
ENGINE, MANAGER = "http://127.0.0.1:9090", "http://127.0.0.1:9093"
METRIC = re.compile(r"\btavrik_\w+")


def promtool(*arguments):
    subprocess.run(["promtool", *arguments], cwd=MONITORING, check=True, capture_output=True,
                   timeout=2 * PATIENCE)


class FilesTest(unittest.TestCase):
    def test_the_rules_do_what_their_tests_say(self):
        promtool("check", "rules", "alerts.yml")
        promtool("test", "rules", "alerts_test.yml")

    def test_every_alert_is_tested_and_documented(self):
        alerts = re.findall(r"alert: (\w+)", (MONITORING / "alerts.yml").read_text())
        fired = re.findall(r"alertname: (\w+)\n +exp_alerts",
                           (MONITORING / "alerts_test.yml").read_text())
        page = (ROOT / "docs" / "monitoring.md").read_text()
        self.assertEqual(len(alerts), 10)
        self.assertEqual(set(fired), set(alerts))
        self.assertEqual(re.findall(r"^\| `(Tavrik\w+)`", page, re.MULTILINE), alerts)

    def test_every_alert_leads_to_a_paragraph(self):
        pages = re.findall(r"page: (.+), in /usr/share/doc/tavrikdaemon/(\S+)\n",
                           (MONITORING / "alerts.yml").read_text())
        self.assertEqual(len(pages), 10)
        for paragraph, page in pages:
            headings = re.findall(r"^#+ (.*)$", (ROOT / "docs" / page).read_text(), re.MULTILINE)
            self.assertIn(paragraph, headings)

    def test_the_example_is_a_valid_configuration(self):
        promtool("check", "config", "prometheus.yml")


class DashboardTest(WebTestCase):
    def test_rules_and_dashboard_use_metrics_that_exist(self):
        post("/api/command", {"gripper": HVA, "command": "disable"}, self.take_control())

        def metrics():
            text = get("/metrics").text
            return text if "tavrik_gripper_state{" in text else None
        text = wait_until(metrics, pause=0.05)  # fewer scrapes than the limit of 50 a second
        served = set(re.findall(r"^# TYPE (\w+)", text, re.MULTILINE))
        for name in ("alerts.yml", "dashboard.json"):
            used = {metric.removesuffix("_bucket") for metric in
                    METRIC.findall((MONITORING / name).read_text())}
            self.assertGreater(len(used), 8)
            self.assertLessEqual(used, served, name)

    def test_the_dashboard_has_panels_that_do_not_overlap(self):
        dashboard = json.loads((MONITORING / "dashboard.json").read_text())
        cells = [(x, y) for panel in dashboard["panels"] for position in [panel["gridPos"]]
                 for x in range(position["x"], position["x"] + position["w"])
                 for y in range(position["y"], position["y"] + position["h"])]
        self.assertEqual(len(cells), len(set(cells)))
        self.assertLess(max(x for x, _ in cells), 24)
        ids = [panel["id"] for panel in dashboard["panels"]]
        self.assertEqual(len(ids), len(set(ids)))
        for panel in dashboard["panels"]:
            for target in panel["targets"]:
                self.assertIn('{instance=~"$instance"}', target["expr"])


class EngineTest(WebTestCase):
    """The engine and its alert manager with the packaged rules, every second."""

    @classmethod
    def prepare(cls):
        super().prepare()
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        path = pathlib.Path(folder.name)
        configuration = (MONITORING / "prometheus.yml").read_text().replace(": 5s", ": 1s")
        (path / "prometheus.yml").write_text(configuration)
        (path / "alerts.yml").write_text((MONITORING / "alerts.yml").read_text())
        (path / "manager.yml").write_text("route: {receiver: none, group_wait: 0s}\n"
                                          "receivers: [{name: none}]\n")
        cls.start("prometheus-alertmanager", "--config.file=manager.yml", "--storage.path=manager",
                  "--web.listen-address=127.0.0.1:9093", "--cluster.listen-address=", folder=path)
        cls.start("prometheus", "--config.file=prometheus.yml", "--storage.tsdb.path=data",
                  "--web.listen-address=127.0.0.1:9090", folder=path)
        for url in (ENGINE, MANAGER):
            wait_until(lambda url=url: cls.ask(url + "/-/ready") is not None, 4 * PATIENCE)

    @classmethod
    def start(cls, *command, folder):
        with open(folder / f"{command[0]}.log", "wb") as log:
            process = subprocess.Popen([*DIES_WITH_PARENT, *command], cwd=folder,
                                       stdout=log, stderr=log)
        cls.addClassCleanup(process.wait)
        cls.addClassCleanup(process.kill)

    @staticmethod
    def ask(url):
        try:
            with urllib.request.urlopen(url, timeout=PATIENCE) as answer:
                return answer.read()
        except OSError:
            return None

    def alerts(self):
        """The names of the alerts that the manager has, with their grippers."""
        answer = wait_until(lambda: self.ask(MANAGER + "/api/v2/alerts?active=true"))
        return {(alert["labels"]["alertname"], alert["labels"].get("gripper"))
                for alert in json.loads(answer)}

    def test_a_fault_fires_the_alert_and_its_end_resolves_it(self):
        alert = ("TavrikGripperFault", HVA)
        self.assertNotIn(alert, self.alerts())
        with self.condition("fault 0 fault on", "fault 0 fault off"):
            wait_until(lambda: alert in self.alerts(), 4 * PATIENCE)
        wait_until(lambda: alert not in self.alerts(), 8 * PATIENCE)


if __name__ == "__main__":
    main()
