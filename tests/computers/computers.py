"""Computers for the tests with a real online service: homes with the real tools, and a private server between them."""

import os
import shutil
import subprocess
import sys
import tempfile
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "crash"))

from homes import FIRST, Home, Tools, leaf, root_with, write  # noqa: E402

# What is interrupted at some points is interrupted at all of them.
EVERYWHERE = "CORVANE_EVERYWHERE" in os.environ
ALONE = "Bookmarks were synced on this computer alone, not with the online service: "


def preloadable(path):
    """The library by a name of this process's: in LD_PRELOAD a name ends at a blank or a colon, and a path may hold both."""
    return f"/proc/{os.getpid()}/fd/{os.open(path, os.O_RDONLY)}"


class Service:
    """The private server, and the relay before it, in a process of their own."""

    def __init__(self, program):
        self.process = subprocess.Popen([program], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        self._answer("start")

    def ask(self, *words):
        self.process.stdin.write("\t".join(map(str, words)) + "\n")
        self.process.stdin.flush()
        return self._answer(*words)

    def _answer(self, *words):
        outcome, _, text = self.process.stdout.readline().rstrip("\n").partition("\t")
        if outcome != "ok":
            raise RuntimeError(f"{words}: {text}")
        return text.strip()

    def end(self):
        self.process.stdin.close()
        self.process.stdout.close()
        self.process.wait(timeout=120)


class Computer(Home):
    """A home whose runs write to a system log of their own."""

    def __init__(self, tools, path, log_library):
        super().__init__(tools, path)
        self.log = path + ".log"
        self.environment.update(LD_PRELOAD=log_library, CORVANE_TEST_SYSLOG=self.log)

    def lines(self):
        """What was logged since this was asked last."""
        if not os.path.exists(self.log):
            return []
        with open(self.log, encoding="utf-8") as file:
            found = file.read().splitlines()
        os.remove(self.log)
        return found

    def run(self, *arguments):
        """The tool's exit status."""
        return subprocess.run([self.tools.tool, *arguments], env=self.environment, stdin=subprocess.DEVNULL,
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, timeout=300).returncode

    def use(self, url):
        status, output = self.control("account", "set", url)
        if status != 0:
            raise RuntimeError(f"the account cannot be set: {output}")

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
        self.directory = tempfile.mkdtemp(prefix="corvane-hub-")
        self.addCleanup(shutil.rmtree, self.directory)
        self.computers = []
        self.url = self.account("hub")

    def account(self, database):
        HubTest.accounts += 1
        self.name = f"user{HubTest.accounts}"
        return self.service.ask("account", self.name, database)

    def computer(self, children=(), url=None, switched_on=True):
        path = os.path.join(self.directory, f"computer{len(self.computers)}")
        computer = Computer(Tools(self.programs), path, self.log_library).make()
        write(computer.bookmarks(FIRST), root_with(list(children)))
        computer.use(url or self.url)
        if switched_on:
            self.assertEqual(computer.run("--register"), 0, computer.lines())
        self.computers.append(computer)
        return computer

    def revision(self, database="hub"):
        return int(self.service.ask("sql", database, "SELECT revision FROM corvane_hub.accounts"
                                                     f" WHERE role = '{self.name}'"))

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
        before = self.revision(), [computer.tree(FIRST) for computer in self.computers]
        for computer in self.computers:
            self.sync(computer)
        self.assertEqual((self.revision(), [computer.tree(FIRST) for computer in self.computers]), before)

    def require_once(self, *titles):
        for title in titles:
            self.assertEqual(self.computers[0].titles().count(title), 1, title)


class GivingAndTaking(HubTest):
    """Two computers, of which the first has something to give and something to take in each session."""

    def start_with(self, url_of_first):
        self.first = self.computer([leaf("Common"), leaf("Also common")], url_of_first)
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
    HubTest.service = Service(os.path.abspath(sys.argv.pop(1)))
    try:
        program = unittest.main(verbosity=1, exit=False)
    finally:
        HubTest.service.end()
    sys.exit(0 if program.result.wasSuccessful() else 1)
