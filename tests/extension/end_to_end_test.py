#!/usr/bin/env python3
"""Chromium, Firefox and a bookmarks file of one user, with the real extension and the real host: what is done to one arrives in the
others, and nothing is lost or doubled, whatever is killed.

usage: end_to_end_test.py BUILD_DIRECTORY [TEST...]
"""

import os
import random
import sys
import tempfile
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))

from household import BrowserHand, Household, eventually  # noqa: E402

BUILD = None
SEED = 20
RANDOM_EDITS = 60
MANY = 1_000


def site(title):
    return [title, f"https://{title.lower().replace(' ', '-')}.example/"]


class EndToEnd(unittest.TestCase):
    """The browsers are started once, and once more after they were killed. Each test works in a folder of its own."""

    @classmethod
    def setUpClass(cls):
        directory = cls.enterClassContext(tempfile.TemporaryDirectory())
        cls.household = Household(BUILD, directory)
        cls.file = cls.household.file()
        cls.chromium = BrowserHand(cls.enterClassContext(cls.household.chromium()))
        cls.firefox = BrowserHand(cls.enterClassContext(cls.household.firefox()))
        cls.all = (cls.chromium, cls.firefox, cls.file)

    def start_with(self, *shapes):
        """The folder holds these, everywhere."""
        name = self.id().rsplit(".", maxsplit=1)[-1]
        for each in self.all:
            each.folder = ""
        self.firefox.make("", [name, list(shapes)])
        for each in self.all:
            each.folder = name
        self.together(*shapes)

    def together(self, *wanted):
        """Waits until all three hold this."""
        self.assertEqual(self.in_step(lambda shapes: shapes == list(wanted)), list(wanted))

    def in_step(self, is_wanted):
        """Waits until all three hold the same, which is wanted, and answers it. The file is asked last: that takes a session."""
        found = {}

        def is_same():
            for each in self.all:
                found[each.flavour] = each.shapes()
                if not is_wanted(found[each.flavour]) or found[each.flavour] != found["chromium"]:
                    return False
            return True
        eventually(is_same, lambda: found)
        return found["chromium"]

    def edit_in_every_way(self, hand):
        self.start_with(["Work", [site("Ant"), site("Bee"), ["Inner", [["Deep", [site("Cat")]], site("Dog")]]]], site("Eel"),
                        site("Fox"), ["Empty", []])
        hand.make("Work", site("Gnu"), ["New", [["Newer", [site("Hen")]]]])
        hand.rename("Work/Ant", "Ant & <b>aunt</b>")
        hand.rename("Work", "Works")
        hand.readdress("Eel", "https://eel.example/moved?a=1#b")
        hand.move("Fox", "Works/Inner/Deep", 0)
        hand.move("Works/Inner/Deep", "Empty", 0)
        hand.move("Empty", "", 0)
        hand.move("Works/Gnu", "Works", 0)
        hand.remove("Works/Bee")
        empty, eel = ["Empty", [["Deep", [site("Fox"), site("Cat")]]]], ["Eel", "https://eel.example/moved?a=1#b"]
        self.together(empty, ["Works", [site("Gnu"), ["Ant & <b>aunt</b>", "https://ant.example/"], ["Inner", [site("Dog")]],
                                        ["New", [["Newer", [site("Hen")]]]]]], eel)
        hand.remove("Works")
        self.together(empty, eel)

    def test_every_edit_in_chromium_arrives(self):
        self.edit_in_every_way(self.chromium)

    def test_every_edit_in_firefox_arrives(self):
        self.edit_in_every_way(self.firefox)

    def test_every_edit_in_the_file_arrives(self):
        self.edit_in_every_way(self.file)

    def test_edits_of_different_values_at_once_both_stand(self):
        self.start_with(site("One"), site("Two"))
        self.chromium.rename("One", "One of Chromium")
        self.firefox.readdress("One", "https://firefox.example/")
        self.firefox.move("Two", "", 0)
        self.together(site("Two"), ["One of Chromium", "https://firefox.example/"])

    def test_edits_of_one_value_at_once_end_as_one_of_them(self):
        self.start_with(site("One"))
        self.chromium.rename("One", "Of Chromium")
        self.firefox.rename("One", "Of Firefox")
        (title, address), = self.in_step(lambda shapes: shapes != [site("One")])
        self.assertIn(title, ("Of Chromium", "Of Firefox"))
        self.assertEqual(address, "https://one.example/")

    def test_what_browsers_show_in_another_form_does_not_travel_back(self):
        self.start_with()
        title, address = "two\nlines " + "x" * 5000, "https://EXAMPLE.com"
        self.file.make("", [title, address])
        for hand in (self.chromium, self.firefox):
            eventually(hand.shapes, lambda: "it does not arrive")
        self.chromium.make("", site("After"))
        eventually(lambda: len(self.firefox.shapes()) == 2, lambda: "what is made after it does not arrive")
        self.assertEqual(self.file.shapes(), [[title, address], site("After")])

    def test_random_edits_on_both_sides_end_in_one_tree(self):
        numbers = random.Random(SEED)
        start = [["A", [site("A1"), site("A2")]], ["B", [site("B1"), ["C", [site("C1")]]]], site("Top")]
        self.start_with(*start)
        made, gone = set(addresses(start)), set()
        for number in range(RANDOM_EDITS):
            edit_at_random(numbers.choice((self.chromium, self.firefox)), numbers, number, made, gone)
        found = addresses(self.in_step(lambda shapes: shapes is not None))
        self.household.home.must_be_sound()
        self.assertEqual(len(found), len(set(found)), "doubled")
        self.assertEqual(made - gone - set(found), set(), "lost")

    def test_killed_browsers_lose_nothing(self):
        wanted = [site("Before")]
        self.start_with(*wanted)
        for hand, other in ((self.chromium, self.firefox), (self.firefox, self.chromium)):
            wanted.append(site(f"Seen in {hand.flavour}"))
            hand.make("", wanted[-1])
            eventually(lambda: other.shapes() == wanted, other.shapes)
            hand.browser.crash()
            wanted.append(site(f"While {hand.flavour} is gone"))
            other.make("", wanted[-1])
            hand.browser.start()
            self.together(*wanted)

    def test_a_restored_backup_is_what_it_was(self):
        start = [["Folder", [site("One"), site("Two")]], site("Three")]
        self.start_with(*start)
        backup = os.path.join(self.firefox.browser.profile, "backup.json")
        self.firefox.browser.by_user("""
            const {PlacesBackups} = ChromeUtils.importESModule("resource://gre/modules/PlacesBackups.sys.mjs");
            await PlacesBackups.saveBookmarksToJSONFile(parameters[0]);""", backup)
        self.firefox.remove("Folder")
        self.firefox.rename("Three", "Drei")
        self.together(["Drei", "https://three.example/"])
        self.firefox.browser.by_user("""
            const {BookmarkJSONUtils} = ChromeUtils.importESModule("resource://gre/modules/BookmarkJSONUtils.sys.mjs");
            await BookmarkJSONUtils.importFromFile(parameters[0], {replace: true});""", backup)
        self.together(*start)

    # Runs last: it is what everything else would have to wait for.
    def test_what_is_much_arrives_in_its_order(self):
        self.start_with()
        many = [[f"Page {number}", f"https://example.com/{number}"] for number in range(MANY)]
        self.firefox.make("", *many)
        self.together(*many)


def below(node):
    """All that lies in a folder."""
    return [found for each in node.get("children", []) for found in (each, *below(each))]


def addresses(shapes):
    return [address for _, contents in shapes
            for address in (addresses(contents) if isinstance(contents, list) else [contents])]


def edit_at_random(hand, numbers, number, made, gone):
    """Tells which addresses are made, and which nobody needs to have any more."""
    top = hand.find()
    nodes = below(top)
    folders = [top] + [each for each in nodes if "children" in each]
    folder, node = numbers.choice(folders), numbers.choice(nodes)
    kind = numbers.choice(("make", "make", "folder", "rename", "readdress", "move", "move", "remove"))
    if kind == "make":
        hand.browser.make(folder["id"], [site(f"New {number}")])
        made.add(site(f"New {number}")[1])
    elif kind == "folder":
        hand.browser.make(folder["id"], [[f"Folder {number}", []]])
    elif kind == "rename":
        hand.browser.rename(node["id"], f"Renamed {number}")
    elif kind == "readdress" and "url" in node:
        gone.add(node["url"])
        hand.browser.readdress(node["id"], f"https://address{number}.example/")
    elif kind == "move" and folder["id"] not in [node["id"], *(each["id"] for each in below(node))]:
        hand.browser.move(node["id"], folder["id"], numbers.randrange(len(folder["children"]) + 1))
    elif kind == "remove" and not node.get("children"):
        gone.add(node.get("url"))
        hand.browser.remove(node["id"])


if __name__ == "__main__":
    BUILD = os.path.abspath(sys.argv.pop(1))
    unittest.main(verbosity=2)
