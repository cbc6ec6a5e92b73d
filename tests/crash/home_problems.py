#!/usr/bin/env python3
"""The real tools where something is in the way: several at once, a locked, damaged, newer, stray or read-only store, a full
disk, and clocks that jump.

usage: home_problems.py PROGRAMS [TEST...]

PROGRAMS is the directory of corvanetool and loomerctl. Nothing here needs root or a file system of its own: the system calls
that a full disk or a read-only one would refuse are refused by strace.
"""

import contextlib
import itertools
import os
import sqlite3
import stat
import subprocess
import time

from homes import FIRST, SECOND, Home, HomeTest, child, edit_both, leaf, run_tests, write, write_two_histories

# A file restored with an old date looks unchanged; every twentieth session in a row without records takes them all the same.
SESSIONS_UNTIL_RECORDS = 20
# Modes bind root as well once it has no capabilities.
WITHOUT_CAPABILITIES = ("setpriv", "--bounding-set=-all", "--inh-caps=-all") if os.geteuid() == 0 else ()
# What takes room on a disk: new contents, the store's contents, directories. With a question mark: not on every processor.
TAKING_ROOM = ("write,writev", "pwrite64,pwritev,fallocate", "?mkdir,mkdirat")
CHANGING_MODES = "?chmod,fchmod,fchmodat"


def mode_of(path):
    return stat.S_IMODE(os.stat(path).st_mode)


def answering(calls, answer):
    """What runs a program so that these system calls do nothing but give this answer."""
    return ("strace", "-f", "-o", os.devnull, "-e", f"trace={calls}", "-e", f"inject={calls}:{answer}")


@contextlib.contextmanager
def read_only(top):
    """Takes the permission to write from everything in a directory; the two ways to run programs so that they cannot take it
    back: one that fails at once, and one that lets them go on until they write."""
    paths = [top, *(os.path.join(where, name) for where, directories, files in os.walk(top) for name in (*directories, *files))]
    modes = [(path, mode_of(path)) for path in paths]
    for path, mode in modes:
        os.chmod(path, mode & ~0o222)
    try:
        yield [(*WITHOUT_CAPABILITIES, *answering(CHANGING_MODES, answer)) for answer in ("error=EROFS", "retval=0")]
    finally:
        for path, mode in modes:
            os.chmod(path, mode)


class ProblemTest(HomeTest):
    def setUp(self):
        super().setUp()
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


class SeveralAtOnce(ProblemTest):
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
        elsewhere = Home(self.tools, self.home.path)
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


class StoreProblems(ProblemTest):
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
        self.settle()
        write(self.home.bookmarks(FIRST), {**self.home.root(FIRST), "Children": self.home.root(FIRST)["Children"] + [leaf("More")]})
        tree = self.home.tree(FIRST)
        with read_only(os.path.dirname(self.home.store())) as ways:
            for running in ways:
                status, output = self.home.sync(FIRST, running)
                self.assertEqual(status, 1, output)
        self.assertEqual(self.home.tree(FIRST), tree)
        self.settle()
        self.assertIn("More", self.titles(SECOND))

    def test_a_read_only_home_changes_nothing(self):
        self.settle()
        edit_both(self.home)
        trees = self.home.tree(FIRST), self.home.tree(SECOND)
        with read_only(os.path.join(self.home.path, "Library")) as ways:
            for running, client in itertools.product(ways, (FIRST, SECOND)):
                status, output = self.home.sync(client, running)
                self.assertEqual(status, 1, output)
        self.assertEqual(trees, (self.home.tree(FIRST), self.home.tree(SECOND)))
        self.settle()
        self.assertIn("Inside the second", self.titles(FIRST))


class FullDisk(ProblemTest):
    def test_a_disk_that_fills_up_loses_nothing_at_any_moment(self):
        """So many system calls of a kind find room in each session, and no later one; then there is room again."""
        self.settle()
        edit_both(self.home)
        edited = self.home
        for calls in (*TAKING_ROOM, ",".join(TAKING_ROOM)):
            found, statuses = 0, {}
            while statuses != {0}:
                self.home = edited.copy(os.path.join(self.directory, f"{calls}-{found}"))
                statuses = {self.home.sync(client, answering(calls, f"error=ENOSPC:when={found + 1}+"))[0] for client in (SECOND, FIRST)}
                self.assertTrue(found > 0 or 1 in statuses, f"no session noticed that no {calls} finds room")
                with self.subTest(calls=calls, found=found):
                    self.settle()
                    titles = self.titles(FIRST)
                    for title in ("Page 1, read", "New on the first", "Inside the first", "Inside the second", "Note 0", "Note 3"):
                        self.assertEqual(titles.count(title), 1, title)
                found += 1 + found // 4


class JumpingClocks(ProblemTest):
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


if __name__ == "__main__":
    run_tests()
