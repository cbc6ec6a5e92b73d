#!/usr/bin/env python3
"""What `loomerctl status` makes of homes in which the real tools ran, well and not.

usage: status_test.py DIRECTORY_OF_PROGRAMS [TEST...]
"""

import contextlib
import json
import os
import plistlib
import re
import shutil
import sqlite3
import sys
import tempfile
import time
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "crash"))

from homes import FIRST, SECOND, Home, Tools, leaf, root_with, write  # noqa: E402

PROGRAMS = None
WELL, NOT_WELL, DAMAGED = 0, 1, 3


class StatusTest(unittest.TestCase):
    def setUp(self):
        self.directory = tempfile.mkdtemp()
        self.addCleanup(shutil.rmtree, self.directory)
        self.home = Home(Tools(PROGRAMS), os.path.join(self.directory, "home")).make()

    def first_sync(self, titles=("Ant", "Bee")):
        write(self.home.bookmarks(FIRST), root_with([leaf(title) for title in titles]))
        self.home.must_sync(FIRST)

    def status(self, expected):
        """The JSON; the text comes with the same exit status and stays on one screen."""
        status, text = self.home.control("status")
        self.assertEqual(status, expected, text)
        self.assertLess(text.count("\n"), 25)
        status, output = self.home.control("status", "--json")
        self.assertEqual(status, expected, output)
        self.text = text
        return json.loads(output)

    def concern(self):
        """The only one."""
        found = self.status(NOT_WELL)["concerns"]
        self.assertEqual(len(found), 1, found)
        self.assertIn(re.sub(r"\s+", " ", found[0]["text"]), re.sub(r"\s+", " ", self.text))
        return found[0]

    def sync_of(self, client):
        status, output = self.home.control("status", "--json")
        self.assertIn(status, (WELL, NOT_WELL), output)
        return next(each for each in json.loads(output)["syncs"] if each["client"] == client)

    def must_fail(self, client=FIRST):
        self.assertEqual(self.home.sync(client)[0], 1)

    def test_quiet_runs_are_counted_and_said_to_bring_nothing_new(self):
        self.first_sync()
        self.assertTrue(self.status(WELL)["well"])
        self.assertIn("All is well.", self.text)
        self.assertRegex(self.text, r"(?m)^Corvane  .* pushed 2, pulled 0$")
        first = self.sync_of(FIRST)
        self.assertEqual((first["outcome"], first["succeededRuns"], first["failedRuns"]), ("changed", 1, 0))
        time.sleep(1.1)  # times are told in seconds
        self.home.must_sync(FIRST)
        quiet = self.sync_of(FIRST)
        self.assertEqual((quiet["outcome"], quiet["succeededRuns"], quiet["lastChange"]), ("quiet", 2, first["lastChange"]))
        self.assertGreater(quiet["lastSucceeded"], first["lastSucceeded"])
        self.status(WELL)
        self.assertIn("nothing new", self.text)

    def test_failed_run_is_told_with_its_cause_until_one_succeeds(self):
        self.first_sync()
        good = self.home.root(FIRST)
        succeeded = self.sync_of(FIRST)["lastSucceeded"]
        time.sleep(1.1)
        with open(self.home.bookmarks(FIRST), "w", encoding="utf-8") as file:
            file.write("rubbish")
        self.must_fail()
        self.must_fail()
        failing = self.sync_of(FIRST)
        self.assertEqual((failing["outcome"], failing["failedInARow"], failing["failedRuns"], failing["succeededRuns"]),
                         ("failed", 2, 2, 1))
        self.assertEqual(failing["lastSucceeded"], succeeded)
        self.assertGreater(failing["lastTried"], succeeded)
        self.assertIn("holds a value of type string in place of a dictionary", failing["cause"])
        concern = self.concern()
        self.assertTrue(concern["needsUser"])
        self.assertIn(failing["cause"], concern["text"])
        self.assertIn("failed, 2 times", self.text)
        write(self.home.bookmarks(FIRST), good)
        self.home.must_sync(FIRST)
        self.status(WELL)
        again = self.sync_of(FIRST)
        self.assertEqual((again["failedInARow"], again["failedRuns"], again["cause"]), (0, 2, None))

    def test_causes_are_told_in_the_language_of_who_reads_them(self):
        self.first_sync()
        good = self.home.root(FIRST)
        with open(self.home.bookmarks(FIRST), "wb") as file:
            file.write(b"bplist00" + b"\0" * 40)
        self.must_fail()
        english = self.sync_of(FIRST)["cause"]
        self.assertIn("binary property list, offset 22: offsets must take 1 to 8 bytes", english)
        causes = {"de_DE.UTF-8": "binäre Property-Liste, Position 22: Positionsangaben müssen 1 bis 8 Bytes haben",
                  "fr_FR.UTF-8": "liste de propriétés binaire, position 22 : les positions doivent occuper de 1 à 8 octets",
                  "es_ES.UTF-8": "lista de propiedades binaria, posición 22: las posiciones deben ocupar de 1 a 8 bytes",
                  "ja_JP.UTF-8": "バイナリ形式のプロパティリスト、オフセット 22: オフセットは 1～8 バイトでなければなりません"}
        for known_by in ("the file", "the note of the run that failed"):
            for locale, cause in causes.items():
                with self.subTest(known_by=known_by, locale=locale):
                    self.home.environment["LC_ALL"] = locale
                    text = self.home.control("status")[1]
                    self.assertIn(cause.replace(" ", ""), re.sub(r"\s", "", text))  # lines end anywhere
                    self.assertEqual(self.sync_of(FIRST)["cause"], english, "programs read English")
            write(self.home.bookmarks(FIRST), good)

    def test_failed_first_run_is_told_though_there_is_no_store(self):
        with open(self.home.bookmarks(FIRST), "w", encoding="utf-8"):
            pass
        self.must_fail()
        status, text = self.home.control("status")
        self.assertEqual(status, NOT_WELL)
        self.assertIn("There is no store yet", text)
        self.assertIn("it is empty, which is no property list", text)

    def test_run_that_raised_is_told_with_what_it_raised(self):
        self.first_sync()
        good = self.home.root(FIRST)
        write(self.home.bookmarks(FIRST), {**good, "WebBookmarkFileVersion": 2})
        self.must_fail()
        self.assertIn("incompatible with this version", self.sync_of(FIRST)["cause"])
        self.assertIn("incompatible with this version", self.concern()["text"])

    def test_note_of_failures_that_cannot_be_read_counts_as_empty(self):
        self.first_sync()
        note = os.path.join(os.path.dirname(self.home.store()), "FailedRuns.plist")
        self.assertFalse(os.path.exists(note), "runs that succeed leave it alone")
        with open(note, "w", encoding="utf-8") as file:
            file.write("rubbish")
        self.status(WELL)
        self.home.must_sync(FIRST)
        write(self.home.bookmarks(FIRST), {**self.home.root(FIRST), "WebBookmarkFileVersion": 2})
        self.must_fail()
        self.assertEqual(self.sync_of(FIRST)["failedRuns"], 1)

    def test_failures_end_with_the_registration(self):
        self.first_sync()
        shutil.copy(self.home.bookmarks(FIRST), self.home.bookmarks(SECOND))
        self.home.must_sync(SECOND)
        with open(self.home.bookmarks(SECOND), "w", encoding="utf-8") as file:
            file.write("rubbish")
        self.must_fail(SECOND)
        self.status(NOT_WELL)
        self.assertRegex(self.text, rf"(?m)^{re.escape(SECOND)}  .* failed$")  # both are called Corvane
        self.assertEqual(os.spawnve(os.P_WAIT, self.home.tools.tool, ["corvanetool", "--unregistersyncclient", SECOND],
                                    self.home.environment), 0)
        self.status(WELL)

    def test_slip_of_the_pen_in_a_clients_name_is_no_concern(self):
        self.first_sync()
        self.home.command = lambda client: [self.home.tools.tool, "--sync", client, "--entitynames", "all"]
        self.must_fail(FIRST + ".Secnd.plist")
        self.status(WELL)

    def test_refused_session_names_the_ways_on(self):
        self.first_sync(["Ant", "Bee", "Cat", "Dog", "Elk", "Fox"])
        write(self.home.bookmarks(FIRST), root_with([]))
        self.must_fail()
        concern = self.concern()
        self.assertIn("it would delete 6 of 6", concern["text"])
        self.assertEqual(concern["commands"], [f"loomerctl {word} {FIRST}" for word in ("plan", "approve", "restore")])
        self.assertEqual(self.home.control("approve", FIRST)[0], 0)
        self.status(NOT_WELL)  # the last run failed all the same
        self.home.must_sync(FIRST)
        self.status(WELL)

    def test_missing_file_of_another_client_needs_the_user(self):
        self.first_sync()
        shutil.copy(self.home.bookmarks(FIRST), self.home.bookmarks(SECOND))
        self.home.must_sync(SECOND)
        os.unlink(self.home.bookmarks(SECOND))
        concern = self.concern()
        self.assertIn(self.home.bookmarks(SECOND), concern["text"])
        self.assertEqual(concern["commands"], ["corvanetool --unregistersyncclient " + SECOND])

    def test_damaged_file_is_seen_before_a_run_fails_of_it(self):
        self.first_sync()
        with open(self.home.bookmarks(FIRST), "r+b") as file:
            file.truncate(40)
        self.assertIn("Could not read bookmarks file", self.concern()["text"])

    def test_old_version_of_a_file_is_a_warning(self):
        self.first_sync()
        write(self.home.bookmarks(FIRST), {**self.home.root(FIRST), "WebBookmarkFileVersion": -1})
        concern = self.concern()
        self.assertIn("is of an old version", concern["text"])
        self.assertFalse(concern["needsUser"])

    def test_run_that_goes_on_is_told_and_one_that_never_ended_warned_of(self):
        self.first_sync()
        os.mkdir(self.home.lock())
        self.assertIsNotNone(self.status(WELL)["running"])
        self.home.age_lock()
        self.assertIn("has not ended", self.concern()["text"])
        self.assertTrue(os.path.isdir(self.home.lock()), "looking leaves it")

    def test_lock_of_the_directory_that_is_held_for_long_is_a_warning(self):
        self.first_sync()
        lock = os.path.join(os.path.dirname(self.home.bookmarks(FIRST)), "lock")
        os.mkdir(lock)
        with open(os.path.join(lock, "details.plist"), "wb") as file:
            plistlib.dump({"LockFileProcessName": "Browser", "LockFileProcessID": os.getpid()}, file)
        self.status(WELL)
        minutes_ago = time.time() - 120
        os.utime(lock, (minutes_ago, minutes_ago))
        self.assertIn("Browser has held the lock of " + os.path.dirname(lock), self.concern()["text"])

    def test_dates_to_come_make_the_clock_suspect(self):
        self.first_sync()
        tomorrow = time.time() + 86400
        os.utime(self.home.bookmarks(FIRST), (tomorrow, tomorrow))
        self.assertIn("Is the clock right?", self.concern()["text"])

    def switch_on(self):
        """As systemd does it for the user."""
        for wants, unit in (("timers", "corvane-sync.timer"), ("paths", "corvane-sync@Bookmarks.plist.path")):
            directory = os.path.join(self.home.path, ".config", "systemd", "user", wants + ".target.wants")
            os.makedirs(directory)
            os.symlink("/nowhere/" + unit, os.path.join(directory, unit))

    def test_whether_it_syncs_by_itself_is_told(self):
        self.first_sync()
        self.assertEqual(self.status(WELL)["automatic"], {"timer": False, "clients": []})
        self.assertIn("`loomerctl enable` switches it on", self.text)
        self.switch_on()
        self.assertEqual(self.status(WELL)["automatic"], {"timer": True, "clients": [FIRST]})
        self.assertIn("on: when 1 file changes, and every 15 minutes", self.text)

    def test_day_without_a_run_though_it_is_switched_on_needs_the_user(self):
        self.first_sync()
        with contextlib.closing(sqlite3.connect(self.home.store())) as store, store:
            store.execute("UPDATE clients SET last_session = last_session - 86401")
        self.status(WELL)
        self.switch_on()
        concern = self.concern()
        self.assertIn("nothing was tried since", concern["text"])
        self.assertTrue(concern["needsUser"])
        self.home.must_sync(FIRST)
        self.status(WELL)

    def test_service_that_is_out_of_reach_is_told_with_what_waits_for_it(self):
        place = os.path.join(self.directory, "place")
        os.mkdir(place)
        self.first_sync()
        self.assertIsNone(self.status(WELL)["service"])
        self.assertEqual(self.home.control("account", "set", place)[0], 0)
        self.assertFalse(self.status(WELL)["service"]["on"])
        self.assertIn("corvanetool --register", self.text)
        self.assertEqual(os.spawnve(os.P_WAIT, self.home.tools.tool, ["corvanetool", "--register"],
                                    self.home.environment), 0)
        self.assertEqual(self.status(WELL)["service"]["waiting"], 2)
        self.home.must_sync(FIRST)
        service = self.status(WELL)["service"]
        self.assertEqual((service["on"], service["waiting"]), (True, 0))
        self.assertGreaterEqual(service["reached"], self.sync_of(FIRST)["lastSucceeded"])
        os.rename(place, place + ".away")
        root = self.home.root(FIRST)
        root["Children"].append(leaf("Cat"))
        write(self.home.bookmarks(FIRST), root)
        self.home.must_sync(FIRST)
        concern = self.concern()
        self.assertIn("synced on this computer alone", concern["text"])
        self.assertEqual(concern["commands"], ["loomerctl account test"])
        self.home.environment["LC_ALL"] = "de_DE.UTF-8"
        german = re.sub(r"\s+", " ", self.home.control("status")[1])
        self.assertIn(f"in Verzeichnis {place} ist nicht möglich: ", german)
        del self.home.environment["LC_ALL"]
        away = self.status(NOT_WELL)["service"]
        self.assertEqual((away["waiting"], away["failedInARow"]), (1, 1))
        self.assertIsNotNone(away["failingSince"])
        os.rename(place + ".away", place)
        self.home.must_sync(FIRST)
        back = self.status(WELL)["service"]
        self.assertEqual((back["waiting"], back["failedInARow"]), (0, 0))

    def test_what_the_service_does_not_take_is_told(self):
        place = os.path.join(self.directory, "place")
        os.mkdir(place)
        self.first_sync()
        self.assertEqual(self.home.control("account", "set", place)[0], 0)
        self.assertEqual(os.spawnve(os.P_WAIT, self.home.tools.tool, ["corvanetool", "--register"],
                                    self.home.environment), 0)
        self.home.must_sync(FIRST)
        self.assertEqual(self.status(WELL)["service"]["notHeld"], 0)
        with contextlib.closing(sqlite3.connect(self.home.store())) as store, store:
            store.execute("UPDATE base SET not_held = 1 WHERE record = (SELECT max(record) FROM base) AND client = "
                          "(SELECT id FROM clients WHERE identifier = 'com.keldra.Pelto')")
        self.assertIn("1 bookmark or folder stays on this computer", self.concern()["text"])

    def test_account_that_cannot_be_read_needs_the_user(self):
        self.first_sync()
        account = os.path.join(os.path.dirname(self.home.store()), "Account.plist")
        with open(account, "w", encoding="utf-8") as file:
            file.write("rubbish")
        os.chmod(account, 0o600)
        self.assertIn("The account at the online service cannot be used", self.concern()["text"])

    def test_damaged_store_has_a_status_of_its_own(self):
        self.first_sync()
        for name in os.listdir(os.path.dirname(self.home.store())):
            if name.startswith("Truth.db-"):
                os.unlink(os.path.join(os.path.dirname(self.home.store()), name))
        with open(self.home.store(), "r+b") as file:
            file.write(b"x" * 4096)
        self.assertEqual(self.home.control("status")[0], DAMAGED)


if __name__ == "__main__":
    PROGRAMS = sys.argv.pop(1)
    unittest.main()
