#!/usr/bin/env python3
"""The real tools in a home on a file system of its own, which fills up or becomes read-only.

usage: real_disks.py PROGRAMS LOG_LIBRARY [TEST...]

PROGRAMS is the directory of corvanetool and loomerctl, LOG_LIBRARY the library that gives a program a system log of its own.
Runs itself in a mount namespace, for who is not root in a user namespace as well.
"""

import errno
import os
import pathlib
import subprocess
import sys

from homes import (FIRST, SECOND, Home, HomeTest, child, edit_both, leaf, preloadable, run_tests, taken_lines, write,
                   write_two_histories)

INSIDE = "CORVANE_TEST_INSIDE"
DISK_BYTES = 2 << 20
# Room that lets a session come further than the one before: into the store's index, its log, a bookmarks file.
FREE_BYTES = (4 << 10, 36 << 10, 48 << 10, 72 << 10, 120 << 10)
BLOCK = bytes(4096)


def mount(*words):
    subprocess.run(["mount", *words], check=True)


class DiskTest(HomeTest):
    log_library = None

    def setUp(self):
        super().setUp()
        self.disk = os.path.join(self.directory, "disk")
        os.mkdir(self.disk)
        mount("-t", "tmpfs", "-o", f"size={DISK_BYTES}", "none", self.disk)
        self.addCleanup(subprocess.run, ["umount", self.disk], check=True)
        self.home = Home(self.tools, os.path.join(self.disk, "home")).make()
        self.log = os.path.join(self.directory, "log")
        temporary = os.path.join(self.directory, "tmp")
        os.mkdir(temporary)
        self.home.environment.update(TMPDIR=temporary, LD_PRELOAD=self.log_library, CORVANE_TEST_SYSLOG=self.log)
        write_two_histories(self.home)
        self.settle()
        edit_both(self.home)

    def settle(self):
        for client in (FIRST, SECOND, FIRST, SECOND):
            self.home.must_sync(client)
        self.home.must_be_sound()
        self.assertEqual(self.home.shared_tree(FIRST), self.home.shared_tree(SECOND))

    def must_go_on(self):
        """What had to wait is made up for, and nothing is missing or there twice."""
        self.settle()
        titles = self.home.control("tree")[1]
        for title in ("Page 1, read", "New on the first", "Inside the first", "Inside the second", "Note 0", "Note 3"):
            self.assertEqual(titles.count(title + "\n") + titles.count(title + " "), 1, titles)
        status, output = self.home.control("status")
        self.assertEqual(status, 1, output)  # the disk is small
        self.assertNotIn("failed", output)

    def files(self):
        """Every file's contents but those of the log of failed runs, and the indices that readers make."""
        paths = (pathlib.Path(self.home.path, name) for name in self.home.leftovers())
        return {path: path.read_bytes() for path in paths if path.is_file() and not path.name.endswith(("-shm", "-wal"))}

    def must_fail(self, cause):
        """Each client's session fails, says which file it was and why, and leaves all files as they were."""
        files = self.files()
        for client in (FIRST, SECOND):
            status, _ = self.home.sync(client)
            log = "\n".join(taken_lines(self.log))
            self.assertEqual(status, 1, log)
            self.assertRegex(log, rf"{self.home.path}[^:]*: [^.]*{cause}")
        self.assertEqual(self.files(), files)

    def must_refuse(self, cause, *arguments):
        status, output = self.home.control(*arguments)
        self.assertEqual(status, 1, output)
        self.assertIn(cause, output)


class FullDisk(DiskTest):
    def fill(self, free=0):
        path = os.path.join(self.disk, "filling")
        with open(path, "wb", buffering=0) as file:
            try:
                while True:
                    file.write(BLOCK)
            except OSError as error:
                self.assertEqual(error.errno, errno.ENOSPC)
            file.truncate(file.tell() - free)
        return path

    def test_it_is_named_and_left_as_it_is_until_there_is_room(self):
        filling = self.fill()
        self.must_fail("No space left on device")
        exported = os.path.join(self.disk, "bookmarks.html")
        for command in ("export", "report"):
            self.must_refuse(f"{exported}: No space left on device", command, exported)
            self.assertFalse(os.path.exists(exported))
        self.must_refuse("nearly full: 0 bytes", "status")
        self.assertIn("Sailing", self.home.control("tree")[1])
        self.home.must_be_sound()
        os.remove(filling)
        self.must_go_on()

    def test_wherever_a_session_meets_the_end_of_the_room_nothing_is_lost(self):
        failed = 0
        for turn, free in enumerate(FREE_BYTES):
            root = self.home.root(FIRST)
            child(root, "Reading")["Children"] += [leaf(f"Turn {turn}"), leaf(f"Long {turn}", Unknown="x" * 20_000)]
            write(self.home.bookmarks(FIRST), root)
            filling = self.fill(free)
            failed += sum(self.home.sync(client)[0] for client in (FIRST, SECOND))
            os.remove(filling)
            self.settle()
            titles = self.home.control("tree")[1]
            for each in range(turn + 1):
                self.assertEqual(titles.count(f"Turn {each}"), 1, titles)
        self.assertGreater(failed, 0)
        self.must_go_on()


class ReadOnlyDisk(DiskTest):
    def test_it_is_named_and_read_until_it_can_be_written(self):
        mount("-o", "remount,ro", self.disk)
        self.must_fail("Read-only file system")
        self.must_refuse("the file system is read-only", "status")
        self.must_refuse("Read-only file system", "export", os.path.join(self.disk, "bookmarks.html"))
        self.must_refuse("readonly", "reset", FIRST)
        self.assertIn("Sailing", self.home.control("tree")[1])
        self.home.must_be_sound()
        mount("-o", "remount,rw", self.disk)
        self.must_go_on()


def main():
    if INSIDE not in os.environ:
        os.environ[INSIDE] = "yes"
        as_root = () if os.geteuid() == 0 else ("--map-root-user",)
        os.execvp("unshare", ["unshare", *as_root, "--mount", "--propagation", "private", sys.executable, "-B", *sys.argv])
    DiskTest.log_library = preloadable(sys.argv.pop(2))
    run_tests()


if __name__ == "__main__":
    main()
