"""Computers for the tests with a real corvane-hub: homes with the real tools, and a private server between them."""

import ctypes
import http.client
import http.server
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time
import unittest
import uuid

TESTS = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..")
SEAL_ORACLE = os.path.join(TESTS, "pelto", "seal", "seal_oracle.py")
sys.path.insert(0, os.path.join(TESTS, "crash"))

from homes import FIRST, Home, Tools, leaf, preloadable, root_with, taken_lines, write  # noqa: E402

# What is interrupted at some points is interrupted at all of them.
EVERYWHERE = "CORVANE_EVERYWHERE" in os.environ
ALONE = "Bookmarks were synced on this computer alone, not with the online service: "
PR_SET_PDEATHSIG = 1


class Service:
    """A corvane-hub with data of its own, which ends with this process."""

    def __init__(self, program):
        self.program = program
        self.directory = tempfile.mkdtemp(prefix="corvane-hub-")
        self.port = 0
        self.start()

    def _configuration(self):
        path = os.path.join(self.directory, "configuration")
        with open(path, "w", encoding="utf-8") as file:
            file.write(f"data = {self.directory}/data\nlisten = 127.0.0.1:{self.port}\n")
        return path

    def start(self):
        """At the port that it had before, if it had one. Returns when it serves."""
        log = os.path.join(self.directory, "log")
        with open(log, "w", encoding="utf-8") as output:
            self.process = subprocess.Popen(
                [self.program, "--config", self._configuration(), "serve"], stdin=subprocess.DEVNULL, stdout=output,
                stderr=output, preexec_fn=lambda: ctypes.CDLL(None).prctl(PR_SET_PDEATHSIG, signal.SIGKILL))
        said = ""
        while "serves" not in said:
            if self.process.poll() is not None:
                raise RuntimeError(f"corvane-hub does not run: {said}")
            time.sleep(0.01)
            with open(log, encoding="utf-8") as file:
                said = file.read()
        self.port = int(said.split("listens at 127.0.0.1:")[1].split()[0])

    def kill(self):
        self.process.kill()
        self.process.wait(timeout=120)

    def end(self):
        self.kill()
        shutil.rmtree(self.directory)

    def account(self, *arguments):
        """What "corvane-hub account" prints."""
        return subprocess.run([self.program, "--config", self._configuration(), "account", *arguments], check=True,
                              stdout=subprocess.PIPE, text=True, timeout=120).stdout.strip()

    def data(self, account):
        return os.path.join(self.directory, "data", "accounts", account)

    def commits(self, account):
        """The names of the commits that an account has."""
        objects = os.path.join(self.data(account), "objects")
        return sorted(name for folder in os.listdir(objects) if folder.endswith(".c")
                      for name in os.listdir(os.path.join(objects, folder)))


class Relay:
    """Stands before the server and counts requests. At one of them, and at all that follow, it can cut the connection, keep
    silent or answer rubbish."""

    def __init__(self, service):
        self.service = service
        self._lock = threading.Lock()
        self.pass_on()
        relay = self

        class Handler(http.server.BaseHTTPRequestHandler):
            protocol_version = "HTTP/1.1"

            def do_GET(self):
                relay.handle(self)

            do_PUT = do_DELETE = do_GET

            def log_message(self, *_):
                pass

        class Server(http.server.ThreadingHTTPServer):
            def handle_error(self, *_):
                pass  # the client has gone

        self._server = Server(("127.0.0.1", 0), Handler)
        self.port = self._server.server_address[1]
        threading.Thread(target=self._server.serve_forever, daemon=True).start()

    def pass_on(self):
        """Restarts the count; everything is passed on."""
        with self._lock:
            self.requests = 0
            self._from, self._what = 0, None
            self._passing = threading.Event()

    def stop_at(self, request, what):
        """What becomes of that request, counted from 1, and of those that follow until `pass_on`: "before" cuts before the server
        sees it and "after" once the server has carried it out, which holds for the first one alone, "silence" answers
        nothing, and "rubbish" something that is no answer."""
        self.let_go()
        with self._lock:
            self._from, self._what = request, what

    def let_go(self):
        """Ends the silence of those that wait."""
        self._passing.set()
        self.pass_on()

    def end(self):
        self.let_go()
        self._server.shutdown()
        self._server.server_close()

    def _number(self):
        with self._lock:
            self.requests += 1
            what = self._what if self._from and self.requests >= self._from else None
            if what == "after" and self.requests > self._from:
                what = "before"
            return what, self._passing

    def handle(self, handler):
        body = handler.rfile.read(int(handler.headers.get("Content-Length", 0)))
        what, passing = self._number()
        if what == "silence":
            passing.wait(timeout=300)
        if what in ("before", "silence"):
            handler.close_connection = True
            return
        status, headers, answer = (200, {}, b"<html>Welcome</html>") if what == "rubbish" else self._ask(handler, body)
        if what == "after":
            handler.close_connection = True
            return
        handler.send_response_only(status)
        for name, value in headers.items():
            if name.lower() not in ("transfer-encoding", "connection", "content-length"):
                handler.send_header(name, value)
        if status not in (204, 304):
            handler.send_header("Content-Length", str(len(answer)))
        handler.end_headers()
        handler.wfile.write(answer)

    def _ask(self, handler, body):
        server = http.client.HTTPConnection("127.0.0.1", self.service.port, timeout=300)
        try:
            server.request(handler.command, handler.path, body or None, dict(handler.headers))
            answer = server.getresponse()
            return answer.status, dict(answer.getheaders()), answer.read()
        finally:
            server.close()


class Computer(Home):
    """A home whose runs write to a system log of their own."""

    def __init__(self, tools, path, log_library):
        super().__init__(tools, path)
        self.log = path + ".log"
        self.environment.update(LD_PRELOAD=log_library, CORVANE_TEST_SYSLOG=self.log)

    def lines(self):
        """What was logged since this was asked last."""
        return taken_lines(self.log)

    def run(self, *arguments):
        """The tool's exit status."""
        return subprocess.run([self.tools.tool, *arguments], env=self.environment, stdin=subprocess.DEVNULL,
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, timeout=300).returncode

    def account(self, *arguments, answers=""):
        """Runs "loomerctl account" with what it asks for; what it prints."""
        done = subprocess.run([self.tools.control, "account", *arguments], env=self.environment, input=answers,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, timeout=300)
        if done.returncode != 0:
            raise RuntimeError(f"account {arguments[0]}: {done.stderr}")
        return done.stdout

    def children(self):
        return self.root(FIRST)["Children"]

    def edit(self, change):
        """Has the browser change the list of what stands in the root."""
        root = self.root(FIRST)
        change(root["Children"])
        write(self.bookmarks(FIRST), root)

    def add(self, title):
        self.edit(lambda children: children.append(leaf(title)))

    def titles(self):
        found = []

        def collect(entries):
            for each in entries:
                found.append(each["Title"] if "Title" in each else each["URIDictionary"]["title"])
                collect(each.get("Children", []))

        collect(self.children())
        return found


class HubTest(unittest.TestCase):
    """An account of its own for each test, at the one server of the program."""

    programs = None
    log_library = None
    service = None
    accounts = 0

    def setUp(self):
        self.directory = tempfile.mkdtemp(prefix="corvane-computers-")
        self.addCleanup(shutil.rmtree, self.directory)
        self.computers = []
        self.tokens = []
        HubTest.accounts += 1
        self.name = f"user{HubTest.accounts}"
        self.service.account("add", self.name)
        self.found_account(self.service.port)

    def found_account(self, port):
        """All computers join alike: `account set` would try the server for half a minute."""
        self.invitation = subprocess.run(
            [sys.executable, SEAL_ORACLE, "line", os.urandom(32).hex(), str(uuid.uuid4()), "1",
             f"hub://127.0.0.1:{port}?tls=no"], check=True, stdout=subprocess.PIPE, text=True, timeout=120).stdout

    def computer(self, children=(), switched_on=True):
        number = len(self.computers)
        path = os.path.join(self.directory, f"computer{number}")
        computer = Computer(Tools(self.programs), path, self.log_library).make()
        write(computer.bookmarks(FIRST), root_with(list(children)))
        self.tokens.append(self.service.account("token", self.name, f"computer{number}"))
        computer.account("join", answers=self.invitation + self.tokens[number] + "\n")
        if switched_on:
            self.assertEqual(computer.run("--register"), 0, computer.lines())
        self.computers.append(computer)
        return computer

    def commits(self):
        return self.service.commits(self.name)

    def sync_alone(self, computer):
        """A session whose exchange does not succeed: it ends well, and one line says why."""
        status, output = computer.sync(FIRST)
        lines = computer.lines()
        self.assertEqual(status, 0, (output, lines))
        self.assertEqual(len(lines), 1, lines)
        self.assertTrue(lines[0].startswith(ALONE), lines)
        return lines[0]

    def sync(self, computer):
        computer.must_sync(FIRST)
        self.assertEqual(computer.lines(), [])

    def settle(self, rounds=2):
        """All computers hold one tree, and nothing moves any more."""
        for _ in range(rounds):
            for computer in self.computers:
                self.sync(computer)
        first = self.computers[0]
        for computer in self.computers:
            self.assertEqual(computer.shared_tree(FIRST), first.shared_tree(FIRST))
            computer.must_be_sound()

    def require_quiet(self):
        before = self.commits(), [computer.tree(FIRST) for computer in self.computers]
        for computer in self.computers:
            self.sync(computer)
        self.assertEqual((self.commits(), [computer.tree(FIRST) for computer in self.computers]), before)

    def require_once(self, *titles):
        for title in titles:
            self.assertEqual(self.computers[0].titles().count(title), 1, title)


class GivingAndTaking(HubTest):
    """Two computers, of which the first has something to give and something to take in each session."""

    def start(self):
        self.first = self.computer([leaf("Common"), leaf("Also common")])
        self.second = self.computer()
        self.settle()
        self.turn = 0
        self.titles = ["Also common"]

    def make_edits(self):
        """Something to be taken and something to be given: additions, a change, a move on either side."""
        self.turn += 1
        self.titles += [f"{side} {self.turn}" for side in ("Given", "Taken")]
        self.second.edit(lambda children: children.insert(0, leaf(f"Taken {self.turn}")))
        self.sync(self.second)

        def change(children):
            children.append(children.pop(0))
            common = children[[entry["URLString"] for entry in children].index("https://common.example.com/")]
            common["URIDictionary"]["title"] = f"Common {self.turn}"
            children.append(leaf(f"Given {self.turn}"))

        self.first.edit(change)

    def require_agreement(self):
        """One session of each is enough where the first one's exchange was interrupted."""
        for computer in self.computers:
            self.sync(computer)
        self.assertEqual(self.first.shared_tree(FIRST), self.second.shared_tree(FIRST))
        self.require_once(*self.titles, f"Common {self.turn}")
        self.assertEqual(len(self.first.titles()), len(self.titles) + 1)


def main():
    HubTest.programs, HubTest.log_library = os.path.abspath(sys.argv.pop(1)), preloadable(sys.argv.pop(1))
    HubTest.service = Service(os.path.join(HubTest.programs, "corvane-hub"))
    try:
        program = unittest.main(verbosity=1, exit=False)
    finally:
        HubTest.service.end()
    sys.exit(0 if program.result.wasSuccessful() else 1)
