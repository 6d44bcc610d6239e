"""tavrikweb: what viewers get, what it asks of the daemon, and faults of both."""

import contextlib
import http.server
import os
import pathlib
import socket
import subprocess
import tempfile
import threading
import time
import unittest
import xmlrpc.client

from .harness import own_network
from .harness.cell import HVA, MZD, PATIENCE, PORTS, SLOWNESS, wait_until
from .harness.cell_test_case import main
from .harness.web import PORT, Viewer, Web, WebTestCase, connect, get, new_viewer, post, receive_all

MOST_VIEWERS = 16


def listed(count):
    """Whether a cell event lists so many grippers."""
    return lambda cell: cell["reachable"] and sum(
        gripper["copies"] for gripper in cell["grippers"]) == count


class ViewerTest(WebTestCase):
    def test_the_page_and_its_files_are_served(self):
        for path, kind in (("/", "text/html"), ("/main.js", "text/javascript"),
                           ("/style.css", "text/css"), ("/dygraph.js", "text/javascript")):
            answer = get(path)
            self.assertEqual(answer.status, 200, path)
            self.assertTrue(answer.headers["content-type"].startswith(kind), path)
            self.assertTrue(answer.body, path)

    def test_other_paths_are_not_found(self):
        for path in ("/x", "/../main.js", "/%2e%2e/etc/passwd", "//etc/passwd", "/page/main.js"):
            self.assertEqual(get(path).status, 404, path)

    def test_values_come_ten_times_a_second(self):
        with Viewer() as viewer:
            viewer.wait_for("cell", listed(2))
            viewer.wait_for("values")
            start = time.monotonic()
            for _ in range(20):
                values = viewer.wait_for("values")
            self.assertLess(time.monotonic() - start, 3 * SLOWNESS)
            self.assertGreater(time.monotonic() - start, 1.5)
        position, state, flags, age, motions = values["rows"][0]
        self.assertLess(age, 1000 * SLOWNESS)
        self.assertEqual((state, flags), (self.call("GetState", HVA), 0))
        self.assertEqual(position, self.call("GetPos", HVA))
        self.assertIsInstance(motions, int)

    def test_a_motion_is_seen_and_counted(self):
        token = self.take_control()
        with Viewer() as viewer:
            before = viewer.wait_for("values")["rows"][0][4]
            answer = post("/api/command", {"gripper": HVA, "command": "reference"}, token)
            self.assertEqual(answer.json(), {"ok": True, "text": "reference: started"})
            viewer.wait_for("values", lambda values: values["rows"][0][1] == 8)
            answer = post("/api/command", {"gripper": HVA, "command": "grip", "set": 0}, token)
            self.assertEqual(answer.json()["text"], "grip, set 0: started")
            row = viewer.wait_for("values", lambda values: values["rows"][0][1] == 7)["rows"][0]
            self.assertGreater(row[4], before)
            cell = viewer.wait_for("cell", lambda cell: cell["grippers"][0]["session"]["calls"] > 1)
            self.assertGreater(cell["grippers"][0]["session"]["slowest"], 0)

    def test_settings_are_read_changed_and_confirmed(self):
        token = self.take_control()
        answer = post("/api/command", {"gripper": HVA, "command": "set", "setting": "force",
                                       "number": 3, "value": "61"}, token)
        self.assertEqual(answer.json(), {"ok": True, "text": "force of set 3 = 61: done"})
        self.assertEqual(self.call("GetForce", HVA, 3), 61)
        settings = post("/api/settings", {"gripper": HVA}).json()["settings"]
        columns = [column["setting"] for column in settings["sets"]["columns"]]
        self.assertEqual(columns, ["force", "no-part-limit", "release-limit"])
        self.assertEqual(len(settings["sets"]["rows"]), 32)
        self.assertEqual(settings["sets"]["rows"][3][0], "61")
        own = dict(zip((column["setting"] for column in settings["gripper"]["columns"]),
                       settings["gripper"]["rows"][0]))
        self.assertEqual(own["reference-direction"], "off")
        self.assertEqual(own["checksum"], str(self.call("GetParameterChecksum", HVA)))
        self.assertFalse(settings["gripper"]["columns"][-1]["canSet"])
        self.assertEqual(settings["leds"]["rows"], [])

    def test_leds_are_among_the_settings_of_models_that_have_them(self):
        settings = post("/api/settings", {"gripper": MZD}).json()["settings"]
        self.assertEqual(len(settings["leds"]["rows"]), 128)
        columns = [column["setting"] for column in settings["leds"]["columns"]]
        self.assertEqual(columns, ["led-animation", "led-color", "led-speed"])
        self.assertIn("led-preset", [column["setting"] for column in settings["gripper"]["columns"]])

    def test_files_are_those_of_the_command_line(self):
        with tempfile.TemporaryDirectory() as folder:
            path = pathlib.Path(folder, "hva.json")
            subprocess.run([os.environ["TAVRIK_CTL"], "settings", "save", path, HVA], check=True,
                           capture_output=True, timeout=PATIENCE)
            saved = path.read_text()
        self.assertEqual(post("/api/settings", {"gripper": HVA}).json()["file"], saved)
        question = {"gripper": HVA, "file": saved, "name": "hva.json"}
        self.assertEqual(post("/api/settings/compare", question).json()["differences"], [])
        answer = post("/api/settings/compare", question | {"gripper": MZD}).json()
        self.assertIn("hva.json has the settings of a 'HVA'", answer["text"])
        answer = post("/api/settings/compare", question | {"file": "[]"})
        self.assertEqual((answer.status, answer.json()["text"]),
                         (400, "hva.json: not a JSON object"))

    def test_a_file_is_restored_with_control_only(self):
        saved = post("/api/settings", {"gripper": HVA}).json()["file"]
        force = self.call("GetForce", HVA, 5)
        self.assertEqual(self.call("SetForce", HVA, 5, 17), 0)
        question = {"gripper": HVA, "file": saved, "name": "hva.json"}
        self.assertEqual(post("/api/settings/restore", question).status, 403)
        self.assertEqual(self.call("GetForce", HVA, 5), 17)
        answer = post("/api/settings/restore", question, self.take_control()).json()
        self.assertEqual((answer["ok"], answer["differences"]), (True, []))
        self.assertEqual(self.call("GetForce", HVA, 5), force)
        self.web.log.wait_for(f"Command from 127.0.0.1 to '{HVA}': restore force of set 5 = {force}: "
                              "written")

    def test_what_the_model_refuses_is_told_in_words(self):
        token = self.take_control()
        answer = post("/api/command", {"gripper": HVA, "command": "set", "setting": "led-color",
                                       "number": 0, "value": "1"}, token).json()
        self.assertFalse(answer["ok"])
        self.assertIn("not supported by its model", answer["text"])

    def test_invalid_commands_are_refused(self):
        token = self.take_control()
        for body, text in (({}, "'gripper'"), ({"gripper": HVA}, "'command'"),
                           ({"gripper": HVA, "command": "jump"}, "'command'"),
                           ({"gripper": HVA, "command": "grip"}, "'set'"),
                           ({"gripper": HVA, "command": "grip", "set": 32}, "'set'"),
                           ({"gripper": HVA, "command": "grip", "set": 1e99}, "'set'"),
                           ({"gripper": HVA, "command": "holdfast", "on": 1}, "'on'"),
                           ({"gripper": HVA, "command": "set", "setting": "force", "number": 0,
                             "value": "256"}, "0 to 255")):
            answer = post("/api/command", body, token)
            self.assertEqual(answer.status, 400, body)
            self.assertIn(text, answer.json()["text"])

    def test_an_unknown_gripper_is_refused(self):
        for command, text in ((dict(command="grip", set=0), "no gripper matches 'HVA'"),
                              (dict(command="disable"), "not plugged in")):
            answer = post("/api/command", {"gripper": "HVA", **command}, self.take_control()).json()
            self.assertFalse(answer["ok"])
            self.assertIn(text, answer["text"])
        answer = post("/api/settings", {"gripper": "HVA"}).json()
        self.assertIn("no gripper matches 'HVA'", answer["text"])

    def test_a_gripper_that_is_unplugged_is_shown_in_two_seconds_and_comes_back(self):
        with Viewer() as viewer:
            viewer.wait_for("cell", listed(2))
            start = time.monotonic()
            with self.condition("unplug 1", "plug 1"):
                cell = viewer.wait_for("cell", listed(1))
                self.assertLess(time.monotonic() - start, 2 * SLOWNESS)
                copies = {gripper["device"]: gripper["copies"] for gripper in cell["grippers"]}
                self.assertEqual(copies, {HVA: 1, MZD: 0})
                values = viewer.wait_for("values", lambda values: values["list"] == cell["list"])
                self.assertIsNone(values["rows"][1])
            viewer.wait_for("cell", listed(2))
            viewer.wait_for("values", lambda values: all(values["rows"]))

    def test_the_data_of_a_silent_master_is_old_until_it_answers_again(self):
        def ages(hva, mzd):
            return lambda values: all(values["rows"]) and [
                row[3] > 1000 for row in values["rows"]] == [hva, mzd]
        with Viewer() as viewer:
            for fault in ("mute", "silent"):
                viewer.wait_for("values", ages(False, False))
                start = time.monotonic()
                with self.condition(f"{fault} 1 on", f"{fault} 1 off"):
                    first = viewer.wait_for("values", ages(False, True))["rows"][1][3]
                    self.assertLess(time.monotonic() - start, 4 * SLOWNESS)
                    later = viewer.wait_for("values", lambda values: values["rows"][1] and
                                            values["rows"][1][3] > first + 500)
                    self.assertLess(later["rows"][0][3], 1000 * SLOWNESS)

    def test_a_silent_master_delays_no_viewer_and_no_drive_off(self):
        token = self.take_control()
        with self.condition("mute 1 on", "mute 1 off"), Viewer() as viewer:
            viewer.wait_for("values")
            results = []
            reading = threading.Thread(target=lambda: results.append(
                post("/api/settings", {"gripper": MZD}).json()))
            reading.start()
            for _ in range(10):
                start = time.monotonic()
                viewer.wait_for("values")
                self.assertLess(time.monotonic() - start, 1 * SLOWNESS)
            start = time.monotonic()
            post("/api/command", {"gripper": HVA, "command": "disable"}, token)
            self.assertLess(time.monotonic() - start, 1 * SLOWNESS)
            reading.join()
            self.assertFalse(results[0]["ok"])

    def test_the_doctor_reports(self):
        answer = post("/api/findings", {}).json()
        self.assertIn("port 44221", [finding["subject"] for finding in answer["findings"]])


class ManyConnectionsTest(WebTestCase):
    def test_the_seventeenth_viewer_gets_a_clear_answer_beside_idle_connections(self):
        with contextlib.ExitStack() as stack:
            for i in range(200):
                connection = stack.enter_context(connect())
                connection.sendall(b"GET / HTTP/1.1\r\nX: "[:i % 20])
            viewers = [new_viewer(stack) for _ in range(MOST_VIEWERS)]
            with Viewer() as one_more:
                self.assertEqual(one_more.status(), 503)
                self.assertIn(b"16 browsers are connected", receive_all(one_more.connection) or
                              one_more.data)
            for viewer in viewers:
                viewer.wait_for("values")
        wait_until(lambda: self.viewers() == 1)

    def viewers(self):
        with contextlib.ExitStack() as stack:
            viewer = new_viewer(stack)
            return viewer.wait_for("cell", lambda cell: cell["viewers"])["viewers"]

    def test_a_viewer_that_stalls_is_dropped_and_costs_the_others_nothing(self):
        stalled = socket.socket()
        stalled.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 2048)
        with contextlib.closing(stalled), Viewer() as viewer:
            stalled.connect(("127.0.0.1", PORT))
            stalled.sendall(f"GET /events HTTP/1.1\r\nHost: 127.0.0.1:{PORT}\r\n\r\n".encode())
            viewer.wait_for("cell", lambda cell: cell["viewers"] == 2)
            longest = 0.0
            last = time.monotonic()
            deadline = last + 4 * PATIENCE
            for kind, content in viewer.events():
                now = time.monotonic()
                longest, last = max(longest, now - last), now
                if kind == "cell" and content["viewers"] == 1:
                    break
                self.assertLess(now, deadline, "the stalled viewer is still there")
            self.assertLess(longest, 1 * SLOWNESS)

    def test_a_slow_request_is_ended(self):
        with connect() as connection:
            connection.sendall(b"GET / HTTP/1.1\r\n")
            start = time.monotonic()
            receive_all(connection)
            self.assertLess(time.monotonic() - start, 14 * SLOWNESS)


class RestartTest(WebTestCase):
    def test_a_daemon_that_restarts_is_shown_in_two_seconds_and_comes_back(self):
        with Viewer() as viewer:
            viewer.wait_for("cell", listed(2))
            self.cell.stop()
            start = time.monotonic()
            cell = viewer.wait_for("cell", lambda cell: not cell["reachable"])
            self.assertLess(time.monotonic() - start, 2 * SLOWNESS)
            self.assertIn("127.0.0.1:44222", cell["error"])
            self.start_cell_again()
            viewer.wait_for("cell", listed(2))
            viewer.wait_for("values", lambda values: all(values["rows"]))


class Counter(http.server.BaseHTTPRequestHandler):
    """A daemon that counts what it is asked."""

    protocol_version = "HTTP/1.1"
    devices = [HVA, MZD]
    readings = 0
    questions = 0  # to masters
    calls = 0
    connections = 0

    def setup(self):
        super().setup()
        Counter.connections += 1

    def answer(self, method, parameters):
        if method == "system.multicall":
            Counter.readings += len(parameters[0])
            return [[self.answer(call["methodName"], call["params"])] for call in parameters[0]]
        Counter.questions += method == "GetOverrideGrip"
        return {"GetGrippers": Counter.devices, "GetVersion": "2.2.4 (fake)",
                "GetPDINExcerpt": 0x0802e8, "GetState": 8, "GetOverrideGrip": 100}[method]

    def do_POST(self):
        Counter.calls += 1
        body = self.rfile.read(int(self.headers["Content-Length"]))
        parameters, method = xmlrpc.client.loads(body)
        answer = xmlrpc.client.dumps((self.answer(method, parameters),), methodresponse=True)
        self.send_response(200)
        self.send_header("Content-Length", str(len(answer)))
        self.end_headers()
        self.wfile.write(answer.encode())

    def log_message(self, *_):
        pass


@unittest.skipUnless(own_network.is_own(), "the fake daemon needs the real one's port")
class CounterTestCase(unittest.TestCase):
    """What the daemon is asked, counted by a fake daemon."""

    devices = [HVA, MZD]

    @classmethod
    def setUpClass(cls):
        Counter.devices = cls.devices
        Counter.connections = Counter.questions = 0
        server = http.server.ThreadingHTTPServer(("127.0.0.1", PORTS[1]), Counter)
        server.daemon_threads = True
        thread = threading.Thread(target=server.serve_forever)
        thread.start()
        cls.addClassCleanup(thread.join)
        cls.addClassCleanup(server.server_close)
        cls.addClassCleanup(server.shutdown)
        web = Web()
        cls.addClassCleanup(web.stop)


class PollerTest(CounterTestCase):
    def test_all_viewers_cost_twenty_readings_a_second_and_two_connections(self):
        with contextlib.ExitStack() as stack:
            for _ in range(MOST_VIEWERS):
                viewer = new_viewer(stack)
            viewer.wait_for("values")
            before, start = (Counter.readings, Counter.questions), time.monotonic()
            for _ in range(30):
                viewer.wait_for("values")
            seconds = time.monotonic() - start
            readings, questions = ((now - then) / seconds / 2 for now, then in
                                   zip((Counter.readings, Counter.questions), before))
        self.assertLessEqual(readings, 18)
        self.assertGreater(readings, 5)
        self.assertLessEqual(questions, 2)
        self.assertGreater(questions, 0)
        self.assertEqual(Counter.connections, 2)  # the second one for what masters are asked

    def test_nothing_is_read_without_viewers(self):
        with contextlib.ExitStack() as stack:
            new_viewer(stack).wait_for("values")

        def is_still():
            calls = Counter.calls
            time.sleep(0.5)  # five periods
            return Counter.calls == calls
        wait_until(is_still)
        calls = Counter.calls
        time.sleep(1)
        self.assertEqual(Counter.calls, calls)
        with contextlib.ExitStack() as stack:
            new_viewer(stack).wait_for("values")
        self.assertGreater(Counter.calls, calls)


class ManyMastersTest(CounterTestCase):
    devices = [f"HVA SN:{number}" for number in range(8)]

    def test_up_to_four_masters_are_polled_a_second(self):
        with contextlib.ExitStack() as stack:
            viewer = new_viewer(stack)
            viewer.wait_for("values", lambda _: Counter.questions)
            before, start = Counter.questions, time.monotonic()
            for _ in range(40):
                viewer.wait_for("values")
            rate = (Counter.questions - before) / (time.monotonic() - start)
        self.assertGreater(rate, 2.5 / SLOWNESS)
        self.assertLess(rate, 4.5)


if __name__ == "__main__":
    main()
