"""tavrikweb: who may look, who may move a gripper, and requests that attack it."""

import contextlib
import json
import os
import re
import subprocess
import time

from .harness.cell import HVA, PATIENCE, SLOWNESS, wait_until
from .harness.cell_test_case import main
from .harness.web import (ASSETS, ORIGIN, PORT, Viewer, WebTestCase, compose, connect, get,
                          new_viewer, post, receive_all, request, send)

DISABLE = {"gripper": HVA, "command": "disable"}


class AttackTest(WebTestCase):
    """What another page in the user's browser, or its server, may try."""

    def expect_refusal(self, answer, reason):
        self.assertEqual(answer.status, 403)
        self.assertIn(reason, answer.text)
        self.web.log.wait_for(f"Request from 127.0.0.1: .*refused: .*{reason}")

    def test_a_foreign_host_is_refused(self):
        for host in ("evil.example", f"evil.example:{PORT}", "127.0.0.1", "127.0.0.1:80", "",
                     f"127.0.0.1:{PORT}.evil.example", f"localhost:{PORT}@evil.example"):
            for path in ("/", "/events", "/metrics"):
                self.expect_refusal(get(path, headers={"Host": host}), "unknown host")
            self.expect_refusal(post("/api/command", DISABLE, headers={"Host": host}),
                                "unknown host")

    def test_no_host_and_two_hosts_are_refused(self):
        self.assertIn(get("/", drop=("Host",)).status, (400, 403))
        two = f"GET / HTTP/1.1\r\nHost: 127.0.0.1:{PORT}\r\nHost: 127.0.0.1:{PORT}\r\n" \
              "Connection: close\r\n\r\n"
        self.assertIn(send(two.encode()).status, (400, 403))

    def test_a_foreign_origin_is_refused(self):
        for origin in ("http://evil.example", "null", "https://127.0.0.1:44280", ORIGIN + ".evil",
                       f"http://127.0.0.1:{PORT + 1}", ORIGIN + "/", ""):
            self.expect_refusal(post("/api/command", DISABLE, headers={"Origin": origin}),
                                "unknown origin")
            self.expect_refusal(get("/events", headers={"Origin": origin}), "unknown origin")

    def test_a_post_that_is_not_of_the_page_is_refused(self):
        self.expect_refusal(post("/api/command", DISABLE, drop=("Origin",)), "another page")
        self.expect_refusal(post("/api/command", DISABLE, drop=("X-Tavrik-Page",)),
                            "not sent by the page")
        for site in ("cross-site", "same-site"):
            self.expect_refusal(post("/api/command", DISABLE, headers={"Sec-Fetch-Site": site}),
                                "another page")

    def test_the_content_type_of_a_form_is_refused(self):
        for kind in ("text/plain", "application/x-www-form-urlencoded", "multipart/form-data",
                     "application/json; charset=utf-8", ""):
            self.expect_refusal(post("/api/command", DISABLE, headers={"Content-Type": kind}),
                                "content type")

    def test_a_page_elsewhere_may_link_here_but_load_nothing(self):
        link = {"Sec-Fetch-Site": "cross-site", "Sec-Fetch-Mode": "navigate"}
        self.assertEqual(get("/", headers=link).status, 200)
        for path in ("/events", "/main.js", "/metrics"):
            self.expect_refusal(get(path, headers=link), "another page")
        self.expect_refusal(get("/", headers=link | {"Sec-Fetch-Mode": "no-cors"}), "another page")

    def test_no_answer_allows_another_origin_or_a_frame(self):
        answers = [get("/"), get("/x"), get("/main.js"), post("/api/command", DISABLE),
                   get("/", headers={"Host": "x"}),
                   request("OPTIONS", "/api/command", headers={
                       "Origin": "http://evil.example", "Access-Control-Request-Method": "POST"})]
        for answer in answers:
            self.assertFalse([name for name in answer.headers if name.startswith("access-control")])
            policy = answer.headers["content-security-policy"]
            self.assertIn("default-src 'none'", policy)
            self.assertIn("frame-ancestors 'none'", policy)
            self.assertNotIn("unsafe", policy)
            self.assertEqual(answer.headers["x-frame-options"], "DENY")
        self.assertNotIn(answers[-1].status, (200, 204))

    def test_the_page_has_no_inline_script_or_style(self):
        page = get("/").text
        self.assertNotRegex(page, r"<script(?![^>]*\bsrc=)|\bon\w+=|style=|<style|javascript:")

    def test_other_methods_are_refused(self):
        for method in ("PUT", "DELETE", "TRACE", "CONNECT", "PATCH"):
            self.assertIn(request(method, "/").status, (400, 405), method)

    def test_what_is_too_long_is_refused(self):
        self.assertIn(get("/" + 20000 * "x").status, (413, 414, 431))
        self.assertIn(get("/", headers={"X": 20000 * "y"}).status, (413, 431))
        self.assertEqual(get("/", headers={f"X-{i}": "y" for i in range(60)}).status, 431)
        self.assertEqual(post("/api/findings", {"x": 70000 * "y"}).status, 413)
        self.assertEqual(get("/").status, 200)

    def test_a_body_that_is_not_an_object_is_refused(self):
        for body in (b"", b"[", b"[]", b"1", b"null", 30000 * b"[", b"\xff\xff", b'{"a":'):
            self.assertEqual(request("POST", "/api/command", body=body).status, 400, body[:20])

    def test_many_requests_are_limited_but_not_the_drive_off(self):
        token = self.take_control()
        statuses = [post("/api/control/keep", {}).status for _ in range(200)]
        self.assertIn(429, statuses)
        self.assertEqual(post("/api/command", DISABLE, token).status, 200)

    def test_a_request_in_pieces_and_nonsense_do_no_harm(self):
        for data in (b"\0" * 100, b"GET\r\n\r\n", b"GET / HTTP/9.9\r\n\r\n", b"\x16\x03\x01\x02\x00",
                     b"POST /api/command HTTP/1.1\r\nContent-Length: -1\r\n\r\n",
                     b"POST /api/command HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\nzz\r\n"):
            with connect() as connection:
                connection.sendall(data)
                connection.shutdown(1)
                receive_all(connection)
        self.assertEqual(get("/").status, 200)

    def test_forwarded_addresses_are_not_believed(self):
        token = self.take_control()
        forged = {"X-Forwarded-For": "10.1.2.3", "Forwarded": "for=10.1.2.3",
                  "X-Real-IP": "10.1.2.3"}
        mark = self.web.log.mark()
        self.assertEqual(post("/api/command", DISABLE, token, headers=forged).status, 200)
        line = self.web.log.wait_for("Command from", since=mark)
        self.assertRegex(line, rf"Command from 127.0.0.1 to '{HVA}': disable: done$")


class RateTest(WebTestCase):
    def statuses(self, path, count):
        """The statuses of requests that are sent together, and so exceed any rate limit."""
        requests = (count - 1) * compose("GET", path, drop=("Connection",)) + compose("GET", path)
        with connect() as connection:
            connection.sendall(requests)
            return [int(status) for status in
                    re.findall(rb"^HTTP/1.1 (\d+)", receive_all(connection), re.MULTILINE)]

    def expect_limit(self, path, served):
        statuses = self.statuses(path, 200)
        self.assertEqual(len(statuses), 200)
        self.assertEqual(set(statuses), {served, 429})
        self.assertEqual(statuses[0], served)

    def test_scrapes_are_limited(self):
        self.expect_limit("/metrics", 200)

    def test_streams_are_limited(self):
        with contextlib.ExitStack() as stack:
            for _ in range(16):
                new_viewer(stack)
            wait_until(lambda: get("/events").status == 503, pause=0.1)
            self.expect_limit("/events", 503)


class ControlTest(WebTestCase):
    def setUp(self):
        self.token = self.take_control()

    def test_without_control_nothing_moves(self):
        before = self.requests()
        for token in ("", "x", self.token[:-1], self.token + "0", self.token.upper() + "A"):
            for command in (DISABLE, {"gripper": HVA, "command": "grip", "set": 0}):
                answer = post("/api/command", command, token)
                self.assertEqual(answer.status, 403)
                self.assertIn("you do not have control", answer.text)
        self.assertEqual(self.requests(), before)

    def test_the_code_takes_control_from_another_and_everybody_sees_it(self):
        with Viewer() as viewer:
            first = viewer.wait_for("cell", lambda cell: cell["control"]["held"])["control"]
            self.assertEqual(first["by"], "127.0.0.1")
            second = self.take_control()
            control = viewer.wait_for("cell", lambda cell:
                                      cell["control"]["holder"] != first["holder"])["control"]
            self.assertTrue(control["held"])
            self.assertNotIn(second, str(control))
        self.assertEqual(post("/api/command", DISABLE, self.token).status, 403)
        self.assertEqual(post("/api/command", DISABLE, second).status, 200)

    def test_control_that_is_given_back_is_gone(self):
        with Viewer() as viewer:
            viewer.wait_for("cell", lambda cell: cell["control"]["held"])
            self.assertEqual(post("/api/control/release", {}, self.token).status, 200)
            viewer.wait_for("cell", lambda cell: not cell["control"]["held"])
        self.assertEqual(post("/api/command", DISABLE, self.token).status, 403)

    def test_every_command_is_logged(self):
        mark = self.web.log.mark()
        post("/api/command", {"gripper": HVA, "command": "set", "setting": "force", "number": 1,
                              "value": "77"}, self.token)
        line = self.web.log.wait_for("Command from", since=mark)
        self.assertRegex(line, r"^\d\d:\d\d:\d\d \d+ Command from 127.0.0.1 to 'HVA SN:100001': "
                               r"force of set 1 = 77: done$")


class WrongCodeTest(WebTestCase):
    def test_codes_cannot_be_guessed(self):
        code = self.web.code()
        self.assertRegex(code, r"^\d{8}$")
        for wrong in ("", code[:-1], code + "0", 12345678, None):
            answer = post("/api/control/take", {"code": wrong})
            self.assertEqual((answer.status, answer.json()["ok"]), (403, False))
        answer = post("/api/control/take", {"code": code})
        self.assertEqual(answer.status, 403)
        self.assertIn("wait a minute", answer.json()["text"])
        self.web.log.wait_for("Control from 127.0.0.1: too many wrong codes")
        self.assertNotIn(code, "".join(self.web.log.since(0)))


class ViewOnlyTest(WebTestCase):
    web_options = ()

    def test_control_is_off_unless_allowed(self):
        self.assertEqual(post("/api/control/take", {"code": "12345678"}).status, 403)
        self.web.log.wait_for("Control from 127.0.0.1: not allowed")
        self.assertEqual(post("/api/command", DISABLE).status, 403)
        with Viewer() as viewer:
            self.assertFalse(viewer.wait_for("cell")["control"]["allowed"])

    def test_there_is_no_code(self):
        result = subprocess.run([os.environ["TAVRIK_WEB"], "--code"], env=self.web.environment,
                                capture_output=True, text=True, timeout=PATIENCE)
        self.assertEqual((result.returncode, result.stdout), (9, ""))
        self.assertIn("no tavrikweb with --allow-control runs on port 44280", result.stderr)

    def test_it_listens_on_the_local_machine_only(self):
        with open("/proc/net/tcp", encoding="ascii") as table:
            listening = [line.split()[1] for line in table if line.split()[3] == "0A"]
        self.assertIn(f"0100007F:{PORT:04X}", listening)
        self.assertNotIn(f"00000000:{PORT:04X}", listening)
        with open("/proc/net/tcp6", encoding="ascii") as table:
            self.assertNotIn(f":{PORT:04X} ", table.read())


class NameTest(WebTestCase):
    """A gripper can give itself any name."""

    options = ("--gripper", "HVA,product=<img src=x onerror=alert(1)>")

    def test_a_name_with_markup_stays_a_text_of_json(self):
        device = self.call("GetGrippers")[0]
        self.assertIn("<img", device)
        with Viewer() as viewer:
            cell = viewer.wait_for("cell", lambda cell: cell["grippers"])
        self.assertEqual(cell["grippers"][0]["device"], device)
        token = self.take_control()
        self.assertTrue(post("/api/command", {"gripper": device, "command": "disable"},
                             token).json()["ok"])
        self.web.log.wait_for(re.escape(f"to '{device}': disable: done"))


class OptionsTest(WebTestCase):
    web_options = ("--origin", "https://cell.example")

    def test_a_named_origin_is_accepted(self):
        self.assertEqual(get("/", headers={"Host": "cell.example"}).status, 200)
        answer = post("/api/control/keep", {}, headers={"Host": "cell.example",
                                                        "Origin": "https://cell.example"})
        self.assertIn("you do not have control", answer.text)

    def test_invalid_options_are_refused(self):
        for options, text in ((("--listen", "x"), "ADDRESS:PORT"), (("--listen", ":1"), "ADDRESS:PORT"),
                              (("--listen", "127.0.0.1:99999"), "ADDRESS:PORT"),
                              (("--listen", "127.0.0.1:0"), "ADDRESS:PORT"),
                              (("--listen", "example:1", "--origin", "http://example:1"), "example:"),
                              (("--listen", f"127.0.0.1:{PORT}"), "in use"),
                              (("--listen", "192.0.2.1:80"), "--origin"),
                              (("--origin", "cell.example"), "invalid origin"),
                              (("--assets", "/nowhere"), "cannot read /nowhere/index.html"),
                              (("--jump",), "see tavrikweb --help")):
            assets = () if "--assets" in options else ASSETS
            result = subprocess.run([os.environ["TAVRIK_WEB"], *assets, *options], capture_output=True,
                                    text=True, timeout=PATIENCE)
            self.assertNotEqual(result.returncode, 0, options)
            self.assertRegex(result.stderr, r"\Atavrikweb: [^\n]+\n\Z")
            self.assertIn(text, result.stderr)

    def test_help_and_version(self):
        program = os.environ["TAVRIK_WEB"]
        for option, text in (("--help", "--allow-control"), ("--version", "tavrikweb 2.2.4")):
            self.assertIn(text, subprocess.run([program, option], check=True, capture_output=True,
                                               text=True, timeout=PATIENCE).stdout)


class StopTest(WebTestCase):
    def test_it_stops_at_once_with_a_viewer_and_a_request_that_waits(self):
        with self.condition("mute 0 on", "mute 0 off"), Viewer() as viewer, connect() as waiting:
            viewer.wait_for("values")
            body = json.dumps({"gripper": HVA}).encode()
            waiting.sendall(f"POST /api/settings HTTP/1.1\r\nHost: 127.0.0.1:{PORT}\r\n"
                            f"Origin: {ORIGIN}\r\nX-Tavrik-Page: 1\r\n"
                            "Content-Type: application/json\r\nConnection: close\r\n"
                            f"Content-Length: {len(body)}\r\n\r\n".encode() + body)
            requests = self.requests()
            wait_until(lambda: self.requests() != requests)
            start = time.monotonic()
            self.web.stop()
            self.assertLess(time.monotonic() - start, 5 * SLOWNESS)
            receive_all(waiting)
            receive_all(viewer.connection)


class StopOfDiagnosisTest(WebTestCase):
    options = 8 * ("--gripper", "HVA")

    def test_it_does_not_wait_for_the_doctor(self):
        for number in range(8):
            self.cell.command(f"mute {number} on")  # the doctor waits a second for each
        with connect() as waiting:
            requests = self.cell.show(0)["requests"]
            waiting.sendall(compose("POST", "/api/findings", body=b"{}"))
            wait_until(lambda: self.cell.show(0)["requests"] != requests)  # nobody else asks
            start = time.monotonic()
            self.web.stop()
            self.assertLess(time.monotonic() - start, 4 * SLOWNESS)


if __name__ == "__main__":
    main()
