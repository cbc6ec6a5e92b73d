#!/usr/bin/env python3
"""The real tools where the online service has a problem: cut off at every request, silent, answering rubbish, a revoked token,
an emptied or restored service. Syncing on this computer goes on, and one line in the system log says what is wrong.

usage: service_problems.py PROGRAMS LOG_LIBRARY [TEST...]

PROGRAMS is the directory of corvanetool, loomerctl and corvane-hub.
"""

import os
import shutil

from computers import EVERYWHERE, GivingAndTaking, HubTest, Relay, main
from homes import FIRST, child, leaf

PUT_BACK = "The online service was put back to an earlier state"
MOMENTS = ("before", "after")
SWITCHES = (("--unregister", 0), ("--isregistered", 1), ("--register", 0), ("--isregistered", 0))


class CutOff(GivingAndTaking):
    def setUp(self):
        super().setUp()
        self.relay = Relay(self.service)
        self.addCleanup(self.relay.end)
        self.found_account(self.relay.port)
        self.start()

    def points(self):
        """Every request, cut off before it reaches the server or after the server has carried it out; one of the two in turn,
        unless both are asked for."""
        request = 0
        while True:
            request += 1
            for moment in MOMENTS if EVERYWHERE else (MOMENTS[request % 2],):
                yield request, moment

    def test_at_every_request(self):
        for request, moment in self.points():
            self.make_edits()
            self.relay.stop_at(request, moment)
            status, output = self.first.sync(FIRST)
            lines = self.first.lines()
            self.assertEqual(status, 0, output)
            was_cut = self.relay.requests >= request
            self.relay.pass_on()
            if not was_cut:
                self.assertEqual(lines, [])
                break
            self.assertEqual(len(lines), 1, f"at request {request}: {lines}")
            self.require_agreement()
        self.assertGreater(request, 4, "a session that takes and gives has several requests")
        self.settle()
        self.require_quiet()

    def test_a_service_that_falls_silent(self):
        self.make_edits()
        self.relay.stop_at(3, "silence")
        self.sync_alone(self.first)
        self.relay.let_go()
        self.require_agreement()

    def test_a_server_that_answers_rubbish(self):
        self.make_edits()
        self.relay.stop_at(1, "rubbish")
        self.sync_alone(self.first)
        self.relay.pass_on()
        self.require_agreement()


class Unusable(HubTest):
    def setUp(self):
        super().setUp()
        self.mine = self.computer([leaf("Mine")])

    def alone(self):
        """What the computer says; its own session goes on, its switches are its own, and no secret shows."""
        self.mine.add("Mine too")
        line = self.sync_alone(self.mine)
        self.assertNotIn(self.tokens[0].split(".")[2], line)
        self.assertIn("Mine too", self.mine.control("tree")[1])
        self.assertEqual(self.mine.run("--canregister"), 0)
        for switch, status in SWITCHES:
            self.assertEqual(self.mine.run(switch), status, switch)
        self.assertEqual(self.mine.lines(), [])
        return line

    def test_a_revoked_token(self):
        self.service.account("revoke", self.name, "computer0")
        self.assertIn("revoked", self.alone())

    def test_an_account_that_was_removed(self):
        self.service.account("remove", self.name)
        self.assertIn("token", self.alone())

    def test_nobody_there(self):
        self.service.kill()
        self.addCleanup(self.service.start)
        self.assertIn(f"127.0.0.1:{self.service.port}", self.alone())


class PutBack(HubTest):
    """A service that goes back to a backup."""

    def setUp(self):
        super().setUp()
        self.first, self.second = self.computer([leaf("Common"), leaf("Other")]), self.computer()
        self.backup = os.path.join(self.directory, "backup")

    def back_up(self):
        shutil.copytree(self.service.data(self.name), self.backup)

    def put_back(self):
        self.service.kill()
        shutil.rmtree(self.service.data(self.name))
        shutil.copytree(self.backup, self.service.data(self.name))
        usage = os.path.join(self.service.data(self.name), "usage")
        if os.path.exists(usage):
            os.remove(usage)
        self.service.start()

    def meet_again(self):
        """The first computer that comes says so, once, and gives again all that the others have seen too."""
        self.first.must_sync(FIRST)
        lines = self.first.lines()
        self.assertEqual(len(lines), 1, lines)
        self.assertTrue(lines[0].startswith(PUT_BACK), lines)
        self.second.must_sync(FIRST)
        self.assertEqual(self.second.lines(), [])
        self.settle()

    def test_an_emptied_service_is_filled_again(self):
        self.back_up()
        self.settle()
        self.second.add("Later")
        self.settle()
        self.put_back()
        self.first.edit(lambda children: children.insert(0, children.pop()))
        self.meet_again()
        self.require_once("Common", "Other", "Later")
        self.assertEqual(len(self.first.titles()), 3)

    def test_a_restored_service_takes_nothing_back(self):
        self.settle()
        self.back_up()
        self.first.edit(lambda children: child({"Children": children}, "Other")["URIDictionary"].update(title="Renamed"))
        self.second.add("Later")
        self.settle()
        self.put_back()
        self.second.add("Later still")
        self.meet_again()
        self.require_once("Common", "Renamed", "Later", "Later still")
        self.assertEqual(len(self.first.titles()), 4)


class MuchGoneAtOnce(HubTest):
    def test_is_asked_about_on_each_computer(self):
        titles = [f"Bookmark {i}" for i in range(8)]
        first, second = self.computer([leaf(title) for title in titles]), self.computer()
        self.settle()
        before = first.tree(FIRST)
        second.edit(lambda children: children.clear())
        status, output = second.sync(FIRST)
        self.assertNotEqual(status, 0, "its own file is asked about too")
        self.assertEqual(second.control("approve", FIRST)[0], 0)
        second.lines()
        second.must_sync(FIRST)
        line = self.sync_alone(first)
        self.assertIn("lacks 8 of 8", line)
        self.assertIn("`loomerctl approve com.keldra.Pelto`", line)
        self.assertIn("lacks 8 of 8", first.control("plan", "com.keldra.Pelto")[1])
        self.assertEqual(first.tree(FIRST), before)
        status, output = first.control("restore", "com.keldra.Pelto")
        self.assertEqual(status, 0, output)
        self.settle()
        self.require_once(*titles)


if __name__ == "__main__":
    main()
