#!/usr/bin/env python3
"""Chromium, Firefox and a bookmarks file of one user, with the real extension and the real host: what is done to one arrives in the
others, and nothing is lost or doubled, whatever is killed, restored or copied.

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
SEED = int(os.environ.get("CORVANE_SEED", "20"))
RANDOM_EDITS = 120
SOME = 150  # enough for something to happen before all have arrived
MANY = 10_000


def site(title):
    return [title, f"https://{title.lower().replace(' ', '-')}.example/"]


class EndToEnd(unittest.TestCase):
    """The browsers are started once, and again after they were ended. Each test works in a folder of its own."""

    @classmethod
    def setUpClass(cls):
        directory = cls.enterClassContext(tempfile.TemporaryDirectory())
        cls.household = Household(BUILD, directory)
        cls.file = cls.household.file()
        cls.chromium = BrowserHand(cls.enterClassContext(cls.household.chromium()))
        cls.firefox = BrowserHand(cls.enterClassContext(cls.household.firefox()))
        cls.all = (cls.chromium, cls.firefox, cls.file)

    def hands(self):
        """Each browser with the other one."""
        return (self.chromium, self.firefox), (self.firefox, self.chromium)

    def start_with(self, *shapes, name=None):
        """The folder holds these, everywhere."""
        name = name or self.id().rsplit(".", maxsplit=1)[-1]
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

    def test_every_edit_in_each_of_them_arrives(self):
        before = [["Work", [site("Ant"), site("Bee"), ["Inner", [["Deep", [site("Cat")]], site("Dog")]]]], site("Eel"), site("Fox"),
                  ["Empty", []]]
        self.start_with(*([f"By {hand.flavour}", before] for hand in self.all))
        for hand in self.all:
            own = f"By {hand.flavour}/"
            hand.make(own + "Work", site("Gnu"), ["New", [["Newer", [site("Hen")]]]])
            hand.rename(own + "Work/Ant", "Ant & <b>aunt</b>")
            hand.rename(own + "Work", "Works")
            hand.readdress(own + "Eel", "https://eel.example/moved?a=1#b")
            hand.move(own + "Fox", own + "Works/Inner/Deep", 0)
            hand.move(own + "Works/Inner/Deep", own + "Empty", 0)
            hand.move(own + "Empty", own, 0)
            hand.move(own + "Works/Gnu", own + "Works", 0)
            hand.remove(own + "Works/Bee")
        empty, eel = ["Empty", [["Deep", [site("Fox"), site("Cat")]]]], ["Eel", "https://eel.example/moved?a=1#b"]
        works = ["Works", [site("Gnu"), ["Ant & <b>aunt</b>", "https://ant.example/"], ["Inner", [site("Dog")]],
                           ["New", [["Newer", [site("Hen")]]]]]]
        self.together(*([f"By {hand.flavour}", [empty, works, eel]] for hand in self.all))
        for hand in self.all:
            hand.remove(f"By {hand.flavour}/Works")
        self.together(*([f"By {hand.flavour}", [empty, eel]] for hand in self.all))

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
        self.assertEqual(len(found), len(set(found)), f"doubled; CORVANE_SEED={SEED}")
        self.assertEqual(made - gone - set(found), set(), f"lost; CORVANE_SEED={SEED}")

    def arrive_beside(self, wanted, hand, other, name, cut):
        """Much is on its way to `hand` when the way is cut, and arrives all the same."""
        pages = [[f"{name} {number}", f"https://example.com/{number}"] for number in range(SOME)]
        other.make("", [name, pages])
        eventually(lambda: hand.shapes()[len(wanted):], lambda: f"nothing of {name} arrives")
        cut()
        wanted.append([name, pages])
        self.together(*wanted)

    def test_killed_hosts_and_reloaded_extensions_lose_nothing(self):
        wanted = []
        self.start_with()
        for hand, other in self.hands():
            self.arrive_beside(wanted, hand, other, f"host of {hand.flavour}", lambda: self.household.kill_host(hand.flavour))
            self.arrive_beside(wanted, hand, other, f"extension in {hand.flavour}", hand.browser.reload_extension)

    def test_killed_restored_and_copied_profiles_lose_and_double_nothing(self):
        for hand, other in self.hands():
            with self.subTest(hand.flavour), tempfile.TemporaryDirectory() as directory:
                copy = os.path.join(directory, "profile")
                self.start_with(site("One"), site("Two"), site("Three"), name=f"Profile of {hand.flavour}")
                self.kill_before_it_has_written(hand, other)
                hand.browser.copy_profile(copy)
                other.make("", site("While it is gone"))
                hand.browser.start()
                since = [site("Two"), site("Three"), site("Seen"), site("While it is gone")]
                self.together(site("One"), *since)
                self.restore_after_edits(hand, other, copy)
                self.run_beside(hand, copy)

    def kill_before_it_has_written(self, hand, other):
        hand.make("", site("Seen"))
        eventually(lambda: site("Seen") in other.shapes(), other.shapes)
        hand.browser.crash()

    def restore_after_edits(self, hand, other, copy):
        """What was done since the copy was made stays done."""
        hand.rename("One", "One, renamed")
        hand.make("", site("Since"))
        other.remove("Two")
        wanted = [["One, renamed", site("One")[1]], *map(site, ("Three", "Seen", "While it is gone", "Since"))]
        self.together(*wanted)
        hand.browser.crash()
        hand.browser.restore_profile(copy)
        hand.browser.start()
        self.together(*wanted)

    def run_beside(self, hand, copy):
        """A copy of the profile in use is another client of the same bookmarks, whose first session deletes nothing: what others
        have deleted since comes back."""
        wanted = hand.shapes()
        wanted.insert(1, site("Two"))
        second = BrowserHand(getattr(self.household, hand.flavour)())
        second.folder = hand.folder
        second.browser.restore_profile(copy)
        with second.browser:
            eventually(lambda: second.shapes() == wanted, second.shapes)
            second.make("", site("Of the copy"))
            self.together(*wanted, site("Of the copy"))
            self.assertEqual(second.shapes(), [*wanted, site("Of the copy")])

    def test_new_profiles_take_everything_once(self):
        wanted = [site("One"), ["Folder", [site("Two"), ["Inner", [site("Three"), site("Three")]]]]]
        self.start_with(*wanted)
        for hand, _ in self.hands():
            before = hand.everything()
            hand.browser.end()
            hand.browser.new_profile()
            hand.browser.start()
            self.together(*wanted)
            # Also what the browser itself puts into a new profile.
            eventually(lambda: hand.everything() == before, hand.everything)

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
