#!/usr/bin/env python3
"""The scripts before they do anything: what they refuse, and what they would install.

usage: scripts_test.py PROJECT_ROOT BUILD_DIRECTORY [TEST...]
"""

import os
import pathlib
import plistlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

ROOT = None
BUILD = None
TOOLS = "bash cat dirname dpkg-query env find flock grep mkdir nproc sed sleep sort".split()
PACKAGE = """Package: {name}
Status: {status}
Architecture: all
Maintainer: Nobody <nobody@example.com>
Version: 1
Description: for a test

"""


class Machine:
    """Packages as dpkg knows them, and nothing in the path but what a script needs and an apt-get that only notes how it is
    called."""

    def __init__(self, directory, user="0"):
        self.directory = pathlib.Path(directory)
        self.bin = self.directory / "bin"
        self.bin.mkdir()
        for tool in TOOLS:
            (self.bin / tool).symlink_to(shutil.which(tool))
        self.program("id", f"echo {user}")
        self.program("apt-get", f'echo "$*" >>{self.directory}/calls')
        self.packages({})

    def program(self, name, line):
        path = self.bin / name
        path.write_text(f"#!/bin/bash\n{line}\n")
        path.chmod(0o755)

    def packages(self, statuses):
        """`statuses`: what dpkg says of each package that it knows."""
        (self.directory / "status").write_text("".join(PACKAGE.format(name=name, status=status)
                                                       for name, status in statuses.items()))

    def environment(self):
        return {"PATH": str(self.bin), "DPKG_ADMINDIR": str(self.directory), "LC_ALL": "C"}

    def run(self, script, *arguments, cwd=None, root=None):
        return subprocess.run([(root or ROOT) / "scripts" / script, *arguments], env=self.environment(), cwd=cwd,
                              stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=60)

    def installed(self):
        """What apt-get was asked to install; none when it was not called."""
        calls = self.directory / "calls"
        if not calls.exists():
            return None
        return [word for line in calls.read_text().splitlines() if " install " in f" {line} "
                for word in line.split() if word != "install" and not word.startswith("-")]


class ScriptTest(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory(prefix="corvane-scripts-")
        self.addCleanup(directory.cleanup)
        self.directory = directory.name

    def wanted(self, what):
        """All packages that are wanted where dpkg knows none."""
        with tempfile.TemporaryDirectory() as directory:
            machine = Machine(directory)
            done = machine.run("packages", what)
            self.assertEqual(done.returncode, 0, done.stderr)
            return machine.installed()


class Answers(ScriptTest):
    def test_help_and_typing_errors_are_answered_before_anything_is_installed(self):
        machine = Machine(self.directory)
        for script, arguments, status, text in (
            ("test", ["--help"], 0, "scripts/test lint"),
            ("test", ["-h"], 0, "scripts/test quick"),
            ("test", ["tests"], 2, 'there is no part "tests"'),
            ("test", ["--all"], 2, 'there is no part "--all"'),
            ("test", ["lint", "dev"], 2, '"lint" takes no further argument'),
            ("test", ["package", "hub"], 2, '"package" takes no further argument'),
            ("test", ["fuzz", "long"], 2, "fuzz takes a number of seconds"),
            ("demo", ["--help"], 0, "shows the main job"),
            ("demo", ["everything"], 2, "scripts/demo"),
            ("package", ["-h"], 0, "makes the Debian packages"),
            ("package", ["hub"], 2, "usage: scripts/package"),
            ("packages", ["all"], 2, "usage: packages"),
        ):
            with self.subTest(script=script, arguments=arguments):
                done = machine.run(script, *arguments, cwd=ROOT / "scripts")
                self.assertEqual(done.returncode, status, done.stderr)
                self.assertIn(text, done.stderr if status else done.stdout)
                self.assertIsNone(machine.installed())


class Packages(ScriptTest):
    def test_a_package_that_is_there_is_not_missing_held_or_by_another_name(self):
        statuses = {name: "install ok installed" for name in self.wanted("test")}
        statuses["cmake"] = "hold ok installed"
        for name, other in (("pkg-config", "pkgconf"), ("libclang-rt-dev", "libclang-rt-19-dev")):
            statuses[other] = statuses.pop(name)
        machine = Machine(self.directory)
        machine.packages(statuses)
        done = machine.run("packages", "test")
        self.assertEqual((done.returncode, done.stdout, done.stderr), (0, "", ""))
        self.assertIsNone(machine.installed())

    def test_a_package_that_was_removed_or_half_installed_is_missing(self):
        statuses = {name: "install ok installed" for name in self.wanted("build")}
        statuses.update({"cmake": "deinstall ok config-files", "ninja-build": "install ok half-installed"})
        machine = Machine(self.directory)
        machine.packages(statuses)
        self.assertEqual(machine.run("packages", "build").returncode, 0)
        self.assertEqual(machine.installed(), ["cmake", "ninja-build"])

    def test_what_a_clean_debian_is_made_with_is_for_the_test_of_the_packages_alone(self):
        for what, expected in (("dev", set()), ("package", {"debootstrap", "lintian"})):
            with self.subTest(what=what), tempfile.TemporaryDirectory() as directory:
                machine = Machine(directory)
                machine.run("test", what)  # which ends where the first program is missing
                self.assertEqual({"debootstrap", "lintian"} & set(machine.installed()), expected)

    def test_tests_are_compiled_before_all_that_they_run_with_is_there(self):
        machine = Machine(self.directory)
        machine.run("test", "lint")  # which ends where the first program is missing
        self.assertEqual(machine.installed(), self.wanted("compile-tests"))
        self.assertLess(set(machine.installed()), set(self.wanted("test")))

    def test_a_run_that_ends_early_leaves_no_installation_half_done(self):
        project = pathlib.Path(self.directory) / "project"
        shutil.copytree(ROOT / "scripts", project / "scripts")
        (project / "CorvaneSyncClient").mkdir()
        machine = Machine(self.directory)
        wanted = self.wanted("compile-tests")
        machine.packages({name: "install ok installed" for name in wanted})
        machine.program("apt-get", f'sleep 1; echo "$*" >>{machine.directory}/calls')
        self.assertNotEqual(machine.run("test", root=project).returncode, 0)
        self.assertEqual(set(machine.installed()), set(self.wanted("test")) - set(wanted))

    def test_one_installation_waits_for_another_and_has_nothing_left_to_do(self):
        machine = Machine(self.directory)
        installed = {name: "install ok installed" for name in self.wanted("build")}
        go_on = machine.directory / "go-on"
        machine.program("apt-get", f'echo "$*" >>{machine.directory}/calls; until [ -e {go_on} ]; do sleep 0.1; done')
        run = dict(args=[ROOT / "scripts/packages", "build"], env=machine.environment(), stdout=subprocess.PIPE, text=True)
        with subprocess.Popen(**run) as first:
            self.assertIn("Installing", first.stdout.readline())
            with subprocess.Popen(**run) as second:
                said = second.stdout.readline()
                machine.packages(installed)
                go_on.touch()
                said += second.stdout.read()
        self.assertEqual((first.returncode, second.returncode, said), (0, 0, "Waiting for other packages to be installed\n"))
        self.assertEqual(len((machine.directory / "calls").read_text().splitlines()), 2)

    def test_who_may_not_install_is_told_what(self):
        machine = Machine(self.directory, user="1000")
        done = machine.run("packages", "build")
        self.assertEqual(done.returncode, 1)
        self.assertIn("apt-get install " + " ".join(self.wanted("build")), done.stderr)
        self.assertIsNone(machine.installed())


class Listing(ScriptTest):
    def test_titles_that_the_locale_cannot_show_are_listed_all_the_same(self):
        path = os.path.join(self.directory, "Bookmarks.plist")
        with open(path, "wb") as file:
            plistlib.dump({"Children": [{"WebBookmarkType": "WebBookmarkTypeLeaf", "URLString": "http://a/",
                                         "URIDictionary": {"title": "T\u00fcr"}}]}, file)
        done = subprocess.run([sys.executable, ROOT / "scripts/show-bookmarks", path], capture_output=True,
                              env={**os.environ, "PYTHONIOENCODING": "ascii"}, timeout=60)
        self.assertEqual((done.returncode, done.stdout), (0, b"T\\xfcr  <http://a/>\n"), done.stderr)


class Version(ScriptTest):
    def test_the_program_the_build_and_the_newest_changes_have_one(self):
        version = re.search(r"^project\(.* VERSION (\S+)", (ROOT / "CMakeLists.txt").read_text(), re.MULTILINE)[1]
        self.assertRegex(version, r"^\d+\.\d+\.\d+$")
        newest = re.search(r"^## (\S+) - \d{4}-\d\d-\d\d$", (ROOT / "CHANGELOG.md").read_text(), re.MULTILINE)[1]
        self.assertEqual(newest, version)
        said = subprocess.run([os.path.join(BUILD, "bin", "loomerctl"), "--version"], capture_output=True, text=True, timeout=60)
        self.assertEqual((said.returncode, said.stdout), (0, f"loomerctl {version}\n"), said.stderr)


def main():
    global ROOT, BUILD
    ROOT, BUILD = pathlib.Path(sys.argv.pop(1)), sys.argv.pop(1)
    unittest.main(verbosity=1)


if __name__ == "__main__":
    main()
