#!/usr/bin/env python3
"""corvane-browser-host as a browser starts it, with a scripted browser at the other end.

usage: program_test.py DIRECTORY_OF_PROGRAMS SCRIPTED_BROWSER PRIVATE_SYSLOG [TEST...]
"""

import json
import os
import pathlib
import resource
import struct
import subprocess
import sys
import tempfile
import unittest
import uuid

from hosted import OWN, PATIENCE, Connection, HostedFirefox, framed

PROGRAMS = None
BROWSER = None
SYSLOG = None


class HostTest(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory(prefix="corvane-host-")
        self.addCleanup(directory.cleanup)
        self.home = pathlib.Path(directory.name) / "home"
        self.home.mkdir()
        self.log = pathlib.Path(directory.name) / "log"
        # AddressSanitizer wants to be the first library of all unless told otherwise.
        self.environment = {"HOME": str(self.home), "TMPDIR": directory.name, "PATH": os.environ["PATH"],
                            "LD_PRELOAD": SYSLOG, "CORVANE_TEST_SYSLOG": str(self.log),
                            "ASAN_OPTIONS": os.environ.get("ASAN_OPTIONS", "") + ":verify_asan_link_order=0"}
        self.store = self.home / "Library/Application Support/Loomer"

    def connect(self):
        host = HostedFirefox(PROGRAMS / "corvane-browser-host", BROWSER, self.environment)
        self.addCleanup(host.close)
        return host

    def ask(self, *arguments, status=0):
        """What loomerctl says."""
        done = subprocess.run([PROGRAMS / "loomerctl", *arguments], env=self.environment, stdin=subprocess.DEVNULL,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, timeout=PATIENCE)
        self.assertEqual(done.returncode, status, done.stdout)
        return done.stdout

    def import_page(self, title):
        page = self.home / "page.html"
        page.write_text(f'<DL><DT><A HREF="http://{title.lower()}.example/">{title}</A></DL>', encoding="utf-8")
        self.ask("import", str(page))


class Program(HostTest):
    def test_nobody_but_the_extension_starts_it(self):
        for arguments in ((), ("chrome-extension://abcdefghijklmnopabcdefghijklmnop/",), ("/manifest.json", "other@example.com")):
            done = subprocess.run([PROGRAMS / "corvane-browser-host", *arguments], env=self.environment, capture_output=True,
                                  stdin=subprocess.DEVNULL, timeout=PATIENCE)
            self.assertEqual((done.returncode, done.stdout), (2, b""), arguments)

    def test_what_another_client_does_arrives_and_the_end_of_input_ends_it(self):
        host = self.connect()
        host.until(lambda message: message["type"] == "generation")
        self.import_page("Example")
        made = host.until(lambda message: message["type"] == "create")
        self.assertEqual(made["nodes"], [{"title": "Example", "url": "http://example.example/"}])
        host.until(lambda message: message.get("state") == "idle")
        self.assertEqual(host.end(), 0)
        names = sorted(path.name for path in (self.store / "Browsers").iterdir())
        self.assertEqual([name[36:] for name in names], [".description.plist", ".plist", ".plist-lock"])
        self.assertFalse(self.log.exists() and self.log.read_text(encoding="utf-8"))

    def status(self, wanted=0):
        """What `loomerctl status` says of the browser, and the kinds of what is not well."""
        said = json.loads(self.ask("status", "--json", status=wanted))
        syncs = [each for each in said["syncs"] if each["client"].startswith("com.keldra.browser.")]
        self.assertEqual(len(syncs), 1, said)
        return syncs[0], said["concerns"]

    def test_pause_is_seen_by_who_asks_for_the_status(self):
        host = self.connect()
        host.until(lambda message: message.get("state") == "idle")
        for paused, concerns in ((True, ["paused"]), (False, [])):
            host.send({"type": "pause", "paused": paused})
            host.until(lambda message: message.get("state") == ("paused" if paused else "idle"))
            sync, found = self.status(1 if paused else 0)
            self.assertEqual((sync["paused"], [each["kind"] for each in found]), (paused, concerns))
            self.assertEqual("paused" in self.ask("clients"), paused)
        self.assertEqual(host.end(), 0)

    def test_extension_that_does_not_fit_is_seen_by_who_asks_for_the_status(self):
        host = self.connect()
        host.until(lambda message: message.get("state") == "idle")
        self.assertEqual(host.end(), 0)
        token = next((self.store / "Browsers").glob("*.description.plist")).name.partition(".")[0]
        other = Connection(PROGRAMS / "corvane-browser-host", self.environment, *OWN)
        other.send({"type": "hello", "protocol": 2, "token": token})
        while json.loads(other.next()).get("state") != "problem":
            pass
        self.assertEqual(other.end(), 0)
        sync, found = self.status(1)
        self.assertEqual((sync["outcome"], [each["kind"] for each in found]), ("failed", ["failing"]))
        self.assertIn("Update Corvane Sync.", found[0]["text"])
        self.assertEqual(found[0]["commands"], ["loomerctl browser status"])

    def test_diff_tells_what_the_browser_holds_and_the_truth_does_not(self):
        host = self.connect()
        self.import_page("Example")
        host.until(lambda message: message["type"] == "create")
        host.until(lambda message: message.get("state") == "idle")
        client = self.status()[0]["client"]
        self.assertEqual(self.ask("diff", client), "")
        self.assertEqual(host.end(), 0)
        self.import_page("Later")
        self.assertEqual(self.ask("diff", client, status=1), '- bookmark "Later" "http://later.example/" in the root\n')
        next((self.store / "Browsers").glob("*[0-9a-f].plist")).write_bytes(b"no snapshot")
        self.assertIn("cannot be used", self.ask("diff", client, status=2))

    def test_store_that_is_put_back_is_left_to_another_one(self):
        host = self.connect()
        host.until(lambda message: message.get("state") == "idle")
        for path in self.store.glob("Truth.db*"):
            path.unlink()
        host.send({"type": "syncNow"})
        self.assertIsNone(host.next())
        self.assertEqual(host.end(), 0)

    def test_message_that_is_none_ends_it_with_a_line_in_the_log(self):
        for bytes_ in (struct.pack("=I", 1 << 30), framed(b"{"), framed(b'{"type":"changed"}')):
            host = Connection(PROGRAMS / "corvane-browser-host", self.environment, *OWN)
            host.process.stdin.write(bytes_)
            host.process.stdin.flush()
            self.assertIsNone(host.next())
            self.assertEqual(host.end(), 1)
        self.assertEqual(len(self.log.read_text(encoding="utf-8").splitlines()), 3)


class LargeTree(HostTest):
    def test_more_than_a_million_nodes_end_it_and_change_nothing(self):
        hello = {"type": "hello", "protocol": 1, "token": str(uuid.uuid4()), "browser": "Firefox", "profile": "", "run": "1",
                 "generation": 0}
        host = Connection(PROGRAMS / "corvane-browser-host", self.environment, *OWN)
        host.send(hello)
        self.answer_read(host, 1000)
        while host.next() is not None:
            pass
        self.assertEqual(host.end(), 1)
        self.assertIn("larger than any that can be synced", self.log.read_text(encoding="utf-8"))
        self.assertLess(resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss * 1024, 1 << 30)
        self.assertNotIn("b.example", self.ask("tree"))
        another = Connection(PROGRAMS / "corvane-browser-host", self.environment, *OWN)
        another.send(hello)
        self.answer_read(another, 0)
        while json.loads(another.next()).get("state") != "idle":
            pass
        self.assertEqual(another.end(), 0)

    @staticmethod
    def answer_read(host, pieces):
        """Gives a bookmarks bar with as many times 1,000 bookmarks."""
        while (message := json.loads(host.next()))["type"] != "read":
            pass
        for piece in range(pieces):
            nodes = [{"kind": "root", "root": "bar", "id": "bar"}] if piece == 0 else []
            nodes += [{"kind": "bookmark", "id": f"{piece}.{number}", "parent": "bar", "title": "b", "url": "http://b.example/"}
                      for number in range(1_000)]
            host.send({"type": "answer", "id": message["id"], "more": True, "nodes": nodes})
        host.send({"type": "answer", "id": message["id"], "more": False,
                   "nodes": [] if pieces else [{"kind": "root", "root": "bar", "id": "bar"}]})


def main():
    global PROGRAMS, BROWSER, SYSLOG
    PROGRAMS, BROWSER, SYSLOG = pathlib.Path(sys.argv.pop(1)), sys.argv.pop(1), sys.argv.pop(1)
    unittest.main(verbosity=1)


if __name__ == "__main__":
    main()
