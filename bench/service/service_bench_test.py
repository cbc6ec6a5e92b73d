#!/usr/bin/env python3
"""Runs corvane-service-bench with small numbers.  usage: service_bench_test.py PROGRAM"""

import re
import subprocess
import sys
import unittest

PROGRAM = sys.argv[1]
MONTH = 30  # days, from the end of which on what is old is collected


def run(*options):
    return subprocess.run([PROGRAM, *options], capture_output=True, text=True)


def size(text):
    number, unit = text.split()
    return float(number) * {"kB": 1e3, "MB": 1e6}[unit]


class ServiceBench(unittest.TestCase):
    def rows(self, *options):
        """The tables' rows, as lists of their cells."""
        done = run(*options)
        self.assertEqual((done.returncode, done.stderr), (0, ""), done.stdout)
        return [line.strip("| ").split(" | ") for line in done.stdout.splitlines() if re.match(r"\| [^-]", line)]

    def test_a_quiet_session_is_two_requests_and_an_edit_passes_none_of_the_records(self):
        for place in ("directory", "hub"):
            rows = {cells[0]: cells[1:] for cells in self.rows("places", "--places", place, "--records", "3000")}
            self.assertEqual(rows["quiet session"][0], "2")
            self.assertLess(size(rows["quiet session"][2]), 1000)
            # A look at the newest commit and the next slot, one put, and another look.
            self.assertEqual(rows["one edit"][0], "5")
            self.assertLess(size(rows["one edit"][1]), 5000)
            # Three thousand records with their names and addresses have to pass.
            self.assertGreater(size(rows["first push of 3,000"][1]), 30_000)
            self.assertGreater(size(rows["pull of the same"][2]), 30_000)

    def test_more_records_or_accounts_make_no_more_requests(self):
        for what, many, sessions in (("records", 20, ("quiet", "one edit", "taking it in")),
                                     ("accounts", 20, ("quiet", "one edit"))):
            rows = self.rows(what, f"--{what}", f"1,{many}")
            for session in sessions:
                requests = {cells[2] for cells in rows if cells[1] == session}
                self.assertEqual(len(requests), 1, (what, session, rows))

    def test_what_is_old_is_collected_in_the_course_of_a_year(self):
        for days in (4, 40):
            with self.subTest(days=days):
                rows = self.rows("year", "--days", str(days), "--records", "20")
                counts = {cells[0]: [int(cell.replace(",", "")) for cell in cells[1:] if " " not in cell]
                          for cells in rows if cells[0].isdigit()}
                _, sessions, edits, commits, checkpoints, objects, removed = counts[str(days)]
                # In the middle of a month is an import, and at its end the computer that is seldom used.
                self.assertEqual(edits, days * 20 + (days + MONTH // 2) // MONTH + days // MONTH * 5)
                self.assertGreater(sessions, edits)
                self.assertGreaterEqual(commits, edits)
                self.assertGreater(checkpoints, commits // 160)
                if days > MONTH:
                    self.assertGreater(removed, 0)
                    self.assertLess(objects, commits)
                else:
                    self.assertEqual(removed, 0)

    def test_a_command_line_that_cannot_be_followed_is_explained(self):
        for options in ([], ["all"], ["places", "--places", "moon"], ["records", "--records"], ["year", "--days", "0"],
                        ["accounts", "--records", "1"], ["places", "--records", "many"]):
            done = run(*options)
            self.assertEqual(done.returncode, 2, options)
            self.assertIn("usage: corvane-service-bench", done.stderr)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
