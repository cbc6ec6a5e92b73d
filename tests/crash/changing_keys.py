#!/usr/bin/env python3
"""Kills the real loomerctl at the system calls with which it takes a computer out of an account, then lets all computers sync
and the command run again: who remains has everything, and who is taken out learns nothing more. The same with the place put
back to before that, and the real corvanetool killed where it gives the place what it has forgotten.

usage: changing_keys.py PROGRAMS [TEST...]

PROGRAMS is the directory of corvanetool and loomerctl. The account is kept in a directory. What is made, replaced or removed, there
and at home, are the points: some of each call, or with CORVANE_EVERYWHERE in the environment all.
"""

import collections
import os
import re
import shutil
import signal
import stat
import subprocess
import sys
import tempfile
import unittest

from homes import FIRST, Home, Tools, leaf, root_with, write

TOOLS = None
EVERYWHERE = "CORVANE_EVERYWHERE" in os.environ
POINTS_OF_A_CALL = 5
CALLS = ("linkat", "renameat", "rename", "unlinkat", "unlink")
CALL = re.compile(r"^(?:\d+ +)?(\w+)\(")
NOT_THERE = 1  # the status of a command that refuses


def spread(count):
    """Some of the numbers from 1 to `count`, the first and the last among them."""
    if EVERYWHERE or count <= POINTS_OF_A_CALL:
        return range(1, count + 1)
    return sorted({1 + (count - 1) * i // (POINTS_OF_A_CALL - 1) for i in range(POINTS_OF_A_CALL)})


class Computer(Home):
    def account(self, *arguments, given="", before=()):
        done = subprocess.run([*before, self.tools.control, "account", *arguments], env=self.environment, input=given,
                              capture_output=True, text=True, timeout=300)
        return done.returncode, done.stdout, done.stderr

    def must(self, *arguments, given=""):
        status, printed, errors = self.account(*arguments, given=given)
        if status != 0:
            raise RuntimeError(f"account {arguments[0]}: {errors}")
        return printed

    def begin(self, title):
        write(self.bookmarks(FIRST), root_with([leaf(title)]))
        done = subprocess.run([self.tools.tool, "--register"], env=self.environment, capture_output=True, timeout=300)
        if done.returncode != 0:
            raise RuntimeError(f"bookmarks cannot be switched on: {done.stderr}")

    def add(self, title):
        root = self.root(FIRST)
        root["Children"].append(leaf(title))
        write(self.bookmarks(FIRST), root)

    def titles(self):
        return sorted(each["URIDictionary"]["title"] for each in self.root(FIRST)["Children"])

    def account_folder(self):
        return os.path.join(self.path, "Library", "Application Support", "Loomer")

    def key(self):
        with open(os.path.join(self.account_folder(), "Account.plist"), "rb") as file:
            return file.read(17 + 32)[17:]


class ChangingKeys(unittest.TestCase):
    def setUp(self):
        self.top = tempfile.mkdtemp(prefix="corvane-keys-")
        self.addCleanup(shutil.rmtree, self.top)
        self.everything = os.path.join(self.top, "everything")
        os.makedirs(os.path.join(self.everything, "place"))
        self.first, self.second, self.third = (
            Computer(TOOLS, os.path.join(self.everything, name)).make() for name in ("first", "second", "third"))
        self.first.must("set", os.path.join(self.everything, "place"))
        self.first.begin("First")
        self.first.must_sync(FIRST)
        for computer, title in ((self.second, "Second"), (self.third, "Third")):
            computer.must("join", given=self.first.must("invite"))
            computer.begin(title)
        self.sync_all()
        self.sync_all()
        # By identifier, since all have the name of this machine.
        computers = self.second.must("computers", "--json")
        self.out = re.search(r'"computer": ?"([-0-9A-F]+)"[^}]*"isThisOne": ?true', computers).group(1)
        shutil.copytree(self.everything, os.path.join(self.top, "before"), symlinks=True)

    def sync_all(self):
        for computer in (self.second, self.first, self.third):
            computer.must_sync(FIRST)

    def go_back(self):
        """Everything is as it was before, at the same paths."""
        shutil.rmtree(self.everything)
        shutil.copytree(os.path.join(self.top, "before"), self.everything, symlinks=True)

    def take_out(self, *before):
        return self.first.account("remove-computer", self.out, before=before)

    def require_private(self):
        for directory, _, files in os.walk(self.first.account_folder()):
            for name in files:
                mode = stat.S_IMODE(os.stat(os.path.join(directory, name)).st_mode)
                self.assertEqual(mode & 0o077, 0, name)

    def require_taken_out(self):
        """Whatever was done of it before, it can be done now, and is."""
        status, _, errors = self.take_out()
        if status != 0:
            self.assertEqual(status, NOT_THERE, errors)
            self.assertIn("has no computer", errors)
        self.third.add("Later")
        self.first.add("Later still")
        for computer in (self.third, self.first, self.second, self.third):
            computer.must_sync(FIRST)
        everything = ["First", "Later", "Later still", "Meanwhile", "Second", "Third"]
        self.assertEqual(self.first.titles(), everything)
        self.assertEqual(self.third.titles(), everything)
        self.assertNotIn("Later", self.second.titles())
        self.assertEqual(self.first.key(), self.third.key())
        self.assertNotEqual(self.first.key(), self.second.key())

    def counts(self, act):
        """How many calls of each kind it takes."""
        trace = os.path.join(self.top, "trace")
        status, *said = act("strace", "-f", "-qq", "-s", "0", "-o", trace, "-e", "trace=" + ",".join(CALLS))
        self.assertEqual(status, 0, said)
        with open(trace, encoding="utf-8", errors="replace") as file:
            calls = collections.Counter(match.group(1) for match in map(CALL.match, file) if match)
        self.assertLessEqual({"linkat", "renameat", "rename"}, set(calls), "it makes objects and writes files")
        return calls

    def kill_at_each(self, begin, act, require):
        """Kills `act` at each thing that it does after `begin`, and asks for what is required then."""
        begin()
        for call, count in self.counts(act).items():
            for number in spread(count):
                with self.subTest(call=call, number=number):
                    begin()
                    status, *_ = act("strace", "-f", "-qq", "-o", os.devnull, "-e", f"trace={call}",
                                     "-e", f"inject={call}:signal=SIGKILL:when={number}")
                    self.assertEqual(status, -signal.SIGKILL)
                    self.require_private()
                    require()

    def require_changed(self):
        self.third.add("Meanwhile")
        self.third.must_sync(FIRST)
        self.first.must_sync(FIRST)
        self.require_private()
        self.require_taken_out()

    def test_at_each_thing_that_it_does(self):
        self.kill_at_each(self.go_back, self.take_out, self.require_changed)

    def put_back(self):
        """The place forgets that the second computer was taken out. The third one was away."""
        self.go_back()
        status, _, errors = self.take_out()
        self.assertEqual(status, 0, errors)
        self.first.add("After")
        self.first.must_sync(FIRST)
        place = os.path.join(self.everything, "place")
        shutil.rmtree(place)
        shutil.copytree(os.path.join(self.top, "before", "place"), place, symlinks=True)
        for computer, title in ((self.second, "Of the second"), (self.third, "Of the third")):
            computer.add(title)
            computer.must_sync(FIRST)

    def give_again(self, *before):
        return self.first.sync(FIRST, before)

    def require_given_again(self):
        self.first.age_lock()
        for computer in (self.first, self.second, self.third, self.first):
            computer.must_sync(FIRST)
        self.require_private()
        self.third.add("Later")
        for computer in (self.third, self.first, self.second):
            computer.must_sync(FIRST)
        # The third one had taken in what the second one gave while the place had forgotten.
        everything = ["After", "First", "Later", "Of the second", "Of the third", "Second", "Third"]
        self.assertEqual(self.first.titles(), everything)
        self.assertEqual(self.third.titles(), everything)
        self.assertNotIn("Later", self.second.titles())
        self.assertEqual(self.first.key(), self.third.key())
        self.assertNotEqual(self.first.key(), self.second.key())

    def test_at_each_thing_that_gives_a_forgotten_change_again(self):
        self.kill_at_each(self.put_back, self.give_again, self.require_given_again)


if __name__ == "__main__":
    TOOLS = Tools(os.path.abspath(sys.argv.pop(1)))
    unittest.main(verbosity=1)
