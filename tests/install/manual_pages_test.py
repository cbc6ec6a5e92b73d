#!/usr/bin/env python3
"""The manual pages as mandoc sees them, and as they are set 80 columns wide.

usage: manual_pages_test.py MANDOC DIRECTORY_OF_PAGES [TEST...]
"""

import pathlib
import re
import subprocess
import sys
import unittest

MANDOC = None
PAGES = None
# Whether a page that is named is there is for the test of the installation to say.
ELSEWHERE = "referenced manual not found"


class ManualPages(unittest.TestCase):
    def pages(self):
        pages = sorted(PAGES.iterdir())
        self.assertGreater(len(pages), 3)
        return pages

    def test_mandoc_has_nothing_to_say(self):
        for page in self.pages():
            done = subprocess.run([MANDOC, "-Tlint", page], capture_output=True, text=True, timeout=60)
            said = [line for line in (done.stdout + done.stderr).splitlines() if ELSEWHERE not in line]
            self.assertEqual(said, [])

    def test_no_line_is_wider_than_a_terminal(self):
        for page in self.pages():
            done = subprocess.run([MANDOC, "-Tutf8", "-Owidth=80", page], capture_output=True, text=True, check=True,
                                  timeout=60)
            text = re.sub(".\b", "", done.stdout)  # what is printed over stands for bold and underlined text
            self.assertEqual([line for line in text.splitlines() if len(line) > 80], [], page.name)


def main():
    global MANDOC, PAGES
    MANDOC, PAGES = sys.argv.pop(1), pathlib.Path(sys.argv.pop(1))
    unittest.main(verbosity=1)


if __name__ == "__main__":
    main()
