#!/usr/bin/env python3
"""Browsers' hosts that wait at a real corvane-hub for what other computers give.

usage: waiting.py PROGRAMS SCRIPTED_BROWSER LOG_LIBRARY [TEST...]

PROGRAMS is the directory of corvane-browser-host, corvanetool, loomerctl and corvane-hub.
"""

import os
import queue
import sys
import time

from computers import TESTS, HubTest, Relay, main
from homes import FIRST, leaf

sys.path.insert(0, os.path.join(TESTS, "browser-host"))

from hosted import HostedFirefox  # noqa: E402

BROWSER = None
AT_REST = 2  # seconds in which a host has looked at what its own session wrote
LONG = 8     # seconds, in which a second attempt is made after a first one that fails


class Waiting(HubTest):
    def setUp(self):
        super().setUp()
        self.relay = Relay(self.service)
        self.addCleanup(self.relay.end)
        self.found_account(self.relay.port)

    def hosted(self, computer):
        """A browser on that computer, whose host has had its first session."""
        host = HostedFirefox(os.path.join(self.programs, "corvane-browser-host"), BROWSER, computer.environment)
        self.addCleanup(host.close)
        self.addCleanup(lambda: self.assertEqual(host.end(), 0))
        host.until(lambda message: message.get("state") == "idle")
        return host

    def two_computers(self):
        """One with a bookmarks file, and one with a browser alone, which waits."""
        first, second = self.computer([leaf("Common")]), self.computer()
        self.sync(first)
        return first, second, self.hosted(second)

    def require_shown(self, host, title):
        host.until(lambda message: title in [node.get("title") for node in message.get("nodes", [])])
        host.until(lambda message: message.get("state") == "idle")

    def requests_in(self, seconds):
        before = self.relay.requests
        time.sleep(seconds)
        return self.relay.requests - before

    def wakes(self, host):
        """How often the host has gone to sleep."""
        with open(f"/proc/{host.process.pid}/status", encoding="ascii") as file:
            return int(next(line for line in file if line.startswith("voluntary_ctxt_switches")).split()[1])

    def test_what_is_given_arrives_and_nothing_happens_otherwise(self):
        first, second, host = self.two_computers()
        for title in ("Given", "Also given"):
            first.add(title)
            self.sync(first)
            self.require_shown(host, title)
        time.sleep(AT_REST)
        wakes = self.wakes(host)
        self.assertEqual(self.requests_in(LONG), 0)
        self.assertLessEqual(self.wakes(host) - wakes, 1)
        self.assertEqual(second.lines(), [])

    def test_server_that_is_started_again_is_waited_at_again(self):
        first, _, host = self.two_computers()
        self.service.kill()
        self.service.start()
        first.add("Given")
        self.sync(first)
        self.require_shown(host, "Given")

    def test_computer_whose_bookmarks_are_not_given_asks_nothing(self):
        computer = self.computer(switched_on=False)
        before = self.relay.requests
        self.hosted(computer)
        time.sleep(AT_REST)
        self.assertEqual(self.relay.requests, before)

    def test_token_that_is_revoked_is_used_once_more_at_most(self):
        self.two_computers()
        time.sleep(AT_REST)
        before = self.relay.requests
        self.service.account("revoke", self.name, "computer1")
        time.sleep(LONG)
        self.assertLessEqual(self.relay.requests - before, 1)

    def test_server_that_has_always_something_new_is_asked_ever_more_rarely(self):
        computer = self.computer()
        self.relay.stop_at(1, "rubbish")
        host = self.hosted(computer)
        sessions = 0
        end = time.monotonic() + LONG
        while (left := end - time.monotonic()) > 0:
            try:
                host.until(lambda message: message.get("state") == "syncing", patience=left)
            except queue.Empty:
                break
            sessions += 1
        # At once, and after 1 and 4 seconds and up to half as long again.
        self.assertEqual(sessions, 3)


if __name__ == "__main__":
    BROWSER = sys.argv.pop(2)
    main()
