"""tavrikctl call, and servers that answer wrongly, slowly or not at all."""

import json
import socket
import threading
import time

from .harness import ctl
from .harness.cell import PORTS, SLOWNESS
from .harness.cell_test_case import main
from .harness.ctl import (BAD_ANSWER, NOT_POSSIBLE, NO_DAEMON, NO_GRIPPER, NO_PROCESS_DATA,
                          REFUSED, USAGE)
from .harness.ctl_test_case import (GRIPPER, HVA, NO_GRIPPERS, CtlTestCase, http_server,
                                    raw_server, xml_answer)
from .harness.methods import METHODS


class CallTest(CtlTestCase):
    options = ("--gripper", "MZD-S")
    DEVICE = "MZD-S SN:100001"

    def test_every_method_is_called_with_its_types(self):
        words = {bool: "on", int: "3", float: "1.5"}
        values = {bool: True, int: 3, float: 1.5}
        for method in METHODS:
            with self.subTest(method=method.name):
                rest = method.parameters[1:]
                device = [self.DEVICE] if method.takes_device() else []
                if method.name == "UpdatePDIN":
                    self.assertEqual(self.json("call", "UpdatePDIN", self.DEVICE), 3)
                    continue
                answer = self.json("call", method.name, *device, *(words[kind] for kind in rest))
                expected = self.call(method.name, *device, *(values[kind] for kind in rest))
                if method.name not in ("GetState", "GetPDINExcerpt", "GetPos"):  # it may move
                    self.assertEqual((type(answer), answer), (type(expected), expected))

    def test_the_methods_of_the_library(self):
        self.assertEqual(self.json("call", "system.listMethods"),
                         self.cell.client().system.listMethods())
        self.assertEqual(self.json("call", "system.methodExist", "Grip"), True)
        self.assertEqual(self.json("call", "system.methodHelp", "Grip"), "")
        self.assertEqual(self.json("call", "system.methodSignature", "Grip"),
                         [["int", "struct", "int"]])
        self.assertEqual(self.json("call", "system.capabilities")["facility"], "xmlrpc-c")
        self.assertEqual(self.json("call", "system.getCapabilities"),
                         self.cell.client().system.getCapabilities())
        calls = [{"methodName": "GetState", "params": ["nobody"]}]
        self.assertEqual(self.json("call", "system.multicall", json.dumps(calls)), [[-1]])
        self.expect_failure(BAD_ANSWER, "system.shutdown: fault 0, This server program is not "
                            "capable of shutting down", "call", "system.shutdown", "now")

    def test_every_method_of_the_daemon_is_in_the_help(self):
        text = self.ctl("call", "--help")
        for name in self.cell.client().system.listMethods():
            self.assertRegex(text, rf"\b{name}\b")

    def test_a_status_is_in_words(self):
        self.assertEqual(self.ctl("call", "Grip", "mzd", 1), "0: done\n")
        with self.condition("error 0 44 PDOUT", "error 0 off"):
            self.expect_failure(REFUSED, "Grip: status 44: error code of the gripper's master",
                                "call", "Grip", "mzd", 1)
            result = ctl.run("call", "Grip", "mzd", 1, "--json")
            self.assertEqual((result.returncode, result.stdout), (REFUSED, "44\n"))

    def test_text_is_printed_plainly_and_in_json_with_quotes(self):
        version = self.call("GetVersion")
        self.assertEqual(self.ctl("call", "GetVersion"), version + "\n")
        self.assertEqual(self.json("call", "GetVersion"), version)

    def test_the_gripper_is_found_by_a_part_unless_exact(self):
        self.assertEqual(self.json("call", "GetGripperInterface", "mzd"), 0)
        self.assertEqual(self.json("call", "GetGripperInterface", "mzd", "--exact"), -1)
        self.assertEqual(self.json("call", "GetGripperInterface", "---"), -2)
        self.expect_failure(NO_GRIPPER, "no gripper matches 'nobody'",
                            "call", "GetPos", "nobody")
        self.expect_failure(NOT_POSSIBLE, "status 3: not plugged in",
                            "call", "Grip", "nobody", 0, "--exact")

    def test_invalid_calls(self):
        for text, arguments in (
                ("unknown method 'grip'", ("call", "grip")),
                ("wrong number of arguments, usage: call Grip GRIPPER INTEGER",
                 ("call", "Grip", "mzd")),
                ("wrong number of arguments, usage: call GetVersion", ("call", "GetVersion", 1)),
                ("unexpected argument '4'", ("call", "Grip", 1, 2, 3, 4)),
                ("'on' is not an integer", ("call", "Grip", "mzd", "on")),
                ("'1,5' is not a number", ("call", "SetNoPartLimit", "mzd", 0, "1,5")),
                ("'inf' is not a number", ("call", "SetNoPartLimit", "mzd", 0, "inf")),
                ("'?' is not UTF-8", ("call", "GetPos", "\udcff", "--exact")),
                ("'x' is not a JSON array", ("call", "system.multicall", "x")),
                ("': nested too deeply", ("call", "system.multicall", 20000 * "[" + 20000 * "]"))):
            with self.subTest(arguments=arguments):
                self.expect_failure(USAGE, text, *arguments)


class ServerTest(CtlTestCase):
    options = ("--gripper", "HVA")

    def test_both_ports_serve(self):
        for port in PORTS:
            self.assertIn(HVA, self.ctl("--port", port, "list"))
            self.assertIn(HVA, self.ctl("list", "--host", "localhost", "--port", port))

    def test_no_program_listens(self):
        with socket.create_server(("127.0.0.1", 0)) as server:
            port = server.getsockname()[1]
        self.expect_failure(NO_DAEMON, f"127.0.0.1:{port} cannot be reached: Connection refused",
                            "list", "--port", port)

    def test_a_server_that_never_answers_is_given_up_in_time(self):
        with socket.create_server(("127.0.0.1", 0)) as server:
            port = server.getsockname()[1]
            for command in (["list"], ["grip"], ["get", "force"], ["call", "GetVersion"]):
                with self.subTest(command=command):
                    start = time.monotonic()
                    self.expect_failure(NO_DAEMON, "did not answer within 0.2 s",
                                        *command, "--port", port, "--timeout", 0.2)
                    took = time.monotonic() - start
                    self.assertGreaterEqual(took, 0.2)
                    self.assertLess(took, 2 * SLOWNESS)

    def test_a_server_that_answers_too_slowly_is_given_up_in_time(self):
        """The timeout covers the whole reply, not each byte."""
        with socket.create_server(("127.0.0.1", 0)) as server:
            dripping = threading.Thread(target=drip, args=(server,))
            dripping.start()
            self.expect_failure(NO_DAEMON, "did not answer within 0.5 s",
                                "list", "--port", server.getsockname()[1], "--timeout", 0.5)
            dripping.join()

    def test_a_server_that_is_not_a_daemon(self):
        for status, body, text in (
                (404, b"", "is not a TavrikDaemon: HTTP status 404"),
                (200, b"hello", "GetGrippers: the reply is not XML-RPC"),
                (200, xml_answer("<int>1</int>"), "GetGrippers: the reply has an unexpected type"),
                (200, b" " * 2000000, "is not a TavrikDaemon: the reply is too long")):
            with self.subTest(text=text), http_server(status, body) as port:
                self.expect_failure(BAD_ANSWER, text, "list", "--port", port)

    def test_a_server_that_disconnects_or_speaks_another_protocol(self):
        for answer, status, text in (
                (b"", NO_DAEMON, "did not answer: Server returned nothing"),
                (b"HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nabc", NO_DAEMON,
                 "did not answer: Transferred a partial file"),
                (b"SSH-2.0-Server\r\n", BAD_ANSWER, "is not a TavrikDaemon: the reply is not HTTP"),
                (b"HTTP/1.1 200 OK\r\nX: " + 200000 * b"x", BAD_ANSWER,
                 "is not a TavrikDaemon: the reply is too long")):
            with self.subTest(answer=answer[:40]), raw_server(answer) as port:
                self.expect_failure(status, f"127.0.0.1:{port} {text}", "list", "--port", port)

    def test_answers_of_other_types(self):
        values = {"GetGrippers": GRIPPER, "GetForce": "text", "GetNoPartLimit": "<int>1</int>",
                  "GetReferenceDirection": "<int>1</int>", "GetParameterChecksum": "text",
                  "Grip": "text"}
        with http_server(200, values) as port:
            for command in (["get", "force"], ["get", "no-part-limit"], ["grip"],
                            ["get", "reference-direction"], ["get", "checksum"]):
                with self.subTest(command=command):
                    self.expect_failure(BAD_ANSWER, "the reply has an unexpected type",
                                        *command, "--port", port)

    def test_a_gripper_that_goes_while_it_is_listed_is_left_out(self):
        values = {"GetGrippers": iter((GRIPPER, NO_GRIPPERS)), "GetPDINExcerpt": "<int>0</int>",
                  "GetState": "<int>-1</int>"}
        with http_server(200, values) as port:
            self.assertEqual(self.json("list", "--port", port), [])

    def test_a_gripper_is_still_there_after_its_list_was_locked(self):
        values = {"GetGrippers": GRIPPER, "GetState": "<int>-1</int>",
                  "GetPDINExcerpt": iter(("<int>0</int>", "<int>65537</int>", "<int>65537</int>"))}
        with http_server(200, values) as port:
            row, = self.json("list", "--passive", "--port", port)
            self.assertEqual((row["gripper"], row["state"]), ("X", 1))

    def test_the_advice_names_the_host(self):
        with http_server(200, {"GetGrippers": NO_GRIPPERS}) as port:
            self.expect_failure(NO_GRIPPER, "run 'tavrikctl doctor --host localhost'", "grip",
                                "--host", "localhost", "--port", port)

    def test_zeros_that_may_be_missing_process_data_are_a_failure(self):
        values = {"GetGrippers": GRIPPER, "Grip": "<int>0</int>", "GetPDINExcerpt": "<int>0</int>",
                  "GetState": "<int>0</int>", "GetPos": "<double>0</double>",
                  "GetOverrideGrip": "<int>0</int>"}
        with http_server(200, values) as port:
            self.expect_failure(NO_PROCESS_DATA,
                                "X: no process data, or at rest at 0.00 in state 0",
                                "grip", "--wait", "--port", port)

    def test_a_malicious_reply_neither_crashes_nor_blocks_it(self):
        entities = (b'<!DOCTYPE x [<!ENTITY a "aaaaaaaaaa">' +
                    b"".join(b'<!ENTITY %c "%s">' % (98 + level, b"&%c;" % (97 + level) * 50)
                             for level in range(8)) +
                    b"]>" + xml_answer("&i;"))
        for body, text in ((xml_answer("<i8>x</i8>"), "the reply is not XML-RPC"),
                           (entities, "the reply may declare XML entities"),
                           (entities.decode().encode("utf-16"),
                            "the reply may declare XML entities")):
            with self.subTest(text=text), http_server(200, body) as port:
                self.expect_failure(BAD_ANSWER, text, "call", "GetVersion", "--port", port)

    def test_host_names_and_addresses(self):
        self.expect_failure(NO_DAEMON, "[::1]:1 cannot be reached", "list", "--host", "::1",
                            "--port", 1)
        self.expect_failure(NO_DAEMON, "nobody.invalid:44221 cannot be reached: "
                            "Couldn't resolve host name", "list", "--host", "nobody.invalid")
        for host in ("", "a b", "a/b", "user@localhost", "localhost?", "localhost:44222"):
            self.expect_failure(USAGE, f"invalid host name '{host}'", "list", "--host", host)

    def test_a_fault_is_one_line(self):
        fault = (b"<methodResponse><fault><value><struct><member><name>faultCode</name><value>"
                 b"<int>-501</int></value></member><member><name>faultString</name><value><string>"
                 b"two\nlines\x7f</string></value></member></struct></value></fault>"
                 b"</methodResponse>")
        with http_server(200, fault) as port:
            self.expect_failure(BAD_ANSWER, "GetVersion: fault -501, two?lines?",
                                "call", "GetVersion", "--port", port)

    def test_proxies_of_the_environment_are_ignored(self):
        dead = "http://127.0.0.1:9/"
        self.assertIn(HVA, self.ctl("list", environment={"http_proxy": dead, "ALL_PROXY": dead}))

    def test_a_daemon_without_grippers_is_not_a_failure(self):
        with http_server(200, xml_answer(NO_GRIPPERS)) as port:
            self.assertEqual(self.ctl("list", "--port", port),
                             "No grippers found; run 'tavrikctl doctor' to find out why.\n")


def drip(server):
    """Sends a reply byte by byte until the client disconnects."""
    connection, _ = server.accept()
    with connection:
        try:
            for byte in b"HTTP/1.1 200 OK\r\n" + b"x" * 1000:
                connection.sendall(bytes([byte]))
                time.sleep(0.05)
        except OSError:
            pass


if __name__ == "__main__":
    main()
