#!/usr/bin/env python3
"""What `loomerctl browser` puts in place for one user, and takes back, in an installation and homes of its own.

usage: browser_test.py DIRECTORY_OF_PROGRAMS [TEST...]
"""

import json
import os
import pathlib
import shutil
import stat
import subprocess
import sys
import tempfile
import unittest

PROGRAMS = None
NAME = "com.keldra.corvane.bookmarks"
CHROMIUM = f".config/chromium/NativeMessagingHosts/{NAME}.json"
FIREFOX = f".mozilla/native-messaging-hosts/{NAME}.json"


class BrowserTest(unittest.TestCase):
    def setUp(self):
        directory = self.enterContext(tempfile.TemporaryDirectory())
        self.home = pathlib.Path(directory, "home")
        self.home.mkdir()
        # Its programs are found by their place beside loomerctl.
        self.installation = pathlib.Path(directory, 'an "installation"')
        binaries = self.installation / "bin"
        binaries.mkdir(parents=True)
        shutil.copy(os.path.join(PROGRAMS, "loomerctl"), binaries)
        self.program = binaries / "corvane-browser-host"
        self.program.write_text("#!/bin/sh\n")
        self.program.chmod(0o755)
        self.extension = self.installation / "share/corvane/browser/extension"
        self.extension.mkdir(parents=True)
        (self.extension.parent / "bookmarks@corvane.keldra.com.xpi").touch()
        self.environment = {"HOME": str(self.home), "PATH": os.environ["PATH"], "LC_ALL": "C", "COLUMNS": "200"}

    def browser(self, *arguments):
        done = subprocess.run([self.installation / "bin/loomerctl", "browser", *arguments], env=self.environment,
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, timeout=60)
        return done.returncode, " ".join(done.stdout.split())

    def must(self, *arguments):
        status, said = self.browser(*arguments)
        self.assertEqual(status, 0, said)
        return said

    def must_refuse(self, *arguments):
        status, said = self.browser(*arguments)
        self.assertEqual(status, 1, said)
        return said

    def files(self):
        return sorted(str(path.relative_to(self.home)) for path in self.home.rglob("*") if not path.is_dir())

    def manifest(self, path):
        return json.loads((self.home / path).read_text(encoding="utf-8"))

    def test_install_tells_both_browsers_of_the_program(self):
        self.must("install")
        self.assertEqual(self.files(), [CHROMIUM, FIREFOX])
        common = {"name": NAME, "description": "Corvane Bookmarks", "path": str(self.program), "type": "stdio"}
        self.assertEqual(self.manifest(CHROMIUM),
                         {**common, "allowed_origins": ["chrome-extension://jkhpgakcmhjkmpknlofaaacbbofenkdk/"]})
        self.assertEqual(self.manifest(FIREFOX), {**common, "allowed_extensions": ["bookmarks@corvane.keldra.com"]})

    def test_install_for_one_browser_leaves_the_other_alone(self):
        self.must("install", "firefox")
        self.assertEqual(self.files(), [FIREFOX])
        self.must("status", "firefox")
        self.must_refuse("status")

    def test_install_says_how_to_load_the_extension(self):
        said = self.must("install")
        self.assertIn("chrome://extensions", said)
        self.assertIn(str(self.extension), said)
        self.assertIn("about:addons", said)
        self.assertIn(str(self.extension.parent / "bookmarks@corvane.keldra.com.xpi"), said)

    def test_install_again_writes_nothing(self):
        self.must("install")
        before = [os.stat(self.home / path) for path in self.files()]
        self.must("install")
        self.assertEqual([os.stat(self.home / path) for path in self.files()], before)

    def test_install_takes_over_from_another_installation(self):
        self.must("install", "chromium")
        path = self.home / CHROMIUM
        path.write_text(path.read_text(encoding="utf-8").replace("corvane-browser-host", "gone"), encoding="utf-8")
        self.assertIn("names a program that is not there", self.must_refuse("status", "chromium"))
        self.must("install", "chromium")
        self.assertEqual(self.manifest(CHROMIUM)["path"], str(self.program))

    def test_install_writes_nothing_without_its_program(self):
        self.program.unlink()
        self.assertIn("corvane-browser-host", self.must_refuse("install"))
        self.assertEqual(self.files(), [])

    def test_install_says_what_it_cannot_write(self):
        (self.home / ".mozilla").write_text("in the way")
        self.assertIn(f"Cannot write {self.home}/{FIREFOX}", self.must_refuse("install", "firefox"))

    def test_install_keeps_to_the_users_directory_of_configuration(self):
        self.environment["XDG_CONFIG_HOME"] = str(self.home / "elsewhere")
        self.must("install", "chromium")
        self.assertEqual(self.files(), [CHROMIUM.replace(".config", "elsewhere")])

    def test_status_names_what_is_missing_and_what_to_do(self):
        said = self.must_refuse("status")
        for name in ("chromium", "firefox"):
            self.assertIn(f"Run `loomerctl browser install {name}`.", said)
        self.assertEqual(self.files(), [])

    def test_status_takes_a_damaged_manifest_for_one_without_a_program(self):
        self.must("install", "chromium")
        for text in ("", "{", '{"path": 3}', "[]"):
            (self.home / CHROMIUM).write_text(text)
            self.assertIn("names a program that is not there", self.must_refuse("status", "chromium"))

    def test_status_wants_a_program_that_can_run(self):
        self.must("install", "chromium")
        self.program.chmod(stat.S_IRUSR | stat.S_IWUSR)
        self.must_refuse("status", "chromium")

    def test_remove_leaves_nothing_of_install_and_all_of_others(self):
        self.must("install")
        other = self.home / ".mozilla/native-messaging-hosts/org.example.other.json"
        other.write_text("{}")
        said = self.must("remove")
        self.assertIn("The bookmarks stay as they are", said)
        self.assertEqual(self.files(), [str(other.relative_to(self.home))])
        self.assertFalse((self.home / CHROMIUM).parent.exists())
        self.assertIn("nothing to be removed", self.must_refuse("remove"))

    def test_another_browser_is_refused(self):
        for what in ("install", "remove", "status"):
            self.assertIn('"lynx" is neither chromium nor firefox.', self.must_refuse(what, "lynx"))


if __name__ == "__main__":
    PROGRAMS = sys.argv.pop(1)
    unittest.main(verbosity=1)
