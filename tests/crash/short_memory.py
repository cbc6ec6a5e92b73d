#!/usr/bin/env python3
"""The real tool where memory runs out at one place after another.

usage: short_memory.py PROGRAMS

PROGRAMS is the directory of corvanetool and loomerctl. Whatever the address space is limited to, a session leaves no
single-run lock and no half-written file, and the next one finds everything in order.
"""

import os
import resource
import subprocess

from homes import FIRST, SECOND, HomeTest, folder, leaf, root_with, run_tests, write

MIB = 1 << 20
FOLDERS = 40
PAGES = 150


def large_root(name):
    """Deep as well as wide, so that a great many containers are dropped when memory runs out."""
    deep = [leaf(f"{name} bottom")]
    for level in range(100):
        deep = [folder(f"{name} level {level}", deep)]
    wide = [folder(f"{name} {i}", [leaf(f"{name} {i} page {j}", Kept={"list": [i, j, {"deep": [[j]]}]}) for j in range(PAGES)])
            for i in range(FOLDERS)]
    return root_with([*wide, *deep])


def limited(size):
    def limit():
        resource.setrlimit(resource.RLIMIT_AS, (size, size))
        resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    return limit


class ShortMemory(HomeTest):
    def setUp(self):
        super().setUp()
        for client, name in ((FIRST, "First"), (SECOND, "Second")):
            write(self.home.bookmarks(client), large_root(name))

    def run_limited(self, command, size):
        done = subprocess.run(command, env=self.home.environment, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, text=True, errors="replace", preexec_fn=limited(size), timeout=300)
        return done.returncode, done.stdout

    def contents(self, client):
        with open(self.home.bookmarks(client), "rb") as file:
            return file.read()

    def sync_at_every_limit(self, client):
        """Sessions with ever more memory, until one has enough; how many had too little."""
        before = self.contents(client)
        for short in range(400):
            status, output = self.run_limited(self.home.command(client), (16 + short) * MIB)
            self.assertFalse(os.path.exists(self.home.lock()), f"a lock stays behind at {16 + short} MiB: {output}")
            if status == 0:
                return short
            self.assertEqual(self.contents(client), before, "a session that failed wrote the file")
        self.fail("no session had enough memory")

    def test_a_session_without_memory_leaves_no_lock_and_the_files_whole(self):
        for client in (FIRST, SECOND):
            # Several of them got far enough to take the lock.
            self.assertGreater(self.sync_at_every_limit(client), 8)
        self.home.must_be_sound()
        self.home.must_sync(FIRST)
        self.assertEqual(self.home.shared_tree(FIRST), self.home.shared_tree(SECOND))
        self.assertEqual(len(self.home.root(FIRST)["Children"]), 2 * (FOLDERS + 1))

    def test_loomerctl_without_memory_says_so(self):
        self.home.must_sync(FIRST)
        said = 0
        for size in range(8, 200):
            status, output = self.run_limited([self.tools.control, "export", os.devnull], size * MIB)
            self.assertGreaterEqual(status, 0, f"ended by a signal at {size} MiB: {output}")
            said += "not enough memory" in output
            if status == 0:
                break
        self.assertGreater(said, 0)


if __name__ == "__main__":
    run_tests()
