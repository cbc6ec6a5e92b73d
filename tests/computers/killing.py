#!/usr/bin/env python3
"""Kills the real tool at the system calls of its exchange with a real corvane-hub, syncs on, and demands that all
computers agree, with nothing lost and nothing doubled.

usage: killing.py PROGRAMS LOG_LIBRARY [TEST...]

PROGRAMS is the directory of corvanetool, loomerctl and corvane-hub. What is sent to the service and what is made durable are the points:
some of each, spread over the session, or with CORVANE_EVERYWHERE in the environment all.
"""

import collections
import os
import re
import signal

from computers import EVERYWHERE, GivingAndTaking, main
from homes import FIRST

CALLS = ("sendto", "fdatasync", "rename", "unlink")
POINTS_OF_A_CALL = 4
CALL = re.compile(r"^(?:\d+ +)?(\w+)\(")


def spread(count):
    """Some of the numbers from 1 to `count`, the last ones, around the push, among them."""
    if EVERYWHERE or count <= POINTS_OF_A_CALL:
        return range(1, count + 1)
    return sorted({1 + (count - 1) * i // (POINTS_OF_A_CALL - 1) for i in range(POINTS_OF_A_CALL)} | {count - 1})


class Killing(GivingAndTaking):
    def setUp(self):
        super().setUp()
        self.start()

    def under_strace(self, *options):
        return self.first.sync(FIRST, ("strace", "-f", "-qq", "-s", "0", *options))

    def counts(self):
        """How often a session that takes and gives makes each call."""
        self.make_edits()
        trace = os.path.join(self.directory, "trace")
        status, output = self.under_strace("-o", trace, "-e", "trace=" + ",".join(CALLS))
        self.assertEqual(status, 0, output)
        with open(trace, encoding="utf-8", errors="replace") as file:
            calls = collections.Counter(match.group(1) for match in map(CALL.match, file) if match)
        self.assertEqual(set(calls), set(CALLS), "the session sends, saves and commits")
        return calls

    def test_at_calls_around_the_push(self):
        for call, count in self.counts().items():
            for number in spread(count):
                with self.subTest(call=call, number=number):
                    self.make_edits()
                    status, _ = self.under_strace("-o", os.devnull, "-e", f"trace={call}",
                                                  "-e", f"inject={call}:signal=SIGKILL:when={number}")
                    self.assertEqual(status, -signal.SIGKILL)
                    self.first.age_lock()
                    self.require_agreement()
        self.settle()
        self.require_quiet()


if __name__ == "__main__":
    main()
