#!/usr/bin/env python3
"""Runs corvane-hubload for a few seconds.  usage: hubload_test.py PROGRAM"""

import re
import subprocess
import sys
import unittest

PROGRAM = sys.argv.pop()
ROW = re.compile(r"^  (\w+) +(\d+) +([\d.]+) +([\d.]+) +([\d.]+) +([\d.]+) +([\d.]+) +([\d.]+) +(\d+) +(\d+)"
                 r" +(\d+) +(\d+)$", re.MULTILINE)


def run(*options):
    return subprocess.run([PROGRAM, *options], capture_output=True, text=True)


class Hubload(unittest.TestCase):
    def test_three_accounts_of_three_computers_agree_in_the_end(self):
        done = run("--private-server", "--accounts", "3", "--computers", "3", "--records", "60", "--processes", "3",
                   "--edits-per-second", "20", "--seconds", "2")
        self.assertEqual((done.returncode, done.stderr), (0, ""), done.stdout)
        self.assertIn("9 computers of 3 accounts: all computers of each account and the service agree; "
                      "0 sessions failed", done.stdout)
        rows = {row[0]: row for row in ROW.findall(done.stdout)}
        self.assertEqual(rows["load"][1], "3")
        self.assertEqual(rows["pull"][1], "6")
        for kind in ("quiet", "edit"):
            sessions, rate, median, p95, p99, greatest = map(float, rows[kind][1:7])
            self.assertGreater(sessions, 0)
            self.assertGreater(rate, 0)
            self.assertTrue(0 < median <= p95 <= p99 <= greatest, rows[kind])
        for kind in ("load", "pull", "quiet", "edit"):
            self.assertGreater(int(rows[kind][10]), 500, f"bytes sent: {rows[kind]}")
            self.assertGreater(int(rows[kind][11]), 500, f"bytes received: {rows[kind]}")
        # Sixty records with their names and addresses have to pass, and nothing of them again.
        self.assertGreater(int(rows["load"][10]), 60 * 80)
        self.assertGreater(int(rows["pull"][11]), 60 * 80)
        self.assertLess(int(rows["quiet"][11]), 60 * 80)

    def test_a_command_line_that_cannot_be_followed_is_explained(self):
        for options in ([], ["--private-server", "--url", "postgresql://x/y"], ["--private-server", "--records"],
                        ["--private-server", "--records", "many"], ["--private-server", "--processes", "0"],
                        ["--private-server", "--via", "x:1"], ["--private-server", "--speed", "1"]):
            done = run(*options)
            self.assertEqual(done.returncode, 2, options)
            self.assertIn("usage: corvane-hubload", done.stderr)

    def test_a_server_that_cannot_be_reached_is_an_error(self):
        done = run("--url", "postgresql://nobody@127.0.0.1:1/hub")
        self.assertEqual(done.returncode, 1)
        self.assertIn("127.0.0.1", done.stderr)


if __name__ == "__main__":
    unittest.main()
