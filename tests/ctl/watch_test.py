#!/usr/bin/env python3
"""`loomerctl watch` on a terminal and in a pipe, while the real tools run.

usage: watch_test.py DIRECTORY_OF_PROGRAMS [TEST...]
"""

import fcntl
import os
import pty
import select
import shutil
import signal
import struct
import subprocess
import sys
import tempfile
import termios
import time
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "crash"))

from homes import FIRST, Home, Tools, leaf, root_with, write  # noqa: E402

PROGRAMS = None
PATIENCE = 120  # seconds; only a test that fails waits so long
ENTER, LEAVE = b"\x1b[?1049h", b"\x1b[?1049l"


class WatchTest(unittest.TestCase):
    def setUp(self):
        self.directory = tempfile.mkdtemp()
        self.addCleanup(shutil.rmtree, self.directory)
        self.home = Home(Tools(PROGRAMS), os.path.join(self.directory, "home")).make()
        write(self.home.bookmarks(FIRST), root_with([leaf("Ant"), leaf("Bee")]))
        self.home.must_sync(FIRST)
        self.said = b""

    def command(self):
        return [self.home.tools.control, "watch"]

    def on_terminal(self, columns=100, rows=30):
        """Starts it at a terminal of its own; answers its process."""
        self.process, self.terminal = pty.fork()
        if self.process == 0:
            os.execve(self.command()[0], self.command(), {**self.home.environment, "TERM": "xterm"})
        self.addCleanup(os.close, self.terminal)
        self.resize(columns, rows)

    def resize(self, columns, rows):
        fcntl.ioctl(self.terminal, termios.TIOCSWINSZ, struct.pack("HHHH", rows, columns, 0, 0))

    def read_until(self, descriptor, wanted):
        """Reads until that was said; answers what was said up to there."""
        end = time.monotonic() + PATIENCE
        while wanted not in self.said:
            ready, _, _ = select.select([descriptor], [], [], max(0, end - time.monotonic()))
            if not ready:
                self.fail(f"{wanted!r} is never said, only {self.said!r}")
            try:
                got = os.read(descriptor, 65536)
            except OSError:  # what a terminal answers when its last user has gone
                got = b""
            if not got:
                self.fail(f"{wanted!r} is not said before the end, only {self.said!r}")
            self.said += got
        at = self.said.index(wanted) + len(wanted)
        before, self.said = self.said[:at], self.said[at:]
        return before

    def ended_status(self):
        _, status = os.waitpid(self.process, 0)
        return os.waitstatus_to_exitcode(status)

    def in_pipe(self):
        process = subprocess.Popen(self.command(), env=self.home.environment, stdin=subprocess.DEVNULL,
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.addCleanup(process.stdout.close)
        self.addCleanup(process.stderr.close)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        return process

    def next_line(self, process):
        return self.read_until(process.stdout.fileno(), b"\n").decode()

    def test_terminal_is_redrawn_at_each_run_and_given_back_at_the_end(self):
        self.on_terminal()
        begun = self.read_until(self.terminal, b"All is well.")
        self.assertIn(ENTER, begun)
        self.assertNotIn(LEAVE, begun)
        self.read_until(self.terminal, b"pushed 2, pulled 0")
        self.home.must_sync(FIRST)
        self.read_until(self.terminal, b"nothing new")
        os.write(self.terminal, b"\x03")
        ended = self.read_until(self.terminal, LEAVE)
        self.assertIn(b"\x1b[?25h", ended, "the cursor is back")
        self.assertIn(b"\x1b[?7h", ended, "long lines go on in the next one again")
        self.assertEqual(self.ended_status(), 0)

    def test_terminal_of_another_size_is_drawn_anew_within_it(self):
        self.on_terminal(columns=200, rows=40)
        self.read_until(self.terminal, b"Truth.db (")
        self.resize(60, 5)
        shown = self.read_until(self.terminal, b" more lines)")
        self.assertLess(shown.rsplit(b"\x1b[H", 1)[1].count(b"\n"), 5)
        os.kill(self.process, signal.SIGTERM)
        self.read_until(self.terminal, LEAVE)
        self.assertEqual(self.ended_status(), 0)

    def test_terminal_is_the_shells_while_the_command_is_stopped(self):
        self.on_terminal()
        self.read_until(self.terminal, b"All is well.")
        os.write(self.terminal, b"\x1a")
        self.read_until(self.terminal, LEAVE)
        _, status = os.waitpid(self.process, os.WUNTRACED)
        self.assertTrue(os.WIFSTOPPED(status))
        os.kill(self.process, signal.SIGCONT)
        self.read_until(self.terminal, ENTER)
        self.read_until(self.terminal, b"All is well.")
        os.kill(self.process, signal.SIGINT)
        self.read_until(self.terminal, LEAVE)
        self.assertEqual(self.ended_status(), 0)

    def test_pipe_gets_a_line_for_each_run_and_each_concern(self):
        process = self.in_pipe()
        self.assertIn("pushed 2, pulled 0", self.next_line(process))
        self.home.must_sync(FIRST)
        self.assertIn("nothing new", self.next_line(process))
        good = self.home.root(FIRST)
        with open(self.home.bookmarks(FIRST), "w", encoding="utf-8") as file:
            file.write("rubbish")
        self.assertIn("! ", self.next_line(process))
        self.assertEqual(self.home.sync(FIRST)[0], 1)
        self.assertIn("failed", self.next_line(process))
        write(self.home.bookmarks(FIRST), good)
        lines = [self.next_line(process) for _ in range(2)]  # the file is sound, the last run was not
        self.assertTrue(any("Over: " in line for line in lines), lines)
        self.assertTrue(any("! The last run of" in line for line in lines), lines)
        self.home.must_sync(FIRST)
        lines = [self.next_line(process) for _ in range(2)]
        self.assertTrue(any("nothing new" in line for line in lines), lines)
        process.send_signal(signal.SIGINT)
        self.assertEqual(process.wait(PATIENCE), 0)
        self.assertEqual(process.stderr.read(), b"")

    def test_reader_that_goes_ends_it(self):
        process = self.in_pipe()
        self.next_line(process)
        process.stdout.close()
        self.assertEqual(process.wait(PATIENCE), 0)

    def test_waiting_costs_nothing(self):
        process = self.in_pipe()
        self.next_line(process)

        def switches():
            with open(f"/proc/{process.pid}/status", encoding="utf-8") as file:
                return [line for line in file if line.startswith("voluntary_ctxt_switches")]

        before = None
        while before != switches():  # what its first look set off is over
            before = switches()
            time.sleep(1)
        time.sleep(3)
        self.assertEqual(switches(), before, "nobody woke it")

    def test_missing_store_is_refused(self):
        shutil.rmtree(os.path.dirname(self.home.store()))
        status, output = self.home.control("watch")
        self.assertEqual(status, 1)
        self.assertIn("There is no store yet", output)


if __name__ == "__main__":
    PROGRAMS = sys.argv.pop(1)
    unittest.main()
