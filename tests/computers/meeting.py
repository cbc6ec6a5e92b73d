#!/usr/bin/env python3
"""The real tools on several computers, and a real corvane-hub: what they bring together.

usage: meeting.py PROGRAMS LOG_LIBRARY [TEST...]

PROGRAMS is the directory of corvanetool, loomerctl and corvane-hub.
"""

import random
import time

from computers import HubTest, main
from homes import FIRST, child, folder, leaf

AT_ONCE = 5
ROUNDS = 4
KILLS = 4


class Meeting(HubTest):
    def two_computers(self):
        entries = [folder("BookmarksBar", [leaf("Weather"), leaf("News")]),
                   folder("Reading", [leaf(f"Page {i}") for i in range(5)]), leaf("Loose")]
        first, second = self.computer(entries), self.computer()
        self.settle()
        return first, second

    def test_first_sessions_merge_two_histories(self):
        self.computer([folder("BookmarksBar", [leaf("Weather"), leaf("News")]),
                       folder("Reading", [leaf("Page 0"), leaf("Page 1")]), leaf("Twin"),
                       leaf("Twin", WebBookmarkUUID="UID Twin 2")])
        self.computer([folder("BookmarksBar", [leaf("Weather"), leaf("Sailing")]),
                       folder("Reading", [leaf("Page 0"), leaf("Page of the second")]), leaf("Twin")])
        self.settle()
        self.require_once("BookmarksBar", "Weather", "News", "Sailing", "Reading", "Page 0", "Page 1",
                          "Page of the second")
        self.assertEqual(self.computers[0].titles().count("Twin"), 2)
        self.require_quiet()

    def test_edits_of_two_computers_meet(self):
        first, second = self.two_computers()

        def edit_first(children):
            reading = child({"Children": children}, "Reading")
            child(reading, "Page 1")["URIDictionary"]["title"] = "Page 1, read"
            reading["Children"].insert(0, reading["Children"].pop())
            children.remove(child({"Children": children}, "Loose"))
            children.append(folder("Made on the first", [leaf("Inside the first")]))

        def edit_second(children):
            reading = child({"Children": children}, "Reading")
            page = child(reading, "Page 1")
            page["URLString"] = page["URIDictionary"][""] = "https://moved.example.com/"
            moved = child(reading, "Page 3")
            reading["Children"].remove(moved)
            child({"Children": children}, "BookmarksBar")["Children"].insert(1, moved)

        first.edit(edit_first)
        second.edit(edit_second)
        self.settle()
        _, _, tree = first.shared_tree(FIRST)
        reading = [entry for entry in tree if entry[0] == "Reading"][0]
        page = ("Page 1, read", "https://moved.example.com/")
        self.assertEqual([entry[0] for entry in reading[2]], ["Page 4", "Page 0", "Page 1, read", "Page 2"])
        self.assertIn(page, reading[2])
        self.assertEqual([entry[0] for entry in tree[0][2]], ["Weather", "Page 3", "News"])
        self.assertNotIn("Loose", first.titles())
        self.assertIn("Inside the first", second.titles())
        self.require_quiet()

    def test_of_two_new_titles_one_stands_everywhere(self):
        first, second = self.two_computers()
        for computer, title in ((first, "Mine"), (second, "Yours")):
            computer.edit(lambda children, title=title: child({"Children": children}, "Loose")["URIDictionary"]
                          .update(title=title))
        self.settle()
        self.assertEqual(sum(first.titles().count(title) for title in ("Loose", "Mine", "Yours")), 1)
        self.assertNotIn("Loose", first.titles())

    def test_a_deletion_gives_way_to_a_change(self):
        first, second = self.two_computers()
        first.edit(lambda children: children.remove(child({"Children": children}, "Reading")))
        second.edit(lambda children: child({"Children": children}, "Reading")["Children"].append(leaf("Added")))
        self.settle()
        self.require_once("Reading", "Added")
        self.assertNotIn("Page 2", first.titles())

    def test_a_computer_that_joins_is_given_everything_and_gives_nothing(self):
        self.two_computers()
        before = self.commits()
        third = self.computer()
        self.sync(third)
        self.assertEqual(third.shared_tree(FIRST), self.computers[0].shared_tree(FIRST))
        self.assertEqual(self.commits(), before)

    def start_all(self):
        return [computer.start(FIRST) for computer in self.computers]

    def wait_for(self, processes):
        for process in processes:
            output, _ = process.communicate(timeout=120)
            self.assertEqual(process.returncode, 0, output)

    def make_edits(self, turn):
        """Each computer adds one at the front, moves one to the end, and renames what all have."""
        titles = []
        for number, computer in enumerate(self.computers):
            titles.append(f"Turn {turn} of {number}")

            def change(children, title=titles[-1]):
                children.append(children.pop(0))
                children.insert(0, leaf(title))

            computer.edit(change)
        return titles

    def test_computers_that_sync_at_once_agree(self):
        for _ in range(AT_ONCE):
            self.computer([leaf("Common"), leaf("Also common")])
        titles = ["Common", "Also common"]
        self.settle()
        for turn in range(ROUNDS):
            titles += self.make_edits(turn)
            self.wait_for(self.start_all())
            for computer in self.computers:
                self.assertEqual(computer.lines(), [])
        self.settle()
        self.require_once(*titles)
        self.assertEqual(len(self.computers[0].titles()), len(titles))
        self.require_quiet()

    def test_a_server_that_is_killed_loses_and_doubles_nothing(self):
        draw = random.Random(20)
        for _ in range(3):
            self.computer([leaf("Common"), leaf("Also common")])
        titles = ["Common", "Also common"]
        self.settle()
        for turn in range(KILLS):
            titles += self.make_edits(turn)
            processes = self.start_all()
            time.sleep(draw.uniform(0, 0.15))
            self.service.kill()
            self.wait_for(processes)
            self.service.start()
            for computer in self.computers:
                self.assertLessEqual(len(computer.lines()), 1)
        self.settle()
        self.require_once(*titles)
        self.assertEqual(len(self.computers[0].titles()), len(titles))
        self.require_quiet()

    def test_switched_off_nothing_is_sent_or_taken(self):
        first, second = self.two_computers()
        self.assertEqual(first.run("--unregister"), 0)
        self.assertEqual(first.run("--isregistered"), 1)
        first.add("Kept here")
        second.add("Kept there")
        self.sync(second)
        before = self.commits()
        self.sync(first)
        self.assertEqual(self.commits(), before)
        self.assertNotIn("Kept there", first.titles())
        self.assertEqual(first.run("--register"), 0)
        self.assertEqual(first.run("--isregistered"), 0)
        self.settle()
        self.require_once("Kept here", "Kept there")


if __name__ == "__main__":
    main()
