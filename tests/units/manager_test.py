#!/usr/bin/env python3
"""The units under a real `systemd --user`: switched on, set off by what a browser does, and switched off.

usage: manager_test.py BUILD_DIRECTORY [TEST...]       as root
"""

import json
import os
import pathlib
import plistlib
import re
import shutil
import struct
import sys
import unittest

TESTS = pathlib.Path(__file__).resolve().parent.parent
sys.path.insert(0, str(TESTS / "crash"))

from homes import FIRST, SECOND, leaf, root_with, write  # noqa: E402
from user_manager import HOME, UserManager, enter_namespaces, eventually  # noqa: E402

BUILD = None
SERVICE = "corvane-sync.service"
FILES = HOME / "Library/Corvane"
UNITS = HOME / ".config/systemd/user"
WATCHED = {FIRST: "Bookmarks.plist", SECOND: "Second.plist"}


def say(host, message):
    """As a browser's extension does (native messaging)."""
    text = json.dumps(message).encode()
    host.stdin.write(struct.pack("=I", len(text)) + text)
    host.stdin.flush()


def heard(host):
    return json.loads(host.stdout.read(struct.unpack("=I", host.stdout.read(4))[0]))


class Units(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.manager = UserManager(BUILD)
        cls.addClassCleanup(cls.manager.stop)

    def setUp(self):
        # A Library that is a link: the sandbox has to open what it leads to.
        self.manager.run("rm", "-rf", str(HOME / "Library"), str(HOME / "elsewhere"))
        self.manager.run("mkdir", "-p", str(HOME / "elsewhere/Corvane"))
        os.symlink("elsewhere", HOME / "Library")
        self.addCleanup(self.switch_off)

    def switch_off(self):
        if self.enabled():
            self.manager.run("loomerctl", "disable")
        self.finished()

    def write(self, client, *titles):
        write(str(FILES / WATCHED[client]), root_with([leaf(title) for title in titles]))
        self.manager_owns(FILES / WATCHED[client])

    def manager_owns(self, path):
        os.chown(path, 65534, 65534)

    def root(self, client):
        with open(FILES / WATCHED[client], "rb") as file:
            return plistlib.load(file)

    def titles(self, client):
        return sorted(each["URIDictionary"]["title"] for each in self.root(client).get("Children", []))

    def enabled(self):
        return sorted(str(path.relative_to(UNITS)) for path in UNITS.rglob("*")) if UNITS.exists() else []

    def finished(self):
        eventually(lambda: self.manager.ask(SERVICE, "ActiveState") in ("inactive", "failed"), "the end of the service")

    def run_to_its_end(self):
        """The number of the service's last run, which has succeeded."""
        self.finished()
        self.assertEqual(self.manager.ask(SERVICE, "Result"), "success")
        return self.manager.ask(SERVICE, "InvocationID")

    def both_hold(self, *titles):
        eventually(lambda: all(self.titles(client) == sorted(titles) for client in WATCHED), f"{titles} in both files")

    def test_what_the_browser_writes_reaches_the_users_other_file_in_one_run(self):
        self.write(FIRST, "One")
        self.write(SECOND, "Two")
        self.manager.run("loomerctl", "enable", FIRST, SECOND)
        self.both_hold("One", "Two")
        first = self.run_to_its_end()
        self.write(SECOND, "One", "Two", "Three")
        self.both_hold("One", "Two", "Three")
        second = self.run_to_its_end()
        self.assertNotEqual(first, second)
        # What the service itself has written sets nothing off: a round trip to the manager, which reads its events in order.
        self.manager.systemctl("daemon-reload")
        self.assertEqual(self.run_to_its_end(), second)
        for unit in ("corvane-sync@Bookmarks.plist.path", "corvane-sync@Second.plist.path", "corvane-sync.timer"):
            self.assertEqual(self.manager.ask(unit, "SubState"), "waiting", unit)
        self.assertNotIn("IsRunning", "".join(os.listdir(self.manager.environment["XDG_RUNTIME_DIR"])))

    def test_switched_on_twice_is_on_once_and_switched_off_leaves_nothing(self):
        self.write(FIRST)
        before = self.enabled()
        self.manager.run("loomerctl", "enable")
        once = self.enabled()
        self.assertIn("timers.target.wants/corvane-sync.timer", once)
        self.assertIn("paths.target.wants/corvane-sync@Bookmarks.plist.path", once)
        self.manager.run("loomerctl", "enable")
        self.assertEqual(self.enabled(), once)
        self.manager.run("loomerctl", "disable")
        self.assertEqual(self.enabled(), before)
        self.finished()
        self.assertEqual(self.manager.systemctl("list-units", "--all", "--plain", "--no-legend", "corvane-sync*.path",
                                                "corvane-sync*.timer"), "")

    def test_an_installation_elsewhere_switches_its_own_units_on(self):
        self.write(FIRST)
        self.manager.run("loomerctl", "enable")
        self.run_to_its_end()
        other = pathlib.Path(self.manager.environment["XDG_RUNTIME_DIR"]) / "other place"
        for part in ("bin", "lib/corvane", "lib/systemd"):
            shutil.copytree(os.path.join(BUILD, part), other / part, symlinks=True)
        self.addCleanup(shutil.rmtree, other)
        self.manager.run(str(other / "bin/loomerctl"), "enable")
        self.assertIn(str(other), self.manager.ask(SERVICE, "ExecStart"))
        self.write(FIRST, "One")
        eventually(lambda: "One" in self.manager.run("loomerctl", "tree"), "a run of the other installation")
        self.run_to_its_end()
        self.manager.run(str(other / "bin/loomerctl"), "disable")
        self.assertEqual([each for each in self.enabled() if "corvane" in each], [])

    def test_one_client_is_switched_off_and_the_other_stays_on(self):
        self.write(FIRST)
        self.write(SECOND)
        self.manager.run("loomerctl", "enable", FIRST, SECOND)
        self.run_to_its_end()
        self.manager.run("loomerctl", "disable", FIRST)
        self.assertNotIn("paths.target.wants/corvane-sync@Bookmarks.plist.path", self.enabled())
        self.write(FIRST, "One")
        self.write(SECOND, "Two")
        # Only the second is synced, though the first is registered, too.
        eventually(lambda: "Two" in self.manager.run("loomerctl", "tree"), "a run for the second")
        self.run_to_its_end()
        self.assertNotIn("One", self.manager.run("loomerctl", "tree"))

    def test_the_account_may_be_kept_in_a_directory_anywhere(self):
        share = HOME / "my share, 100%"
        self.manager.run("mkdir", "-p", str(share))
        self.write(FIRST, "One")
        self.manager.run("loomerctl", "enable")
        self.run_to_its_end()
        self.manager.run("loomerctl", "account", "set", str(share))
        self.manager.run("corvanetool", "--register")
        self.manager.systemctl("start", SERVICE)
        self.run_to_its_end()
        self.assertIn("up to date", self.manager.run("loomerctl", "clients").split("com.keldra.Pelto")[1])
        self.manager.run("loomerctl", "account", "remove")
        self.assertEqual([each for each in self.enabled() if each.endswith(".conf")], [])

    def test_an_undo_arrives_without_further_ado(self):
        self.write(FIRST, "One")
        self.manager.run("loomerctl", "enable")
        self.run_to_its_end()
        self.manager.run("loomerctl", "undo", "1")
        eventually(lambda: self.titles(FIRST) == [], "the end of what was undone")

    def test_what_a_browser_has_reaches_the_users_file_without_further_ado(self):
        self.write(FIRST)
        self.manager.run("loomerctl", "enable")
        self.run_to_its_end()
        # It is switched on, and does not elapse while this runs.
        self.manager.systemctl("stop", "corvane-sync.timer")
        bar = {"id": "1", "kind": "root", "root": "bar", "title": "", "added": 1}
        nodes = [bar, {"id": "2", "parent": "1", "kind": "bookmark", "title": "One", "url": "https://one.example.com/", "added": 1}]
        host = self.manager.start("corvane-browser-host", "manifest.json", "bookmarks@corvane.keldra.com")
        say(host, {"type": "hello", "protocol": 1, "token": "11111111-1111-4111-8111-111111111111", "browser": "firefox",
                   "profile": "", "run": "22222222-2222-4222-8222-222222222222", "generation": 0})
        while (message := heard(host))["type"] != "generation":
            if message["type"] == "read":
                say(host, {"type": "answer", "id": message["id"], "nodes": nodes, "more": False})
        eventually(lambda: [each["Title"] for each in self.root(FIRST)["Children"]] == ["BookmarksBar"], "the browser's bookmarks in the file")
        host.stdin.close()
        self.assertEqual(host.wait(60), 0)
        host.stdout.close()

    def test_nothing_else_of_the_users_can_be_written(self):
        self.write(FIRST, "One")
        self.manager.run("loomerctl", "enable")
        self.run_to_its_end()
        # The service's own sandbox around another program.
        override = UNITS / (SERVICE + ".d") / "probe.conf"
        probe = HOME / "elsewhere/probe"
        script = "; ".join(f"touch {each}/x && echo {each}" for each in (HOME, UNITS, HOME / "Library"))
        self.manager.run("mkdir", "-p", str(override.parent))
        override.write_text(f"[Service]\nExecStart=\nExecStart=-/bin/sh -c '{script}'\nStandardOutput=truncate:{probe}\nStandardError=null\n",
                            encoding="utf-8")
        try:
            self.manager.systemctl("daemon-reload")
            self.manager.systemctl("start", SERVICE)
            self.run_to_its_end()
        finally:
            override.unlink()
            override.parent.rmdir()
            self.manager.systemctl("daemon-reload")
        self.assertEqual(probe.read_text(encoding="utf-8"), f"{HOME}/Library\n")

    def test_a_file_that_cannot_be_synced_shows_as_a_failure_of_the_unit(self):
        (FILES / WATCHED[FIRST]).write_bytes(b"no property list")
        self.manager_owns(FILES / WATCHED[FIRST])
        self.manager.run("loomerctl", "enable")
        self.finished()
        self.assertEqual(self.manager.ask(SERVICE, "Result"), "exit-code")
        # The browser's next version is synced all the same.
        self.write(FIRST, "One")
        store = HOME / "Library/Application Support/Loomer/Truth.db"
        eventually(store.exists, "a run after the failed one")
        self.run_to_its_end()
        self.assertIn("One", self.manager.run("loomerctl", "tree"))


class WithoutUserNamespaces(unittest.TestCase):
    def test_the_service_runs_with_what_the_guide_says(self):
        manager = UserManager(BUILD, ("strace", "-f", "-o", "/dev/null", "-e", "trace=unshare", "-e", "inject=unshare:error=EPERM"))
        self.addCleanup(manager.stop)
        manager.run("mkdir", "-p", str(FILES))
        manager.run("loomerctl", "enable")
        eventually(lambda: manager.ask(SERVICE, "ActiveState") == "failed", "the service's failure")
        self.assertEqual(manager.ask(SERVICE, "ExecMainStatus"), "217")
        guide = (TESTS.parent / "docs/guide.md").read_text(encoding="utf-8")
        override = UNITS / (SERVICE + ".d") / "override.conf"
        manager.run("mkdir", "-p", str(override.parent))
        override.write_text(re.search(r"```\n(\[Service\]\n.*?)```", guide, re.DOTALL)[1], encoding="utf-8")
        manager.systemctl("daemon-reload")
        manager.systemctl("start", SERVICE)
        self.assertIn("com.keldra.Corvane", manager.run("loomerctl", "clients"))


def main():
    global BUILD
    enter_namespaces()
    BUILD = os.path.abspath(sys.argv.pop(1))
    unittest.main(verbosity=1)


if __name__ == "__main__":
    main()
