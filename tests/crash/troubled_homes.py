#!/usr/bin/env python3
"""The real tools where something is in the way: several at once, a locked, damaged, newer, stray or read-only store, a full
disk, and clocks that jump.

usage: troubled_homes.py PROGRAMS [TEST...]

PROGRAMS is the directory of corvanetool and loomerctl. What only root can make (a small disk, another user's view) needs
root; where it is missing the test fails.
"""

import contextlib
import os
import shutil
import sqlite3
import stat
import subprocess
import sys
import tempfile
import time
import unittest

from homes import FIRST, SECOND, Home, Tools, child, edit_both, leaf, write, write_two_histories

TOOLS = None
# A file restored with an old date looks unchanged; every twentieth session in a row without records takes them all the same.
SESSIONS_UNTIL_RECORDS = 20


def mode_of(path):
    return stat.S_IMODE(os.stat(path).st_mode)


class HomeTest(unittest.TestCase):
    def setUp(self):
        self.directory = tempfile.mkdtemp(prefix="corvane-trouble-")
        self.addCleanup(shutil.rmtree, self.directory)
        self.home = Home(TOOLS, os.path.join(self.directory, "home")).make()
        write_two_histories(self.home)

    def settle(self):
        for client in (FIRST, SECOND, FIRST, SECOND):
            self.home.age_lock()
            self.home.must_sync(client)
        self.home.must_be_sound()
        self.assertEqual(self.home.shared_tree(FIRST), self.home.shared_tree(SECOND))

    def titles(self, client):
        found = []

        def collect(entry):
            for each in entry.get("Children", []):
                found.append(each.get("Title") or each["URIDictionary"]["title"])
                collect(each)

        collect(self.home.root(client))
        return found

    def database(self):
        return sqlite3.connect(self.home.store(), isolation_level=None)

    def execute(self, statement):
        with contextlib.closing(self.database()) as database:
            database.execute(statement)


class SeveralAtOnce(HomeTest):
    def finish_all(self, processes):
        for process in processes:
            output, _ = process.communicate(timeout=120)
            self.assertIn(process.returncode, (0, 1), output)

    def test_two_of_one_client(self):
        self.finish_all([self.home.start(FIRST), self.home.start(FIRST)])
        self.settle()
        self.assertEqual(self.titles(FIRST).count("Twin"), 2, "nothing is doubled")

    def test_two_of_different_clients(self):
        # One waits at the single-run lock or goes; the file of neither may suffer.
        self.finish_all([self.home.start(FIRST), self.home.start(SECOND)])
        self.settle()

    def test_different_clients_that_do_not_see_each_others_single_run_lock(self):
        """Two sessions then wait for each other at the store alone."""
        elsewhere = Home(TOOLS, self.home.path)
        elsewhere.environment = dict(self.home.environment, TMPDIR=os.path.join(self.directory, "tmp"))
        os.mkdir(elsewhere.environment["TMPDIR"])
        processes = [self.home.start(FIRST), elsewhere.start(SECOND)]
        for process in processes:
            output, _ = process.communicate(timeout=120)
            self.assertEqual(process.returncode, 0, output)
        self.settle()

    def test_twenty_starts_at_once(self):
        self.finish_all([self.home.start(FIRST if i % 2 else SECOND) for i in range(20)])
        self.assertFalse(os.path.exists(self.home.lock()), "the last one gave the lock back")
        self.settle()
        self.assertEqual(self.titles(FIRST).count("Twin"), 2, "nothing is doubled")

    def test_a_lock_of_a_killed_run_is_broken_when_stale_and_not_before(self):
        os.mkdir(self.home.lock())
        self.home.sync(FIRST)
        self.assertFalse(os.path.exists(self.home.store()), "another run seemed to be at work")
        self.home.age_lock()
        self.home.must_sync(FIRST)
        self.assertFalse(os.path.exists(self.home.lock()))

    def test_a_session_waits_for_a_store_that_another_process_holds(self):
        self.settle()
        edit_both(self.home)
        holder = self.database()
        holder.execute("BEGIN IMMEDIATE")
        process = self.home.start(FIRST)
        with self.assertRaises(subprocess.TimeoutExpired):
            process.wait(timeout=2)
        holder.execute("ROLLBACK")
        holder.close()
        output, _ = process.communicate(timeout=120)
        self.assertEqual(process.returncode, 0, output)
        self.settle()
        self.assertIn("Inside the second", self.titles(FIRST))


class StoresInTrouble(HomeTest):
    def refused(self, *phrases):
        """The store is refused, and neither it nor a bookmarks file changes; what is said names what is wrong."""
        with open(self.home.store(), "rb") as file:
            before = file.read(), self.home.tree(FIRST)
        status, output = self.home.sync(FIRST)
        self.assertNotEqual(status, 0, output)
        checked, said = self.home.control("status")
        self.assertNotEqual(checked, 0)
        for phrase in phrases:
            self.assertIn(phrase, said)
        with open(self.home.store(), "rb") as file:
            self.assertEqual(before, (file.read(), self.home.tree(FIRST)))
        return output

    def test_a_newer_store_is_refused(self):
        self.settle()
        self.execute("PRAGMA user_version = 99")
        self.refused("version 99", "Install the newer version")

    def test_a_damaged_store_is_refused(self):
        self.settle()
        with open(self.home.store(), "r+b") as file:
            file.write(b"no database at all")
        self.refused("Put a backup of it in its place")

    def test_another_programs_database_is_refused(self):
        os.makedirs(os.path.dirname(self.home.store()))
        self.execute("CREATE TABLE theirs(x)")
        self.refused("not one of the sync engine's")

    def killed_with_side_files(self):
        """A home whose last run was killed in its commit, after the save."""
        self.settle()
        edit_both(self.home)
        self.home.must_sync(SECOND)
        self.home.sync(FIRST, ("strace", "-f", "-o", os.devnull, "-e", "trace=rmdir", "-e", "inject=rmdir:signal=SIGKILL:when=3"))
        self.home.age_lock()
        for suffix in ("-wal", "-shm"):
            self.assertTrue(os.path.exists(self.home.store() + suffix), "the run was killed before it closed the store")

    def test_side_files_that_a_kill_left_are_used_and_removed(self):
        self.killed_with_side_files()
        self.settle()
        for suffix in ("-wal", "-shm"):
            self.assertFalse(os.path.exists(self.home.store() + suffix))

    def test_a_missing_shm_is_made_again(self):
        self.killed_with_side_files()
        os.remove(self.home.store() + "-shm")
        self.settle()

    def test_a_lost_wal_is_a_session_that_was_not_committed(self):
        self.killed_with_side_files()
        os.remove(self.home.store() + "-wal")
        os.remove(self.home.store() + "-shm")
        self.settle()
        self.assertEqual(sorted(set(self.titles(FIRST))), sorted(set(self.titles(SECOND))))

    def test_side_files_of_another_database_do_no_harm(self):
        self.settle()
        before = self.titles(FIRST)
        other = os.path.join(self.directory, "other.db")
        stray = sqlite3.connect(other, isolation_level=None)
        stray.execute("PRAGMA journal_mode = WAL")
        stray.execute("PRAGMA wal_autocheckpoint = 0")
        stray.execute("CREATE TABLE theirs(x)")
        stray.execute("INSERT INTO theirs VALUES(randomblob(20000))")
        with open(other + "-wal", "rb") as file:
            theirs = bytearray(file.read())
        # A log whose checksums fail, as what a backup program put beside the store by mistake half-way.
        theirs[24] ^= 1
        with open(self.home.store() + "-wal", "wb") as file:
            file.write(theirs)
        self.settle()
        self.assertEqual(self.titles(FIRST), before)

    def test_modes_that_are_too_wide_are_narrowed_side_files_included(self):
        self.killed_with_side_files()
        os.chmod(os.path.dirname(self.home.store()), 0o755)
        for suffix in ("", "-wal", "-shm"):
            os.chmod(self.home.store() + suffix, 0o644)
        reader = self.database()
        reader.execute("BEGIN")
        reader.execute("SELECT count(*) FROM sessions").fetchall()
        self.home.must_sync(FIRST)
        self.assertEqual(mode_of(os.path.dirname(self.home.store())), 0o700)
        for suffix in ("", "-wal", "-shm"):
            self.assertEqual(mode_of(self.home.store() + suffix), 0o600, suffix)
        reader.close()

    def test_a_store_that_cannot_be_written_is_refused_and_works_again(self):
        """As root every mode permits: the directory stands on a read-only mount instead."""
        self.settle()
        write(self.home.bookmarks(FIRST), {**self.home.root(FIRST), "Children": self.home.root(FIRST)["Children"] + [leaf("More")]})
        directory = os.path.dirname(self.home.store())
        subprocess.run(["mount", "--bind", directory, directory], check=True)
        try:
            subprocess.run(["mount", "-o", "remount,bind,ro", directory], check=True)
            tree = self.home.tree(FIRST)
            status, output = self.home.sync(FIRST)
            self.assertNotEqual(status, 0, output)
            self.assertEqual(self.home.tree(FIRST), tree)
        finally:
            subprocess.run(["umount", directory], check=True)
        self.settle()
        self.assertIn("More", self.titles(SECOND))

    def test_a_read_only_home_changes_nothing(self):
        self.settle()
        edit_both(self.home)
        library = os.path.join(self.home.path, "Library")
        trees = self.home.tree(FIRST), self.home.tree(SECOND)
        subprocess.run(["mount", "--bind", library, library], check=True)
        try:
            subprocess.run(["mount", "-o", "remount,bind,ro", library], check=True)
            for client in (FIRST, SECOND):
                status, output = self.home.sync(client)
                self.assertNotEqual(status, 0, output)
            self.assertEqual(trees, (self.home.tree(FIRST), self.home.tree(SECOND)))
        finally:
            subprocess.run(["umount", library], check=True)
        self.settle()
        self.assertIn("Inside the second", self.titles(FIRST))


class FullDisk(HomeTest):
    def test_a_full_disk_loses_nothing_at_any_size(self):
        """The home lies on a small disk that is filled up to some kilobytes; then there is room again."""
        for free in (0, 4, 12, 24, 40, 80):
            with self.subTest(free=free):
                path = os.path.join(self.directory, f"disk-{free}")
                os.mkdir(path)
                subprocess.run(["mount", "-t", "tmpfs", "-o", "size=2m", "none", path], check=True)
                try:
                    self.on_small_disk(self.home.copy(os.path.join(path, "home")), free)
                finally:
                    subprocess.run(["umount", path], check=True)

    def on_small_disk(self, home, free):
        for client in (FIRST, SECOND, FIRST, SECOND):
            home.must_sync(client)
        edit_both(home)
        ballast = os.path.join(os.path.dirname(home.path), "ballast")
        with open(ballast, "wb", buffering=0) as file:
            try:
                while True:
                    file.write(bytes(4096))
            except OSError:
                file.truncate(max(0, file.tell() - free * 1024))
        for client in (SECOND, FIRST):
            home.sync(client)
            home.age_lock()
        os.remove(ballast)
        for client in (FIRST, SECOND, FIRST, SECOND):
            home.must_sync(client)
        home.must_be_sound()
        self.assertEqual(home.shared_tree(FIRST), home.shared_tree(SECOND))
        self.home, home = home, self.home
        titles = self.titles(FIRST)
        self.home = home
        for title in ("Page 1, read", "New on the first", "Inside the first", "Inside the second", "Note 0", "Note 3"):
            self.assertEqual(titles.count(title), 1, title)


class JumpingClocks(HomeTest):
    def test_files_dated_a_year_ahead_or_back_lose_no_edit(self):
        self.settle()
        for turn, days in enumerate((365, -365, 0)):
            root = self.home.root(FIRST)
            child(root, "Reading")["Children"].append(leaf(f"Turn {turn}"))
            write(self.home.bookmarks(FIRST), root)
            moment = time.time() + days * 24 * 60 * 60
            os.utime(self.home.bookmarks(FIRST), (moment, moment))
            for _ in range(SESSIONS_UNTIL_RECORDS if days < 0 else 0):
                self.home.must_sync(FIRST)
            self.settle()
            self.assertEqual(self.titles(SECOND).count(f"Turn {turn}"), 1)

    def test_a_lock_dated_a_year_back_is_stale_and_one_dated_ahead_is_held(self):
        for days, broken in ((365, False), (-365, True)):
            os.makedirs(self.home.lock(), exist_ok=True)
            moment = time.time() + days * 24 * 60 * 60
            os.utime(self.home.lock(), (moment, moment))
            self.home.sync(FIRST)
            self.assertEqual(not os.path.exists(self.home.lock()), broken)


def main():
    global TOOLS
    TOOLS = Tools(os.path.abspath(sys.argv.pop(1)))
    unittest.main(verbosity=1)


if __name__ == "__main__":
    main()
