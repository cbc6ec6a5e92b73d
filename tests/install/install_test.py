#!/usr/bin/env python3
"""An installation, made under a closed umask and then moved: where everything lies, and that it runs there.

usage: install_test.py BUILD_DIRECTORY SYSLOG_LIBRARY [TEST...]
"""

import os
import pathlib
import re
import stat
import subprocess
import sys
import tempfile
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "crash"))

from homes import FIRST, Home, Tools, leaf, root_with, taken_lines, write  # noqa: E402

BUILD = None
LIBRARY = None  # of the private system log, by a name of this process's: a path may hold a blank, at which LD_PRELOAD cuts
SCHEMA = "lib/corvane/System/Library/PrivateFrameworks/Quillet.framework/Resources/Corvane.syncschema"
COMMANDS = ["corvane-browser-host", "corvane-hub", "corvanetool", "loomerctl"]


class Installation(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        directory = tempfile.TemporaryDirectory(prefix="corvane-install-")
        cls.addClassCleanup(directory.cleanup)
        cls.made_at = os.path.join(directory.name, "made")
        cls.prefix = os.path.join(directory.name, "moved to another place")
        environment = {key: value for key, value in os.environ.items() if key != "DESTDIR"}
        done = subprocess.run(["cmake", "--install", BUILD, "--prefix", cls.made_at], env=environment, umask=0o077,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, timeout=300)
        if done.returncode != 0:
            raise RuntimeError(done.stdout)
        os.rename(cls.made_at, cls.prefix)

    def installed(self, *names):
        return os.path.join(self.prefix, *names)

    def home(self, *entries, **more):
        """A home with a bookmarks file, whose runs have a system log of their own, and that log."""
        directory = tempfile.TemporaryDirectory(prefix="corvane-home-")
        self.addCleanup(directory.cleanup)
        home = Home(Tools(self.installed("bin")), os.path.join(directory.name, "home")).make()
        log = os.path.join(directory.name, "log")
        # AddressSanitizer wants to be the first library of all unless told otherwise.
        home.environment.update(LD_PRELOAD=LIBRARY, CORVANE_TEST_SYSLOG=log, **more,
                                ASAN_OPTIONS=home.environment["ASAN_OPTIONS"] + ":verify_asan_link_order=0")
        write(home.bookmarks(FIRST), root_with(list(entries)))
        return home, log


class Layout(Installation):
    def test_the_prefix_holds_folders_that_every_prefix_has_and_the_commands(self):
        self.assertEqual(sorted(os.listdir(self.prefix)), ["bin", "lib", "share"])
        self.assertEqual(sorted(os.listdir(self.installed("bin"))), COMMANDS)
        self.assertEqual(sorted(os.listdir(self.installed("lib"))), ["corvane", "systemd", "sysusers.d"])

    def test_everybody_may_read_what_was_installed_under_a_closed_umask(self):
        closed = []
        for where, directories, names in os.walk(self.prefix):
            for name in (*directories, *names):
                path = os.path.join(where, name)
                mode = os.stat(path).st_mode
                needed = 0o055 if stat.S_ISDIR(mode) or mode & 0o100 else 0o044
                if mode & needed != needed:
                    closed.append(f"{os.path.relpath(path, self.prefix)}: {stat.filemode(mode)}")
        self.assertEqual(closed, [])

    def test_the_unit_starts_the_program_of_the_prefix_it_was_installed_into(self):
        with open(self.installed("lib/systemd/system/corvane-hub.service"), encoding="utf-8") as file:
            self.assertIn(f"ExecStart={self.made_at}/bin/corvane-hub serve\n", file.readlines())


    def test_the_user_units_stand_where_the_users_manager_looks(self):
        self.assertEqual(sorted(os.listdir(self.installed("lib/systemd/user"))),
                         ["corvane-sync.service", "corvane-sync.timer", "corvane-sync@.path"])


    def test_the_tool_starts_without_libraries_that_a_quiet_session_does_not_need(self):
        needed = subprocess.run(["ldd", self.installed("bin", "corvanetool")], check=True, capture_output=True, text=True).stdout
        self.assertIn("libsqlite3.so", needed)
        for library in ("libcurl", "libidn2", "libsodium", "libsystemd", "libunistring", "libzstd"):
            self.assertNotIn(library, needed)


class Documents(Installation):
    def files(self, directory, pattern):
        return sorted(pathlib.Path(self.installed(directory)).glob(pattern))

    def manual_pages(self):
        return {f"{path.stem}({path.suffix[1:]})" for path in self.files("share/man", "man*/*")}

    def test_each_command_has_a_manual_page(self):
        described = {page.split("(")[0] for page in self.manual_pages()}
        self.assertEqual([command for command in COMMANDS if command not in described], [])

    def test_messages_name_only_documents_that_are_installed(self):
        documents = {path.name for path in self.files("share/doc/corvane-sync", "*")} | self.manual_pages()
        named = set()
        for command in COMMANDS:
            texts = subprocess.run(["objcopy", "-O", "binary", "--only-section=.rodata", self.installed("bin", command),
                                    "/dev/stdout"], stdout=subprocess.PIPE, check=True, timeout=60).stdout
            named.update(each.decode() for each in re.findall(rb"\b[\w.-]+\([1578]\)|\b[\w-]+\.md\b", texts))
        self.assertIn("loomerctl(1)", named)
        self.assertEqual(sorted(named - documents), [])

    def test_manual_pages_name_only_pages_that_are_installed(self):
        for page in self.files("share/man", "man*/*"):
            text = page.read_text(encoding="utf-8")
            named = {f"{name}({section})" for name, section in re.findall(r"^\.Xr (\S+) (\d)", text, re.MULTILINE)}
            self.assertTrue(named, page.name)
            self.assertEqual(sorted(named - self.manual_pages()), [], page.name)

    def test_links_of_documents_lead_to_documents_that_are_installed(self):
        for document in self.files("share/doc/corvane-sync", "*.md"):
            for link in re.findall(r"\]\(([^)#]+)", document.read_text(encoding="utf-8")):
                self.assertTrue(link.startswith("https://") or (document.parent / link).exists(), f"{document.name}: {link}")

    def test_completions_lie_where_each_shell_looks(self):
        names = ("corvanetool", "loomerctl")
        for directory, name in (("bash-completion/completions", "{}"), ("zsh/site-functions", "_{}"),
                                ("fish/vendor_completions.d", "{}.fish")):
            found = [path.name for path in self.files("share/" + directory, "*")]
            self.assertEqual(found, [name.format(each) for each in names])


class Moved(Installation):
    def test_each_command_runs(self):
        for command, status, text in (("corvanetool", 1, "what you trying to do?"), ("loomerctl", 2, "usage: loomerctl"),
                                      ("corvane-hub", 2, "corvane-hub --help")):
            done = subprocess.run([self.installed("bin", command)], stdin=subprocess.DEVNULL, capture_output=True, text=True,
                                  timeout=60)
            self.assertEqual(done.returncode, status, command)
            self.assertIn(text, done.stderr)

    def test_a_session_finds_what_it_needs(self):
        home, log = self.home(leaf("One"))
        self.assertEqual(home.sync(FIRST)[0], 0, taken_lines(log))
        self.assertIn(FIRST, home.control("clients")[1])
        self.assertIn("One", home.control("tree")[1])

    def test_the_manuals_example_of_a_bookmarks_file_is_one(self):
        page = pathlib.Path(self.installed("share/man/man5/corvane-bookmarks.5")).read_text(encoding="utf-8")
        home, log = self.home()
        pathlib.Path(home.bookmarks(FIRST)).write_text(re.search(r"^\.Bd -literal.*?\n(.*?)^\.Ed", page, re.M | re.S)[1])
        self.assertEqual(home.sync(FIRST)[0], 0, taken_lines(log))
        tree = home.control("tree")[1]
        for text in ("Recipes", "Bread", "https://bread.example.com/"):
            self.assertIn(text, tree)

    def test_a_session_needs_the_schema_that_was_installed(self):
        home, log = self.home(leaf("One"))
        os.rename(self.installed(SCHEMA), self.installed(SCHEMA) + ".away")
        try:
            status, _ = home.sync(FIRST)
        finally:
            os.rename(self.installed(SCHEMA) + ".away", self.installed(SCHEMA))
        self.assertEqual(status, 1)
        self.assertIn("The sync schema", "\n".join(taken_lines(log)))

    def test_a_client_is_registered_from_the_description_that_was_installed(self):
        home, _ = self.home()
        done = subprocess.run([home.tools.tool, "--registersyncclient", FIRST], env=home.environment, timeout=60)
        self.assertEqual(done.returncode, 0)
        self.assertIn(FIRST, home.control("clients")[1])

    def test_texts_are_in_the_users_language(self):
        home, log = self.home(LC_ALL="de_DE.UTF-8")
        write(home.bookmarks(FIRST), {**root_with([]), "WebBookmarkFileVersion": 2})
        self.assertEqual(home.sync(FIRST)[0], 1)
        self.assertIn("Die Lesezeichendatei von Corvane", "\n".join(taken_lines(log)))
        self.assertIn("Aufruf: loomerctl", home.control("--help")[1])


def main():
    global BUILD, LIBRARY
    BUILD = sys.argv.pop(1)
    LIBRARY = f"/proc/{os.getpid()}/fd/{os.open(sys.argv.pop(1), os.O_RDONLY)}"
    unittest.main(verbosity=1)


if __name__ == "__main__":
    main()
