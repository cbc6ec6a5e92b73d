#!/usr/bin/env python3
"""`loomerctl diff` over files that the real tools have synced, and that somebody edited since.

usage: diff_test.py DIRECTORY_OF_PROGRAMS [TEST...]
"""

import json
import os
import shutil
import sys
import tempfile
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "crash"))

from homes import FIRST, SECOND, Home, Tools, child, folder, leaf, root_with, write  # noqa: E402

PROGRAMS = None
SAME, DIFFERENT, TROUBLE = 0, 1, 2


class DiffTest(unittest.TestCase):
    def setUp(self):
        directory = tempfile.mkdtemp()
        self.addCleanup(shutil.rmtree, directory)
        self.home = Home(Tools(PROGRAMS), os.path.join(directory, "home")).make()
        write(self.home.bookmarks(FIRST), root_with([
            folder("BookmarksBar", [leaf("News")]), folder("Reading", [leaf(f"Page {i}") for i in range(5)]), leaf("Loose")]))
        self.home.must_sync(FIRST)

    def diff(self, expected, client=FIRST):
        """What differs, as (type, title); the text has a line for each, and the same exit status."""
        status, text = self.home.control("diff", client)
        self.assertEqual(status, expected, text)
        self.text = text
        status, output = self.home.control("diff", "--json", client)
        self.assertEqual(status, expected, output)
        found = json.loads(output)
        self.assertEqual(sum(line[0] in "+-*>" for line in text.splitlines()), len(found), text)
        return [(each["type"], (each["agreed"] or each["inFile"])["title"]) for each in found]

    def edit(self, change, client=FIRST):
        root = self.home.root(client)
        change(root)
        write(self.home.bookmarks(client), root)

    def test_synced_file_does_not_differ(self):
        self.assertEqual(self.diff(SAME), [])
        self.assertEqual(self.text, "")

    def test_each_kind_of_edit_in_the_file_is_told(self):
        def change(root):
            reading = child(root, "Reading")
            child(reading, "Page 0")["URIDictionary"]["title"] = "Page 0, read"
            child(reading, "Page 1")["URLString"] = "https://other.example.com/"
            reading["Children"].remove(child(reading, "Page 2"))
            root["Children"].append(reading["Children"].pop())  # "Page 4"
            root["Children"].append(folder("New", [leaf("Inside")]))

        self.edit(change)
        self.assertEqual(sorted(self.diff(DIFFERENT)), [
            ("added", "Inside"), ("added", "New"), ("changed", "Page 0"), ("changed", "Page 1"), ("moved", "Page 4"),
            ("removed", "Page 2")])
        self.assertIn('title: "Page 0" → "Page 0, read"', self.text)
        self.assertIn('address: "https://page-1.example.com/" → "https://other.example.com/"', self.text)
        self.assertIn('folder: "Reading" → the root', self.text)
        self.assertIn('+ bookmark "Inside" "https://inside.example.com/" in "New"', self.text)
        self.assertIn('- bookmark "Page 2"', self.text)
        self.home.must_sync(FIRST)
        self.assertEqual(self.diff(SAME), [])

    def test_only_the_siblings_that_were_put_elsewhere_are_moved(self):
        def change(root):
            pages = child(root, "Reading")["Children"]
            pages.insert(1, pages.pop())  # "Page 4"

        self.edit(change)
        self.assertEqual(self.diff(DIFFERENT), [("moved", "Page 4")])
        self.assertIn("in another place among its siblings", self.text)

    def test_what_other_clients_changed_is_what_the_file_lacks(self):
        shutil.copy(self.home.bookmarks(FIRST), self.home.bookmarks(SECOND))
        self.home.must_sync(SECOND)
        self.edit(lambda root: root["Children"].append(leaf("Theirs")), SECOND)
        self.edit(lambda root: root["Children"].remove(child(root, "Loose")), SECOND)
        self.home.must_sync(SECOND)
        self.assertEqual(sorted(self.diff(DIFFERENT)), [("added", "Loose"), ("removed", "Theirs")])
        self.assertEqual(self.diff(SAME, SECOND), [])

    def test_copy_without_a_base_is_matched_by_what_it_says(self):
        self.edit(lambda root: root["Children"].append(leaf("Mine")))
        shutil.copy(self.home.bookmarks(FIRST), self.home.bookmarks(SECOND))
        self.assertEqual(os.spawnve(os.P_WAIT, self.home.tools.tool, ["corvanetool", "--registersyncclient", SECOND],
                                    self.home.environment), 0)
        self.assertEqual(self.diff(DIFFERENT, SECOND), [("added", "Mine")])

    def test_looking_changes_nothing(self):
        self.edit(lambda root: root["Children"].append(leaf("Mine")))
        before = self.home.tree(FIRST)
        self.diff(DIFFERENT)
        self.assertEqual(self.home.tree(FIRST), before)
        status, output = self.home.control("status")
        self.assertEqual(status, 0, output)

    def test_what_cannot_be_compared_has_a_status_of_its_own(self):
        for client, why in ((SECOND, "There is no client"), (FIRST, "it is empty")):
            with self.subTest(client=client):
                with open(self.home.bookmarks(FIRST), "w", encoding="utf-8"):
                    pass
                status, output = self.home.control("diff", client)
                self.assertEqual(status, TROUBLE)
                self.assertIn(why, output)


if __name__ == "__main__":
    PROGRAMS = sys.argv.pop(1)
    unittest.main()
