#!/usr/bin/env python3
"""What loomerctl does on a terminal and nowhere else: colours, widths, a pager, and telling what takes long.

usage: terminal_test.py DIRECTORY_OF_PROGRAMS [TEST...]
"""

import fcntl
import os
import pty
import shutil
import struct
import subprocess
import sys
import tempfile
import termios
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "crash"))

from homes import FIRST, Home, Tools, folder, leaf, root_with, write  # noqa: E402

PROGRAMS = None
ESCAPE = "\x1b["


class TerminalTest(unittest.TestCase):
    def setUp(self):
        self.directory = tempfile.mkdtemp()
        self.addCleanup(shutil.rmtree, self.directory)
        self.home = Home(Tools(PROGRAMS), os.path.join(self.directory, "home")).make()
        write(self.home.bookmarks(FIRST), root_with([folder("Many", [leaf(f"Page {i}") for i in range(40)])]))
        self.home.must_sync(FIRST)

    def on_terminal(self, *arguments, columns=80, **variables):
        """What the command says at a terminal of its own."""
        main, terminal = pty.openpty()
        fcntl.ioctl(terminal, termios.TIOCSWINSZ, struct.pack("HHHH", 24, columns, 0, 0))
        process = subprocess.Popen([self.home.tools.control, *arguments], stdin=subprocess.DEVNULL, stdout=terminal,
                                   stderr=terminal, env={**self.home.environment, "TERM": "xterm", **variables})
        os.close(terminal)
        said = b""
        while True:
            try:
                got = os.read(main, 65536)
            except OSError:  # what a terminal answers when its last user has gone
                break
            if not got:
                break
            said += got
        os.close(main)
        self.status = process.wait()
        return said.decode().replace("\r\n", "\n")

    def in_pipe(self, *arguments, **variables):
        return subprocess.run([self.home.tools.control, *arguments], env={**self.home.environment, "TERM": "xterm", **variables},
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True, check=True).stdout

    def script(self, text):
        path = os.path.join(self.directory, "pager")
        with open(path, "w", encoding="utf-8") as file:
            file.write("#!/bin/sh\n" + text)
        os.chmod(path, 0o700)
        return path

    def test_colours_are_for_terminals_whose_user_wants_them(self):
        self.assertIn(ESCAPE, self.on_terminal("tree"))
        self.assertNotIn(ESCAPE, self.on_terminal("tree", NO_COLOR="1"))
        self.assertNotIn(ESCAPE, self.on_terminal("tree", TERM="dumb"))
        self.assertNotIn(ESCAPE, self.in_pipe("tree"))

    def test_tables_are_cut_to_the_terminal_and_never_in_a_pipe(self):
        wide = self.on_terminal("clients", columns=200, NO_COLOR="1")
        self.assertIn("up to date", wide)
        narrow = self.on_terminal("clients", columns=60, NO_COLOR="1")
        self.assertTrue(all(len(line) <= 60 for line in narrow.splitlines()), narrow)
        self.assertIn("…", narrow)
        self.assertEqual(self.on_terminal("clients", columns=200, NO_COLOR="1", COLUMNS="60"), narrow)
        self.assertEqual(self.in_pipe("clients", COLUMNS="60"), wide)

    def test_status_tells_times_to_the_minute_in_a_line_of_80_columns(self):
        shown = self.on_terminal("status", columns=80, NO_COLOR="1")
        self.assertRegex(shown, r" \d{4}-\d\d-\d\d \d\d:\d\d  \d{4}-\d\d-\d\d \d\d:\d\d ")
        self.assertTrue(all(len(line) <= 80 for line in shown.splitlines()[:4]), shown)
        self.assertRegex(self.in_pipe("status"), r"\d\d:\d\d:\d\d [+-]\d{4}")

    def test_concerns_are_wrapped_to_the_terminal(self):
        os.mkdir(self.home.lock())
        self.home.age_lock()
        for columns in (60, 120):
            text = self.on_terminal("status", columns=columns, NO_COLOR="1")
            warning = text[text.index("- A run"):].splitlines()
            self.assertLessEqual(max(map(len, warning)), columns)
            self.assertGreater(max(map(len, warning)), columns * 2 // 3)

    def test_pager_shows_long_lists_of_a_terminal(self):
        pager = self.script("sed 's/^/paged: /'\necho \"LESS is $LESS\"\n")
        shown = self.on_terminal("tree", PAGER=pager, NO_COLOR="1")
        self.assertEqual(shown.count("paged: "), 41)
        self.assertIn("LESS is FRX", shown)
        self.assertIn("LESS is S", self.on_terminal("sessions", PAGER=pager, LESS="S"))
        for arguments in (("status",), ("tree", "--json")):
            self.assertNotIn("paged", self.on_terminal(*arguments, PAGER=pager))
        self.assertNotIn("paged", self.in_pipe("tree", PAGER=pager))
        self.assertIn("Page 39", self.on_terminal("tree", PAGER=""))

    def test_pager_that_reads_little_or_is_none_does_no_harm(self):
        shown = self.on_terminal("tree", PAGER=self.script("head -n 1"), NO_COLOR="1")
        self.assertIn("Many/", shown)
        self.assertNotIn("Page 39", shown)
        self.assertEqual(self.status, 0)
        self.on_terminal("tree", PAGER=os.path.join(self.directory, "missing"))
        self.assertEqual(self.status, 0)

    def test_status_of_the_command_comes_behind_the_pager(self):
        root = self.home.root(FIRST)
        root["Children"].append(leaf("New"))
        write(self.home.bookmarks(FIRST), root)
        self.assertIn("New", self.on_terminal("diff", FIRST, PAGER="cat"))
        self.assertEqual(self.status, 1)
        self.assertIn("no record's number", self.on_terminal("show", "none", PAGER="cat"))
        self.assertEqual(self.status, 1)

    def test_what_takes_long_is_told_and_cleared(self):
        page = os.path.join(self.directory, "page.html")
        with open(page, "w", encoding="utf-8") as file:
            file.write('<DL><DT><A HREF="http://new.example/">New</A></DL>')
        for arguments, told in ((("check",), "Checking the store: step 1 of "), (("import", page), "Comparing 1 entry"),
                                (("undo", "2"), "Undoing session 2"), (("sync",), f"Syncing {FIRST}")):
            with self.subTest(arguments=arguments):
                text = self.on_terminal(*arguments, LANG="C")
                self.assertEqual(self.status, 0, text)
                self.assertIn(told, text)
                cleared = text.rindex("\r" + ESCAPE + "K")
                self.assertNotIn("\r", text[cleared + 1:])
                self.assertRegex(text[cleared:], r"[a-z]{3}")  # the outcome comes behind
        self.assertNotIn("Checking", self.in_pipe("check"))


if __name__ == "__main__":
    PROGRAMS = sys.argv.pop(1)
    unittest.main()
