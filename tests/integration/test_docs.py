"""The documentation: its examples, its lists and its links are as the system is."""

import contextlib
import doctest
import json
import os
import pathlib
import re
import socket
import subprocess
import tempfile
import unittest
import xmlrpc.client

from . import test_examples
from .harness import ctl, machine_test_case
from .harness.cell import PATIENCE, PORTS, SLOWNESS, wait_until
from .harness.cell_test_case import CellTestCase, main
from .harness.methods import METHODS
from .harness.pages import (CODE_SPAN, FENCE, METHODS_PAGE, OPERATION, PAGES, README, ROOT,
                            PageTestCase, blocks, section)


class MethodsPageTest(PageTestCase):
    # A section is about one method or several, such as a setter and its getter.
    HEADING = re.compile(r"^### ((?:\w+, )*\w+)$", re.MULTILINE)
    # A row is about the methods that its first column links to.
    ROW = re.compile(r"^\| (\[.+\)) \| (.+) \| (.+) \| (.+) \| (.+) \|$", re.MULTILINE)
    LINK = re.compile(r"\[(\w+)\]\(#([a-z-]+)\)")

    @classmethod
    def sections(cls):
        """The name and the section of every method that has one."""
        return [(name, section(METHODS_PAGE, f"### {heading}"))
                for heading in cls.HEADING.findall(METHODS_PAGE.read_text())
                for name in heading.split(", ")]

    def test_the_examples_are_true(self):
        self.play(METHODS_PAGE)

    def test_every_registered_method_has_its_section_and_no_other(self):
        registered = [name for name in self.call("system.listMethods")
                      if not name.startswith("system.")]
        self.assertCountEqual([name for name, _ in self.sections()], registered)

    def test_every_section_has_an_example_of_its_method(self):
        for name, text in self.sections():
            examples = [example for match in FENCE.finditer(text) if match[2] == "python"
                        for example in doctest.DocTestParser().get_examples(match[3])]
            with self.subTest(method=name):
                self.assertTrue(any(f"gripper.{name}(" in example.source and example.want
                                    for example in examples))

    def test_every_method_has_a_row_with_parameters_answer_failure_value_and_models(self):
        types = {str: "string", int: "int", float: "double", bool: "boolean"}
        models = {"": "all", "HVA": "HVA, MZD", "MZD": "MZD"}
        rows = [(name, link, *texts)
                for names, *texts in self.ROW.findall(METHODS_PAGE.read_text())
                for name, link in self.LINK.findall(names)]
        self.assertCountEqual([row[0] for row in rows], [method.name for method in METHODS])
        facts = {name: texts for name, *texts in rows}
        for method in METHODS:
            link, parameters, _, failure, accepted_by = facts[method.name]
            with self.subTest(method=method.name):
                self.assertIn(method.name.lower(), link.split("-"))
                self.assertEqual(re.findall(r"` (\w+)", parameters),
                                 [types[kind] for kind in method.parameters])
                if method.parameters:
                    self.assertRegex(failure, f"^{str(method.fallback).lower()}\\b")
                    self.assertEqual(accepted_by, models[method.check])


class RefusedRequestsTest(CellTestCase):
    """docs/methods.md: each row of the table of refused requests is sent and gets its answer."""

    BODY = xmlrpc.client.dumps((), "GetVersion").encode()
    LENGTH = f"Content-Length: {len(BODY)}"
    HOST = "Host: 127.0.0.1"
    POST = "POST /RPC2 HTTP/1.1"

    @staticmethod
    def request(line, *headers, body=BODY):
        return "\r\n".join((line, *headers, "", "")).encode() + body

    @classmethod
    def requests(cls):
        """What the first column says, as bytes."""
        post = cls.POST
        good = cls.request(post, cls.HOST, cls.LENGTH)
        return {
            "A header line without a blank after the colon":
                [cls.request(post, cls.HOST, cls.LENGTH.replace(" ", "")),
                 cls.request(post, cls.HOST.replace(" ", ""), cls.LENGTH)],
            "A header line with a blank before the colon":
                [cls.request(post, cls.LENGTH.replace(":", " :"))],
            "A blank after the number of `Content-Length`": [cls.request(post, cls.LENGTH + " ")],
            "A `Host` line with a port that is not a number": [cls.request(post, "Host: h:x", cls.LENGTH)],
            "No `Content-Length`": [cls.request(post, cls.HOST)],
            "A chunked body":
                [cls.request(post, cls.HOST, "Transfer-Encoding: chunked",
                             body=b"%x\r\n%s\r\n0\r\n\r\n" % (len(cls.BODY), cls.BODY))],
            "A `Content-Length` that is too large":
                [cls.request(post, f"Content-Length: {len(cls.BODY) + 1}")],
            "A `Content-Length` that is too small":
                [cls.request(post, f"Content-Length: {len(cls.BODY) - 5}")],
            "A header line of more than 4 KiB":
                [cls.request(post, "X: " + 5000 * "y", cls.LENGTH)],
            "A body of more than 512 KiB":
                [cls.request(post, f"Content-Length: {512 * 1024 + 1}", body=cls.BODY)],
            "A path other than `/RPC2`, such as `/`, `/rpc2` or `/RPC2/`":
                [good.replace(b"/RPC2", path) for path in (b"/", b"/rpc2", b"/RPC2/")],
            "`GET`, as a browser does, or another method than `POST`":
                [good.replace(b"POST", method) for method in (b"GET", b"PUT")],
            "HTTP/2, or no version in the request line":
                [good.replace(b"HTTP/1.1", b"HTTP/2.0"), good.replace(b" HTTP/1.1", b"")],
            "A second request together with the first one": [good + good],
        }

    @staticmethod
    def answer(connection, is_all=lambda answer: False):
        """What the daemon says until it hangs up or `is_all`; a reset may follow a refusal."""
        answer = b""
        with contextlib.suppress(ConnectionError):
            while not is_all(answer) and (part := connection.recv(65536)):
                answer += part
        return answer

    def test_every_row_is_true(self):
        rows = re.findall(r"^\| (.+?) \| (.+?) \|$",
                          section(METHODS_PAGE, "### Refused requests"), re.MULTILINE)
        table = dict(rows[1:])  # without the header
        requests = self.requests()
        self.assertEqual(list(table), list(requests))
        # All at once, because one of them takes 15 s; more than 15 would wait for each other.
        with contextlib.ExitStack() as connections:
            asked = []
            for row, datas in requests.items():
                for data in datas:
                    port = PORTS[len(asked) % len(PORTS)]
                    connection = connections.enter_context(socket.create_connection(
                        ("127.0.0.1", port), timeout=30 * SLOWNESS))
                    connection.sendall(data)
                    asked.append((row, connection))
            for row, connection in asked:
                with self.subTest(row=row):
                    self.expect(table[row], connection)

    def expect(self, text, connection):
        if status := re.match(r"\d+", text):
            self.assertEqual(self.answer(connection).split()[:2],
                             [b"HTTP/1.1", status[0].encode()])
        elif fault := re.fullmatch(r"a fault, (-\d+)", text):
            self.assertIn(f"<i4>{fault[1]}</i4>".encode(),
                          self.answer(connection, lambda answer: b"</methodResponse>" in answer))
        else:
            self.assertEqual(text, "one answer; the second request is lost")
            connection.shutdown(socket.SHUT_WR)
            self.assertEqual(self.answer(connection).count(b"HTTP/1.1 200 OK"), 1)


class SymptomsTest(CellTestCase):
    """docs/operation.md: two ways in which a gripper stays unusable, with what the log says."""

    options = ("--gripper", "HVA", "--unplugged", "0")
    HVA = "HVA SN:100001"

    def setUp(self):
        self.mark = self.cell.log.mark()
        self.addCleanup(self.wait_until_unplugged)

    def wait_until_unplugged(self):
        mark = self.cell.log.mark()
        self.cell.command("unplug 0")
        self.cell.log.wait_for("PELLIX removed", since=mark)

    def expect_signature(self, symptom):
        """The log has what the row about `symptom` quotes, in its order."""
        row, = re.findall(rf"^\| [^|]*{re.escape(symptom)}[^|]* \| (.+?) \|",
                          section(OPERATION, "## Trouble by symptom"), re.MULTILINE)
        quoted = [text for text in CODE_SPAN.findall(row.partition(", and no ")[0])
                  if not text.isdigit()]
        self.assertGreater(len(quoted), 1)
        position = self.mark
        for text in quoted:
            self.cell.log.wait_for(re.escape(text), since=position)
            position += next(index for index, line in enumerate(self.cell.log.since(position))
                             if text in line) + 1

    def expect_recovery(self):
        """After the next plug, the gripper operates."""
        self.wait_until_unplugged()
        mark = self.cell.log.mark()
        self.cell.command("plug 0")
        self.cell.wait_until_operating(1, since=mark)
        self.assertEqual(self.call("Grip", self.HVA, 0), 0)

    def test_the_data_link_restarts_before_operate_is_answered(self):
        with self.condition("mute 0 on OPERATE", "mute 0 off"):
            self.cell.command("plug 0")
            self.cell.log.wait_for("New command OPERATE", since=self.mark)
            for mode in (1, 2, 3):
                self.cell.command(f"mode 0 {mode}")
            self.expect_signature("`Device string is empty (but device connected)`")
        self.assertEqual(self.call("GetGrippers"), [])
        self.cell.log.wait_for(re.escape("Device string is empty (but device connected)"),
                               since=self.mark)
        self.assertEqual(len(self.cell.log.matching(r"\d PREOPERATE$", since=self.mark)), 1)
        self.expect_recovery()

    def test_operate_is_refused_once(self):
        with self.condition("error 0 6 OPERATE", "error 0 off"):
            self.cell.command("plug 0")
            self.expect_signature("Motions answer 21 or a code such as 6")
        self.assertEqual(self.call("GetGrippers"), [self.HVA])
        self.assertIn(self.call("Grip", self.HVA, 0), (6, 21))
        self.assertEqual(self.call("SetForce", self.HVA, 0, 40), 0)
        self.assertEqual(self.cell.log.matching("Setting device mode to 4", since=self.mark), [])
        self.expect_recovery()


class ReadmeTest(PageTestCase):
    STAMPED = re.compile(r"((Daemon|Library) (revision|build date): ).*")

    def messages(self, lines):
        return {self.STAMPED.sub(r"\1", line.split(" ", 2)[2]) for line in lines}

    def test_the_session_is_true(self):
        self.play(README)
        logged = self.messages(self.cell.log.since(0))
        for page in (README, OPERATION):
            for _, text, line in blocks(page, "log"):
                lines = [line for line in text.splitlines() if line != "..."]
                with self.subTest(page=page.name, line=line):
                    self.assertLessEqual(self.messages(lines), logged)


class LogLinesTest(unittest.TestCase):
    """Every text that the sources can log is explained, and none that they cannot."""

    LITERAL = re.compile(r'"((?:[^"\\]|\\.)*)"')
    STATEMENT = re.compile(r"LogLine\(\) <<(.*?);", re.DOTALL)
    # Texts for standard error, and what is appended to them.
    ERRORS = (("WriteError(", ""), ("fputs(", ""), ("perror(", ": .+"), ("kText = ", ".+"))

    @classmethod
    def setUpClass(cls):
        sources = [path for folder in ("common", "daemon", "pellix")
                   for path in sorted((ROOT / folder).rglob("*")) if path.suffix in (".h", ".cpp")
                   and path.stem != "LogLine"]
        cls.sources = {path: path.read_text() for path in sources}
        rows = re.findall(r"^\| (`.*?`) \|", section(OPERATION, "## Log lines"), re.MULTILINE)
        cls.explained = [text for row in rows for text in CODE_SPAN.findall(row)]

    @classmethod
    def patterns(cls):
        """A regular expression for each text in the sources, without blanks at its front."""
        return {re.sub(r"^(\\ )+", "", pattern) for pattern in cls.whole_patterns()}

    @classmethod
    def whole_patterns(cls):
        for text in cls.sources.values():
            for statement in cls.STATEMENT.findall(text):
                yield cls.pattern(statement)
            for call, appended in cls.ERRORS:
                for literal in re.findall(re.escape(call) + cls.LITERAL.pattern, text):
                    yield re.escape(literal.removesuffix(r"\n")) + appended

    @classmethod
    def pattern(cls, statement):
        """Literals as they are, anything for values."""
        parts = [cls.LITERAL.fullmatch(part.strip()) for part in statement.split("<<")]
        return "".join(re.escape(part[1]) if part else ".+" for part in parts)

    def test_every_text_of_the_sources_is_explained(self):
        patterns = self.patterns()
        self.assertGreater(len(patterns), 80)
        for pattern in sorted(patterns):
            with self.subTest(text=pattern):
                self.assertTrue(any(re.fullmatch(pattern, text) for text in self.explained))

    def test_every_explained_text_is_in_the_sources(self):
        patterns = self.patterns()
        for text in self.explained:
            with self.subTest(text=text):
                self.assertTrue(any(re.fullmatch(pattern, text) for pattern in patterns))

    def test_tavrikctl_log_classifies_every_text_of_the_sources(self):
        texts = {re.sub(r"\\(.)", r"\1", pattern.replace(".+", "7"))
                 for pattern in self.whole_patterns()}
        with tempfile.NamedTemporaryFile("w") as log:
            log.writelines(f"12:00:00 1 {text}\n" for text in sorted(texts))
            log.flush()
            output = ctl.run("log", "--verbose", "--json", log.name, check=True).stdout
        *rows, _ = map(json.loads, output.splitlines())  # the last is the summary
        shown = {row["text"].lstrip() for row in rows if row["kind"] not in ("other", "call")}
        self.assertEqual({text.lstrip() for text in texts} - shown, set())

    def test_no_text_is_explained_twice(self):
        self.assertCountEqual(self.explained, set(self.explained))

    def test_lines_are_logged_in_no_other_way(self):
        for path, text in self.sources.items():
            rest = re.sub(r'#include "common/LogLine.h"|LogLine\(\) <<', "", text)
            with self.subTest(path=path):
                self.assertNotRegex(rest, r"\b(LogLine|cout|cerr|printf)\b")


class ShellCommandsTest(CellTestCase):
    """Every command of the pages is run here, by CI or another test, or has its reason not to be."""

    options = ("--gripper", "HVA")

    RUN_HERE = (
        "python3 -c 'import xmlrpc.client; "
        'print(xmlrpc.client.ServerProxy("http://127.0.0.1:44221/RPC2").GetVersion())\'',
        "python3 -c 'import xmlrpc.client; "
        'print(xmlrpc.client.ServerProxy("http://127.0.0.1:44221/RPC2").GetGrippers())\'',
        "build/release/simulator/pellix-sim --help",
        'grep SigIgn "/proc/$(pidof TavrikDaemon)/status"',
    )
    STOP = 'kill -INT "$(pidof TavrikDaemon)"'
    RUN_BY_CI = ("scripts/test", "scripts/demo --tour", "scripts/test asan", "scripts/test tsan",
                 "scripts/coverage", "scripts/memcheck", "scripts/lint", "scripts/fuzz 30",
                 "scripts/bench --quick", "scripts/soak 2", "scripts/soak --web 1",
                 "scripts/package", "scripts/test-package", "scripts/test-usb")
    RUN_NOWHERE = {
        "scripts/bench": "a quarter of an hour; its quick form is run by CI",
        "scripts/bench --publish": "changes the page that has the command",
        "scripts/demo": "serves until Ctrl-C; test_demo.py types what it prints",
        "scripts/demo --web": "serves until Ctrl-C; test_demo.py runs it",
        "ssh -L 44280:127.0.0.1:44280 user@cell": "needs another machine",
        "cmake --preset release && cmake --build --preset release": "scripts/demo does it",
        "cmake --preset release -D TAVRIK_CORVANE_VENDOR_ID=31249": "only configures",
        "build/release/daemon/TavrikDaemon": "the tour runs it in its cell",
        "build/release/simulator/pellix-sim --gripper MZD-L --gripper TLM -- "
        "build/release/daemon/TavrikDaemon": "serves until Ctrl-C; every test of this folder",
        "build/release/simulator/pellix-sim --replay tests/data/fallback.rec -- "
        "build/release/daemon/TavrikDaemon": "serves until Ctrl-C; test_recording.py plays it",
        "ctest --preset dev -R 'integration.clients$'": "starts other tests, as ctest did with this one",
        "build/dev/tests/fuzz/fuzz-lists tests/fuzz/corpus/lists/empty-list":
            "the test fuzz.lists runs it on the whole folder",
        "ls -l /dev/ttyACM0": "needs a master at the host",
        "fuser -v /dev/ttyACM0": "needs a master at the host",
        "udevadm trigger --action=add --subsystem-match=tty": "needs udevd",
        "ss -tanp '( sport = :44221 or sport = :44222 )'": "a tool that need not be installed",
    }

    @classmethod
    def stop_cell(cls, cell):
        cell.end_by_force()  # it has been stopped by a command of the pages

    def test_commands(self):
        listed = {*self.RUN_HERE, self.STOP, *self.RUN_BY_CI, *machine_test_case.PAGE,
                  *test_examples.PAGE, *self.RUN_NOWHERE}
        self.assertEqual({line for page in PAGES for _, text, _ in blocks(page, "sh")
                          for line in text.splitlines()}, listed)
        ci = [line.strip().removeprefix("run ")
              for line in (ROOT / ".ci" / "run").read_text().splitlines()]
        for command in self.RUN_BY_CI:
            self.assertIn(command, ci)
        for command in self.RUN_HERE:
            with self.subTest(command=command):
                self.assertTrue(self.output_of(command))
        self.output_of(self.STOP)
        self.cell.expect_normal_end()

    def output_of(self, command):
        """Runs a command as it stands on the page, but with this build and this daemon."""
        build = pathlib.Path(os.environ["TAVRIK_DAEMON"]).parents[1]
        command = command.replace("$(pidof TavrikDaemon)", str(self.cell.daemon_pid()))
        command = command.replace("build/release", str(build))
        return subprocess.run(["sh", "-c", command], check=True, stdout=subprocess.PIPE,
                              timeout=20).stdout


class SimulatorPageTest(unittest.TestCase):
    """docs/simulator.md: its two sessions."""

    PROGRAMS = os.pathsep.join(str(pathlib.Path(os.environ[name]).parent)
                               for name in ("TAVRIK_SIMULATOR", "TAVRIK_DAEMON"))

    def setUp(self):
        self.folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        self.by_hand, self.in_a_cell = (text.removeprefix("$ ") for _, text, _ in
                                        blocks(ROOT / "docs" / "simulator.md", "console"))

    @contextlib.contextmanager
    def running(self, command):
        with subprocess.Popen(["sh", "-c", f"PATH={self.PROGRAMS}:$PATH; exec {command}"],
                              cwd=self.folder, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, text=True) as process:
            try:
                yield process
            finally:
                process.kill()

    def test_a_master_is_spoken_to_by_hand(self):
        command, quote, expected = self.by_hand.rpartition("'\n")
        with self.running(command + quote) as process:
            self.assertEqual(process.communicate(timeout=PATIENCE)[0], expected)

    def test_the_daemon_is_in_a_cell(self):
        command, *lines = self.in_a_cell.splitlines()
        expected = [line for line in lines if re.match("pellix-sim: |TavrikDaemon::", line)]
        typed = [line for line in lines if line not in expected]
        self.assertEqual((len(expected), typed[-1]), (9, "int"))
        log = self.folder / "log"
        with self.running(command) as process:
            wait_until(lambda: log.exists() and "TavrikDaemon started\n" in log.read_text())
            output, _ = process.communicate("\n".join(typed) + "\n", timeout=PATIENCE)
        self.assertCountEqual(output.splitlines(), expected)  # two programs write at the end


class ManualPageTest(unittest.TestCase):
    """The manuals explain the options and commands that the programs name themselves."""

    @staticmethod
    def items(page):
        """The options and the words that have an explanation of their own."""
        text = (ROOT / "docs" / "man" / page).read_text()
        items = "".join(re.findall(r"^\.It .*\n", text, re.MULTILINE))
        options = {f"-{option}" for option in re.findall(r"Fl (-[a-z-]+)", text)}
        return options, set(re.findall(r"(?:^\.It|,) Cm ([a-z-]+)", items, re.MULTILINE))

    @staticmethod
    def output(program, *arguments):
        run = subprocess.run([os.environ[program], *arguments], check=True,
                             stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        return run.stdout

    def test_the_simulator_is_explained(self):
        with tempfile.NamedTemporaryFile("w") as script:
            script.write("help\n")
            script.flush()
            commands = self.output("TAVRIK_SIMULATOR", "--script", script.name, "--", "true")
        options, words = self.items("pellix-sim.1")
        self.assertEqual(set(re.findall(r"--[a-z-]+", self.output("TAVRIK_SIMULATOR", "--help"))),
                         options)
        self.assertEqual(set(re.findall(r"^pellix-sim:   ([a-z-]+)", commands, re.MULTILINE)),
                         words)

    def test_the_client_is_explained(self):
        help_text = self.output("TAVRIK_CTL", "--help")
        commands = set(re.findall(r"^  ([a-z]+) ", help_text.partition("Subcommands:")[2],
                                  re.MULTILINE))
        details = {command: self.output("TAVRIK_CTL", command, "--help") for command in commands}
        ranges = dict(re.findall(r"^  ([a-z-]+) +(\S.*?)  ", details["get"].partition("Settings")[2],
                                 re.MULTILINE))
        self.assertTrue(ranges)
        page = (ROOT / "docs" / "man" / "tavrikctl.1").read_text().replace(r"\-", "-")
        for setting, values in ranges.items():
            self.assertIn(f".It Cm {setting}\n{values};\n", page)
        options = set(re.findall(r"--[a-z-]+", help_text + "".join(details.values())))
        explained_options, explained_words = self.items("tavrikctl.1")
        self.assertEqual(options - explained_options, set())
        self.assertEqual((commands | ranges.keys()) - explained_words, set())


class DesignPageTest(unittest.TestCase):
    """docs/design.md: its table of what is kept on purpose."""

    TABLE = section(ROOT / "docs" / "design.md", "## Kept on purpose")

    def test_the_tests_that_it_names_exist(self):
        tests = {f"{suite}.{name}" for path in (ROOT / "tests" / "unit").rglob("*.cpp")
                 for suite, name in re.findall(r"^TEST(?:_[FP])?\((\w+), (\w+)\)",
                                               path.read_text(), re.MULTILINE)}
        named = set(re.findall(r"`(\w+Test\.\w+)`", self.TABLE))
        self.assertGreater(len(named), 20)
        self.assertEqual(named - tests, set())

    def test_every_file_with_such_a_comment_has_a_row(self):
        files = {path.stem for folder in ("daemon", "pellix") for path in (ROOT / folder).rglob("*.*")
                 if path.suffix in (".h", ".cpp") and "on purpose" in path.read_text().lower()}
        self.assertEqual(files - set(re.findall(r"`(\w+)`", self.TABLE)), set())


class LinksTest(unittest.TestCase):
    @staticmethod
    def anchors(page):
        text = FENCE.sub("", page.read_text())
        return {re.sub(r"[^\w -]", "", heading.lower()).replace(" ", "-")
                for heading in re.findall(r"^#+ (.*)$", text, re.MULTILINE)}

    def test_links_lead_somewhere(self):
        for page in PAGES:
            text = CODE_SPAN.sub("", FENCE.sub("", page.read_text()))
            links = re.findall(r"\]\(([^)]+)\)", text)
            for link in links:
                path, _, anchor = link.partition("#")
                target = page.parent / path if path else page
                with self.subTest(page=page.name, link=link):
                    self.assertTrue(target.exists())
                    if anchor:
                        self.assertIn(anchor, self.anchors(target))


if __name__ == "__main__":
    main()
