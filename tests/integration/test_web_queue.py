"""tavrikweb: commands that wait for a master that does not answer, and what overtakes them."""

import contextlib
import json
import threading
import time

from .harness.cell import HVA, MZD, SLOWNESS, wait_until
from .harness.cell_test_case import main
from .harness.web import Answer, WebTestCase, compose, connect, get, post, receive_all


class QueueTest(WebTestCase):
    def setUp(self):
        self.code = self.web.code()
        self.token = self.take_control()
        for device in (HVA, MZD):
            answer = post("/api/command", {"gripper": device, "command": "reference"}, self.token)
            self.assertTrue(answer.json()["ok"], answer.text)

    @contextlib.contextmanager
    def waiting(self, *devices, command="grip"):
        """Has the server take a command for each device, without awaiting the answers."""
        with contextlib.ExitStack() as stack:
            connections = []
            for device in devices:
                connections.append(stack.enter_context(connect()))
                body = json.dumps({"gripper": device, "command": command, "set": 0}).encode()
                connections[-1].sendall(compose("POST", "/api/command", body=body,
                                                headers={"X-Tavrik-Control": self.token}))
            get("/x")  # served after them
            yield connections

    def texts(self, connections):
        return [Answer(receive_all(connection)).json()["text"] for connection in connections]

    def test_drive_off_waits_for_no_motion_and_drops_those_of_its_gripper(self):
        mark = self.cell.log.mark()
        with self.condition("mute 0 on", "mute 0 off"), \
                self.waiting(HVA, HVA, HVA, HVA, MZD) as connections:
            self.cell.log.wait_for("New command PDOUT", since=mark)  # HVA's first grip is sent
            start = time.monotonic()
            other = post("/api/command", {"gripper": MZD, "command": "disable"}, self.token)
            self.assertLess(time.monotonic() - start, 1 * SLOWNESS)
            self.assertEqual(other.json()["text"], "disable: done")
            post("/api/command", {"gripper": HVA, "command": "disable"}, self.token)
            texts = self.texts(connections)
        self.assertRegex(texts[0], "^grip, set 0: .*; drive off again: ")
        self.assertEqual(texts[1:], 4 * ["grip, set 0: not sent: the drive was switched off"])

    def test_drive_off_does_not_wait_for_another_silent_master(self):
        mark = self.web.log.mark()
        with self.condition("mute 0 on", "mute 0 off"), \
                self.waiting(HVA, HVA, command="disable") as connections:
            answer = post("/api/command", {"gripper": MZD, "command": "disable"}, self.token)
            self.assertTrue(answer.json()["ok"])
            self.texts(connections)
        lines = self.web.log.matching("Command from .*: disable", since=mark)
        self.assertEqual([HVA in line for line in lines], [False, True, True], lines)

    def test_many_drive_offs_of_a_silent_master_leave_room_for_another(self):
        with self.condition("mute 0 on", "mute 0 off"), \
                self.waiting(*40 * [HVA], command="disable") as connections:
            answer = post("/api/command", {"gripper": MZD, "command": "disable"}, self.token)
            self.assertEqual(answer.json()["text"], "disable: done")
            texts = self.texts(connections)
        self.assertEqual(len(texts), 40)
        for text in texts:
            self.assertRegex(text, "^disable: .* did not answer within 1 s")

    def test_waiting_commands_are_refused_when_control_is_lost(self):
        with self.condition("mute 0 on", "mute 0 off"), \
                self.waiting(HVA, HVA, HVA, MZD) as connections:
            self.assertEqual(post("/api/control/take", {"code": self.code}).status, 200)
            texts = self.texts(connections)
        self.assertEqual(texts[1:], 3 * ["grip, set 0: you no longer have control"])

    def test_a_restore_ends_with_control(self):
        saved = wait_until(lambda: post("/api/settings", {"gripper": HVA}).json().get("file"))
        self.assertEqual(self.call("SetForce", HVA, 5, 17), 0)
        before = self.requests()
        results = []
        restore = threading.Thread(target=lambda: results.append(post(
            "/api/settings/restore", {"gripper": HVA, "file": saved, "name": "x"}, self.token)))
        restore.start()
        wait_until(lambda: self.requests() != before)  # it reads first
        post("/api/control/release", {}, self.token)
        restore.join()
        self.assertEqual(results[0].json(),
                         {"ok": False, "text": "you no longer have control"})
        self.assertEqual(self.call("GetForce", HVA, 5), 17)


if __name__ == "__main__":
    main()
