#!/usr/bin/env python3
"""The units as systemd reads them, their commands run as they are written, and what the guide offers in their place.

usage: units_test.py BUILD_DIRECTORY PROJECT_ROOT [TEST...]
"""

import datetime
import os
import pathlib
import plistlib
import re
import shlex
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest

TESTS = pathlib.Path(__file__).resolve().parent.parent
sys.path.insert(0, str(TESTS / "crash"))

from homes import FIRST, SECOND, Home, Tools, leaf, root_with, write  # noqa: E402

BUILD = None
ROOT = None
SERVICE = "com.keldra.Pelto"
# What `systemd-analyze security` may find at most; docs/guide.md says what is left.
MOST_EXPOSURE = 1.5


def units():
    return BUILD / "lib/systemd/user"


def settings(unit):
    """The settings of a unit, each with its values in their order."""
    found = {}
    for line in (units() / unit).read_text(encoding="utf-8").splitlines():
        if match := re.match(r"(\w+)=(.*)", line):
            found.setdefault(match[1], []).append(match[2])
    return found


class UnitsTest(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory(prefix="corvane-units-")
        self.addCleanup(directory.cleanup)
        self.directory = pathlib.Path(directory.name)
        self.home = Home(Tools(str(BUILD / "bin")), str(self.directory / "home")).make()
        # Nobody's manager is to be found there.
        (self.directory / "runtime").mkdir(mode=0o700)
        self.home.environment["XDG_RUNTIME_DIR"] = str(self.directory / "runtime")
        self.home.environment["PATH"] = f"{BUILD}/bin:{os.environ['PATH']}"

    def analyze(self, *words):
        environment = {**self.home.environment, "SYSTEMD_LOG_LEVEL": "warning"}
        done = subprocess.run(["systemd-analyze", "--user", *words], cwd=units(), env=environment, stdin=subprocess.DEVNULL,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, timeout=120)
        return done.returncode, done.stdout

    def write_two(self):
        write(self.home.bookmarks(FIRST), root_with([leaf("One")]))
        write(self.home.bookmarks(SECOND), root_with([leaf("Two")]))
        self.assertEqual(self.home.sync(SECOND)[0], 0)  # from then on it is registered

    def are_in_step(self):
        return self.home.shared_tree(FIRST) == self.home.shared_tree(SECOND)


class AsSystemdReadsThem(UnitsTest):
    def test_there_is_nothing_to_complain_about(self):
        names = ["corvane-sync.service", "corvane-sync.timer", "corvane-sync@Bookmarks.plist.path"]
        self.assertEqual(self.analyze("verify", "--man=no", *(f"./{name}" for name in names)), (0, ""))

    def test_the_service_is_exposed_to_little(self):
        status, text = self.analyze("security", "--offline=true", "./corvane-sync.service")
        self.assertEqual(status, 0, text)
        exposure = float(re.search(r"Overall exposure level.*: ([\d.]+)", text)[1])
        self.assertLessEqual(exposure, MOST_EXPOSURE, text)

    def test_the_manual_pages_that_they_name_are_there(self):
        for unit in units().iterdir():
            for page in re.findall(r"man:([\w-]+)\((\d)\)", unit.read_text(encoding="utf-8")):
                self.assertTrue((ROOT / "docs/man" / ".".join(page)).exists(), page)


class RunAsWritten(UnitsTest):
    def test_the_services_command_brings_the_registered_clients_in_step(self):
        self.write_two()
        service = settings("corvane-sync.service")
        command = [word.replace("%Y", str(units())) for word in shlex.split(service["ExecStart"][0])]
        environment = {name: value for name, value in self.home.environment.items()
                       if name not in service["UnsetEnvironment"]}
        done = subprocess.run(command, env=environment, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, text=True, timeout=120)
        self.assertEqual(done.returncode, 0, done.stdout)
        self.assertTrue(self.are_in_step())
        self.assertEqual(list((self.directory / "runtime").iterdir()), [])

    def test_a_failed_session_of_one_client_is_told_and_keeps_no_other_from_syncing(self):
        self.write_two()
        pathlib.Path(self.home.bookmarks(FIRST)).write_bytes(b"no property list")
        status, text = self.home.control("sync")
        self.assertEqual(status, 1)
        self.assertIn(f"{FIRST} is not synced; `loomerctl status` says why.\n", text)
        self.assertIn(f"{SECOND} is synced.\n", text)


class WhileASessionRuns(UnitsTest):
    def test_what_the_browser_writes_is_synced_before_the_end(self):
        write(self.home.bookmarks(FIRST), root_with([leaf("One")]))
        # A loomerctl whose corvanetool is followed, the first time, by the browser.
        programs, version = self.directory / "bin", self.directory / "version.plist"
        programs.mkdir()
        shutil.copy(self.home.tools.control, programs)
        write(str(version), root_with([leaf("One"), leaf("Two")]))
        tool = programs / "corvanetool"
        tool.write_text(f"""#!/bin/sh
echo session >>"{self.directory}/sessions"
"{self.home.tools.tool}" "$@" || exit
if [ -e "{version}" ]; then
  touch "{version}"
  mv "{version}" "{self.home.bookmarks(FIRST)}"
fi
""", encoding="utf-8")
        tool.chmod(0o755)
        self.home.tools = Tools(str(programs))
        self.assertEqual(self.home.control("sync"), (0, f"{FIRST} is synced.\n"))
        self.assertIn("Two", self.home.control("tree")[1])
        self.assertEqual((self.directory / "sessions").read_text(encoding="utf-8"), "session\n" * 2)


class WhileTheServiceIsAway(UnitsTest):
    """The online service is a directory that is gone, and was an hour before it was last looked for."""

    def setUp(self):
        super().setUp()
        write(self.home.bookmarks(FIRST), root_with([leaf("One")]))
        place = self.directory / "place"
        place.mkdir()
        self.assertEqual(self.home.control("account", "set", str(place))[0], 0)
        self.assertEqual(subprocess.run([self.home.tools.tool, "--register"], env=self.home.environment, timeout=60).returncode, 0)
        self.home.must_sync(FIRST)
        place.rename(self.directory / "elsewhere")
        self.home.must_sync(FIRST)
        self.noted = pathlib.Path(self.home.store()).with_name("FailedRuns.plist")
        self.assertGreater(self.failed()["InARow"], 0)
        self.move("Since", datetime.timedelta(hours=1))

    def failed(self):
        with open(self.noted, "rb") as file:
            return plistlib.load(file)[SERVICE]

    def move(self, key, by):
        """Makes a date of the note earlier."""
        failed = self.failed()
        failed[key] -= by
        self.noted.write_bytes(plistlib.dumps({SERVICE: failed}, fmt=plistlib.FMT_BINARY))
        self.before = self.failed()["Last"]

    def tried(self):
        """Whether a session has looked for the service again."""
        return self.failed()["Last"] != self.before

    def test_it_is_left_in_peace_where_nothing_else_is_to_be_done(self):
        self.assertEqual(self.home.control("sync", "--unattended"), (0, ""))
        self.assertFalse(self.tried())

    def test_what_the_browser_has_changed_is_synced(self):
        write(self.home.bookmarks(FIRST), root_with([leaf("One"), leaf("Two")]))
        self.assertEqual(self.home.control("sync", "--unattended"), (0, f"{FIRST} is synced.\n"))
        self.assertIn("Two", self.home.control("tree")[1])

    def test_it_is_looked_for_when_somebody_asks(self):
        self.assertEqual(self.home.control("sync"), (0, f"{FIRST} is synced.\n"))
        self.assertTrue(self.tried())

    def test_it_is_looked_for_once_it_has_been_away_as_long_again(self):
        for each in ("Since", "Last"):
            self.move(each, datetime.timedelta(minutes=61))
        self.assertEqual(self.home.control("sync", "--unattended"), (0, f"{FIRST} is synced.\n"))
        self.assertTrue(self.tried())


class WithoutSystemd(UnitsTest):
    def shell(self, script, **options):
        return subprocess.Popen(["/bin/sh", "-c", script], cwd=self.home.path, env=self.home.environment,
                                stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                                start_new_session=True, **options)

    def guide(self, word):
        """The guide's line with that word in its section on what runs by itself."""
        text = (ROOT / "docs/guide.md").read_text(encoding="utf-8").split("\n## Running by itself\n")[1].split("\n## ")[0]
        lines = [line.strip() for line in text.splitlines() if line.startswith("    ") and word in line]
        self.assertEqual(len(lines), 1, lines)
        return lines[0]

    def test_enable_gives_a_line_for_cron_that_works(self):
        self.write_two()
        status, text = self.home.control("enable")
        self.assertEqual(status, 1)
        line = re.search(r"^    (\S+ \* \* \* \*) (.*)$", text, re.MULTILINE)
        self.assertEqual(line[1], "*/15 * * * *", text)
        done = self.shell(line[2])
        self.assertEqual(done.communicate(timeout=120)[0], f"{FIRST} is synced.\n{SECOND} is synced.\n")
        self.assertTrue(self.are_in_step())
        self.assertFalse((self.directory / "home/.config").exists())

    def test_enable_says_so_where_there_is_no_systemd_at_all(self):
        self.home.environment["PATH"] = str(self.directory)
        status, text = self.home.control("enable")
        self.assertEqual(status, 1)
        self.assertIn("Cannot run systemctl: No such file or directory.", text)
        self.assertIn("*/15 * * * *", text)

    def test_what_is_switched_on_is_switched_off_all_the_same(self):
        configuration = pathlib.Path(self.home.path) / ".config/systemd/user"
        for link, unit in (("corvane-sync.service", "corvane-sync.service"), ("corvane-sync.timer", "corvane-sync.timer"),
                           ("timers.target.wants/corvane-sync.timer", "corvane-sync.timer"),
                           ("paths.target.wants/corvane-sync@Second.plist.path", "corvane-sync@.path")):
            (configuration / link).parent.mkdir(parents=True, exist_ok=True)
            (configuration / link).symlink_to(units() / unit)
        (configuration / "corvane-sync.service.d").mkdir()
        (configuration / "corvane-sync.service.d/place.conf").touch()
        self.assertEqual(self.home.control("disable"), (0, "No bookmarks are synced by themselves any more.\n"))
        self.assertEqual(list(configuration.iterdir()), [])

    def test_there_is_nothing_to_disable(self):
        status, text = self.home.control("disable")
        self.assertEqual((status, text), (1, "loomerctl: Nothing is switched on.\n"))

    def test_the_guides_line_for_cron_is_the_programs(self):
        text = self.home.control("enable")[1]
        self.assertIn(self.guide("*/15").replace("/usr/bin", str(BUILD / "bin")) + "\n", text)

    def test_the_guides_line_for_inotify_syncs_when_a_file_changes(self):
        self.write_two()
        watching = self.shell(self.guide("inotifywait"))
        try:
            watch = pathlib.Path(f"/proc/{watching.pid}")
            end = time.monotonic() + 120
            while not self.are_in_step():
                self.assertLess(time.monotonic(), end)
                self.assertTrue(watch.exists())
                # Until the watch stands nothing is seen.
                write(self.home.bookmarks(FIRST), root_with([leaf("One")]))
                time.sleep(3)
        finally:
            os.killpg(watching.pid, signal.SIGKILL)
            watching.communicate()


class Names(UnitsTest):
    def test_a_client_without_a_file_is_refused(self):
        for command in ("enable", "disable", "sync"):
            status, text = self.home.control(command, "com.keldra.Pelto")
            self.assertEqual(status, 1, text)
            self.assertIn('"com.keldra.Pelto" stands for no bookmarks file', text)


def main():
    global BUILD, ROOT
    BUILD, ROOT = pathlib.Path(sys.argv.pop(1)).resolve(), pathlib.Path(sys.argv.pop(1)).resolve()
    unittest.main(verbosity=1)


if __name__ == "__main__":
    main()
